// os_LibraryCount.h: the nest count behind a library's pair of start and stop functions.
#pragma once

#include "os_Recorder.h"

/// Counts how often a library was started and not yet stopped, and says when to work. Each library keeps
/// one as a constinit object of its `_Library.cpp`:
///
///     constinit os_LibraryCount count("mem_initialize", "mem_finalize");
///     void mem_initialize(int& libraryCount) { count.Initialize(libraryCount); }
///     void mem_finalize(int& libraryCount) { count.Finalize(libraryCount); }
///
/// A plain counter: a process starts and stops its libraries from one thread at a time.
class os_LibraryCount {
public:
  /// @param initializeName the name under which starts are recorded, a literal
  /// @param finalizeName the same for stops
  constexpr os_LibraryCount(char const* initializeName, char const* finalizeName) noexcept
      : startName(initializeName), stopName(finalizeName) {}

  os_LibraryCount(os_LibraryCount const&) = delete;
  os_LibraryCount& operator=(os_LibraryCount const&) = delete;

  /// Starts not yet stopped.
  [[nodiscard]] unsigned Nesting() const noexcept { return nesting; }

  /// Records the call and counts one more start.
  /// @param libraryCount the caller's count of libraries that are up; grows by one on the first start only
  /// @returns true on the first start: the library now does what its start does
  bool Initialize(int& libraryCount) noexcept {
    os_recordCall(startName);
    if (nesting++ != 0) {
      return false;
    }
    ++libraryCount;
    return true;
  }

  /// Records the call and counts one start less. Without a start before it, nothing else happens.
  /// @param libraryCount the caller's count of libraries that are up; shrinks by one on the last stop only
  /// @returns true on the stop that matches the first start: the library now does what its stop does
  bool Finalize(int& libraryCount) noexcept {
    os_recordCall(stopName);
    if (nesting == 0 || --nesting != 0) {
      return false;
    }
    --libraryCount;
    return true;
  }

private:
  char const* startName;
  char const* stopName;
  unsigned nesting = 0;
};
