// cls_Map2Obj: a keyed collection whose records are loaded when asked for and written back when changed.
#pragma once

#include "cls_PC.h"
#include "cow_Btree.h"
#include "cow_BtreeBuilder.h"
#include "cow_BtreeDiff.h"
#include "cow_BtreeIterator.h"
#include "keyed_Record.h"
#include "omu_Exceptions.h"

#include <cstdio>
#include <memory>
#include <vector>

/// The records of a collection by key, in key order.
///
/// A collection read from a file holds every stored key and no record; a record is read when it is first
/// asked for. A collection made in memory writes itself whole with the first save and is bound to the file
/// from then on. Saving a bound collection writes only what changed since: the collection shares its nodes
/// with the state that the file holds, and compares only the nodes that are no longer shared.
///
/// Copies share everything until one of them writes; reading through one copy loads for all copies that still
/// share the entry, and releasing it releases it for all of them. A record that a copy has not in memory is
/// what the file holds when it is asked for, so a copy that must outlast a later save of another copy reads
/// its records first, and again when another copy has released any. References that Get and ConstGet hand out
/// live until the collection they come from next changes, is released or is destroyed; one from Get may be
/// written through until the next save. Iterators do not outlive a change of the keys. One thread at a time.
/// Key look-ups cost O(log N).
///
/// Use mdl_MapString2Obj for few records that are always loaded.
/// @tparam K the key, cow_String
/// @tparam T the record, with Copy, DBWrite, a reading constructor and TypeId
/// @tparam V the handle of a record
template <class K, class T, class V>
class DDR_API cls_Map2Obj : public cls_PC {
public:
  using Tree = cow_Btree<K, V>;

  /// Empty, in memory only, with a new identity.
  cls_Map2Obj() : uid(cls_Uid::Allocate()) {}
  /// Bound to the stored collection that the visitor stands on: all its keys, no record. A missing collection
  /// reads as an empty one in memory.
  explicit cls_Map2Obj(cls_ReadVisitor const& reader);
  cls_Map2Obj(cls_Map2Obj const&) = default;
  cls_Map2Obj& operator=(cls_Map2Obj const& other);
  ~cls_Map2Obj() override = default;

  int Size() const noexcept { return static_cast<int>(entries.Count()); }
  bool IsMember(K const& key) const { return entries.ConstFind(key) != nullptr; }
  /// The record for reading; loads it when needed. Throws omu_AccessErrorException for a key that is nowhere.
  T const& ConstGet(K const& key) const;
  /// The record for reading, or null for a key that is not a member; loads it when needed.
  T const* ConstFind(K const& key) const;
  /// The tree of the entries; a handle in it is empty while its record is not loaded.
  Tree const& ConstTree() const noexcept { return entries; }
  /// Drops the record of a key from memory, for all copies that share the entry, unless it was changed or the
  /// collection lives in memory only. It is loaded again when next asked for. Nothing for an unknown key.
  void Release(K const& key) const;
  /// Drops every unchanged record from memory.
  void Release() const;
  cls_Uid const& Uid() const noexcept { return uid; }
  /// Whether the collection reads from the given store; null is the store of a collection in memory.
  bool BelongsTo(void const* store) const { return (loader ? loader->Store() : nullptr) == store; }
  /// Whether the collection works with a stored one.
  bool IsBound() const noexcept { return static_cast<bool>(loader); }
  bool IsChanged() const noexcept { return changed != 0; }
  /// Counts as changed again: what was written did not come into the file.
  void MarkChanged() noexcept { changed = 1; }

  /// Puts a copy of the record under the key, replacing what is there. Always true.
  bool Insert(K const& key, T const& record);
  /// The same, adopting the record.
  bool Insert(K const& key, T* record);
  /// The record for writing; loads it when needed and counts it as changed. Throws omu_AccessErrorException
  /// for a key that is nowhere; nothing is changed then.
  T& Get(K const& key);
  /// The record for writing, or null for a key that is not a member: nothing is changed then. Loads the
  /// record when needed and counts it as changed.
  T* Find(K const& key);
  /// Takes a key out. False when it is not there.
  bool Remove(K const& key);
  /// Takes every key out.
  void Clear();
  /// Loads every record, lets go of the store and takes a new identity: the next save writes all of it,
  /// wherever that goes, and the old store is not touched. O(N).
  void LetGoOfStore();
  /// Changes something in every record that is not stored, such as the name of its owner; the records do not
  /// count as changed. Loads every record for which `wants` answers true. O(N).
  template <class Wants, class Change>
  void AdjustUnstored(Wants wants, Change change);

  void Flush() override;
  unsigned HeaderTypeId() const override { return cls_MapHeaderTypeId; }
  void DBWrite(cls_WriteVisitor const& writer) const override;
  int EntryCount() const override { return Size(); }

private:
  /// What the file holds, with the records that were loaded from it: an entry whose record is another object
  /// than here has been changed.
  struct Stored : cls_StoredState {
    explicit Stored(Tree const& heldTree) : held(heldTree) {}
    Tree held;
  };

  bool DoInsert(K const& key, V const& record) const;
  static void Put(Tree& into, K const& key, V const& record);
  Stored* StoredState() const { return loader ? dynamic_cast<Stored*>(loader->StoredState()) : nullptr; }
  /// Whether the stored collection, where there is one, was last seen to hold these very nodes. Another copy
  /// of this collection may have been saved in between, or the last save may have failed at its end: then
  /// what the file holds is no longer what this collection was when it was last unchanged.
  bool IsAsStored() const noexcept {
    Stored const* const stored = StoredState();
    return stored == nullptr || stored->held.RootNode() == entries.RootNode();
  }
  Tree OwnNodes() const;
  void Take(Tree const& all) const noexcept;
  V Load(K const& key) const;
  bool IsRecordChanged(K const& key, V const& record) const;
  void WriteChanged();
  void WriteRecord(K const& key, V const& record) const;

  // Loading fills these in behind a const interface.
  mutable Tree entries;
  mutable cls_AgentHandle loader;
  mutable std::int32_t changed = 0;
  cls_Uid uid;
};

/// Walks a collection in ascending key order. Must not outlive a change of the collection's keys.
template <class K, class T, class V>
class cls_Map2ObjIter {
public:
  explicit cls_Map2ObjIter(cls_Map2Obj<K, T, V> const& walked)
      : collection(&walked), iterator(walked.ConstTree()) {}
  cls_Map2ObjIter(cls_Map2ObjIter const&) = default;
  cls_Map2ObjIter& operator=(cls_Map2ObjIter const&) = default;

  void First() { iterator.First(); }
  void Next() { iterator.Next(); }
  void Last() { iterator.Last(); }
  void Prev() { iterator.Prev(); }
  bool AtEnd() const { return iterator.AtEnd(); }
  K const& Key() const { return iterator.Key(); }
  /// The current record; loads it when needed.
  T const& Value() const {
    V const& handle = iterator.Value();
    return handle.IsEmpty() ? collection->ConstGet(iterator.Key()) : handle.ConstGet();
  }
  /// Whether the current record is in memory.
  bool IsLoaded() const { return !iterator.Value().IsEmpty(); }

private:
  cls_Map2Obj<K, T, V> const* collection;
  cow_BtreeIterator<K, V> iterator;
};

// ---- template bodies ----

template <class K, class T, class V>
cls_Map2Obj<K, T, V>::cls_Map2Obj(cls_ReadVisitor const& reader)
    : loader(reader.GetCollectionAgent()), uid(reader.GetUid()) {
  if (!loader) {
    return;
  }
  V const notLoaded;
  cow_BtreeBuilder<K, V> ascending; // a first save stores the keys in order, later ones add behind them
  {
    cls_AgentWalk walk(*loader);
    while (!walk.AtEnd() && ascending.Append(walk.Key(), notLoaded)) {
      walk.Next();
    }
    entries = ascending.Take();
    for (; !walk.AtEnd(); walk.Next()) {
      DoInsert(walk.Key(), notLoaded);
    }
  }
  loader->Bind(this);
  keyed_requireOwnState(reader, loader->StoredState(), StoredState());
  loader->SetStoredState(std::make_unique<Stored>(entries));
}

template <class K, class T, class V>
cls_Map2Obj<K, T, V>& cls_Map2Obj<K, T, V>::operator=(cls_Map2Obj const& other) {
  if (this != &other) {
    entries.Clear();
    entries = other.entries;
    loader = other.loader;
    changed = other.changed;
    uid = other.uid;
  }
  return *this;
}

template <class K, class T, class V>
bool cls_Map2Obj<K, T, V>::DoInsert(K const& key, V const& record) const {
  Put(entries, key, record);
  return true;
}

template <class K, class T, class V>
void cls_Map2Obj<K, T, V>::Put(Tree& into, K const& key, V const& record) {
  if (into.InsertUnlessMember(key, record)) {
    return;
  }
  Tree replaced(into); // an exception between the two steps must not lose the entry
  replaced.Remove(key);
  replaced.InsertUnlessMember(key, record);
  into = replaced;
}

template <class K, class T, class V>
bool cls_Map2Obj<K, T, V>::Insert(K const& key, T const& record) {
  return Insert(key, cow_Virtual<T>::Copy(record));
}

template <class K, class T, class V>
bool cls_Map2Obj<K, T, V>::Insert(K const& key, T* record) {
  if (record == nullptr) {
    nex_Exception::Throw(nex_AssertException("record != nullptr"), "containers/keyed/cls_Map2Obj", __LINE__);
  }
  V const handle(record);
  keyed_ChangeMark mark(loader.Get(), key);
  DoInsert(key, handle);
  mark.Keep();
  changed = 1;
  return true;
}

template <class K, class T, class V>
V cls_Map2Obj<K, T, V>::Load(K const& key) const {
  V* held = nullptr;
  if (Stored* stored = StoredState()) {
    held = stored->held.FindInPlace(key);
    if (held != nullptr && !held->IsEmpty()) {
      return *held;
    }
  }
  std::unique_ptr<cls_RowSource> const record = loader ? loader->OpenRecord(key) : nullptr;
  if (record == nullptr) {
    nex_Exception::Throw(omu_AccessErrorException(key), "containers/keyed/cls_Map2Obj", __LINE__);
  }
  V loaded(keyed_readRecord<T>(*record));
  if (held != nullptr) {
    *held = loaded;
  }
  return loaded;
}

template <class K, class T, class V>
T const& cls_Map2Obj<K, T, V>::ConstGet(K const& key) const {
  V* place = entries.FindInPlace(key);
  if (place == nullptr) {
    // A key that another holder of the stored collection has added, unless it was taken out here.
    if (loader && !loader->IsChanged(key) && loader->IsStored(key)) {
      DoInsert(key, Load(key));
      return entries.ConstFind(key)->Value().ConstGet();
    }
    nex_Exception::Throw(omu_AccessErrorException(key), "containers/keyed/cls_Map2Obj", __LINE__);
  }
  if (place->IsEmpty()) {
    V const loaded = Load(key);
    // Where the node is shared with the stored state, loading has filled this place already.
    if (place->Peek() != loaded.Peek()) {
      *place = loaded;
    }
  }
  return place->ConstGet();
}

template <class K, class T, class V>
T const* cls_Map2Obj<K, T, V>::ConstFind(K const& key) const {
  auto const* const entry = entries.ConstFind(key);
  if (entry == nullptr) {
    return nullptr;
  }
  return entry->Value().IsEmpty() ? &ConstGet(key) : &entry->Value().ConstGet();
}

template <class K, class T, class V>
T* cls_Map2Obj<K, T, V>::Find(K const& key) {
  if (ConstFind(key) == nullptr) {
    return nullptr;
  }
  return &Get(key);
}

template <class K, class T, class V>
T& cls_Map2Obj<K, T, V>::Get(K const& key) {
  ConstGet(key);
  keyed_ChangeMark mark(loader.Get(), key);
  T& record = entries.Find(key)->Value().Get();
  mark.Keep();
  changed = 1;
  return record;
}

template <class K, class T, class V>
bool cls_Map2Obj<K, T, V>::Remove(K const& key) {
  if (!IsMember(key)) {
    return false;
  }
  K const kept(key); // the argument may be the key that stands in the node
  keyed_ChangeMark mark(loader.Get(), kept);
  entries.Remove(kept);
  mark.Keep();
  changed = 1;
  return true;
}

template <class K, class T, class V>
void cls_Map2Obj<K, T, V>::Clear() {
  if (loader) {
    std::vector<K> unmarked;
    cow_BtreeIterator<K, V> walk(entries);
    for (walk.First(); !walk.AtEnd(); walk.Next()) {
      if (!loader->IsChanged(walk.Key())) {
        unmarked.push_back(walk.Key());
      }
    }
    try {
      for (K const& key : unmarked) {
        loader->MarkChanged(key);
      }
    } catch (...) {
      for (K const& key : unmarked) {
        loader->ForgetChanged(key);
      }
      throw;
    }
  }
  entries.Clear();
  changed = 1;
}

template <class K, class T, class V>
bool cls_Map2Obj<K, T, V>::IsRecordChanged(K const& key, V const& record) const {
  if (loader->IsChanged(key)) {
    return true;
  }
  Stored* stored = StoredState();
  if (stored == nullptr) {
    return false;
  }
  auto const* held = stored->held.ConstFind(key);
  return held == nullptr || held->Value().Peek() != record.Peek();
}

template <class K, class T, class V>
void cls_Map2Obj<K, T, V>::Release(K const& key) const {
  // Without its file a record could not be loaded again.
  V* place = loader && loader->Store() != nullptr ? entries.FindInPlace(key) : nullptr;
  if (place == nullptr || place->IsEmpty() || IsRecordChanged(key, *place)) {
    return;
  }
  Stored* stored = StoredState();
  V* held = stored == nullptr ? nullptr : stored->held.FindInPlace(key);
  if (held == place && held->IsShared()) {
    return; // a copy uses the record, so memory would not shrink
  }
  *place = V();
  // While a copy keeps the record, the stored state, which has it too, keeps it: that tells that the copy has
  // not changed it.
  if (held != nullptr && held != place && !held->IsShared()) {
    *held = V();
  }
  loader->DropCached(key);
}

template <class K, class T, class V>
void cls_Map2Obj<K, T, V>::Release() const {
  if (!loader || loader->Store() == nullptr) {
    return;
  }
  cow_BtreeIterator<K, V> walk(entries);
  for (walk.First(); !walk.AtEnd(); walk.Next()) {
    Release(walk.Key());
  }
  loader->DropCached();
}

// Nodes are shared with copies of the same store only: in a node, records come and go for all who share it.
template <class K, class T, class V>
auto cls_Map2Obj<K, T, V>::OwnNodes() const -> Tree {
  Tree const shared(entries);
  cow_BtreeBuilder<K, V> own;
  cow_BtreeIterator<K, V> walk(shared);
  for (walk.First(); !walk.AtEnd() && own.Append(walk.Key(), walk.Value()); walk.Next()) {
  }
  Tree all = own.Take();
  for (; !walk.AtEnd(); walk.Next()) { // only after the order of keys was changed under the tree
    all.InsertUnlessMember(walk.Key(), walk.Value());
  }
  return all;
}

template <class K, class T, class V>
void cls_Map2Obj<K, T, V>::Take(Tree const& all) const noexcept {
  entries.Clear(); // assigning an empty tree alone would release nothing
  entries = all;
}

template <class K, class T, class V>
void cls_Map2Obj<K, T, V>::LetGoOfStore() {
  if (loader) {
    cow_BtreeIterator<K, V> walk(entries);
    for (walk.First(); !walk.AtEnd(); walk.Next()) {
      ConstGet(walk.Key());
    }
  }
  Tree const own = OwnNodes();
  uid = cls_Uid::Allocate();
  Take(own);
  loader = cls_AgentHandle();
  changed = 1;
}

template <class K, class T, class V>
template <class Wants, class Change>
void cls_Map2Obj<K, T, V>::AdjustUnstored(Wants wants, Change change) {
  std::vector<K> keys;
  cow_BtreeIterator<K, V> walk(entries);
  for (walk.First(); !walk.AtEnd(); walk.Next()) {
    if (wants(ConstGet(walk.Key()))) {
      keys.push_back(walk.Key());
    }
  }
  for (K const& key : keys) {
    Stored* stored = StoredState();
    V* held = stored == nullptr ? nullptr : stored->held.FindInPlace(key);
    V& record = entries.Find(key)->Value();
    bool const asStored = held != nullptr && held->Peek() == record.Peek();
    change(record.Get());
    if (asStored) {
      *held = record;
    }
  }
}

template <class K, class T, class V>
void cls_Map2Obj<K, T, V>::DBWrite(cls_WriteVisitor const& writer) const {
  if (!writer.StartWrite(HeaderTypeId(), uid)) {
    return;
  }
  writer.CheckCollectionType(cls_CollectionTypeFix(5, nullptr));
  if (loader) {
    return;
  }
  cls_AgentHandle const agent = writer.TakeCollectionAgent();
  Tree own = OwnNodes();
  agent->Begin();
  agent->Bind(this);
  if (agent->StoredState() == nullptr) {
    agent->SetStoredState(std::make_unique<Stored>(Tree()));
  }
  for (agent->First(); !agent->AtEnd(); agent->Next()) {
    if (own.ConstFind(agent->Key()) == nullptr) {
      // Kept on purpose: the text speaks of a duplicate where a stored key is missing in memory, and ends no
      // line; tools that read the error stream look for it as it is.
      std::fprintf(stderr, "cls_Map2Obj::DBWrite - Duplicate key when loading collection from DDB");
    }
    Put(own, agent->Key(), V());
  }
  // Bound at last: a collection that is bound writes what differs from the stored state, and nothing else.
  Take(own);
  loader = agent;
  const_cast<cls_Map2Obj*>(this)->Flush();
}

template <class K, class T, class V>
void cls_Map2Obj<K, T, V>::Flush() {
  if (!loader || loader->IsReadOnly()) {
    return;
  }
  if (!IsChanged() && IsAsStored()) {
    return;
  }
  std::int32_t const before = std::exchange(changed, 0);
  try {
    WriteChanged();
  } catch (...) {
    changed = before;
    throw;
  }
}

template <class K, class T, class V>
void cls_Map2Obj<K, T, V>::WriteRecord(K const& key, V const& record) const {
  cls_WriteRequestMapObj request(*loader, key);
  cls_WriteVisitor writer(request);
  record.ConstGet().DBWrite(writer);
}

template <class K, class T, class V>
void cls_Map2Obj<K, T, V>::WriteChanged() {
  keyed_WriteGuard guard(*loader);
  std::vector<K> done;
  std::vector<K> removed;
  if (Stored* stored = StoredState()) {
    cow_btreeDiff(stored->held, entries, [&](K const& key, V const* held, V const* here) {
      if (here == nullptr) {
        removed.push_back(key);
      } else if (held == nullptr && here->IsEmpty()) {
        loader->RestoreRemoved(key);
      } else if (!here->IsEmpty() && (held == nullptr || held->Peek() != here->Peek())) {
        WriteRecord(key, *here);
        done.push_back(key);
      }
    });
  } else {
    cow_BtreeIterator<K, V> walk(entries);
    for (walk.First(); !walk.AtEnd(); walk.Next()) {
      if (loader->IsChanged(walk.Key()) && !walk.Value().IsEmpty()) {
        WriteRecord(walk.Key(), walk.Value());
        done.push_back(walk.Key());
      }
    }
    for (cls_AgentWalk storedKeys(*loader); !storedKeys.AtEnd(); storedKeys.Next()) {
      if (entries.ConstFind(storedKeys.Key()) == nullptr) {
        removed.push_back(storedKeys.Key());
      }
    }
  }
  for (K const& key : removed) {
    loader->RemoveStored(key);
  }
  done.insert(done.end(), removed.begin(), removed.end());
  guard.End(std::make_unique<Stored>(entries));
  loader->ForgetChangedWhenStored(done);
}
