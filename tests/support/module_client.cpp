// module_client.cpp: starts and stops that follow each other.
#include "module_client.h"

#include "cls_MetadataRegistrar.h"
#include "ddr_Library.h"

#include <mutex>

namespace {

// What a host does: starts and stops of the module never run at the same time.
std::mutex startsAndStops;
int clients = 0;
int libraries = 0;

} // namespace

module_client::module_client() {
  {
    std::scoped_lock const lock(startsAndStops);
    ddr_initialize(libraries);
    if (++clients == 1) {
      ddr_Model::RegisterExtension("note", note_Extension());
    }
  }
  root().SetClassRegistrar(registrar().release());
}

module_client::~module_client() {
  std::scoped_lock const lock(startsAndStops);
  --clients;
  ddr_finalize(libraries);
}

std::unique_ptr<cls_ClassRegistrar> module_client::registrar() {
  std::unique_ptr<cls_ClassRegistrar> made(
      omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
  note_registerClasses(*made);
  return made;
}

cow_String module_client::create(std::string const& path) {
  cow_String const file(path.c_str());
  root().CreateDdb(file, "made by a test");
  cow_String const name = root().GetPersistentName(file);
  save(name);
  return name;
}

cow_String module_client::open(std::string const& path, utl_FileAccess access) {
  return root().OpenDdb(rfm_File::Open(cow_String(path.c_str()), access, true), cow_String());
}

void module_client::edit(cow_String const& name, std::function<void(ddr_Ddb&)> const& change) {
  ddr_DdbContainer copy = root().Fetch();
  change(copy.Get(name));
  root().Replace(copy);
}

void module_client::write_model(ddr_Ddb& record, std::string const& model, std::string const& text) {
  cow_String const key(model.c_str());
  if (!record.models.IsMember(key)) {
    record.models.Insert(key, ddr_Model(record.GetDbId(), key));
  }
  setNote(record.models.Get(key), text);
}
