// simulation_layouts.cpp: conversions without faults, once a process.
#include "simulation_layouts.h"

#include "dbc_Conversion.h"
#include "layout_files.h"
#include "module_client.h"
#include "rfm_Database.h"
#include "temporary_folder.h"

namespace {

struct Layouts {
  Layouts();
  std::vector<simulation_layout> all;
  std::vector<rfm_ClassEntry> foreignClasses;
};

void describe(cls_ClassRegistrar& registrar, rfm_ClassEntry const& stored) {
  if (registrar.Find(stored.typeId) != nullptr) {
    return;
  }
  cls_ClassMetadata& described =
      registrar.CreateClassMD(stored.name, stored.typeId, stored.version, nullptr, stored.baseTypeId);
  for (rfm_AttributeEntry const& attribute : stored.attributes) {
    described.AddAttribute(attribute.name, static_cast<cls_AttributeType>(attribute.kind),
                           attribute.elementTypeId, static_cast<cls_CollectionType>(attribute.collection));
  }
}

std::unique_ptr<cls_ClassRegistrar> registrarWith(std::vector<rfm_ClassEntry> const& foreignClasses) {
  std::unique_ptr<cls_ClassRegistrar> made = module_client::registrar();
  for (rfm_ClassEntry const& stored : foreignClasses) {
    describe(*made, stored);
  }
  return made;
}

Layouts::Layouts() {
  module_client const client;
  temporary_folder const folder;
  std::string const path = folder.path("new");
  for (std::string const& name : layout_names()) {
    make_layout_file(folder.path(name), name);
    dbc_Conversion::Run(cow_String(folder.path(name)), cow_String(path));
    rfm_Database database =
        rfm_Database::Open(rfm_File::Open(cow_String(path), utl_FileAccess::Read, true), "D0");
    database.Bind();
    foreignClasses.insert(foreignClasses.end(), database.Classes().begin(), database.Classes().end());
    all.push_back({name, readFile(folder.path(name)), observe(path, *registrarWith(foreignClasses))});
  }
}

Layouts const& layouts() {
  static Layouts const known;
  return known;
}

} // namespace

std::vector<simulation_layout> const& simulation_layouts() {
  return layouts().all;
}

std::unique_ptr<cls_ClassRegistrar> simulation_registrar() {
  return registrarWith(layouts().foreignClasses);
}
