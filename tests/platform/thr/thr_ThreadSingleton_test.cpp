// One object a thread: its slot, its count, its making and its release.
#include "os_Runtime.h"
#include "os_Tls.h"
#include "thr_Library.h"
#include "thr_TestSingleton.h"
#include "thr_ThreadSingleton.h"

#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

std::atomic<int> alive{0};
std::atomic<bool> constructorThrows{false};
std::atomic<bool> seesItselfWhileDestroyed{false};

class Thing : public thr_ThreadSingletonBase<Thing> {
public:
  int value = 0;

private:
  friend class thr_ThreadSingleton<Thing>;

  Thing() {
    if (constructorThrows) {
      throw std::runtime_error("thing");
    }
    ++alive;
    thr_GlobalSingleton<thr_ThrSingletonRegistry>::Instance().SetDestructLevel(
        &thr_ThreadSingleton<Thing>::Release, 8);
  }
  ~Thing() {
    seesItselfWhileDestroyed = thr_ThreadSingletonBase<Thing>::Instance() == this;
    --alive;
  }
};

using Base = thr_ThreadSingletonBase<Thing>;
using Singleton = thr_ThreadSingleton<Thing>;

class ThreadSingleton : public testing::Test {
protected:
  ThreadSingleton() { Singleton::Release(); }
  ~ThreadSingleton() override {
    os_runtimeCalls() = os_RuntimeCalls();
    constructorThrows = false;
    Singleton::Release();
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(liveCount(), 0U);
    EXPECT_EQ(slot(), TLS_OUT_OF_INDEXES);
  }

  static unsigned liveCount() { return Base::SlotState().liveCount; }
  static unsigned slot() { return Base::SlotState().slot; }
};

TEST_F(ThreadSingleton, AFreshThreadHasNone) {
  Thing* mine = Base::Instance();
  Thing* others = mine;
  std::thread([&others] { others = Base::Instance(); }).join();
  EXPECT_EQ(mine, nullptr);
  EXPECT_EQ(others, nullptr);
}

TEST_F(ThreadSingleton, NoSlotIsAskedWhileNoneIsAlive) {
  static int asked = 0;
  asked = 0;
  os_runtimeCalls().tlsGetValue = [](unsigned number) {
    ++asked;
    return os_RuntimeCalls().tlsGetValue(number);
  };
  EXPECT_EQ(Base::Instance(), nullptr);
  EXPECT_FALSE(Singleton::Release());
  EXPECT_EQ(asked, 0);
  Singleton::Instance();
  Base::Instance();
  EXPECT_EQ(asked, 1);
}

TEST_F(ThreadSingleton, IsMadeOnceAThread) {
  Thing& thing = Singleton::Instance();
  EXPECT_EQ(&Singleton::Instance(), &thing);
  EXPECT_EQ(Base::Instance(), &thing);
  EXPECT_EQ(alive, 1);
}

TEST_F(ThreadSingleton, IsAnotherOneOnAnotherThread) {
  Thing* const mine = &Singleton::Instance();
  Thing* before = mine;
  Thing* others = nullptr;
  unsigned countInside = 0;
  std::thread([&] {
    before = Base::Instance();
    others = &Singleton::Instance();
    countInside = liveCount();
  }).join();
  EXPECT_EQ(before, nullptr);
  EXPECT_NE(others, mine);
  EXPECT_EQ(countInside, 2U);
  EXPECT_EQ(liveCount(), 1U);
}

TEST_F(ThreadSingleton, GoesWithItsThread) {
  std::thread([] { Singleton::Instance(); }).join();
  EXPECT_EQ(alive, 0);
  EXPECT_EQ(liveCount(), 0U);
}

TEST_F(ThreadSingleton, ReleaseSaysWhetherThereWasOne) {
  EXPECT_FALSE(Singleton::Release());
  Singleton::Instance();
  EXPECT_TRUE(Singleton::Release());
  EXPECT_FALSE(Singleton::Release());
  EXPECT_EQ(Base::Instance(), nullptr);
}

TEST_F(ThreadSingleton, ReleaseLeavesOtherThreadsAlone) {
  Singleton::Instance().value = 5;
  bool releasedThere = true;
  std::thread([&releasedThere] { releasedThere = Singleton::Release(); }).join();
  EXPECT_FALSE(releasedThere);
  EXPECT_EQ(Singleton::Instance().value, 5);
}

TEST_F(ThreadSingleton, TheSlotIsTakenWithTheFirstAndFreedWithTheLast) {
  EXPECT_EQ(slot(), TLS_OUT_OF_INDEXES);
  Singleton::Instance();
  unsigned const taken = slot();
  EXPECT_NE(taken, TLS_OUT_OF_INDEXES);
  std::thread([taken] {
    Singleton::Instance();
    EXPECT_EQ(slot(), taken);
  }).join();
  EXPECT_EQ(slot(), taken);
  Singleton::Release();
  EXPECT_EQ(slot(), 0xffffffffU);
}

TEST_F(ThreadSingleton, TheNextInstanceTakesANewSlot) {
  static int taken = 0;
  static int freed = 0;
  taken = 0;
  freed = 0;
  os_runtimeCalls().tlsAlloc = [] {
    ++taken;
    return os_RuntimeCalls().tlsAlloc();
  };
  os_runtimeCalls().tlsFree = [](unsigned number) {
    ++freed;
    return os_RuntimeCalls().tlsFree(number);
  };
  Singleton::Instance().value = 7;
  Singleton::Instance();
  Singleton::Release();
  EXPECT_EQ(Singleton::Instance().value, 0);
  Singleton::Release();
  Singleton::Release();
  EXPECT_EQ(taken, 2);
  EXPECT_EQ(freed, 2);
}

TEST_F(ThreadSingleton, IsStillInItsSlotWhileItIsDestroyed) {
  Singleton::Instance();
  Singleton::Release();
  EXPECT_TRUE(seesItselfWhileDestroyed);
}

TEST_F(ThreadSingleton, RegistersItsReleaseBeforeItIsMadeAndSetsItsLevelAfterwards) {
  auto& registry = thr_GlobalSingleton<thr_ThrSingletonRegistry>::Instance();
  registry.ReleaseThread();
  Singleton::Instance();
  EXPECT_EQ(registry.Size(), 1U);
  Singleton::Instance();
  EXPECT_EQ(registry.Size(), 1U);
  EXPECT_EQ(registry.ReleaseThread(), 1U);
  EXPECT_EQ(Base::Instance(), nullptr);
}

TEST_F(ThreadSingleton, GoesAtLevelEight) {
  static bool thingThereAtSeven = false;
  static bool thingThereAtNine = true;
  std::thread([] {
    auto& registry = thr_GlobalSingleton<thr_ThrSingletonRegistry>::Instance();
    Singleton::Instance();
    constexpr auto atNine = [] { return thingThereAtNine = Base::Instance() != nullptr; };
    constexpr auto atSeven = [] { return thingThereAtSeven = Base::Instance() != nullptr; };
    registry.Register(atNine);
    registry.SetDestructLevel(atNine, 9);
    registry.Register(atSeven);
    registry.SetDestructLevel(atSeven, 7);
  }).join();
  EXPECT_TRUE(thingThereAtSeven);
  EXPECT_FALSE(thingThereAtNine);
}

TEST_F(ThreadSingleton, AConstructorThatThrowsLeavesNothing) {
  constructorThrows = true;
  EXPECT_THROW(Singleton::Instance(), std::runtime_error);
  EXPECT_EQ(Base::Instance(), nullptr);
  EXPECT_EQ(liveCount(), 0U);
  EXPECT_EQ(slot(), TLS_OUT_OF_INDEXES);
}

TEST_F(ThreadSingleton, AConstructorThatThrowsLeavesOtherThreadsTheirs) {
  Singleton::Instance();
  constructorThrows = true;
  std::thread([] { EXPECT_THROW(Singleton::Instance(), std::runtime_error); }).join();
  EXPECT_EQ(liveCount(), 1U);
  EXPECT_NE(Base::Instance(), nullptr);
}

TEST_F(ThreadSingleton, WithoutASlotThereIsNoObject) {
  os_runtimeCalls().tlsAlloc = [] { return TLS_OUT_OF_INDEXES; };
  EXPECT_THROW(Singleton::Instance(), std::bad_alloc);
  EXPECT_EQ(liveCount(), 0U);
  EXPECT_EQ(alive, 0);
}

TEST_F(ThreadSingleton, AFullSlotTableCountsNothing) {
  os_runtimeCalls().tlsSetValue = [](unsigned, void*) { return false; };
  EXPECT_THROW(Singleton::Instance(), std::bad_alloc);
  EXPECT_EQ(liveCount(), 0U);
  EXPECT_EQ(slot(), TLS_OUT_OF_INDEXES);
}

TEST_F(ThreadSingleton, ChangesSlotAndCountUnderTheGlobalLockOnly) {
  // Another thread holds the lock: a first instance waits for it, and nothing is changed meanwhile.
  thr_GlobalLock& lock = omi_Singleton<thr_GlobalLock>::Instance();
  lock.Lock();
  std::atomic<bool> begun{false};
  std::atomic<bool> done{false};
  std::thread thread([&] {
    begun = true;
    begun.notify_one();
    Singleton::Instance();
    done = true;
  });
  begun.wait(false);
  for (int turn = 0; turn < 1000; ++turn) {
    std::this_thread::yield();
    ASSERT_EQ(liveCount(), 0U);
    ASSERT_FALSE(done);
  }
  lock.Unlock();
  thread.join();
  EXPECT_TRUE(done);
}

TEST_F(ThreadSingleton, TheGlobalLockMayBeHeldMoreThanOnceByAThread) {
  thr_GlobalLock& lock = omi_Singleton<thr_GlobalLock>::Instance();
  lock.Lock();
  Singleton::Instance();
  EXPECT_EQ(liveCount(), 1U);
  lock.Unlock();
}

TEST_F(ThreadSingleton, ThreadsUnderLoadKeepTheCountRight) {
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([&wrong, thread] {
      for (int round = 0; round < 500; ++round) {
        Thing& thing = Singleton::Instance();
        thing.value = thread * 1000 + round;
        std::this_thread::yield();
        if (&Singleton::Instance() != &thing || thing.value != thread * 1000 + round) {
          ++wrong;
        }
        if (round % 2 == 0 && (!Singleton::Release() || Base::Instance() != nullptr)) {
          ++wrong;
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(alive, 0);
}

TEST_F(ThreadSingleton, AThreadMayEndAfterTheLibraryWasStopped) {
  int libraries = 0;
  thr_initialize(libraries);
  std::atomic<bool> made{false};
  std::atomic<bool> stopped{false};
  std::thread thread([&] {
    Singleton::Instance();
    made = true;
    made.notify_one();
    stopped.wait(false);
  });
  made.wait(false);
  thr_finalize(libraries);
  EXPECT_EQ(alive, 1);
  stopped = true;
  stopped.notify_one();
  thread.join();
  EXPECT_EQ(alive, 0);
}

TEST(SharedThreadSingleton, IsOneAcrossSharedLibraries) {
  TestSingleton& here = thr_ThreadSingleton<TestSingleton>::Instance();
  EXPECT_EQ(&here, testSingletonOfTheOtherLibrary());
  EXPECT_EQ(&TestSingleton::SlotState(), testSlotStateOfTheOtherLibrary());
  EXPECT_TRUE(releaseTestSingletonOfTheOtherLibrary());
  EXPECT_EQ(thr_ThreadSingletonBase<TestSingleton>::Instance(), nullptr);
}

TEST(SharedThreadSingleton, HasOneReleaseFunctionAcrossSharedLibraries) {
  auto& registry = thr_GlobalSingleton<thr_ThrSingletonRegistry>::Instance();
  registry.ReleaseThread();
  thr_ThreadSingleton<TestSingleton>::Instance();
  thr_ThreadSingleton<TestSingleton>::Release();
  testSingletonOfTheOtherLibrary();
  EXPECT_EQ(registry.Size(), 1U);
  EXPECT_EQ(registry.ReleaseThread(), 1U);
}

} // namespace
