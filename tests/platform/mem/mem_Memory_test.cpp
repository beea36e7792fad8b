// Raw allocation.
#include "mem_Memory.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

namespace {

constexpr std::size_t tooMuch = std::numeric_limits<std::size_t>::max() / 2;

TEST(Memory, BlocksAreAlignedForEveryFundamentalType) {
  for (std::size_t size = 1; size < 200; size += 7) {
    void* const block = mem_Malloc(size);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignof(std::max_align_t), 0U) << size;
    std::memset(block, 1, size);
    mem_Free(block);
  }
}

TEST(Memory, SizeZeroGivesABlockOfItsOwn) {
  void* const first = mem_Malloc(0);
  void* const second = mem_Malloc(0);
  EXPECT_NE(first, nullptr);
  EXPECT_NE(second, nullptr);
  EXPECT_NE(first, second);
  mem_Free(first);
  mem_Free(second);
}

TEST(Memory, GrowingKeepsTheContents) {
  char* block = static_cast<char*>(mem_Malloc(4));
  std::memcpy(block, "abc", 4);
  block = static_cast<char*>(mem_Realloc(block, 100000));
  ASSERT_NE(block, nullptr);
  EXPECT_STREQ(block, "abc");
  mem_Free(block);
}

TEST(Memory, ShrinkingKeepsTheCommonPart) {
  char* block = static_cast<char*>(mem_Malloc(100000));
  std::memcpy(block, "abcdef", 7);
  block = static_cast<char*>(mem_Realloc(block, 3));
  EXPECT_EQ(std::string(block, 3), "abc");
  mem_Free(block);
}

TEST(Memory, ReallocOfNullAsksForANewBlock) {
  void* const block = mem_Realloc(nullptr, 10);
  EXPECT_NE(block, nullptr);
  mem_Free(block);
}

TEST(Memory, ReallocToZeroKeepsABlock) {
  void* const block = mem_Realloc(mem_Malloc(10), 0);
  EXPECT_NE(block, nullptr);
  mem_Free(block);
}

TEST(Memory, AnswersNullWhenThereIsNoMemory) {
  // volatile: a compiler may otherwise see the size and refuse the call
  std::size_t const volatile size = tooMuch;
  void* const none = mem_Malloc(size);
  EXPECT_EQ(none, nullptr);
  mem_Free(none);
}

TEST(Memory, AFailedReallocLeavesTheBlock) {
  std::size_t const volatile size = tooMuch;
  char* const block = static_cast<char*>(mem_Malloc(4));
  std::memcpy(block, "abc", 4);
  void* const moved = mem_Realloc(block, size);
  ASSERT_EQ(moved, nullptr);
  EXPECT_STREQ(block, "abc");
  mem_Free(block);
}

TEST(Memory, FreeingNullDoesNothing) {
  mem_Free(nullptr);
  void* const block = mem_Malloc(1);
  EXPECT_NE(block, nullptr);
  mem_Free(block);
}

} // namespace
