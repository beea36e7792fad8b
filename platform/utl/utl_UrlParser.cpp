// utl_UrlParser.cpp: tells a network address from a file name.
#include "utl_UrlParser.h"

#include "cow_String.h"

#include <algorithm>
#include <string_view>

namespace {

constexpr std::size_t shortestScheme = 2;

bool isLetter(char character) noexcept {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

bool isSchemeCharacter(char character) noexcept {
  return isLetter(character) || (character >= '0' && character <= '9') || character == '+' ||
         character == '-' || character == '.';
}

} // namespace

bool utl_UrlParser::IsUrl(cow_String const& text) noexcept {
  std::string_view const view = text.View();
  std::size_t const end = view.find("://");
  if (end == std::string_view::npos || end < shortestScheme) {
    return false;
  }
  std::string_view const scheme = view.substr(0, end);
  return isLetter(scheme.front()) && std::ranges::all_of(scheme, isSchemeCharacter);
}
