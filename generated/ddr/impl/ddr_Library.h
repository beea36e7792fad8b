// ddr_initialize and ddr_finalize: start and stop of the module.
#pragma once

#include "os_Export.h"

/// Starts the module and the libraries under it; only the first start of a nesting works. Nothing else of the
/// module may be used before. Call it once for each client, from one thread at a time.
/// @param libraryCount the caller's count of libraries that are up; grows by one for each library really
/// started
DDR_API void ddr_initialize(int& libraryCount);

/// Stops the module and the libraries under it; only the stop that matches the first start works. The calling
/// thread's open databases are dropped without being saved; other threads drop theirs when they end.
/// @param libraryCount the caller's count of libraries that are up; shrinks by one for each library really
/// stopped
DDR_API void ddr_finalize(int& libraryCount);
