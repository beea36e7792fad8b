// Each thread has a registry of its own, reached through one slot of the process.
#include "ddr_ModuleTest.h"

#include <atomic>
#include <fstream>
#include <memory>
#include <semaphore>
#include <thread>
#include <unistd.h>

namespace {

/// Writes down what is done with the one slot that it gives out.
struct Slots {
  Texts calls;
};

/// The calling thread's value of that slot. Plain, so that it can be read until the thread has ended.
constinit thread_local void* slotValue = nullptr;

Slots* slots = nullptr;

/// A thread that wants the global lock, and how far it gets.
class LockSeeker {
public:
  LockSeeker()
      : seeker([this] {
          thread = gettid();
          omi_Singleton<thr_GlobalLock>::Instance().Lock();
          taken = true;
          omi_Singleton<thr_GlobalLock>::Instance().Unlock();
        }) {}
  ~LockSeeker() { seeker.join(); }
  LockSeeker(LockSeeker const&) = delete;
  LockSeeker& operator=(LockSeeker const&) = delete;

  /// Waits until the thread has the lock or sleeps because it cannot have it.
  /// @return whether it sleeps
  bool IsKeptWaiting() const {
    while (!taken) {
      if (thread != 0 && sleeps()) {
        return !taken;
      }
      std::this_thread::yield();
    }
    return false;
  }

private:
  bool sleeps() const {
    std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string text;
    std::getline(status, text);
    auto const name = text.rfind(") ");
    return name != std::string::npos && text.compare(name + 2, 1, "S") == 0;
  }

  std::atomic<bool> taken{false};
  std::atomic<pid_t> thread{0};
  std::thread seeker;
};

class DdrRootThreads : public ::testing::Test {
protected:
  DdrRootThreads() {
    ddr_initialize(libraries);
    slots = &recorded;
    os_runtimeCalls().tlsAlloc = [] {
      slots->calls.emplace_back("TlsAlloc");
      return 77U;
    };
    os_runtimeCalls().tlsFree = [](unsigned slot) {
      slots->calls.push_back("TlsFree " + std::to_string(slot));
      return true;
    };
    os_runtimeCalls().tlsSetValue = [](unsigned slot, void* value) {
      slots->calls.push_back("TlsSetValue " + std::to_string(slot) + (value == nullptr ? " null" : " value"));
      slotValue = value;
      return true;
    };
    os_runtimeCalls().tlsGetValue = [](unsigned slot) { return slot == 77 ? slotValue : nullptr; };
  }
  ~DdrRootThreads() override {
    ddr_finalize(libraries);
    os_runtimeCalls() = os_RuntimeCalls();
    slots = nullptr;
  }

  static void inThread(std::function<void()> const& work) { std::thread(work).join(); }

  int libraries = 0;
  Slots recorded;
};

using Registry = thr_ThreadSingleton<ddr_Root>;
using RegistryBase = thr_ThreadSingletonBase<ddr_Root>;

TEST_F(DdrRootThreads, AFreshThreadHasNoRegistry) {
  inThread([] { EXPECT_EQ(RegistryBase::Instance(), nullptr); });
  EXPECT_TRUE(recorded.calls.empty());
}

TEST_F(DdrRootThreads, AThreadHasTheSameRegistryOnEveryCall) {
  inThread([] {
    ddr_Root* const made = &Registry::Instance();
    EXPECT_EQ(RegistryBase::Instance(), made);
    EXPECT_EQ(&Registry::Instance(), made);
    EXPECT_EQ(&ddr_Root::Instance(), made);
  });
}

TEST_F(DdrRootThreads, EachThreadHasItsOwn) {
  ddr_Root* const here = &Registry::Instance();
  inThread([here] {
    EXPECT_EQ(RegistryBase::Instance(), nullptr);
    EXPECT_NE(&Registry::Instance(), here);
  });
  EXPECT_EQ(RegistryBase::Instance(), here);
}

TEST_F(DdrRootThreads, TheFirstRegistryTakesTheSlotAndLaterOnesShareIt) {
  Registry::Instance();
  EXPECT_EQ(recorded.calls, (Texts{"TlsAlloc", "TlsSetValue 77 value"}));
  EXPECT_EQ(RegistryBase::SlotState().liveCount, 1U);
  EXPECT_EQ(RegistryBase::SlotState().slot, 77U);
  recorded.calls.clear();
  inThread([] {
    Registry::Instance();
    EXPECT_EQ(RegistryBase::SlotState().liveCount, 2U);
    EXPECT_EQ(slots->calls, Texts{"TlsSetValue 77 value"});
  });
}

TEST_F(DdrRootThreads, TheLastReleaseFreesTheSlot) {
  Registry::Instance();
  recorded.calls.clear();
  EXPECT_TRUE(Registry::Release());
  EXPECT_EQ(recorded.calls, (Texts{"TlsSetValue 77 null", "TlsFree 77"}));
  EXPECT_EQ(RegistryBase::SlotState().liveCount, 0U);
  EXPECT_EQ(RegistryBase::SlotState().slot, 0xffffffffU);
}

TEST_F(DdrRootThreads, AReleaseBesideOtherRegistriesKeepsTheSlot) {
  Registry::Instance();
  inThread([] {
    Registry::Instance();
    slots->calls.clear();
    EXPECT_TRUE(Registry::Release());
    EXPECT_EQ(slots->calls, Texts{"TlsSetValue 77 null"});
    EXPECT_EQ(RegistryBase::SlotState().liveCount, 1U);
    EXPECT_EQ(RegistryBase::SlotState().slot, 77U);
  });
}

TEST_F(DdrRootThreads, ReleaseWithoutAnyRegistryAnswersFalseAndDoesNothing) {
  EXPECT_FALSE(Registry::Release());
  EXPECT_TRUE(recorded.calls.empty());
}

TEST_F(DdrRootThreads, ReleaseOnAThreadWithoutARegistryAnswersFalse) {
  Registry::Instance();
  recorded.calls.clear();
  inThread([] { EXPECT_FALSE(Registry::Release()); });
  EXPECT_EQ(recorded.calls, Texts{"TlsSetValue 77 null"});
  EXPECT_EQ(RegistryBase::SlotState().liveCount, 1U);
}

TEST_F(DdrRootThreads, ANewRegistryAfterTheLastReleaseTakesASlotAgain) {
  Registry::Instance();
  Registry::Release();
  recorded.calls.clear();
  Registry::Instance();
  EXPECT_EQ(recorded.calls, (Texts{"TlsAlloc", "TlsSetValue 77 value"}));
}

/// Whether another thread could not have the lock when the slot was taken or freed.
struct LockSeen {
  bool held = false;
  std::unique_ptr<LockSeeker> seeker;
};
LockSeen* lockSeen = nullptr;

void lookAtLock() {
  lockSeen->seeker = std::make_unique<LockSeeker>();
  lockSeen->held = lockSeen->seeker->IsKeptWaiting();
}

TEST_F(DdrRootThreads, TheSlotIsTakenUnderTheGlobalLock) {
  LockSeen seen;
  lockSeen = &seen;
  os_runtimeCalls().tlsAlloc = [] {
    lookAtLock();
    return 77U;
  };
  Registry::Instance();
  EXPECT_TRUE(seen.held);
}

TEST_F(DdrRootThreads, TheSlotIsFreedUnderTheGlobalLock) {
  LockSeen seen;
  lockSeen = &seen;
  os_runtimeCalls().tlsFree = [](unsigned) {
    lookAtLock();
    return true;
  };
  Registry::Instance();
  Registry::Release();
  EXPECT_TRUE(seen.held);
  os_runtimeCalls().tlsFree = [](unsigned) { return true; };
}

TEST_F(DdrRootThreads, TheRegistryIsReleasedWithTheThread) {
  inThread([] { Registry::Instance(); });
  EXPECT_EQ(RegistryBase::SlotState().liveCount, 0U);
  EXPECT_EQ(recorded.calls.back(), "TlsFree 77");
}

TEST_F(DdrRootThreads, AThreadThatEndsAfterTheLastStopReleasesItsRegistry) {
  std::binary_semaphore made(0);
  std::binary_semaphore stopped(0);
  std::thread other([&] {
    Registry::Instance();
    made.release();
    stopped.acquire();
  });
  made.acquire();
  ddr_finalize(libraries);
  EXPECT_EQ(RegistryBase::SlotState().liveCount, 1U);
  stopped.release();
  other.join();
  EXPECT_EQ(RegistryBase::SlotState().liveCount, 0U);
  ddr_initialize(libraries); // the fixture stops it
}

Texts* releases = nullptr;
template <int Level>
bool noteRelease() {
  releases->push_back(std::to_string(Level) +
                      (RegistryBase::Instance() != nullptr ? " with registry" : " without registry"));
  return true;
}

TEST_F(DdrRootThreads, TheRegistryGoesAtDestructLevelEight) {
  Texts seen;
  releases = &seen;
  inThread([] {
    auto& singletons = thr_GlobalSingleton<thr_ThrSingletonRegistry>::Instance();
    singletons.Register(&noteRelease<9>);
    singletons.SetDestructLevel(&noteRelease<9>, 9);
    Registry::Instance();
    singletons.Register(&noteRelease<7>);
    singletons.SetDestructLevel(&noteRelease<7>, 7);
    singletons.Register(&noteRelease<8>);
    singletons.SetDestructLevel(&noteRelease<8>, 8);
  });
  // Level 8 registered behind the registry finds it gone: equal levels go in the order registered.
  EXPECT_EQ(seen, (Texts{"7 with registry", "8 without registry", "9 without registry"}));
}

TEST_F(DdrRootThreads, ADatabaseOfOneThreadIsUnknownToAnother) {
  ddr_DdbContainer container;
  container.Insert("memory", ddr_Ddb("memory", "id", ""));
  Registry::Instance().Replace(container);
  EXPECT_EQ(Registry::Instance().Fetch().Size(), 1);
  inThread([] { EXPECT_EQ(Registry::Instance().Fetch().Size(), 0); });
}

TEST_F(DdrRootThreads, WithoutASlotThereIsNoRegistryAndNothingIsCounted) {
  os_runtimeCalls().tlsAlloc = [] { return TLS_OUT_OF_INDEXES; };
  EXPECT_THROW(Registry::Instance(), std::bad_alloc);
  EXPECT_EQ(RegistryBase::SlotState().liveCount, 0U);
  EXPECT_EQ(RegistryBase::Instance(), nullptr);
}

} // namespace
