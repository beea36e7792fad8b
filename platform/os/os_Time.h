// os_Time.h: clock, time zone and time texts under the names that the system uses everywhere.
#pragma once

#include "os_Export.h"

#include <cstddef>
#include <cstdint>
#include <ctime>

/// The clock. [seconds since 1970]
/// @param seconds also set to the result unless null
// NOLINTNEXTLINE(bugprone-reserved-identifier): the run time's own name
DDR_API std::int64_t _time64(std::int64_t* seconds);

/// A time in the local zone, as the environment names it at this call.
/// @param seconds [seconds since 1970]
/// @returns a buffer of the calling thread, good until its next call; null for a time whose year does not
///   fit
// NOLINTNEXTLINE(bugprone-reserved-identifier): the run time's own name
DDR_API std::tm* _localtime64(std::int64_t const* seconds);

/// The local zone without daylight saving. [seconds west of UTC]
DDR_API long os_timezone();

/// std::strftime.
/// @param size room in `text`, its final zero included [byte]
/// @returns the length of the text; 0 when it is empty or does not fit
DDR_API std::size_t os_strftime(char* text, std::size_t size, char const* format, std::tm const* time);
