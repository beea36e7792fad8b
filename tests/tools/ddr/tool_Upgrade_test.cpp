// Tests of the verb "upgrade", and of what "info" says of old databases.
#include "stored_file.h"
#include "tool_Test.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <optional>
#include <pty.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

struct UpgradeTest : tool_Test {
  /// Makes a database as an older release left it.
  void make(std::string const& file, std::string const& layout) {
    make_stored_file(folder.path(file), readFile(std::string(UPGRADE_LAYOUTS) + "/" + layout + ".sql"));
  }
  /// What is said of a class in the answer to --json.
  static nlohmann::json classOf(nlohmann::json const& answer, std::string const& name) {
    for (nlohmann::json const& of : answer["classes"]) {
      if (of["name"] == name) {
        return of;
      }
    }
    return {};
  }
};

TEST_F(UpgradeTest, ANewCurrentDatabaseIsMade) {
  make("old.ddr", "database_203");
  std::string const before = bytes("old.ddr");
  EXPECT_EQ(run({"upgrade", "old.ddr", "new.ddr"}).status, 0);
  EXPECT_EQ(bytes("old.ddr"), before);
  EXPECT_THAT(folder.names(), ElementsAre("new.ddr", "old.ddr"));
  EXPECT_THAT(done({"ls", "new.ddr"}), HasSubstr("Models (3)\n  Beam\n  Plate\n"));
  nlohmann::json const info = json({"info", "new.ddr"});
  EXPECT_EQ(info["olderLayout"], false);
  EXPECT_EQ(info["classVersions"]["ddr_Ddb"], 848);
  EXPECT_EQ(info["classVersions"]["ddr_Model"], 874);
}

TEST_F(UpgradeTest, TheReportNamesEveryClassAndWhatWasDone) {
  make("old.ddr", "database_309");
  std::string const report = run({"upgrade", "old.ddr", "new.ddr"}).out;
  EXPECT_THAT(report, StartsWith("Upgraded 'old.ddr' to 'new.ddr'.\n\n"));
  EXPECT_THAT(report, HasSubstr("Class                               Version          Rows in  Rows out\n"
                                "ddr_Ddb                             309 -> 848             2         2\n"
                                "  step 321: 309 -> 321, 2 rows\n"));
  EXPECT_THAT(report, HasSubstr("  dropped diagnosticData in 2 rows, step 321: "));
  EXPECT_THAT(report, HasSubstr("  supplied diagnosticData in 2 rows, step 321: an empty list\n"));
  EXPECT_THAT(report,
              HasSubstr("\nodiK_Note                           77                     2         2\n"));
  EXPECT_THAT(report,
              HasSubstr("\nkprC_SCWrapper                      new, 401               0         3\n"));
  EXPECT_THAT(report, HasSubstr("\nEntries of collections "));
  for (std::string const& name : stored_file(folder.path("new.ddr")).classes()) {
    EXPECT_THAT(report, HasSubstr("\n" + name + " "));
  }
}

TEST_F(UpgradeTest, JsonSaysTheSame) {
  make("old.ddr", "database_309");
  nlohmann::json const answer = json({"upgrade", "old.ddr", "new.ddr"});
  EXPECT_EQ(answer["input"], "old.ddr");
  EXPECT_EQ(answer["output"], "new.ddr");
  EXPECT_EQ(answer["alreadyCurrent"], false);
  EXPECT_EQ(answer["dryRun"], false);
  nlohmann::json const record = classOf(answer, "ddr_Ddb");
  EXPECT_EQ(record["typeId"], 0x220006);
  EXPECT_EQ(record["versionIn"], 309);
  EXPECT_EQ(record["versionOut"], 848);
  EXPECT_EQ(record["known"], true);
  EXPECT_EQ(record["rowsIn"], 2);
  EXPECT_EQ(record["rowsOut"], 2);
  EXPECT_EQ(record["steps"][0],
            (nlohmann::json{{"step", 321}, {"versionBefore", 309}, {"versionAfter", 321}, {"rows", 2}}));
  EXPECT_EQ(record["steps"].size(), 3U);
  EXPECT_EQ(record["notes"][0]["kind"], "dropped");
  EXPECT_EQ(record["notes"][0]["field"], "diagnosticData");
  EXPECT_EQ(record["notes"][0]["rows"], 2);
  EXPECT_EQ(classOf(answer, "odiK_Note")["known"], false);
  EXPECT_EQ(classOf(answer, "kprC_SCWrapper")["versionIn"], nullptr);
  EXPECT_GT(answer["entriesOut"], answer["entriesIn"]);
  EXPECT_TRUE(answer["leftBehind"].empty());
}

TEST_F(UpgradeTest, ADryRunListsStepsAndRowsAndMakesNothing) {
  make("old.ddr", "database_203");
  auto const before = everything();
  std::string const plan = done({"upgrade", "old.ddr", "--dry-run"});
  EXPECT_THAT(plan, StartsWith("'old.ddr' would be upgraded so:\n"));
  EXPECT_THAT(plan, HasSubstr("  step 203: 203 -> 204, 2 rows\n  step 309: 204 -> 309, 2 rows\n"));
  EXPECT_THAT(plan, HasSubstr("  step 401: 203 -> 401, 3 rows\n"));
  EXPECT_EQ(done({"upgrade", "old.ddr", "new.ddr", "--dry-run"}), plan);
  EXPECT_EQ(everything(), before);
}

TEST_F(UpgradeTest, ADryRunAnswersInJson) {
  make("old.ddr", "model_401");
  nlohmann::json const answer = json({"upgrade", "old.ddr", "--dry-run"});
  EXPECT_EQ(answer["dryRun"], true);
  EXPECT_EQ(answer["output"], nullptr);
  EXPECT_EQ(classOf(answer, "ddr_Model")["steps"].size(), 2U);
  EXPECT_FALSE(classOf(answer, "ddr_Model").contains("rowsOut"));
  EXPECT_THAT(folder.names(), ElementsAre("old.ddr"));
}

TEST_F(UpgradeTest, ACurrentDatabaseIsNotCopied) {
  done({"create", "a.ddr"});
  EXPECT_EQ(done({"upgrade", "a.ddr", "new.ddr"}), "'a.ddr' is current already; nothing was copied.\n");
  EXPECT_EQ(done({"upgrade", "a.ddr", "--dry-run"}),
            "'a.ddr' is current already; nothing would be copied.\n");
  EXPECT_EQ(json({"upgrade", "a.ddr", "new.ddr"})["alreadyCurrent"], true);
  EXPECT_THAT(folder.names(), ElementsAre("a.ddr"));
}

TEST_F(UpgradeTest, QuietSaysNothing) {
  make("old.ddr", "database_818");
  EXPECT_EQ(done({"upgrade", "old.ddr", "new.ddr", "--quiet"}), "");
  EXPECT_EQ(json({"info", "new.ddr"})["olderLayout"], false);
}

TEST_F(UpgradeTest, AQuietDryRunTellsByItsStatusAlone) {
  make("old.ddr", "database_818");
  EXPECT_EQ(done({"upgrade", "old.ddr", "--dry-run", "--quiet"}), "");
  EXPECT_EQ(done({"upgrade", "old.ddr", "--dry-run", "--quiet", "--json"}),
            done({"upgrade", "old.ddr", "--dry-run", "--json"}));
  runSql(folder.path("old.ddr"),
         "UPDATE ddr_class SET \"Class Version\" = 7 WHERE \"Class Name\" = 'ddr_Ddb'");
  EXPECT_THAT(refused({"upgrade", "old.ddr", "--dry-run", "--quiet"}), HasSubstr("it has the version 7"));
}

TEST_F(UpgradeTest, AChangeThatAnOlderLayoutCannotTakeNamesTheWayOut) {
  make("old.ddr", "model_203");
  auto const before = everything();
  EXPECT_EQ(
      refused({"model", "add", "old.ddr", "New"}),
      "ddr: Database file 'old.ddr': it is of an older layout (ddr_Model 203) and cannot be changed as it "
      "is; nothing was changed; 'ddr upgrade' makes a current copy.");
  EXPECT_EQ(everything(), before);
}

TEST_F(UpgradeTest, ProgressGoesToStandardErrorInPlainLines) {
  make("old.ddr", "database_204");
  std::string const said = run({"upgrade", "old.ddr", "new.ddr"}).err;
  EXPECT_THAT(said, AllOf(StartsWith("Copying: 0 of "), HasSubstr("\nStep 309 of ddr_Ddb: 0 of "),
                          HasSubstr("\nStep 401 of ddr_Model: "), HasSubstr("\nFinishing: ")));
  EXPECT_THAT(said, Not(HasSubstr("\r")));
  EXPECT_THAT(said, Not(HasSubstr("\x1b")));
}

TEST_F(UpgradeTest, AnExistingFileIsNotReplaced) {
  make("old.ddr", "database_204");
  done({"create", "new.ddr"});
  auto const before = everything();
  EXPECT_EQ(
      refused({"upgrade", "old.ddr", "new.ddr"}),
      "ddr: Database file 'new.ddr': it exists already. Choose another name, or add --force to replace a "
      "database that stands there.");
  EXPECT_EQ(everything(), before);
}

TEST_F(UpgradeTest, ForceReplacesADatabaseAndNothingElse) {
  make("old.ddr", "database_204");
  done({"create", "new.ddr"});
  done({"upgrade", "old.ddr", "new.ddr", "--force", "--quiet"});
  EXPECT_THAT(done({"ls", "new.ddr"}), HasSubstr("Models (3)"));
  writeFile(folder.path("letter.txt"), "Dear reader");
  EXPECT_THAT(refused({"upgrade", "old.ddr", "letter.txt", "--force", "--quiet"}), HasSubstr("'letter.txt'"));
  EXPECT_EQ(bytes("letter.txt"), "Dear reader");
  std::string const old = bytes("old.ddr");
  EXPECT_THAT(refused({"upgrade", "old.ddr", "old.ddr", "--force", "--quiet"}), HasSubstr("'old.ddr'"));
  EXPECT_EQ(bytes("old.ddr"), old);
}

TEST_F(UpgradeTest, TheNewNameIsWantedUnlessNothingIsMade) {
  program_result const result = run({"upgrade", "old.ddr"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err, "ddr: NEW is required; see 'ddr upgrade --help'\n");
}

TEST_F(UpgradeTest, WhatIsNoDatabaseIsRefused) {
  EXPECT_THAT(refused({"upgrade", "nowhere.ddr", "new.ddr"}), HasSubstr("there is no such file"));
  writeFile(folder.path("letter.txt"), "Dear reader");
  EXPECT_THAT(refused({"upgrade", "letter.txt", "new.ddr"}), HasSubstr("it is not a database"));
  EXPECT_THAT(refused({"upgrade", "letter.txt", "--dry-run"}), HasSubstr("it is not a database"));
  EXPECT_THAT(folder.names(), ElementsAre("letter.txt"));
}

TEST_F(UpgradeTest, AFullDiskLeavesNothing) {
  make("old.ddr", "database_203");
  program_settings settings;
  settings.fileSizeLimit = 20000;
  EXPECT_THAT(refused({"upgrade", "old.ddr", "new.ddr", "--quiet"}, settings), HasSubstr("'new.ddr'"));
  EXPECT_THAT(folder.names(), ElementsAre("old.ddr"));
}

// ---- on a terminal, and interrupted ----

/// The tool with standard error on something that the test reads.
class RunningTool {
public:
  /// @param standardError becomes standard error of the tool; closed here
  RunningTool(std::string const& folder, Words const& words, int standardError) : process(fork()) {
    if (process == 0) {
      std::vector<char*> arguments{const_cast<char*>("ddr")};
      for (std::string const& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
      }
      arguments.push_back(nullptr);
      int const nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
      dup2(nowhere, STDOUT_FILENO);
      dup2(standardError, STDERR_FILENO);
      if (chdir(folder.c_str()) == 0) {
        execv(TOOL_PROGRAM, arguments.data());
      }
      _exit(127);
    }
    close(standardError);
  }
  ~RunningTool() {
    if (process > 0) {
      kill(process, SIGKILL);
      waitpid(process, nullptr, 0);
    }
  }
  RunningTool(RunningTool const&) = delete;
  RunningTool& operator=(RunningTool const&) = delete;

  void Signal(int number) const { kill(process, number); }
  /// Waits for its end. @returns the exit status; -1 when a signal ended it
  int Status() {
    int status = 0;
    waitpid(process, &status, 0);
    process = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

private:
  pid_t process;
};

/// All that comes out of a descriptor, which is closed then.
std::string readToEnd(int descriptor) {
  std::string text;
  std::array<char, 4096> buffer{};
  ssize_t count = 0;
  while ((count = read(descriptor, buffer.data(), buffer.size())) > 0) {
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
  close(descriptor);
  return text;
}

/// An upgrade of old.ddr to new.ddr that waits at its first word of progress, with the new file begun: its
/// standard error is a pipe that takes no more.
class WaitingUpgrade {
public:
  WaitingUpgrade(std::string const& folder, Words const& words) : ends(fullPipe()) {
    int const watch = inotify_init1(IN_CLOEXEC);
    EXPECT_GE(inotify_add_watch(watch, folder.c_str(), IN_CREATE), 0);
    tool.emplace(folder, words, ends[1]);
    std::array<char, 1024> created{};
    EXPECT_GT(read(watch, created.data(), created.size()), 0); // until the new file is begun
    close(watch);
  }

  void Signal(int number) const { tool->Signal(number); }
  /// Lets it go on to its end. @returns the exit status
  int Finish() {
    said = readToEnd(ends[0]);
    return tool->Status();
  }
  /// The last line that it said.
  std::string LastLine() const {
    std::size_t const end = said.rfind('\n');
    return said.substr(said.rfind('\n', end - 1) + 1, end - said.rfind('\n', end - 1) - 1);
  }

private:
  static std::array<int, 2> fullPipe() {
    std::array<int, 2> made{};
    EXPECT_EQ(pipe2(made.data(), O_CLOEXEC), 0);
    auto const room = static_cast<std::size_t>(fcntl(made[1], F_GETPIPE_SZ));
    EXPECT_EQ(write(made[1], std::string(room, '\n').data(), room), static_cast<ssize_t>(room));
    return made;
  }

  std::array<int, 2> ends;
  std::optional<RunningTool> tool;
  std::string said;
};

TEST_F(UpgradeTest, OnATerminalProgressIsABarThatGoesAway) {
  make("old.ddr", "database_203");
  int terminal = -1;
  int toolEnd = -1;
  winsize size{};
  size.ws_col = 60;
  size.ws_row = 24;
  ASSERT_EQ(openpty(&terminal, &toolEnd, nullptr, nullptr, &size), 0);
  fcntl(terminal, F_SETFD, FD_CLOEXEC);
  RunningTool tool(folder.path(), {"upgrade", "old.ddr", "new.ddr"}, toolEnd);
  std::string const said = readToEnd(terminal);
  EXPECT_EQ(tool.Status(), 0);
  EXPECT_THAT(said, StartsWith("\r[" + std::string(30, ' ') + "]   0 %  Copying\x1b[K\r["));
  EXPECT_THAT(said, HasSubstr("[" + std::string(30, '=') + "] 100 %  Finishing\x1b[K"));
  EXPECT_TRUE(said.ends_with("\r\x1b[K"));
  EXPECT_THAT(said, Not(HasSubstr("\n")));
  std::size_t longest = 0;
  for (std::size_t at = 0, next = 0; next != std::string::npos; at = next + 1) {
    next = said.find('\r', at);
    longest = std::max(longest, std::min(next, said.size()) - at);
  }
  EXPECT_LE(longest, 59U + 3U) << "and three bytes that clear the rest of the line";
}

TEST_F(UpgradeTest, AnInterruptionLeavesNothing) {
  make("old.ddr", "database_203");
  std::string const before = bytes("old.ddr");
  for (int const number : {SIGINT, SIGTERM, SIGHUP}) {
    WaitingUpgrade tool(folder.path(), {"upgrade", "old.ddr", "new.ddr"});
    tool.Signal(number);
    EXPECT_EQ(tool.Finish(), 1);
    EXPECT_EQ(tool.LastLine(), "ddr: The conversion was cancelled; nothing was changed.");
    EXPECT_THAT(folder.names(), ElementsAre("old.ddr"));
    EXPECT_EQ(bytes("old.ddr"), before);
  }
}

TEST_F(UpgradeTest, ADatabaseThatAppearsMeanwhileIsReplacedWithForceOnly) {
  make("old.ddr", "database_203");
  WaitingUpgrade tool(folder.path(), {"upgrade", "old.ddr", "new.ddr"});
  done({"create", "new.ddr", "--description", "of somebody else"});
  std::string const before = bytes("new.ddr");
  EXPECT_EQ(tool.Finish(), 1);
  EXPECT_EQ(tool.LastLine(), "ddr: Database file 'new.ddr': a database stands there already. It is not "
                             "replaced; choose another name, or remove it.");
  EXPECT_EQ(bytes("new.ddr"), before);
  EXPECT_THAT(folder.names(), ElementsAre("new.ddr", "old.ddr"));
  unlink(folder.path("new.ddr").c_str());
  WaitingUpgrade forced(folder.path(), {"upgrade", "old.ddr", "new.ddr", "--force"});
  done({"create", "new.ddr"});
  EXPECT_EQ(forced.Finish(), 0);
  EXPECT_THAT(done({"ls", "new.ddr"}), HasSubstr("Models (3)"));
}

// ---- what info says of old databases ----

struct OldInfoTest : UpgradeTest, testing::WithParamInterface<char const*> {};

TEST_P(OldInfoTest, TheLayoutIsNamedAndTheWayOut) {
  make("old.ddr", GetParam());
  auto const before = everything();
  std::string const version = std::string(GetParam()).substr(std::string(GetParam()).size() - 3);
  std::string const name = std::string(GetParam()).starts_with("database") ? "ddr_Ddb " : "ddr_Model ";
  std::string const said = done({"info", "old.ddr"});
  EXPECT_THAT(said, HasSubstr("\nLayout                  older ("));
  EXPECT_THAT(said, HasSubstr(name + version));
  EXPECT_THAT(said, HasSubstr("; 'ddr upgrade' makes a current copy\n"));
  EXPECT_EQ(json({"info", "old.ddr"})["olderLayout"], true);
  EXPECT_EQ(everything(), before);
}

INSTANTIATE_TEST_SUITE_P(Each, OldInfoTest,
                         testing::Values("database_203", "database_204", "database_309", "database_321",
                                         "database_818", "model_203", "model_401", "model_857"),
                         [](auto const& instance) { return instance.param; });

TEST_F(UpgradeTest, AnOlderRecordThatCannotBeReadIsNotCalledDamaged) {
  make("old.ddr", "database_309");
  std::string const said =
      "Database file 'old.ddr': its record is of an older layout (ddr_Ddb 309, ddr_Model "
      "203) and cannot be read as it is; 'ddr upgrade' makes a current copy.";
  EXPECT_EQ(refused({"ls", "old.ddr"}), "ddr: " + said);
  EXPECT_EQ(refused({"path", "old.ddr"}), "ddr: " + said);
  std::string const info = done({"info", "old.ddr"});
  EXPECT_THAT(info, HasSubstr("\nNot readable as it is   " + said + "\n"));
  EXPECT_THAT(info, Not(HasSubstr("damaged")));
  EXPECT_EQ(json({"info", "old.ddr"})["unreadable"], said);
}

TEST_F(UpgradeTest, DamageOfAnOlderFileIsStillAFailure) {
  make("old.ddr", "database_309");
  change_stored_file(folder.path("old.ddr"), "DROP TABLE class_ddr_Ddb;");
  for (char const* const verb : {"ls", "path", "info"}) {
    EXPECT_THAT(refused({verb, "old.ddr"}), HasSubstr("damaged")) << verb;
  }
}

TEST_F(UpgradeTest, InfoNamesNoUpgradeThatWouldBeRefused) {
  make("old.ddr", "database_818");
  change_stored_file(folder.path("old.ddr"),
                     R"(UPDATE ddr_class SET "Class Version" = 205 WHERE "Class Name" = 'ddr_Ddb')");
  EXPECT_THAT(done({"info", "old.ddr"}),
              AllOf(HasSubstr("older (ddr_Ddb 205, ddr_Model 401); no upgrade of these versions is known\n"),
                    Not(HasSubstr("ddr upgrade"))));
  refused({"upgrade", "old.ddr", "new.ddr"});
}

TEST_F(UpgradeTest, ANewerClassBesideAnOlderOneNeedsTheNewerProgram) {
  make("old.ddr", "database_818");
  change_stored_file(folder.path("old.ddr"),
                     R"(UPDATE ddr_class SET "Class Version" = 875 WHERE "Class Name" = 'ddr_Model')");
  std::string const said = run({"info", "old.ddr"}).out;
  EXPECT_THAT(said, Not(HasSubstr("ddr upgrade")));
  refused({"upgrade", "old.ddr", "new.ddr"});
}

TEST_F(UpgradeTest, TheSameFileIsRefusedForThatReason) {
  make("old.ddr", "database_204");
  std::string const before = bytes("old.ddr");
  std::string const said = refused({"upgrade", "old.ddr", "old.ddr"});
  EXPECT_THAT(said, Not(HasSubstr("--force")));
  EXPECT_EQ(refused({"upgrade", "old.ddr", "old.ddr", "--force", "--quiet"}), said);
  EXPECT_EQ(bytes("old.ddr"), before);
}

TEST_F(UpgradeTest, ACurrentDatabaseIsCurrentWhateverStandsUnderTheNewName) {
  done({"create", "a.ddr"});
  done({"create", "b.ddr"});
  auto const before = everything();
  EXPECT_EQ(done({"upgrade", "a.ddr", "b.ddr"}), "'a.ddr' is current already; nothing was copied.\n");
  EXPECT_EQ(everything(), before);
}

TEST_F(UpgradeTest, InfoOfACurrentDatabaseSaysSo) {
  done({"create", "a.ddr"});
  EXPECT_THAT(done({"info", "a.ddr"}), HasSubstr("\nLayout                  current\n"));
  EXPECT_EQ(json({"info", "a.ddr"})["olderLayout"], false);
}

} // namespace
