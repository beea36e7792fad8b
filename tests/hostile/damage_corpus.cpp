// damage_corpus.cpp: damages copies and looks them over in child processes.
#include "damage_corpus.h"

#include "child_process.h"
#include "damage_judgement.h"
#include "file_probe.h"
#include "long_run.h"
#include "quick_sqlite.h"
#include "shared_memory.h"
#include "temporary_folder.h"
#include "work_measure.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <thread>
#include <unistd.h>

namespace {

constexpr std::uint64_t looksOfAChild = 2000;
constexpr std::size_t mostFaults = 20;

/// What parent and child both see.
struct Shared {
  std::uint64_t next; // in the list of numbers
  std::uint64_t identical;
  std::uint64_t noticed;
  std::uint64_t other;
  double slowest;
  long long memory;
  std::size_t faultsLength;
  char faults[64 * 1024];

  void AddFault(std::string const& text) {
    std::string const line = text.substr(0, 2000) + '\n';
    if (faultsLength + line.size() <= sizeof faults) {
      std::memcpy(faults + faultsLength, line.data(), line.size());
      faultsLength += line.size();
    }
  }
};

/// The work of one process: the numbers from `shared.next` on.
class Worker {
public:
  Worker(damage_family const& itsFamily, std::string const& soundBytes, std::string filePath,
         corpus_work itsWork, Shared& itsShared)
      : family(itsFamily), sound(soundBytes), path(std::move(filePath)), work(itsWork), shared(itsShared) {}

  std::string Run(std::vector<std::uint64_t> const& numbers) {
    use_quick_sqlite();
    std::uint64_t const begin = shared.next;
    LookAtAll(numbers);
    // Blocks of SQLite's own are no leaks here, nor is what they alone lead to: all of them are pieces of
    // large ones.
    if (std::string const leaking = leaks(); !leaking.empty()) {
      shared.AddFault("from " + family.describe(numbers[begin]) + " on, in one process: " + leaking);
    }
    return "";
  }

private:
  void LookAtAll(std::vector<std::uint64_t> const& numbers) {
    file_probe probe;
    writeFile(path, sound);
    expected = Work(probe, 0);
    expectedInFile = everything_in(path);
    // An old file need not open as it is; an upgrade must be made.
    if (!expected.faults.empty() || (work == corpus_work::Upgrade && !expected.refusals.empty())) {
      shared.AddFault("the sound file is not sound");
      return;
    }
    limit_own_memory();
    std::uint64_t const end = std::min<std::uint64_t>(numbers.size(), shared.next + looksOfAChild);
    for (; shared.next < end; ++shared.next) {
      Look(probe, numbers[shared.next]);
    }
  }

  // A quick check does a part of what a deep one does: every fourth copy gets both.
  probe_result Work(file_probe& probe, std::uint64_t number) const {
    if (work == corpus_work::Upgrade) {
      return probe.upgrade(path);
    }
    probe_result found = probe.read(path);
    found.Add(probe.check(path));
    if (number % 4 == 0) {
      found.Add(probe.check_quickly(path));
    }
    return found;
  }

  void Look(file_probe& probe, std::uint64_t number) {
    std::string damaged = sound;
    family.apply(number, damaged);
    writeFile(path, damaged);
    probe_result const found = Measured(number, damaged.size(), [&] { return Work(probe, number); });
    if (readFile(path) != damaged) {
      Fault(number, "reading changed the file");
    }
    Judge(number, found);
    if (work == corpus_work::LookAndChange) {
      Change(probe, number, damaged.size(), found);
    }
  }

  // What is saved without a word is read. Where a look has found damage, it may also be refused in other
  // words than before, or the pages still told to be damaged: rows that are out of order hide others.
  void Change(file_probe& probe, std::uint64_t number, std::size_t size, probe_result const& before) {
    probe_result const changed = Measured(number, size, [&] { return probe.change(path); });
    if (changed.refusals.empty()) {
      probe_result const found = Measured(number, size, [&] { return Work(probe, number); });
      bool const isTold = SaysMore(before, expected) && (SaysMore(found, before) || TellsOfPages(found));
      if (found.contents.find(added_model) == std::string::npos && !isTold) {
        Fault(number, "what was saved without a word is not read: " + found.contents);
      }
    }
    unlink((path + "-journal").c_str());
  }

  template <class Step>
  probe_result Measured(std::uint64_t number, std::size_t size, Step const& step) {
    work_measure const measure;
    probe_result found = step();
    for (std::string const& fault : measure.faults(size)) {
      Fault(number, fault);
    }
    shared.slowest = std::max(shared.slowest, measure.seconds());
    shared.memory = std::max(shared.memory, measure.memory());
    for (std::string const& fault : found.faults) {
      Fault(number, fault);
    }
    return found;
  }

  void Judge(std::uint64_t number, probe_result const& found) {
    bool const isNoticed = SaysMore(found, expected);
    bool const isSame = found.contents == expected.contents;
    ++(isNoticed ? shared.noticed : isSame ? shared.identical : shared.other);
    if (!isNoticed && work == corpus_work::Upgrade && found.contents != "current" && !pages_are_sound(path)) {
      Fault(number, "a file is made of damaged pages without a word: " + found.contents);
    }
    if (isSame) {
      return;
    }
    std::optional<std::string> const inFile = everything_in(path);
    if (!isNoticed && (!inFile || inFile == expectedInFile)) {
      Fault(number, "other contents are read without a word than " +
                        std::string(inFile ? "the file holds: " : "SQLite can read: ") + found.contents);
    }
    if (inFile) {
      WantWordsOf(*inFile, number, found);
    }
  }

  // What is read otherwise than in the sound file, noticed or not, must be what SQLite reads there.
  void WantWordsOf(std::string const& inFile, std::uint64_t number, probe_result const& found) {
    for (std::string const& word : words_from_nowhere(found.contents, expected.contents, inFile)) {
      Fault(number, "'" + word + "' is read, which the file does not hold");
    }
  }

  /// Whether something is refused that was not refused before.
  static bool SaysMore(probe_result const& found, probe_result const& before) {
    return std::any_of(found.refusals.begin(), found.refusals.end(), [&](std::string const& refusal) {
      return std::find(before.refusals.begin(), before.refusals.end(), refusal) == before.refusals.end();
    });
  }

  static bool TellsOfPages(probe_result const& found) {
    return std::any_of(found.refusals.begin(), found.refusals.end(), [](std::string const& refusal) {
      return refusal.find("its pages are damaged") != std::string::npos;
    });
  }

  void Fault(std::uint64_t number, std::string const& what) {
    shared.AddFault(family.describe(number) + ": " + what);
  }

  damage_family const& family;
  std::string const& sound;
  std::string path;
  corpus_work work;
  Shared& shared;
  probe_result expected;
  std::optional<std::string> expectedInFile;
};

/// One row of processes after each other, over one list of numbers.
class Strand {
public:
  Strand(std::vector<std::uint64_t> itsNumbers, std::string filePath)
      : numbers(std::move(itsNumbers)), path(std::move(filePath)), shared(share_memory<Shared>()) {}

  bool HasWork() const { return shared->next < numbers.size(); }
  void Start(damage_family const& family, std::string const& sound, corpus_work work) {
    before = shared->next;
    child = std::make_unique<child_process>(
        [&](child_process&) { return Worker(family, sound, path, work, *shared).Run(numbers); });
  }
  void Finish(damage_family const& family) {
    std::string const answer = child->result();
    child.reset();
    if (!answer.empty()) {
      shared->AddFault(family.describe(numbers[shared->next]) + ": the process ended: " + answer);
      ++shared->next;
    } else if (shared->next == before && shared->faultsLength > 0) {
      shared->next = numbers.size(); // the sound file itself failed
    }
  }
  void AddTo(corpus_result& result) const {
    result.looked += numbers.size();
    result.identical += shared->identical;
    result.noticed += shared->noticed;
    result.other += shared->other;
    result.slowest = std::max(result.slowest, shared->slowest);
    result.memory = std::max(result.memory, shared->memory);
    std::istringstream lines(std::string(shared->faults, shared->faultsLength));
    for (std::string line; std::getline(lines, line) && result.faults.size() < mostFaults;) {
      result.faults.push_back(line);
    }
  }

private:
  std::vector<std::uint64_t> numbers;
  std::string path;
  shared_memory<Shared> shared;
  std::uint64_t before = 0; // the child that is at work began there
  std::unique_ptr<child_process> child;
};

} // namespace

damage_family every_byte(std::string const& sound) {
  constexpr std::uint64_t values = 3;
  damage_family family;
  family.count = sound.size() * values;
  family.apply = [](std::uint64_t number, std::string& bytes) {
    char& byte = bytes[number / values];
    auto const old = static_cast<unsigned char>(byte);
    unsigned const others[values] = {old == 0 ? 1U : 0U, old == 0xff ? 0xfeU : 0xffU, old ^ 0x10U};
    byte = static_cast<char>(others[number % values]);
  };
  family.describe = [](std::uint64_t number) {
    return "byte " + std::to_string(number / values) + ", value " + std::to_string(number % values);
  };
  return family;
}

damage_family every_page(std::string const& sound, std::size_t pageSize) {
  damage_family family;
  family.count = sound.size() / pageSize;
  family.apply = [pageSize](std::uint64_t number, std::string& bytes) {
    bytes.replace(number * pageSize, pageSize, pageSize, '\0');
  };
  family.describe = [](std::uint64_t number) { return "zeroed page " + std::to_string(number + 1); };
  return family;
}

damage_family every_emptied_page(std::string const& sound, std::size_t pageSize) {
  constexpr std::size_t place = 3; // of the number of rows, in two bytes
  damage_family family;
  family.count = sound.size() / pageSize - 1; // the first page begins with the header of the file
  family.apply = [pageSize](std::uint64_t number, std::string& bytes) {
    bytes.replace((number + 1) * pageSize + place, 2, 2, '\0');
  };
  family.describe = [](std::uint64_t number) { return "emptied page " + std::to_string(number + 2); };
  return family;
}

damage_family every_cut(std::string const& sound) {
  constexpr std::size_t step = 512;
  damage_family family;
  family.count = (sound.size() + step - 1) / step;
  family.apply = [](std::uint64_t number, std::string& bytes) { bytes.resize(number * step); };
  family.describe = [](std::uint64_t number) { return "cut at byte " + std::to_string(number * step); };
  return family;
}

damage_family part_of(damage_family const& whole, std::uint64_t part, std::uint64_t parts) {
  damage_family family;
  family.count = (whole.count + parts - 1 - part) / parts;
  family.apply = [=](std::uint64_t number, std::string& bytes) { whole.apply(number * parts + part, bytes); };
  family.describe = [=](std::uint64_t number) { return whole.describe(number * parts + part); };
  return family;
}

std::string corpus_result::text() const {
  return std::to_string(looked) + " looked at, " + std::to_string(identical) + " identical, " +
         std::to_string(noticed) + " noticed, " + std::to_string(other) + " with other values, slowest " +
         std::to_string(slowest) + " s, memory " + std::to_string(memory / 1024) + " KiB";
}

corpus_result run_corpus(damage_family const& family, std::string const& sound, std::string const& folder,
                         corpus_settings const& settings) {
  std::mt19937 random(settings.seed);
  bool const all = settings.limit == 0 || settings.limit >= family.count;
  std::size_t const strandCount = all ? std::max(1U, std::thread::hardware_concurrency()) : 1;
  std::vector<std::vector<std::uint64_t>> lists(strandCount);
  for (std::uint64_t number = 0; number < (all ? family.count : settings.limit); ++number) {
    lists[number % strandCount].push_back(
        all ? number : std::uniform_int_distribution<std::uint64_t>(0, family.count - 1)(random));
  }
  std::vector<Strand> strands;
  for (std::size_t index = 0; index < strandCount; ++index) {
    std::string const place = folder + "/" + std::to_string(index); // what lies beside a copy is its own
    std::filesystem::create_directory(place);
    strands.emplace_back(std::move(lists[index]), place + "/damaged");
  }
  for (bool working = true; working;) {
    std::vector<Strand*> started;
    for (Strand& strand : strands) {
      if (strand.HasWork()) {
        strand.Start(family, sound, settings.work);
        started.push_back(&strand);
      }
    }
    for (Strand* const strand : started) {
      strand->Finish(family);
    }
    working = !started.empty();
  }
  corpus_result result;
  for (Strand const& strand : strands) {
    strand.AddTo(result);
  }
  return result;
}

bool whole_corpus() {
  char const* const wish = std::getenv("DDR_HOSTILE");
  return wish != nullptr && std::strcmp(wish, "all") == 0;
}

std::uint64_t corpus_limit(std::uint64_t ordinary) {
  return whole_corpus() ? 0 : ordinary * static_cast<std::uint64_t>(setting("DDR_HOSTILE", 1));
}

unsigned corpus_seed() {
  return std::getenv("DDR_HOSTILE_SEED") != nullptr ? static_cast<unsigned>(setting("DDR_HOSTILE_SEED", 0))
                                                    : std::random_device()();
}

std::size_t huge_text() {
  return whole_corpus() ? 100'000'000 : 10'000'000;
}

std::string huge_text_sql() {
  return "printf('%.*c', " + std::to_string(huge_text()) + ", 'x')";
}
