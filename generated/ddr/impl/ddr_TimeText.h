// ddr_timeText: a stored time in words.
#pragma once

#include "cow_String.h"
#include "os_Export.h"

/// A time as databases show it, in the local time zone: "Tue Mar 05 07:08:09 GMT-00:00 2024" for example.
/// @param seconds [seconds since 1970], also before 1970
/// @throws nex_AssertException when the time cannot be formatted
DDR_API cow_String ddr_timeText(int seconds);
