// simulation_files: SQLite's files, with a stop before each lock and waiting that takes no time.
#pragma once

#include <functional>
#include <memory>
#include <string>

struct sqlite3;

/// While it lives, SQLite asks before it locks a database and where it would wait for a lock. One at a time;
/// connections opened meanwhile must be closed before it goes.
class simulation_files {
public:
  /// @param atLock called by the thread that is about to lock or to wait; must not throw
  /// @param atCommit called by the thread that has deleted a journal; must not throw
  simulation_files(std::function<void()> atLock, std::function<void()> atCommit);
  ~simulation_files();
  simulation_files(simulation_files const&) = delete;
  simulation_files& operator=(simulation_files const&) = delete;
};

/// Another program that is saving to a database file, as long as it lives.
class simulation_outsider {
public:
  /// @param alsoKeepsOutReaders whether it is at the end of its save, when nobody can read either
  simulation_outsider(std::string const& path, bool alsoKeepsOutReaders);

private:
  std::unique_ptr<sqlite3, int (*)(sqlite3*)> connection;
};
