// A file that holds anything is opened, listed and its paths are printed; the answer is a message that names
// it. See damagedFile for the input.
#include "small_file.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static small_file file;
  file.write(fuzz_script(data, size).Bytes(size));
  requireNoFaults(file.probe.read(file.path));
  fuzz_require(file.isUnchanged(), "reading a file leaves it as it is");
  return 0;
}
