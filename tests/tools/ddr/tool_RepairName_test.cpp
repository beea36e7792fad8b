// Tests of the verb "repair-name".
#include "tool_Test.h"

#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/stat.h>

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

constexpr char const* notice = "every stored shortcut to a database will lead to this one, also a shortcut "
                               "that names another database, and "
                               "records that are open in other programs are not asked.";

struct RepairNameTest : tool_Test {
  // Three records; the first two get other names.
  void SetUp() override {
    done({"create", "a.ddr"});
    done({"model", "add", "a.ddr", "M"});
    done({"model", "add", "a.ddr", "N"});
    sql("UPDATE class_ddr_Ddb SET name = 'old ' || row WHERE row < 2");
  }
  void sql(std::string const& text) { runSql(folder.path("a.ddr"), text); }
  // A table of stored shortcuts, as hosts that keep them have one.
  void addShortcuts() {
    sql("CREATE TABLE class_ddr_DdbShortcutImpl(\"row\" INTEGER PRIMARY KEY, \"#uid\" BLOB, "
        "\"##BaseClassOID\" INTEGER, name);"
        "INSERT INTO class_ddr_DdbShortcutImpl VALUES(0, randomblob(16), -1, 'mine'), "
        "(1, randomblob(16), -1, 'of another database');"
        "UPDATE ddr_class SET \"Class Table\" = 'class_ddr_DdbShortcutImpl' WHERE \"Class Name\" = "
        "'ddr_DdbShortcutImpl'");
  }
  // All different names in the file.
  std::vector<std::string> names() {
    sqlite3* database = nullptr;
    std::vector<std::string> found;
    EXPECT_EQ(sqlite3_open(folder.path("a.ddr").c_str(), &database), SQLITE_OK);
    auto const take = [](void* into, int, char** values, char**) {
      static_cast<std::vector<std::string>*>(into)->emplace_back(values[0]);
      return 0;
    };
    for (char const* text : {"SELECT rtrim(name) FROM class_ddr_Ddb ORDER BY row",
                             "SELECT rtrim(name) FROM class_ddr_DdbShortcutImpl ORDER BY row"}) {
      sqlite3_exec(database, text, take, &found, nullptr);
    }
    sqlite3_close(database);
    return found;
  }
  std::string name() { return json({"info", "a.ddr"})["name"].get<std::string>(); }
  // Refused, and the file is as it was.
  std::string refusedWhole() {
    auto const before = everything();
    program_result const result = run({"repair-name", "a.ddr"});
    EXPECT_EQ(result.status, 1) << testing::PrintToString(result);
    EXPECT_EQ(everything(), before);
    return result.err;
  }
};

TEST_F(RepairNameTest, EveryRecordGetsTheNameOfTheLast) {
  std::string const last = name();
  std::string const answer = done({"repair-name", "a.ddr"});
  EXPECT_EQ(answer, "Note: " + std::string(notice) +
                        "\nChanged 2 rows: 2 of 3 saved records and 0 of 0 shortcuts. The name is '" + last +
                        "'.\n");
  EXPECT_THAT(names(), ElementsAre(last, last, last));
  EXPECT_EQ(done({"check", "--deep", "a.ddr"}).substr(0, 12), "a.ddr: sound");
}

TEST_F(RepairNameTest, EveryShortcutGetsTheNameTooWhateverItNamed) {
  addShortcuts();
  std::string const last = name();
  nlohmann::json const answer = json({"repair-name", "a.ddr"});
  EXPECT_EQ(answer, nlohmann::json({{"file", "a.ddr"},
                                    {"name", last},
                                    {"changed", 4},
                                    {"records", {{"stored", 3}, {"changed", 2}}},
                                    {"shortcuts", {{"stored", 2}, {"changed", 2}}},
                                    {"notice", notice}}));
  EXPECT_THAT(names(), ElementsAre(last, last, last, last, last));
}

TEST_F(RepairNameTest, ASecondRepairChangesNothing) {
  done({"repair-name", "a.ddr"});
  auto const before = everything();
  EXPECT_THAT(done({"repair-name", "a.ddr"}), HasSubstr("already; nothing was changed.\n"));
  EXPECT_EQ(json({"repair-name", "a.ddr"})["changed"], 0);
  EXPECT_EQ(everything(), before);
}

TEST_F(RepairNameTest, WhenTheNoteCannotBeGivenNothingIsChanged) {
  program_settings settings;
  settings.outputFile = "/dev/full";
  auto const before = everything();
  EXPECT_EQ(run({"repair-name", "a.ddr"}, settings).status, 1);
  EXPECT_EQ(everything(), before);
}

TEST_F(RepairNameTest, ARecordWithoutANameIsNoModel) {
  sql("UPDATE class_ddr_Ddb SET name = '' WHERE row = 2");
  EXPECT_THAT(refusedWhole(),
              StartsWith("ddr: Database file 'a.ddr', class 'ddr_Ddb', row 2: it has no name to "
                         "give to others; nothing was changed."));
}

TEST_F(RepairNameTest, NamesThatAreNoTextsAreRefused) {
  sql("UPDATE class_ddr_Ddb SET name = 5 WHERE row = 0");
  EXPECT_THAT(refusedWhole(),
              StartsWith("ddr: Database file 'a.ddr', class 'ddr_Ddb', row 0, field 'name': "));
  sql("UPDATE class_ddr_Ddb SET name = x'00' WHERE row = 0");
  EXPECT_THAT(refusedWhole(),
              StartsWith("ddr: Database file 'a.ddr', class 'ddr_Ddb', row 0, field 'name': "));
}

TEST_F(RepairNameTest, AMissingTableOfShortcutsIsRefused) {
  addShortcuts();
  sql("DROP TABLE class_ddr_DdbShortcutImpl");
  EXPECT_THAT(refusedWhole(), HasSubstr("class 'ddr_DdbShortcutImpl': it is damaged: its table is missing."));
}

TEST_F(RepairNameTest, AFileThatCannotBeWrittenIsRefused) {
  program_settings settings;
  settings.withoutPrivileges = true;
  ASSERT_EQ(chmod(folder.path("a.ddr").c_str(), 0444), 0);
  auto const before = everything();
  EXPECT_THAT(refused({"repair-name", "a.ddr"}, settings), HasSubstr("there is no permission to use it"));
  EXPECT_EQ(everything(), before);
}

TEST_F(RepairNameTest, AFileThatAnotherProcessSavesIsRefused) {
  sqlite3* other = nullptr;
  ASSERT_EQ(sqlite3_open(folder.path("a.ddr").c_str(), &other), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
  program_result const result = run({"repair-name", "a.ddr"});
  sqlite3_close(other);
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("it is in use by another process"));
}

TEST_F(RepairNameTest, TheHelpSaysWhatElseIsChanged) {
  EXPECT_THAT(done({"repair-name", "--help"}),
              AllOf(HasSubstr("shortcuts that name other"), HasSubstr("open elsewhere")));
}

} // namespace
