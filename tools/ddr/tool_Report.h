// tool_report: the one place where failures become lines on standard error and exit statuses.
#pragma once

#include <functional>
#include <string_view>

inline constexpr int tool_StatusDone = 0;
inline constexpr int tool_StatusFailure = 1;
inline constexpr int tool_StatusUsage = 2;

/// What a command line asks for.
using tool_Command = std::function<void()>;

/// Runs a command. What it throws becomes one line on standard error.
/// @param command the command
/// @returns tool_StatusDone or tool_StatusFailure
int tool_report(tool_Command const& command) noexcept;

/// Writes "ddr: " and the text as one line on standard error.
/// @param text any bytes; line breaks become blanks, what a terminal could misread is escaped
void tool_printFailure(std::string_view text);
