// work_measure.cpp: asks the system.
#include "work_measure.h"

#include "sanitized.h"

#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <malloc.h>
#include <optional>
#include <sanitizer/lsan_interface.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

constexpr bool memoryIsMeasured = !isSanitized;
// What is compiled to be debugged, or to count branches, takes several times as long.
#if defined(__OPTIMIZE__) && !defined(DDR_BRANCHES_ARE_COUNTED)
constexpr bool isQuick = true;
#else
constexpr bool isQuick = false;
#endif
constexpr double slownessAsleep = isSanitized ? 4 : 1;
constexpr double slowness = isQuick ? slownessAsleep : 8;

constexpr double mebibyte = 1024.0 * 1024.0;
constexpr double longestWork = 1.0;         // [s]
constexpr double longestForAMebibyte = 0.1; // and this for each MiB of the file, which is read more than once
constexpr long long smallestMemory = 64LL * 1024 * 1024;
constexpr long long memoryForAByte = 16;
constexpr unsigned longestWait = 60; // [seconds] until work that never ends is stopped
constexpr rlim_t mostAddresses = rlim_t{4} << 30U;

double secondsOf(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double processorSeconds() {
  return secondsOf(CLOCK_PROCESS_CPUTIME_ID);
}

// How long this thread has worked or waited for its turn. Nothing where the system does not tell.
std::optional<double> secondsAwake() {
  std::ifstream file("/proc/thread-self/schedstat");
  double worked = 0;
  double waited = 0;
  if (!(file >> worked >> waited)) {
    return std::nullopt;
  }
  return (worked + waited) * 1e-9;
}

long long largestResidentSize() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<long long>(usage.ru_maxrss) * 1024;
}

// Lets the largest size begin anew with the present one. Where the system refuses, only growth beyond what
// was the largest before is seen.
void forgetLargestResidentSize() {
  malloc_trim(0);
  int const descriptor = open("/proc/self/clear_refs", O_WRONLY | O_CLOEXEC);
  if (descriptor >= 0) {
    static_cast<void>(!write(descriptor, "5", 1));
    close(descriptor);
  }
}

} // namespace

work_measure::work_measure() {
  if (memoryIsMeasured) {
    forgetLargestResidentSize();
  }
  residentBefore = largestResidentSize();
  alarm(longestWait);
  secondsBefore = processorSeconds();
  awakeBefore = secondsAwake().value_or(0);
  wallBefore = secondsOf(CLOCK_MONOTONIC);
}

work_measure::~work_measure() {
  alarm(0);
}

double work_measure::seconds() const {
  return processorSeconds() - secondsBefore;
}

double work_measure::asleep() const {
  double const wall = secondsOf(CLOCK_MONOTONIC) - wallBefore;
  std::optional<double> const awake = secondsAwake();
  return awake ? wall - (*awake - awakeBefore) : 0;
}

long long work_measure::memory() const {
  return memoryIsMeasured ? largestResidentSize() - residentBefore : 0;
}

std::vector<std::string> work_measure::faults(std::size_t fileSize) const {
  std::vector<std::string> found;
  double const most = longestWork + longestForAMebibyte * static_cast<double>(fileSize) / mebibyte;
  if (double const taken = seconds(); taken > slowness * most) {
    found.push_back("it took " + std::to_string(taken) + " processor seconds");
  }
  if (double const slept = asleep(); slept > slownessAsleep * most) {
    found.push_back("it was asleep for " + std::to_string(slept) + " seconds");
  }
  long long const grown = memory();
  if (grown > smallestMemory + memoryForAByte * static_cast<long long>(fileSize)) {
    found.push_back("it took " + std::to_string(grown) + " bytes of memory");
  }
  return found;
}

std::string leaks() {
  if constexpr (areAddressesSanitized) {
    if (__lsan_do_recoverable_leak_check() != 0) {
      return "memory leaks, which is listed on standard error";
    }
  }
  return "";
}

void limit_own_memory() {
  if (memoryIsMeasured) { // a sanitizer takes all addresses
    rlimit const limit{mostAddresses, mostAddresses};
    setrlimit(RLIMIT_AS, &limit);
  }
}
