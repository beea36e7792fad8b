// nex_Library.cpp: start and stop of the library nex.
#include "nex_Library.h"

#include "os_LibraryCount.h"

#include <algorithm>
#include <mutex>
#include <vector>

namespace {
constinit os_LibraryCount count("nex_initialize", "nex_finalize");

struct Drops {
  std::mutex mutex;
  std::vector<void (*)()> functions;
};

Drops& drops() {
  static Drops theDrops;
  return theDrops;
}
} // namespace

void nex_initialize(int& libraryCount) {
  count.Initialize(libraryCount);
}

void nex_finalize(int& libraryCount) {
  if (!count.Finalize(libraryCount)) {
    return;
  }
  std::scoped_lock lock(drops().mutex);
  for (auto drop : drops().functions) {
    drop();
  }
}

void nex_atFinalize(void (*drop)()) {
  std::scoped_lock lock(drops().mutex);
  auto& functions = drops().functions;
  if (std::find(functions.begin(), functions.end(), drop) == functions.end()) {
    functions.push_back(drop);
  }
}
