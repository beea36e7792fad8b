// tool_print: what a command answers, on standard output.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

/// Writes a text on standard output.
/// @param text complete lines
/// @throws nex_TextException when standard output does not take all of it
void tool_print(std::string_view text);

/// Writes a value on standard output, indented and with a line break at its end. Texts are exact; a byte that
/// is not UTF-8 becomes U+FFFD, for JSON has no word for it.
/// @param value the answer, its fields in the order in which they are printed
/// @throws nex_TextException when standard output does not take all of it
void tool_printJson(nlohmann::ordered_json const& value);

/// One line of a table of two columns.
/// @param label what the value is
/// @param value any bytes; what a terminal could misread is escaped
std::string tool_row(std::string_view label, std::string_view value);
