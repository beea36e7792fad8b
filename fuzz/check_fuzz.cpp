// A file that holds anything is checked, by its length quickly or deeply; the answer is findings that name
// it. See damagedFile for the input.
#include "small_file.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static small_file file;
  file.write(fuzz_script(data, size).Bytes(size));
  requireNoFaults(size % 4 == 3 ? file.probe.check_quickly(file.path) : file.probe.check(file.path));
  fuzz_require(file.isUnchanged(), "a check leaves a file as it is");
  return 0;
}
