// Blocked array whose copies share their blocks.
#pragma once

#include "cow_Counter.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <utility>

/// One block of a cow_1DArray: a counted run of items.
template <class T>
class cow_1DArrayBlock {
public:
  /// A block of \p length default items, held once. \throws what making the items throws.
  explicit cow_1DArrayBlock(std::size_t length) : items(new T[length]()), size(length) {}
  /// A block with copies of the items. \throws what copying the items throws.
  cow_1DArrayBlock(cow_1DArrayBlock const& other) : cow_1DArrayBlock(other.size) {
    for (std::size_t index = 0; index != size; ++index) {
      items[index] = other.items[index];
    }
  }
  cow_1DArrayBlock& operator=(cow_1DArrayBlock const&) = delete;
  ~cow_1DArrayBlock() = default;

  /// The number of tables that hold the block.
  unsigned count = 1;
  /// The items, one after the other.
  std::unique_ptr<T[]> items;

private:
  std::size_t size;
};

/// Array whose items lie in blocks that are made when first used.
///
/// Copies share everything: one increment, no allocation. Writing through Get() or Grow() first gives the
/// array a table of its own, and Get() a block of its own; nothing else is copied. References to items live
/// until the array next changes or dies. An array and all that share blocks with it belong to one thread at a
/// time, readers included, because reading may make a block. Every operation that throws leaves the array
/// valid and with the items that it had.
/// \tparam T an item: has a default constructor, and can be assigned.
template <class T>
class cow_1DArray {
public:
  using Block = cow_1DArrayBlock<T>;

  /// An empty array. \throws std::bad_alloc.
  cow_1DArray() : cow_1DArray(0) {}
  /// An array of default items. From 256 items on the blocks grow with the array, so that there are 8 to 16.
  /// \param n the number of items.
  /// \throws std::bad_alloc; std::length_error when it is negative.
  explicit cow_1DArray(int n);
  /// Shares everything; constant time.
  cow_1DArray(cow_1DArray const& other) noexcept
      : capacity(other.capacity), shift(other.shift), size(other.size), head(other.head),
        counter(other.counter), table(other.table) {
    ++counter->value;
  }
  /// Shares everything; lets go of the own items.
  cow_1DArray& operator=(cow_1DArray const& other) noexcept {
    cow_1DArray copy(other);
    Swap(copy);
    return *this;
  }
  ~cow_1DArray() { Release(); }

  /// The number of items.
  int Size() const noexcept { return size - head; }
  /// The number of block slots in the table.
  int Capacity() const noexcept { return capacity; }
  /// A block holds 2 to the power of this items.
  int BlockShift() const noexcept { return shift; }
  /// The place of the first item within the blocks.
  int GetHead() const noexcept { return head; }
  /// The number of arrays that share the table, this one included.
  unsigned Count() const noexcept { return counter->value; }

  /// Item \p index [from 0, less than Size()] for reading. Makes its block when there is none yet.
  /// \throws std::bad_alloc and what making items throws.
  T const& PartialArrayConstGet(int index) const { return BlockFor(index)->items[SlotOf(index)]; }
  /// The same as PartialArrayConstGet().
  T const& ConstGet(int index) const { return PartialArrayConstGet(index); }
  /// Item \p index [from 0, less than Size()] for writing: first unshares the table and the item's block.
  /// \throws std::bad_alloc and what making or copying items throws.
  T& Get(int index);

  /// Gives the array \p n items. New ones are default items, except where the array was longer before: those
  /// are still there. Unshares the table. Growing to 0 lets go of all blocks and of the table.
  /// \return true.
  /// \throws std::bad_alloc; std::length_error when \p n is negative.
  bool Grow(int n);
  /// Replaces all items by copies of \p items.
  /// \param items the first of \p n items; may be null when \p n is 0.
  /// \throws std::length_error when \p n is negative; std::bad_alloc and what copying items throws.
  void SetFromArray(T const* items, int n) {
    cow_1DArray fresh(n);
    for (int index = 0; index != n; ++index) {
      fresh.Get(index) = items[index];
    }
    Swap(fresh);
  }
  /// A plain array with copies of all items; null when there are none.
  /// \throws std::bad_alloc and what copying items throws.
  std::unique_ptr<T[]> GetCArray() const {
    if (Size() == 0) {
      return nullptr;
    }
    auto copy = std::make_unique<T[]>(static_cast<std::size_t>(Size()));
    for (int index = 0; index != Size(); ++index) {
      copy[static_cast<std::size_t>(index)] = PartialArrayConstGet(index);
    }
    return copy;
  }
  /// Exchanges two arrays.
  void Swap(cow_1DArray& other) noexcept {
    std::swap(capacity, other.capacity);
    std::swap(shift, other.shift);
    std::swap(size, other.size);
    std::swap(head, other.head);
    std::swap(counter, other.counter);
    std::swap(table, other.table);
  }

private:
  static constexpr int usualShift = 4;
  static constexpr int usualCapacity = 16;
  // From this size on the blocks grow with the array.
  static constexpr int largeSize = 256;

  std::size_t BlockOf(int index) const noexcept { return static_cast<std::size_t>(head + index) >> shift; }
  std::size_t SlotOf(int index) const noexcept {
    return static_cast<std::size_t>(head + index) - (BlockOf(index) << shift);
  }
  Block*& BlockFor(int index) const {
    Block*& block = table[BlockOf(index)];
    if (!block) {
      block = new Block(std::size_t{1} << shift);
    }
    return block;
  }
  static void ReleaseBlock(Block* block) noexcept {
    if (block && --block->count == 0) {
      delete block;
    }
  }
  void Release() noexcept {
    if (--counter->value != 0) {
      return;
    }
    for (int slot = 0; slot != capacity; ++slot) {
      ReleaseBlock(table[slot]);
    }
    delete[] table;
    delete counter;
  }
  void Unshare();
  void SetCapacity(int newCapacity);

  int capacity = usualCapacity;
  int shift = usualShift;
  int size = 0;
  int head = 0;
  cow_Counter* counter = nullptr;
  // Blocks, null where none was made yet. Sharers see the blocks that one of them makes by reading.
  Block** table = nullptr;
};

/// An array that is filled from its end.
template <class T>
class cow_1DArrayList {
public:
  /// Adds a copy of \p item behind the last one. \throws std::bad_alloc and what copying an item throws.
  void Append(T const& item) {
    int const place = array.Size();
    T copy(item);
    array.Grow(place + 1);
    try {
      array.Get(place) = std::move(copy);
    } catch (...) {
      array.Grow(place);
      throw;
    }
  }
  /// The number of items.
  int Size() const noexcept { return array.Size(); }
  /// Item \p index [from 0, less than Size()] for reading.
  T const& ConstGet(int index) const { return array.PartialArrayConstGet(index); }
  /// Item \p index [from 0, less than Size()] for writing.
  T& Get(int index) { return array.Get(index); }
  /// The items.
  cow_1DArray<T> const& Array() const noexcept { return array; }

private:
  cow_1DArray<T> array;
};

/// Walks an array from its first item to its last.
template <class T>
class cow_1DArrayIter {
public:
  /// At the first item. \param walked borrowed; must not change meanwhile.
  explicit cow_1DArrayIter(cow_1DArray<T> const& walked) noexcept : array(&walked) {}

  /// Goes to the first item.
  void First() noexcept { index = 0; }
  /// Goes to the next item, or to the end. Does nothing at the end.
  void Next() noexcept { index += AtEnd() ? 0 : 1; }
  /// Whether there is no current item.
  bool AtEnd() const noexcept { return index >= array->Size(); }
  /// The current item. Not at the end.
  T const& Value() const { return array->PartialArrayConstGet(index); }

private:
  cow_1DArray<T> const* array;
  int index = 0;
};

// ---- Implementation ----

template <class T>
cow_1DArray<T>::cow_1DArray(int n) : size(n) {
  if (n < 0) {
    throw std::length_error("cow_1DArray: negative size");
  }
  if (n >= largeSize) {
    // The float of n is its power of two and how far n lies above it: 3 bits more than the power are the
    // blocks.
    constexpr unsigned mantissaBits = 23;
    constexpr std::uint32_t mantissaMask = (1U << mantissaBits) - 1;
    auto const bits = std::bit_cast<std::uint32_t>(static_cast<float>(n));
    int const exponent = static_cast<int>(bits >> mantissaBits) - 127;
    std::uint32_t const mantissa = bits & mantissaMask;
    std::uint32_t const beyond = mantissa & (mantissaMask >> 3);
    shift = exponent - 3;
    capacity = usualCapacity + 8 + static_cast<int>(mantissa >> (mantissaBits - 3)) + (beyond != 0 ? 1 : 0);
  }
  std::unique_ptr<Block*[]> slots(new Block* [static_cast<std::size_t>(capacity)] {});
  counter = new cow_Counter(1);
  table = slots.release();
}

template <class T>
T& cow_1DArray<T>::Get(int index) {
  Unshare();
  Block*& block = BlockFor(index);
  if (block->count != 1) {
    auto* const copy = new Block(*block);
    --block->count;
    block = copy;
  }
  return block->items[SlotOf(index)];
}

template <class T>
void cow_1DArray<T>::Unshare() {
  if (counter->value == 1) {
    return;
  }
  std::unique_ptr<Block*[]> slots(new Block* [static_cast<std::size_t>(capacity)] {});
  auto* const fresh = new cow_Counter(1);
  for (int slot = 0; slot != capacity; ++slot) {
    Block* const block = table[slot];
    slots[static_cast<std::size_t>(slot)] = block;
    if (block) {
      ++block->count;
    }
  }
  --counter->value;
  counter = fresh;
  table = slots.release();
}

template <class T>
bool cow_1DArray<T>::Grow(int n) {
  if (n < 0) {
    throw std::length_error("cow_1DArray: negative size");
  }
  Unshare();
  if (n == 0) {
    SetCapacity(0);
    shift = 0;
    size = 0;
    head = 0;
    return true;
  }
  int const newShift = Size() == 0 ? usualShift : shift;
  std::int64_t const newSize = std::int64_t{head} + n;
  auto const blocks = static_cast<int>((newSize + (std::int64_t{1} << newShift) - 1) >> newShift);
  if (blocks > capacity) {
    SetCapacity(blocks + usualCapacity);
  }
  shift = newShift;
  size = static_cast<int>(newSize);
  return true;
}

template <class T>
void cow_1DArray<T>::SetCapacity(int newCapacity) {
  std::unique_ptr<Block*[]> slots(newCapacity == 0 ? nullptr
                                                   : new Block* [static_cast<std::size_t>(newCapacity)] {});
  for (int slot = 0; slot != capacity; ++slot) {
    if (slot < newCapacity) {
      slots[static_cast<std::size_t>(slot)] = table[slot];
    } else {
      ReleaseBlock(table[slot]);
    }
  }
  delete[] table;
  table = slots.release();
  capacity = newCapacity;
}
