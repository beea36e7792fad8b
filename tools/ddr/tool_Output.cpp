#include "tool_Output.h"

#include "nex_Exception.h"
#include "utl_Utf8.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

void tool_print(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
    int const reason = errno;
    nex_Exception::Throw(nex_TextException(fmt::format(
                             "The answer cannot be written to standard output ({}).", std::strerror(reason))),
                         "tools/ddr/tool_Output", __LINE__);
  }
}

void tool_printJson(nlohmann::ordered_json const& value) {
  constexpr int indentation = 2;
  tool_print(value.dump(indentation, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
}

std::string tool_row(std::string_view label, std::string_view value) {
  constexpr int labelWidth = 24;
  return fmt::format("{:<{}}{}\n", label, labelWidth, utl_Printable(value));
}
