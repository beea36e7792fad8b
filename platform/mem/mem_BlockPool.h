// Pools of small blocks of a fixed size: counters, tree nodes, string buffers.
#pragma once

#include "os_Export.h"

#include <cstddef>

/// What mem_poolAllocate() hands out at most [byte]; larger requests go to the general heap.
inline constexpr std::size_t mem_poolLargestBlock = 256;

/// Allocates a block.
///
/// Blocks of one size class lie side by side in pages that belong to the allocating thread, so neither
/// allocating nor freeing takes a lock, and blocks that are used together lie together however they are
/// freed. Blocks are aligned to 8 bytes, those of at most 4 bytes to 4; as long as mem_poolUsesHeap() is
/// false, blocks of 64, 128, 192 and 256 bytes begin a cache line.
/// \param size [byte], more than 0.
/// \throws std::bad_alloc when the system gives no memory.
DDR_API void* mem_poolAllocate(std::size_t size);

/// Frees a block of mem_poolAllocate(). Any thread may free it, also after the thread that allocated it has
/// ended; freeing another thread's block takes a lock.
/// \param block the block, or null (then nothing happens).
/// \param size the size given to mem_poolAllocate() [byte].
DDR_API void mem_poolFree(void* block, std::size_t size) noexcept;

/// The number of blocks of the size class of \p size [byte] that are allocated now. Meant for tests: exact
/// only while no other thread allocates or frees. Walks every page of the class.
DDR_API std::size_t mem_poolLiveBlocks(std::size_t size);

/// The memory that the pools hold from the system now [byte].
DDR_API std::size_t mem_poolReservedBytes();

/// Whether blocks come from the general heap, so that a memory checker sees each of them: under the address
/// sanitizer and under valgrind.
DDR_API bool mem_poolUsesHeap() noexcept;

/// Tells a leak checker, if one watches, that \p block and what it refers to is given up on purpose.
/// \param block a block of mem_poolAllocate() or of the heap; may be null.
DDR_API void mem_forget(void const* block) noexcept;

/// Pool of blocks of one size. A front for the functions above that rounds and checks the size once.
///
/// Calls may run at the same time in several threads.
/// \tparam Size the size of a block [byte].
template <std::size_t Size>
class mem_BlockPool {
public:
  /// A block of Size bytes. \throws std::bad_alloc when the system gives no memory.
  static void* Allocate() { return mem_poolAllocate(Size); }

  /// Frees a block of Allocate(), on any thread; null is allowed.
  static void Free(void* block) noexcept { mem_poolFree(block, Size); }

  /// Blocks allocated now, of this size and of those that share its size class; see mem_poolLiveBlocks().
  static std::size_t LiveBlocks() { return mem_poolLiveBlocks(Size); }

  static_assert(Size > 0 && Size <= mem_poolLargestBlock);
};
