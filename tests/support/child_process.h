// child_process: work that a test does in a second process.
#pragma once

#include <functional>
#include <string>
#include <sys/types.h>

/// A copy of this process that does one piece of work. The work must not use what the test framework offers;
/// what it returns, or the text of an exception behind "exception: ", reaches the test.
class child_process {
public:
  /// Starts.
  /// @param work given the child itself, to talk with the test
  explicit child_process(std::function<std::string(child_process&)> const& work);
  /// Kills it if it still runs.
  ~child_process();
  child_process(child_process const&) = delete;
  child_process& operator=(child_process const&) = delete;

  /// @{ In the child.
  /// Lets wait_until_ready return.
  void ready();
  /// Waits for go().
  void wait_for_go();
  /// @}

  /// @{ In the test.
  void wait_until_ready();
  void go();
  /// Waits for the end.
  /// @returns what the work returned; "killed" when a SIGKILL ended it, and when it ended in any other way
  /// "exit status 77" or "signal 11"
  std::string result();
  /// @}

private:
  pid_t process = -1;
  int fromChild = -1;
  int toChild = -1;
};

/// Does a piece of work in a second process.
std::string in_child(std::function<std::string()> const& work);

/// The same under a user without any right of its own, where this process may change its user; otherwise
/// under its own user.
std::string in_child_without_rights(std::function<std::string()> const& work);
