// What is released when a thread ends, and in which order.
#include "thr_Library.h"
#include "thr_ThrSingletonRegistry.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

// Set and read by one thread at a time; the joins between order them.
std::string released;
int remakes = 0;

thr_ThrSingletonRegistry& registry() {
  return thr_GlobalSingleton<thr_ThrSingletonRegistry>::Instance();
}

bool releaseA() {
  released += 'a';
  return true;
}

bool releaseB() {
  released += 'b';
  return true;
}

bool releaseC() {
  released += 'c';
  return true;
}

bool releaseNothing() {
  released += '-';
  return false;
}

// Its destructor reaches for another singleton, which is thereby made anew.
bool releaseAndMakeB() {
  released += 'm';
  registry().Register(releaseB);
  return true;
}

bool releaseAndMakeItself() {
  ++remakes;
  registry().Register(releaseAndMakeItself);
  return true;
}

// Forty release functions, each noting its number; levels are 8 and 9 in turn.
template <int number>
bool releaseNumber() {
  released += std::to_string(number) + " ";
  return true;
}

template <int... numbers>
void registerNumbers(std::integer_sequence<int, numbers...>) {
  (registry().Register(releaseNumber<numbers>), ...);
  (registry().SetDestructLevel(releaseNumber<numbers>, 8 + numbers % 2), ...);
}

class SingletonRegistry : public testing::Test {
protected:
  SingletonRegistry() {
    released.clear();
    remakes = 0;
  }

  // What is released by the end of a thread that did `work`.
  static std::string threadThatDid(std::function<void()> const& work) {
    std::thread(work).join();
    return released;
  }
};

TEST_F(SingletonRegistry, ReleasesInAscendingLevel) {
  EXPECT_EQ(threadThatDid([] {
              registry().Register(releaseA);
              registry().SetDestructLevel(releaseA, 8);
              registry().Register(releaseB);
              registry().SetDestructLevel(releaseB, 3);
              registry().Register(releaseC);
              registry().SetDestructLevel(releaseC, -1);
            }),
            "cba");
}

TEST_F(SingletonRegistry, EqualLevelsGoInTheOrderRegistered) {
  EXPECT_EQ(threadThatDid([] {
              for (auto const release : {releaseB, releaseA, releaseC}) {
                registry().Register(release);
                registry().SetDestructLevel(release, 8);
              }
            }),
            "bac");
}

TEST_F(SingletonRegistry, ManyOfEqualLevelGoInTheOrderRegisteredToo) {
  std::string expected;
  for (int const remainder : {0, 1}) {
    for (int number = remainder; number < 40; number += 2) {
      expected += std::to_string(number) + " ";
    }
  }
  EXPECT_EQ(threadThatDid([] { registerNumbers(std::make_integer_sequence<int, 40>()); }), expected);
}

TEST_F(SingletonRegistry, LevelIsZeroUntilSet) {
  EXPECT_EQ(threadThatDid([] {
              registry().Register(releaseA);
              registry().SetDestructLevel(releaseA, 1);
              registry().Register(releaseB);
              registry().Register(releaseC);
              registry().SetDestructLevel(releaseC, -1);
            }),
            "cba");
}

TEST_F(SingletonRegistry, SettingALevelAddsNothing) {
  EXPECT_EQ(threadThatDid([] {
              registry().SetDestructLevel(releaseA, 8);
              registry().Register(releaseB);
              registry().SetDestructLevel(releaseC, 8);
            }),
            "b");
}

TEST_F(SingletonRegistry, SettingALevelAgainMoves) {
  EXPECT_EQ(threadThatDid([] {
              registry().Register(releaseA);
              registry().SetDestructLevel(releaseA, 1);
              registry().Register(releaseB);
              registry().SetDestructLevel(releaseB, 2);
              registry().SetDestructLevel(releaseA, 3);
            }),
            "ba");
}

TEST_F(SingletonRegistry, AFunctionIsReleasedOnceAtItsLastPlace) {
  EXPECT_EQ(threadThatDid([] {
              registry().Register(releaseA);
              registry().SetDestructLevel(releaseA, -5);
              registry().Register(releaseB);
              registry().Register(releaseA);
            }),
            "ba");
}

TEST_F(SingletonRegistry, AThreadReleasesItsOwnOnly) {
  registry().Register(releaseA);
  EXPECT_EQ(threadThatDid([] { registry().Register(releaseB); }), "b");
  EXPECT_EQ(registry().Size(), 1U);
  EXPECT_EQ(registry().ReleaseThread(), 1U);
  EXPECT_EQ(released, "ba");
}

TEST_F(SingletonRegistry, ALevelBelongsToTheThreadThatSetIt) {
  registry().Register(releaseA);
  registry().Register(releaseB);
  std::thread([] {
    registry().SetDestructLevel(releaseA, 8); // not registered there
  }).join();
  registry().ReleaseThread();
  EXPECT_EQ(released, "ab");
}

TEST_F(SingletonRegistry, ExplicitReleaseCountsWhatWasThereAndEmptiesTheList) {
  registry().Register(releaseA);
  registry().Register(releaseNothing);
  EXPECT_EQ(registry().Size(), 2U);
  EXPECT_EQ(registry().ReleaseThread(), 1U);
  EXPECT_EQ(registry().Size(), 0U);
  EXPECT_EQ(registry().ReleaseThread(), 0U);
  EXPECT_EQ(released, "a-");
}

TEST_F(SingletonRegistry, NothingIsReleasedTwice) {
  EXPECT_EQ(threadThatDid([] {
              registry().Register(releaseA);
              registry().ReleaseThread();
            }),
            "a");
}

TEST_F(SingletonRegistry, WhatAReleaseMakesAnewIsReleasedToo) {
  EXPECT_EQ(threadThatDid([] {
              registry().Register(releaseAndMakeB);
              registry().Register(releaseA);
            }),
            "mab");
}

TEST_F(SingletonRegistry, AReleaseThatAlwaysMakesItselfAnewComesToAnEnd) {
  std::thread([] { registry().Register(releaseAndMakeItself); }).join();
  EXPECT_EQ(remakes, 4);
}

TEST_F(SingletonRegistry, AThreadMayEndAfterTheLibraryWasStopped) {
  int libraries = 0;
  thr_initialize(libraries);
  std::atomic<bool> registered{false};
  std::atomic<bool> stopped{false};
  std::thread thread([&] {
    registry().Register(releaseA);
    registered = true;
    registered.notify_one();
    stopped.wait(false);
  });
  registered.wait(false);
  thr_finalize(libraries);
  ASSERT_EQ(libraries, 0);
  stopped = true;
  stopped.notify_one();
  thread.join();
  EXPECT_EQ(released, "a");
}

TEST_F(SingletonRegistry, ThreadsUnderLoadReleaseAllTheirOwn) {
  static std::atomic<int> count;
  count = 0;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([] {
      for (int round = 0; round < 200; ++round) {
        registry().Register([] {
          ++count;
          return true;
        });
        registry().Register(+[] { return false; });
        if (round % 3 == 0) {
          registry().ReleaseThread();
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(count, 8 * (67 + 1)); // every third round and the end of the thread
}

// Something of the thread's that is destroyed after its singletons were released.
struct Late {
  Late() = default;
  Late(Late const&) = delete;
  Late& operator=(Late const&) = delete;
  ~Late() {
    if (armed) {
      registry().Register(releaseC);
      registry().SetDestructLevel(releaseC, 1);
      registry().ReleaseThread();
    }
  }

  bool armed = false;
};

TEST_F(SingletonRegistry, CanBeUsedAfterTheThreadReleasedItsList) {
  EXPECT_EQ(threadThatDid([] {
              static thread_local Late late;
              late.armed = true; // made before the registry's own, destroyed after it
              registry().Register(releaseA);
            }),
            "ac");
}

using SingletonRegistryDeathTest = SingletonRegistry;

TEST_F(SingletonRegistryDeathTest, TheMainThreadReleasesWhenTheProcessEnds) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        registry().Register([] {
          std::fputs("released at exit", stderr);
          return true;
        });
        std::exit(3);
      },
      testing::ExitedWithCode(3), "released at exit");
}

} // namespace
