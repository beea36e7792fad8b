// rfm_Library.cpp: start and stop of the library rfm.
#include "rfm_Library.h"

#include "os_LibraryCount.h"

namespace {
constinit os_LibraryCount count("rfm_initialize", "rfm_finalize");
}

void rfm_initialize(int& libraryCount) {
  count.Initialize(libraryCount);
}

void rfm_finalize(int& libraryCount) {
  count.Finalize(libraryCount);
}
