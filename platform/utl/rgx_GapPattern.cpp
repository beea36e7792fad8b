// rgx_GapPattern.cpp: regular expressions that are nothing but fixed texts with lazy gaps between them.
#include "rgx_GapPattern.h"

#include <utility>

namespace {

constexpr std::string_view gap = "(.*?)";
constexpr std::string_view operators = "\\^$.|?*+()[]{}";

bool isPunctuation(char character) {
  return (character >= '!' && character <= '/') || (character >= ':' && character <= '@') ||
         (character >= '[' && character <= '`') || (character >= '{' && character <= '~');
}

/// Takes the fixed text that `expression` begins with off its front; "" when it begins with something else.
std::string takeFixed(std::string_view& expression) {
  std::string taken;
  while (!expression.empty()) {
    char character = expression.front();
    std::size_t length = 1;
    if (character == '\\' && expression.size() > 1 && isPunctuation(expression[1])) {
      character = expression[1];
      length = 2;
    } else if (operators.find(character) != std::string_view::npos || character < ' ' || character > '~') {
      break;
    }
    taken += character;
    expression.remove_prefix(length);
  }
  return taken;
}

} // namespace

std::optional<rgx_GapPattern> rgx_GapPattern::Read(std::string_view expression) {
  rgx_GapPattern pattern;
  while (expression != "$") {
    std::string text = takeFixed(expression);
    if (text.empty() || !expression.starts_with(gap)) {
      return std::nullopt;
    }
    expression.remove_prefix(gap.size());
    pattern.fixed.push_back(std::move(text));
  }
  return pattern.fixed.empty() ? std::nullopt : std::optional(std::move(pattern));
}

std::vector<std::string_view> rgx_GapPattern::Match(std::string_view text) const {
  std::string_view const line = text.substr(text.rfind('\n') + 1); // npos + 1 is the beginning
  std::size_t position = line.find(fixed.front());
  if (position == std::string_view::npos) {
    return {};
  }
  std::vector<std::string_view> groups = {line.substr(position)};
  position += fixed.front().size();
  for (std::size_t next = 1; next < fixed.size(); ++next) {
    std::size_t const found = line.find(fixed[next], position);
    if (found == std::string_view::npos) {
      return {};
    }
    groups.push_back(line.substr(position, found - position));
    position = found + fixed[next].size();
  }
  groups.push_back(line.substr(position));
  return groups;
}
