// Start and stop of the library of relational files.
#pragma once

#include "os_Export.h"

/// Brings the library up on the first of nested calls.
/// @param libraryCount the caller's count of running libraries: one is added when this one really comes up
DDR_API void rfm_initialize(int& libraryCount);

/// Takes the library down on the last of nested calls; files that are still open stay usable.
/// @param libraryCount the caller's count of running libraries: one is taken off when this one really goes
/// down
DDR_API void rfm_finalize(int& libraryCount);
