// mem_Memory.h: raw allocation.
#pragma once

#include "os_Export.h"

#include <cstddef>

/// A block of raw memory, aligned for every fundamental type. For objects use new or a container; for many
/// small blocks of one size mem_BlockPool.
/// @param size 0 also gives a block of its own [byte]
/// @returns null when there is no memory; released with mem_Free
DDR_API void* mem_Malloc(std::size_t size) noexcept;

/// Changes the size of a block; the common part of its contents is kept, the block may move.
/// @param block from mem_Malloc or mem_Realloc; null asks for a new block
/// @param size 0 keeps a block of its own [byte]
/// @returns null when there is no memory; `block` is then unchanged and still the caller's
DDR_API void* mem_Realloc(void* block, std::size_t size) noexcept;

/// Releases a block; nothing happens for null.
DDR_API void mem_Free(void* block) noexcept;
