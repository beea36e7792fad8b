#include "tool_Collection.h"

#include "atr_String.h"

#include <algorithm>

namespace {

/// Gives the work the collection that is meant, of a record to be read or to be changed.
template <class Record, class Work>
auto withCollection(Record& database, tool_Collection collection, Work work) {
  switch (collection) {
  case tool_Collection::Models:
    return work(database.models);
  case tool_Collection::Results:
    return work(database.results);
  case tool_Collection::UserData:
    break;
  }
  return work(database.userData);
}

template <class Walk>
std::vector<std::string> keys(Walk walk) {
  std::vector<std::string> names;
  for (walk.First(); !walk.AtEnd(); walk.Next()) {
    names.emplace_back(walk.Key().View());
  }
  return names;
}

std::vector<std::string> namesIn(ddr_ModelContainer const& models) {
  return keys(cls_Map2ObjIter(models));
}

template <class Entry>
std::vector<std::string> namesIn(mdl_MapString2Obj<Entry> const& entries) {
  return keys(mdl_MapString2ObjIT(entries));
}

} // namespace

tool_CollectionWords const& tool_words(tool_Collection collection) noexcept {
  static constexpr tool_CollectionWords models{"model", "model", "models", "Models", "models"};
  static constexpr tool_CollectionWords results{"result", "result", "results", "Results", "results"};
  static constexpr tool_CollectionWords userData{"userdata", "user data entry", "user data entries",
                                                 "User data", "userData"};
  switch (collection) {
  case tool_Collection::Models:
    return models;
  case tool_Collection::Results:
    return results;
  case tool_Collection::UserData:
    break;
  }
  return userData;
}

int tool_size(ddr_Ddb const& database, tool_Collection collection) noexcept {
  return withCollection(database, collection, [](auto const& entries) { return entries.Size(); });
}

bool tool_isMember(ddr_Ddb const& database, tool_Collection collection, std::string const& name) {
  return withCollection(database, collection, [&](auto const& entries) { return entries.IsMember(name); });
}

std::vector<std::string> tool_names(ddr_Ddb const& database, tool_Collection collection) {
  std::vector<std::string> names =
      withCollection(database, collection, [](auto const& entries) { return namesIn(entries); });
  std::sort(names.begin(), names.end(), [](std::string const& left, std::string const& right) {
    return strnatcmp(std::string_view(left), std::string_view(right)) < 0;
  });
  return names;
}

void tool_insert(ddr_Ddb& database, tool_Collection collection, std::string const& name) {
  switch (collection) {
  case tool_Collection::Models:
    database.models.Insert(name, ddr_Model(database.GetDbId(), name));
    break;
  case tool_Collection::Results:
    database.results.Insert(name, ddr_Result());
    break;
  case tool_Collection::UserData:
    database.userData.Insert(name, ddr_UserData());
    break;
  }
}

void tool_remove(ddr_Ddb& database, tool_Collection collection, std::string const& name) {
  withCollection(database, collection, [&](auto& entries) { return entries.Remove(name); });
}
