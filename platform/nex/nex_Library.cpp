// nex_Library.cpp: start and stop of the library nex.
#include "nex_Library.h"

#include "os_LibraryCount.h"

namespace {
constinit os_LibraryCount count("nex_initialize", "nex_finalize");
}

void nex_initialize(int& libraryCount) {
  count.Initialize(libraryCount);
}

void nex_finalize(int& libraryCount) {
  count.Finalize(libraryCount);
}
