// damaged_file: how the bytes of an input make a database file.
#pragma once

#include "file_probe.h"
#include "fuzz_script.h"

#include <string>
#include <string_view>

/// The bytes of a file. An input that begins like an SQLite file is the file. Any other changes bytes of a
/// sound one, four bytes of input for each: its place, lowest byte first, and its value.
inline std::string damagedFile(std::string_view input, std::string const& sound) {
  if (input.starts_with("SQLite format 3")) {
    return std::string(input);
  }
  std::string bytes = sound;
  for (; input.size() >= 4; input.remove_prefix(4)) {
    auto const byte = [&](std::size_t index) {
      return static_cast<std::size_t>(static_cast<unsigned char>(input[index]));
    };
    bytes[(byte(0) | byte(1) << 8U | byte(2) << 16U) % bytes.size()] = input[3];
  }
  return bytes;
}

/// Stops the program where the probe met what must not be.
inline void requireNoFaults(probe_result const& found) {
  for (std::string const& fault : found.faults) {
    fuzz_require(false, fault);
  }
}
