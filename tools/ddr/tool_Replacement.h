// tool_Replacement: asks before something is replaced.
#pragma once

#include <string>

/// Refuses a name under which a file stands. Whatever else than an ordinary file stands there is refused by
/// the library, in words of its own.
/// @throws nex_TextException naming the file
void tool_refuseToReplace(std::string const& fileName);
