// ddr_ProductAddOnEnum: the add-on products that a database may have been written with.
#pragma once

#include "omu_PrimEnum.h"

/// Add-on products. Files store the texts "KORU" and "FENTAL".
enum ddr_ProductAddOnEnum : int {
  ddr_ProductAddOn_Koru = 0,
  ddr_ProductAddOn_Fental = 1,
};

using ddr_ProductAddOn = omu_PrimEnum<ddr_ProductAddOnEnum, 1>;

template <>
DDR_API omu_PrimEnumEntry const* ddr_ProductAddOn::EnumTable() noexcept;

extern template class omu_PrimEnum<ddr_ProductAddOnEnum, 1>;
