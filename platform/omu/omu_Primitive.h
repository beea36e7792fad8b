// omu_Primitive: base of the small persistent values.
#pragma once

#include "os_Export.h"

/// A value that can be compared and copied without knowing its class.
class DDR_API omu_Primitive {
public:
  virtual ~omu_Primitive();
  virtual bool operator==(omu_Primitive const& other) const = 0;
  /// A copy that the caller owns.
  virtual omu_Primitive* Copy() const = 0;

protected:
  omu_Primitive() = default;
  omu_Primitive(omu_Primitive const&) = default;
  omu_Primitive& operator=(omu_Primitive const&) = default;
};
