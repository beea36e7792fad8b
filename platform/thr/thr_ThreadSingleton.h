// thr_ThreadSingleton.h: one object a thread, reached through a slot.
#pragma once

#include "omi_Singleton.h"
#include "os_Export.h"
#include "os_Tls.h"
#include "thr_GlobalLock.h"
#include "thr_GlobalSingleton.h"
#include "thr_ThrSingletonRegistry.h"

#include <atomic>
#include <mutex>
#include <new>

/// What all objects of one per-thread singleton type share: the slot that holds each thread's object and how
/// many are alive. Changed under the global lock only.
struct thr_SlotState {
  std::atomic<unsigned> slot{TLS_OUT_OF_INDEXES};
  std::atomic<unsigned> liveCount{0};
};

template <typename T>
class DDR_API thr_ThreadSingleton;

/// Base of a type T of which each thread has at most one object: `class T : public
/// thr_ThreadSingletonBase<T>`. T befriends thr_ThreadSingleton<T>, which makes and releases the objects; a
/// constructor of T sets its destruct level with thr_ThrSingletonRegistry::SetDestructLevel. A type that is
/// seen from several shared libraries is instantiated in one of them (`extern template` in its header).
template <typename T>
class DDR_API thr_ThreadSingletonBase {
public:
  thr_ThreadSingletonBase(thr_ThreadSingletonBase const&) = delete;
  thr_ThreadSingletonBase& operator=(thr_ThreadSingletonBase const&) = delete;

  /// @returns the calling thread's object; null when it has none. Never makes one.
  static T* Instance();

  /// The shared state, for reading.
  static thr_SlotState const& SlotState() noexcept { return state; }

protected:
  /// Counts one more object, taking the slot for the first one, and makes this the calling thread's object.
  /// @throws std::bad_alloc when there is no slot; nothing is counted then
  thr_ThreadSingletonBase();
  ~thr_ThreadSingletonBase() = default;

private:
  friend class thr_ThreadSingleton<T>;

  /// The calling thread's object as it is kept in the slot, null when it has none.
  static thr_ThreadSingletonBase* FromSlot();
  /// Counts one object less, giving the slot back after the last one.
  /// @param destroyed whether an object was there to be counted
  static void LeaveSlot(bool destroyed);

  static thr_SlotState state;
};

/// Makes and releases the objects of a per-thread singleton type.
template <typename T>
class DDR_API thr_ThreadSingleton {
public:
  thr_ThreadSingleton() = delete;

  /// The calling thread's object, made on first use; it lives until Release or the thread's end.
  /// @throws what T's constructor throws; the thread then has no object
  static T& Instance();

  /// Destroys the calling thread's object.
  /// @returns whether there was one
  static bool Release();
};

// ---- template bodies ----

template <typename T>
thr_SlotState thr_ThreadSingletonBase<T>::state;

template <typename T>
thr_ThreadSingletonBase<T>::thr_ThreadSingletonBase() {
  {
    std::lock_guard const guard(omi_Singleton<thr_GlobalLock>::Instance());
    if (state.liveCount == 0) {
      unsigned const slot = TlsAlloc();
      if (slot == TLS_OUT_OF_INDEXES) {
        throw std::bad_alloc();
      }
      state.slot = slot;
    }
    ++state.liveCount;
  }
  if (!TlsSetValue(state.slot, this)) {
    LeaveSlot(true);
    throw std::bad_alloc();
  }
}

template <typename T>
thr_ThreadSingletonBase<T>* thr_ThreadSingletonBase<T>::FromSlot() {
  return static_cast<thr_ThreadSingletonBase*>(TlsGetValue(state.slot));
}

template <typename T>
void thr_ThreadSingletonBase<T>::LeaveSlot(bool destroyed) {
  std::lock_guard const guard(omi_Singleton<thr_GlobalLock>::Instance());
  if (destroyed) {
    --state.liveCount;
  }
  if (state.liveCount == 0 && state.slot != TLS_OUT_OF_INDEXES) {
    TlsFree(state.slot);
    state.slot = TLS_OUT_OF_INDEXES;
  }
}

template <typename T>
T* thr_ThreadSingletonBase<T>::Instance() {
  if (state.liveCount < 1) {
    return nullptr;
  }
  return static_cast<T*>(FromSlot());
}

template <typename T>
T& thr_ThreadSingleton<T>::Instance() {
  if (T* const present = thr_ThreadSingletonBase<T>::Instance()) {
    return *present;
  }
  thr_GlobalSingleton<thr_ThrSingletonRegistry>::Instance().Register(&Release);
  try {
    return *new T;
  } catch (...) {
    // The base may have entered the slot before a later part of T failed.
    if (thr_ThreadSingletonBase<T>::state.liveCount != 0 &&
        thr_ThreadSingletonBase<T>::FromSlot() != nullptr) {
      TlsSetValue(thr_ThreadSingletonBase<T>::state.slot, nullptr);
      thr_ThreadSingletonBase<T>::LeaveSlot(true);
    }
    throw;
  }
}

template <typename T>
bool thr_ThreadSingleton<T>::Release() {
  using Base = thr_ThreadSingletonBase<T>;
  if (Base::state.liveCount == 0) {
    return false;
  }
  T* const present = static_cast<T*>(Base::FromSlot());
  delete present;
  TlsSetValue(Base::state.slot, nullptr);
  Base::LeaveSlot(present != nullptr);
  return present != nullptr;
}
