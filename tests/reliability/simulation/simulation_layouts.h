// simulation_layouts: files of older releases, and what they are after an upgrade.
#pragma once

#include "simulation_model.h"

#include <string>
#include <vector>

struct simulation_layout {
  std::string name;
  std::string bytes;    // of the old file
  plain_file converted; // what a conversion makes of it
};

/// Every old layout. Converts them when first asked, which must be before any simulation begins.
std::vector<simulation_layout> const& simulation_layouts();

/// The classes of the module, of notes, and those that only the old files have.
std::unique_ptr<cls_ClassRegistrar> simulation_registrar();
