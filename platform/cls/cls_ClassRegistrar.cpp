#include "cls_ClassRegistrar.h"

#include "os_Recorder.h"

unsigned cls_ExtQuant::ExtentQuantumConstSmall() noexcept {
  return 16;
}

unsigned cls_ExtQuant::ExtentQuantumConstMedium() noexcept {
  return 64;
}

cls_ClassMetadata::cls_ClassMetadata(cow_String className, unsigned classTypeId, int classVersion,
                                     cls_ReadConstructor readConstructor, unsigned classBaseTypeId)
    : name(std::move(className)), typeId(classTypeId), version(classVersion), constructor(readConstructor),
      baseTypeId(classBaseTypeId) {}

cls_ClassMetadata& cls_ClassMetadata::AddDtor(cls_HandleDestructor release) {
  os_recordCall("cls_ClassMetadata::AddDtor", typeId);
  destructor = release;
  return *this;
}

cls_ClassMetadata& cls_ClassMetadata::AddTableExtentQuantum(unsigned rows) {
  os_recordCall("cls_ClassMetadata::AddTableExtentQuantum", rows);
  extentQuantum = rows;
  return *this;
}

cls_ClassMetadata& cls_ClassMetadata::AddAttribute(cls_FieldHandle const& field, cls_AttributeType kind,
                                                   unsigned elementTypeId, cls_CollectionType collection) {
  os_recordCall("cls_ClassMetadata::AddAttribute", typeId);
  attributes.push_back({field.Name(), kind, elementTypeId, collection});
  return *this;
}

cls_ClassRegistrar::cls_ClassRegistrar() : catalogue(std::make_shared<Catalogue>()) {
  struct Header {
    char const* name;
    unsigned typeId;
  };
  static constexpr Header headers[] = {{"cls_ListHeader", cls_ListHeaderTypeId},
                                       {"cls_MapHeader", cls_MapHeaderTypeId},
                                       {"cls_ListObj", cls_ListObjTypeId}};
  for (Header const& header : headers) {
    cls_ClassMetadata entry(header.name, header.typeId, 1, nullptr, cls_NoBaseTypeId);
    entry.AddAttribute("Target#Handle", cls_AttributeType::Handle, 1, cls_CollectionType::Single);
    catalogue->emplace(header.typeId, std::move(entry));
  }
}

cls_ClassMetadata& cls_ClassRegistrar::CreateClassMD(cow_String const& name, unsigned typeId, int version,
                                                     cls_ReadConstructor constructor, unsigned baseTypeId) {
  os_recordCall("cls_ClassRegistrar::CreateClassMD", typeId);
  return catalogue
      ->insert_or_assign(typeId, cls_ClassMetadata(name, typeId, version, constructor, baseTypeId))
      .first->second;
}

cls_ClassMetadata const* cls_ClassRegistrar::Find(unsigned typeId) const {
  auto found = catalogue->find(typeId);
  return found == catalogue->end() ? nullptr : &found->second;
}

bool cls_ClassRegistrar::IsDerivedFrom(unsigned typeId, unsigned baseTypeId) const {
  // A chain longer than the catalogue runs in a circle.
  for (std::size_t steps = 0; steps <= catalogue->size(); ++steps) {
    if (typeId == baseTypeId) {
      return true;
    }
    cls_ClassMetadata const* entry = Find(typeId);
    if (entry == nullptr || entry->BaseTypeId() == cls_NoBaseTypeId) {
      return false;
    }
    typeId = entry->BaseTypeId();
  }
  return false;
}

std::vector<unsigned> cls_ClassRegistrar::TypeIds() const {
  std::vector<unsigned> ids;
  ids.reserve(catalogue->size());
  for (auto const& [id, entry] : *catalogue) {
    ids.push_back(id);
  }
  return ids;
}
