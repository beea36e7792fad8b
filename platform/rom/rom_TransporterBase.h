// rom_TransporterBase: what a database record holds of the way to its file.
#pragma once

#include "os_Export.h"

/// The way between objects and one file. Records share it through a counted holder and delete it with the
/// last.
class DDR_API rom_TransporterBase {
public:
  virtual ~rom_TransporterBase();

protected:
  rom_TransporterBase() = default;
  rom_TransporterBase(rom_TransporterBase const&) = delete;
  rom_TransporterBase& operator=(rom_TransporterBase const&) = delete;
};
