// failing_memory: counts what this program allocates, and lets a chosen allocation fail.
#pragma once

#include <cstdint>

/// Stands before every way in which the program that links this gets memory: operator new in all its forms,
/// the pools of small blocks, the raw allocation of the platform, and SQLite's allocator.
///
/// One allocation is one call of one of these; what a pool takes from below is part of its call. Only the
/// thread that started the counting is counted and fails. There is nothing to make: the first use of the
/// program's memory is watched already.
class failing_memory {
public:
  failing_memory() = delete;

  /// Whether one allocation fails, or all behind it too.
  enum class Lasting { Once, FromThenOn };

  /// Counts from 0, with nothing failing.
  static void start() noexcept;
  /// Counts from 0, with an allocation failing.
  /// @param number [from 1] of the allocation
  static void start(std::uint64_t number, Lasting lasting) noexcept;
  /// Lets everything pass uncounted; the counts stay.
  static void stop() noexcept;
  /// Lets what follows pass uncounted, until resume.
  /// @returns whether this thread was counting, for resume
  static bool pause() noexcept;
  static void resume(bool wasCounting) noexcept;

  /// Allocations since the start, failed ones included.
  static std::uint64_t allocations() noexcept;
  /// How many of them failed.
  static std::uint64_t failures() noexcept;
  /// The blocks that the program holds now, all threads together.
  static std::int64_t blocks() noexcept;
};
