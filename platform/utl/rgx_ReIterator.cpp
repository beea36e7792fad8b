// rgx_ReIterator.cpp: searches a text with a regular expression.
#include "rgx_ReIterator.h"

#include "utl_Utf8.h"

#include <re2/re2.h>

#include <memory>
#include <stdexcept>

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
  bool isUtf8 = false;
  std::unique_ptr<RE2 const> expression;
};

RE2 const& compiled(std::string_view pattern, bool isUtf8) {
  thread_local Compiled last;
  if (last.expression == nullptr || last.isUtf8 != isUtf8 || last.pattern != pattern) {
    RE2::Options options;
    options.set_log_errors(false);
    options.set_dot_nl(false);
    if (!isUtf8) {
      options.set_encoding(RE2::Options::EncodingLatin1);
    }
    auto expression = std::make_unique<RE2>(re2::StringPiece(pattern.data(), pattern.size()), options);
    if (!expression->ok()) {
      throw std::invalid_argument("rgx_match: " + expression->error() + ": " + std::string(pattern));
    }
    last.pattern = pattern;
    last.isUtf8 = isUtf8;
    last.expression = std::move(expression);
  }
  return *last.expression;
}

} // namespace

rgx_ReIterator rgx_match(std::string_view pattern, std::string_view text) {
  RE2 const& expression = compiled(pattern, utl_IsUtf8(pattern) && utl_IsUtf8(text));
  re2::StringPiece const subject(text.data(), text.size());
  std::vector<re2::StringPiece> taken(static_cast<std::size_t>(expression.NumberOfCapturingGroups()) + 1);
  rgx_ReIterator result;
  result.matched = expression.Match(subject, 0, subject.size(), RE2::UNANCHORED, taken.data(),
                                    static_cast<int>(taken.size()));
  if (result.matched) {
    for (re2::StringPiece const& group : taken) {
      result.groups.emplace_back(group.data() == nullptr ? std::string() : group.as_string());
    }
  }
  return result;
}
