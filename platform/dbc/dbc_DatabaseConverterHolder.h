// dbc_DatabaseConverterHolder: the conversion that is in progress.
#pragma once

#include "omi_Singleton.h"
#include "os_Export.h"

#include <atomic>

class dbc_DatabaseConverter;

/// Holds the converter in progress, for conversion functions. One object serves the process, reached through
/// omi_Singleton; one conversion at a time.
class DDR_API dbc_DatabaseConverterHolder {
public:
  /// The converter in progress.
  /// @throws nex_AssertException when there is none
  dbc_DatabaseConverter& GetDatabaseConverter() const;

  /// Takes a converter in; borrowed until Release.
  /// @throws nex_TextException when one is in progress already
  void Hold(dbc_DatabaseConverter& converter);
  void Release() noexcept { held = nullptr; }

private:
  std::atomic<dbc_DatabaseConverter*> held = nullptr;
};

template <>
DDR_API dbc_DatabaseConverterHolder& omi_Singleton<dbc_DatabaseConverterHolder>::Instance();
