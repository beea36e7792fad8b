// The stop watch.
#include "omi_Timer.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

// Keeps busy rather than sleeping: the clock is what is tested.
void spend(std::chrono::steady_clock::duration time) {
  auto const end = std::chrono::steady_clock::now() + time;
  while (std::chrono::steady_clock::now() < end) {
  }
}

TEST(Timer, ReadsZeroBeforeItsStart) {
  omi_Timer const timer;
  spend(std::chrono::microseconds(100));
  EXPECT_EQ(timer.GetElapsedTime(), 0.0);
}

TEST(Timer, CountsSeconds) {
  auto const before = std::chrono::steady_clock::now();
  omi_Timer timer;
  timer.Start();
  spend(std::chrono::milliseconds(3));
  double const elapsed = timer.GetElapsedTime();
  std::chrono::duration<double> const bound = std::chrono::steady_clock::now() - before;
  EXPECT_GE(elapsed, 0.003);
  EXPECT_LE(elapsed, bound.count());
}

TEST(Timer, StartingAgainForgetsWhatWas) {
  omi_Timer timer;
  timer.Start();
  spend(std::chrono::milliseconds(3));
  auto const before = std::chrono::steady_clock::now();
  timer.Start();
  double const elapsed = timer.GetElapsedTime();
  std::chrono::duration<double> const bound = std::chrono::steady_clock::now() - before;
  EXPECT_LE(elapsed, bound.count());
}

} // namespace
