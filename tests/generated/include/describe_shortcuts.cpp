// Describes the bookmarks of a model from a process of its own: describe_shortcuts FILE MODEL
#include "shortcut_host.h"

#include "cls_MetadataRegistrar.h"
#include "ddr_Library.h"

#include <cstdio>
#include <exception>

int main(int count, char** arguments) {
  if (count != 3) {
    std::fputs("usage: describe_shortcuts FILE MODEL\n", stderr);
    return 2;
  }
  int libraries = 0;
  int status = 0;
  ddr_initialize(libraries);
  try {
    ddr_Root& root = ddr_Root::Instance();
    cls_ClassRegistrar* const registrar =
        omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar();
    host_registerClasses(*registrar);
    root.SetClassRegistrar(registrar);
    rfm_File const file = rfm_File::Open(cow_String(arguments[1]), utl_FileAccess::Read, true);
    cow_String const database = root.OpenDdb(file, cow_String());
    ddr_Model const& model = root.Fetch().ConstGet(database).models.ConstGet(arguments[2]);
    auto const& bookmarks = static_cast<host_Bookmarks const&>(model.ConstGetExtension("bookmarks"));
    std::fputs(host_describe(bookmarks).c_str(), stdout);
  } catch (std::exception const& error) {
    std::fprintf(stderr, "%s\n", error.what());
    status = 1;
  }
  ddr_finalize(libraries);
  return status;
}
