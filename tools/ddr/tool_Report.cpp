#include "tool_Report.h"

#include "utl_Utf8.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <new>
#include <string>

void tool_printFailure(std::string_view text) {
  std::string line(text);
  std::replace(line.begin(), line.end(), '\n', ' ');
  line = "ddr: " + utl_Printable(line) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

int tool_report(tool_Command const& command) noexcept {
  try {
    return command();
  } catch (std::bad_alloc const&) {
    std::fputs("ddr: There is not enough memory. Free some memory, then try again.\n", stderr);
  } catch (std::exception const& failure) {
    tool_printFailure(failure.what());
  }
  return tool_StatusFailure;
}
