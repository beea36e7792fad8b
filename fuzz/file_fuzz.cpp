// A file that holds anything is opened, listed, checked and saved to; the answer is a message that names it.
//
// An input that begins like an SQLite file is the file. Any other changes bytes of a small sound database,
// four bytes of input for each: its place, lowest byte first, and its value.
#include "file_probe.h"
#include "fuzz_script.h"

#include "temporary_folder.h"

namespace {

constexpr std::string_view fileMagic = "SQLite format 3";
constexpr int pageSize = 512;

struct Place {
  Place() {
    make_small_database(path, pageSize);
    sound = readFile(path);
  }
  temporary_folder folder;
  std::string path = folder.path("file");
  std::string sound;
  file_probe probe;
};

std::string fileOf(std::string_view input, std::string const& sound) {
  if (input.starts_with(fileMagic)) {
    return std::string(input);
  }
  std::string bytes = sound;
  while (input.size() >= 4) {
    auto const byte = [&](std::size_t index) {
      return static_cast<std::size_t>(static_cast<unsigned char>(input[index]));
    };
    bytes[(byte(0) | byte(1) << 8U | byte(2) << 16U) % bytes.size()] = input[3];
    input.remove_prefix(4);
  }
  return bytes;
}

void requireNoFaults(probe_result const& found) {
  for (std::string const& fault : found.faults) {
    fuzz_require(false, fault);
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static Place place;
  std::string const bytes =
      fileOf(std::string_view(reinterpret_cast<char const*>(data), data == nullptr ? 0 : size), place.sound);
  writeFile(place.path, bytes);
  requireNoFaults(place.probe.look(place.path));
  fuzz_require(readFile(place.path) == bytes, "looking at a file leaves it as it is");
  return 0;
}
