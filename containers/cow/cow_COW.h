// Copy-on-write handles and the two ways in which they copy.
#pragma once

#include "cow_CountedHld.h"

/// Copies through the virtual Copy() of the object, so that a handle typed on a base copies the whole object.
/// \tparam T has `Copy() const`, which returns a new object as T* or as a pointer to a base of T.
template <class T>
struct DDR_API cow_Virtual {
  /// A new heap copy. \throws what the object's Copy() throws.
  static T* Copy(T const& original) { return static_cast<T*>(original.Copy()); }
};

/// Copies through the copy constructor.
template <class T>
struct DDR_API cow_Direct {
  /// A new heap copy. \throws what the copy constructor throws.
  static T* Copy(T const& original) { return new T(original); }
};

/// Handle of an object that is shared for reading and private for writing.
///
/// Copying a handle costs one increment. ConstGet() reads the shared object; Get() copies it first when
/// others share it. This is the one place that decides to copy: whatever writes goes through Get(). A handle
/// and all that share its object belong to one thread at a time.
/// \tparam T the held type.
/// \tparam Policy how to copy: cow_Virtual<T> for polymorphic types, cow_Direct<T> for plain ones.
template <class T, class Policy>
class DDR_API cow_COW : public cow_CountedHld<T> {
public:
  /// A sole owner of a copy of \p original, made by Policy.
  /// \throws std::bad_alloc and what the copying throws.
  explicit cow_COW(T const& original) : cow_CountedHld<T>(Policy::Copy(original)) {}
  /// A sole owner.
  /// \param adopted adopts it, also when this throws; may be null: an empty handle.
  /// \throws std::bad_alloc.
  explicit cow_COW(T* adopted) : cow_CountedHld<T>(adopted) {}

  using cow_CountedHld<T>::operator=;

  /// The object for reading; never copies. Needs a handle that is not empty. Lives until the handle changes.
  T const& ConstGet() const noexcept { return *this->object; }

  /// The object for writing: copied first when others share it, else the same object as before. Needs a
  /// handle that is not empty. Lives until the handle changes.
  /// \throws what the copying throws; then the handle is unchanged.
  T& Get() {
    if (this->count->value != 1) {
      Unshare();
    }
    return *this->object;
  }

private:
  template <class Handle>
  friend class cow_Erasure;

  cow_COW(cow_Counter* counted, T* held) noexcept : cow_CountedHld<T>(counted, held) {}
  [[gnu::noinline]] void Unshare() { this->operator=(Policy::Copy(*this->object)); }
};

/// The copy-on-write handle that maps store as values: like cow_COW, and it can be made empty.
/// \tparam T the held type.
/// \tparam Policy how to copy: cow_Virtual<T> or cow_Direct<T>.
template <class T, class Policy>
class DDR_API cow_ArrayCOW : public cow_CountedHld<T> {
public:
  /// An empty handle with a counter of its own. \throws std::bad_alloc.
  cow_ArrayCOW() = default;
  /// A sole owner of a copy of \p original, made by Policy.
  /// \throws std::bad_alloc and what the copying throws.
  explicit cow_ArrayCOW(T const& original) : cow_CountedHld<T>(Policy::Copy(original)) {}
  /// A sole owner.
  /// \param adopted adopts it, also when this throws; may be null: an empty handle.
  /// \throws std::bad_alloc.
  explicit cow_ArrayCOW(T* adopted) : cow_CountedHld<T>(adopted) {}

  using cow_CountedHld<T>::operator=;

  /// The object for reading; never copies. Needs a handle that is not empty. Lives until the handle changes.
  T const& ConstGet() const noexcept { return *this->object; }

  /// The object for writing; see cow_COW::Get().
  T& Get() {
    if (this->count->value != 1) {
      Unshare();
    }
    return *this->object;
  }

private:
  template <class Handle>
  friend class cow_Erasure;

  cow_ArrayCOW(cow_Counter* counted, T* held) noexcept : cow_CountedHld<T>(counted, held) {}
  [[gnu::noinline]] void Unshare() { this->operator=(Policy::Copy(*this->object)); }
};

static_assert(sizeof(cow_COW<int, cow_Direct<int>>) == 2 * sizeof(void*));
static_assert(sizeof(cow_ArrayCOW<int, cow_Direct<int>>) == 2 * sizeof(void*));
