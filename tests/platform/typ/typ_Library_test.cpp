// Start and stop of the library typ.
#include "os_Recorder.h"
#include "typ_Library.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Calls = std::vector<std::string>;

TEST(TypLibrary, CountsItselfOnceHoweverOftenItIsStarted) {
  int libraries = 5;
  typ_initialize(libraries);
  typ_initialize(libraries);
  EXPECT_EQ(libraries, 6);
  typ_finalize(libraries);
  EXPECT_EQ(libraries, 6);
  typ_finalize(libraries);
  EXPECT_EQ(libraries, 5);
}

TEST(TypLibrary, RecordsItsStartAndStop) {
  Calls calls;
  os_setCallObserver(
      [](char const* call, unsigned number, void* context) {
        static_cast<Calls*>(context)->push_back(call + std::to_string(number));
      },
      &calls);
  int libraries = 0;
  typ_initialize(libraries);
  typ_finalize(libraries);
  os_setCallObserver(nullptr, nullptr);
  EXPECT_EQ(calls, (Calls{"typ_initialize0", "typ_finalize0"}));
}

} // namespace
