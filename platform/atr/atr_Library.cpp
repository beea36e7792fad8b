// atr_Library.cpp: start and stop of the library atr.
#include "atr_Library.h"

#include "os_LibraryCount.h"

namespace {
constinit os_LibraryCount count("atr_initialize", "atr_finalize");
}

void atr_initialize(int& libraryCount) {
  count.Initialize(libraryCount);
}

void atr_finalize(int& libraryCount) {
  count.Finalize(libraryCount);
}
