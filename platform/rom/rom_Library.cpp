#include "rom_Library.h"

#include "os_LibraryCount.h"

namespace {
constinit os_LibraryCount count("rom_initialize", "rom_finalize");
}

void rom_initialize(int& libraryCount) {
  count.Initialize(libraryCount);
}

void rom_finalize(int& libraryCount) {
  count.Finalize(libraryCount);
}
