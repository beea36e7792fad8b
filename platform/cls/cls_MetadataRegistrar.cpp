#include "cls_MetadataRegistrar.h"

#include "nex_Library.h"
#include "os_Recorder.h"

#include <algorithm>

template <>
cls_MetadataRegistrar& omi_Singleton<cls_MetadataRegistrar>::Instance() {
  static cls_MetadataRegistrar theRegistrar;
  return theRegistrar;
}

void cls_MetadataRegistrar::initClassMetadata(Routine routine, unsigned tag) {
  os_recordCall("cls_MetadataRegistrar::initClassMetadata", tag);
  nex_atFinalize([] { omi_Singleton<cls_MetadataRegistrar>::Instance().Clear(); });
  std::scoped_lock lock(mutex);
  routines.reserve(routines.size() + 1);
  if (processCatalogue == nullptr) {
    processCatalogue = std::make_unique<cls_ClassRegistrar>();
  }
  routine(*processCatalogue); // one that throws is not kept
  bool const known = std::any_of(routines.begin(), routines.end(),
                                 [&](Kept const& kept) { return kept.routine == routine; });
  if (!known) {
    routines.push_back({routine, tag});
  }
}

cls_ClassRegistrar* cls_MetadataRegistrar::MakeClassRegistrar() const {
  std::scoped_lock lock(mutex);
  auto registrar = std::make_unique<cls_ClassRegistrar>();
  for (Kept const& kept : routines) {
    kept.routine(*registrar);
  }
  return registrar.release();
}

std::size_t cls_MetadataRegistrar::RoutineCount() const {
  std::scoped_lock lock(mutex);
  return routines.size();
}

void cls_MetadataRegistrar::Clear() {
  std::scoped_lock lock(mutex);
  routines.clear();
  processCatalogue.reset();
}
