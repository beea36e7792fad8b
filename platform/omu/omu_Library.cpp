#include "omu_Library.h"

#include "os_LibraryCount.h"

namespace {
constinit os_LibraryCount count("omu_initialize", "omu_finalize");
}

void omu_initialize(int& libraryCount) {
  count.Initialize(libraryCount);
}

void omu_finalize(int& libraryCount) {
  count.Finalize(libraryCount);
}
