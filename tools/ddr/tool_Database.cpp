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

tool_Database::tool_Database(std::string const& fileName, utl_FileAccess access) : root(registry()) {
  rfm_File const file = rfm_File::Open(fileName, access, true);
  try {
    persistentName = root.OpenDdb(file, "");
  } catch (nex_Exception const& failure) {
    auto const* const ofFile = dynamic_cast<rfm_Exception const*>(&failure);
    if (ofFile != nullptr && ofFile->Kind() != rfm_ErrorKind::Other) {
      throw; // has another cause than the layout
    }
    if (tool_Layout const layout(fileName); layout.IsOlder()) {
      nex_Exception::Throw(nex_TextException(fmt::format(
                               "Database file '{}': its record is of an older layout ({}) and cannot "
                               "be read as it is; {}.",
                               utl_Printable(fileName), layout.OlderClasses(), layout.Remedy())),
                           "tools/ddr/tool_Database", __LINE__);
    }
    if (std::string_view(failure.what()).find(fileName) != std::string_view::npos) {
      throw;
    }
    // Objects that read themselves do not know from which file.
    nex_Exception::Throw(
        nex_TextException(fmt::format("Database file '{}': it cannot be read ({}). Restore it from a backup; "
                                      "'ddr check --deep' shows what is damaged.",
                                      utl_Printable(fileName), failure.what())),
        "tools/ddr/tool_Database", __LINE__);
  }
}

tool_Database::tool_Database(std::string const& fileName, std::string const& description) : root(registry()) {
  root.CreateDdb(fileName, description);
  persistentName = root.GetPersistentName(fileName);
}

tool_Database::~tool_Database() {
  tool_report([this] { root.CloseDdb(persistentName); });
}

ddr_Ddb const& tool_Database::Record() const {
  return root.Fetch().ConstGet(persistentName);
}

std::string_view tool_Database::Name() const {
  std::string_view const name = persistentName.View();
  return name.substr(0, name.find_last_not_of(' ') + 1);
}
