// tool_run: from the words of a command line to the exit status.
#pragma once

/// Understands a command line and does what it says. The libraries must have been started.
/// @param argumentCount number of arguments
/// @param arguments as main gets them: the program first
/// @returns the exit status: 0 done, 1 failed (one line on standard error says why), 2 not understood
int tool_run(int argumentCount, char** arguments) noexcept;
