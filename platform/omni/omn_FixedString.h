// omn_FixedString.h: a text that is part of the program.
#pragma once

#include <string_view>

/// A fixed text: refers to a literal, never allocates, is copied like a pointer. For texts made at run time
/// use a string.
class omn_FixedString {
public:
  /// @param text a literal, or anything that outlives this object and its copies; must not be null
  constexpr explicit omn_FixedString(char const* text) noexcept : literal(text) {}

  [[nodiscard]] constexpr char const* Text() const noexcept { return literal; }
  /// [byte]
  [[nodiscard]] constexpr unsigned Length() const noexcept {
    return static_cast<unsigned>(std::string_view(literal).size());
  }

  /// Compares the texts, not where they lie.
  friend constexpr bool operator==(omn_FixedString left, omn_FixedString right) noexcept {
    return std::string_view(left.literal) == std::string_view(right.literal);
  }

private:
  char const* literal;
};

static_assert(sizeof(omn_FixedString) == sizeof(char const*));
