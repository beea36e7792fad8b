// Start and stop of the library utl.
#include "os_Recorder.h"
#include "utl_Library.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Calls = std::vector<std::string>;

TEST(UtlLibrary, CountsItselfOnceHoweverOftenItIsStarted) {
  int libraries = 5;
  utl_initialize(libraries);
  utl_initialize(libraries);
  EXPECT_EQ(libraries, 6);
  utl_finalize(libraries);
  EXPECT_EQ(libraries, 6);
  utl_finalize(libraries);
  EXPECT_EQ(libraries, 5);
}

TEST(UtlLibrary, RecordsItsStartAndStop) {
  Calls calls;
  os_setCallObserver(
      [](char const* call, unsigned number, void* context) {
        static_cast<Calls*>(context)->push_back(call + std::to_string(number));
      },
      &calls);
  int libraries = 0;
  utl_initialize(libraries);
  utl_finalize(libraries);
  os_setCallObserver(nullptr, nullptr);
  EXPECT_EQ(calls, (Calls{"utl_initialize0", "utl_finalize0"}));
}

} // namespace
