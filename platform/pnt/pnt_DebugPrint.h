// pnt_DebugPrint.h: the stream that debug output goes to.
#pragma once

#include "os_Export.h"

#include <iosfwd>

/// The process's debug stream: standard error unless the host gave another. Reaching it is safe from any
/// thread; writing to it is as safe as the stream itself.
DDR_API std::ostream& pnt_debugPrint();

/// Sends debug output elsewhere.
/// @param stream borrowed until replaced; null restores standard error
DDR_API void pnt_setDebugPrint(std::ostream* stream);
