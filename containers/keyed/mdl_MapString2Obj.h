// mdl_MapString2Obj: records by name, always loaded.
#pragma once

#include "cls_PC.h"
#include "cow_COW.h"
#include "cow_Map.h"
#include "cow_MapDiff.h"
#include "cow_MapIterator.h"
#include "keyed_Record.h"
#include "omu_Exceptions.h"

#include <vector>

/// The records of a collection by name. All of them are in memory; a save writes those that changed since the
/// file was read or last saved.
///
/// Copies share everything until one of them writes. References that Get and ConstGet hand out live until the
/// collection next changes or is destroyed; one from Get may be written through until the next save. One
/// thread at a time. Look-ups follow one bit of the name a level and are not balanced: names that differ in
/// few bits make long paths.
/// @tparam T the record, with Copy, DBWrite, a reading constructor and TypeId
template <class T>
class DDR_API mdl_MapString2Obj {
public:
  using Handle = cow_ArrayCOW<T, cow_Virtual<T>>;
  using Map = cow_Map<cow_String, Handle>;

  /// Empty, with a new identity.
  mdl_MapString2Obj() : uid(cls_Uid::Allocate()) {}
  /// Every record of the stored collection. A missing collection reads as an empty one.
  explicit mdl_MapString2Obj(cls_ReadVisitor const& reader);

  int Size() const noexcept { return map.Size(); }
  bool IsMember(cow_String const& name) const noexcept { return map.IsMember(name); }
  /// The record for reading; unshares nothing. Throws omu_AccessErrorException for an unknown name.
  T const& ConstGet(cow_String const& name) const;
  Map const& ConstGetMap() const noexcept { return map; }
  bool IsChanged() const noexcept { return changed != 0; }
  cls_Uid const& Uid() const noexcept { return uid; }

  /// Puts a copy of the record under the name, replacing what is there. Always true.
  bool Insert(cow_String const& name, T const& record) { return Insert(name, cow_Virtual<T>::Copy(record)); }
  /// The same, adopting the record.
  bool Insert(cow_String const& name, T* record);
  /// The record for writing. Throws omu_AccessErrorException for an unknown name; nothing is changed then.
  /// Kept on purpose: this does not mark the collection as changed, only insertions and the map itself do.
  T& Get(cow_String const& name);
  /// The map for writing; marks the collection as changed.
  Map& GetMap() noexcept {
    changed = 1;
    return map;
  }
  /// Takes a name out. False when it is not there.
  bool Remove(cow_String const& name);

  void DBWrite(cls_WriteVisitor const& writer) const;

private:
  /// What the file holds; an entry whose record is another object than here has been changed.
  struct Stored : cls_StoredState {
    explicit Stored(Map const& heldMap) : held(heldMap) {}
    Map held;
  };

  Map map;
  std::uint8_t changed = 0;
  cls_Uid uid;
};

/// Walks a collection in ascending byte order of the names. Keeps what it walks: a change of the collection
/// does not show.
template <class T>
class mdl_MapString2ObjIT {
public:
  explicit mdl_MapString2ObjIT(mdl_MapString2Obj<T> const& collection) : iterator(collection.ConstGetMap()) {
    iterator.First();
  }
  void First() { iterator.First(); }
  void Next() { iterator.Next(); }
  void Last() { iterator.Last(); }
  void Prev() { iterator.Prev(); }
  bool AtEnd() const { return iterator.AtEnd(); }
  cow_String const& Key() const { return iterator.Key(); }
  T const& Value() const { return iterator.Value().ConstGet(); }

private:
  cow_MapIterator<cow_String, typename mdl_MapString2Obj<T>::Handle> iterator;
};

// ---- template bodies ----

template <class T>
mdl_MapString2Obj<T>::mdl_MapString2Obj(cls_ReadVisitor const& reader) : uid(reader.GetUid()) {
  cls_AgentHandle const agent = reader.GetCollectionAgent();
  if (!agent) {
    return;
  }
  for (cls_AgentWalk walk(*agent); !walk.AtEnd(); walk.Next()) {
    map.Insert(walk.Key(), Handle(keyed_readRecord<T>(*agent->OpenCurrent())));
  }
  keyed_requireOwnState(reader, agent->StoredState(), dynamic_cast<Stored*>(agent->StoredState()));
  agent->SetStoredState(std::make_unique<Stored>(map));
}

template <class T>
T const& mdl_MapString2Obj<T>::ConstGet(cow_String const& name) const {
  Handle const* record = map.ConstFind(name);
  if (record == nullptr) {
    nex_Exception::Throw(omu_AccessErrorException(name), "containers/keyed/mdl_MapString2Obj", __LINE__);
  }
  return record->ConstGet();
}

template <class T>
bool mdl_MapString2Obj<T>::Insert(cow_String const& name, T* record) {
  if (record == nullptr) {
    nex_Exception::Throw(nex_AssertException("record != nullptr"), "containers/keyed/mdl_MapString2Obj",
                         __LINE__);
  }
  Handle const handle(record);
  map.Insert(name, handle);
  changed = 1;
  return true;
}

template <class T>
T& mdl_MapString2Obj<T>::Get(cow_String const& name) {
  if (!map.IsMember(name)) {
    nex_Exception::Throw(omu_AccessErrorException(name), "containers/keyed/mdl_MapString2Obj", __LINE__);
  }
  return map.Find(name)->Get();
}

template <class T>
bool mdl_MapString2Obj<T>::Remove(cow_String const& name) {
  if (!map.Remove(name)) {
    return false;
  }
  changed = 1;
  return true;
}

template <class T>
void mdl_MapString2Obj<T>::DBWrite(cls_WriteVisitor const& writer) const {
  if (!writer.StartWrite(cls_MapHeaderTypeId, uid)) {
    return;
  }
  writer.CheckCollectionType(static_cast<int>(cls_CollectionType::StringMap));
  cls_AgentHandle const agent = writer.TakeCollectionAgent();
  auto const* stored = dynamic_cast<Stored const*>(agent->StoredState());
  Map const held = stored == nullptr ? Map() : stored->held;
  keyed_WriteGuard guard(*agent);
  std::vector<cow_String> removed;
  cow_mapDiff(held, map, [&](cow_String const& name, Handle const* before, Handle const* here) {
    if (here == nullptr) {
      removed.push_back(name);
    } else if (before == nullptr || before->Peek() != here->Peek()) {
      cls_WriteRequestMapObj request(*agent, name);
      cls_WriteVisitor recordWriter(request);
      here->ConstGet().DBWrite(recordWriter);
    }
  });
  for (cow_String const& name : removed) {
    agent->RemoveStored(name);
  }
  guard.End(std::make_unique<Stored>(map));
}
