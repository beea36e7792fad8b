// Describes a database file from a process of its own: describe_database FILE
#include "describe_database.h"

#include "cls_MetadataRegistrar.h"
#include "ddr_Library.h"
#include "ddr_Root.h"

#include <cstdio>
#include <exception>

int main(int count, char** arguments) {
  if (count != 2) {
    std::fputs("usage: describe_database FILE\n", stderr);
    return 2;
  }
  int libraries = 0;
  int status = 0;
  ddr_initialize(libraries);
  try {
    ddr_Root& root = ddr_Root::Instance();
    root.SetClassRegistrar(omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
    rfm_File const file = rfm_File::Open(cow_String(arguments[1]), utl_FileAccess::Read, true);
    cow_String const database = root.OpenDdb(file, cow_String());
    std::fputs(describe_database(root.Fetch().ConstGet(database)).c_str(), stdout);
  } catch (std::exception const& error) {
    std::fprintf(stderr, "%s\n", error.what());
    status = 1;
  }
  ddr_finalize(libraries);
  return status;
}
