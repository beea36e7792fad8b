#include "tool_Replacement.h"

#include "nex_Exception.h"
#include "utl_Utf8.h"

#include <filesystem>
#include <fmt/format.h>
#include <system_error>

void tool_refuseToReplace(std::string const& fileName) {
  std::error_code ignored;
  if (std::filesystem::is_regular_file(fileName, ignored)) {
    nex_Exception::Throw(
        nex_TextException(fmt::format("Database file '{}': it exists already. Choose another name, or add "
                                      "--force to replace a database that stands there.",
                                      utl_Printable(fileName))),
        "tools/ddr/tool_Replacement", __LINE__);
  }
}
