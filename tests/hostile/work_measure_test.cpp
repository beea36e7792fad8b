// What is measured of a look at a hostile file is there.
#include "work_measure.h"

#include "child_process.h"
#include "sanitized.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr std::size_t mebibyte = 1024 * 1024;

TEST(work_measure, ShortWorkInLittleMemoryIsNoFault) {
  EXPECT_THAT(work_measure().faults(0), IsEmpty());
}

TEST(work_measure, MoreThanASecondIsAFault) {
  work_measure const measure;
  while (measure.faults(0).empty()) {
    ASSERT_LT(measure.seconds(), 10.0);
  }
  EXPECT_GT(measure.seconds(), 1.0);
  EXPECT_THAT(measure.faults(0), ElementsAre(HasSubstr("processor seconds")));
  EXPECT_THAT(measure.faults(100 * mebibyte), IsEmpty());
}

TEST(work_measure, MoreThanASecondAsleepIsAFault) {
  work_measure const measure;
  timespec const nap{isSanitized ? 4 : 1, 100'000'000};
  nanosleep(&nap, nullptr);
  EXPECT_LT(measure.seconds(), 1.0);
  EXPECT_THAT(measure.faults(0), ElementsAre(HasSubstr("asleep")));
}

TEST(work_measure, MoreMemoryThanTheFileAllowsIsAFaultAlsoWhenItWasGivenBack) {
  work_measure const measure;
  {
    std::vector<char> const taken(80 * mebibyte, 'x');
    char const volatile* const seen = taken.data(); // so that it is really taken
    EXPECT_EQ(seen[mebibyte], 'x');
  }
  if (isSanitized) { // what was freed stays there, and would be counted
    EXPECT_EQ(measure.memory(), 0);
  } else {
    EXPECT_THAT(measure.faults(0), ElementsAre(HasSubstr("bytes of memory")));
    EXPECT_THAT(measure.faults(2 * mebibyte), IsEmpty());
  }
}

std::string leaksAfter(bool keeping) {
  return in_child([&] {
    std::vector<std::unique_ptr<char>> made(100);
    std::generate(made.begin(), made.end(), [] { return std::make_unique<char>(); });
    for (std::unique_ptr<char>& one : made) {
      if (!keeping) {
        static_cast<void>(one.release());
      }
    }
    return leaks();
  });
}

TEST(work_measure, MemoryThatNothingLeadsToIsALeak) {
  EXPECT_EQ(leaksAfter(true), "");
  EXPECT_EQ(leaksAfter(false).empty(), !areAddressesSanitized);
}

} // namespace
