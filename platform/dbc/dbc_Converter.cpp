#include "dbc_Converter.h"

#include <utility>

dbc_ClassConverter::dbc_ClassConverter(cow_String className, unsigned classTypeId, int oldVersion)
    : name(std::move(className)), typeId(classTypeId), version(oldVersion) {}

dbc_ClassConverter& dbc_ClassConverter::BindConversionFunction(dbc_ConversionFunction bound) noexcept {
  conversion = bound;
  return *this;
}

dbc_ClassConverter& dbc_ClassConverter::BindFinalizeFunction(dbc_FinalizeFunction bound) noexcept {
  finalize = bound;
  return *this;
}

dbc_ClassConverter& dbc_Converter::Upgrade(cow_String const& className, unsigned typeId, int oldVersion) {
  for (dbc_ClassConverter& declared : classes) {
    if (declared.TypeId() == typeId && declared.OldVersion() == oldVersion) {
      return declared;
    }
  }
  return classes.emplace_back(className, typeId, oldVersion);
}
