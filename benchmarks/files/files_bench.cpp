// Database files beside the same work by plain SQLite calls: make, open, read, save; and what copies and
// unread models cost.
#include "counting.h"
#include "ours.h"
#include "plain.h"

#include "ddr_Library.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

using Clock = std::chrono::steady_clock;

/// Processor time of this process so far [s].
double processorTime() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void report(benchmark::State& state, char const* name, double total) {
  state.counters[name] = benchmark::Counter(total, benchmark::Counter::kAvgIterations);
}

void report(benchmark::State& state, char const* name, std::uint64_t total) {
  report(state, name, static_cast<double>(total));
}

/// What a piece of work took, and what it asked for meanwhile. Reports when it goes.
class Stopwatch {
public:
  explicit Stopwatch(benchmark::State& of) : state(of) {}
  ~Stopwatch() {
    report(state, "processor_us", processor * 1e6);
    report(state, "syncs", syncs);
  }
  Stopwatch(Stopwatch const&) = delete;
  Stopwatch& operator=(Stopwatch const&) = delete;

  /// @returns what it took [s]
  template <class Work>
  double Measure(Work work) {
    std::uint64_t const syncsBefore = syncsSoFar();
    double const processorBefore = processorTime();
    auto const start = Clock::now();
    work();
    std::chrono::duration<double> const taken = Clock::now() - start;
    processor += processorTime() - processorBefore;
    state.SetIterationTime(taken.count());
    syncs += syncsSoFar() - syncsBefore;
    return taken.count();
  }

private:
  benchmark::State& state;
  double processor = 0;
  std::uint64_t syncs = 0;
};

std::string scratchFile() {
  static int number = 0;
  return benchFolder() + "/scratch-" + std::to_string(++number);
}

// ---- create and first save ----

void ours_create(benchmark::State& state) {
  Stopwatch watch(state);
  for (auto _ : state) {
    std::string const path = scratchFile();
    cow_String name;
    watch.Measure([&] {
      makeInMemory(path, Kind::Models, state.range(0));
      ddr_Root& root = ddr_Root::Instance();
      name = root.GetPersistentName(cow_String(path));
      root.SaveDdb(name, true);
    });
    ddr_Root::Instance().CloseDdb(name);
    std::filesystem::remove(path);
  }
}

void plain_create(benchmark::State& state) {
  Stopwatch watch(state);
  for (auto _ : state) {
    std::string const path = scratchFile();
    watch.Measure([&] { PlainFile::Make(path, state.range(0)); });
    std::filesystem::remove(path);
  }
}

// ---- open ----

void ours_open(benchmark::State& state) {
  std::string const& path = savedFile(Kind::Models, state.range(0));
  Stopwatch watch(state);
  std::uint64_t rowsBeyondKeys = 0;
  for (auto _ : state) {
    std::optional<OpenDatabase> opened;
    watch.Measure([&] { opened.emplace(path); });
    if (opened->Record().models.Size() != state.range(0)) {
      state.SkipWithError("not all models are there");
    }
    rowsBeyondKeys += opened->Statistics().rowsRead - static_cast<std::uint64_t>(state.range(0));
  }
  report(state, "rows_beyond_keys", rowsBeyondKeys);
}

void plain_open(benchmark::State& state) {
  std::string const& path = PlainFile::Saved(state.range(0));
  Stopwatch watch(state);
  for (auto _ : state) {
    std::unique_ptr<PlainFile> file;
    std::map<std::string, PlainRecord*> names;
    watch.Measure([&] {
      file = std::make_unique<PlainFile>(path);
      names = file->ReadNames();
    });
    if (names.size() != static_cast<std::size_t>(state.range(0))) {
      state.SkipWithError("not all names are there");
    }
  }
}

// ---- read one ----

void ours_read_one(benchmark::State& state) {
  OpenDatabase const opened(savedFile(Kind::Models, state.range(0)));
  ddr_ModelContainer const& models = opened.Record().models;
  Stopwatch watch(state);
  std::uint64_t rows = 0;
  for (auto _ : state) {
    cow_String const key(recordName(nextNumber(state.range(0))));
    models.Release(key);
    std::uint64_t const before = opened.Statistics().rowsRead;
    watch.Measure([&] { benchmark::DoNotOptimize(models.ConstGet(key)); });
    rows += opened.Statistics().rowsRead - before;
  }
  report(state, "rows_read", rows);
}

void plain_read_one(benchmark::State& state) {
  PlainFile file(PlainFile::Saved(state.range(0)));
  Stopwatch watch(state);
  for (auto _ : state) {
    std::string const key = recordName(nextNumber(state.range(0)));
    watch.Measure([&] { benchmark::DoNotOptimize(file.Read(key)); });
  }
}

// ---- read all ----

void ours_read_all(benchmark::State& state) {
  OpenDatabase const opened(savedFile(Kind::Models, state.range(0)));
  ddr_ModelContainer const& models = opened.Record().models;
  Stopwatch watch(state);
  for (auto _ : state) {
    models.Release();
    watch.Measure([&] {
      cls_Map2ObjIter walk(models);
      for (walk.First(); !walk.AtEnd(); walk.Next()) {
        benchmark::DoNotOptimize(walk.Value());
      }
    });
  }
}

void plain_read_all(benchmark::State& state) {
  PlainFile file(PlainFile::Saved(state.range(0)));
  Stopwatch watch(state);
  for (auto _ : state) {
    std::map<std::string, PlainRecord> records;
    watch.Measure([&] { records = file.ReadAll(); });
  }
}

// ---- save ----

enum class Change { None, Content, Record };

double median(std::vector<double> values) {
  auto const middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// Durable saves, and plain commits in turn with them: what a device takes changes from one moment to the
/// next, so only neighbours can be compared.
void save(benchmark::State& state, Kind kind, Change change) {
  constexpr std::int64_t changing = 16; // the models whose contents change
  std::string const path = scratchFile();
  std::filesystem::copy_file(savedFile(kind, state.range(0)), path);
  OpenDatabase opened(path, true);
  PlainFile plain(PlainFile::Saved(state.range(0)), true);
  if (change == Change::Content) {
    for (std::int64_t number = 0; number < changing; ++number) {
      opened.ChangeOne(recordName(number * (state.range(0) / changing)));
    }
  }
  opened.Save();
  plain.Save(recordName(0));
  Stopwatch watch(state);
  std::uint64_t rowsWritten = 0;
  std::uint64_t rowsRead = 0;
  std::uint64_t plainSyncs = 0;
  double plainProcessor = 0;
  std::vector<double> ours;
  std::vector<double> theirs;
  for (auto _ : state) {
    if (change == Change::Content) {
      opened.ChangeOne(recordName(nextNumber(changing) * (state.range(0) / changing)));
    } else if (change == Change::Record) {
      opened.ReplaceOne(kind, recordName(nextNumber(state.range(0))));
    }
    rfm_Statistics const before = opened.Statistics();
    ours.push_back(watch.Measure([&] { opened.Save(); }));
    rowsWritten += opened.Statistics().rowsWritten - before.rowsWritten;
    rowsRead += opened.Statistics().rowsRead - before.rowsRead;

    std::string const key = recordName(nextNumber(state.range(0)));
    std::uint64_t const syncsBefore = syncsSoFar();
    double const processorBefore = processorTime();
    auto const start = Clock::now();
    plain.Save(key);
    theirs.push_back(std::chrono::duration<double>(Clock::now() - start).count());
    plainProcessor += processorTime() - processorBefore;
    plainSyncs += syncsSoFar() - syncsBefore;
  }
  report(state, "rows_written", rowsWritten);
  report(state, "rows_read", rowsRead);
  report(state, "plain_syncs", plainSyncs);
  report(state, "plain_processor_us", plainProcessor * 1e6);
  std::filesystem::remove(path);
  state.counters["ours_us"] = median(ours) * 1e6;
  state.counters["plain_us"] = median(theirs) * 1e6;
}

void save_one_model(benchmark::State& state) {
  save(state, Kind::Models, Change::Content);
}

void save_nothing(benchmark::State& state) {
  save(state, Kind::Models, Change::None);
}

void save_new_model(benchmark::State& state) {
  save(state, Kind::Models, Change::Record);
}

void save_new_result(benchmark::State& state) {
  save(state, Kind::Results, Change::Record);
}

void save_new_userdata(benchmark::State& state) {
  save(state, Kind::UserData, Change::Record);
}

// ---- memory of a model that is not loaded ----

int printMemoryOfOpening(char const* path) {
  std::size_t const before = memoryInUse();
  OpenDatabase const opened{std::string(path)};
  std::size_t const after = memoryInUse();
  std::printf("%zu\n", after - before);
  return opened.Record().models.Size() > 0 ? 0 : 1;
}

/// Opens the file in a process that has done nothing before, so that no memory is there to be used again.
/// @returns nothing when that process fails; 0 where the heap does not count, as under a sanitizer
std::optional<std::size_t> memoryOfOpening(std::string const& path) {
  std::array<char, 4096> self{};
  if (readlink("/proc/self/exe", self.data(), self.size() - 1) < 0) {
    return std::nullopt;
  }
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) {
    return std::nullopt;
  }
  pid_t const child = fork();
  if (child == 0) {
    dup2(ends[1], STDOUT_FILENO);
    execl(self.data(), self.data(), "--memory-of-opening", path.c_str(), nullptr);
    _exit(127);
  }
  close(ends[1]);
  std::FILE* const output = fdopen(ends[0], "r");
  std::size_t bytes = 0;
  bool const read = output != nullptr && std::fscanf(output, "%zu", &bytes) == 1;
  if (output != nullptr) {
    std::fclose(output);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return read && status == 0 ? std::optional(bytes) : std::nullopt;
}

void ours_unread_model_bytes(benchmark::State& state) {
  std::string const& path = savedFile(Kind::Models, state.range(0));
  std::optional<std::size_t> bytes;
  for (auto _ : state) {
    bytes = memoryOfOpening(path);
  }
  if (!bytes) {
    state.SkipWithError("the other process did not answer");
  }
  state.counters["bytes_per_model"] =
      static_cast<double>(bytes.value_or(0)) / static_cast<double>(state.range(0));
}

// ---- copies ----

template <class Copied>
void copy(benchmark::State& state, Copied const& original) {
  for (auto _ : state) {
    Copied copied(original);
    benchmark::DoNotOptimize(copied);
  }
  std::uint64_t const newsBefore = newsSoFar();
  std::size_t const blocksBefore = poolBlocks();
  Copied const kept(original);
  benchmark::DoNotOptimize(&kept);
  state.counters["allocations"] = static_cast<double>(newsSoFar() - newsBefore + poolBlocks() - blocksBefore);
}

void copy_databases(benchmark::State& state) {
  OpenDatabase const opened(savedFile(Kind::Models, state.range(0)));
  copy(state, ddr_Root::Instance().Fetch());
}

void copy_models(benchmark::State& state) {
  OpenDatabase const opened(savedFile(Kind::Models, state.range(0)));
  copy(state, opened.Record().models);
}

void copy_model_handle(benchmark::State& state) {
  OpenDatabase const opened(savedFile(Kind::Models, state.range(0)));
  ddr_ModelContainer const& models = opened.Record().models;
  cow_String const key(recordName(0));
  models.ConstGet(key);
  copy(state, models.ConstTree().ConstFind(key)->Value());
}

void copy_database_handle(benchmark::State& state) {
  OpenDatabase const opened(savedFile(Kind::Models, state.range(0)));
  copy(state, *ddr_Root::Instance().Fetch().ConstGetMap().ConstFind(opened.Record().GetName()));
}

void copy_results(benchmark::State& state) {
  OpenDatabase const opened(savedFile(Kind::Results, state.range(0)));
  copy(state, opened.Record().results);
}

void copy_userdata(benchmark::State& state) {
  OpenDatabase const opened(savedFile(Kind::UserData, state.range(0)));
  copy(state, opened.Record().userData);
}

void modelCounts(benchmark::internal::Benchmark* of) {
  of->Arg(100)->Arg(10000)->Arg(100000);
}

void timed(benchmark::internal::Benchmark* of) {
  modelCounts(of);
  of->UseManualTime()->Unit(benchmark::kMicrosecond);
}

// As many as medians need, however slow the device is.
void saved(benchmark::internal::Benchmark* of) {
  modelCounts(of);
  of->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(41);
}

BENCHMARK(ours_create)->Apply(timed);
BENCHMARK(plain_create)->Apply(timed);
BENCHMARK(ours_open)->Apply(timed);
BENCHMARK(plain_open)->Apply(timed);
BENCHMARK(ours_read_one)->Apply(timed);
BENCHMARK(plain_read_one)->Apply(timed);
BENCHMARK(ours_read_all)->Apply(timed);
BENCHMARK(plain_read_all)->Apply(timed);
BENCHMARK(save_one_model)->Apply(saved);
BENCHMARK(save_nothing)->Apply(saved);
BENCHMARK(save_new_model)->Apply(saved);
BENCHMARK(save_new_result)->Apply(saved);
BENCHMARK(save_new_userdata)->Apply(saved);
BENCHMARK(ours_unread_model_bytes)->Apply(modelCounts)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(copy_databases)->Apply(modelCounts);
BENCHMARK(copy_models)->Apply(modelCounts);
BENCHMARK(copy_model_handle)->Apply(modelCounts);
BENCHMARK(copy_database_handle)->Apply(modelCounts);
BENCHMARK(copy_results)->Apply(modelCounts);
BENCHMARK(copy_userdata)->Apply(modelCounts);

} // namespace

int main(int argc, char** argv) {
  int libraries = 0;
  ddr_initialize(libraries);
  registerClasses();
  int result = 0;
  if (argc == 3 && std::string(argv[1]) == "--memory-of-opening") {
    result = printMemoryOfOpening(argv[2]);
  } else {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
      result = 1;
    } else {
      benchmark::RunSpecifiedBenchmarks();
    }
  }
  ddr_finalize(libraries);
  return result;
}
