// thr_ThrSingletonRegistry.cpp: releases a thread's singletons when the thread ends.
#include "thr_ThrSingletonRegistry.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

namespace {

struct Entry {
  thr_ThrSingletonRegistry::Release release;
  int level;
};

using Entries = std::vector<Entry>;

// As many rounds as the run time gives to thread-specific values whose destructors make new ones.
constexpr int maximalRounds = 4;

// A plain pointer, so that it can still be read by whatever the thread destroys after the guard below.
constinit thread_local Entries* entries = nullptr;

unsigned releaseEntries() {
  unsigned released = 0;
  for (int round = 0; round < maximalRounds && entries != nullptr; ++round) {
    std::unique_ptr<Entries> const taken(std::exchange(entries, nullptr)); // a release may register anew
    std::ranges::stable_sort(*taken, {}, &Entry::level);
    for (Entry const& entry : *taken) {
      released += entry.release() ? 1U : 0U;
    }
  }
  delete entries;
  entries = nullptr;
  return released;
}

// Made by a thread's first registration and destroyed when the thread, or the process, ends.
struct ThreadEndGuard {
  ThreadEndGuard() = default;
  ThreadEndGuard(ThreadEndGuard const&) = delete;
  ThreadEndGuard& operator=(ThreadEndGuard const&) = delete;
  ~ThreadEndGuard() { releaseEntries(); }

  void Arm() const noexcept {} // reaching it is what makes it
};

thread_local ThreadEndGuard const threadEndGuard;

} // namespace

void thr_ThrSingletonRegistry::Register(Release release) {
  threadEndGuard.Arm();
  if (entries == nullptr) {
    entries = new Entries;
  }
  std::erase_if(*entries, [release](Entry const& entry) { return entry.release == release; });
  entries->push_back({release, 0});
}

void thr_ThrSingletonRegistry::SetDestructLevel(Release release, int level) {
  if (entries == nullptr) {
    return;
  }
  auto const entry = std::ranges::find(*entries, release, &Entry::release);
  if (entry != entries->end()) {
    entry->level = level;
  }
}

unsigned thr_ThrSingletonRegistry::ReleaseThread() {
  return releaseEntries();
}

unsigned thr_ThrSingletonRegistry::Size() const {
  return entries == nullptr ? 0 : static_cast<unsigned>(entries->size());
}

// Without data of its own, so that it cannot end before a thread does.
template <>
thr_ThrSingletonRegistry& thr_GlobalSingleton<thr_ThrSingletonRegistry>::Instance() {
  static thr_ThrSingletonRegistry one;
  return one;
}
