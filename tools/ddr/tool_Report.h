// tool_report: the one place where failures become lines on standard error and exit statuses.
#pragma once

#include <functional>
#include <string_view>
#include <type_traits>

inline constexpr int tool_StatusDone = 0;
inline constexpr int tool_StatusFailure = 1;
inline constexpr int tool_StatusUsage = 2;

/// What a command line asks for. Made of a function; one that returns nothing is done when it returns,
/// another returns the exit status.
class tool_Command {
public:
  tool_Command() = default;
  template <class Work>
  tool_Command(Work given) // not explicit: verbs assign functions
      : work([given]() -> int {
          if constexpr (std::is_void_v<std::invoke_result_t<Work const&>>) {
            given();
            return tool_StatusDone;
          } else {
            return given();
          }
        }) {}

  int operator()() const { return work(); }

private:
  std::function<int()> work;
};

/// Runs a command. What it throws becomes one line on standard error.
/// @param command the command
/// @returns the exit status: what the command answers, or tool_StatusFailure
int tool_report(tool_Command const& command) noexcept;

/// Writes "ddr: " and the text as one line on standard error.
/// @param text any bytes; line breaks become blanks, what a terminal could misread is escaped
void tool_printFailure(std::string_view text);
