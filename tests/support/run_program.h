// run_program: a program run as a user would, and what it answered.
#pragma once

#include <optional>
#include <string>
#include <vector>

/// What a program left when it ended.
struct program_result {
  int status = -1; ///< exit status; -1 when a signal ended it
  std::string out; ///< standard output
  std::string err; ///< standard error
};

/// How a program is run.
struct program_settings {
  std::string folder;                         ///< where it runs; empty: where the test does
  std::string outputFile;                     ///< takes standard output instead of the result; empty: none
  std::optional<unsigned long> fileSizeLimit; ///< [byte] what it may write into a file
  bool withoutPrivileges = false; ///< the permissions of files count for it even where the test runs as root
};

/// Runs a program and waits for its end. Throws std::runtime_error when it cannot be run so.
/// @param program path of the program
/// @param arguments its arguments, without its own name
program_result run_program(std::string const& program, std::vector<std::string> const& arguments,
                           program_settings const& settings = {});
