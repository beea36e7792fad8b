// Counters come from their pool, in every thread.
#include "cow_Counter.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

namespace {

TEST(Counter, BeginsWithTheGivenCount) {
  EXPECT_EQ(std::make_unique<cow_Counter>()->value, 1U);
  EXPECT_EQ(std::make_unique<cow_Counter>(7)->value, 7U);
}

TEST(Counter, IsCountedWhileItExists) {
  std::size_t const before = cow_Counter::LiveCount();
  auto* const counter = new cow_Counter;
  EXPECT_EQ(cow_Counter::LiveCount(), before + 1);
  delete counter;
  EXPECT_EQ(cow_Counter::LiveCount(), before);
}

TEST(Counter, ThreadsMakeAndDropCountersOfTheirOwn) {
  std::size_t const before = cow_Counter::LiveCount();
  std::vector<std::thread> threads;
  std::vector<unsigned> sums(4);
  for (unsigned& sum : sums) {
    threads.emplace_back([&sum] {
      for (unsigned round = 0; round != 200; ++round) {
        std::vector<std::unique_ptr<cow_Counter>> counters;
        for (unsigned index = 0; index != 100; ++index) {
          counters.push_back(std::make_unique<cow_Counter>(index));
        }
        for (auto const& counter : counters) {
          sum += counter->value;
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(sums, std::vector<unsigned>(4, 200 * 4950));
  EXPECT_EQ(cow_Counter::LiveCount(), before);
}

} // namespace
