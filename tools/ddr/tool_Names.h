// tool_protectedName: names on their way through the parser of the command line.
#pragma once

#include <string>

/// A name in the form in which it goes through the parser, which would take "[a,b]" for two names.
std::string tool_protectedName(std::string const& name);
/// The name again. Names that were not protected stay as they are.
std::string tool_unprotectedName(std::string name);
