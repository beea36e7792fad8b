// mem_Library.cpp: start and stop of the library mem.
#include "mem_Library.h"

#include "os_LibraryCount.h"

namespace {
constinit os_LibraryCount count("mem_initialize", "mem_finalize");
}

void mem_initialize(int& libraryCount) {
  count.Initialize(libraryCount);
}

void mem_finalize(int& libraryCount) {
  count.Finalize(libraryCount);
}
