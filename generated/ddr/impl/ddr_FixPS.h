// ddr_FixPS: repairs the persistent names stored in a file.
#pragma once

#include "os_Export.h"
#include "rom_ODBHeaderParser.h"

/// Repairs the persistent names stored in a database file.
class DDR_API ddr_FixPS {
public:
  /// Gives every stored version of the database record, and every stored shortcut to a database, the
  /// persistent name of the last saved version, as one transaction. Shortcuts to other databases are
  /// rewritten too, and records that are open in memory do not notice. A file without records is left alone.
  /// Passes on what the file layer throws.
  static void FixPersistentString(rom_UtlDatabase& database);
};
