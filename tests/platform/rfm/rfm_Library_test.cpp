// Tests of starting and stopping the library.
#include "rfm_Library.h"

#include "os_Recorder.h"

#include <gmock/gmock.h>
#include <string>
#include <vector>

TEST(rfm_Library, CountsItselfOnTheFirstStartAndTheLastStop) {
  std::vector<std::string> calls;
  os_setCallObserver(
      [](char const* call, unsigned, void* context) {
        static_cast<std::vector<std::string>*>(context)->emplace_back(call);
      },
      &calls);
  int count = 3;
  rfm_initialize(count);
  EXPECT_EQ(count, 4);
  rfm_initialize(count);
  EXPECT_EQ(count, 4);
  rfm_finalize(count);
  EXPECT_EQ(count, 4);
  rfm_finalize(count);
  EXPECT_EQ(count, 3);
  os_setCallObserver(nullptr, nullptr);
  EXPECT_THAT(calls,
              testing::ElementsAre("rfm_initialize", "rfm_initialize", "rfm_finalize", "rfm_finalize"));
}
