#include "tool_Layout.h"

#include "cls_MetadataRegistrar.h"
#include "rfm_Database.h"

#include <fmt/format.h>
#include <memory>

tool_Layout::tool_Layout(std::string const& fileName) {
  rfm_Database database = rfm_Database::Open(rfm_File::Open(fileName, utl_FileAccess::Read, true), "D0");
  database.Bind();
  description = database.Description();
  std::unique_ptr<cls_ClassRegistrar> const registrar(
      omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
  for (rfm_ClassEntry const& stored : database.Classes()) {
    versions[stored.typeId] = stored.version;
    cls_ClassMetadata const* const known = registrar->Find(stored.typeId);
    if (known != nullptr && stored.version < known->Version()) {
      olderClasses[std::string(stored.name.View())] = stored.version;
    }
  }
}

std::string tool_Layout::OlderClasses() const {
  std::string text;
  for (auto const& [name, version] : olderClasses) {
    text += fmt::format("{}{} {}", text.empty() ? "" : ", ", name, version);
  }
  return text;
}

std::string tool_Layout::Text() const {
  return IsOlder() ? fmt::format("older ({}); 'ddr upgrade' makes a current copy", OlderClasses())
                   : "current";
}
