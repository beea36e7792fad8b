// rfm_Statement: a prepared statement that is kept for its next use.
#pragma once

#include "rfm_Connection.h"

#include <array>
#include <string>
#include <utility>

/// A prepared statement, or the place for one. Becomes stale when its connection is closed, and is then
/// prepared anew at its next use. The connection must outlive it.
class rfm_Statement {
public:
  rfm_Statement() noexcept = default;
  rfm_Statement(rfm_Statement&& other) noexcept
      : connection(other.connection), generation(other.generation),
        statement(std::exchange(other.statement, nullptr)) {}
  rfm_Statement& operator=(rfm_Statement&& other) noexcept {
    std::swap(connection, other.connection);
    std::swap(generation, other.generation);
    std::swap(statement, other.statement);
    return *this;
  }
  ~rfm_Statement() { Finalize(); }

  /// Whether it can be used on the connection as it is open now.
  bool IsReady() const noexcept { return statement && generation == connection->Generation(); }
  void Prepare(rfm_Connection& used, std::string_view sql);
  void Finalize() noexcept;
  sqlite3_stmt* Get() const noexcept { return statement; }

private:
  rfm_Connection* connection = nullptr;
  unsigned generation = 0;
  sqlite3_stmt* statement = nullptr;
};

/// @{ A text, and the bytes of a text or blob, in the row that a statement stands on; empty for null. Valid
/// until the statement goes on. Throws std::bad_alloc when SQLite has no memory to hand them out.
std::string_view rfm_columnText(sqlite3_stmt* statement, int column);
std::string_view rfm_columnBytes(sqlite3_stmt* statement, int column);
/// @}

/// One run of a statement: parameters, rows, and the reset at the end. Texts and blobs that are bound must
/// live as long.
class rfm_Run {
public:
  /// @param sql gives the text, asked for only when the statement must be prepared
  template <class Sql>
  rfm_Run(rfm_Connection& used, rfm_Statement& slot, Sql const& sql, rfm_Subject const& about = {})
      : connection(used), subject(about) {
    if (!slot.IsReady()) {
      if constexpr (requires { sql(); }) {
        slot.Prepare(connection, sql());
      } else {
        slot.Prepare(connection, sql);
      }
    }
    statement = slot.Get();
    ++connection.statistics.statements;
  }
  ~rfm_Run() {
    if (statement) {
      sqlite3_reset(statement);
    }
  }
  rfm_Run(rfm_Run const&) = delete;
  rfm_Run& operator=(rfm_Run const&) = delete;

  void Bind(int parameter, std::int64_t value) { Check(sqlite3_bind_int64(statement, parameter, value)); }
  void Bind(int parameter, int value) { Check(sqlite3_bind_int64(statement, parameter, value)); }
  void Bind(int parameter, unsigned value) { Check(sqlite3_bind_int64(statement, parameter, value)); }
  void Bind(int parameter, double value) { Check(sqlite3_bind_double(statement, parameter, value)); }
  void Bind(int parameter, std::string_view text) {
    Check(sqlite3_bind_text64(statement, parameter, text.data() ? text.data() : "", text.size(), nullptr,
                              SQLITE_UTF8));
  }
  void BindBlob(int parameter, void const* bytes, std::size_t size) {
    Check(sqlite3_bind_blob64(statement, parameter, bytes, size, nullptr));
  }
  void BindNull(int parameter) { Check(sqlite3_bind_null(statement, parameter)); }

  /// Whether there is a next row.
  bool Step() {
    int const result = connection.Advance(statement);
    if (result == SQLITE_ROW) {
      return true;
    }
    if (result != SQLITE_DONE) {
      connection.Fail(result, subject);
    }
    return false;
  }
  /// Runs a change.
  /// @returns how many rows it changed
  int Change() {
    Step();
    int const changed = sqlite3_changes(connection.Database());
    connection.statistics.rowsWritten += static_cast<unsigned>(changed);
    return changed;
  }
  sqlite3_stmt* Get() const noexcept { return statement; }
  /// Leaves the statement in the middle of its rows.
  void Keep() noexcept { statement = nullptr; }

private:
  void Check(int result) {
    if (result != SQLITE_OK) {
      connection.Fail(result, subject);
    }
  }

  rfm_Connection& connection;
  rfm_Subject subject;
  sqlite3_stmt* statement = nullptr;
};
