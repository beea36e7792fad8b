// utl_UrlParser.h: tells a network address from a file name.
#pragma once

#include "os_Export.h"

class cow_String;

class DDR_API utl_UrlParser {
public:
  utl_UrlParser() = delete;

  /// Whether the text begins with a scheme and "://": a letter, then letters, digits, '+', '-' or '.', two
  /// characters at least, so that a drive letter is no scheme.
  static bool IsUrl(cow_String const& text) noexcept;
};
