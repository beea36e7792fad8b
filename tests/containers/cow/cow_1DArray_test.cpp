// The blocked array: its numbers, its blocks, its sharing.
#include "cow_1DArray.h"

#include "Random.h"
#include "Tracked.h"

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Array = cow_1DArray<Tracked>;

// Size, head, block shift and capacity, the numbers that the rules are about.
std::vector<int> numbersOf(Array const& array) {
  return {array.Size(), array.GetHead(), array.BlockShift(), array.Capacity()};
}

std::vector<int> itemsOf(Array const& array) {
  std::vector<int> items;
  for (cow_1DArrayIter<Tracked> item(array); !item.AtEnd(); item.Next()) {
    items.push_back(item.Value().Number());
  }
  return items;
}

class Array1D : public testing::Test {
protected:
  ~Array1D() override {
    EXPECT_EQ(Tracked::live, liveBefore);
    EXPECT_EQ(cow_Counter::LiveCount(), countersBefore);
  }

  int liveBefore = Tracked::live;
  std::size_t countersBefore = cow_Counter::LiveCount();
};

TEST_F(Array1D, DefaultArrayHasSixteenSlotsOfSixteen) {
  Array const array;
  EXPECT_EQ(numbersOf(array), (std::vector{0, 0, 4, 16}));
  EXPECT_EQ(array.Count(), 1U);
}

TEST_F(Array1D, BelowTwoHundredAndFiftySixTheDefaultsStand) {
  EXPECT_EQ(numbersOf(Array(255)), (std::vector{255, 0, 4, 16}));
}

TEST_F(Array1D, LargeArraysHaveLargerBlocks) {
  EXPECT_EQ(numbersOf(Array(256)), (std::vector{256, 0, 5, 24}));
  EXPECT_EQ(numbersOf(Array(257)), (std::vector{257, 0, 5, 25}));
  EXPECT_EQ(numbersOf(Array(511)), (std::vector{511, 0, 5, 32}));
  EXPECT_EQ(numbersOf(Array(512)), (std::vector{512, 0, 6, 24}));
  EXPECT_EQ(numbersOf(Array(1000)), (std::vector{1000, 0, 6, 32}));
  EXPECT_EQ(numbersOf(Array(100000)), (std::vector{100000, 0, 13, 29}));
}

TEST_F(Array1D, TheNumbersAreThoseOfTheSizeAsAFloat) {
  EXPECT_EQ(numbersOf(Array((1 << 24) + 1)), (std::vector{(1 << 24) + 1, 0, 21, 24})); // the float is 2^24
  EXPECT_EQ(numbersOf(Array((1 << 25) - 1)), (std::vector{(1 << 25) - 1, 0, 22, 24})); // the float is 2^25
}

TEST_F(Array1D, NegativeSizesAreRefused) {
  EXPECT_THROW(Array(-1), std::length_error);
  Array array(3);
  EXPECT_THROW(array.Grow(-1), std::length_error);
  EXPECT_EQ(array.Size(), 3);
}

TEST_F(Array1D, BlocksAreMadeWhenFirstRead) {
  Array const array(100);
  EXPECT_EQ(Tracked::live, liveBefore);
  EXPECT_EQ(array.PartialArrayConstGet(17).Number(), 0);
  EXPECT_EQ(Tracked::live, liveBefore + 16);
  EXPECT_EQ(array.PartialArrayConstGet(16).Number(), 0);
  EXPECT_EQ(Tracked::live, liveBefore + 16);
  EXPECT_EQ(array.ConstGet(99).Number(), 0);
  EXPECT_EQ(Tracked::live, liveBefore + 32);
}

TEST_F(Array1D, ItemsAreWrittenAndRead) {
  Array array(40);
  for (int index = 0; index != 40; ++index) {
    array.Get(index) = Tracked(index * index);
  }
  for (int index = 0; index != 40; ++index) {
    EXPECT_EQ(array.PartialArrayConstGet(index).Number(), index * index);
  }
}

TEST_F(Array1D, GrowKeepsTheTableWhileTheBlocksFit) {
  Array array;
  EXPECT_TRUE(array.Grow(1));
  EXPECT_EQ(numbersOf(array), (std::vector{1, 0, 4, 16}));
  array.Get(0) = Tracked(5);
  EXPECT_TRUE(array.Grow(256));
  EXPECT_EQ(numbersOf(array), (std::vector{256, 0, 4, 16}));
  EXPECT_EQ(array.ConstGet(0).Number(), 5);
}

TEST_F(Array1D, GrowMakesTheTableSixteenLargerThanNeeded) {
  Array array;
  array.Grow(257);
  EXPECT_EQ(numbersOf(array), (std::vector{257, 0, 4, 17 + 16}));
  array.Grow(1000);
  EXPECT_EQ(numbersOf(array), (std::vector{1000, 0, 4, 63 + 16}));
}

TEST_F(Array1D, GrowOfALargeArrayKeepsItsBlockSize) {
  Array array(300);
  array.Get(299) = Tracked(5);
  array.Grow(2000);
  EXPECT_EQ(numbersOf(array), (std::vector{2000, 0, 5, 63 + 16}));
  EXPECT_EQ(array.ConstGet(299).Number(), 5);
}

TEST_F(Array1D, GrowToZeroLetsGoOfEverything) {
  Array array(20);
  array.Get(19) = Tracked(5);
  EXPECT_TRUE(array.Grow(0));
  EXPECT_EQ(numbersOf(array), (std::vector{0, 0, 0, 0}));
  EXPECT_EQ(Tracked::live, liveBefore);
  array.Grow(20);
  EXPECT_EQ(numbersOf(array), (std::vector{20, 0, 4, 2 + 16}));
  EXPECT_EQ(array.ConstGet(19).Number(), 0);
}

TEST_F(Array1D, GrowToFewerItemsKeepsTheTable) {
  Array array(300);
  array.Get(299) = Tracked(5);
  array.Grow(3);
  EXPECT_EQ(numbersOf(array), (std::vector{3, 0, 5, 26}));
  array.Grow(300);
  EXPECT_EQ(array.ConstGet(299).Number(), 5);
}

TEST_F(Array1D, CopiesShareUntilWritten) {
  Array first(40);
  first.Get(0) = Tracked(1);
  first.Get(39) = Tracked(2);
  Array second(first);
  EXPECT_EQ(first.Count(), 2U);
  EXPECT_EQ(&second.ConstGet(0), &first.ConstGet(0));
  second.Get(0) = Tracked(9);
  EXPECT_EQ(first.Count(), 1U);
  EXPECT_EQ(first.ConstGet(0).Number(), 1);
  EXPECT_EQ(second.ConstGet(0).Number(), 9);
  EXPECT_EQ(&second.ConstGet(39), &first.ConstGet(39)); // the other block is still shared
}

TEST_F(Array1D, GrowUnsharesTheTableOnly) {
  Array first(3);
  first.Get(0) = Tracked(1);
  Array second(first);
  second.Grow(30);
  EXPECT_EQ(first.Size(), 3);
  EXPECT_EQ(first.Count(), 1U);
  EXPECT_EQ(&second.ConstGet(0), &first.ConstGet(0));
  second.Grow(0);
  EXPECT_EQ(first.ConstGet(0).Number(), 1);
}

TEST_F(Array1D, AssigningSharesAndLetsGo) {
  Array first(3);
  first.Get(0) = Tracked(1);
  Array second(300);
  second.Get(0) = Tracked(2);
  second = first;
  EXPECT_EQ(itemsOf(second), (std::vector{1, 0, 0}));
  Array const& same = second;
  second = same;
  EXPECT_EQ(second.Count(), 2U);
}

TEST_F(Array1D, IsFilledFromAndReadIntoAPlainArray) {
  std::vector<Tracked> const items{1, 2, 3};
  Array array;
  array.SetFromArray(items.data(), 3);
  EXPECT_EQ(itemsOf(array), (std::vector{1, 2, 3}));
  auto const plain = array.GetCArray();
  EXPECT_EQ(plain[2].Number(), 3);
  array.SetFromArray(nullptr, 0);
  EXPECT_EQ(array.Size(), 0);
  EXPECT_EQ(array.GetCArray(), nullptr);
}

TEST_F(Array1D, AListGrowsAtItsEnd) {
  cow_1DArrayList<Tracked> list;
  for (int number = 0; number != 600; ++number) {
    list.Append(Tracked(number));
  }
  cow_1DArrayList<Tracked> const copy(list);
  list.Get(599) = Tracked(-1);
  EXPECT_EQ(copy.Size(), 600);
  EXPECT_EQ(copy.ConstGet(599).Number(), 599);
  EXPECT_EQ(list.ConstGet(599).Number(), -1);
  EXPECT_EQ(itemsOf(list.Array()).size(), 600U);
}

TEST_F(Array1D, AFailedCopyOfABlockLeavesTheItemsAsTheyWere) {
  Array first(3);
  first.Get(0) = Tracked(1);
  Array second(first);
  int const failures = Tracked::failures;
  Tracked::failAt = 2;
  EXPECT_THROW(second.Get(1), CopyFailed);
  EXPECT_EQ(Tracked::failures, failures + 1);
  EXPECT_EQ(itemsOf(second), (std::vector{1, 0, 0}));
  EXPECT_EQ(itemsOf(first), (std::vector{1, 0, 0}));
}

TEST_F(Array1D, AFailedAppendLeavesTheListAsItWas) {
  cow_1DArrayList<Tracked> list;
  Tracked const item(1);
  list.Append(item);
  for (int failAt : {1, 2}) {
    Tracked::failAt = failAt;
    EXPECT_THROW(list.Append(item), CopyFailed);
    EXPECT_EQ(list.Size(), 1);
  }
}

TEST_F(Array1D, RandomWritesToSharersMatchVectors) {
  unsigned const seed = std::random_device()();
  SCOPED_TRACE(seed);
  Random random(seed);
  std::vector<Array> arrays(4);
  std::vector<std::vector<int>> models(4);
  for (int step = 0; step != 5000; ++step) {
    std::size_t const which = random() % 4;
    std::size_t const other = random() % 4;
    Array& array = arrays[which];
    std::vector<int>& model = models[which];
    switch (random() % 4) {
    case 0:
      array = arrays[other];
      model = models[other];
      break;
    case 1: {
      int const size = array.Size() + static_cast<int>(random() % 50);
      array.Grow(size);
      model.resize(static_cast<std::size_t>(size));
      break;
    }
    case 2:
      if (random() % 10 == 0) {
        array.Grow(0);
        model.clear();
      }
      break;
    default:
      if (!model.empty()) {
        std::size_t const index = random() % model.size();
        array.Get(static_cast<int>(index)) = Tracked(step);
        model[index] = step;
      }
    }
    ASSERT_EQ(itemsOf(array), model) << step;
  }
}

TEST_F(Array1D, AWalkStaysAtItsEnd) {
  Array array(2);
  cow_1DArrayIter<Tracked> item(array);
  for (int step = 0; step < 5; ++step) {
    item.Next();
  }
  EXPECT_TRUE(item.AtEnd());
  item.First();
  EXPECT_FALSE(item.AtEnd());
}

} // namespace
