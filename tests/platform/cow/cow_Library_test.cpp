// Start and stop of the library cow.
#include "cow_Library.h"
#include "os_Recorder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Calls = std::vector<std::string>;

TEST(CowLibrary, CountsItselfOnceHoweverOftenItIsStarted) {
  int libraries = 5;
  cow_initialize(libraries);
  cow_initialize(libraries);
  EXPECT_EQ(libraries, 6);
  cow_finalize(libraries);
  EXPECT_EQ(libraries, 6);
  cow_finalize(libraries);
  EXPECT_EQ(libraries, 5);
}

TEST(CowLibrary, RecordsItsStartAndStop) {
  Calls calls;
  os_setCallObserver(
      [](char const* call, unsigned number, void* context) {
        static_cast<Calls*>(context)->push_back(call + std::to_string(number));
      },
      &calls);
  int libraries = 0;
  cow_initialize(libraries);
  cow_finalize(libraries);
  os_setCallObserver(nullptr, nullptr);
  EXPECT_EQ(calls, (Calls{"cow_initialize0", "cow_finalize0"}));
}

} // namespace
