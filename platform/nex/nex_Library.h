// nex_Library.h: starts and stops the library nex.
#pragma once

#include "os_Export.h"

/// Starts the library; only the first start of a nesting works.
/// @param libraryCount the caller's count of libraries that are up; grows by one on a real start
DDR_API void nex_initialize(int& libraryCount);

/// Stops the library; only the stop that matches the first start works. What it handed out stays usable.
/// @param libraryCount the caller's count of libraries that are up; shrinks by one on a real stop
DDR_API void nex_finalize(int& libraryCount);

/// Asks for `drop` to be called each time the library really stops: the persistence layer's class metadata
/// goes down with it. A function that was added before is not added again. Must not throw; any thread.
DDR_API void nex_atFinalize(void (*drop)());
