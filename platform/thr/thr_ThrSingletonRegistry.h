// thr_ThrSingletonRegistry.h: releases a thread's singletons when the thread ends.
#pragma once

#include "os_Export.h"
#include "thr_GlobalSingleton.h"

/// Keeps, for every thread, the release functions of the singletons which that thread made, and calls them
/// when the thread ends: ascending by destruct level, equal levels in the order registered.
///
/// Each thread sees and changes its own list only, so all calls may run at the same time and none locks. The
/// main thread's list is released when the process ends normally, before static objects are destroyed. A
/// thread may end after every library was finalized. What is registered after a thread has released its list
/// at its end is released only by a call of ReleaseThread.
class DDR_API thr_ThrSingletonRegistry {
public:
  /// Releases one singleton of the calling thread; must not throw.
  /// @returns whether there was one
  using Release = bool (*)();

  /// Adds a release function to the calling thread's list, at level 0. One that is in the list already
  /// leaves its place and takes a new one.
  void Register(Release release);

  /// Sets the level of a function that this thread registered; nothing happens when it is not in the list.
  void SetDestructLevel(Release release, int level);

  /// Releases the calling thread's singletons now and empties its list. Singletons that a release makes anew
  /// are released too; after a few rounds what is left is dropped from the list unreleased.
  /// @returns how many functions answered true
  unsigned ReleaseThread();

  /// Release functions in the calling thread's list.
  [[nodiscard]] unsigned Size() const;
};

template <>
DDR_API thr_ThrSingletonRegistry& thr_GlobalSingleton<thr_ThrSingletonRegistry>::Instance();
