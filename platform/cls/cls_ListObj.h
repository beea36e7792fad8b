// cls_ListObj: a persistent list of objects of one class.
#pragma once

#include "cls_ReadVisitor.h"
#include "cls_WriteVisitor.h"
#include "cow_COW.h"
#include "nex_Exception.h"

#include <vector>

/// A list of objects, stored with its database. Copies share the list until one of them writes.
/// @tparam T a persistent class with a reading constructor and DBWrite
template <class T>
class cls_ListObj {
public:
  /// An empty list with a new identity.
  cls_ListObj() : items(new Items()), uid(cls_Uid::Allocate()) {}
  /// The stored list; a missing one reads as an empty list. Throws, naming file, class and row, when an
  /// element is of another class.
  explicit cls_ListObj(cls_ReadVisitor const& reader);

  static unsigned TypeId() noexcept { return cls_ListObjTypeId; }

  int Size() const { return static_cast<int>(items.ConstGet().size()); }
  /// @param index [index from 0] must be below Size(); throws nex_AssertException otherwise
  T const& ConstGet(int index) const { return items.ConstGet().at(Checked(index)).ConstGet(); }
  /// The same for writing; unshares the list and the element.
  T& Get(int index) { return items.Get().at(Checked(index)).Get(); }
  void Append(T const& item) { items.Get().push_back(Item(new T(item))); }
  void Clear() { items = Handle(new Items()); }
  cls_Uid const& Uid() const noexcept { return uid; }

  void DBWrite(cls_WriteVisitor const& writer) const;

private:
  using Item = cow_COW<T, cow_Direct<T>>;
  using Items = std::vector<Item>;
  using Handle = cow_COW<Items, cow_Direct<Items>>;

  std::size_t Checked(int index) const {
    if (index < 0 || index >= Size()) {
      nex_Exception::Throw(nex_AssertException("index >= 0 && index < Size()"), "platform/cls/cls_ListObj",
                           __LINE__);
    }
    return static_cast<std::size_t>(index);
  }

  Handle items;
  cls_Uid uid;
};

// ---- template bodies ----

template <class T>
cls_ListObj<T>::cls_ListObj(cls_ReadVisitor const& reader) : items(new Items()), uid(reader.GetUid()) {
  std::unique_ptr<cls_ListSource> list = reader.GetListReader();
  Items& read = items.Get();
  while (list->HasNext()) {
    cls_ReadVisitor element(*list);
    element.RequireClass(T::TypeId());
    read.push_back(Item(new T(element)));
  }
}

template <class T>
void cls_ListObj<T>::DBWrite(cls_WriteVisitor const& writer) const {
  if (!writer.StartWrite(TypeId(), uid)) {
    return;
  }
  writer.CheckCollectionType(static_cast<int>(cls_CollectionType::List));
  std::unique_ptr<cls_ListSink> list = writer.GetListWriter();
  for (Item const& item : items.ConstGet()) {
    cls_WriteRequestListObj request(*list);
    cls_WriteVisitor element(request);
    item.ConstGet().DBWrite(element);
  }
}
