// ddr_UserData: one user-data record of a database.
#pragma once

#include "ddr_Forward.h"
#include "ddr_Record.h"

/// A user-data record. Other modules attach what it means; a host may derive from it, overriding Copy,
/// DynTypeId and DBWrite.
class DDR_API ddr_UserData : public ddr_Record {
public:
  /// A new identity.
  ddr_UserData() = default;
  explicit ddr_UserData(cls_ReadVisitor const& reader) : ddr_Record(reader) {}
  ~ddr_UserData() override;

  ddr_UserData* Copy() const override { return new ddr_UserData(*this); }
  unsigned DynTypeId() const override { return TypeId(); }
  void DBWrite(cls_WriteVisitor const& writer) const override;

  static unsigned TypeId() noexcept { return 0x220010; }
  /// The catalogue's constructor: always null, for collections build user data themselves.
  static void* Ctor(cls_ReadVisitor& reader);
};
