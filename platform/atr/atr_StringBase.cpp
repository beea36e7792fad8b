// atr_StringBase.cpp: a text that is searched and edited in place.
#include "atr_StringBase.h"

#include <algorithm>
#include <utility>

atr_StringBase::atr_StringBase(std::string text) : contents(std::move(text)) {}

int atr_StringBase::Find(std::string_view text, int from) const noexcept {
  if (text.empty()) {
    return Length();
  }
  std::size_t const position = contents.find(text, static_cast<std::size_t>(std::max(from, 0)));
  return position == std::string::npos ? Length() : static_cast<int>(position);
}

atr_StringBase& atr_StringBase::Erase(int position, int count) {
  long long const begin = std::clamp<long long>(position, 0, Length());
  long long const end = std::clamp<long long>(static_cast<long long>(position) + count, begin, Length());
  contents.erase(static_cast<std::size_t>(begin), static_cast<std::size_t>(end - begin));
  return *this;
}

atr_StringBase& atr_StringBase::append(std::string_view text) {
  contents.append(text);
  return *this;
}

int atr_StringBase::Substitute(std::string_view what, std::string_view with) {
  if (what.empty()) {
    return 0;
  }
  std::string result;
  int replaced = 0;
  std::size_t begin = 0;
  for (std::size_t found = contents.find(what); found != std::string::npos;
       found = contents.find(what, begin)) {
    result.append(contents, begin, found - begin).append(with);
    begin = found + what.size();
    ++replaced;
  }
  if (replaced != 0) {
    result.append(contents, begin);
    contents = std::move(result);
  }
  return replaced;
}
