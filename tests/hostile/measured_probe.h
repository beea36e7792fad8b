// measured_probe: a file_probe in a process of its own, which may die of a file, and whose work is measured.
#pragma once

#include "child_process.h"
#include "file_probe.h"
#include "temporary_folder.h"

#include <string>

/// Does what file_probe does. It is a fault, too, when the work takes more time or more memory than a file of
/// that size may cost; a process that dies of the work throws std::runtime_error.
class measured_probe {
public:
  measured_probe();
  /// Ends the process, in which nothing may leak.
  ~measured_probe();
  measured_probe(measured_probe const&) = delete;
  measured_probe& operator=(measured_probe const&) = delete;

  /// @{ As of file_probe. Each of the steps of a look is measured by itself.
  probe_result look(std::string const& path) { return Ask('l', path); }
  probe_result upgrade(std::string const& path) { return Ask('u', path); }
  probe_result change(std::string const& path) { return Ask('c', path); }
  probe_result repair(std::string const& path) { return Ask('r', path); }
  /// @}

private:
  /// In the child, until it is to end.
  /// @returns what leaks
  std::string Serve(child_process& served) const;
  probe_result Ask(char step, std::string const& path);

  temporary_folder folder; // where question and answer are
  std::string question = folder.path("question");
  std::string answer = folder.path("answer");
  child_process child;
  bool isAtWork = false; // or died of it
};
