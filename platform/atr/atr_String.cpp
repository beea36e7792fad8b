// atr_String.cpp: natural order of texts, translation and formats.
#include "atr_String.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

constinit std::atomic<int> atr_naturalOrderSetting{0};

namespace {

constinit std::atomic<atr_TranslateHook> translateHook{nullptr};

bool isDigit(char character) noexcept {
  return character >= '0' && character <= '9';
}

int sign(int difference) noexcept {
  return (difference > 0) - (difference < 0);
}

int compareBytes(std::string_view left, std::string_view right) noexcept {
  return sign(left.compare(right)); // bytes as unsigned numbers, a beginning before the longer text
}

std::size_t commonLength(std::string_view left, std::string_view right, std::size_t from) noexcept {
  std::size_t const shorter = std::min(left.size(), right.size());
  std::size_t position = from;
  while (position + sizeof(std::uint64_t) <= shorter) {
    std::uint64_t leftWord = 0;
    std::uint64_t rightWord = 0;
    std::memcpy(&leftWord, left.data() + position, sizeof leftWord);
    std::memcpy(&rightWord, right.data() + position, sizeof rightWord);
    if (leftWord != rightWord) {
      if constexpr (std::endian::native == std::endian::little) {
        return position + static_cast<std::size_t>(std::countr_zero(leftWord ^ rightWord)) / 8;
      }
      break;
    }
    position += sizeof leftWord;
  }
  while (position < shorter && left[position] == right[position]) {
    ++position;
  }
  return position;
}

std::size_t skipDigits(std::string_view text, std::size_t position) noexcept {
  while (position < text.size() && isDigit(text[position])) {
    ++position;
  }
  return position;
}

std::size_t skipZeros(std::string_view text, std::size_t position) noexcept {
  while (position < text.size() && text[position] == '0') {
    ++position;
  }
  return position;
}

// Compares the digit runs that begin at the two positions by value and moves the positions behind them.
int compareRuns(std::string_view left, std::size_t& leftPosition, std::string_view right,
                std::size_t& rightPosition) noexcept {
  std::size_t const leftBegin = skipZeros(left, leftPosition);
  std::size_t const rightBegin = skipZeros(right, rightPosition);
  leftPosition = skipDigits(left, leftBegin);
  rightPosition = skipDigits(right, rightBegin);
  std::size_t const leftLength = leftPosition - leftBegin;
  std::size_t const rightLength = rightPosition - rightBegin;
  if (leftLength != rightLength) {
    return leftLength < rightLength ? -1 : 1;
  }
  return sign(std::memcmp(left.data() + leftBegin, right.data() + rightBegin, leftLength));
}

} // namespace

void atr_setNaturalOrder(int naturalOrder) noexcept {
  atr_naturalOrderSetting.store(naturalOrder, std::memory_order_relaxed);
}

int strnatcmp(char const* left, char const* right) noexcept {
  return strnatcmp(std::string_view(left), std::string_view(right));
}

int strnatcmp(std::string_view left, std::string_view right) noexcept {
  std::size_t leftPosition = commonLength(left, right, 0);
  if (leftPosition == left.size() && leftPosition == right.size()) {
    return 0;
  }
  // The first difference may lie inside a number: then the number counts from its first digit.
  while (leftPosition > 0 && isDigit(left[leftPosition - 1])) {
    --leftPosition;
  }
  std::size_t rightPosition = leftPosition;
  while (leftPosition < left.size() && rightPosition < right.size()) {
    char const leftCharacter = left[leftPosition];
    char const rightCharacter = right[rightPosition];
    if (isDigit(leftCharacter) && isDigit(rightCharacter)) {
      if (int const order = compareRuns(left, leftPosition, right, rightPosition)) {
        return order;
      }
      continue;
    }
    if (leftCharacter != rightCharacter) {
      return static_cast<unsigned char>(leftCharacter) < static_cast<unsigned char>(rightCharacter) ? -1 : 1;
    }
    ++leftPosition;
    ++rightPosition;
  }
  if (leftPosition < left.size()) {
    return 1;
  }
  if (rightPosition < right.size()) {
    return -1;
  }
  return compareBytes(left, right);
}

std::string atr_translate(std::string_view text) {
  atr_TranslateHook const hook = translateHook.load(std::memory_order_acquire);
  return hook == nullptr ? std::string(text) : hook(text);
}

void atr_setTranslate(atr_TranslateHook hook) noexcept {
  translateHook.store(hook, std::memory_order_release);
}

std::string atr_SubstituteFormat(std::string_view format, std::initializer_list<std::string_view> values) {
  std::string result;
  auto const* value = values.begin();
  for (std::size_t position = 0; position < format.size(); ++position) {
    char const next = position + 1 < format.size() ? format[position + 1] : '\0';
    if (format[position] != '%' || (next != 's' && next != '%')) {
      result.push_back(format[position]);
      continue;
    }
    ++position;
    if (next == '%') {
      result.push_back('%');
    } else if (value != values.end()) {
      result.append(*value++);
    }
  }
  return result;
}
