// rgx_ReIterator.h: searches a text with a regular expression.
#pragma once

#include "cow_String.h"
#include "os_Export.h"

#include <string>
#include <string_view>
#include <vector>

/// The result of one search; a value with texts of its own, made by rgx_match.
class DDR_API rgx_ReIterator {
public:
  /// Whether the expression matched somewhere in the text.
  [[nodiscard]] bool Matched() const noexcept { return matched; }

  /// What a group of the expression took.
  /// @param group [group from 1]; 0 is the whole match
  /// @returns "" when nothing matched, the group took no part or the expression has no such group
  [[nodiscard]] cow_String NthString(int group) const;

private:
  friend DDR_API rgx_ReIterator rgx_match(std::string_view pattern, std::string_view text);

  rgx_ReIterator() = default;

  bool matched = false;
  std::vector<std::string> groups; // the whole match first
};

/// Searches the text for the first place where the expression matches. Lazy quantifiers, numbered groups and
/// anchors have their usual meaning, '.' takes all but a line break, '$' is the end of the text. Both are
/// read as UTF-8 when both are, as single bytes otherwise. Takes time in proportion to the length of the
/// text.
/// @throws std::invalid_argument when the pattern is no regular expression
DDR_API rgx_ReIterator rgx_match(std::string_view pattern, std::string_view text);
