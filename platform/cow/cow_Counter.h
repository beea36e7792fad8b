// The reference count that copy-on-write handles share.
#pragma once

#include "os_Export.h"

#include <cstddef>

/// A shared reference count.
///
/// Counters live in a pool of their own, because every handle that is not a copy of another needs one. The
/// count is a plain number: all handles that share a counter belong to one thread. Allocating and freeing
/// counters is safe in every thread.
class DDR_API cow_Counter {
public:
  /// \param start the number of handles that share the counter from the start.
  explicit cow_Counter(unsigned start = 1) noexcept : value(start) {}

  cow_Counter(cow_Counter const&) = delete;
  cow_Counter& operator=(cow_Counter const&) = delete;

  /// Memory for one counter, from the pool. \throws std::bad_alloc when there is none.
  static void* operator new(std::size_t size);
  /// Gives the memory of one counter back to the pool.
  static void operator delete(void* counter) noexcept;

  /// The number of counters that exist now in the whole process. For tests: exact only while no other thread
  /// makes or drops handles.
  static std::size_t LiveCount();

  /// The number of handles.
  unsigned value;
};

static_assert(sizeof(cow_Counter) == 4);
