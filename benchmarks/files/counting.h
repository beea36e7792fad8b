// counting: what this process asks of the device and of memory.
#pragma once

#include <cstddef>
#include <cstdint>

/// Syncs of files and folders since the process began, ours and SQLite's.
std::uint64_t syncsSoFar() noexcept;
/// Allocations through operator new since the process began.
std::uint64_t newsSoFar() noexcept;
/// Blocks of all sizes that are allocated from the pools now. Walks the pools.
std::size_t poolBlocks();
/// Memory that is in use now, on the heap and as pages of the pools [byte].
std::size_t memoryInUse();
