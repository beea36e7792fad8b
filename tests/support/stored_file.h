// stored_file: a database file made, changed and looked at with SQLite alone.
#pragma once

#include <map>
#include <string>
#include <vector>

struct sqlite3;

/// Makes a file of SQL text, in place of what stands there.
void make_stored_file(std::string const& path, std::string const& sql);
/// Runs SQL on a file.
void change_stored_file(std::string const& path, std::string const& sql);

/// The columns of a row as text, by name: NULL, 7, 0.5, 'text', x'00ff'. The row number is no column here.
using stored_fields = std::map<std::string, std::string>;
/// The rows of a class by number.
using stored_rows = std::map<long long, stored_fields>;

/// What a database file holds, read without any code that is being tested.
class stored_file {
public:
  /// @param path a file that no other process writes to
  explicit stored_file(std::string const& path);
  ~stored_file();
  stored_file(stored_file const&) = delete;
  stored_file& operator=(stored_file const&) = delete;

  /// The first value that SQL gives, as text; "nothing" when it gives no row.
  std::string value(std::string const& sql) const;
  /// The values of every row that SQL gives, a row a text, its values separated by blanks.
  std::vector<std::string> lines(std::string const& sql) const;

  /// Names of the classes, in stored order.
  std::vector<std::string> classes() const;
  /// The version of a class; -1 for a class that is not listed.
  int version(std::string const& className) const;
  /// The attributes of a class in order: "models 15 0x220007 2".
  std::vector<std::string> attributes(std::string const& className) const;
  /// The rows of a class; none for a class that has no table.
  stored_rows rows(std::string const& className) const;
  /// One row of a class. Throws std::out_of_range when it is not there.
  stored_fields row(std::string const& className, long long number) const;
  /// One field of one row.
  std::string field(std::string const& className, long long row, std::string const& name) const;
  /// The entries of a collection in order: "Beam 0x220007 0".
  std::vector<std::string> entries(long long handle) const;
  /// The entries of the collection whose header a reference of a row names.
  std::vector<std::string> collection(std::string const& className, long long row,
                                      std::string const& attribute) const;

  /// All of the file as text, but for the places of pages in it: header, class list, rows and entries.
  std::string everything() const;
  /// What SQLite finds wrong with the file: "ok".
  std::string integrity() const;

private:
  std::string tableOf(std::string const& className) const;
  std::vector<std::vector<std::pair<std::string, std::string>>> run(std::string const& sql) const;

  sqlite3* connection;
};
