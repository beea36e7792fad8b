#include "dia_Library.h"

#include "cls_MetadataRegistrar.h"
#include "dia_DiagnosticData.h"
#include "os_LibraryCount.h"

namespace {
constinit os_LibraryCount count("dia_initialize", "dia_finalize");
constexpr unsigned registrationTag = 1;
} // namespace

void dia_initialize(int& libraryCount) {
  if (!count.Initialize(libraryCount)) {
    return;
  }
  try {
    omi_Singleton<cls_MetadataRegistrar>::Instance().initClassMetadata(dia_registerClasses, registrationTag);
  } catch (...) {
    count.Finalize(libraryCount);
    throw;
  }
}

void dia_finalize(int& libraryCount) {
  count.Finalize(libraryCount);
}
