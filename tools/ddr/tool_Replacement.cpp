#include "tool_Replacement.h"

#include "nex_Exception.h"
#include "utl_Utf8.h"

#include <fmt/format.h>
#include <system_error>
#include <unistd.h>

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

tool_Replacement::tool_Replacement(std::string const& fileName) {
  std::error_code failure;
  standing = std::filesystem::weakly_canonical(fileName, failure);
  if (!std::filesystem::is_regular_file(standing, failure)) {
    return;
  }
  std::filesystem::path const second = standing.string() + ".replaced-" + std::to_string(getpid());
  std::filesystem::create_hard_link(standing, second, failure);
  if (!failure) {
    kept = second;
  }
}

tool_Replacement::~tool_Replacement() {
  std::error_code ignored; // a failure is on its way to the user already
  if (begun) {
    // The journal of an interrupted save belongs to the new file, and must not be played back into the old
    // one.
    std::filesystem::remove(standing.string() + "-journal", ignored);
    if (kept.empty()) {
      std::filesystem::remove(standing, ignored);
    } else {
      std::filesystem::rename(kept, standing, ignored);
    }
  } else if (!kept.empty()) {
    std::filesystem::remove(kept, ignored);
  }
}
