// omni_Library.cpp: start and stop of the library omni.
#include "omni_Library.h"

#include "os_LibraryCount.h"

namespace {
constinit os_LibraryCount count("omni_initialize", "omni_finalize");
}

void omni_initialize(int& libraryCount) {
  count.Initialize(libraryCount);
}

void omni_finalize(int& libraryCount) {
  count.Finalize(libraryCount);
}
