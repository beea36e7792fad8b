// Prints the models of a database without changing the file: list_models FILE
#include "cls_MetadataRegistrar.h"
#include "ddr_Library.h"
#include "ddr_Root.h"

#include <exception>
#include <iostream>

static void listModels(cow_String const& fileName) {
  ddr_Root& root = ddr_Root::Instance();
  root.SetClassRegistrar(omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
  cow_String const name = root.OpenDdb(rfm_File::Open(fileName, utl_FileAccess::Read, true), "");
  cls_Map2ObjIter model(root.Fetch().ConstGet(name).models);
  for (model.First(); !model.AtEnd(); model.Next()) {
    std::cout << model.Key().Text() << '\n';
  }
  root.CloseDdb(name);
}

int main(int, char** arguments) {
  int libraryCount = 0;
  ddr_initialize(libraryCount);
  int status = 0;
  try {
    listModels(arguments[1]);
  } catch (std::exception const& failure) {
    std::cerr << failure.what() << '\n';
    status = 1;
  }
  ddr_finalize(libraryCount);
  return status;
}
