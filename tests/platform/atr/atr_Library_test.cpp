// Start and stop of the library atr.
#include "atr_Library.h"
#include "os_Recorder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Calls = std::vector<std::string>;

TEST(AtrLibrary, CountsItselfOnceHoweverOftenItIsStarted) {
  int libraries = 5;
  atr_initialize(libraries);
  atr_initialize(libraries);
  EXPECT_EQ(libraries, 6);
  atr_finalize(libraries);
  EXPECT_EQ(libraries, 6);
  atr_finalize(libraries);
  EXPECT_EQ(libraries, 5);
}

TEST(AtrLibrary, RecordsItsStartAndStop) {
  Calls calls;
  os_setCallObserver(
      [](char const* call, unsigned number, void* context) {
        static_cast<Calls*>(context)->push_back(call + std::to_string(number));
      },
      &calls);
  int libraries = 0;
  atr_initialize(libraries);
  atr_finalize(libraries);
  os_setCallObserver(nullptr, nullptr);
  EXPECT_EQ(calls, (Calls{"atr_initialize0", "atr_finalize0"}));
}

} // namespace
