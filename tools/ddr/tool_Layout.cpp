#include "tool_Layout.h"

#include "cls_MetadataRegistrar.h"
#include "dbc_DatabaseConverter.h"
#include "dbc_OldClassRegistrar.h"
#include "rfm_Database.h"
#include "utl_Utf8.h"

#include <algorithm>
#include <fmt/format.h>
#include <memory>

namespace {

/// The versions of our classes that an upgrade converts, by type id.
std::multimap<unsigned, int> convertedVersions() {
  std::multimap<unsigned, int> versions;
  for (dbc_OldClassRegistrar::Registered const& registered :
       omi_Singleton<dbc_OldClassRegistrar>::Instance().Versions()) {
    dbc_OldClassVersion const* const old = registered.holder ? registered.holder->Peek() : nullptr;
    if (old == nullptr) {
      continue;
    }
    dbc_DatabaseConverter declared;
    old->SchemaChanges(declared);
    for (auto const& [number, step] : declared.Converters()) {
      for (dbc_ClassConverter const& converted : step.Classes()) {
        versions.emplace(converted.TypeId(), converted.OldVersion());
      }
    }
  }
  return versions;
}

bool contains(std::multimap<unsigned, int> const& versions, unsigned typeId, int version) {
  auto const [begin, end] = versions.equal_range(typeId);
  return std::any_of(begin, end, [&](auto const& one) { return one.second == version; });
}

std::string listed(std::map<std::string, int> const& classes) {
  std::string text;
  for (auto const& [name, version] : classes) {
    text += fmt::format("{}{} {}", text.empty() ? "" : ", ", utl_Printable(name), version);
  }
  return text;
}

} // namespace

tool_Layout::tool_Layout(std::string const& fileName) {
  rfm_Database database = rfm_Database::Open(rfm_File::Open(fileName, utl_FileAccess::Read, true), "D0");
  database.Bind();
  description = database.Description();
  std::unique_ptr<cls_ClassRegistrar> const registrar(
      omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
  std::multimap<unsigned, int> const converted = convertedVersions();
  for (rfm_ClassEntry const& stored : database.Classes()) {
    versions[stored.typeId] = stored.version;
    cls_ClassMetadata const* const known = registrar->Find(stored.typeId);
    if (known == nullptr || stored.version == known->Version()) {
      continue;
    }
    bool const isOlder = stored.version < known->Version();
    (isOlder ? olderClasses : newerClasses)[std::string(stored.name.View())] = stored.version;
    canBeUpgraded = canBeUpgraded && isOlder && contains(converted, stored.typeId, stored.version);
  }
}

std::string tool_Layout::OlderClasses() const {
  return listed(olderClasses);
}

std::string tool_Layout::Text() const {
  if (IsOlder()) {
    return fmt::format("older ({}); {}", OlderClasses(), Remedy());
  }
  return newerClasses.empty() ? "current" : fmt::format("newer ({}); {}", listed(newerClasses), Remedy());
}

std::string tool_Layout::Remedy() const {
  if (!newerClasses.empty()) {
    return fmt::format("use the newer program that wrote {}", listed(newerClasses));
  }
  return canBeUpgraded ? "'ddr upgrade' makes a current copy" : "no upgrade of these versions is known";
}
