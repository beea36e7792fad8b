// fault_vfs: counts what SQLite asks of the device, and lets a chosen request fail.
#pragma once

#include <cstdint>

/// Take this where what SQLite writes shall meet an error or the end of the process, in any folder. Take
/// fault_device where our own calls to files count too, or reading, locking and renaming, where a call shall
/// do half of its work, or where the changes of a folder are to be recorded.
///
/// Between construction and destruction, every SQLite connection that is opened goes through it. One at a
/// time. Connections opened through it must be closed before it goes.
class fault_vfs {
public:
  fault_vfs();
  ~fault_vfs();
  fault_vfs(fault_vfs const&) = delete;
  fault_vfs& operator=(fault_vfs const&) = delete;

  /// Forgets the counts and the failures.
  void reset() noexcept;
  /// From the n-th request that changes the device on, requests fail.
  /// @param request [from 1] of those counted since the last reset
  /// @param errorNumber ENOSPC or EIO
  /// @param lasting whether all later requests fail too, or this one alone
  void fail_at(int request, int errorNumber, bool lasting) noexcept;

  /// The process is killed instead of the n-th request that changes the device.
  /// @param request [from 1] of those counted since the last reset
  void kill_at(int request) noexcept;

  /// Requests that change the device: writes, syncs, truncations, deletions, opening of journals.
  int changes() const noexcept;
  /// Requests to write.
  int writes() const noexcept;
  /// Requests to sync a file, or a folder after a deletion.
  int syncs() const noexcept;
  /// Requests that were made to fail.
  int failures() const noexcept;
};
