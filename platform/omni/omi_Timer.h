// omi_Timer.h: measures elapsed time.
#pragma once

#include "os_Export.h"

#include <chrono>

/// A stop watch on a clock that is never set back. A value: each thread uses its own.
class DDR_API omi_Timer {
public:
  omi_Timer() = default;

  /// Starts measuring, or starts anew.
  void Start() noexcept;

  /// Time since the last Start; 0 before the first. [seconds]
  [[nodiscard]] double GetElapsedTime() const noexcept;

private:
  std::chrono::steady_clock::time_point begin;
  bool running = false;
};
