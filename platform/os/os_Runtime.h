// os_Runtime.h: the calls of the run time that a test can replace.
#pragma once

#include "os_Export.h"

#include <cstddef>
#include <cstdint>
#include <ctime>

/// One function for each call of os_Time.h and os_Tls.h; none is ever null. A default-constructed object
/// holds the real ones.
struct DDR_API os_RuntimeCalls {
  os_RuntimeCalls() noexcept;

  std::int64_t (*time64)(std::int64_t* seconds);
  std::tm* (*localtime64)(std::int64_t const* seconds);
  long (*timezone)();
  std::size_t (*strftime)(char* text, std::size_t size, char const* format, std::tm const* time);
  unsigned (*tlsAlloc)();
  void* (*tlsGetValue)(unsigned slot);
  bool (*tlsSetValue)(unsigned slot, void* value);
  bool (*tlsFree)(unsigned slot);
};

/// The calls in use by this process. Replacing a member takes effect at once for all threads; do so while no
/// other thread runs calls of the platform, and assign os_RuntimeCalls() to restore the real ones.
DDR_API os_RuntimeCalls& os_runtimeCalls();
