// Start and stop of the library pnt.
#include "os_Recorder.h"
#include "pnt_Library.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Calls = std::vector<std::string>;

TEST(PntLibrary, CountsItselfOnceHoweverOftenItIsStarted) {
  int libraries = 5;
  pnt_initialize(libraries);
  pnt_initialize(libraries);
  EXPECT_EQ(libraries, 6);
  pnt_finalize(libraries);
  EXPECT_EQ(libraries, 6);
  pnt_finalize(libraries);
  EXPECT_EQ(libraries, 5);
}

TEST(PntLibrary, RecordsItsStartAndStop) {
  Calls calls;
  os_setCallObserver(
      [](char const* call, unsigned number, void* context) {
        static_cast<Calls*>(context)->push_back(call + std::to_string(number));
      },
      &calls);
  int libraries = 0;
  pnt_initialize(libraries);
  pnt_finalize(libraries);
  os_setCallObserver(nullptr, nullptr);
  EXPECT_EQ(calls, (Calls{"pnt_initialize0", "pnt_finalize0"}));
}

} // namespace
