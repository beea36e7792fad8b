// Blocks of the pools: their places, their counts, their threads.
#include "mem_BlockPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include <pthread.h>

namespace {

std::uintptr_t addressOf(void* block) {
  return reinterpret_cast<std::uintptr_t>(block);
}

// A block filled with its own number, so that two blocks that overlap are noticed.
struct Marked {
  explicit Marked(std::size_t blockSize, unsigned char number) : size(blockSize), mark(number) {
    block = mem_poolAllocate(size);
    std::memset(block, mark, size);
  }
  bool IsWhole() const {
    auto const* const bytes = static_cast<unsigned char const*>(block);
    for (std::size_t index = 0; index != size; ++index) {
      if (bytes[index] != mark) {
        return false;
      }
    }
    return true;
  }
  void Free() const { mem_poolFree(block, size); }

  std::size_t size;
  unsigned char mark;
  void* block = nullptr;
};

std::size_t liveOfAllSizes() {
  std::size_t live = mem_poolLiveBlocks(4);
  for (std::size_t size = 8; size <= mem_poolLargestBlock; size += 8) {
    live += mem_poolLiveBlocks(size);
  }
  return live;
}

TEST(BlockPool, BlocksOfEverySizeAreAlignedAndTheirOwn) {
  std::vector<Marked> blocks;
  for (std::size_t size = 1; size <= mem_poolLargestBlock + 50; ++size) {
    for (unsigned copy = 0; copy != 3; ++copy) {
      blocks.emplace_back(size, static_cast<unsigned char>(size * 3 + copy));
      EXPECT_EQ(addressOf(blocks.back().block) % (size <= 4 ? 4 : 8), 0U) << size;
    }
  }
  for (Marked const& block : blocks) {
    EXPECT_TRUE(block.IsWhole()) << block.size;
    block.Free();
  }
}

TEST(BlockPool, BlocksOf64BytesBeginACacheLine) {
  std::uintptr_t const alignment = mem_poolUsesHeap() ? 8 : 64; // the general heap promises less
  std::vector<void*> blocks;
  for (int index = 0; index != 2000; ++index) {
    blocks.push_back(mem_BlockPool<64>::Allocate());
    EXPECT_EQ(addressOf(blocks.back()) % alignment, 0U);
  }
  for (void* const block : blocks) {
    mem_BlockPool<64>::Free(block);
  }
}

TEST(BlockPool, CountsTheBlocksThatAreAllocated) {
  std::size_t const before = mem_BlockPool<4>::LiveBlocks();
  std::vector<void*> blocks;
  for (int index = 0; index != 50000; ++index) {
    blocks.push_back(mem_BlockPool<4>::Allocate());
  }
  EXPECT_EQ(mem_BlockPool<4>::LiveBlocks(), before + 50000);
  EXPECT_EQ(std::set<void*>(blocks.begin(), blocks.end()).size(), blocks.size());
  for (void* const block : blocks) {
    mem_BlockPool<4>::Free(block);
  }
  EXPECT_EQ(mem_BlockPool<4>::LiveBlocks(), before);
}

TEST(BlockPool, FreeingNullDoesNothing) {
  std::size_t const before = liveOfAllSizes();
  mem_poolFree(nullptr, 4);
  mem_poolFree(nullptr, 1000);
  EXPECT_EQ(liveOfAllSizes(), before);
}

TEST(BlockPool, GivesMemoryBackWhenItsBlocksAreFreed) {
  constexpr std::size_t blockCount = 400000; // 50 MB
  std::size_t const before = mem_poolReservedBytes();
  std::vector<void*> blocks;
  for (std::size_t index = 0; index != blockCount; ++index) {
    blocks.push_back(mem_poolAllocate(128));
  }
  std::size_t const full = mem_poolReservedBytes();
  for (void* const block : blocks) {
    mem_poolFree(block, 128);
  }
  std::size_t const after = mem_poolReservedBytes();
  if (mem_poolUsesHeap()) {
    EXPECT_EQ(full, 0U);
  } else {
    EXPECT_GE(full, blockCount * 128);
  }
  EXPECT_LE(after, before + (std::size_t{8} << 20));
}

TEST(BlockPool, ABlockFreedByAnotherThreadIsUsedAgain) {
  constexpr int rounds = 200;
  constexpr int blocksARound = 2000;
  std::size_t const before = mem_poolLiveBlocks(40);
  std::size_t const reserved = mem_poolReservedBytes();
  for (int round = 0; round != rounds; ++round) {
    std::vector<void*> blocks;
    for (int index = 0; index != blocksARound; ++index) {
      blocks.push_back(mem_poolAllocate(40));
    }
    std::thread([&] {
      for (void* const block : blocks) {
        mem_poolFree(block, 40);
      }
    }).join();
    EXPECT_EQ(mem_poolLiveBlocks(40), before);
  }
  // All rounds together would need 16 MB.
  EXPECT_LE(mem_poolReservedBytes(), reserved + (std::size_t{4} << 20));
}

TEST(BlockPool, BlocksOutliveTheirThreadAndTheirPagesAreTakenOver) {
  constexpr int threads = 200;
  std::size_t const before = mem_poolLiveBlocks(48);
  std::size_t const reserved = mem_poolReservedBytes();
  std::vector<Marked> survivors;
  for (int index = 0; index != threads; ++index) {
    std::thread([&] {
      std::vector<Marked> own;
      for (unsigned number = 0; number != 100; ++number) {
        own.emplace_back(48, static_cast<unsigned char>(number));
      }
      survivors.push_back(own.back());
      own.pop_back();
      for (Marked const& block : own) {
        block.Free();
      }
    }).join();
  }
  EXPECT_EQ(mem_poolLiveBlocks(48), before + threads);
  // A page for each of the threads would be 12 MB.
  EXPECT_LE(mem_poolReservedBytes(), reserved + (std::size_t{2} << 20));
  for (Marked const& block : survivors) {
    EXPECT_TRUE(block.IsWhole());
    block.Free();
  }
  EXPECT_EQ(mem_poolLiveBlocks(48), before);
}

// Other libraries release their objects at the end of a thread too, before or after the pools have done so.
void useThePoolOnceMore(void* block) {
  mem_poolFree(block, 24);
  void* const another = mem_poolAllocate(24);
  mem_poolFree(another, 24);
}

TEST(BlockPool, ServesAThreadThatIsEnding) {
  std::size_t const before = mem_poolLiveBlocks(24);
  pthread_key_t early;
  ASSERT_EQ(pthread_key_create(&early, useThePoolOnceMore), 0);
  std::thread([] { mem_poolFree(mem_poolAllocate(24), 24); }).join(); // the pool's own notice exists now
  pthread_key_t late;
  ASSERT_EQ(pthread_key_create(&late, useThePoolOnceMore), 0);
  std::thread([&] {
    ASSERT_EQ(pthread_setspecific(early, mem_poolAllocate(24)), 0);
    ASSERT_EQ(pthread_setspecific(late, mem_poolAllocate(24)), 0);
  }).join();
  EXPECT_EQ(mem_poolLiveBlocks(24), before);
  pthread_key_delete(early);
  pthread_key_delete(late);
}

TEST(BlockPool, ThreadsExchangeBlocksWithoutLoss) {
  constexpr unsigned threadCount = 4;
  constexpr unsigned steps = 20000;
  std::size_t const before = liveOfAllSizes();
  std::mutex lock;
  std::vector<Marked> common;
  std::atomic<unsigned> damaged{0};
  std::atomic<unsigned> foreign{0};
  std::vector<std::thread> threads;
  for (unsigned number = 0; number != threadCount; ++number) {
    threads.emplace_back([&, number] {
      std::mt19937 random(number);
      for (unsigned step = 0; step != steps; ++step) {
        Marked const made(1 + random() % 100, static_cast<unsigned char>(random()));
        std::vector<Marked> taken;
        {
          std::lock_guard const guard(lock);
          common.push_back(made);
          for (int count = 0; count != 2 && common.size() > 500; ++count) {
            std::swap(common[random() % common.size()], common.back());
            taken.push_back(common.back());
            common.pop_back();
          }
        }
        for (Marked const& block : taken) {
          damaged += block.IsWhole() ? 0 : 1;
          ++foreign;
          block.Free();
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (Marked const& block : common) {
    damaged += block.IsWhole() ? 0 : 1;
    block.Free();
  }
  EXPECT_EQ(damaged, 0U);
  EXPECT_GT(foreign, steps);
  EXPECT_EQ(liveOfAllSizes(), before);
}

} // namespace
