// simulation_files.cpp: the system's file layer with four functions exchanged.
#include "simulation_files.h"

#include <sqlite3.h>
#include <stdexcept>
#include <string_view>

namespace {

sqlite3_vfs* ordinary = nullptr;
sqlite3_io_methods const* ordinaryMethods = nullptr;
sqlite3_vfs asking;
sqlite3_io_methods askingMethods;
std::function<void()> askAtLock;
std::function<void()> tellOfCommit;

int lock(sqlite3_file* file, int level) {
  askAtLock();
  return ordinaryMethods->xLock(file, level);
}

int openFile(sqlite3_vfs*, char const* name, sqlite3_file* file, int flags, int* outFlags) {
  int const result = ordinary->xOpen(ordinary, name, file, flags, outFlags);
  if (result == SQLITE_OK && (flags & SQLITE_OPEN_MAIN_DB) != 0) {
    ordinaryMethods = file->pMethods; // the same for every ordinary file
    askingMethods = *ordinaryMethods;
    askingMethods.xLock = lock;
    file->pMethods = &askingMethods;
  }
  return result;
}

int deleteFile(sqlite3_vfs*, char const* name, int syncFolder) {
  int const result = ordinary->xDelete(ordinary, name, syncFolder);
  if (std::string_view(name).ends_with("-journal")) {
    tellOfCommit();
  }
  return result;
}

int sleepAWhile(sqlite3_vfs*, int microseconds) {
  askAtLock();
  return microseconds;
}

} // namespace

simulation_files::simulation_files(std::function<void()> atLock, std::function<void()> atCommit) {
  if (ordinary != nullptr || sqlite3_initialize() != SQLITE_OK) {
    throw std::logic_error("one simulation_files at a time");
  }
  askAtLock = std::move(atLock);
  tellOfCommit = std::move(atCommit);
  ordinary = sqlite3_vfs_find(nullptr);
  asking = *ordinary;
  asking.zName = "asking";
  asking.xOpen = openFile;
  asking.xDelete = deleteFile;
  asking.xSleep = sleepAWhile;
  sqlite3_vfs_register(&asking, 1);
}

simulation_files::~simulation_files() {
  sqlite3_vfs_unregister(&asking);
  sqlite3_vfs_register(ordinary, 1);
  ordinary = nullptr;
}

simulation_outsider::simulation_outsider(std::string const& path, bool alsoKeepsOutReaders)
    : connection(nullptr, sqlite3_close) {
  sqlite3* opened = nullptr;
  int result = sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE, nullptr);
  connection.reset(opened);
  if (result == SQLITE_OK) {
    result = sqlite3_exec(opened, alsoKeepsOutReaders ? "BEGIN EXCLUSIVE" : "BEGIN IMMEDIATE", nullptr,
                          nullptr, nullptr);
  }
  if (result != SQLITE_OK) {
    throw std::runtime_error("cannot lock " + path + ": " + sqlite3_errmsg(opened));
  }
}
