// Tests of what every verb says of files that it cannot use.
#include "tool_Test.h"

#include <algorithm>
#include <array>
#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/stat.h>

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

struct BadFileTest : tool_Test, testing::WithParamInterface<Words> {
  static bool changes() { return GetParam().size() > 2; }
  void makeDatabase() {
    done({"create", "a.ddr"});
    done({"model", "add", "a.ddr", "A"});
  }
  // The verb says the words about a.ddr, and nothing in the folder has changed.
  void expectRefused(std::string const& text, program_settings const& settings = {}) {
    auto const before = everything();
    EXPECT_THAT(refused(GetParam(), settings),
                AllOf(StartsWith("ddr: Database file 'a.ddr'"), HasSubstr(text)));
    EXPECT_EQ(everything(), before);
  }
  // Holds the file in this process, beside that of the tool.
  void holdWhile(char const* sql, std::function<void()> const& work) {
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(folder.path("a.ddr").c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, sql, nullptr, nullptr, nullptr), SQLITE_OK);
    work();
    sqlite3_close(other);
  }
};

TEST_P(BadFileTest, Missing) {
  expectRefused("there is no such file. Check the name.");
  EXPECT_THAT(folder.names(), ElementsAre());
}

TEST_P(BadFileTest, AFolder) {
  ASSERT_EQ(mkdir(folder.path("a.ddr").c_str(), 0755), 0);
  expectRefused("it is a folder. Give the name of a file.");
}

TEST_P(BadFileTest, Empty) {
  writeFile(folder.path("a.ddr"), "");
  expectRefused("it is empty. Restore it from a backup, or delete it.");
}

TEST_P(BadFileTest, NoDatabase) {
  writeFile(folder.path("a.ddr"),
            "Dear reader, this is a letter and no database, however long it gets: " + std::string(5000, '.'));
  expectRefused("it is not a database. Check the name.");
}

TEST_P(BadFileTest, OfAnotherProgram) {
  runSql(folder.path("a.ddr"), "CREATE TABLE t(a)");
  expectRefused("it is a database of another program. Check the name.");
}

TEST_P(BadFileTest, TruncatedAnywhere) {
  makeDatabase();
  std::string const whole = bytes("a.ddr");
  for (std::size_t size = 1; size < whole.size(); size = size < 128 ? size * 3 : size + 8000) {
    writeFile(folder.path("a.ddr"), whole.substr(0, size));
    expectRefused(size < 100 ? "it is not a database. Check the name." : "Restore it from a backup.");
  }
}

TEST_P(BadFileTest, OfANewerFormat) {
  makeDatabase();
  runSql(folder.path("a.ddr"), "PRAGMA user_version = 99");
  expectRefused("it has the format version 99, this program knows those up to 1. Use the newer program that "
                "wrote it.");
}

TEST_P(BadFileTest, WithoutARecord) {
  withLibrary([](ddr_Root& root) { root.CreateDdb("a.ddr", "never saved"); });
  expectRefused("class 'ddr_Ddb', row 0: there is no such row");
}

TEST_P(BadFileTest, WithoutAHeader) {
  makeDatabase();
  runSql(folder.path("a.ddr"), "DELETE FROM ddr_header");
  expectRefused("Restore it from a backup.");
}

TEST_P(BadFileTest, WithoutPermission) {
  makeDatabase();
  ASSERT_EQ(chmod(folder.path("a.ddr").c_str(), 0), 0);
  program_settings settings;
  settings.withoutPrivileges = true;
  auto const line = refused(GetParam(), settings);
  chmod(folder.path("a.ddr").c_str(), 0644);
  EXPECT_EQ(line,
            "ddr: Database file 'a.ddr': there is no permission to use it. Ask the owner for permission, or "
            "choose another name.");
}

TEST_P(BadFileTest, LockedByAnotherProcess) {
  makeDatabase();
  holdWhile("BEGIN EXCLUSIVE", [&] {
    std::string const error = refused(GetParam());
    EXPECT_THAT(error, StartsWith("ddr: Database file 'a.ddr': it is in use by another process ("));
    EXPECT_THAT(error, testing::EndsWith("'). Try again when the other one has finished."));
  });
  EXPECT_EQ(run(GetParam()).status, 0);
}

TEST_P(BadFileTest, BesideAnotherProcessThatWillChangeItOnlyChangesAreRefused) {
  makeDatabase();
  holdWhile("BEGIN IMMEDIATE", [&] {
    program_result const result = run(GetParam());
    EXPECT_EQ(result.status, changes() ? 1 : 0);
    EXPECT_EQ(result.err.empty(), !changes()) << result.err;
  });
}

INSTANTIATE_TEST_SUITE_P(Verbs, BadFileTest,
                         testing::Values(Words{"info", "a.ddr"}, Words{"ls", "a.ddr"}, Words{"path", "a.ddr"},
                                         Words{"repair-name", "a.ddr"}, Words{"model", "add", "a.ddr", "X"},
                                         Words{"model", "rm", "a.ddr", "A"},
                                         Words{"result", "add", "a.ddr", "X"},
                                         Words{"userdata", "add", "a.ddr", "X"}),
                         [](auto const& verb) {
                           Words const& words = verb.param;
                           std::string name = words.size() == 2 ? words[0] : words[0] + "_" + words[1];
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

TEST_F(tool_Test, ANameWithControlCharactersIsEscapedInFailures) {
  EXPECT_EQ(refused({"ls", "a\n\x1b[31m"}),
            "ddr: Database file 'a\\n\\x1b[31m': there is no such file. Check the name.");
  EXPECT_EQ(done({"create", "a\nb"}), "Created 'a\\nb'.\n");
  EXPECT_THAT(refused({"create", "a\nb"}), StartsWith("ddr: Database file 'a\\nb': it exists already."));
  EXPECT_THAT(refused({"model", "rm", "a\nb", "c\nd"}),
              StartsWith("ddr: Database file 'a\\nb': there is no model 'c\\nd'; nothing was changed."));
}

} // namespace
