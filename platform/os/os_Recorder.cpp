// os_Recorder.cpp: the one call observer of the process.
#include "os_Recorder.h"

#include <atomic>
#include <mutex>

namespace {

struct ObserverSlot {
  std::recursive_mutex mutex; // recursive: an observer may replace itself
  os_CallObserver observer = nullptr;
  void* context = nullptr;
};

// Read before the lock, so that a program without an observer never takes it.
constinit std::atomic<bool> observed{false};

// Never destroyed: libraries still report while the process goes down.
ObserverSlot& observerSlot() {
  static ObserverSlot* const slot = new ObserverSlot;
  return *slot;
}

} // namespace

void os_setCallObserver(os_CallObserver observer, void* context) {
  ObserverSlot& slot = observerSlot();
  std::lock_guard const guard(slot.mutex);
  slot.observer = observer;
  slot.context = context;
  observed.store(observer != nullptr, std::memory_order_release);
}

void os_recordCall(char const* call, unsigned number) noexcept {
  if (!observed.load(std::memory_order_acquire)) {
    return;
  }
  ObserverSlot& slot = observerSlot();
  std::lock_guard const guard(slot.mutex);
  if (slot.observer != nullptr) {
    slot.observer(call, number, slot.context);
  }
}
