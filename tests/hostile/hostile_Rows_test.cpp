// Files made to do harm, row by row: the answer names file, class and row, and comes soon and in little
// memory.
#include "damage_corpus.h"
#include "damage_judgement.h"
#include "measured_probe.h"
#include "shared_pages.h"
#include "stored_file.h"
#include "temporary_folder.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::AllOf;
using testing::AnyOf;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class hostile_Rows : public testing::Test {
protected:
  hostile_Rows() {
    make_small_database(path, 512);
    sound = probe.look(path).contents;
  }
  /// What is found in the file after SQL has changed it. There is nothing in it to upgrade.
  probe_result after(std::string const& sql) {
    change_stored_file(path, sql);
    EXPECT_THAT(checked(probe.upgrade(path)).contents, AnyOf("current", "refused")) << sql;
    repairACopy();
    return checked(probe.look(path));
  }
  /// What the repair of the names says of a copy of the file.
  probe_result repairACopy() {
    std::string const copy = folder.path("copy.ddr");
    std::filesystem::copy_file(path, copy, std::filesystem::copy_options::overwrite_existing);
    return checked(probe.repair(copy));
  }
  /// Expects, of a file made anew, that what SQL has changed is read as SQLite reads it, or refused with
  /// words about the file, the class and the row.
  void expectAnswered(std::string const& sql) {
    make_small_database(path, 512);
    probe_result const found = after(sql);
    if (found.contents != sound) {
      EXPECT_THAT(found.refusals, Contains(AllOf(HasSubstr("'" + path + "', class '"), HasSubstr(", row "))))
          << sql;
    }
    EXPECT_THAT(words_from_nowhere(found.contents, sound, everything_in(path).value()), IsEmpty()) << sql;
  }
  /// What comes of a change of the file. What is saved without a word must be read.
  probe_result changed() {
    probe_result saved = checked(probe.change(path));
    if (saved.refusals.empty()) {
      EXPECT_THAT(checked(probe.look(path)).contents, HasSubstr(added_model));
    }
    return saved;
  }
  static probe_result checked(probe_result found) {
    EXPECT_THAT(found.faults, IsEmpty());
    return found;
  }
  /// Expects that the file is refused, in whole or in part, with words about it.
  void expectRefused(std::string const& sql, std::string const& className, std::string const& words) {
    probe_result const found = after(sql);
    EXPECT_NE(found.contents, sound) << sql;
    EXPECT_THAT(found.refusals, Contains(AllOf(HasSubstr(path), HasSubstr(className), HasSubstr(words))))
        << sql;
  }
  temporary_folder folder;
  std::string path = folder.path("small.ddr");
  measured_probe probe;
  std::string sound;
};

TEST_F(hostile_Rows, TheSmallDatabaseIsSoundAndHoldsSomethingOfEveryKind) {
  probe_result const found = checked(probe.look(path));
  EXPECT_THAT(found.refusals, IsEmpty());
  for (char const* const part :
       {"A small database", "FENTAL", "model Plate 9: Plate 9 note of Plate 9", "result Step-2",
        "user data Session", "second message", "path of database 0: ddbCont['", "path of models 0: ddbCont['",
        "path of results 0: ddbCont['", "path of user data 0: ddbCont['", "'].models['nowhere']"}) {
    EXPECT_THAT(found.contents, HasSubstr(part));
  }
}

TEST_F(hostile_Rows, ReferenceToARowThatIsNotThere) {
  expectRefused(R"(UPDATE class_ddr_Ddb SET "models#OID" = 4711)", "class 'cls_MapHeader'", "4711");
}

TEST_F(hostile_Rows, EntryToARowThatIsNotThere) {
  expectRefused("UPDATE ddr_entry SET OID = 4711 WHERE Key = 'Beam'", "class 'ddr_Model'", "4711");
}

TEST_F(hostile_Rows, BaseClassThatIsItsOwnBase) {
  expectAnswered(R"(UPDATE ddr_class SET "Base Type Id" = "Type Id")");
}

TEST_F(hostile_Rows, BaseClassesInACircle) {
  expectAnswered(R"(UPDATE ddr_class SET "Base Type Id" = (SELECT other."Type Id" FROM ddr_class
    AS other WHERE other."row" = (ddr_class."row" + 1) % (SELECT count(*) FROM ddr_class)))");
}

TEST_F(hostile_Rows, ShortcutThatLeadsThroughItself) {
  expectRefused(R"(UPDATE class_ddr_ModelContainerInDdbShortcut SET
      "parent#ClassID" = (SELECT "Type Id" FROM ddr_class WHERE "Class Name" = 'ddr_ModelContainerShortcut'),
      "parent#OID" = 0)",
                "ddr_ModelContainerShortcut", "row 0");
}

TEST_F(hostile_Rows, ReferenceToAnObjectOfAnotherClass) {
  expectRefused(R"(UPDATE class_ddr_Ddb SET "models#ClassID" = (SELECT "Type Id" FROM ddr_class
      WHERE "Class Name" = 'ddr_Model'), "models#OID" = 0)",
                "class 'ddr_Model'", "row 0");
}

TEST_F(hostile_Rows, EntryOfAnotherClass) {
  expectRefused(R"(UPDATE ddr_entry SET ClassID = (SELECT "Type Id" FROM ddr_class
      WHERE "Class Name" = 'ddr_Result'), OID = 0 WHERE Key = 'Beam')",
                "class 'ddr_Result'", "row 0");
}

// What is put behind it would not be read either.
TEST_F(hostile_Rows, EntryThatIsOutOfOrder) {
  std::string bytes = readFile(path);
  std::string const kinds =
      "\x06\x09\x09\x1d\x03"; // of the values of 'Plate 10', the first of them the handle
  std::size_t const row = bytes.find(kinds);
  ASSERT_NE(row, std::string::npos);
  ASSERT_EQ(bytes.find(kinds, row + 1), std::string::npos);
  bytes[row + 1] = 0x19; // a text
  writeFile(path, bytes);
  auto const isTold =
      Contains(AllOf(HasSubstr(path), HasSubstr("class 'cls_MapHeader', row 0"),
                     HasSubstr("entry 2 of collection 1 stands behind one that is out of order")));
  EXPECT_THAT(checked(probe.look(path)).refusals, isTold);
  EXPECT_THAT(changed().refusals, isTold);
}

TEST_F(hostile_Rows, EntriesSharedByTwoCollections) {
  probe_result const found =
      after(R"(UPDATE class_cls_MapHeader SET "Target#Handle" = (SELECT min("Target#Handle")
      FROM class_cls_MapHeader))");
  EXPECT_THAT(found.refusals, Contains(AllOf(HasSubstr(path), HasSubstr("class 'cls_MapHeader', row "),
                                             HasSubstr("shares its entries"))));
}

TEST_F(hostile_Rows, NegativeAndHugeReferences) {
  for (char const* const row : {"-5", "2147483647", "2147483648", "-2147483649", "9223372036854775807",
                                "-9223372036854775808", "1.5", "'one'", "x'01'", "NULL"}) {
    for (char const* const column : {"models", "results", "userData", "diagnosticData", "productAddOns"}) {
      for (char const* const half : {"OID", "ClassID"}) {
        expectAnswered(std::string("UPDATE class_ddr_Ddb SET \"")
                           .append(column)
                           .append("#")
                           .append(half)
                           .append("\" = ")
                           .append(row));
      }
    }
    expectAnswered(std::string("UPDATE class_note_Extension SET \"##BaseClassOID\" = ").append(row));
  }
}

TEST_F(hostile_Rows, NegativeAndHugeRowNumbers) {
  for (char const* const table : {"class_ddr_Ddb", "class_ddr_Model", "class_ddr_ModelShortcut",
                                  "class_cls_MapHeader", "class_dia_Message"}) {
    for (char const* const row :
         {"-1", "2147483647", "4294967296", "9223372036854775807", "-9223372036854775808"}) {
      make_small_database(path, 512);
      probe_result const found = after(std::string("UPDATE ")
                                           .append(table)
                                           .append(R"( SET "row" = )")
                                           .append(row)
                                           .append(R"( WHERE "row" = 0)"));
      EXPECT_THAT(found.refusals,
                  Contains(AllOf(
                      HasSubstr("'" + path + "', class '" + std::string(table).substr(6) + "'"),
                      AnyOf(HasSubstr("', row "),
                            HasSubstr(std::string("a row number that cannot be is stored there, ") + row)))))
          << table << " " << row;
    }
  }
}

TEST_F(hostile_Rows, NegativeAndHugePlacesOfEntries) {
  for (char const* const place : {"-1", "2147483647", "9223372036854775807", "-9223372036854775808", "0.5"}) {
    make_small_database(path, 512);
    expectRefused(std::string("UPDATE ddr_entry SET position = ") + place + " WHERE Key = 'Beam'",
                  "collection", "no valid place");
  }
}

TEST_F(hostile_Rows, EntryOfACollectionThatCannotBe) {
  for (char const* const handle : {"-1", "4711", "9223372036854775807"}) {
    make_small_database(path, 512);
    expectRefused(std::string("UPDATE ddr_entry SET handle = ") + handle + " WHERE Key = 'Beam'", "",
                  std::string("the entries of collection ") + handle + " belong to no collection");
  }
  make_small_database(path, 512);
  expectRefused("UPDATE ddr_entry SET handle = handle + 0.5 WHERE Key = 'Beam'", "",
                "an entry belongs to a collection whose handle is no integer");
}

// The index is taken out of the schema while a key changes, and put back.
TEST_F(hostile_Rows, IndexThatLacksAnEntry) {
  change_stored_file(path, "PRAGMA writable_schema = on;"
                           "CREATE TABLE kept AS SELECT * FROM sqlite_schema WHERE name = 'ddr_entry_key';"
                           "DELETE FROM sqlite_schema WHERE name = 'ddr_entry_key'");
  change_stored_file(path, "UPDATE ddr_entry SET Key = 'Girder' WHERE Key = 'Beam'");
  expectRefused("PRAGMA writable_schema = on; INSERT INTO sqlite_schema SELECT * FROM kept",
                "entry 0 of collection", "'Girder', is missing from the index of entries");
}

TEST_F(hostile_Rows, NegativeAndHugeHandles) {
  for (char const* const handle : {"-1", "0", "2147483648", "9223372036854775807", "'x'", "1.5", "NULL"}) {
    make_small_database(path, 512);
    probe_result const found =
        after(std::string(R"(UPDATE class_cls_MapHeader SET "Target#Handle" = )").append(handle));
    EXPECT_THAT(found.refusals, Contains(HasSubstr("class 'cls_MapHeader', row "))) << handle;
    if (checked(probe.change(path)).refusals.empty()) {
      // All collections are one, which may hold objects of several classes now.
      EXPECT_THAT(checked(probe.look(path)).contents, AnyOf("refused", HasSubstr(added_model))) << handle;
    }
  }
}

TEST_F(hostile_Rows, NextHandleThatCannotBe) {
  for (char const* const handle : {"-1", "9223372036854775807", "'x'", "1.5", "x'00'"}) {
    make_small_database(path, 512);
    change_stored_file(path, std::string("UPDATE ddr_header SET next_handle = ").append(handle));
    changed();
  }
}

TEST_F(hostile_Rows, ClassListThatIsNotInOrder) {
  expectRefused(R"(UPDATE ddr_class SET "row" = 2147483647 WHERE "row" = 3)", "", "row of its class list");
}

TEST_F(hostile_Rows, AttributeOfAClassThatIsNotListed) {
  expectRefused("UPDATE ddr_attribute SET class = 4711 WHERE class = 0", "", "not listed");
}

TEST_F(hostile_Rows, AttributeAtAHugePlace) {
  expectRefused("UPDATE ddr_attribute SET position = 9223372036854775807 WHERE class = 0", "",
                "not in order");
}

TEST_F(hostile_Rows, TextsWithZeroBytes) {
  expectRefused("UPDATE class_ddr_Ddb SET description = CAST(x'410042' AS TEXT)", "class 'ddr_Ddb', row ",
                "description");
  make_small_database(path, 512);
  expectRefused("UPDATE ddr_entry SET Key = CAST(x'410042' AS TEXT) WHERE Key = 'Beam'",
                "class 'cls_MapHeader', row ", "not UTF-8");
}

TEST_F(hostile_Rows, TextsThatAreNotUtf8) {
  expectRefused("UPDATE class_ddr_Model SET modelName = CAST(x'41ff42' AS TEXT)", "class 'ddr_Model', row ",
                "modelName");
  make_small_database(path, 512);
  expectRefused("UPDATE ddr_entry SET Key = CAST(x'c0af' AS TEXT) WHERE Key = 'Beam'",
                "class 'cls_MapHeader', row ", "not UTF-8");
}

TEST_F(hostile_Rows, ViewsAndTriggersAreNotRun) {
  EXPECT_EQ(after("CREATE VIEW ddr_view AS WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) "
                  "SELECT i FROM n;"
                  "CREATE TRIGGER gone AFTER INSERT ON ddr_entry BEGIN DELETE FROM ddr_entry; END;"
                  "CREATE TRIGGER gone2 AFTER UPDATE ON class_ddr_Ddb BEGIN DELETE FROM ddr_entry; END;")
                .contents,
            sound);
  EXPECT_THAT(changed().refusals, IsEmpty());
  EXPECT_THAT(checked(probe.look(path)).contents, HasSubstr("model Plate 9: Plate 9"));
}

TEST_F(hostile_Rows, TableThatIsMissing) {
  expectRefused("DROP TABLE class_ddr_Model", "class 'ddr_Model'", "table is missing");
}

TEST_F(hostile_Rows, ColumnThatIsMissing) {
  probe_result const found = after(R"(ALTER TABLE class_ddr_Model DROP COLUMN modelName)");
  EXPECT_THAT(found.refusals, Contains(AllOf(HasSubstr(path), HasSubstr("class 'ddr_Model'"))));
}

TEST_F(hostile_Rows, ColumnOfAnotherType) {
  expectRefused("CREATE TABLE kept AS SELECT * FROM class_ddr_Ddb; DROP TABLE class_ddr_Ddb;"
                R"(CREATE TABLE class_ddr_Ddb("row" INTEGER PRIMARY KEY, "#uid" BLOB, "models#ClassID" TEXT,
                "models#OID" TEXT, name INTEGER, modifyTime TEXT);
                INSERT INTO class_ddr_Ddb SELECT "row", "#uid", "models#ClassID", "models#OID", name, modifyTime
                FROM kept)",
                "class 'ddr_Ddb'", "row 1");
}

// A model that was copied under another name keeps its identity, so this is no damage.
TEST_F(hostile_Rows, TwoRowsOfOneIdentity) {
  probe_result const found =
      after(R"(UPDATE class_ddr_Model SET "#uid" = (SELECT "#uid" FROM class_ddr_Model WHERE "row" = 0))");
  EXPECT_THAT(found.contents, AllOf(HasSubstr("model Plate 10: Plate 10 note of Plate 10"),
                                    HasSubstr("model Plate 9: Plate 9 note of Plate 9")));
  EXPECT_THAT(changed().refusals, IsEmpty());
  EXPECT_THAT(checked(probe.look(path)).contents,
              AllOf(HasSubstr("model Plate 10: Plate 10 note of Plate 10"),
                    HasSubstr("model Plate 9: Plate 9 note of Plate 9"),
                    HasSubstr("model another: another")));
}

TEST_F(hostile_Rows, AHugeText) {
  make_small_database(path, 4096);
  probe_result const found = after("UPDATE class_ddr_Ddb SET description = " + huge_text_sql());
  EXPECT_TRUE(found.contents.size() > huge_text() || !found.refusals.empty());
}

TEST_F(hostile_Rows, AHugeKey) {
  make_small_database(path, 4096);
  probe_result const found = after("UPDATE ddr_entry SET Key = " + huge_text_sql() + " WHERE Key = 'Step-1'");
  EXPECT_TRUE(found.contents.size() > huge_text() || !found.refusals.empty());
}

TEST_F(hostile_Rows, AValueThatIsMadeWhenItIsRead) {
  expectRefused("ALTER TABLE class_ddr_Model ADD COLUMN more AS (zeroblob(250000000))", "class 'ddr_Model'",
                "no plain table");
}

TEST_F(hostile_Rows, AnIndexOfOthersThatComputesIsNotRun) {
  probe_result const found = after("CREATE TABLE other(a); INSERT INTO other VALUES(1), (2), (3);"
                                   "CREATE INDEX other_a ON other(length(hex(zeroblob(20000000))))");
  EXPECT_EQ(found.contents, sound);
  EXPECT_THAT(found.refusals, IsEmpty());
}

// Twenty thousand entries of a list that all lead to one long message: gigabytes, were they all read.
TEST_F(hostile_Rows, OneLongMessageReadManyTimes) {
  change_stored_file(path, R"(
      UPDATE class_dia_Message SET text = printf('%.*c', 300000, 'x');
      WITH RECURSIVE n(i) AS (SELECT 100 UNION ALL SELECT i + 1 FROM n WHERE i < 20000)
      INSERT INTO ddr_entry SELECT handle, i, '', ClassID, OID FROM n,
        (SELECT handle, ClassID, OID FROM ddr_entry WHERE ClassID = (SELECT "Type Id" FROM ddr_class
         WHERE "Class Name" = 'dia_Message') LIMIT 1);)");
  probe_result const found = checked(probe.look(path));
  EXPECT_EQ(found.contents, "refused");
  EXPECT_THAT(found.refusals, Contains(AllOf(HasSubstr(path), HasSubstr("class 'dia_Message', row "),
                                             HasSubstr("the same rows many times"))));
}

/// Files in which many rows lead to the pages of one text of four megabytes.
class hostile_SharedPages : public hostile_Rows {
protected:
  static constexpr int sharing = 1500;
  hostile_SharedPages() { make_small_database(path, 4096); }
  void shareRows(std::string const& table, std::string const& column, int row) {
    EXPECT_GT(share_long_text(path, table, long_row(table, column, row),
                              short_rows(table, column, row + 1, sharing)),
              sharing / 2);
  }
  void shareEntries(long long handle, int count = sharing) {
    EXPECT_GT(
        share_long_text(path, "ddr_entry", long_entry(handle, 1000), short_entries(handle, 1001, count)),
        count / 2);
  }
};

TEST_F(hostile_SharedPages, OfMessages) {
  shareRows("class_dia_Message", "text", 100);
  change_stored_file(path, R"(
      INSERT INTO ddr_entry SELECT handle, "row", '', entry.ClassID, "row" FROM class_dia_Message, ddr_entry AS entry
      WHERE entry.ClassID = (SELECT "Type Id" FROM ddr_class WHERE "Class Name" = 'dia_Message')
      AND entry.position = 0 AND "row" >= 100)");
  probe_result const found = checked(probe.look(path));
  EXPECT_EQ(found.contents, "refused");
  EXPECT_THAT(found.refusals, Contains(AllOf(HasSubstr(path), HasSubstr("class 'dia_Message', row "),
                                             HasSubstr("many of them lead to the same pages"))));
  EXPECT_THAT(changed().refusals, Contains(HasSubstr("the same rows many times")));
}

// Rows that are not asked for one behind the other.
TEST_F(hostile_SharedPages, OfMessagesThatAreListedFromTheLast) {
  shareRows("class_dia_Message", "text", 100);
  change_stored_file(path, R"(
      INSERT INTO ddr_entry SELECT handle, 10000 - "row", '', entry.ClassID, "row"
      FROM class_dia_Message, ddr_entry AS entry
      WHERE entry.ClassID = (SELECT "Type Id" FROM ddr_class WHERE "Class Name" = 'dia_Message')
      AND entry.position = 0 AND "row" >= 100)");
  EXPECT_THAT(checked(probe.look(path)).refusals,
              Contains(AllOf(HasSubstr(path), HasSubstr("checking it takes more than the file holds"))));
}

// To make the file takes long: the index reads the long name for each of the short ones.
TEST_F(hostile_SharedPages, OfNamesOfModels) {
  shareEntries(1, whole_corpus() ? sharing : sharing / 5);
  probe_result const found = checked(probe.look(path));
  EXPECT_THAT(found.refusals, Contains(AllOf(HasSubstr(path), HasSubstr("class 'cls_MapHeader', row "),
                                             HasSubstr("many of them lead to the same pages"))));
  changed();
}

TEST_F(hostile_SharedPages, OfNamesThatNoIndexHas) {
  change_stored_file(path, "DROP INDEX ddr_entry_key");
  shareEntries(1);
  EXPECT_THAT(checked(probe.look(path)).refusals, Contains(HasSubstr("many of them lead to the same pages")));
  EXPECT_THAT(changed().refusals,
              Contains(AllOf(HasSubstr(path), HasSubstr("many of them lead to the same pages"))));
}

TEST_F(hostile_SharedPages, OfNamesOfClasses) {
  shareRows("ddr_class", "\"Class Name\"",
            std::stoi(stored_file(path).value("SELECT count(*) FROM ddr_class")));
  probe_result const found = checked(probe.look(path));
  EXPECT_EQ(found.contents, "refused");
  EXPECT_THAT(found.refusals, Contains(AllOf(HasSubstr(path), HasSubstr("class name is empty or too long"))));
}

TEST_F(hostile_SharedPages, OfIdentitiesThatNoIndexHas) {
  change_stored_file(path, "DROP INDEX \"class_ddr_Model#uid\"");
  shareRows("class_ddr_Model", "\"#uid\"", 100);
  checked(probe.look(path));
  changed();
}

TEST_F(hostile_SharedPages, OfRecordsThatARepairGoesOver) {
  shareRows("class_ddr_Ddb", "description", 100);
  EXPECT_THAT(repairACopy().refusals, Contains(AllOf(HasSubstr("class 'ddr_Ddb', row "),
                                                     HasSubstr("many of them lead to the same pages"))));
}

/// Files in which each of very many rows is cheap by itself.
class hostile_Many : public hostile_Rows {
protected:
  static constexpr int classCount = 16384;
  hostile_Many() { make_small_database(path, 4096); }
  /// SQL that counts from 0 to a number before which it ends, as n.i.
  static std::string counting(int end) {
    return "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i + 1 < " +
           std::to_string(end) + ") ";
  }
  /// Fills the class list: the base of each new class is the next one, and that of the last one is given.
  void deriveAll(std::string const& outermost) {
    std::string const first = stored_file(path).value("SELECT count(*) FROM ddr_class");
    std::string const last = std::to_string(classCount - 1 - std::stoi(first));
    change_stored_file(path, counting(classCount - std::stoi(first)) + "INSERT INTO ddr_class SELECT i + " +
                                 first + ", 'c' || i, NULL, 16777216 + i, 1, CASE i WHEN " + last + " THEN " +
                                 outermost + " ELSE 16777217 + i END FROM n");
  }
  /// Adds entries "e0", "e1", ... to a collection.
  /// @param target SQL of class and row
  void addEntries(std::string const& handle, int count, std::string const& target) {
    change_stored_file(path, counting(count) + "INSERT INTO ddr_entry SELECT " + handle +
                                 ", 1000 + i, 'e' || i, " + target + " FROM n");
  }
  std::string handleOf(std::string const& collection) const {
    return stored_file(path).value("SELECT \"Target#Handle\" FROM class_cls_MapHeader WHERE \"row\" = "
                                   "(SELECT \"" +
                                   collection + "#OID\" FROM class_ddr_Ddb ORDER BY \"row\" DESC)");
  }
};

TEST_F(hostile_Many, BaseClassesInALongChain) {
  deriveAll("1");
  EXPECT_EQ(after("").contents, sound);
}

TEST_F(hostile_Many, BaseClassesInALongCircle) {
  deriveAll("16777216");
  EXPECT_THAT(after("").refusals,
              Contains(AllOf(HasSubstr(path), HasSubstr("'c17'"), HasSubstr("among its own base classes"))));
}

TEST_F(hostile_Many, ObjectsOfAClassWithManyBases) {
  deriveAll("2228225"); // ddr_Result
  change_stored_file(path, "UPDATE ddr_class SET \"Class Table\" = 'class_c0' WHERE \"Class Name\" = 'c0';"
                           "CREATE TABLE class_c0(\"row\" INTEGER PRIMARY KEY, \"#uid\" BLOB);"
                           "INSERT INTO class_c0 VALUES(0, zeroblob(16))");
  addEntries(handleOf("results"), 5'000, "16777216, 0");
  EXPECT_THAT(after("").refusals, Contains(AllOf(HasSubstr(path), HasSubstr("class 'c0', row 0"))));
}

// A hashed table of 20,753 places would have all of them in one.
TEST_F(hostile_Many, ClassesWhoseNumbersHashAlike) {
  std::string const first = stored_file(path).value("SELECT count(*) FROM ddr_class");
  change_stored_file(path, counting(20'000) + "INSERT INTO ddr_class SELECT i + " + first +
                               ", 'c' || i, NULL, 20753 * (i + 1000), 1, 1 FROM n");
  EXPECT_EQ(after("").contents, sound);
}

TEST_F(hostile_Many, HeadersInOneCollection) {
  int const count = 20'000;
  change_stored_file(path, counting(count) +
                               "INSERT INTO class_cls_MapHeader(\"row\", \"#uid\", "
                               "\"Target#Handle\") SELECT 1000 + i, randomblob(16), 1000 + i FROM n");
  addEntries(handleOf("results"), count, "2293762, 1000 + i");
  EXPECT_THAT(after("").refusals, Contains(AllOf(HasSubstr("class 'cls_MapHeader', row "),
                                                 HasSubstr("leads to an object of the wrong class"))));
}

TEST_F(hostile_Many, RowsOfRecordsFarApart) {
  change_stored_file(path, "UPDATE class_ddr_Ddb SET \"row\" = 2147483646, name = 'another' WHERE \"row\" = "
                           "(SELECT max(\"row\") FROM class_ddr_Ddb)");
  EXPECT_EQ(repairACopy().contents, "repaired");
  after("");
}

TEST_F(hostile_Many, EntriesWithoutTheIndexOfTheirNames) {
  change_stored_file(path, "DROP INDEX ddr_entry_key");
  addEntries(handleOf("models"), 8'000, "2228231, 0");
  EXPECT_THAT(after("").contents, HasSubstr("model e7999: "));
  changed();
}

// The index is that of an empty table.
TEST_F(hostile_Many, EntriesThatTheIndexOfTheirNamesLacks) {
  addEntries(handleOf("models"), 8'000, "2228231, 0");
  change_stored_file(path, "CREATE TABLE notes(a); CREATE INDEX notes_a ON notes(a); "
                           "PRAGMA writable_schema = on; UPDATE sqlite_schema SET rootpage = "
                           "(SELECT rootpage FROM sqlite_schema WHERE name = 'notes_a') "
                           "WHERE name = 'ddr_entry_key'");
  EXPECT_THAT(after("").refusals, Contains(HasSubstr("'e7999', is missing from the index of entries")));
  checked(probe.change(path));
}

TEST_F(hostile_Many, CollectionsWithADamagedEntry) {
  int const count = 10'000;
  change_stored_file(path, counting(count) +
                               "INSERT INTO class_cls_MapHeader(\"row\", \"#uid\", "
                               "\"Target#Handle\") SELECT 1000 + i, randomblob(16), 1000 + i FROM n");
  change_stored_file(path, counting(count) + "INSERT INTO ddr_entry SELECT 1000 + i, 0, 'e', 'x', 0 FROM n");
  EXPECT_THAT(after("").refusals, Contains(AllOf(HasSubstr("class 'cls_MapHeader', row 1000"),
                                                 HasSubstr("refers to nothing that can be"))));
}

// SQLite keeps sixty times the text in memory while the file is open for writing.
TEST_F(hostile_Rows, TablesOfOthersWithLongConditions) {
  std::string conditions = "1";
  for (int count = 0; count < 400'000; ++count) {
    conditions += ",1";
  }
  std::string sql;
  for (char const* const name : {"one", "two", "three", "four"}) {
    sql.append("CREATE TABLE ").append(name).append("(a CHECK(a IN (").append(conditions).append(")));");
  }
  make_small_database(path, 4096);
  expectRefused(sql, "", "defined at a length that no file of its size needs");
  EXPECT_THAT(changed().refusals, Contains(HasSubstr("defined at a length")));
}

TEST_F(hostile_Rows, ThingsOfOthersAtAUsualLengthAreLeftAlone) {
  std::string sql;
  for (int count = 0; count < 60; ++count) {
    std::string const number = std::to_string(count);
    sql += "CREATE TABLE other" + number + "(a CHECK(a <> '" + std::string(1000, 'x') +
           "'), b DEFAULT 'x');" + "CREATE VIEW view" + number + " AS SELECT a, b FROM other" + number +
           " WHERE b <> '" + std::string(1000, 'y') + "';";
  }
  EXPECT_EQ(after(sql).contents, sound);
}

} // namespace
