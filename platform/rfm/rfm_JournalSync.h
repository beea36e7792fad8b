// rfm_JournalSync: syncs the folder of a journal, and says so where that fails.
#pragma once

/// How SQLite reaches the files of a connection that saves: as it always does, but that the name of a journal
/// is durable before the file is changed. SQLite syncs the folder of a new journal too, and goes on when that
/// fails: a power cut could then leave a file that is changed in part, without its journal.
///
/// A save whose folder cannot be synced fails with SQLITE_IOERR_FSYNC, and errno tells why. Nothing has been
/// changed then, whether it is at its commit or so large that it writes before. Where the folder cannot be
/// synced behind the removal of the journal, or not be opened for it, which SQLite alone passes over, the
/// commit fails with SQLITE_IOERR_DIR_FSYNC: its changes are in the file.
///
/// Threads may call this at the same time.
/// @returns the name to open a file with, which stays; null, which is SQLite's own way, where SQLite has none
/// because it has no memory, so that opening fails
/// @throws std::bad_alloc
char const* rfm_journalSyncVfs();
