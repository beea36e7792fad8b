#include "tool_Database.h"

#include "cls_MetadataRegistrar.h"
#include "nex_Exception.h"
#include "rfm_Exception.h"
#include "tool_Layout.h"
#include "tool_Report.h"
#include "utl_Utf8.h"

#include <fmt/format.h>

namespace {

/// The registry, ready to open files.
ddr_Root& registry() {
  ddr_Root& root = ddr_Root::Instance();
  if (root.GetClassRegistrar() == nullptr) {
    root.SetClassRegistrar(omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
  }
  return root;
}

} // namespace

tool_Database::tool_Database(std::string const& fileName, utl_FileAccess access)
    : root(registry()), file(fileName) {
  rfm_File const opened = rfm_File::Open(fileName, access, true);
  try {
    persistentName = root.OpenDdb(opened, "");
  } catch (nex_Exception const& failure) {
    RefuseOlderLayout(failure, "its record", "cannot be read as it is");
    if (std::string_view(failure.what()).find(file) != std::string_view::npos) {
      throw;
    }
    // Objects that read themselves do not know from which file.
    nex_Exception::Throw(
        nex_TextException(fmt::format("Database file '{}': it cannot be read ({}). Restore it from a backup; "
                                      "'ddr check --deep' shows what is damaged.",
                                      utl_Printable(file), failure.what())),
        "tools/ddr/tool_Database", __LINE__);
  }
}

tool_Database::tool_Database(std::string const& fileName, std::string const& description,
                             utl_FileAccess access)
    : root(registry()), file(fileName) {
  root.CreateSavedDdb(fileName, description, access);
  persistentName = root.GetPersistentName(fileName);
}

void tool_Database::RefuseOlderLayout(nex_Exception const& failure, std::string_view what,
                                      std::string_view cannot) const {
  auto const* const ofFile = dynamic_cast<rfm_Exception const*>(&failure);
  if (ofFile != nullptr && ofFile->Kind() != rfm_ErrorKind::Other) {
    return; // has another cause than the layout
  }
  if (tool_Layout const layout(file); layout.IsOlder()) {
    nex_Exception::Throw(nex_TextException(fmt::format(
                             "Database file '{}': {} is of an older layout ({}) and {}; {}.",
                             utl_Printable(file), what, layout.OlderClasses(), cannot, layout.Remedy())),
                         "tools/ddr/tool_Database", __LINE__);
  }
}

tool_Database::~tool_Database() {
  tool_report([this] { root.CloseDdb(persistentName); });
}

ddr_Ddb const& tool_Database::Record() const {
  return root.Fetch().ConstGet(persistentName);
}

std::string_view tool_Database::Name() const {
  return tool_withoutPadding(persistentName.View());
}

std::string_view tool_withoutPadding(std::string_view persistentName) noexcept {
  return persistentName.substr(0, persistentName.find_last_not_of(' ') + 1);
}
