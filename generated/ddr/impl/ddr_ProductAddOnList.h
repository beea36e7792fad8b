// ddr_ProductAddOnList: the add-on products recorded with a database.
#pragma once

#include "cls_ReadVisitor.h"
#include "cls_WriteVisitor.h"
#include "cow_1DArray.h"
#include "ddr_ProductAddOn.h"
#include "os_Export.h"

/// The add-on products that were in use when a database was written, in the order in which they were
/// recorded. Copies share the items until one of them writes.
class DDR_API ddr_ProductAddOnList {
public:
  /// Empty, with a new identity.
  ddr_ProductAddOnList() : uid(cls_Uid::Allocate()) {}
  /// The stored list. Throws omu_ValueErrorException for a text that is no add-on.
  explicit ddr_ProductAddOnList(cls_ReadVisitor const& reader);

  static unsigned TypeId() noexcept { return cls_ListHeaderTypeId; }
  int Size() const noexcept { return count; }
  /// @param index [index from 0] throws nex_AssertException when there is no such item
  ddr_ProductAddOn const& ConstGet(int index) const;
  bool IsMember(ddr_ProductAddOnEnum addOn) const;
  void Append(ddr_ProductAddOn const& addOn);
  cls_Uid const& Uid() const noexcept { return uid; }
  void DBWrite(cls_WriteVisitor const& writer) const;

private:
  int count = 0;
  cow_1DArray<ddr_ProductAddOn> items;
  cls_Uid uid;
};
