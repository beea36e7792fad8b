// rgx_GapPattern: regular expressions that are nothing but fixed texts with lazy gaps between them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// An expression of the form `text(.*?)text(.*?)$`: fixed texts, a lazy group behind each, the end last.
///
/// Such an expression finds what a general engine finds, a good deal faster: no part of it crosses a line
/// break, so a match lies in the last line, and taking each text where it occurs first leaves the most room
/// for those that follow.
class rgx_GapPattern {
public:
  /// Reads an expression.
  /// @returns nothing when it has another form
  static std::optional<rgx_GapPattern> Read(std::string_view expression);

  /// Searches a text, in time proportional to its length.
  /// @returns the whole match and what each group took; empty when nothing matches. Views of `text`.
  [[nodiscard]] std::vector<std::string_view> Match(std::string_view text) const;

private:
  rgx_GapPattern() = default;

  std::vector<std::string> fixed; // never empty, nor is any of them
};
