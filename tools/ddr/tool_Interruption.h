// tool_Interruption: the user's wish to stop, noticed where stopping is safe.
#pragma once

#include <array>
#include <csignal>

/// While this object lives, the first interrupt, hang-up or termination signal ends nothing: it is only
/// noted, so that the work can stop by itself and clean up. A second one ends the process. One at a time.
class tool_Interruption {
public:
  tool_Interruption();
  ~tool_Interruption();
  tool_Interruption(tool_Interruption const&) = delete;
  tool_Interruption& operator=(tool_Interruption const&) = delete;

  /// Whether a signal has come.
  bool Wanted() const noexcept;

private:
  static constexpr std::array<int, 3> signals{SIGINT, SIGHUP, SIGTERM};
  std::array<struct sigaction, signals.size()> before{};
};
