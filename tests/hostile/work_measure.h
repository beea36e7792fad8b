// work_measure: what a piece of work on a file that may hold anything takes.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// Measures one piece of work of this process, from its construction on: processor time, time asleep, and how
/// far memory grows. Under a sanitizer, which is slow and keeps what was freed, four times the time may be
/// taken and memory is not measured; a build that is not optimized, or counts branches, may take eight times
/// the processor time. Work that never ends is killed with its process.
class work_measure {
public:
  work_measure();
  ~work_measure();
  work_measure(work_measure const&) = delete;
  work_measure& operator=(work_measure const&) = delete;

  /// [processor seconds]
  double seconds() const;
  /// How long the thread neither worked nor waited for a processor [s]; 0 where the system does not tell.
  double asleep() const;
  /// The most that the process grew by [byte].
  long long memory() const;
  /// What of it is more than may be: a sentence each. More than a second, and more for a large file, at work
  /// or asleep; more than 64 MiB and 16 times the file.
  /// @param fileSize [byte]
  std::vector<std::string> faults(std::size_t fileSize) const;

private:
  double secondsBefore;
  double awakeBefore;
  double wallBefore;
  long long residentBefore;
};

/// What this process has allocated and nothing leads to any more: a sentence; the sanitizer lists it on
/// standard error. "" where there is none, and where no sanitizer watches addresses.
std::string leaks();

/// Keeps this process from taking so much memory that others suffer.
void limit_own_memory();
