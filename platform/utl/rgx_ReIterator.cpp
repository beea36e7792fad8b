// rgx_ReIterator.cpp: searches a text with a regular expression.
#include "rgx_ReIterator.h"

#include "utl_Utf8.h"

#include <re2/re2.h>

#include <stdexcept>

cow_String rgx_ReIterator::NthString(int group) const {
  if (group < 0 || static_cast<std::size_t>(group) >= groups.size()) {
    return {};
  }
  return cow_String(std::string_view(groups[static_cast<std::size_t>(group)]));
}

rgx_ReIterator rgx_match(std::string_view pattern, std::string_view text) {
  RE2::Options options;
  options.set_log_errors(false);
  options.set_dot_nl(true);
  if (!utl_IsUtf8(pattern) || !utl_IsUtf8(text)) {
    options.set_encoding(RE2::Options::EncodingLatin1);
  }
  RE2 const expression(re2::StringPiece(pattern.data(), pattern.size()), options);
  if (!expression.ok()) {
    throw std::invalid_argument("rgx_match: " + expression.error() + ": " + std::string(pattern));
  }
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
