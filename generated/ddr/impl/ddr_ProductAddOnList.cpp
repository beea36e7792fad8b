#include "ddr_ProductAddOnList.h"

#include "nex_Exception.h"

ddr_ProductAddOnList::ddr_ProductAddOnList(cls_ReadVisitor const& reader) : uid(reader.GetUid()) {
  std::unique_ptr<cls_ListSource> const list = reader.GetListReader();
  items.Grow(list->Size());
  while (list->HasNext()) {
    cls_ReadVisitor const element(*list);
    items.Get(count) = ddr_ProductAddOn(element);
    ++count;
  }
}

ddr_ProductAddOn const& ddr_ProductAddOnList::ConstGet(int index) const {
  if (index < 0 || index >= count) {
    nex_Exception::Throw(nex_AssertException("index >= 0 && index < count"),
                         "generated/ddr/impl/ddr_ProductAddOnList", __LINE__);
  }
  return items.PartialArrayConstGet(index);
}

bool ddr_ProductAddOnList::IsMember(ddr_ProductAddOnEnum addOn) const {
  for (int index = 0; index < count; ++index) {
    if (items.PartialArrayConstGet(index).GetValue() == addOn) {
      return true;
    }
  }
  return false;
}

void ddr_ProductAddOnList::Append(ddr_ProductAddOn const& addOn) {
  ddr_ProductAddOn const kept = addOn; // the argument may be one of the items
  items.Grow(count + 1);
  items.Get(count) = kept;
  ++count;
}

void ddr_ProductAddOnList::DBWrite(cls_WriteVisitor const& writer) const {
  if (!writer.StartWrite(TypeId(), uid)) {
    return;
  }
  writer.CheckCollectionType(static_cast<int>(cls_CollectionType::List));
  std::unique_ptr<cls_ListSink> list = writer.GetListWriter();
  for (int index = 0; index < count; ++index) {
    cls_WriteRequestListObj request(*list);
    cls_WriteVisitor const element(request);
    items.PartialArrayConstGet(index).DBWrite(element);
  }
  if (list->ReleaseWhenDone()) {
    list.reset();
  }
}
