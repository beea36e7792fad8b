// tool_Database: the one database that a command works on.
#pragma once

#include "ddr_Root.h"
#include "nex_Exception.h"

#include <string>
#include <string_view>

/// An open database. It is closed with this object, and what was not saved is dropped. One at a time.
/// Failures are exceptions whose text names the file.
class tool_Database {
public:
  /// Opens the database of a file.
  /// @param fileName path of the file
  /// @param access utl_FileAccess::Read, which never writes a byte, or utl_FileAccess::Write
  tool_Database(std::string const& fileName, utl_FileAccess access);
  /// Makes a database file, whole or not at all.
  /// @param fileName path of the file
  /// @param description what the database is about
  /// @param access utl_FileAccess::Create, which replaces a database that stands there, or
  /// utl_FileAccess::CreateNew, which replaces nothing
  tool_Database(std::string const& fileName, std::string const& description, utl_FileAccess access);
  ~tool_Database();
  tool_Database(tool_Database const&) = delete;
  tool_Database& operator=(tool_Database const&) = delete;

  /// The database; valid until the next Save.
  ddr_Ddb const& Record() const;
  /// The persistent name without the blanks that fill it up.
  std::string_view Name() const;

  /// Changes the database and saves it, as one transaction. When either fails, the file is as it was. A file
  /// that cannot take the change because its layout is an older one is refused with the way out.
  /// @param change takes a ddr_Ddb& and changes it
  template <class Change>
  void Save(Change change);

private:
  /// Throws when an older layout can be the reason for a failure, with what helps.
  /// @param what is of that layout: "its record"
  /// @param cannot what could not be done: "cannot be read as it is"
  void RefuseOlderLayout(nex_Exception const& failure, std::string_view what, std::string_view cannot) const;

  ddr_Root& root;
  std::string file;
  cow_String persistentName;
};

/// A persistent name without the blanks that fill it up; part of the text that is given.
std::string_view tool_withoutPadding(std::string_view persistentName) noexcept;

// ---- template bodies ----

template <class Change>
void tool_Database::Save(Change change) {
  ddr_DdbContainer databases = root.Fetch();
  change(databases.Get(persistentName));
  root.Replace(databases);
  try {
    root.SaveDdb(persistentName, true);
  } catch (nex_Exception const& failure) {
    RefuseOlderLayout(failure, "it", "cannot be changed as it is; nothing was changed");
    throw;
  }
}
