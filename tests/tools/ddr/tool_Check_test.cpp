// Tests of the verb "check".
#include "tool_Test.h"

#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

constexpr char const* harm = "UPDATE class_ddr_Ddb SET \"results#OID\" = 77";

struct CheckTest : tool_Test {
  void SetUp() override {
    done({"create", "a.ddr"});
    done({"model", "add", "a.ddr", "M"});
    done({"result", "add", "a.ddr", "R"});
  }
  void harmFile(std::string const& file, std::string const& sql = harm) { runSql(folder.path(file), sql); }
  void copy(std::string const& file) { writeFile(folder.path(file), bytes("a.ddr")); }
  // Exit status and answer. Nothing is said on standard error, and nothing in the folder changes.
  program_result check(Words words, program_settings const& settings = {}) {
    auto const before = everything();
    words.insert(words.begin(), "check");
    program_result result = run(words, settings);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(everything(), before);
    return result;
  }
  int status(Words const& words) { return check(words).status; }
  nlohmann::json checkJson(Words words) {
    words.emplace_back("--json");
    return nlohmann::json::parse(check(words).out);
  }
};

TEST_F(CheckTest, ASoundFileHasStatus0) {
  program_result const quick = check({"a.ddr"});
  EXPECT_EQ(quick.status, 0);
  EXPECT_THAT(quick.out, MatchesRegex("a\\.ddr: sound \\([0-9]+ rows looked at\\)\n"));
  EXPECT_EQ(check({"--quick", "a.ddr"}).out, quick.out);
  EXPECT_EQ(check({"--deep", "a.ddr"}).status, 0);
  EXPECT_NE(check({"--deep", "a.ddr"}).out, quick.out);
}

TEST_F(CheckTest, ADamagedFileHasStatus1AndALineForEachFinding) {
  harmFile("a.ddr");
  program_result const result = check({"a.ddr"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(
      result.out,
      "a.ddr: damaged\n"
      "  Database file 'a.ddr', class 'ddr_Ddb', row 2: the reference 'results' leads to row 77 of class "
      "'cls_MapHeader', which is not there. What it leads to cannot be read. Restore the file from a "
      "backup, or save the database again from the application.\n");
}

TEST_F(CheckTest, AFileThatCannotBeLookedAtHasStatus2) {
  program_result const result = check({"none.ddr"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.out,
            "none.ddr: cannot tell\n"
            "  Database file 'none.ddr': there is no such file. It cannot be looked at. Check the "
            "name.\n");
}

TEST_F(CheckTest, TheWorstOfSeveralFilesCounts) {
  copy("b.ddr");
  harmFile("b.ddr");
  EXPECT_EQ(status({"a.ddr", "a.ddr"}), 0);
  EXPECT_EQ(status({"a.ddr", "b.ddr"}), 1);
  EXPECT_EQ(status({"b.ddr", "a.ddr"}), 1);
  EXPECT_EQ(status({"none.ddr", "b.ddr", "a.ddr"}), 2);
  EXPECT_THAT(check({"none.ddr", "b.ddr", "a.ddr"}).out,
              AllOf(StartsWith("none.ddr: cannot tell\n"), HasSubstr("\nb.ddr: damaged\n"),
                    HasSubstr("\na.ddr: sound")));
}

TEST_F(CheckTest, OnlyTheDeepCheckLooksAtEveryEntry) {
  harmFile("a.ddr", "UPDATE ddr_entry SET OID = 5 WHERE Key = 'M'");
  EXPECT_EQ(status({"a.ddr"}), 0);
  EXPECT_EQ(status({"a.ddr", "--deep"}), 1);
}

TEST_F(CheckTest, AWarningDoesNotCountForTheVerdict) {
  harmFile("a.ddr", "UPDATE class_ddr_Ddb SET modifyTime = -5");
  EXPECT_EQ(status({"a.ddr"}), 0);
  EXPECT_THAT(check({"a.ddr"}).out,
              AllOf(StartsWith("a.ddr: sound ("), HasSubstr("\n  Warning: Database file ")));
  nlohmann::json const answer = checkJson({"a.ddr"});
  EXPECT_EQ(answer["verdict"], "sound");
  EXPECT_EQ(answer["files"][0]["findings"][0]["isWarning"], true);
}

TEST_F(CheckTest, JsonHasAnEntryForEachFinding) {
  copy("b.ddr");
  harmFile("b.ddr");
  nlohmann::json const answer = checkJson({"a.ddr", "b.ddr"});
  EXPECT_EQ(answer["depth"], "quick");
  EXPECT_EQ(answer["verdict"], "damaged");
  ASSERT_EQ(answer["files"].size(), 2U);
  nlohmann::json const& sound = answer["files"][0];
  EXPECT_EQ(sound["file"], "a.ddr");
  EXPECT_EQ(sound["verdict"], "sound");
  EXPECT_THAT(sound["name"].get<std::string>(), MatchesRegex("[0-9/]{10} [0-9:]{8} a\\.ddr"));
  EXPECT_GT(sound["rowsChecked"], 3);
  EXPECT_EQ(sound["findings"], nlohmann::json::array());
  EXPECT_EQ(sound["moreFindings"], false);
  nlohmann::json const& damaged = answer["files"][1];
  EXPECT_EQ(damaged["verdict"], "damaged");
  EXPECT_EQ(
      damaged["findings"],
      nlohmann::json::array(
          {{{"where", "Database file 'b.ddr', class 'ddr_Ddb', row 2"},
            {"what", "the reference 'results' leads to row 77 of class 'cls_MapHeader', which is not there"},
            {"consequence", "What it leads to cannot be read."},
            {"remedy", "Restore the file from a backup, or save the database again from the application."},
            {"isWarning", false}}}));
}

TEST_F(CheckTest, JsonSaysWhichCheckAndWhatCannotBeTold) {
  nlohmann::json const answer = checkJson({"--deep", "none.ddr"});
  EXPECT_EQ(answer["depth"], "deep");
  EXPECT_EQ(answer["verdict"], "cannotTell");
  EXPECT_EQ(answer["files"][0]["verdict"], "cannotTell");
  EXPECT_EQ(answer["files"][0]["findings"][0]["what"], "there is no such file");
}

TEST_F(CheckTest, TwoFilesOfOneNameAreWarnedOfWithoutChangingTheVerdict) {
  copy("b.ddr");
  program_result const result = check({"a.ddr", "b.ddr"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out,
              HasSubstr("\nWarning: 'a.ddr' and 'b.ddr' both store one persistent name: opened in one "
                        "session, the second takes the place of the first. Open one of them at a "
                        "time.\n"));
  nlohmann::json const answer = checkJson({"a.ddr", "b.ddr"});
  ASSERT_EQ(answer["warnings"].size(), 1U);
  EXPECT_EQ(answer["warnings"][0]["files"], nlohmann::json({"a.ddr", "b.ddr"}));
  EXPECT_EQ(answer["warnings"][0]["name"], answer["files"][0]["name"]);
}

TEST_F(CheckTest, OneFileGivenTwiceAndFilesOfOtherNamesAreNotWarnedOf) {
  done({"create", "b.ddr"});
  ASSERT_EQ(symlink("a.ddr", folder.path("link.ddr").c_str()), 0);
  EXPECT_THAT(checkJson({"a.ddr", "b.ddr", "./a.ddr", "link.ddr"})["warnings"], IsEmpty());
}

TEST_F(CheckTest, EveryKindOfBadFileHasAStatus) {
  writeFile(folder.path("empty"), "");
  writeFile(folder.path("letter"), "Dear reader, " + std::string(5000, '.'));
  writeFile(folder.path("cut"), bytes("a.ddr").substr(0, 9000));
  writeFile(folder.path("other"), "");
  runSql(folder.path("other"), "CREATE TABLE t(a)");
  copy("newer");
  runSql(folder.path("newer"), "PRAGMA user_version = 99");
  ASSERT_EQ(mkdir(folder.path("folder").c_str(), 0755), 0);
  for (char const* depth : {"--quick", "--deep"}) {
    for (char const* damaged : {"empty", "letter", "cut"}) {
      EXPECT_EQ(status({depth, damaged}), 1) << damaged;
    }
    for (char const* unknown : {"other", "newer", "folder", "none"}) {
      EXPECT_EQ(status({depth, unknown}), 2) << unknown;
    }
  }
}

TEST_F(CheckTest, AFileThatIsNotReadableOrLockedCannotBeTold) {
  program_settings settings;
  settings.withoutPrivileges = true;
  ASSERT_EQ(chmod(folder.path("a.ddr").c_str(), 0), 0);
  EXPECT_EQ(check({"a.ddr"}, settings).status, 2);
  chmod(folder.path("a.ddr").c_str(), 0644);
  sqlite3* other = nullptr;
  ASSERT_EQ(sqlite3_open(folder.path("a.ddr").c_str(), &other), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
  program_result const locked = run({"check", "a.ddr"});
  sqlite3_close(other);
  EXPECT_EQ(locked.status, 2);
  EXPECT_THAT(locked.out, HasSubstr("it is in use by another process"));
}

TEST_F(CheckTest, FilesAreCheckedWhereNothingCanBeWritten) {
  program_settings settings;
  settings.withoutPrivileges = true;
  ASSERT_EQ(chmod(folder.path("a.ddr").c_str(), 0444), 0);
  ASSERT_EQ(chmod(folder.path().c_str(), 0555), 0);
  EXPECT_EQ(check({"a.ddr", "--deep"}, settings).status, 0);
  chmod(folder.path().c_str(), 0755);
}

TEST_F(CheckTest, NamesThatLookLikeOptionsOrListsAreFiles) {
  copy("[a,b]");
  copy("-x");
  copy("++");
  program_result const result = check({"[a,b]", "++", "--", "-x"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out,
              AllOf(HasSubstr("[a,b]: sound"), HasSubstr("\n++: sound"), HasSubstr("\n-x: sound")));
}

TEST_F(CheckTest, WrongUsageHasStatus2AndALineOnStandardError) {
  for (Words const& words :
       {Words{"check"}, Words{"check", "--deep", "--quick", "a.ddr"}, Words{"check", "a.ddr", "--shallow"}}) {
    program_result const result = run(words);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, MatchesRegex("ddr: [^\n]+; see 'ddr check --help'\n"));
  }
}

TEST_F(CheckTest, AnAnswerThatCannotBeWrittenTellsNothing) {
  program_settings settings;
  settings.outputFile = "/dev/full";
  program_result const result = run({"check", "a.ddr"}, settings);
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.err, StartsWith("ddr: The answer cannot be written to standard output"));
}

} // namespace
