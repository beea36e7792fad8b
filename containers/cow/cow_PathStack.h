// A small stack for walking trees: on the machine's stack as long as the tree is as shallow as usual.
#pragma once

#include <cstddef>
#include <memory>
#include <type_traits>

/// Stack of plain entries; the first InlineCapacity of them need no allocation.
/// \tparam T a type that can be copied byte by byte.
/// \tparam InlineCapacity entries that are held in the object.
template <class T, std::size_t InlineCapacity>
class cow_PathStack {
public:
  cow_PathStack() noexcept {} // leaves the entries as they are
  cow_PathStack(cow_PathStack const& other) { *this = other; }
  cow_PathStack& operator=(cow_PathStack const& other) {
    if (this != &other) {
      Clear();
      Reserve(other.size);
      for (std::size_t index = 0; index != other.size; ++index) {
        entries[index] = other.entries[index];
      }
      size = other.size;
    }
    return *this;
  }
  ~cow_PathStack() = default;

  bool IsEmpty() const noexcept { return size == 0; }
  std::size_t Size() const noexcept { return size; }
  T& operator[](std::size_t index) noexcept { return entries[index]; }
  T const& operator[](std::size_t index) const noexcept { return entries[index]; }
  T& Top() noexcept { return entries[size - 1]; }
  T const& Top() const noexcept { return entries[size - 1]; }

  /// Adds an entry. \throws std::bad_alloc; not below the capacity of Reserve().
  void Push(T const& entry) {
    if (size == capacity) {
      Reserve(2 * capacity);
    }
    entries[size++] = entry;
  }
  T Pop() noexcept { return entries[--size]; }
  void Clear() noexcept { size = 0; }

  /// Makes room for \p wanted entries in all. \throws std::bad_alloc; then nothing has changed.
  void Reserve(std::size_t wanted) {
    if (wanted <= capacity) {
      return;
    }
    auto larger = std::make_unique<T[]>(wanted);
    for (std::size_t index = 0; index != size; ++index) {
      larger[index] = entries[index];
    }
    heap = std::move(larger);
    entries = heap.get();
    capacity = wanted;
  }

private:
  static_assert(std::is_trivially_copyable_v<T>);

  std::size_t size = 0;
  std::size_t capacity = InlineCapacity;
  T* entries = local;
  std::unique_ptr<T[]> heap;
  T local[InlineCapacity];
};
