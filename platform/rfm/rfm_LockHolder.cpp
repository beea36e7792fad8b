// rfm_LockHolder.cpp: looks into the system's list of locks.
#include "rfm_LockHolder.h"

#include "utl_Utf8.h"

#include <fstream>
#include <optional>
#include <sstream>
#include <string_view>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace {

// Where SQLite locks a file [byte]; fixed by its file format. A lock elsewhere is not one on the database.
constexpr unsigned long long firstLockByte = 0x40000000;
constexpr unsigned long long lastLockByte = firstLockByte + 511;

struct Lock {
  bool forWriting = false;
  long process = 0;
};

// Reads a line such as "3: POSIX  ADVISORY  WRITE 1234 fe:00:5678 1073741824 1073742335".
std::optional<Lock> parseLock(std::string const& line, struct stat const& file) {
  std::istringstream words(line);
  std::string number;
  std::string kind;
  std::string advice;
  std::string access;
  Lock lock;
  unsigned majorNumber = 0;
  unsigned minorNumber = 0;
  unsigned long long inode = 0;
  unsigned long long first = 0;
  std::string last;
  char colon = 0;
  words >> number >> kind >> advice >> access >> lock.process >> std::hex >> majorNumber >> colon >>
      minorNumber >> colon >> std::dec >> inode >> first >> last;
  if (!words || kind != "POSIX" || lock.process <= 0 || makedev(majorNumber, minorNumber) != file.st_dev ||
      inode != file.st_ino || first > lastLockByte) {
    return std::nullopt;
  }
  lock.forWriting = access == "WRITE";
  return lock;
}

std::string nameOf(long process) {
  std::ifstream stream("/proc/" + std::to_string(process) + "/comm");
  std::string name;
  std::getline(stream, name);
  return name;
}

} // namespace

std::string rfm_lockHolder(std::string const& path, bool holdsLockItself) {
  struct stat file {};
  if (stat(path.c_str(), &file) != 0) {
    return "by another process";
  }
  long other = 0;
  bool otherWrites = false;
  bool writtenHere = false;
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    std::optional<Lock> const lock = parseLock(line, file);
    if (!lock) {
      continue;
    }
    if (lock->process == getpid()) {
      writtenHere = writtenHere || lock->forWriting;
    } else if (other == 0 || (lock->forWriting && !otherWrites)) {
      other = lock->process;
      otherWrites = lock->forWriting;
    }
  }
  if (other != 0) {
    std::string const name = nameOf(other);
    return "by another process (" + std::to_string(other) +
           (name.empty() ? ")" : ", '" + utl_Printable(name) + "')");
  }
  return writtenHere && !holdsLockItself ? "elsewhere in this process" : "by another process";
}
