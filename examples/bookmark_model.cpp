// Keeps a shortcut to a model, closes and opens the file, and goes on with the shortcut: bookmark_model FILE
#include "cls_MetadataRegistrar.h"
#include "ddr_Library.h"
#include "ddr_Root.h"
#include "ddr_Shortcut.h"

#include <exception>
#include <iostream>

/// Leads to one model of a database: the shortcut holds that of the collection, which holds that of the
/// database.
static ddr_ModelShortcut shortcutTo(cow_String const& database, cow_String const& model) {
  ddr_DdbShortcut const toDatabase(new ddr_DdbShortcutImpl(database));
  ddr_ModelContainerShortcut const toModels(new ddr_ModelContainerInDdbShortcut(toDatabase));
  return ddr_ModelShortcut(new ddr_ModelInModelContainerShortcut(model, toModels));
}

static void makeDatabase(cow_String const& fileName) {
  ddr_Root& root = ddr_Root::Instance();
  root.CreateDdb(fileName, "Wing, second load case");
  cow_String const name = root.GetPersistentName(fileName);
  ddr_DdbContainer databases = root.Fetch();
  databases.Get(name).models.Insert("Model-1", ddr_Model(fileName, "Model-1"));
  root.Replace(databases);
  root.SaveDdb(name, true);
}

static void followBookmark(cow_String const& fileName) {
  ddr_Root& root = ddr_Root::Instance();
  cow_String const name = root.GetPersistentName(fileName);
  ddr_ModelShortcut const bookmark = shortcutTo(name, "Model-1");

  root.CloseDdb(name); // the shortcut names the model and does not hold it
  root.OpenDdb(rfm_File::Open(fileName, utl_FileAccess::Read, true), "");

  std::cout << bookmark.ConstGet(root.Fetch()).GetName() << '\n' << bookmark.PythonPath() << '\n';
  try {
    shortcutTo(name, "Model-2").ConstGet(root.Fetch());
  } catch (omu_AccessErrorException const& failure) {
    std::cout << failure.what() << '\n';
  }
  root.CloseDdb(name);
}

int main(int, char** arguments) {
  int libraryCount = 0;
  ddr_initialize(libraryCount);
  int status = 0;
  try {
    ddr_Root::Instance().SetClassRegistrar(
        omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
    makeDatabase(arguments[1]);
    followBookmark(arguments[1]);
  } catch (std::exception const& failure) {
    std::cerr << failure.what() << '\n';
    status = 1;
  }
  ddr_finalize(libraryCount);
  return status;
}
