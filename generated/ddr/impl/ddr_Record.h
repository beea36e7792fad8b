// ddr_Record: base of the records that are no more than an identity.
#pragma once

#include "cls_ReadVisitor.h"
#include "cls_WriteVisitor.h"
#include "cow_Erasure.h"
#include "os_Export.h"

/// A stored object that is an identity and nothing else; its name is the key of the collection that holds it.
class DDR_API ddr_Record {
public:
  virtual ~ddr_Record();
  /// A copy of the most derived object, owned by the caller. The identity is copied too.
  virtual ddr_Record* Copy() const = 0;
  virtual unsigned DynTypeId() const = 0;
  virtual void DBWrite(cls_WriteVisitor const& writer) const = 0;
  cls_Uid const& GetUid() const noexcept { return uid; }

protected:
  ddr_Record() : uid(cls_Uid::Allocate()) {}
  explicit ddr_Record(cls_ReadVisitor const& reader) : uid(reader.GetUid()) {}
  ddr_Record(ddr_Record const&) = default;
  ddr_Record& operator=(ddr_Record const&) = default;

private:
  cls_Uid uid;
};
