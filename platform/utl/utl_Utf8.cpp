// utl_Utf8.cpp: checks texts from outside and makes them fit to print.
#include "utl_Utf8.h"

#include <utf8.h>

#include <cstdint>
#include <cstring>

namespace {

constexpr std::string_view hexadecimal = "0123456789abcdef";

// Where the leading run of ASCII ends, looking at eight bytes at a time.
std::size_t asciiLength(std::string_view text) noexcept {
  constexpr std::uint64_t highBits = 0x8080808080808080U;
  std::size_t position = 0;
  while (position + sizeof(std::uint64_t) <= text.size()) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data() + position, sizeof word);
    if ((word & highBits) != 0) {
      break;
    }
    position += sizeof word;
  }
  while (position < text.size() && static_cast<unsigned char>(text[position]) < 0x80) {
    ++position;
  }
  return position;
}

void appendHexadecimal(std::string& result, std::uint32_t value, int digits) {
  for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
    result.push_back(hexadecimal[(value >> shift) & 0xfU]);
  }
}

void appendByte(std::string& result, char byte) {
  switch (byte) {
  case '\n':
    result.append("\\n");
    return;
  case '\r':
    result.append("\\r");
    return;
  case '\t':
    result.append("\\t");
    return;
  default:
    result.append("\\x");
    appendHexadecimal(result, static_cast<unsigned char>(byte), 2);
  }
}

bool isControl(std::uint32_t character) noexcept {
  return character < 0x20 || character == 0x7f;
}

// Control characters of the second block, line and paragraph separators, marks that turn the direction.
bool isDeceptive(std::uint32_t character) noexcept {
  return (character >= 0x80 && character <= 0x9f) || (character >= 0x200e && character <= 0x200f) ||
         (character >= 0x2028 && character <= 0x202e) || (character >= 0x2066 && character <= 0x2069);
}

// Appends the valid character at the position and moves the position behind it.
void appendCharacter(std::string& result, char const*& position) {
  char const* const begin = position;
  std::uint32_t const character = utf8::unchecked::next(position);
  if (isControl(character)) {
    appendByte(result, *begin);
  } else if (isDeceptive(character)) {
    result.append("\\u");
    appendHexadecimal(result, character, 4);
  } else {
    result.append(begin, position);
  }
}

} // namespace

bool utl_IsUtf8(std::string_view text) noexcept {
  std::string_view const rest = text.substr(asciiLength(text));
  return utf8::find_invalid(rest.begin(), rest.end()) == rest.end();
}

std::string utl_Printable(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  char const* position = text.data();
  char const* const end = position + text.size();
  while (position != end) {
    char const* const invalid = utf8::find_invalid(position, end);
    while (position != invalid) {
      appendCharacter(result, position);
    }
    if (position != end) {
      appendByte(result, *position++);
    }
  }
  return result;
}

std::string utl_PrintableStart(std::string_view text) {
  constexpr std::size_t longest = 200;
  if (text.size() <= longest) {
    return utl_Printable(text);
  }
  std::size_t size = longest;
  for (int bytes = 0; bytes < 3 && (static_cast<unsigned char>(text[size]) & 0xc0U) == 0x80; ++bytes) {
    --size; // not within a character
  }
  return utl_Printable(text.substr(0, size)) + "...";
}
