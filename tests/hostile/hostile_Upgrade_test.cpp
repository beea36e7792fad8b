// Old files made to do harm: an upgrade refuses them with words about the old file, its class and its row, or
// makes a file that holds what the old one does.
#include "damage_corpus.h"
#include "layout_files.h"
#include "measured_probe.h"
#include "shared_pages.h"
#include "stored_file.h"
#include "temporary_folder.h"
#include "work_measure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

using testing::AllOf;
using testing::AnyOf;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class hostile_Upgrade : public testing::Test {
protected:
  /// What comes of an upgrade of a layout that SQL has changed.
  probe_result upgraded(std::string const& layout, std::string const& sql) {
    make_layout_file(path, layout, sql, 512);
    EXPECT_THAT(probe.look(path).faults, IsEmpty()) << layout << ": " << sql;
    probe_result found = probe.upgrade(path);
    EXPECT_THAT(found.faults, IsEmpty()) << layout << ": " << sql;
    return found;
  }
  /// Expects that no file is made, with words about the old one.
  void expectRefused(std::string const& layout, std::string const& sql, std::string const& className,
                     std::string const& words) {
    probe_result const found = upgraded(layout, sql);
    EXPECT_EQ(found.contents, "refused") << layout << ": " << sql;
    EXPECT_THAT(found.refusals,
                Contains(AllOf(HasSubstr("'" + path + "'"), HasSubstr(className), HasSubstr(words))))
        << layout << ": " << sql;
  }

  temporary_folder folder;
  std::string path = folder.path("old.ddr");
  measured_probe probe;
};

class hostile_EachUpgrade : public hostile_Upgrade, public testing::WithParamInterface<std::string> {
protected:
  probe_result after(std::string const& sql) { return upgraded(GetParam(), sql); }
  /// Expects that what SQL has changed does not show in the new file, or is told with words about the file
  /// and the class: of the old file, or where it was carried over as it is, when the new one is read.
  void expectAnswered(std::string const& sql) {
    if (sound.empty()) {
      sound = after("").contents;
    }
    probe_result const found = after(sql);
    if (found.contents != sound) {
      expectTold(found, sql);
    }
  }
  static void expectTold(probe_result const& found, std::string const& sql) {
    EXPECT_THAT(found.refusals,
                Contains(AllOf(HasSubstr("old.ddr'"), AnyOf(AllOf(HasSubstr("class '"), HasSubstr("', row ")),
                                                            HasSubstr("collection"), HasSubstr("header")))))
        << GetParam() << ": " << sql;
  }
  /// The same of each of many changes. The layouts share them out unless all are asked for.
  void expectEachAnswered(std::vector<std::string> const& changes) {
    std::vector<std::string> const& names = layout_names();
    auto const mine =
        static_cast<std::size_t>(std::find(names.begin(), names.end(), GetParam()) - names.begin());
    for (std::size_t number = 0; number < changes.size(); ++number) {
      if (whole_corpus() || number % names.size() == mine) {
        expectAnswered(changes[number]);
      }
    }
  }

private:
  std::string sound; // what becomes of the sound file
};

INSTANTIATE_TEST_SUITE_P(Each, hostile_EachUpgrade, testing::ValuesIn(layout_names()),
                         [](auto const& instance) { return instance.param; });

TEST_P(hostile_EachUpgrade, TheSoundFileBecomesAFileThatReadsWithoutAWord) {
  probe_result const found = after("");
  EXPECT_THAT(found.refusals, IsEmpty());
  EXPECT_THAT(found.contents, AllOf(HasSubstr("model Beam: Beam"), HasSubstr("result Static: "),
                                    HasSubstr("user data Notes: ")));
}

TEST_P(hostile_EachUpgrade, ASoundOldFileIsNotDamaged) {
  make_layout_file(path, GetParam(), "", 512);
  probe_result const found = probe.look(path);
  EXPECT_THAT(found.faults, IsEmpty());
  EXPECT_THAT(found.refusals,
              testing::SizeIs(GetParam() == "database_309" ? 1 : 0)); // its record cannot be read
}

TEST_P(hostile_EachUpgrade, NegativeAndHugeReferences) {
  std::vector<std::string> changes;
  for (char const* const row : {"-5", "4711", "2147483648", "9223372036854775807", "1.5", "'one'"}) {
    for (char const* const column : {"models#OID", "models#ClassID", "results#OID", "results#ClassID",
                                     "userData#OID", "userData#ClassID"}) {
      changes.push_back(std::string("UPDATE class_ddr_Ddb SET \"").append(column).append("\" = ") + row);
    }
  }
  expectEachAnswered(changes);
}

TEST_P(hostile_EachUpgrade, NegativeAndHugeRowNumbers) {
  for (char const* const table : {"class_ddr_Ddb", "class_ddr_Model", "class_cls_MapHeader"}) {
    for (char const* const row :
         {"-1", "2147483647", "4294967296", "9223372036854775807", "-9223372036854775808"}) {
      probe_result const found = after(std::string("UPDATE ")
                                           .append(table)
                                           .append(R"( SET "row" = )")
                                           .append(row)
                                           .append(R"( WHERE "row" = 0)"));
      EXPECT_EQ(found.contents, "refused") << table << " " << row;
      EXPECT_THAT(found.refusals, Contains(AllOf(HasSubstr("'" + path + "', class '"),
                                                 HasSubstr("row number that cannot be"))))
          << table << " " << row;
    }
  }
}

TEST_P(hostile_EachUpgrade, NegativeAndHugeHandles) {
  std::vector<std::string> changes;
  for (char const* const handle : {"-1", "0", "2147483648", "9223372036854775807", "'x'", "1.5", "NULL"}) {
    changes.push_back(std::string(R"(UPDATE class_cls_MapHeader SET "Target#Handle" = )").append(handle));
  }
  expectEachAnswered(changes);
}

TEST_P(hostile_EachUpgrade, NegativeAndHugeEntries) {
  std::vector<std::string> changes;
  for (char const* const number : {"-2", "2147483648", "9223372036854775807", "'x'", "1.5"}) {
    for (char const* const column : {"OID", "ClassID", "position", "handle"}) {
      for (char const* const collection : {"1", "(SELECT max(handle) FROM ddr_entry)"}) {
        changes.push_back(std::string("UPDATE ddr_entry SET ").append(column).append(" = ").append(number) +
                          " WHERE position = 0 AND handle = " + collection);
      }
    }
  }
  expectEachAnswered(changes);
}

TEST_P(hostile_EachUpgrade, NextHandleThatCannotBe) {
  for (char const* const handle : {"-1", "9223372036854775807", "'x'", "1.5", "x'00'"}) {
    probe_result const found = after(std::string("UPDATE ddr_header SET next_handle = ").append(handle));
    EXPECT_EQ(found.contents, "refused") << handle;
    EXPECT_THAT(found.refusals, Contains(HasSubstr("next collection handle in its header"))) << handle;
  }
}

TEST_P(hostile_EachUpgrade, TextsWithZeroBytesAndTextsThatAreNotUtf8) {
  std::vector<std::string> changes;
  for (char const* const bytes : {"x'410042'", "x'41ff42'", "x'c0af'"}) {
    std::string const text = std::string("CAST(").append(bytes).append(" AS TEXT)");
    changes.push_back("UPDATE class_ddr_Model SET modelName = " + text);
    changes.push_back("UPDATE class_ddr_Ddb SET description = " + text);
    changes.push_back("UPDATE ddr_entry SET Key = " + text + " WHERE Key = 'Beam'");
    changes.push_back("UPDATE ddr_header SET description = " + text);
  }
  expectEachAnswered(changes);
}

TEST_P(hostile_EachUpgrade, TableThatIsMissing) {
  for (char const* const name : {"ddr_Ddb", "ddr_Model", "cls_MapHeader"}) {
    probe_result const found = after(std::string("DROP TABLE class_").append(name));
    EXPECT_EQ(found.contents, "refused") << name;
    EXPECT_THAT(found.refusals, Contains(AllOf(HasSubstr("'" + path + "', class '" + name + "'"),
                                               HasSubstr("table is missing"))));
  }
}

TEST_P(hostile_EachUpgrade, ReferencesToAnObjectOfAnotherClass) {
  std::string const models = R"(UPDATE class_ddr_Ddb SET "models#OID" = 0, "models#ClassID" =
      (SELECT "Type Id" FROM ddr_class WHERE "Class Name" = 'ddr_Model'))";
  std::string const entry = R"(UPDATE ddr_entry SET OID = 0, ClassID =
      (SELECT "Type Id" FROM ddr_class WHERE "Class Name" = 'ddr_Ddb') WHERE Key = 'Beam')";
  for (std::string const& change : {models, entry}) {
    expectTold(after(change), change);
  }
}

TEST_P(hostile_EachUpgrade, EntriesSharedByTwoCollections) {
  probe_result const found =
      after(R"(UPDATE class_cls_MapHeader SET "Target#Handle" = (SELECT min("Target#Handle")
      FROM class_cls_MapHeader))");
  EXPECT_THAT(found.refusals, Contains(HasSubstr("old.ddr', class 'cls_MapHeader', row ")));
}

// Not by itself a damage: a copy under another name keeps its identity.
TEST_P(hostile_EachUpgrade, TwoRowsOfOneIdentity) {
  probe_result const found = after(
      R"(UPDATE class_ddr_Model SET "#uid" = (SELECT "#uid" FROM class_ddr_Model ORDER BY "row" LIMIT 1))");
  EXPECT_THAT(found.contents, HasSubstr("model Beam: Beam"));
}

TEST_P(hostile_EachUpgrade, ColumnOfAnotherType) {
  expectAnswered("UPDATE class_ddr_Ddb SET modifyTime = 'never'");
  expectAnswered("UPDATE class_ddr_Ddb SET ddbVersion = 'none'");
  expectAnswered("UPDATE class_ddr_Ddb SET name = 5");
  expectAnswered("UPDATE class_ddr_Ddb SET name = x'00'");
  expectAnswered("UPDATE class_ddr_Ddb SET description = 1.5");
}

TEST_P(hostile_EachUpgrade, EntriesOfATableThatTakesAnything) {
  for (char const* const column : {"ClassID", "OID"}) {
    probe_result const found = after(
        std::string("ALTER TABLE ddr_entry RENAME TO kept; CREATE TABLE ddr_entry(handle, position, Key, "
                    "ClassID, OID, PRIMARY KEY(handle, position)) WITHOUT ROWID; INSERT INTO ddr_entry "
                    "SELECT * FROM kept; DROP TABLE kept; UPDATE ddr_entry SET ")
            .append(column)
            .append(" = NULL WHERE Key = 'Beam'"));
    EXPECT_EQ(found.contents, "refused") << column;
    EXPECT_THAT(found.refusals, Contains(AllOf(HasSubstr("'" + path + "', class 'cls_MapHeader', row "),
                                               HasSubstr(" refers to nothing that can be"))));
  }
}

TEST_P(hostile_EachUpgrade, BaseClassesInACircle) {
  expectAnswered(R"(UPDATE ddr_class SET "Base Type Id" = (SELECT other."Type Id" FROM ddr_class
    AS other WHERE other."row" = (ddr_class."row" + 1) % (SELECT count(*) FROM ddr_class)))");
}

TEST_P(hostile_EachUpgrade, ViewsAndTriggersAreNotRun) {
  std::string const usual = after("").contents;
  EXPECT_EQ(after("CREATE VIEW ddr_view AS WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) "
                  "SELECT i FROM n;"
                  "CREATE TRIGGER gone AFTER INSERT ON ddr_entry BEGIN DELETE FROM ddr_entry; END;"
                  "CREATE TRIGGER gone2 AFTER UPDATE ON class_ddr_Ddb BEGIN DELETE FROM ddr_entry; END;")
                .contents,
            usual);
}

TEST_P(hostile_EachUpgrade, IndexesThatLackRowsHideNone) {
  std::string const usual = after("").contents;
  probe_result const found = after(
      "PRAGMA writable_schema = on; UPDATE sqlite_schema SET sql = sql || ' WHERE 0' WHERE type = 'index' "
      "AND sql IS NOT NULL; PRAGMA writable_schema = reset; REINDEX; PRAGMA writable_schema = on; UPDATE "
      "sqlite_schema SET sql = substr(sql, 1, length(sql) - 8) WHERE type = 'index' AND sql IS NOT NULL");
  EXPECT_EQ(found.contents, usual);
}

// All of them are that of the first class.
TEST_P(hostile_EachUpgrade, IndexesThatShareTheirPages) {
  probe_result const found =
      after("PRAGMA writable_schema = on; UPDATE sqlite_schema SET rootpage = (SELECT "
            "min(rootpage) FROM sqlite_schema WHERE name LIKE '%#uid') WHERE type = 'index'");
  EXPECT_EQ(found.contents, "refused");
  EXPECT_THAT(found.refusals,
              Contains(AllOf(HasSubstr("'" + path + "': it is damaged: its pages are damaged: "),
                             HasSubstr("2nd reference to page"))));
}

// To SQLite, which goes by the number of rows on a page, it is an empty page.
TEST_P(hostile_EachUpgrade, APageThatDoesNotShowItsRowsIsMissed) {
  constexpr std::size_t pageSize = 512;
  after("");
  std::string const whole = readFile(path);
  damage_family const emptied = every_emptied_page(whole, pageSize);
  int leaves = 0;
  for (std::uint64_t number = 0; number < emptied.count; ++number) {
    char const kind = whole[(number + 1) * pageSize];
    std::string damaged = whole;
    emptied.apply(number, damaged);
    if ((kind != 10 && kind != 13) || damaged == whole) { // leaves of indexes and of tables
      continue;
    }
    ++leaves;
    writeFile(path, damaged);
    probe_result const found = probe.upgrade(path);
    EXPECT_THAT(found.faults, IsEmpty());
    EXPECT_EQ(found.contents, "refused") << emptied.describe(number);
    EXPECT_THAT(found.refusals, Contains(HasSubstr("'" + path + "'")));
  }
  EXPECT_GT(leaves, 20);
}

TEST_P(hostile_EachUpgrade, AValueThatIsMadeWhenItIsRead) {
  probe_result const found = after("ALTER TABLE class_ddr_Model ADD COLUMN more AS (zeroblob(250000000))");
  EXPECT_EQ(found.contents, "refused");
  EXPECT_THAT(found.refusals, Contains(HasSubstr("no plain table")));
}

TEST_F(hostile_Upgrade, AHugeText) {
  make_layout_file(path, "database_818", "UPDATE class_ddr_Ddb SET description = " + huge_text_sql());
  probe_result const found = probe.upgrade(path);
  EXPECT_THAT(found.faults, IsEmpty());
  EXPECT_GT(found.contents.size(), huge_text());
}

TEST_F(hostile_Upgrade, AHugeKey) {
  make_layout_file(path, "database_818",
                   "UPDATE ddr_entry SET Key = " + huge_text_sql() + " WHERE Key = 'Static'");
  probe_result const found = probe.upgrade(path);
  EXPECT_THAT(found.faults, IsEmpty());
  EXPECT_TRUE(found.contents.size() > huge_text() || !found.refusals.empty());
}

TEST_F(hostile_Upgrade, AnEntryThatRefersToNothingIsBlamedOnTheOldFile) {
  expectRefused("model_401", "UPDATE ddr_entry SET OID = -2 WHERE handle = 12",
                "class 'cls_MapHeader', row 6", "entry 0 of collection 12 refers to nothing that can be");
}

// Its key is damaged, so that nobody finds it who asks for the entries of a collection.
TEST_F(hostile_Upgrade, AnEntryThatIsNotFoundIsNotLeftOut) {
  make_layout_file(path, "database_203", "", 512);
  std::string bytes = readFile(path);
  std::string const header("\x06\x01\x01\x0f\x04\x08", 6); // of the row of entry 4 of collection 9
  std::size_t const place = bytes.find(header + '\x09' + '\x04');
  ASSERT_NE(place, std::string::npos);
  bytes[place + 1] = '\0';
  writeFile(path, bytes);
  probe_result const found = probe.upgrade(path);
  EXPECT_EQ(found.contents, "refused");
  EXPECT_THAT(found.refusals, Contains(AllOf(HasSubstr("'" + path + "'"), HasSubstr("it is damaged"))));
}

TEST_F(hostile_Upgrade, AnInstanceTableThatIsNotThereIsBlamedOnTheOldFile) {
  expectRefused("model_401", R"(UPDATE class_ddr_Model SET "instanceTable#OID" = 4711)",
                "class 'ddr_ExtensionTable', row 4711", "there is no such row");
}

TEST_F(hostile_Upgrade, AHeaderThatIsNotThereIsBlamedOnTheOldFile) {
  expectRefused("model_401", R"(UPDATE class_ddr_ExtensionTable SET "map#OID" = 4711)",
                "class 'cls_MapHeader', row 4711", "there is no such row");
}

TEST_F(hostile_Upgrade, AConnectorPropertyThatIsNotThereIsBlamedOnTheOldFile) {
  expectRefused("model_401", "UPDATE ddr_entry SET OID = 4711 WHERE Key = 'weld'",
                "class 'kprC_ConnectorProperty', row 4711", "there is no such row");
}

TEST_F(hostile_Upgrade, AClassThatIsNotListedIsBlamedOnTheOldFile) {
  expectRefused("model_401",
                R"(UPDATE ddr_class SET "Type Id" = 0x2ac0099 WHERE "Class Name" = 'kprC_ConnectorProperty')",
                "", "is not in its class list");
}

TEST_F(hostile_Upgrade, AClassWithTheNameOfOneThatIsMadeIsBlamedOnTheOldFile) {
  expectRefused("model_203",
                R"(UPDATE ddr_class SET "Type Id" = 0x6f0002 WHERE "Class Name" = 'cls_MapHeader')",
                "class 'cls_MapHeader'", "a class of that name or type id already");
}

// Each model walked over all of them: nine million entries.
TEST_F(hostile_Upgrade, ManyModelsOfOneLongInstanceTable) {
  for (char const* const connectorAt : {"-1", "3000", "2"}) { // none, the last entry, an early one
    probe_result const found = upgraded("model_401", R"(
        DELETE FROM ddr_entry WHERE handle = 12;
        WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 3000) INSERT INTO ddr_entry
          SELECT 12, i, 'material ' || i, CASE i WHEN )" +
                                                         std::string(connectorAt) +
                                                         R"( THEN 0x2ac0001 ELSE 0x238007d END, 0 FROM n;
        WITH RECURSIVE n(i) AS (SELECT 10 UNION ALL SELECT i + 1 FROM n WHERE i < 3000)
          INSERT INTO class_ddr_Model SELECT i, NULL, 'M', 0x220018, 0 FROM n;
        DELETE FROM ddr_entry WHERE handle = 15)");
    EXPECT_NE(found.contents, "refused") << connectorAt;
  }
}

// Nine million rows, were each of them made.
TEST_F(hostile_Upgrade, ManyModelsOfTheSameConnectorProperties) {
  expectRefused("model_401", R"(
      WITH RECURSIVE n(i) AS (SELECT 10 UNION ALL SELECT i + 1 FROM n WHERE i < 3000)
        INSERT INTO ddr_entry SELECT 15, i, '', 0x2ac0003, 0 FROM n;
      WITH RECURSIVE n(i) AS (SELECT 10 UNION ALL SELECT i + 1 FROM n WHERE i < 3000)
        INSERT INTO class_ddr_Model SELECT i, NULL, 'M', 0x220018, 0 FROM n)",
                "class 'ddr_Model', row ", "connector properties of other models");
}

// What becomes of each of their values is told.
TEST_F(hostile_Upgrade, RowsOfManyFieldsThatTheNewLayoutHasNot) {
  constexpr int fields = 1970;
  std::string columns;
  std::string values;
  for (int number = 0; number < fields; ++number) {
    columns.append(", \"f").append(std::to_string(number)).append(number % 2 == 0 ? "\"" : "#OID\"");
    values += ", 1";
  }
  make_layout_file(path, "model_203",
                   R"(DROP TABLE class_ddr_Model;
      CREATE TABLE class_ddr_Model("row" INTEGER PRIMARY KEY, "#uid" BLOB, modelName)" +
                       columns + R"();
      WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 400)
        INSERT INTO class_ddr_Model SELECT i, NULL, 'M')" +
                       values + " FROM n");
  probe_result const found = probe.upgrade(path);
  EXPECT_THAT(found.faults, IsEmpty());
  EXPECT_NE(found.contents, "refused");
}

TEST_F(hostile_Upgrade, ThirtyThousandClasses) {
  make_layout_file(path, "database_818", R"(
      WITH RECURSIVE n(i) AS (SELECT (SELECT count(*) FROM ddr_class) UNION ALL SELECT i + 1 FROM n WHERE i < 30000)
        INSERT INTO ddr_class SELECT i, 'c' || i, NULL, 0x10000000 + i, 1, 1 FROM n)");
  file_probe unlisted(false); // SQL lists so many classes for too long
  work_measure const measure;
  probe_result const found = unlisted.upgrade(path);
  EXPECT_THAT(measure.faults(readFile(path).size()), IsEmpty());
  EXPECT_THAT(found.refusals, IsEmpty());
}

// Each gets a table whose name begins like those of all others.
TEST_F(hostile_Upgrade, ManyTablesOfClassesWhoseNamesBeginAlike) {
  std::string changes;
  for (int number = 0; number < 500; ++number) {
    std::string const name = "c" + std::to_string(number);
    changes += "CREATE TABLE class_" + name + R"(("row" INTEGER PRIMARY KEY, "#uid" BLOB);
        INSERT INTO ddr_class SELECT count(*), ')" +
               std::string(64, 'a') + name + "', 'class_" + name +
               "', 0x10000000 + count(*), 1, 1 FROM ddr_class;";
  }
  make_layout_file(path, "database_818", changes, 512);
  probe_result const found = probe.upgrade(path);
  EXPECT_THAT(found.faults, IsEmpty());
  EXPECT_THAT(found.refusals, IsEmpty());
}

// A file of gigabytes, were it copied.
TEST_F(hostile_Upgrade, RowsOfOthersThatShareTheirPagesAreNotCopied) {
  constexpr int sharing = 600;
  make_layout_file(
      path, "database_818",
      R"(CREATE TABLE notes("row" INTEGER PRIMARY KEY, a TEXT); INSERT INTO notes VALUES(0, 'x');)");
  EXPECT_GT(share_long_text(path, "notes", long_row("notes", "a", 1), short_rows("notes", "a", 2, sharing)),
            sharing / 2);
  probe_result const found = probe.upgrade(path);
  EXPECT_THAT(found.faults, IsEmpty());
  EXPECT_EQ(found.contents, "refused");
  EXPECT_THAT(found.refusals,
              Contains(AllOf(HasSubstr("'" + path + "'"), HasSubstr("a copy of it outgrows"))));
}

TEST_F(hostile_Upgrade, ModelsThatShareTheirPagesAreNotCopied) {
  constexpr int sharing = 600;
  make_layout_file(path, "model_401");
  EXPECT_GT(share_long_text(path, "class_ddr_Model", long_row("class_ddr_Model", "modelName", 100),
                            short_rows("class_ddr_Model", "modelName", 101, sharing)),
            sharing / 2);
  probe_result const found = probe.upgrade(path);
  EXPECT_THAT(found.faults, IsEmpty());
  EXPECT_EQ(found.contents, "refused");
  EXPECT_THAT(found.refusals, Contains(AllOf(HasSubstr("'" + path + "'"), HasSubstr("it is damaged"))));
}

} // namespace
