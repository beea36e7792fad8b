// Upgrades of large databases of release 203 beside plain copies of the rows that the new files hold. Each
// runs in a process of its own, which tells its time and the most memory that it had.
#include "old_file.h"

#include "dbc_Conversion.h"
#include "ddr_Library.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>
#include <string>

#include <benchmark/benchmark.h>

namespace {

using Clock = std::chrono::steady_clock;

/// The most memory that this process has had since it began [KiB].
long peakMemory() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) {
      return std::stol(line.substr(std::strlen("VmHWM:")));
    }
  }
  throw std::runtime_error("no VmHWM in /proc/self/status");
}

/// Rows and entries in both files of a conversion.
struct Rows {
  std::int64_t in = 0;
  std::int64_t out = 0;
};

Rows upgrade(std::string const& from, std::string const& to) {
  dbc_ConversionReport const report = dbc_Conversion::Run(cow_String(from), cow_String(to));
  Rows rows{report.entriesIn, report.entriesOut};
  for (dbc_ClassReport const& of : report.classes) {
    rows.in += of.rowsIn;
    rows.out += of.rowsOut;
  }
  return rows;
}

/// The work of a process that is started for one measurement.
int work(std::string const& what, std::string const& from, std::string const& to) {
  int libraries = 0;
  ddr_initialize(libraries);
  auto const start = Clock::now();
  Rows rows;
  if (what == "upgrade") {
    rows = upgrade(from, to);
  } else {
    rows.in = rows.out = copyPlainly(from, to, what == "copy_rows_and_indexes");
  }
  double const seconds = std::chrono::duration<double>(Clock::now() - start).count();
  std::printf("%.9f %ld %lld %lld\n", seconds, peakMemory(), static_cast<long long>(rows.in),
              static_cast<long long>(rows.out));
  ddr_finalize(libraries);
  return 0;
}

struct Measured {
  double seconds = 0;
  long peak = 0; // KiB
  long long rowsIn = 0;
  long long rowsOut = 0;
};

Measured measure(std::string const& what, std::string const& from, std::string const& to) {
  std::string const program = std::filesystem::read_symlink("/proc/self/exe");
  std::string const command = "'" + program + "' --work " + what + " '" + from + "' '" + to + "'";
  FILE* const answer = popen(command.c_str(), "r");
  Measured measured;
  int const read = answer == nullptr ? 0
                                     : std::fscanf(answer, "%lf %ld %lld %lld", &measured.seconds,
                                                   &measured.peak, &measured.rowsIn, &measured.rowsOut);
  if (answer == nullptr || pclose(answer) != 0 || read != 4) {
    throw std::runtime_error(command + " failed");
  }
  return measured;
}

/// Files that are made when they are first asked for, and removed at the end.
class KeptFiles {
public:
  KeptFiles() = default;
  ~KeptFiles() {
    for (std::string const& path : made) {
      std::filesystem::remove(path);
    }
  }
  KeptFiles(KeptFiles const&) = delete;
  KeptFiles& operator=(KeptFiles const&) = delete;

  /// A database of release 203.
  std::string Old(std::int64_t count) {
    std::string const path = "bench-old-" + std::to_string(count) + ".ddr";
    if (made.insert(path).second) {
      makeOldFile(path, count);
    }
    return path;
  }
  /// The same database, upgraded.
  std::string New(std::int64_t count) {
    std::string const path = "bench-new-" + std::to_string(count) + ".ddr";
    if (made.insert(path).second) {
      std::filesystem::remove(path);
      measure("upgrade", Old(count), path);
    }
    return path;
  }

private:
  std::set<std::string> made;
};

KeptFiles& keptFiles() {
  static KeptFiles files;
  return files;
}

void run(benchmark::State& state, char const* what, bool fromOld) {
  std::string const from = fromOld ? keptFiles().Old(state.range(0)) : keptFiles().New(state.range(0));
  std::string const to = std::string("bench-") + what + ".ddr";
  Measured measured;
  for (auto _ : state) {
    std::filesystem::remove(to);
    measured = measure(what, from, to);
    state.SetIterationTime(measured.seconds);
  }
  std::filesystem::remove(to);
  state.counters["peak_kib"] = static_cast<double>(measured.peak);
  state.counters["rows_in"] = static_cast<double>(measured.rowsIn);
  state.counters["rows_out"] = static_cast<double>(measured.rowsOut);
  state.counters["rows_a_second"] = static_cast<double>(measured.rowsOut) / measured.seconds;
}

void sizes(benchmark::internal::Benchmark* of) {
  of->Arg(100)->Arg(10000)->Arg(100000)->UseManualTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK_CAPTURE(run, upgrade, "upgrade", true)->Name("upgrade")->Apply(sizes);
BENCHMARK_CAPTURE(run, rows, "copy_rows", false)->Name("copy_rows")->Apply(sizes);
BENCHMARK_CAPTURE(run, all, "copy_rows_and_indexes", false)->Name("copy_rows_and_indexes")->Apply(sizes);
BENCHMARK_CAPTURE(run, old, "copy_old_rows", true)->Name("copy_old_rows")->Apply(sizes);

} // namespace

int main(int argumentCount, char** arguments) {
  if (argumentCount == 5 && std::string(arguments[1]) == "--work") {
    return work(arguments[2], arguments[3], arguments[4]);
  }
  benchmark::Initialize(&argumentCount, arguments);
  if (benchmark::ReportUnrecognizedArguments(argumentCount, arguments)) {
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
