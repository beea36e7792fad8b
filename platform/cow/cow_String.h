// Counted, immutable text: names, keys, descriptions.
#pragma once

#include "os_Export.h"

#include <bit>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>

/// A text that is cheap to copy and fast to compare.
///
/// Up to 15 bytes are held in the object itself; a longer text lies in one buffer that all copies share. The
/// text ends at its first zero byte: the constructors stop there, so a text never contains one. Any other
/// bytes are allowed; the order is that of the bytes as unsigned numbers. Use std::string while a text is
/// being built, and this to keep it. Copies of a long text share a plain count and so belong to one thread.
class DDR_API cow_String {
public:
  /// The empty text. Holds no buffer.
  constexpr cow_String() noexcept : words{0, emptyTag} {}
  /// \param text a text that ends with a zero byte, or null for the empty text.
  /// \throws std::bad_alloc; std::length_error when it is longer than 2^32 - 1 bytes.
  cow_String(char const* text) : cow_String(text ? std::string_view(text) : std::string_view()) {}
  /// \param text the bytes; only those before the first zero byte count.
  /// \throws std::bad_alloc; std::length_error when it is longer than 2^32 - 1 bytes.
  cow_String(std::string_view text);
  /// \param text the bytes; only those before the first zero byte count.
  /// \throws std::bad_alloc; std::length_error when it is longer than 2^32 - 1 bytes.
  cow_String(std::string const& text) : cow_String(std::string_view(text)) {}
  /// \param text the bytes; only those before the first zero byte count. May be null when \p length is 0.
  /// \param length [byte].
  /// \throws std::bad_alloc; std::length_error when it is longer than 2^32 - 1 bytes.
  cow_String(char const* text, std::size_t length) : cow_String(std::string_view(text, length)) {}
  /// Shares the text.
  cow_String(cow_String const& other) noexcept : words{other.words[0], other.words[1]} {
    if (!IsInline()) {
      ++GetBuffer()->count;
    }
  }
  /// Takes the text and leaves \p other empty.
  cow_String(cow_String&& other) noexcept : words{other.words[0], other.words[1]} { other.SetEmpty(); }
  /// Shares the text; assigning a text to itself changes nothing.
  cow_String& operator=(cow_String const& other) noexcept {
    cow_String copy(other);
    Swap(copy);
    return *this;
  }
  /// Takes the text; \p other is empty afterwards unless it is this object.
  cow_String& operator=(cow_String&& other) noexcept {
    cow_String taken(std::move(other));
    Swap(taken);
    return *this;
  }
  ~cow_String() {
    if (!IsInline()) {
      Release();
    }
  }

  /// The text with a zero byte at its end; "" when empty. Valid while this object lives unchanged.
  char const* Text() const noexcept {
    return IsInline() ? reinterpret_cast<char const*>(words) : GetBuffer()->Text();
  }
  /// The length without the zero byte [byte].
  unsigned Length() const noexcept {
    return IsInline() ? inlineCapacity - static_cast<unsigned>(words[1] >> tagShift)
                      : static_cast<unsigned>(words[1] & 0xffffffffU);
  }
  /// Whether the text has no bytes.
  bool IsEmpty() const noexcept { return words[1] == emptyTag; }
  /// The text as a view. Valid while this object lives unchanged.
  std::string_view View() const noexcept { return {Text(), Length()}; }

  /// Compares by bytes as unsigned numbers; a beginning of a text comes before the text. \return -1, 0 or 1.
  static int Compare(cow_String const& left, cow_String const& right) noexcept {
    if (((left.words[1] | right.words[1]) & sharedTag) == 0) {
      std::uint64_t const leftFirst = __builtin_bswap64(left.words[0]);
      std::uint64_t const rightFirst = __builtin_bswap64(right.words[0]);
      if (leftFirst != rightFirst) {
        return leftFirst < rightFirst ? -1 : 1;
      }
      std::uint64_t const leftSecond = __builtin_bswap64(left.words[1]);
      std::uint64_t const rightSecond = __builtin_bswap64(right.words[1]);
      return leftSecond < rightSecond ? -1 : static_cast<int>(leftSecond > rightSecond);
    }
    return CompareShared(left, right);
  }

  /// Whether both texts have the same bytes.
  friend bool operator==(cow_String const& left, cow_String const& right) noexcept {
    if (((left.words[1] | right.words[1]) & sharedTag) == 0) {
      return ((left.words[0] ^ right.words[0]) | (left.words[1] ^ right.words[1])) == 0;
    }
    return EqualShared(left, right);
  }
  /// The order of Compare().
  friend std::strong_ordering operator<=>(cow_String const& left, cow_String const& right) noexcept {
    return Compare(left, right) <=> 0;
  }

  /// Exchanges two texts.
  void Swap(cow_String& other) noexcept {
    std::swap(words[0], other.words[0]);
    std::swap(words[1], other.words[1]);
  }

  /// The number of texts that share the buffer, 0 when the text is held in the object. For tests.
  unsigned ShareCount() const noexcept { return IsInline() ? 0 : GetBuffer()->count; }

private:
  // Either the bytes, filled up with zeros, and 15 - length as the last byte, which doubles as the end of a
  // text of 15 bytes; or the address of the buffer, the length in the lower half of the second word and 0x80
  // as the last byte. Filling with zeros makes two short texts compare like two pairs of big-endian words.
  struct Buffer {
    unsigned count;
    unsigned length;
    char const* Text() const noexcept { return reinterpret_cast<char const*>(this + 1); }
    char* Text() noexcept { return reinterpret_cast<char*>(this + 1); }
  };

  static constexpr unsigned tagShift = 56;
  static constexpr unsigned inlineCapacity = 15;
  static constexpr std::uint64_t emptyTag = std::uint64_t{inlineCapacity} << tagShift;
  static constexpr std::uint64_t sharedTag = std::uint64_t{0x80} << tagShift;

  bool IsInline() const noexcept { return (words[1] & sharedTag) == 0; }
  Buffer* GetBuffer() const noexcept { return std::bit_cast<Buffer*>(words[0]); }
  void SetEmpty() noexcept {
    words[0] = 0;
    words[1] = emptyTag;
  }
  void Release() noexcept;
  static int CompareShared(cow_String const& left, cow_String const& right) noexcept;
  static bool EqualShared(cow_String const& left, cow_String const& right) noexcept;

  std::uint64_t words[2];
};

/// Writes the bytes of \p text.
DDR_API std::ostream& operator<<(std::ostream& stream, cow_String const& text);

/// Hash of the bytes, for the standard containers.
template <>
struct std::hash<cow_String> {
  std::size_t operator()(cow_String const& text) const noexcept {
    return std::hash<std::string_view>()(text.View());
  }
};

static_assert(sizeof(cow_String) == 16 && alignof(cow_String) == 8);
static_assert(sizeof(void*) == 8 && std::endian::native == std::endian::little);
