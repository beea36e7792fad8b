// Start and stop of the library thr.
#include "os_Recorder.h"
#include "thr_Library.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Calls = std::vector<std::string>;

TEST(ThrLibrary, CountsItselfOnceHoweverOftenItIsStarted) {
  int libraries = 5;
  thr_initialize(libraries);
  thr_initialize(libraries);
  EXPECT_EQ(libraries, 6);
  thr_finalize(libraries);
  EXPECT_EQ(libraries, 6);
  thr_finalize(libraries);
  EXPECT_EQ(libraries, 5);
}

TEST(ThrLibrary, RecordsItsStartAndStop) {
  Calls calls;
  os_setCallObserver(
      [](char const* call, unsigned number, void* context) {
        static_cast<Calls*>(context)->push_back(call + std::to_string(number));
      },
      &calls);
  int libraries = 0;
  thr_initialize(libraries);
  thr_finalize(libraries);
  os_setCallObserver(nullptr, nullptr);
  EXPECT_EQ(calls, (Calls{"thr_initialize0", "thr_finalize0"}));
}

} // namespace
