// Copy-on-write handles whose type only their class knows.
#pragma once

#include "cow_COW.h"

/// What a handle of any class looks like to code that does not know the class: the counter is real, the
/// pointer holds an address of another type and is never followed. Such a handle must not be destroyed,
/// copied or written as it stands; cow_Erasure does all of that.
using cow_ErasedHandle = cow_COW<int, cow_Direct<int>>;

/// Passing from handles of one type to erased ones and back.
///
/// Whoever keeps handles of many classes keeps erased ones on the heap, each beside the class's own routine
/// for releasing it.
/// \tparam Handle cow_COW or cow_ArrayCOW of some type.
template <class Handle>
class cow_Erasure {
public:
  /// A new erased handle that shares the object of \p handle. To be released with Release() of the same type.
  /// \throws std::bad_alloc.
  static cow_ErasedHandle* Erase(Handle const& handle) {
    auto* const erased = new cow_ErasedHandle(static_cast<cow_Counter*>(nullptr), nullptr);
    handle.AddRef();
    erased->count = handle.count;
    erased->object = static_cast<int*>(static_cast<void*>(handle.object));
    return erased;
  }

  /// A handle that shares the object of \p erased, which was made by Erase() of the same type and stays
  /// valid.
  static Handle Restore(cow_ErasedHandle const& erased) noexcept {
    Handle handle(erased.count, Object(erased));
    handle.AddRef();
    return handle;
  }

  /// Whether no one but \p erased holds the object.
  static bool IsSole(cow_ErasedHandle const& erased) noexcept { return !erased.IsShared(); }

  /// Lets go of the object, which is destroyed with its own type when this was its last handle, and frees the
  /// erased handle.
  /// \param erased adopts it; made by Erase() of the same type, or null.
  static void Release(cow_ErasedHandle* erased) noexcept {
    if (!erased) {
      return;
    }
    {
      Handle last(erased->count, Object(*erased));
      erased->count = nullptr;
      erased->object = nullptr;
    }
    delete erased;
  }

private:
  static auto* Object(cow_ErasedHandle const& erased) noexcept {
    using T = std::remove_cvref_t<decltype(std::declval<Handle const&>().ConstGet())>;
    static_assert(alignof(T) >= alignof(int), "the address must be one that an int could have");
    return static_cast<T*>(static_cast<void*>(erased.object));
  }
};

/// A new erased handle that shares the object of \p handle; see cow_Erasure::Erase().
template <class Handle>
cow_ErasedHandle* cow_eraseHandle(Handle const& handle) {
  return cow_Erasure<Handle>::Erase(handle);
}

/// Releases an erased handle of an object of type T and frees it; see cow_Erasure::Release().
template <class T>
void cow_releaseErased(cow_ErasedHandle* erased) noexcept {
  cow_Erasure<cow_COW<T, cow_Virtual<T>>>::Release(erased);
}
