#include "dbc_Library.h"

#include "dbc_OldClassRegistrar.h"
#include "os_LibraryCount.h"

namespace {
constinit os_LibraryCount count("dbc_initialize", "dbc_finalize");
}

void dbc_initialize(int& libraryCount) {
  count.Initialize(libraryCount);
}

void dbc_finalize(int& libraryCount) {
  if (count.Finalize(libraryCount)) {
    omi_Singleton<dbc_OldClassRegistrar>::Instance().Clear();
  }
}
