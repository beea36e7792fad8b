// fault_vfs.cpp: a layer over SQLite's own access to files.
#include "fault_vfs.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sqlite3.h>
#include <stdexcept>

namespace {

struct State {
  int changes = 0;
  int writes = 0;
  int syncs = 0;
  int failures = 0;
  int failAt = 0;
  int errorNumber = 0;
  bool lasting = false;
  int lastError = 0;
  int killAt = 0;
};

State state;
sqlite3_vfs* below = nullptr;
sqlite3_vfs layer{};

// True when the request shall fail.
bool count() {
  ++state.changes;
  if (state.changes == state.killAt) {
    std::raise(SIGKILL);
  }
  bool const fails =
      state.failAt > 0 && (state.lasting ? state.changes >= state.failAt : state.changes == state.failAt);
  if (fails) {
    ++state.failures;
    state.lastError = state.errorNumber;
  }
  return fails;
}

struct File {
  sqlite3_file base;
  sqlite3_file* real;
};

sqlite3_file* real(sqlite3_file* file) {
  return reinterpret_cast<File*>(file)->real;
}

int closeFile(sqlite3_file* file) {
  int const result = real(file)->pMethods->xClose(real(file));
  std::free(real(file));
  return result;
}

int readFile(sqlite3_file* file, void* bytes, int size, sqlite3_int64 offset) {
  return real(file)->pMethods->xRead(real(file), bytes, size, offset);
}

int writeFile(sqlite3_file* file, void const* bytes, int size, sqlite3_int64 offset) {
  ++state.writes;
  if (count()) {
    return state.errorNumber == ENOSPC ? SQLITE_FULL : SQLITE_IOERR_WRITE;
  }
  return real(file)->pMethods->xWrite(real(file), bytes, size, offset);
}

int truncateFile(sqlite3_file* file, sqlite3_int64 size) {
  return count() ? SQLITE_IOERR_TRUNCATE : real(file)->pMethods->xTruncate(real(file), size);
}

int syncFile(sqlite3_file* file, int flags) {
  ++state.syncs;
  return count() ? SQLITE_IOERR_FSYNC : real(file)->pMethods->xSync(real(file), flags);
}

int sizeOfFile(sqlite3_file* file, sqlite3_int64* size) {
  return real(file)->pMethods->xFileSize(real(file), size);
}

int lockFile(sqlite3_file* file, int level) {
  return real(file)->pMethods->xLock(real(file), level);
}

int unlockFile(sqlite3_file* file, int level) {
  return real(file)->pMethods->xUnlock(real(file), level);
}

int checkReservedLock(sqlite3_file* file, int* answer) {
  return real(file)->pMethods->xCheckReservedLock(real(file), answer);
}

int controlFile(sqlite3_file* file, int operation, void* argument) {
  return real(file)->pMethods->xFileControl(real(file), operation, argument);
}

int sectorSize(sqlite3_file* file) {
  return real(file)->pMethods->xSectorSize(real(file));
}

int deviceCharacteristics(sqlite3_file* file) {
  return real(file)->pMethods->xDeviceCharacteristics(real(file));
}

sqlite3_io_methods const methods = {1,
                                    closeFile,
                                    readFile,
                                    writeFile,
                                    truncateFile,
                                    syncFile,
                                    sizeOfFile,
                                    lockFile,
                                    unlockFile,
                                    checkReservedLock,
                                    controlFile,
                                    sectorSize,
                                    deviceCharacteristics,
                                    nullptr,
                                    nullptr,
                                    nullptr,
                                    nullptr,
                                    nullptr,
                                    nullptr};

int openFile(sqlite3_vfs*, char const* name, sqlite3_file* file, int flags, int* outFlags) {
  file->pMethods = nullptr;
  if ((flags & SQLITE_OPEN_MAIN_JOURNAL) != 0 && (flags & SQLITE_OPEN_CREATE) != 0 && count()) {
    return SQLITE_CANTOPEN;
  }
  auto* const opened = static_cast<sqlite3_file*>(std::calloc(1, static_cast<std::size_t>(below->szOsFile)));
  if (!opened) {
    return SQLITE_NOMEM;
  }
  int const result = below->xOpen(below, name, opened, flags, outFlags);
  if (!opened->pMethods) {
    std::free(opened);
    return result;
  }
  reinterpret_cast<File*>(file)->real = opened;
  file->pMethods = &methods;
  return result;
}

int deleteFile(sqlite3_vfs*, char const* name, int syncFolder) {
  if (syncFolder != 0) {
    ++state.syncs;
  }
  return count() ? SQLITE_IOERR_DELETE : below->xDelete(below, name, syncFolder);
}

int accessFile(sqlite3_vfs*, char const* name, int flags, int* answer) {
  return below->xAccess(below, name, flags, answer);
}

int fullPathname(sqlite3_vfs*, char const* name, int size, char* path) {
  return below->xFullPathname(below, name, size, path);
}

int lastError(sqlite3_vfs*, int size, char* text) {
  if (state.lastError != 0) {
    return state.lastError;
  }
  return below->xGetLastError ? below->xGetLastError(below, size, text) : 0;
}

} // namespace

fault_vfs::fault_vfs() {
  if (below) {
    throw std::logic_error("one fault_vfs at a time");
  }
  below = sqlite3_vfs_find(nullptr);
  layer = *below;
  layer.pNext = nullptr;
  layer.zName = "faults";
  layer.szOsFile = static_cast<int>(sizeof(File));
  layer.xOpen = openFile;
  layer.xDelete = deleteFile;
  layer.xAccess = accessFile;
  layer.xFullPathname = fullPathname;
  layer.xGetLastError = lastError;
  sqlite3_vfs_register(&layer, 1);
  reset();
}

fault_vfs::~fault_vfs() {
  sqlite3_vfs_unregister(&layer);
  sqlite3_vfs_register(below, 1);
  below = nullptr;
}

void fault_vfs::reset() noexcept {
  state = State();
}

void fault_vfs::fail_at(int request, int errorNumber, bool lasting) noexcept {
  reset();
  state.failAt = request;
  state.errorNumber = errorNumber;
  state.lasting = lasting;
}

void fault_vfs::kill_at(int request) noexcept {
  reset();
  state.killAt = request;
}

int fault_vfs::changes() const noexcept {
  return state.changes;
}

int fault_vfs::writes() const noexcept {
  return state.writes;
}

int fault_vfs::syncs() const noexcept {
  return state.syncs;
}

int fault_vfs::failures() const noexcept {
  return state.failures;
}
