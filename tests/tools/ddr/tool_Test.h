// tool_Test: runs the tool on files in a folder of the test's own.
#pragma once

#include "ddr_Root.h"
#include "run_program.h"
#include "temporary_folder.h"

#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

using Words = std::vector<std::string>;

/// Prints a result where an expectation fails.
void PrintTo(program_result const& result, std::ostream* stream);

/// Runs SQL on a file with SQLite itself.
void runSql(std::string const& path, std::string const& sql);

class tool_Test : public testing::Test {
protected:
  /// Runs the tool in the folder.
  program_result run(Words const& words) { return run(words, program_settings()); }
  program_result run(Words const& words, program_settings settings);
  /// The same for what must be done: no word on standard error. Gives standard output.
  std::string done(Words const& words);
  /// The answer to the words and --json.
  nlohmann::json json(Words words);
  /// The same for what must fail with status 1: nothing on standard output, one line on standard error. Gives
  /// that line without its end.
  std::string refused(Words const& words, program_settings const& settings = {});

  /// Does something with the library in a process of its own, in the folder; saves nothing by itself.
  void withLibrary(std::function<void(ddr_Root&)> const& work);
  /// What can be told of everything in the folder: file, rights, a hash of the bytes, time of change.
  std::map<std::string, std::string> everything() const;
  std::string bytes(std::string const& file) const { return readFile(folder.path(file)); }

  temporary_folder folder;
};
