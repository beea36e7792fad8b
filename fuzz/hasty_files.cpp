// hasty_files.cpp: the system's file layer with all that syncs exchanged. What the program syncs by itself, a
// folder at each save, it still does.
#include "hasty_files.h"

#include <sqlite3.h>
#include <stdexcept>

namespace {

sqlite3_vfs* ordinary = nullptr;
sqlite3_vfs hasty;
sqlite3_io_methods ofDatabases;
sqlite3_io_methods ofJournals; // which nobody locks

int leaveOut(sqlite3_file*, int) {
  return SQLITE_OK;
}

int openHastily(sqlite3_vfs*, char const* name, sqlite3_file* file, int flags, int* outFlags) {
  int const result = ordinary->xOpen(ordinary, name, file, flags, outFlags);
  if (result == SQLITE_OK && file->pMethods != nullptr) {
    sqlite3_io_methods& methods = (flags & SQLITE_OPEN_MAIN_DB) != 0 ? ofDatabases : ofJournals;
    methods = *file->pMethods;
    methods.xSync = leaveOut;
    file->pMethods = &methods;
  }
  return result;
}

int removeHastily(sqlite3_vfs*, char const* name, int) {
  return ordinary->xDelete(ordinary, name, 0);
}

} // namespace

void use_hasty_files() {
  ordinary = sqlite3_vfs_find(nullptr);
  if (ordinary == nullptr || sqlite3_initialize() != SQLITE_OK) {
    throw std::runtime_error("SQLite has no files");
  }
  hasty = *ordinary;
  hasty.zName = "hasty";
  hasty.xOpen = openHastily;
  hasty.xDelete = removeHastily;
  sqlite3_vfs_register(&hasty, 1);
}
