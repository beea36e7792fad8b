// pnt_Library.cpp: start and stop of the library pnt.
#include "pnt_Library.h"

#include "os_LibraryCount.h"

namespace {
constinit os_LibraryCount count("pnt_initialize", "pnt_finalize");
}

void pnt_initialize(int& libraryCount) {
  count.Initialize(libraryCount);
}

void pnt_finalize(int& libraryCount) {
  count.Finalize(libraryCount);
}
