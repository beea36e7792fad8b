// dbc_OldClassRegistrar: the older layouts of all modules.
#pragma once

#include "cow_CountedHld.h"
#include "dbc_OldClassVersion.h"
#include "omi_Singleton.h"
#include "os_Export.h"

#include <memory>
#include <vector>

/// The older layouts of all modules, in the order of their registration. Dropped when the library stops.
/// Registered while modules start, from one thread at a time; read by any thread afterwards.
class DDR_API dbc_OldClassRegistrar {
public:
  using Holder = cow_CountedHld<dbc_OldClassVersion>;

  struct Registered {
    std::unique_ptr<Holder> holder;
    unsigned tag;
  };

  /// Keeps a layout; one of the same class that was registered before makes room for it.
  /// @param version adopts the holder
  /// @param tag the module's own constant, kept with the holder
  void Register(Holder* version, unsigned tag);
  std::vector<Registered> const& Versions() const noexcept { return versions; }
  void Clear() noexcept { versions.clear(); }

private:
  static bool SameLayout(Registered const& one, Registered const& other);

  std::vector<Registered> versions;
};

template <>
DDR_API dbc_OldClassRegistrar& omi_Singleton<dbc_OldClassRegistrar>::Instance();
