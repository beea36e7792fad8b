// utl_Utf8.h: checks texts from outside and makes them fit to print.
#pragma once

#include "os_Export.h"

#include <string>
#include <string_view>

/// Whether the bytes are well-formed UTF-8: no overlong form, no surrogate, nothing above U+10FFFF.
DDR_API bool utl_IsUtf8(std::string_view text) noexcept;

/// The text for a message on one line: line feed, carriage return and tabulator as \n, \r and \t; other
/// control characters and bytes that are not UTF-8 as \x and two hexadecimal digits each; characters that
/// break lines or turn the direction of writing as \u and four. All else, also a backslash, as it is.
DDR_API std::string utl_Printable(std::string_view text);

/// The same of the beginning of a text that may have any length: "..." stands for what is behind about 200
/// bytes. For names in messages, which a file chose.
DDR_API std::string utl_PrintableStart(std::string_view text);
