// The call observer and the nest count that reports to it.
#include "os_LibraryCount.h"
#include "os_Recorder.h"
#include "os_Tls.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

using Calls = std::vector<std::string>;

void note(char const* call, unsigned number, void* context) {
  static_cast<Calls*>(context)->push_back(std::string(call) + " " + std::to_string(number));
}

class Recorder : public testing::Test {
protected:
  Recorder() { os_setCallObserver(note, &calls); }
  ~Recorder() override { os_setCallObserver(nullptr, nullptr); }

  Calls calls;
};

TEST_F(Recorder, TellsNameAndNumberInOrder) {
  os_recordCall("first");
  os_recordCall("second", 4);
  EXPECT_EQ(calls, (Calls{"first 0", "second 4"}));
}

TEST_F(Recorder, TellsNothingOnceTheObserverIsRemoved) {
  os_setCallObserver(nullptr, nullptr);
  os_recordCall("unseen");
  EXPECT_EQ(calls, Calls{});
}

TEST_F(Recorder, ANewObserverReplacesTheFormerOne) {
  Calls others;
  os_setCallObserver(note, &others);
  os_recordCall("call");
  EXPECT_EQ(calls, Calls{});
  EXPECT_EQ(others, Calls{"call 0"});
}

TEST_F(Recorder, AnObserverMayRemoveItself) {
  static int seen = 0;
  seen = 0;
  os_setCallObserver(
      [](char const*, unsigned, void*) {
        ++seen;
        os_setCallObserver(nullptr, nullptr);
      },
      nullptr);
  os_recordCall("call");
  os_recordCall("call");
  EXPECT_EQ(seen, 1);
}

TEST_F(Recorder, OneCallAtATimeReachesTheObserver) {
  struct Seen {
    std::atomic<int> inside{0};
    std::atomic<bool> overlapped{false};
    int count = 0; // plain: only safe when calls do not overlap
  } seen;
  os_setCallObserver(
      [](char const*, unsigned, void* context) {
        auto* const all = static_cast<Seen*>(context);
        if (all->inside.fetch_add(1) != 0) {
          all->overlapped = true;
        }
        ++all->count;
        all->inside.fetch_sub(1);
      },
      &seen);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([] {
      for (int call = 0; call < 2000; ++call) {
        os_recordCall("call");
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(seen.count, 8000);
  EXPECT_FALSE(seen.overlapped);
}

TEST_F(Recorder, SeesTheLoadersNotificationsTurnedOff) {
  DisableThreadLibraryCalls(nullptr);
  EXPECT_EQ(calls, Calls{"DisableThreadLibraryCalls 0"});
}

class LibraryCount : public Recorder {
protected:
  os_LibraryCount count{"x_initialize", "x_finalize"};
  int libraries = 10;
};

TEST_F(LibraryCount, FirstStartWorksAndAddsOne) {
  EXPECT_TRUE(count.Initialize(libraries));
  EXPECT_EQ(libraries, 11);
  EXPECT_EQ(count.Nesting(), 1U);
}

TEST_F(LibraryCount, NestedStartOnlyCounts) {
  count.Initialize(libraries);
  EXPECT_FALSE(count.Initialize(libraries));
  EXPECT_EQ(libraries, 11);
  EXPECT_EQ(count.Nesting(), 2U);
}

TEST_F(LibraryCount, LastStopWorksAndTakesOneOff) {
  count.Initialize(libraries);
  count.Initialize(libraries);
  EXPECT_FALSE(count.Finalize(libraries));
  EXPECT_EQ(libraries, 11);
  EXPECT_TRUE(count.Finalize(libraries));
  EXPECT_EQ(libraries, 10);
}

TEST_F(LibraryCount, StopWithoutStartChangesNothing) {
  EXPECT_FALSE(count.Finalize(libraries));
  EXPECT_EQ(libraries, 10);
  EXPECT_EQ(count.Nesting(), 0U);
  EXPECT_TRUE(count.Initialize(libraries));
}

TEST_F(LibraryCount, StartsAgainAfterTheLastStop) {
  count.Initialize(libraries);
  count.Finalize(libraries);
  EXPECT_TRUE(count.Initialize(libraries));
  EXPECT_EQ(libraries, 11);
}

TEST_F(LibraryCount, RecordsEveryCallNestedOnesToo) {
  count.Initialize(libraries);
  count.Initialize(libraries);
  count.Finalize(libraries);
  count.Finalize(libraries);
  EXPECT_EQ(calls, (Calls{"x_initialize 0", "x_initialize 0", "x_finalize 0", "x_finalize 0"}));
}

} // namespace
