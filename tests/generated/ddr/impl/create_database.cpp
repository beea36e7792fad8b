// Makes a database file from a process of its own, and says its persistent name and its creation time:
// create_database FILE
#include "cls_MetadataRegistrar.h"
#include "ddr_Library.h"
#include "ddr_Root.h"

#include <cstdio>
#include <exception>

int main(int count, char** arguments) {
  if (count != 2) {
    std::fputs("usage: create_database FILE\n", stderr);
    return 2;
  }
  int libraries = 0;
  int status = 0;
  ddr_initialize(libraries);
  try {
    ddr_Root& root = ddr_Root::Instance();
    root.SetClassRegistrar(omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
    root.CreateDdb(cow_String(arguments[1]), cow_String());
    cow_String const database = root.GetPersistentName(cow_String(arguments[1]));
    root.SaveDdb(database, true);
    cow_String const created = root.Fetch().ConstGet(database).CreateTime();
    std::printf("%s|%s", database.Text(), created.Text());
  } catch (std::exception const& error) {
    std::fprintf(stderr, "%s\n", error.what());
    status = 1;
  }
  ddr_finalize(libraries);
  return status;
}
