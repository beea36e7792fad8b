// rfm_Statement.cpp: preparing and dropping statements.
#include "rfm_Statement.h"

#include <new>

void rfm_Statement::Prepare(rfm_Connection& used, std::string_view sql) {
  Finalize();
  used.AllowWork(); // preparing may read the schema
  int const result = sqlite3_prepare_v3(used.Database(), sql.data(), static_cast<int>(sql.size()),
                                        SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  if (result != SQLITE_OK) {
    used.Fail(result);
  }
  connection = &used;
  generation = used.Generation();
}

void rfm_Statement::Finalize() noexcept {
  if (statement && generation == connection->Generation()) {
    sqlite3_finalize(statement);
  }
  statement = nullptr;
}

std::string_view rfm_columnText(sqlite3_stmt* statement, int column) {
  bool const isNull = sqlite3_column_type(statement, column) == SQLITE_NULL;
  auto const* const text = reinterpret_cast<char const*>(sqlite3_column_text(statement, column));
  auto const size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
  if (text == nullptr && !isNull) {
    throw std::bad_alloc();
  }
  return text == nullptr ? std::string_view("", 0) : std::string_view(text, size);
}

std::string_view rfm_columnBytes(sqlite3_stmt* statement, int column) {
  bool const isNull = sqlite3_column_type(statement, column) == SQLITE_NULL;
  void const* const bytes = sqlite3_column_blob(statement, column);
  auto const size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
  if (bytes == nullptr && !isNull &&
      (size != 0 || sqlite3_errcode(sqlite3_db_handle(statement)) == SQLITE_NOMEM)) {
    throw std::bad_alloc();
  }
  return bytes == nullptr ? std::string_view("", 0) : std::string_view(static_cast<char const*>(bytes), size);
}
