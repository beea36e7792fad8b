// Makes a database with the installed package, opens it again and counts what is in it: consumer FILE
#include <cls_MetadataRegistrar.h>
#include <ddr_Library.h>
#include <ddr_Root.h>

#include <cstdio>
#include <exception>

static int countModels(cow_String const& fileName) {
  ddr_Root& root = ddr_Root::Instance();
  root.SetClassRegistrar(omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
  root.CreateDdb(fileName, "made outside");
  cow_String const made = root.GetPersistentName(fileName);
  ddr_DdbContainer databases = root.Fetch();
  databases.Get(made).models.Insert("Model-1", ddr_Model(fileName, "Model-1"));
  root.Replace(databases);
  root.SaveDdb(made, true);
  root.CloseDdb(made);

  cow_String const opened = root.OpenDdb(rfm_File::Open(fileName, utl_FileAccess::Read, true), "");
  int const count = root.Fetch().ConstGet(opened).models.Size();
  root.CloseDdb(opened);
  return count;
}

// An exception of the platform that a client catches by its base: its type must be one in both libraries.
static bool aMissingFileIsReported() {
  try {
    rfm_File::Open("no/such/file.ddr", utl_FileAccess::Read, true);
    return false;
  } catch (nex_Exception const& failure) {
    std::printf("%s\n", failure.what());
    return true;
  }
}

int main(int, char** arguments) {
  int libraryCount = 0;
  ddr_initialize(libraryCount);
  int status = 1;
  try {
    status = countModels(arguments[1]) == 1 && aMissingFileIsReported() ? 0 : 1;
  } catch (std::exception const& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
  }
  ddr_finalize(libraryCount);
  return libraryCount == 0 ? status : 1;
}
