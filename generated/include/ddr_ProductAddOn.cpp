#include "ddr_ProductAddOn.h"

template <>
omu_PrimEnumEntry const* ddr_ProductAddOn::EnumTable() noexcept {
  static constexpr omu_PrimEnumEntry table[] = {
      {"KORU", ddr_ProductAddOn_Koru}, {"FENTAL", ddr_ProductAddOn_Fental}, {nullptr, 0}};
  return table;
}

template class omu_PrimEnum<ddr_ProductAddOnEnum, 1>;
