// thr_GlobalLock.h: the process's one global lock.
#pragma once

#include "omi_Singleton.h"
#include "os_Export.h"

#include <mutex>

/// Guards the few things that all threads share: the slots and counts of the per-thread singletons. Reached
/// as `omi_Singleton<thr_GlobalLock>::Instance()`, usable from the first to the last moment of the process.
/// A thread may lock it again while it holds it. Usable with std::lock_guard.
class DDR_API thr_GlobalLock {
public:
  thr_GlobalLock() = default;
  thr_GlobalLock(thr_GlobalLock const&) = delete;
  thr_GlobalLock& operator=(thr_GlobalLock const&) = delete;

  /// Waits until no other thread holds the lock, then holds it.
  void Lock();
  /// Gives up one hold; the calling thread must have one.
  void Unlock();

  // NOLINTNEXTLINE(readability-identifier-naming): the names that std::lock_guard asks for
  void lock() { Lock(); }
  // NOLINTNEXTLINE(readability-identifier-naming)
  void unlock() { Unlock(); }

private:
  std::recursive_mutex mutex;
};

template <>
DDR_API thr_GlobalLock& omi_Singleton<thr_GlobalLock>::Instance();
