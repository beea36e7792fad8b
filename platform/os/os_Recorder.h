// os_Recorder.h: lets an observer see every start, stop and registrar call of the platform.
#pragma once

#include "os_Export.h"

/// Told of one call.
/// @param call the called function's own name, a literal
/// @param number the number that belongs to the call (a tag, a type id), 0 where there is none
/// @param context what os_setCallObserver was given
using os_CallObserver = void (*)(char const* call, unsigned number, void* context);

/// Installs the one observer of this process; null ends observing.
/// When this returns, the former observer is not running and will not be called again, unless the caller
/// is that observer itself.
/// @param observer must not throw; it may call os_setCallObserver
/// @param context handed to each call, borrowed until the observer is replaced
DDR_API void os_setCallObserver(os_CallObserver observer, void* context);

/// Tells the observer of one call; one atomic read when there is none. Any thread may call this; the
/// observer sees one call at a time.
DDR_API void os_recordCall(char const* call, unsigned number = 0) noexcept;
