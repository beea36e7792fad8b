#include "mdl_Library.h"

#include "os_LibraryCount.h"

namespace {
constinit os_LibraryCount count("mdl_initialize", "mdl_finalize");
}

void mdl_initialize(int& libraryCount) {
  count.Initialize(libraryCount);
}

void mdl_finalize(int& libraryCount) {
  count.Finalize(libraryCount);
}
