// mdl_OdbExtensionTable: the extensions of one model by command name.
#pragma once

#include "cls_ReadVisitor.h"
#include "cls_WriteVisitor.h"
#include "cow_COW.h"
#include "cow_Map.h"
#include "cow_MapIterator.h"
#include "mdl_Extension.h"
#include "nex_Exception.h"
#include "omu_Exceptions.h"

#include <string>

/// The extensions of one model by command name.
///
/// Extensions whose class is not registered in this process are carried as they are stored and written back
/// unchanged; only asking for one fails. Copies share everything until one of them writes. One thread at a
/// time.
/// @tparam E the extension base, mdl_Extension
template <class E>
class DDR_API mdl_OdbExtensionTable {
public:
  using Handle = cow_ArrayCOW<E, cow_Virtual<E>>;
  using Map = cow_Map<cow_String, Handle>;

  /// Empty, with a new identity; the identity of the map comes with the first save.
  mdl_OdbExtensionTable() : uid(cls_Uid::Allocate()) {}
  explicit mdl_OdbExtensionTable(cls_ReadVisitor const& reader);

  static unsigned TypeId() noexcept { return 0x220018; }

  /// How many extensions the table holds, those carried unread included.
  int Size() const noexcept { return extensions.Size() + carried.Size(); }
  bool IsMember(cow_String const& name) const noexcept {
    return extensions.IsMember(name) || IsCarried(name);
  }
  /// Whether an extension of that name is stored but of a class that this process does not know.
  bool IsCarried(cow_String const& name) const noexcept { return carried.IsMember(name); }
  /// The extension for reading, or null. Throws for one that is carried unread.
  E const* ConstFind(cow_String const& name) const;
  /// The extension for writing, or null. Throws for one that is carried unread.
  E* Find(cow_String const& name);
  Map const& Extensions() const noexcept { return extensions; }
  cls_Uid const& Uid() const noexcept { return uid; }
  cls_Uid const& MapUid() const noexcept { return mapUid; }

  /// Puts a copy of the extension under the name, replacing what is there.
  void Insert(cow_String const& name, E const& extension);
  bool Remove(cow_String const& name);

  void DBWrite(cls_WriteVisitor const& writer) const;

private:
  void CheckKnown(cow_String const& name) const;

  Map extensions;
  cow_Map<cow_String, cls_StoredReference> carried;
  cls_AgentHandle carriedFrom; // of the stored map that the carried references belong to
  cls_Uid uid;
  mutable cls_Uid mapUid; // set by the first save
};

// ---- template bodies ----

template <class E>
mdl_OdbExtensionTable<E>::mdl_OdbExtensionTable(cls_ReadVisitor const& reader) : uid(reader.GetUid()) {
  if (!reader.IsPresent()) {
    return;
  }
  reader.RequireClass(TypeId());
  cls_ReadVisitor const mapReader(reader, "map");
  cls_AgentHandle const agent = mapReader.GetCollectionAgent();
  if (!agent) {
    return;
  }
  mapUid = mapReader.GetUid();
  for (cls_AgentWalk walk(*agent); !walk.AtEnd(); walk.Next()) {
    cls_StoredReference const reference = agent->Reference();
    void* built = nullptr;
    if (mdl_isExtensionType(reader.Registrar(), reference.classId)) {
      std::unique_ptr<cls_RowSource> const stored = agent->OpenCurrent();
      built = cls_ReadVisitor(*stored).Construct(reference.classId);
    }
    if (built != nullptr) {
      extensions.Insert(agent->Key(), Handle(static_cast<E*>(built)));
    } else {
      carried.Insert(agent->Key(), reference);
      carriedFrom = agent;
    }
  }
}

template <class E>
void mdl_OdbExtensionTable<E>::CheckKnown(cow_String const& name) const {
  if (IsCarried(name)) {
    nex_Exception::Throw(
        nex_TextException(
            "The extension '" + std::string(name.Text()) +
            "' is stored, but no module of this process defines its class; load the module first."),
        "platform/mdl/mdl_OdbExtensionTable", __LINE__);
  }
}

template <class E>
E const* mdl_OdbExtensionTable<E>::ConstFind(cow_String const& name) const {
  CheckKnown(name);
  Handle const* found = extensions.ConstFind(name);
  return found == nullptr ? nullptr : &found->ConstGet();
}

template <class E>
E* mdl_OdbExtensionTable<E>::Find(cow_String const& name) {
  CheckKnown(name);
  return extensions.IsMember(name) ? &extensions.Find(name)->Get() : nullptr;
}

template <class E>
void mdl_OdbExtensionTable<E>::Insert(cow_String const& name, E const& extension) {
  auto left = carried; // both maps change or neither does
  left.Remove(name);
  extensions.Insert(name, Handle(extension));
  carried = left;
}

template <class E>
bool mdl_OdbExtensionTable<E>::Remove(cow_String const& name) {
  bool const known = extensions.Remove(name);
  return carried.Remove(name) || known;
}

template <class E>
void mdl_OdbExtensionTable<E>::DBWrite(cls_WriteVisitor const& writer) const {
  if (!writer.StartWrite(TypeId(), uid)) {
    return;
  }
  if (mapUid.IsNone()) {
    mapUid = cls_Uid::Allocate();
  }
  cls_WriteVisitor const mapWriter(writer, "map");
  if (!mapWriter.StartWrite(cls_MapHeaderTypeId, mapUid)) {
    return;
  }
  mapWriter.CheckCollectionType(static_cast<int>(cls_CollectionType::StringMap));
  cls_AgentHandle const agent = mapWriter.TakeCollectionAgent();
  if (!carried.IsEmpty() && agent->Store() != carriedFrom->Store()) {
    cow_String const name = carried.Keys().front();
    nex_Exception::Throw(
        nex_TextException(
            "The extension '" + std::string(name.Text()) +
            "' cannot be copied to another file, because no module of this process defines its class;"
            " load the module first."),
        "platform/mdl/mdl_OdbExtensionTable", __LINE__);
  }
  agent->BeginWrite();
  cow_MapIterator<cow_String, Handle> known(extensions);
  for (known.First(); !known.AtEnd(); known.Next()) {
    cls_WriteRequestMapObj request(*agent, known.Key());
    cls_WriteVisitor extensionWriter(request);
    known.Value().ConstGet().DBWrite(extensionWriter);
  }
  cow_MapIterator<cow_String, cls_StoredReference> walk(carried);
  for (walk.First(); !walk.AtEnd(); walk.Next()) {
    agent->WriteReference(walk.Key(), walk.Value());
  }
  agent->EndWrite(nullptr);
}
