// fault_device: stands between this process and its files, at the system calls.
#pragma once

#include <cerrno>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

/// What a process asks of the device. To give a file a second name is a renaming.
enum class device_call { Open, Read, Write, Sync, Truncate, Delete, Rename, Lock };
inline constexpr int device_callKinds = 8;
/// "write", for messages of tests.
char const* nameOf(device_call call);

/// What shall go wrong.
struct device_fault {
  enum class Effect {
    Error,       ///< the call fails and does nothing
    Short,       ///< a read or write does half of what it was asked for
    LateError,   ///< the call does its work and fails all the same
    Stop,        ///< the process ends before the call
    StopHalfway, ///< it ends after half of a write, or in place of any other call
    StopAfter,   ///< it ends after the call
  };
  device_call call = device_call::Write;
  int number = 1; ///< [from 1] among the calls of that kind
  Effect effect = Effect::Error;
  int errorNumber = EIO; ///< of an error
  bool lasting = false;  ///< whether all later calls of the kind fail too
  bool creating = false; ///< of opening: whether only those calls count that may make a file
};

/// The exit status of a process that was stopped.
inline constexpr int device_stopped = 77;

/// A call that was made to fail.
struct device_failure {
  device_call call;
  std::string name; ///< of the file, in the folder; empty for the folder itself
  /// Of a sync, and of opening the folder, which is done to sync it: whether anything had changed since the
  /// last sync that succeeded. Of locking: whether the process lacked what it asked for, and did not give a
  /// part of it back.
  bool wasNeeded = true;
  std::uint64_t place = 0; ///< of a read or write [byte]
  std::size_t size = 0;    ///< of a read or write [byte]
};

/// One thing that happened to the folder, in order.
struct device_event {
  enum class Kind {
    Create,     ///< a name for a new, empty file
    Delete,     ///< a name is gone
    Rename,     ///< a name was given to another file
    Link,       ///< a file has a second name
    Write,      ///< bytes in a file
    Truncate,   ///< a new size of a file
    SyncFile,   ///< what was written to a file before this stays
    SyncFolder, ///< what was done to names before this stays
    Mark,       ///< said by the test
  };
  Kind kind;
  int file = -1;           ///< number of the file; names come and go
  std::string name;        ///< of Create, Delete, Mark; the old one of Rename and Link
  std::string otherName;   ///< the new one of Rename and Link
  std::uint64_t place = 0; ///< of Write [byte]; the size of Truncate
  std::string bytes;       ///< of Write
};

/// Watches every call of this process that has to do with a file in one folder: opening, reading, writing,
/// syncing, truncating, deleting, renaming and locking, SQLite's and our own alike, for the program that
/// links this takes these calls over from the C library. One at a time, one thread at a time.
///
/// Between start and stop calls are counted, may fail, and may be recorded. A sync is never passed on to the
/// real device: nothing here loses power.
class fault_device {
public:
  /// @param folder absolute, without a slash at its end
  explicit fault_device(std::string const& folder);
  ~fault_device();
  fault_device(fault_device const&) = delete;
  fault_device& operator=(fault_device const&) = delete;

  /// Counts from 0, with nothing going wrong.
  void start();
  /// Counts from 0, with one thing going wrong.
  void start(device_fault const& fault);
  /// Counts from 0 and writes down what changes the folder.
  /// @param files names of the files that are there
  /// @returns the number of each of them in the events
  std::map<std::string, int> record(std::vector<std::string> const& files);
  /// Lets somebody do something before a call, once, uncounted. After start().
  /// @param number [from 1] among the calls of that kind
  void before(device_call call, int number, std::function<void()> act);
  /// Is from now on a file system that cannot rename without replacing. Files can have second names.
  void lackNoReplace() noexcept;
  /// Is from now on a file system that knows no locks of folders.
  void lackFolderLocks() noexcept;
  /// From now on refuses to take locks back that were given.
  /// @param errorNumber 0: does so again
  void refuseUnlocking(int errorNumber) noexcept;
  /// Puts a mark among the events.
  void mark(std::string const& text);
  /// From now on looks at nothing, and so needs no memory in any call; syncs are not passed on all the same.
  void rest() noexcept;
  /// Lets everything pass uncounted; the counts stay.
  void stop() noexcept;

  /// Calls of a kind since the start.
  int calls(device_call call) const noexcept;
  /// How often the fault happened.
  int faults() const noexcept;
  /// What it happened to, in order.
  std::vector<device_failure> const& failures() const noexcept;
  /// What a power cut may take of the changes since the start: names of files that were written and are
  /// there, and an empty one where names of the folder have changed. Goes on when the counts stay.
  std::vector<std::string> unsynced() const;
  std::vector<device_event> const& events() const noexcept;
};
