// atr_StringBase.h: a text that is searched and edited in place.
#pragma once

#include "os_Export.h"

#include <string>
#include <string_view>

/// A text under construction: search, erase, append, substitute. A value of its own, never shared. Positions
/// count bytes from 0.
class DDR_API atr_StringBase {
public:
  atr_StringBase() = default;
  explicit atr_StringBase(std::string text);

  /// Position of the first occurrence at or after `from`; the length of this text when there is none, so that
  /// `position < Length()` says whether it was found. A negative `from` counts as 0; an empty `text` is found
  /// nowhere.
  [[nodiscard]] int Find(std::string_view text, int from = 0) const noexcept;

  /// [byte]
  [[nodiscard]] int Length() const noexcept { return static_cast<int>(contents.size()); }
  /// Lives until this object next changes.
  [[nodiscard]] std::string const& Text() const noexcept { return contents; }

  /// Takes `count` bytes out, beginning at `position`. What lies outside the text is left out of account, so
  /// a position behind the end or a count below 1 changes nothing.
  atr_StringBase& Erase(int position, int count);

  /// Adds a text at the end.
  // NOLINTNEXTLINE(readability-identifier-naming): the operation's old name
  atr_StringBase& append(std::string_view text);

  /// Replaces every occurrence of `what`, searched from left to right in the text as it was; what was put in
  /// is not searched again. An empty `what` occurs nowhere.
  /// @returns how many were replaced
  int Substitute(std::string_view what, std::string_view with);

private:
  std::string contents;
};
