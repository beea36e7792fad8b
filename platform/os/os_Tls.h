// os_Tls.h: per-thread slots under the names that the system uses everywhere.
#pragma once

#include "os_Export.h"

/// What TlsAlloc answers when the process has no slot left; never a slot.
inline constexpr unsigned TLS_OUT_OF_INDEXES = 0xffffffffU;

/// Takes a slot, which reads as null in every thread.
/// @returns the slot, or TLS_OUT_OF_INDEXES
DDR_API unsigned TlsAlloc();

/// @returns the calling thread's value of the slot; null when it never set one or the slot is not taken
DDR_API void* TlsGetValue(unsigned slot);

/// Sets the calling thread's value of the slot; other threads keep theirs. A thread that ends drops its
/// value without calling anything.
/// @returns false when the slot is not taken or there is no memory; the value is then unchanged
DDR_API bool TlsSetValue(unsigned slot, void* value);

/// Gives the slot back; the values that threads still have in it are dropped.
/// @returns false when the slot is not taken
DDR_API bool TlsFree(unsigned slot);

/// Asks the loader not to report threads that come and go. Here the loader never does, so that nothing is
/// left to turn off; the call is recorded as "DisableThreadLibraryCalls".
/// @param module the loaded library, may be null
DDR_API void DisableThreadLibraryCalls(void* module);
