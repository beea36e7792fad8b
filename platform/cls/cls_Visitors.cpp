#include "cls_PC.h"
#include "cls_ReadVisitor.h"
#include "cls_WriteVisitor.h"

#include "nex_Exception.h"

#include <cstdio>

namespace {
constexpr char const* sourcePath = "platform/cls/cls_Visitors";
}

cls_RowSource::~cls_RowSource() = default;
cls_ListSource::~cls_ListSource() = default;
cls_RowSink::~cls_RowSink() = default;
cls_ListSink::~cls_ListSink() = default;
cls_StoredState::~cls_StoredState() = default;
cls_CollectionAgent::~cls_CollectionAgent() = default;

void cls_CollectionAgent::ForgetChangedWhenStored(std::vector<cow_String> const& keys) {
  for (cow_String const& key : keys) {
    ForgetChanged(key);
  }
}

cls_PC::~cls_PC() = default;

cls_ReadVisitor::cls_ReadVisitor(cls_RowSource const& stored) noexcept : source(&stored) {}

cls_ReadVisitor::cls_ReadVisitor(cls_ReadVisitor const& parent, cls_FieldHandle const& field)
    : owned(parent.source->Object(field)), source(owned.get()) {}

cls_ReadVisitor::cls_ReadVisitor(cls_ListSource& list) : owned(list.Next()), source(owned.get()) {}

cls_ReadVisitor::~cls_ReadVisitor() = default;

void cls_ReadVisitor::RequireClass(unsigned baseTypeId) const {
  if (source->IsA(baseTypeId)) {
    return;
  }
  char ids[80];
  std::snprintf(ids, sizeof ids, "class 0x%x found where class 0x%x belongs", source->ClassId(), baseTypeId);
  nex_Exception::Throw(
      nex_TextException((source->Where() + ": " + ids +
                         "; the file is damaged or needs the module that defines the class.")),
      sourcePath, __LINE__);
}

void* cls_ReadVisitor::Construct(unsigned baseTypeId) const {
  RequireClass(baseTypeId);
  cls_ClassMetadata const* entry = source->Registrar().Find(source->ClassId());
  if (entry == nullptr || entry->Constructor() == nullptr) {
    return nullptr;
  }
  cls_ReadVisitor visitor(*source);
  return entry->Constructor()(visitor);
}

cls_WriteRequestMapObj::cls_WriteRequestMapObj(cls_CollectionAgent& agent, cow_String const& key)
    : place(agent.WriteRequest(key)) {}
cls_WriteRequestMapObj::~cls_WriteRequestMapObj() = default;

cls_WriteRequestListObj::cls_WriteRequestListObj(cls_ListSink& list) : place(list.Append()) {}
cls_WriteRequestListObj::~cls_WriteRequestListObj() = default;

cls_WriteVisitor::cls_WriteVisitor(cls_RowSink& place) noexcept : sink(&place) {}

cls_WriteVisitor::cls_WriteVisitor(cls_WriteVisitor const& parent, cls_FieldHandle const& field)
    : owned(parent.sink->Object(field)), sink(owned.get()) {}

cls_WriteVisitor::cls_WriteVisitor(cls_WriteVisitor const& parent, unsigned baseTypeId)
    : owned(parent.sink->BasePart(baseTypeId)), sink(owned.get()) {}

cls_WriteVisitor::cls_WriteVisitor(cls_WriteRequestMapObj& request) noexcept : sink(request.place.get()) {}

cls_WriteVisitor::cls_WriteVisitor(cls_WriteRequestListObj& request) noexcept : sink(request.place.get()) {}

cls_WriteVisitor::~cls_WriteVisitor() = default;

void cls_WriteVisitor::CheckCollectionType(int collectionType) const {
  if (collectionType < static_cast<int>(cls_CollectionType::Single) ||
      collectionType > static_cast<int>(cls_CollectionType::StringMap)) {
    nex_Exception::Throw(nex_AssertException("collectionType >= 0 && collectionType <= 2"), sourcePath,
                         __LINE__);
  }
}

void cls_WriteVisitor::CheckCollectionType(cls_CollectionTypeFix const& collectionType) const {
  if (collectionType.Kind() != 5) {
    nex_Exception::Throw(nex_AssertException("collectionType.Kind() == 5"), sourcePath, __LINE__);
  }
}
