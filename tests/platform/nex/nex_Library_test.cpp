// Start and stop of the library nex.
#include "nex_Library.h"
#include "os_Recorder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Calls = std::vector<std::string>;

TEST(NexLibrary, CountsItselfOnceHoweverOftenItIsStarted) {
  int libraries = 5;
  nex_initialize(libraries);
  nex_initialize(libraries);
  EXPECT_EQ(libraries, 6);
  nex_finalize(libraries);
  EXPECT_EQ(libraries, 6);
  nex_finalize(libraries);
  EXPECT_EQ(libraries, 5);
}

TEST(NexLibrary, RecordsItsStartAndStop) {
  Calls calls;
  os_setCallObserver(
      [](char const* call, unsigned number, void* context) {
        static_cast<Calls*>(context)->push_back(call + std::to_string(number));
      },
      &calls);
  int libraries = 0;
  nex_initialize(libraries);
  nex_finalize(libraries);
  os_setCallObserver(nullptr, nullptr);
  EXPECT_EQ(calls, (Calls{"nex_initialize0", "nex_finalize0"}));
}

} // namespace
