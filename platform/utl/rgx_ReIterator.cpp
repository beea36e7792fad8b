// rgx_ReIterator.cpp: searches a text with a regular expression.
#include "rgx_ReIterator.h"

#include "rgx_GapPattern.h"
#include "utl_Utf8.h"

#include <re2/re2.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

cow_String rgx_ReIterator::NthString(int group) const {
  if (group < 0 || static_cast<std::size_t>(group) >= groups.size()) {
    return {};
  }
  return cow_String(std::string_view(groups[static_cast<std::size_t>(group)]));
}

namespace {

/// The expression compiled last by this thread: most callers use one pattern over and over.
struct Compiled {
  std::string pattern;
  std::optional<rgx_GapPattern> gaps; // where the expression is as simple as that
  bool isUtf8 = false;
  std::unique_ptr<RE2 const> expression; // null until it is needed
};

Compiled& compiled(std::string_view pattern) {
  thread_local Compiled last;
  if (last.pattern != pattern) {
    Compiled made;
    made.pattern = pattern;
    made.gaps = rgx_GapPattern::Read(pattern);
    last = std::move(made);
  }
  return last;
}

RE2 const& expressionOf(Compiled& last, bool isUtf8) {
  if (last.expression == nullptr || last.isUtf8 != isUtf8) {
    RE2::Options options;
    options.set_log_errors(false);
    options.set_dot_nl(false);
    if (!isUtf8) {
      options.set_encoding(RE2::Options::EncodingLatin1);
    }
    auto expression =
        std::make_unique<RE2>(re2::StringPiece(last.pattern.data(), last.pattern.size()), options);
    if (!expression->ok()) {
      throw std::invalid_argument("rgx_match: " + expression->error() + ": " + last.pattern);
    }
    last.isUtf8 = isUtf8;
    last.expression = std::move(expression);
  }
  return *last.expression;
}

/// The whole match first; empty when nothing matches.
std::vector<std::string_view> search(RE2 const& expression, std::string_view text) {
  re2::StringPiece const subject(text.data(), text.size());
  std::vector<re2::StringPiece> taken(static_cast<std::size_t>(expression.NumberOfCapturingGroups()) + 1);
  if (!expression.Match(subject, 0, subject.size(), RE2::UNANCHORED, taken.data(),
                        static_cast<int>(taken.size()))) {
    return {};
  }
  std::vector<std::string_view> groups;
  for (re2::StringPiece const& group : taken) {
    groups.emplace_back(group.data() == nullptr ? "" : group.data(), group.size());
  }
  return groups;
}

} // namespace

rgx_ReIterator rgx_match(std::string_view pattern, std::string_view text) {
  Compiled& last = compiled(pattern);
  std::vector<std::string_view> const groups =
      last.gaps ? last.gaps->Match(text)
                : search(expressionOf(last, utl_IsUtf8(pattern) && utl_IsUtf8(text)), text);
  rgx_ReIterator result;
  result.matched = !groups.empty();
  result.groups.assign(groups.begin(), groups.end());
  return result;
}
