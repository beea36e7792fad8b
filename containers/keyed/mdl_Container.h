// mdl_Container: objects by key, in memory only.
#pragma once

#include "cow_COW.h"
#include "cow_Map.h"
#include "cow_MapIterator.h"
#include "nex_Exception.h"
#include "omu_Exceptions.h"

/// Objects by key, for example the open databases by name.
///
/// Copies share everything until one of them writes: copying costs one increment. References that Get and
/// ConstGet hand out live until the container next changes or is destroyed. One thread at a time.
/// @tparam K the key, cow_String
/// @tparam T the object, with Copy
template <class K, class T>
class DDR_API mdl_Container {
public:
  using Handle = cow_ArrayCOW<T, cow_Virtual<T>>;
  using Map = cow_Map<K, Handle>;

  int Size() const noexcept { return map.Size(); }
  bool IsMember(K const& key) const noexcept { return map.IsMember(key); }
  /// The object for reading; unshares nothing. Throws omu_AccessErrorException naming an unknown key.
  T const& ConstGet(K const& key) const {
    Handle const* found = map.ConstFind(key);
    if (found == nullptr) {
      Refuse(key, __LINE__);
    }
    return found->ConstGet();
  }
  Map const& ConstGetMap() const noexcept { return map; }

  /// Puts a copy of the object under the key, replacing what is there. Always true.
  bool Insert(K const& key, T const& object) { return Insert(key, cow_Virtual<T>::Copy(object)); }
  /// The same, adopting the object.
  bool Insert(K const& key, T* object) {
    if (object == nullptr) {
      nex_Exception::Throw(nex_AssertException("object != nullptr"), "containers/keyed/mdl_Container",
                           __LINE__);
    }
    return map.Insert(key, Handle(object));
  }
  /// The object for writing; unshares the way to it and the object itself. Throws omu_AccessErrorException
  /// naming an unknown key; nothing is changed then.
  T& Get(K const& key) {
    if (!map.IsMember(key)) {
      Refuse(key, __LINE__);
    }
    return map.Find(key)->Get();
  }
  /// Takes a key out. False when it is not there.
  bool Remove(K const& key) { return map.Remove(key); }
  void Clear() noexcept { map.Clear(); }

private:
  [[noreturn]] static void Refuse(K const& key, int line) {
    nex_Exception::Throw(omu_AccessErrorException(key), "containers/keyed/mdl_Container", line);
  }
  Map map;
};

/// Walks a container in ascending byte order of the keys. Keeps what it walks: a change of the container does
/// not show.
template <class K, class T>
class mdl_ContainerIter {
public:
  explicit mdl_ContainerIter(mdl_Container<K, T> const& container) : iterator(container.ConstGetMap()) {
    iterator.First();
  }
  void First() { iterator.First(); }
  void Next() { iterator.Next(); }
  bool AtEnd() const { return iterator.AtEnd(); }
  K const& Key() const { return iterator.Key(); }
  T const& Value() const { return iterator.Value().ConstGet(); }

private:
  cow_MapIterator<K, typename mdl_Container<K, T>::Handle> iterator;
};
