// Start and stop of the library mem.
#include "mem_Library.h"
#include "os_Recorder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Calls = std::vector<std::string>;

TEST(MemLibrary, CountsItselfOnceHoweverOftenItIsStarted) {
  int libraries = 5;
  mem_initialize(libraries);
  mem_initialize(libraries);
  EXPECT_EQ(libraries, 6);
  mem_finalize(libraries);
  EXPECT_EQ(libraries, 6);
  mem_finalize(libraries);
  EXPECT_EQ(libraries, 5);
}

TEST(MemLibrary, RecordsItsStartAndStop) {
  Calls calls;
  os_setCallObserver(
      [](char const* call, unsigned number, void* context) {
        static_cast<Calls*>(context)->push_back(call + std::to_string(number));
      },
      &calls);
  int libraries = 0;
  mem_initialize(libraries);
  mem_finalize(libraries);
  os_setCallObserver(nullptr, nullptr);
  EXPECT_EQ(calls, (Calls{"mem_initialize0", "mem_finalize0"}));
}

} // namespace
