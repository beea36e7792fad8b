// dia_Library: start and stop of the library of diagnostic data.
#pragma once

#include "os_Export.h"

/// Starts the library; only the first start of a nesting works.
/// @param libraryCount the caller's count of libraries that are up; grows by one on a real start
DDR_API void dia_initialize(int& libraryCount);

/// Stops the library; only the stop that matches the first start works.
/// @param libraryCount the caller's count of libraries that are up; shrinks by one on a real stop
DDR_API void dia_finalize(int& libraryCount);
