// Makes a database with one model: first_database FILE
#include "cls_MetadataRegistrar.h"
#include "ddr_Library.h"
#include "ddr_Root.h"

static void makeDatabase(cow_String const& fileName) {
  ddr_Root& root = ddr_Root::Instance();
  root.SetClassRegistrar(omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
  root.CreateDdb(fileName, "Wing, second load case");
  cow_String const name = root.GetPersistentName(fileName);
  ddr_DdbContainer databases = root.Fetch(); // a copy, to change and to give back
  databases.Get(name).models.Insert("Model-1", ddr_Model(fileName, "Model-1"));
  root.Replace(databases);
  root.SaveDdb(name, true);
  root.CloseDdb(name);
}

int main(int, char** arguments) {
  int libraryCount = 0;
  ddr_initialize(libraryCount);
  makeDatabase(arguments[1]);
  ddr_finalize(libraryCount);
}
