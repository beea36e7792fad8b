// tool_Database: the one database that a command works on.
#pragma once

#include "ddr_Root.h"

#include <string>

/// An open database. It is closed with this object, and what was not saved is dropped. One at a time.
/// Failures are exceptions whose text names the file.
class tool_Database {
public:
  /// Opens the database of a file.
  /// @param fileName path of the file
  /// @param access utl_FileAccess::Read, which never writes a byte, or utl_FileAccess::Write
  tool_Database(std::string const& fileName, utl_FileAccess access);
  /// Makes a database file, in place of a database that stands there. Not saved yet: the file holds no
  /// record.
  tool_Database(std::string const& fileName, std::string const& description);
  ~tool_Database();
  tool_Database(tool_Database const&) = delete;
  tool_Database& operator=(tool_Database const&) = delete;

  /// The database; valid until the next Save.
  ddr_Ddb const& Record() const;
  /// The persistent name without the blanks that fill it up.
  std::string_view Name() const;

  /// Changes the database and saves it, as one transaction. When either fails, the file is as it was.
  /// @param change takes a ddr_Ddb& and changes it
  template <class Change>
  void Save(Change change);

private:
  ddr_Root& root;
  cow_String persistentName;
};

// ---- template bodies ----

template <class Change>
void tool_Database::Save(Change change) {
  ddr_DdbContainer databases = root.Fetch();
  change(databases.Get(persistentName));
  root.Replace(databases);
  root.SaveDdb(persistentName, true);
}
