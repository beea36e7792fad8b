#include "tool_Names.h"

namespace {
constexpr char protection = '\0'; // cannot come from a command line
} // namespace

std::string tool_protectedName(std::string const& name) {
  return name.starts_with('[') ? name + protection : name;
}

std::string tool_unprotectedName(std::string name) {
  if (name.ends_with(protection)) {
    name.pop_back();
  }
  return name;
}
