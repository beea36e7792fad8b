// ddr_Result: one result of a database.
#pragma once

#include "ddr_Forward.h"
#include "ddr_Record.h"

/// A result. Other modules attach what it means; a host may derive from it, overriding Copy, DynTypeId and
/// DBWrite.
class DDR_API ddr_Result : public ddr_Record {
public:
  /// A new identity.
  ddr_Result() = default;
  explicit ddr_Result(cls_ReadVisitor const& reader) : ddr_Record(reader) {}
  ~ddr_Result() override;

  ddr_Result* Copy() const override { return new ddr_Result(*this); }
  unsigned DynTypeId() const override { return TypeId(); }
  void DBWrite(cls_WriteVisitor const& writer) const override;

  static unsigned TypeId() noexcept { return 0x220001; }
  /// The catalogue's constructor: always null, for collections build results themselves.
  static void* Ctor(cls_ReadVisitor& reader);
  /// Releases an erased handle of a result and frees the handle.
  static void CowDtor(cow_ErasedHandle* handle);
};
