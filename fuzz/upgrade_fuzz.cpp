// A file of any release that holds anything is upgraded; the answer is a message that names it, or a new
// file that opens. The first byte of the input chooses the release; see damagedFile for the others.
#include "damaged_file.h"
#include "layout_files.h"
#include "quick_sqlite.h"
#include "temporary_folder.h"

#include <vector>

namespace {

constexpr int pageSize = 512;

struct Place {
  Place() {
    use_quick_sqlite();
    for (std::string const& name : layout_names()) {
      make_layout_file(path, name, "", pageSize);
      sound.push_back(readFile(path));
    }
    make_small_database(path, pageSize); // of this release, which is left as it is
    sound.push_back(readFile(path));
  }
  temporary_folder folder;
  std::string path = folder.path("file");
  std::vector<std::string> sound;
  file_probe probe{false};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static Place place;
  fuzz_script input(data, size);
  std::string const& sound = place.sound[input.Below(static_cast<unsigned>(place.sound.size()))];
  writeFile(place.path, damagedFile(input.Bytes(size), sound));
  requireNoFaults(place.probe.upgrade(place.path));
  return 0;
}
