// utl_Library.cpp: start and stop of the library utl.
#include "utl_Library.h"

#include "os_LibraryCount.h"

namespace {
constinit os_LibraryCount count("utl_initialize", "utl_finalize");
}

void utl_initialize(int& libraryCount) {
  count.Initialize(libraryCount);
}

void utl_finalize(int& libraryCount) {
  count.Finalize(libraryCount);
}
