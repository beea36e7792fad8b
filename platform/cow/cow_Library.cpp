// Start and stop of the copy-on-write library.
#include "cow_Library.h"

#include "os_LibraryCount.h"

namespace {
constinit os_LibraryCount count("cow_initialize", "cow_finalize");
}

void cow_initialize(int& libraryCount) {
  count.Initialize(libraryCount);
}

void cow_finalize(int& libraryCount) {
  count.Finalize(libraryCount);
}
