#include "ddr_Record.h"

#include "ddr_Result.h"
#include "ddr_UserData.h"

ddr_Record::~ddr_Record() = default;
ddr_Result::~ddr_Result() = default;
ddr_UserData::~ddr_UserData() = default;

void ddr_Result::DBWrite(cls_WriteVisitor const& writer) const {
  writer.StartWrite(TypeId(), GetUid());
}

void* ddr_Result::Ctor(cls_ReadVisitor&) {
  return nullptr;
}

void ddr_Result::CowDtor(cow_ErasedHandle* handle) {
  cow_releaseErased<ddr_Result>(handle);
}

void ddr_UserData::DBWrite(cls_WriteVisitor const& writer) const {
  writer.StartWrite(TypeId(), GetUid());
}

void* ddr_UserData::Ctor(cls_ReadVisitor&) {
  return nullptr;
}
