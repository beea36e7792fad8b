// fuzz_script: the bytes of an input, taken one after the other.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

/// Takes numbers and texts from the bytes that a fuzzer gives.
class fuzz_script {
public:
  fuzz_script(std::uint8_t const* data, std::size_t size)
      : rest(reinterpret_cast<char const*>(data), data == nullptr ? 0 : size) {}

  bool AtEnd() const { return rest.empty(); }
  /// The next byte; 0 at the end.
  unsigned Byte() {
    if (rest.empty()) {
      return 0;
    }
    auto const byte = static_cast<unsigned char>(rest.front());
    rest.remove_prefix(1);
    return byte;
  }
  /// A number below a limit [1 to 256].
  unsigned Below(unsigned limit) { return Byte() % limit; }
  /// The next bytes, as many as there are up to `most`.
  std::string_view Bytes(std::size_t most) {
    std::string_view const taken = rest.substr(0, most);
    rest.remove_prefix(taken.size());
    return taken;
  }

private:
  std::string_view rest;
};

/// Stops the program, so that the input is kept.
[[noreturn]] inline void fuzz_fail(std::string_view claim) {
  std::fprintf(stderr, "not so: %.*s\n", static_cast<int>(claim.size()), claim.data());
  std::abort();
}

/// The same unless a claim holds.
inline void fuzz_require(bool holds, std::string_view claim) {
  if (!holds) {
    fuzz_fail(claim);
  }
}
