#include "omu_PrimEnumBase.h"

omu_Primitive::~omu_Primitive() = default;
omu_PrimEnumBase::~omu_PrimEnumBase() = default;

omu_PrimEnumBase::omu_PrimEnumBase(cls_ReadVisitor const& reader) : text(reader.ReadElementText()) {}

void omu_PrimEnumBase::DBWrite(cls_WriteVisitor const& writer) const {
  writer.WriteElementText(text);
}

cow_String omu_PrimEnumBase::PermissibleValuesAsString() const {
  std::string list;
  for (omu_PrimEnumEntry const* entry = Table(); entry->text != nullptr; ++entry) {
    if (!list.empty()) {
      list += ", ";
    }
    list += entry->text;
  }
  return cow_String(list.c_str());
}

void omu_PrimEnumBase::Set(omu_PrimEnumEntry const& entry) {
  text = cow_String(entry.text);
  value = entry.value;
}
