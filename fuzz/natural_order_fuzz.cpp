// Natural order is a strict total order: three texts at a time.
#include "fuzz_script.h"

#include "atr_String.h"

#include <array>
#include <string>

namespace {

using Texts = std::array<std::string, 3>;

std::string printed(Texts const& texts) {
  std::string shown;
  for (std::string const& text : texts) {
    for (char const letter : text) {
      std::array<char, 5> part{};
      std::snprintf(part.data(), part.size(), "\\x%02x",
                    static_cast<unsigned>(static_cast<unsigned char>(letter)));
      shown += part.data();
    }
    shown += "\n";
  }
  return shown;
}

void require(bool holds, char const* claim, Texts const& texts) {
  if (!holds) {
    fuzz_fail(std::string(claim) + ":\n" + printed(texts));
  }
}

bool isPlain(std::string const& text) {
  return text.find('\0') == std::string::npos;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  fuzz_script script(data, size);
  // The texts share a beginning, which is what names do.
  std::string_view const common = script.Bytes(script.Below(24));
  Texts texts;
  for (std::string& text : texts) {
    text.append(common).append(script.Bytes(script.Below(40)));
  }
  std::array<std::array<int, 3>, 3> order{};
  for (std::size_t left = 0; left < texts.size(); ++left) {
    for (std::size_t right = 0; right < texts.size(); ++right) {
      int const found = strnatcmp(std::string_view(texts[left]), std::string_view(texts[right]));
      order[left][right] = found;
      require(found >= -1 && found <= 1, "texts compare as -1, 0 or 1", texts);
      require((found == 0) == (texts[left] == texts[right]), "texts are equal only where they are the same",
              texts);
      require(!isPlain(texts[left]) || !isPlain(texts[right]) ||
                  strnatcmp(texts[left].c_str(), texts[right].c_str()) == found,
              "texts compare alike with and without their lengths", texts);
    }
  }
  for (std::size_t left = 0; left < texts.size(); ++left) {
    for (std::size_t right = 0; right < texts.size(); ++right) {
      require(order[right][left] == -order[left][right], "texts compare the other way round when exchanged",
              texts);
      for (std::size_t last = 0; last < texts.size(); ++last) {
        require(order[left][right] >= 0 || order[right][last] >= 0 || order[left][last] < 0,
                "of three texts the last is greater than the first where each is greater than the one before",
                texts);
      }
    }
  }
  return 0;
}
