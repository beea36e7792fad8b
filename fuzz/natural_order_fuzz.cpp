// Natural order is a strict total order: three texts at a time.
#include "fuzz_script.h"

#include "atr_String.h"

#include <array>

namespace {

std::string printed(std::string_view text) {
  std::string shown;
  for (char const letter : text) {
    char part[5];
    std::snprintf(part, sizeof part, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(letter)));
    shown += part;
  }
  return "'" + shown + "'";
}

void requireOrder(std::string const& left, std::string const& right) {
  int const order = strnatcmp(std::string_view(left), std::string_view(right));
  std::string const texts = printed(left) + " and " + printed(right);
  fuzz_require(order >= -1 && order <= 1, texts + " compare as -1, 0 or 1");
  fuzz_require((order == 0) == (left == right), texts + " are equal only where they are the same");
  fuzz_require(strnatcmp(std::string_view(right), std::string_view(left)) == -order,
               texts + " compare the other way round when exchanged");
  if (left.find('\0') == std::string::npos && right.find('\0') == std::string::npos) {
    fuzz_require(strnatcmp(left.c_str(), right.c_str()) == order,
                 texts + " compare alike with and without their lengths");
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  fuzz_script script(data, size);
  // The texts share a beginning, which is what names do.
  std::string const common(script.Bytes(script.Below(24)));
  std::array<std::string, 3> texts;
  for (std::string& text : texts) {
    text = common + std::string(script.Bytes(script.Below(40)));
  }
  for (std::string const& left : texts) {
    for (std::string const& right : texts) {
      requireOrder(left, right);
      for (std::string const& last : texts) {
        auto const less = [](std::string const& one, std::string const& other) {
          return strnatcmp(std::string_view(one), std::string_view(other)) < 0;
        };
        fuzz_require(!less(left, right) || !less(right, last) || less(left, last),
                     printed(left) + " < " + printed(right) + " < " + printed(last));
      }
    }
  }
  return 0;
}
