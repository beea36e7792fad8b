// omi_Timer.cpp: measures elapsed time.
#include "omi_Timer.h"

void omi_Timer::Start() noexcept {
  begin = std::chrono::steady_clock::now();
  running = true;
}

double omi_Timer::GetElapsedTime() const noexcept {
  if (!running) {
    return 0.0;
  }
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}
