// rfm_JournalSync.cpp: a layer over SQLite's own access to files.
#include "rfm_JournalSync.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <fcntl.h>
#include <memory>
#include <new>
#include <sqlite3.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <type_traits>
#include <unistd.h>
#include <utility>

namespace {

/// SQLite's access to files with another way to open and delete them. SQLite knows it by its name.
struct Layer : sqlite3_vfs {
  Layer(sqlite3_vfs& below, std::string name);

  sqlite3_vfs* ordinary;
  std::string ownName;
};

/// A journal that a save makes. It stands behind what SQLite keeps of the file, which leads to it by its
/// methods.
struct Journal {
  sqlite3_io_methods methods; // first, so that it is found by them
  sqlite3_io_methods const* ordinary;
  char const* path;
  bool isNameDurable;
};
static_assert(std::is_standard_layout_v<Journal> && std::is_trivially_destructible_v<Journal>);

// Where the journal stands [byte].
int sizeOfOrdinary(sqlite3_vfs const& ordinary) {
  constexpr int alignment = alignof(Journal);
  return (ordinary.szOsFile + alignment - 1) / alignment * alignment;
}

// Needs no memory: where that runs out, SQLite cannot take the save back at once.
// @returns a code of SQLite
int syncFolder(std::string_view path) noexcept {
  std::array<char, PATH_MAX> folder{}; // the system opens no file of a longer name
  path.substr(0, path.rfind('/') + 1).copy(folder.data(), folder.size() - 1);
  int const descriptor = open(folder.data(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) {
    return SQLITE_IOERR_FSYNC;
  }
  int const result = fsync(descriptor) == 0 ? SQLITE_OK : SQLITE_IOERR_FSYNC;
  int const number = errno;
  close(descriptor);
  errno = number;
  return result;
}

// Before SQLite syncs the folder itself: a device may tell only once that it has failed. The code that SQLite
// has for folders would say that the save is done, for a save ends with the removal of its journal and the
// sync of that.
int syncJournal(sqlite3_file* file, int flags) {
  auto& journal = *reinterpret_cast<Journal*>(const_cast<sqlite3_io_methods*>(file->pMethods));
  if (!journal.isNameDurable) {
    if (int const result = syncFolder(journal.path); result != SQLITE_OK) {
      return result;
    }
    journal.isNameDurable = true;
  }
  return journal.ordinary->xSync(file, flags);
}

int openFile(sqlite3_vfs* vfs, char const* name, sqlite3_file* file, int flags, int* outFlags) {
  sqlite3_vfs& ordinary = *static_cast<Layer*>(vfs)->ordinary;
  int const result = ordinary.xOpen(&ordinary, name, file, flags, outFlags);
  constexpr int ofNewJournal = SQLITE_OPEN_MAIN_JOURNAL | SQLITE_OPEN_CREATE;
  if (result == SQLITE_OK && (flags & ofNewJournal) == ofNewJournal) {
    auto* const place = reinterpret_cast<std::byte*>(file) + sizeOfOrdinary(ordinary);
    auto* const journal = new (place) Journal{*file->pMethods, file->pMethods, name, false};
    journal->methods.xSync = syncJournal;
    file->pMethods = &journal->methods;
  }
  return result;
}

bool isGone(char const* name) noexcept {
  struct stat status {};
  return lstat(name, &status) != 0 && errno == ENOENT;
}

// SQLite leaves the sync of the folder out, and says nothing, where the folder cannot be opened. And it lets
// others at the file when a journal cannot be deleted: whether it is there all the same, which decides what
// becomes of the save, must be seen before.
int deleteFile(sqlite3_vfs* vfs, char const* name, int wantsSync) {
  sqlite3_vfs& ordinary = *static_cast<Layer*>(vfs)->ordinary;
  int result = ordinary.xDelete(&ordinary, name, 0);
  int const number = errno;
  if (result != SQLITE_OK) {
    bool const gone = isGone(name);
    errno = number;
    if (!gone) {
      return SQLITE_IOERR_DELETE;
    }
    result = SQLITE_IOERR_DELETE_NOENT;
  }
  if (wantsSync != 0 && syncFolder(name) != SQLITE_OK) {
    return SQLITE_IOERR_DIR_FSYNC;
  }
  errno = number;
  return result;
}

Layer::Layer(sqlite3_vfs& below, std::string name)
    : sqlite3_vfs(below), ordinary(&below), ownName(std::move(name)) {
  szOsFile = sizeOfOrdinary(below) + static_cast<int>(sizeof(Journal));
  pNext = nullptr;
  zName = ownName.c_str();
  xOpen = openFile;
  xDelete = deleteFile;
}

} // namespace

// Layers are never taken away: connections may stay open as long as the process lives. There is one, unless
// somebody exchanges SQLite's access to files; two threads that are the first at the same time make two.
char const* rfm_journalSyncVfs() {
  sqlite3_vfs* const ordinary = sqlite3_vfs_find(nullptr);
  if (!ordinary) {
    return nullptr;
  }
  std::string name = std::string("rfm-") + ordinary->zName;
  sqlite3_vfs* const known = sqlite3_vfs_find(name.c_str());
  if (known && known->xOpen == openFile && static_cast<Layer*>(known)->ordinary == ordinary) {
    return known->zName;
  }
  auto layer = std::make_unique<Layer>(*ordinary, std::move(name));
  sqlite3_vfs_register(layer.get(), 0); // before others of that name
  return layer.release()->zName;
}
