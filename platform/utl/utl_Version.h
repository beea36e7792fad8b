// utl_Version.h: the edition of the product that is running.
#pragma once

#include "omi_Singleton.h"
#include "os_Export.h"

#include <atomic>

/// The editions that behave differently.
enum class utl_Product {
  Other,  ///< any edition without a window of its own, also a plain tool
  Studio, ///< the interactive pre- and post-processing edition
  Lens,   ///< the display-only edition
};

/// Says which edition this process is; reached as `omi_Singleton<utl_Version>::Instance()`. All calls may run
/// at the same time.
class DDR_API utl_Version {
public:
  utl_Version() = default;
  utl_Version(utl_Version const&) = delete;
  utl_Version& operator=(utl_Version const&) = delete;

  [[nodiscard]] bool IsProductStudio() const noexcept { return product == utl_Product::Studio; }
  [[nodiscard]] bool IsProductLens() const noexcept { return product == utl_Product::Lens; }

  /// Set by the host at its start; utl_Product::Other until then.
  void SetProduct(utl_Product running) noexcept { product = running; }

private:
  std::atomic<utl_Product> product{utl_Product::Other};
};

template <>
DDR_API utl_Version& omi_Singleton<utl_Version>::Instance();
