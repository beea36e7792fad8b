// plain: the same records in a table of their own, by plain SQLite calls in the settings of our files.
#pragma once

#include <cstdint>
#include <map>
#include <sqlite3.h>
#include <string>

/// One record as a program would keep it.
struct PlainRecord {
  std::int64_t row = 0;
  std::string identity;
  std::string name;
  std::int64_t contents = 0;
};

/// A file with one table of records, found by name through an index.
class PlainFile {
public:
  /// Makes a new file with `count` records, as durably as one transaction is.
  static void Make(std::string const& path, std::int64_t count);
  /// The path of such a file; made when it is first asked for.
  static std::string const& Saved(std::int64_t count);

  explicit PlainFile(std::string const& path, bool forWriting = false);
  ~PlainFile();
  PlainFile(PlainFile const&) = delete;
  PlainFile& operator=(PlainFile const&) = delete;

  /// All names, each with an empty place for its record.
  std::map<std::string, PlainRecord*> ReadNames();
  /// One record by its name.
  PlainRecord Read(std::string const& name);
  /// All records, in stored order.
  std::map<std::string, PlainRecord> ReadAll();
  /// One changed record as one transaction.
  void Save(std::string const& name);

private:
  void Run(char const* sql);
  sqlite3_stmt* Prepare(sqlite3_stmt*& statement, char const* sql);
  void Want(bool good) const;

  sqlite3* database = nullptr;
  sqlite3_stmt* find = nullptr;
  sqlite3_stmt* walk = nullptr;
  sqlite3_stmt* insert = nullptr;
  sqlite3_stmt* update = nullptr;
  sqlite3_stmt* begin = nullptr;
  sqlite3_stmt* commit = nullptr;
};
