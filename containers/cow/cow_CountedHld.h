// A counted holder of one object: the base of all copy-on-write handles.
#pragma once

#include "cow_Counter.h"

#include <cstddef>
#include <memory>
#include <utility>

/// Owner of an object that several holders share.
///
/// All holders that share an object share one counter, and its value is the number of those holders. A holder
/// is empty (no object), sole owner (count 1) or sharer. A holder that was moved from has neither object nor
/// counter; it may be assigned to, copied and destroyed. Use cow_COW where writing must not be seen by the
/// other sharers. The count is a plain number: a holder and all that share its object belong to one thread at
/// a time.
/// \tparam T the held type; may be incomplete where the holder is only declared.
template <class T>
class DDR_API cow_CountedHld {
public:
  /// An empty holder with a counter of its own. \throws std::bad_alloc.
  cow_CountedHld() : count(new cow_Counter(1)), object(nullptr) {}
  /// A sole owner. \param adopted adopts it, also when this throws; may be null. \throws std::bad_alloc.
  explicit cow_CountedHld(T* adopted);
  /// Shares the object: one increment.
  cow_CountedHld(cow_CountedHld const& other) noexcept : count(other.count), object(other.object) {
    AddRef();
  }
  /// Takes the object.
  cow_CountedHld(cow_CountedHld&& other) noexcept
      : count(std::exchange(other.count, nullptr)), object(std::exchange(other.object, nullptr)) {}
  /// Shares the object of \p other and lets go of the own one, which is destroyed when this was its last
  /// holder. Assigning a holder to itself or to a sharer of its object changes nothing.
  cow_CountedHld& operator=(cow_CountedHld const& other) noexcept {
    other.AddRef();
    cow_Counter* const newCount = other.count;
    T* const newObject = other.object;
    Release();
    count = newCount;
    object = newObject;
    return *this;
  }
  /// Takes the object of \p other and lets go of the own one.
  cow_CountedHld& operator=(cow_CountedHld&& other) noexcept {
    cow_Counter* const newCount = std::exchange(other.count, nullptr);
    T* const newObject = std::exchange(other.object, nullptr);
    Release();
    count = newCount;
    object = newObject;
    return *this;
  }
  /// Replaces the object. Other sharers keep the old one and their counter; a sole owner destroys it.
  /// \param adopted adopts it, also when this throws; may be null.
  /// \return this holder, now sole owner.
  /// \throws std::bad_alloc; then the holder is unchanged.
  cow_CountedHld& operator=(T* adopted);
  /// Lets go of the object; the last holder destroys it.
  ~cow_CountedHld() { Release(); }

  /// The object, or null when there is none. Lives until the last holder lets go.
  T* Peek() const noexcept { return object; }
  /// Whether there is no object.
  bool IsEmpty() const noexcept { return object == nullptr; }
  /// Whether others share the object.
  bool IsShared() const noexcept { return count && count->value > 1; }
  /// The number of holders that share the object, this one included; 0 after a move.
  unsigned Count() const noexcept { return count ? count->value : 0; }

  /// Destroys the object, if any, and frees the counter. Only for a count that has reached 0.
  void Delete() noexcept;

protected:
  template <class Handle>
  friend class cow_Erasure;

  void AddRef() const noexcept {
    if (count) {
      ++count->value;
    }
  }
  void Release() noexcept {
    if (count && --count->value == 0) {
      Delete();
    }
  }
  // For cow_Erasure: a pair that is counted already.
  cow_CountedHld(cow_Counter* counted, T* held) noexcept : count(counted), object(held) {}

  cow_Counter* count;
  T* object;
};

// ---- Implementation ----

template <class T>
cow_CountedHld<T>::cow_CountedHld(T* adopted) : count(nullptr), object(nullptr) {
  std::unique_ptr<T> guard(adopted);
  count = new cow_Counter(1);
  object = guard.release();
}

template <class T>
cow_CountedHld<T>& cow_CountedHld<T>::operator=(T* adopted) {
  if (count && count->value == 1) {
    T* const old = std::exchange(object, adopted);
    if (old != adopted) {
      delete old;
    }
    return *this;
  }
  std::unique_ptr<T> guard(adopted);
  auto* const fresh = new cow_Counter(1);
  Release();
  count = fresh;
  object = guard.release();
  return *this;
}

template <class T>
void cow_CountedHld<T>::Delete() noexcept {
  T* const old = std::exchange(object, nullptr);
  cow_Counter* const oldCount = std::exchange(count, nullptr);
  delete old;
  delete oldCount;
}
