// typ_Library.cpp: start and stop of the library typ.
#include "typ_Library.h"

#include "os_LibraryCount.h"
#include "typ_ArchCompTable.h"

namespace {
constinit os_LibraryCount count("typ_initialize", "typ_finalize");
}

void typ_initialize(int& libraryCount) {
  count.Initialize(libraryCount);
}

void typ_finalize(int& libraryCount) {
  if (count.Finalize(libraryCount)) {
    typ_ArchCompTable::Clear();
  }
}
