// rfm_LockHolder: who keeps others from a database file, as far as the system tells.
#pragma once

#include <string>

/// Who holds a lock on a file, in words that go on after "it is in use ": "by another process (1234,
/// 'ddr')", "elsewhere in this process", or "by another process" where the system does not tell or the holder
/// has just finished. The file itself is not opened, for closing it would drop the locks that this process
/// has on it.
/// @param path of the file
/// @param holdsLockItself whether the caller has a lock for writing of its own
std::string rfm_lockHolder(std::string const& path, bool holdsLockItself);
