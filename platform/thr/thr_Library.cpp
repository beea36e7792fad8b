// thr_Library.cpp: start and stop of the library thr.
#include "thr_Library.h"

#include "os_LibraryCount.h"

namespace {
constinit os_LibraryCount count("thr_initialize", "thr_finalize");
}

void thr_initialize(int& libraryCount) {
  count.Initialize(libraryCount);
}

void thr_finalize(int& libraryCount) {
  count.Finalize(libraryCount);
}
