// rom_ODBHeaderParser and rom_UtlDatabase: a database file seen as tables, without building objects.
#pragma once

#include "cls_ClassRegistrar.h"
#include "os_Export.h"
#include "rfm_Database.h"
#include "rfm_Table.h"

/// Reads the class list in the header of a database file.
class DDR_API rom_ODBHeaderParser {
public:
  /// Whether the classes stored in a file have the versions of a registrar. The first value means "up to
  /// date".
  enum UpToDateStatus : int {
    UpToDate = 0,       ///< every class has the registrar's version
    Older = 1,          ///< at least one class is older, none newer or unknown
    NewerOrUnknown = 2, ///< at least one class is newer than the registrar's or not known to it
  };

  explicit rom_ODBHeaderParser(rfm_Database const& database);

  /// The class list as a table with the fields "Class Name" and "Class Table".
  rfm_Table ClassList() const;
  /// The table of one row of the class list.
  rfm_Table ClassTable(rfm_Row const& classListRow) const;
  /// Compares the stored class versions with a registrar's. Classes that the file does not list do not count.
  /// @param firstDifferent receives the name of the class that decided; may be null
  UpToDateStatus GetUpToDateStatus(cls_ClassRegistrar const& registrar, cow_String* firstDifferent) const;

private:
  rfm_Database database;
};

/// A database file as tables of classes.
class DDR_API rom_UtlDatabase {
public:
  explicit rom_UtlDatabase(rfm_Database const& opened) : database(opened) {}
  /// The table of a class; of length 0 when the file does not list the class.
  rfm_Table GetTable(unsigned typeId) const;
  rfm_Database& Database() noexcept { return database; }

private:
  mutable rfm_Database database;
};
