// Start and stop of the library omni.
#include "omni_Library.h"
#include "os_Recorder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Calls = std::vector<std::string>;

TEST(OmniLibrary, CountsItselfOnceHoweverOftenItIsStarted) {
  int libraries = 5;
  omni_initialize(libraries);
  omni_initialize(libraries);
  EXPECT_EQ(libraries, 6);
  omni_finalize(libraries);
  EXPECT_EQ(libraries, 6);
  omni_finalize(libraries);
  EXPECT_EQ(libraries, 5);
}

TEST(OmniLibrary, RecordsItsStartAndStop) {
  Calls calls;
  os_setCallObserver(
      [](char const* call, unsigned number, void* context) {
        static_cast<Calls*>(context)->push_back(call + std::to_string(number));
      },
      &calls);
  int libraries = 0;
  omni_initialize(libraries);
  omni_finalize(libraries);
  os_setCallObserver(nullptr, nullptr);
  EXPECT_EQ(calls, (Calls{"omni_initialize0", "omni_finalize0"}));
}

} // namespace
