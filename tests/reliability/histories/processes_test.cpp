// Several processes on one file: nobody reads half a save, no save is lost, and a lock is told by name.
#include "child_process.h"
#include "counts.h"
#include "ddr_Check.h"
#include "long_run.h"
#include "module_client.h"
#include "rfm_Database.h"
#include "rfm_Exception.h"
#include "rfm_ReadScope.h"
#include "rfm_Transaction.h"
#include "rom_Memento.h"
#include "shared_memory.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <gmock/gmock.h>
#include <random>
#include <sched.h>
#include <sstream>
#include <unistd.h>

using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr int writerCount = 4;
constexpr int readerCount = 4;
// Every save puts the same number into each of them.
constexpr int togetherCount = 6;

long long number(char const* text) {
  return std::strtoll(text, nullptr, 10);
}

long long noteNumber(ddr_Ddb const& record, std::string const& model) {
  cow_String const key(model.c_str());
  return record.models.IsMember(key) ? number(noteOf(record.models.ConstGet(key)).c_str()) : 0;
}

std::string counterOf(int writer) {
  return numbered("W", writer);
}

using Count = std::atomic<long long>;
static_assert(Count::is_always_lock_free);

/// What one process has met, as it tells the test: counts by name, and the first thing that was wrong.
struct Report {
  long long done = 0;      ///< saves or reads that succeeded
  long long locked = 0;    ///< refused because another process held the file
  long long overtaken = 0; ///< saves refused because another process had saved since the file was opened
  std::string wrong = "nothing";

  std::string Text() const {
    return std::to_string(done) + " " + std::to_string(locked) + " " + std::to_string(overtaken) + " " +
           wrong;
  }
  static Report Of(std::string const& text) {
    Report read;
    std::istringstream stream(text);
    if (!(stream >> read.done >> read.locked >> read.overtaken)) {
      read.wrong = text;
      return read;
    }
    std::getline(stream >> std::ws, read.wrong);
    return read;
  }
  void Wrong(std::string const& text) {
    if (wrong == "nothing") {
      wrong = text;
    }
  }
};

/// Repeats work until it has succeeded and need not go on; sorts what it throws.
/// @param goesOn asked each time
Report repeat(std::string const& path, std::function<bool()> const& goesOn,
              std::function<void(Report&)> const& work) {
  Report report;
  while ((goesOn() || report.done == 0) && report.wrong == "nothing") {
    try {
      work(report);
      ++report.done;
    } catch (rfm_Exception const& failure) {
      std::string const text = failure.what();
      if (text.find(path) == std::string::npos) {
        report.Wrong("no file in: " + text);
      } else if (failure.Kind() == rfm_ErrorKind::Locked) {
        ++report.locked;
      } else {
        report.Wrong(text);
      }
    } catch (nex_TextException const& failure) {
      std::string const text = failure.what();
      if (text.find(path) != std::string::npos &&
          text.find("was changed by another user since") != std::string::npos) {
        ++report.overtaken;
      } else {
        report.Wrong(text);
      }
    }
  }
  return report;
}

/// Says whether some time from now on is not over yet.
std::function<bool()> within(std::chrono::milliseconds time) {
  auto const end = std::chrono::steady_clock::now() + time;
  return [end] { return std::chrono::steady_clock::now() < end; };
}

/// Lets a random time pass, so that another process is met anywhere in its work.
void letPass(std::chrono::microseconds time) {
  auto const end = std::chrono::steady_clock::now() + time;
  while (std::chrono::steady_clock::now() < end) {
    sched_yield();
  }
}

/// An open database that is closed whatever happens.
class Opening {
public:
  Opening(std::string const& path, utl_FileAccess access) : name(module_client::open(path, access)) {}
  ~Opening() { module_client::close(name); }
  Opening(Opening const&) = delete;
  Opening& operator=(Opening const&) = delete;

  cow_String const name;
};

/// Adds one to everything.
void countUp(std::string const& path, int writer) {
  Opening const opening(path, utl_FileAccess::Write);
  module_client::edit(opening.name, [&](ddr_Ddb& record) {
    std::string const next = std::to_string(number(record.GetDescription().Text()) + 1);
    record.SetDescription(cow_String(next.c_str()));
    for (int model = 0; model < togetherCount; ++model) {
      module_client::write_model(record, numbered("M", model), next);
    }
    module_client::write_model(record, counterOf(writer),
                               std::to_string(noteNumber(record, counterOf(writer)) + 1));
  });
  module_client::save(opening.name);
}

/// The one number that all models of the record say.
long long agreedNumber(ddr_Ddb const& record, Report& report) {
  long long const first = noteNumber(record, "M0");
  for (int model = 1; model < togetherCount; ++model) {
    if (noteNumber(record, numbered("M", model)) != first) {
      report.Wrong("a torn read: " + contentsOf(record));
    }
  }
  return first;
}

/// Reads everything in one state of the file.
long long readAtOnce(std::string const& path, Report& report) {
  std::unique_ptr<cls_ClassRegistrar> const classes = module_client::registrar();
  rom_Transporter transporter(classes.get(),
                              rfm_File::Open(cow_String(path.c_str()), utl_FileAccess::Read, true), "D0", -1);
  rfm_ReadScope const scope(transporter.Database());
  int const last = transporter.GetTableSize(ddr_Ddb::TypeId()) - 1;
  rom_MementoRead const memento(transporter, ddr_Ddb::TypeId(), last, cls_Uid::Allocate());
  ddr_Ddb const record((cls_ReadVisitor(memento)));
  long long const agreed = agreedNumber(record, report);
  if (agreed != number(record.GetDescription().Text())) {
    report.Wrong("a torn read: " + contentsOf(record));
  }
  return agreed;
}

/// Opens through the registry, and reads the models later in one state of the file.
long long readAfterOpening(std::string const& path, Report& report) {
  Opening const opening(path, utl_FileAccess::Read);
  ddr_Ddb const& record = module_client::record(opening.name);
  rfm_ReadScope const scope(record.GetTransporter()->Database());
  long long const agreed = agreedNumber(record, report);
  if (agreed < number(record.GetDescription().Text())) {
    report.Wrong("models older than their record: " + contentsOf(record));
  }
  return agreed;
}

class ProcessesTest : public testing::Test {
protected:
  std::string const path = folder().path("shared.odb");

  static temporary_folder& folder() {
    static temporary_folder one;
    return one;
  }
  void createFile() const {
    module_client const client;
    cow_String const name = module_client::create(path);
    module_client::edit(name, [](ddr_Ddb& record) { record.SetDescription("0"); });
    module_client::save(name);
    module_client::close(name);
  }
  static std::chrono::milliseconds runTime() {
    return std::chrono::milliseconds(setting("DDR_PROCESS_MILLISECONDS", 3000));
  }
  /// What another process hears when it begins to write.
  std::string writingElsewhere() const {
    return in_child([this] {
      return failureOf([this] {
        rfm_Database database =
            rfm_Database::Open(rfm_File::Open(cow_String(path.c_str()), utl_FileAccess::Write, true), "D0");
        rfm_Transaction const transaction(database);
      });
    });
  }
};

TEST_F(ProcessesTest, NoReadIsTornAndNoSaveIsLost) {
  createFile();
  constexpr std::chrono::seconds longEnough(60); // for writers to meet, however busy the machine is
  auto const met = share_memory<Count>();        // above 0 once a save was refused because of another one
  std::vector<std::unique_ptr<child_process>> writers;
  std::vector<std::unique_ptr<child_process>> readers;
  for (int writer = 0; writer < writerCount; ++writer) {
    writers.push_back(std::make_unique<child_process>([&, writer](child_process&) {
      module_client const client;
      auto const hasTime = within(runTime());
      auto const canMeet = within(longEnough);
      auto const goesOn = [&] { return hasTime() || (*met == 0 && canMeet()); };
      return repeat(path, goesOn,
                    [&](Report& report) {
                      if (report.locked + report.overtaken > 0) {
                        ++*met;
                      }
                      countUp(path, writer);
                    })
          .Text();
    }));
  }
  for (int reader = 0; reader < readerCount; ++reader) {
    readers.push_back(std::make_unique<child_process>([this, reader](child_process&) {
      module_client const client;
      long long seen = 0;
      return repeat(path, within(runTime()),
                    [&](Report& report) {
                      long long const now =
                          reader % 2 == 0 ? readAtOnce(path, report) : readAfterOpening(path, report);
                      if (now < seen) {
                        report.Wrong(numbered("back from ", seen) + numbered(" to ", now));
                      }
                      seen = now;
                    })
          .Text();
    }));
  }
  Report reads;
  for (auto const& reader : readers) {
    Report const report = Report::Of(reader->result());
    EXPECT_EQ(report.wrong, "nothing");
    reads.done += report.done;
    reads.locked += report.locked;
  }
  module_client const client;
  std::vector<long long> savesOf;
  Report saves;
  for (auto const& writer : writers) {
    Report const report = Report::Of(writer->result());
    EXPECT_EQ(report.wrong, "nothing");
    savesOf.push_back(report.done);
    saves.done += report.done;
    saves.locked += report.locked;
    saves.overtaken += report.overtaken;
  }
  EXPECT_GT(saves.locked + saves.overtaken, 0) << "no writer has met another one";
  ddr_Ddb const& record = module_client::record(module_client::open(path));
  EXPECT_EQ(number(record.GetDescription().Text()), saves.done);
  for (int writer = 0; writer < writerCount; ++writer) {
    EXPECT_EQ(noteNumber(record, counterOf(writer)), savesOf.at(static_cast<std::size_t>(writer)));
  }
  EXPECT_EQ(ddr_check(cow_String(path.c_str()), ddr_CheckDepth::Deep).status, ddr_CheckStatus::Sound);
  addToCount("saves beside each other", "made", saves.done);
  addToCount("saves beside each other", "overtaken", saves.overtaken);
  addToCount("saves beside each other", "kept out by a lock", saves.locked);
  addToCount("saves beside each other", "read", reads.done);
  addToCount("saves beside each other", "kept out of reading", reads.locked);
}

TEST_F(ProcessesTest, ASaveOverTheSaveOfAnotherProcessIsRefused) {
  createFile();
  child_process other([this](child_process& self) {
    self.wait_for_go();
    module_client const client;
    countUp(path, 0);
    return std::string("saved");
  });
  module_client const client;
  {
    Opening const opening(path, utl_FileAccess::Write);
    module_client::edit(opening.name, [](ddr_Ddb& record) { record.SetDescription("mine"); });
    other.go();
    EXPECT_EQ(other.result(), "saved");
    EXPECT_THAT(
        failureOf([&] { module_client::save(opening.name); }),
        testing::AllOf(HasSubstr(path), HasSubstr("was changed by another user since it was opened")));
  }
  Report report;
  EXPECT_EQ(readAtOnce(path, report), 1);
}

TEST_F(ProcessesTest, WhatAKilledProcessSavedIsWholeForTheOthers) {
  createFile();
  long long const kills = setting("DDR_PROCESS_KILLS", 5);
  constexpr long long manyKills = 200;
  constexpr unsigned longestLife = 3000; // of a process after its first save [microseconds]
  std::mt19937_64 random(static_cast<std::uint64_t>(setting("DDR_TORTURE_SEED", 1)));
  module_client const client;
  long long seen = 0;
  long long interrupted = 0;
  long long landed = 0; // saves that were there before they returned
  for (long long kill = 0; kill < kills; ++kill) {
    auto const returned = share_memory<Count>(); // saves of the process that is killed
    {
      child_process writer([&](child_process& self) {
        module_client const other;
        auto const saveOne = [&] {
          countUp(path, 0);
          ++*returned;
        };
        saveOne();
        self.ready();
        return repeat(path, within(std::chrono::hours(1)), [&](Report&) { saveOne(); }).Text();
      });
      writer.wait_until_ready();
      letPass(std::chrono::microseconds(random() % longestLife));
    } // in the middle of its next saves
    interrupted += access((path + "-journal").c_str(), F_OK) == 0 ? 1 : 0;
    Report report;
    { Opening const recovered(path, utl_FileAccess::Write); }
    long long const now = readAtOnce(path, report);
    EXPECT_EQ(report.wrong, "nothing");
    ASSERT_GE(now, seen + *returned) << "a save that had returned is lost";
    ASSERT_LE(now, seen + *returned + 1) << "more than the one save that was under way";
    landed += now - seen - *returned;
    seen = now;
  }
  EXPECT_EQ(ddr_check(cow_String(path.c_str()), ddr_CheckDepth::Deep).status, ddr_CheckStatus::Sound);
  if (kills >= manyKills) {
    EXPECT_GT(interrupted, 0) << "no kill met a save";
  }
  addToCount("kills", "done", kills);
  addToCount("kills", "in the middle of a save", interrupted);
  addToCount("kills", "between the end of a save and its return", landed);
  addToCount("kills", "saves made", seen);
}

TEST_F(ProcessesTest, ALockErrorNamesTheFileAndTheProcessThatHoldsIt) {
  createFile();
  child_process holder([this](child_process& self) {
    rfm_Database database =
        rfm_Database::Open(rfm_File::Open(cow_String(path.c_str()), utl_FileAccess::Write, true), "D0");
    rfm_Transaction const transaction(database);
    self.ready();
    self.wait_for_go();
    return std::to_string(getpid());
  });
  holder.wait_until_ready();
  std::string const refused = writingElsewhere();
  holder.go();
  std::string const process = holder.result();
  EXPECT_THAT(refused, StartsWith("Database file '" + path + "': it is in use by another process (" +
                                  process + ", '"));
  EXPECT_THAT(refused, testing::EndsWith("'). Try again when the other one has finished."));
  EXPECT_EQ(writingElsewhere(), "nothing");
}

TEST_F(ProcessesTest, ALockOfAnotherOpeningOfTheSameProcessIsToldSo) {
  createFile();
  rfm_Database first =
      rfm_Database::Open(rfm_File::Open(cow_String(path.c_str()), utl_FileAccess::Write, true), "D0");
  rfm_Transaction const transaction(first);
  rfm_Database second =
      rfm_Database::Open(rfm_File::Open(cow_String(path.c_str()), utl_FileAccess::Write, true), "D0");
  EXPECT_EQ(failureOf([&] { rfm_Transaction const other(second); }),
            "Database file '" + path +
                "': it is in use elsewhere in this process. Try again when the other one has finished.");
}

TEST_F(ProcessesTest, ALockOutlivesAnotherUseOfTheFileThroughSqliteInTheSameProcess) {
  createFile();
  rfm_Database database =
      rfm_Database::Open(rfm_File::Open(cow_String(path.c_str()), utl_FileAccess::Write, true), "D0");
  {
    rfm_Transaction const transaction(database);
    EXPECT_NE(runSql(path, "SELECT count(*) FROM sqlite_schema"), "0"); // opens, reads and closes it
    EXPECT_THAT(writingElsewhere(),
                HasSubstr("it is in use by another process (" + std::to_string(getpid()) + ", '"));
  }
  EXPECT_EQ(writingElsewhere(), "nothing");
}

TEST_F(ProcessesTest, ALockOutlivesEveryOtherUseThatTheModuleMakesOfTheFile) {
  createFile();
  module_client const client;
  cow_String const file(path.c_str());
  rfm_Database database = rfm_Database::Open(rfm_File::Open(file, utl_FileAccess::Write, true), "D0");
  rfm_Transaction const transaction(database);
  {
    Opening const opening(path, utl_FileAccess::Read);
    ddr_Ddb const& record = module_client::record(opening.name);
    EXPECT_FALSE(contentsOf(record).empty());
    EXPECT_TRUE(record.checkWriteCompatibility());
    EXPECT_TRUE(module_client::root().VerifyCreationDate(rfm_File::Open(file, utl_FileAccess::Read, true)));
    EXPECT_EQ(ddr_check(file, ddr_CheckDepth::Deep).status, ddr_CheckStatus::Sound);
    EXPECT_THAT(failureOf([&] { module_client::create(path); }), HasSubstr(path));
  }
  EXPECT_THAT(writingElsewhere(),
              HasSubstr("it is in use by another process (" + std::to_string(getpid()) + ", '"));
}

} // namespace
