// Counted, immutable text: making, dropping and comparing long ones.
#include "cow_String.h"

#include "mem_BlockPool.h"

#include <algorithm>
#include <limits>
#include <new>
#include <ostream>
#include <stdexcept>

cow_String::cow_String(std::string_view text) : cow_String() {
  if (!text.empty()) {
    text = text.substr(0, text.find('\0'));
  }
  if (text.size() <= inlineCapacity) {
    char bytes[sizeof words] = {};
    std::copy(text.begin(), text.end(), bytes);
    bytes[inlineCapacity] = static_cast<char>(inlineCapacity - text.size());
    std::memcpy(words, bytes, sizeof words);
    return;
  }
  if (text.size() > std::numeric_limits<std::uint32_t>::max()) {
    throw std::length_error("cow_String: text too long");
  }
  void* const memory = mem_poolAllocate(sizeof(Buffer) + text.size() + 1);
  auto* const buffer = ::new (memory) Buffer{1, static_cast<unsigned>(text.size())};
  std::memcpy(buffer->Text(), text.data(), text.size());
  buffer->Text()[text.size()] = '\0';
  words[0] = std::bit_cast<std::uint64_t>(buffer);
  words[1] = sharedTag | buffer->length;
}

void cow_String::Release() noexcept {
  Buffer* const buffer = GetBuffer();
  if (--buffer->count == 0) {
    mem_poolFree(buffer, sizeof(Buffer) + std::size_t{buffer->length} + 1);
  }
}

int cow_String::CompareShared(cow_String const& left, cow_String const& right) noexcept {
  std::size_t const leftLength = left.Length();
  std::size_t const rightLength = right.Length();
  int const order = std::memcmp(left.Text(), right.Text(), std::min(leftLength, rightLength));
  if (order != 0) {
    return order < 0 ? -1 : 1;
  }
  return leftLength < rightLength ? -1 : static_cast<int>(leftLength > rightLength);
}

bool cow_String::EqualShared(cow_String const& left, cow_String const& right) noexcept {
  if (left.words[1] != right.words[1]) {
    return false;
  }
  return left.words[0] == right.words[0] || std::memcmp(left.Text(), right.Text(), left.Length()) == 0;
}

std::ostream& operator<<(std::ostream& stream, cow_String const& text) {
  return stream << text.View();
}
