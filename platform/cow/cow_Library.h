// Start and stop of the copy-on-write library.
#pragma once

#include "os_Export.h"

/// Brings the library up; calls nest.
/// \param libraryCount grows by one on the call that really starts it.
DDR_API void cow_initialize(int& libraryCount);

/// Takes back one cow_initialize().
/// \param libraryCount shrinks by one on the call that really stops it.
DDR_API void cow_finalize(int& libraryCount);
