// stored_file.cpp: SQLite, and nothing of ours.
#include "stored_file.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <sqlite3.h>
#include <stdexcept>

namespace {

/// Files of tests need not survive a power cut.
std::string const hasty = "PRAGMA synchronous = off; PRAGMA journal_mode = memory;";

using connection_holder = std::unique_ptr<sqlite3, int (*)(sqlite3*)>;

connection_holder openFile(std::string const& path, int flags) {
  sqlite3* opened = nullptr;
  int const result = sqlite3_open_v2(path.c_str(), &opened, flags, nullptr);
  connection_holder connection(opened, sqlite3_close);
  if (result != SQLITE_OK) {
    throw std::runtime_error(path + ": " + sqlite3_errstr(result));
  }
  return connection;
}

void execute(sqlite3* connection, std::string const& sql) {
  if (sqlite3_exec(connection, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
    throw std::runtime_error(sql.substr(0, 200) + ": " + sqlite3_errmsg(connection));
  }
}

std::string printed(sqlite3_stmt* statement, int column) {
  switch (sqlite3_column_type(statement, column)) {
  case SQLITE_NULL:
    return "NULL";
  case SQLITE_INTEGER:
    return std::to_string(sqlite3_column_int64(statement, column));
  case SQLITE_FLOAT: {
    char text[40];
    std::snprintf(text, sizeof text, "%#.17g", sqlite3_column_double(statement, column));
    return text;
  }
  case SQLITE_TEXT:
    return "'" +
           std::string(reinterpret_cast<char const*>(sqlite3_column_text(statement, column)),
                       static_cast<std::size_t>(sqlite3_column_bytes(statement, column))) +
           "'";
  default: {
    std::string text = "x'";
    auto const* const bytes = static_cast<unsigned char const*>(sqlite3_column_blob(statement, column));
    for (int index = 0; index < sqlite3_column_bytes(statement, column); ++index) {
      char digits[3];
      std::snprintf(digits, sizeof digits, "%02x", bytes[index]);
      text += digits;
    }
    return text + "'";
  }
  }
}

/// A name as SQL quotes it.
std::string quoted(std::string const& name, char mark) {
  std::string text(1, mark);
  for (char const letter : name) {
    text.append(letter == mark ? 2 : 1, letter);
  }
  return text + mark;
}

std::string hex(std::string const& number) {
  char text[20];
  std::snprintf(text, sizeof text, "%#llx", std::stoull(number));
  return text;
}

} // namespace

void make_stored_file(std::string const& path, std::string const& sql) {
  std::filesystem::remove(path);
  execute(openFile(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE).get(), hasty + sql);
}

void change_stored_file(std::string const& path, std::string const& sql) {
  execute(openFile(path, SQLITE_OPEN_READWRITE).get(), hasty + sql);
}

stored_file::stored_file(std::string const& path)
    : connection(openFile(path, SQLITE_OPEN_READONLY).release()) {}

stored_file::~stored_file() {
  sqlite3_close(connection);
}

std::vector<std::vector<std::pair<std::string, std::string>>> stored_file::run(std::string const& sql) const {
  sqlite3_stmt* prepared = nullptr;
  if (sqlite3_prepare_v2(connection, sql.c_str(), -1, &prepared, nullptr) != SQLITE_OK) {
    throw std::runtime_error(sql + ": " + sqlite3_errmsg(connection));
  }
  std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> const statement(prepared, sqlite3_finalize);
  std::vector<std::vector<std::pair<std::string, std::string>>> found;
  int result = SQLITE_ROW;
  while ((result = sqlite3_step(prepared)) == SQLITE_ROW) {
    auto& row = found.emplace_back();
    for (int column = 0; column < sqlite3_column_count(prepared); ++column) {
      row.emplace_back(sqlite3_column_name(prepared, column), printed(prepared, column));
    }
  }
  if (result != SQLITE_DONE) {
    throw std::runtime_error(sql + ": " + sqlite3_errmsg(connection));
  }
  return found;
}

std::string stored_file::value(std::string const& sql) const {
  auto const found = run(sql);
  return found.empty() ? "nothing" : found.front().front().second;
}

std::vector<std::string> stored_file::lines(std::string const& sql) const {
  std::vector<std::string> found;
  for (auto const& row : run(sql)) {
    std::string& line = found.emplace_back();
    for (auto const& [name, text] : row) {
      line += (line.empty() ? "" : " ") + text;
    }
  }
  return found;
}

std::vector<std::string> stored_file::classes() const {
  std::vector<std::string> names;
  for (std::string const& name : lines(R"(SELECT "Class Name" FROM ddr_class ORDER BY "row")")) {
    names.push_back(name.substr(1, name.size() - 2));
  }
  return names;
}

int stored_file::version(std::string const& className) const {
  std::string const found =
      value(R"(SELECT "Class Version" FROM ddr_class WHERE "Class Name" = )" + quoted(className, '\''));
  return found == "nothing" ? -1 : std::stoi(found);
}

std::vector<std::string> stored_file::attributes(std::string const& className) const {
  std::vector<std::string> found;
  for (auto const& row : run("SELECT name, kind, element, collection FROM ddr_attribute JOIN ddr_class ON "
                             R"(ddr_attribute.class = ddr_class."row" WHERE "Class Name" = )" +
                             quoted(className, '\'') + " ORDER BY position")) {
    std::string const& name = row[0].second;
    found.push_back(name.substr(1, name.size() - 2) + " " + row[1].second + " " + hex(row[2].second) + " " +
                    row[3].second);
  }
  return found;
}

std::string stored_file::tableOf(std::string const& className) const {
  std::string const found =
      value(R"(SELECT "Class Table" FROM ddr_class WHERE "Class Name" = )" + quoted(className, '\''));
  return found.front() == '\'' ? quoted(found.substr(1, found.size() - 2), '"') : "";
}

stored_rows stored_file::rows(std::string const& className) const {
  std::string const table = tableOf(className);
  stored_rows found;
  if (table.empty()) {
    return found;
  }
  for (auto const& row : run("SELECT * FROM " + table + R"( ORDER BY "row")")) {
    stored_fields fields(row.begin(), row.end());
    long long const number = std::stoll(fields.at("row"));
    fields.erase("row");
    found.emplace(number, std::move(fields));
  }
  return found;
}

stored_fields stored_file::row(std::string const& className, long long number) const {
  return rows(className).at(number);
}

std::string stored_file::field(std::string const& className, long long row, std::string const& name) const {
  std::string const table = tableOf(className);
  return table.empty() ? "nothing"
                       : value("SELECT " + quoted(name, '"') + " FROM " + table + R"( WHERE "row" = )" +
                               std::to_string(row));
}

std::vector<std::string> stored_file::entries(long long handle) const {
  std::vector<std::string> found;
  for (auto const& row : run("SELECT Key, ClassID, OID FROM ddr_entry WHERE handle = " +
                             std::to_string(handle) + " ORDER BY position")) {
    std::string const& key = row[0].second;
    found.push_back((key.front() == '\'' ? key.substr(1, key.size() - 2) : key) + " " + hex(row[1].second) +
                    " " + row[2].second);
  }
  return found;
}

std::vector<std::string> stored_file::collection(std::string const& className, long long row,
                                                 std::string const& attribute) const {
  std::string const header = value(R"(SELECT "Class Name" FROM ddr_class WHERE "Type Id" = )" +
                                   field(className, row, attribute + "#ClassID"));
  if (header.front() != '\'') {
    throw std::runtime_error(className + ": " + attribute + " is not set");
  }
  return entries(std::stoll(field(header.substr(1, header.size() - 2),
                                  std::stoll(field(className, row, attribute + "#OID")), "Target#Handle")));
}

std::string stored_file::everything() const {
  std::string text;
  auto const add = [&](std::string const& title, std::string const& sql) {
    text += title + "\n";
    for (std::string const& line : lines(sql)) {
      text += "  " + line + "\n";
    }
  };
  add("header", "SELECT * FROM ddr_header");
  add("classes", R"(SELECT * FROM ddr_class ORDER BY "row")");
  add("attributes", "SELECT * FROM ddr_attribute ORDER BY class, position");
  for (std::string const& name : classes()) {
    text += name + "\n";
    std::string const table = tableOf(name);
    if (table.empty()) {
      continue;
    }
    // A damaged table may have several rows of one number.
    for (auto const& row : run("SELECT * FROM " + table + R"( ORDER BY "row")")) {
      text += " ";
      for (auto const& [field, value] : stored_fields(row.begin(), row.end())) {
        text += " " + field + "=" + value;
      }
      text += "\n";
    }
  }
  add("entries", "SELECT * FROM ddr_entry ORDER BY handle, position");
  return text;
}

std::string stored_file::integrity() const {
  std::string const answer = value("PRAGMA integrity_check");
  return answer == "'ok'" ? "ok" : answer;
}
