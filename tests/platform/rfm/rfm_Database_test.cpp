// Tests of rfm_Database, rfm_Table, rfm_Row and rfm_Entries on sound and on damaged files.
#include "rfm_Check.h"
#include "rfm_TestFiles.h"

#include "child_process.h"

#include <algorithm>
#include <array>
#include <gmock/gmock.h>
#include <limits>
#include <map>
#include <random>

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

struct DatabaseTest : rfm_Test {
  rfm_Database database = createFile(path);

  std::vector<std::string> classNames() {
    std::vector<std::string> names;
    for (rfm_ClassEntry const& entry : database.Classes()) {
      names.emplace_back(entry.name.Text());
    }
    return names;
  }
  // What a file says after SQL was run on it.
  std::string bindAfter(std::string const& sql) {
    runSql(path, sql);
    return failureOf([&] { openFile(path, utl_FileAccess::Read); });
  }
  // What reading a field of row 0 says after SQL was run on the file.
  std::string readAfter(std::string const& sql, std::function<void(rfm_Row const&)> const& read) {
    saveModels(database, {"a"});
    EXPECT_EQ(runSql(path, sql).substr(0, 6) == "error:", false);
    return failureOf([&] {
      rfm_Database reader = openFile(path, utl_FileAccess::Read);
      rfm_Table table = reader.Table(modelType);
      read(table.ReadRow(0));
    });
  }
};

TEST_F(DatabaseTest, TheClassListIsReadBackEqual) {
  rfm_Database const reader = openFile(path, utl_FileAccess::Read);
  ASSERT_EQ(reader.Classes().size(), 2U);
  rfm_ClassEntry expected = modelClass();
  expected.row = 0;
  EXPECT_TRUE(reader.Classes()[0] == expected);
  expected = resultClass();
  expected.row = 1;
  EXPECT_TRUE(reader.Classes()[1] == expected);
  EXPECT_EQ(reader.FindClass(resultType), &reader.Classes()[1]);
  EXPECT_EQ(reader.FindClassByName("ddr_Model"), &reader.Classes()[0]);
  EXPECT_EQ(reader.FindClass(3), nullptr);
  EXPECT_EQ(reader.FindClassByName("ddr_model"), nullptr);
}

TEST_F(DatabaseTest, TheClassListIsATable) {
  saveModels(database, {"a"});
  rfm_Table list = database.ClassList();
  EXPECT_EQ(list.Length(), 2);
  rfm_Row const& row = list.ReadRow(0);
  EXPECT_EQ(row.ReadFieldString("Class Name"), cow_String("ddr_Model"));
  EXPECT_EQ(row.ReadFieldString("Class Table"), cow_String("class_ddr_Model"));
  EXPECT_EQ(row.ReadFieldUnsigned("Type Id"), modelType);
  EXPECT_EQ(row.ReadFieldInt("Class Version"), 874);
  EXPECT_EQ(row.ReadFieldUnsigned("Base Type Id"), 1U);
  EXPECT_EQ(database.TableOfHandle(row.ReadFieldHandle("Class Table")).Length(), 1);
  list.ReadRow(-1);
  EXPECT_EQ(row.ReadFieldString("Class Name"), cow_String("ddr_Result"));
  EXPECT_EQ(row.ReadFieldHandle("Class Table"), 0);
  EXPECT_EQ(database.TableOfHandle(0).Length(), 0);
  EXPECT_FALSE(list.RowExists(-1));
  rfm_Transaction const transaction(database);
  EXPECT_THAT(failureOf([&] { list.UpdateRow(0); }), StartsWith("exception: "));
}

TEST_F(DatabaseTest, AClassIsListedOnce) {
  rfm_Transaction const transaction(database);
  rfm_ClassEntry entry = modelClass();
  EXPECT_THAT(failureOf([&] { database.AddClass(entry); }), HasSubstr("already"));
  entry.typeId = 7;
  EXPECT_THAT(failureOf([&] { database.AddClass(entry); }), HasSubstr("already"));
  entry.name = "other";
  EXPECT_EQ(database.AddClass(entry).row, 2);
  EXPECT_THAT(classNames(), ElementsAre("ddr_Model", "ddr_Result", "other"));
}

TEST_F(DatabaseTest, NamesThatWouldCollideAreRefused) {
  rfm_Transaction const transaction(database);
  for (char const* const name : {"row", "#UID", "b#OID", "A"}) {
    rfm_ClassEntry entry;
    entry.name = "c";
    entry.typeId = 7;
    entry.attributes = {{"a", 11, 1, 0}, {"b", 15, 1, 0}, {name, 5, 1, 0}};
    EXPECT_THAT(failureOf([&] { database.AddClass(entry); }), HasSubstr("two fields would have one name"))
        << name;
  }
  rfm_ClassEntry nameless;
  nameless.typeId = 8;
  EXPECT_THAT(failureOf([&] { database.AddClass(nameless); }), StartsWith("Other: "));
}

TEST_F(DatabaseTest, NamesFromAFileAreNeverSql) {
  rfm_ClassEntry entry;
  entry.name = "x\"; DROP TABLE ddr_header; --";
  entry.typeId = 7;
  entry.attributes = {{"a\" b'; --", 11, 1, 0}, {"[c]", 15, 1, 0}, {"select", 5, 1, 0}};
  {
    rfm_Transaction transaction(database);
    database.AddClass(entry);
    rfm_Table table = database.TableForWriting(7);
    table.Row().WriteFieldString("a\" b'; --", "'; DELETE FROM ddr_class; --");
    table.AppendRow();
    transaction.Commit();
  }
  rfm_Database reader = openFile(path, utl_FileAccess::Read);
  rfm_Table table = reader.Table(7);
  EXPECT_EQ(table.ReadRow(0).ReadFieldString("a\" b'; --"), cow_String("'; DELETE FROM ddr_class; --"));
  EXPECT_EQ(reader.Classes().size(), 3U);
}

TEST_F(DatabaseTest, ClassesOfSimilarNamesHaveTablesOfTheirOwn) {
  rfm_Transaction transaction(database);
  unsigned typeId = 10;
  for (char const* const name : {"a b", "a-b", "A_B"}) {
    rfm_ClassEntry entry;
    entry.name = name;
    entry.typeId = typeId;
    entry.attributes = {{"n", 5, 1, 0}};
    database.AddClass(entry);
    rfm_Table table = database.TableForWriting(typeId);
    table.Row().WriteFieldInt("n", static_cast<int>(typeId));
    table.AppendRow();
    ++typeId;
  }
  transaction.Commit();
  for (int number = 10; number < 13; ++number) {
    rfm_Table table = database.Table(static_cast<unsigned>(number));
    EXPECT_EQ(table.Length(), 1);
    EXPECT_EQ(table.ReadRow(0).ReadFieldInt("n"), number);
  }
}

TEST_F(DatabaseTest, AFailureIsGivenInPiecesToo) {
  rfm_Table table = database.Table(modelType);
  try {
    table.ReadRow(3);
    FAIL() << "there is no row 3";
  } catch (rfm_Exception const& failure) {
    EXPECT_EQ(failure.Where(), "Database file '" + path + "', class 'ddr_Model', row 3");
    EXPECT_EQ(failure.What(), "there is no such row");
    EXPECT_EQ(failure.Advice(), "Check the number of rows, or restore the file from a backup");
    EXPECT_EQ(failure.what(), failure.Where() + ": " + failure.What() + ". " + failure.Advice() + ".");
  }
}

TEST_F(DatabaseTest, ATableWithoutRowsHasTheLayoutOfItsClass) {
  rfm_Table table = database.Table(modelType);
  EXPECT_EQ(table.Length(), 0);
  EXPECT_FALSE(table.RowExists(0));
  EXPECT_FALSE(table.RowExists(-1));
  EXPECT_TRUE(table.HasField("instanceTable#OID"));
  EXPECT_FALSE(table.HasField("instanceTable"));
  EXPECT_THAT(table.FieldNames(), ElementsAre("modelName", "count", "flag", "size", "instanceTable#ClassID",
                                              "instanceTable#OID"));
  EXPECT_THAT(database.Table(resultType).FieldNames(), ElementsAre("##BaseClassOID"));
  EXPECT_EQ(failureOf([&] { table.ReadRow(0); }),
            "Other: Database file '" + path +
                "', class 'ddr_Model', row 0: there is no such row. Check the number "
                "of rows, or restore the file from a backup.");
}

TEST_F(DatabaseTest, RowZeroOfAnEmptiedTableThrows) {
  saveModels(database, {"a"});
  runSql(path, "DELETE FROM class_ddr_Model");
  rfm_Table table = database.Table(modelType);
  EXPECT_EQ(table.Length(), 0);
  EXPECT_THAT(failureOf([&] { table.ReadRow(0); }),
              AllOf(HasSubstr(path), HasSubstr("class 'ddr_Model'"), HasSubstr("row 0")));
}

TEST_F(DatabaseTest, AnUnknownClassHasAnEmptyTable) {
  rfm_Table table = database.Table(4711);
  EXPECT_EQ(table.Length(), 0);
  EXPECT_FALSE(table.HasField("name"));
  EXPECT_THAT(failureOf([&] { table.ReadRow(0); }), HasSubstr("class '4711'"));
  rfm_Transaction const transaction(database);
  EXPECT_THAT(failureOf([&] { table.AppendRow(); }), HasSubstr("no table in this file"));
  EXPECT_THAT(failureOf([&] { database.TableForWriting(4711); }), HasSubstr("not in its class list"));
}

TEST_F(DatabaseTest, EveryKindOfValueIsReadBackEqual) {
  std::string const longText(300000, 'x');
  {
    rfm_Transaction transaction(database);
    rfm_Table table = database.TableForWriting(modelType);
    rfm_Row& row = table.Row();
    row.WriteFieldString("modelName", cow_String(longText + "\xc3\xa4"));
    row.WriteFieldInt("count", std::numeric_limits<int>::min());
    row.WriteFieldBool("flag", true);
    row.WriteFieldDouble("size", 0.1);
    row.WriteFieldUnsigned("instanceTable#ClassID", 0xffffffffU);
    row.WriteFieldInt("instanceTable#OID", -1);
    row.SetUid(uidOf(5));
    EXPECT_EQ(table.AppendRow(), 0);
    table.ClearRow();
    EXPECT_EQ(table.AppendRow(), 1);
    transaction.Commit();
  }
  rfm_Database reader = openFile(path, utl_FileAccess::Read);
  rfm_Table table = reader.Table(modelType);
  rfm_Row const& row = table.ReadRow(0);
  EXPECT_TRUE(row.ReadFieldString("modelName") == cow_String(longText + "\xc3\xa4"));
  EXPECT_EQ(row.ReadFieldInt("count"), std::numeric_limits<int>::min());
  EXPECT_TRUE(row.ReadFieldBool("flag"));
  EXPECT_EQ(row.ReadFieldDouble("size"), 0.1);
  EXPECT_EQ(row.ReadFieldUnsigned("instanceTable#ClassID"), 0xffffffffU);
  EXPECT_EQ(row.ReadFieldInt("instanceTable#OID"), -1);
  EXPECT_EQ(row.Uid(), uidOf(5));
  EXPECT_EQ(row.RowNumber(), 0);
  table.ReadRow(1);
  EXPECT_TRUE(row.HasField("count"));
  EXPECT_FALSE(row.FieldIsSet("count"));
  EXPECT_EQ(row.ReadFieldString("modelName"), cow_String());
  EXPECT_EQ(row.ReadFieldInt("count"), 0);
  EXPECT_EQ(row.ReadFieldHandle("count"), 0);
  EXPECT_FALSE(row.ReadFieldBool("flag"));
  EXPECT_EQ(row.ReadFieldDouble("size"), 0.0);
  EXPECT_FALSE(row.Uid());
}

TEST_F(DatabaseTest, UnknownFieldsAreNamed) {
  rfm_Table table = database.Table(modelType);
  EXPECT_THAT(failureOf([&] { table.Row().ReadFieldInt("none"); }),
              AllOf(HasSubstr(path), HasSubstr("class 'ddr_Model'"), HasSubstr("field 'none'")));
  EXPECT_THAT(failureOf([&] { table.Row().WriteFieldInt("none", 1); }), HasSubstr("field 'none'"));
  EXPECT_FALSE(table.Row().FieldIsSet("none"));
}

TEST_F(DatabaseTest, ATextThatIsNotUtf8IsNotStored) {
  rfm_Table table = database.Table(modelType);
  table.Row().WriteFieldString("modelName", "kept");
  EXPECT_THAT(failureOf([&] { table.Row().WriteFieldString("modelName", "\xff"); }), HasSubstr("not UTF-8"));
  EXPECT_EQ(table.Row().ReadFieldString("modelName"), cow_String("kept"));
  rfm_Transaction const transaction(database);
  EXPECT_THAT(failureOf([&] { database.Entries().Append(1, "\xff", 1, 1); }), HasSubstr("not UTF-8"));
  EXPECT_THAT(failureOf([&] { database.Entries().Append(1, std::string_view("a\0b", 3), 1, 1); }),
              HasSubstr("not UTF-8"));
}

TEST_F(DatabaseTest, WrongStoredTypesAreDamage) {
  EXPECT_THAT(
      readAfter("UPDATE class_ddr_Model SET count = 'x'", [](auto& row) { row.ReadFieldInt("count"); }),
      AllOf(StartsWith("Damaged: Database file '" + path + "', class 'ddr_Model', row 0, field 'count': "),
            HasSubstr("not an integer")));
}

TEST_F(DatabaseTest, NumbersOutOfRangeAreDamage) {
  EXPECT_THAT(readAfter("UPDATE class_ddr_Model SET count = 2147483648",
                        [](auto& row) { row.ReadFieldInt("count"); }),
              HasSubstr("outside 32 bits"));
  EXPECT_THAT(
      readAfter("UPDATE class_ddr_Model SET count = -1", [](auto& row) { row.ReadFieldUnsigned("count"); }),
      HasSubstr("outside 32 bits"));
  EXPECT_THAT(readAfter("UPDATE class_ddr_Model SET flag = 2", [](auto& row) { row.ReadFieldBool("flag"); }),
              HasSubstr("neither 0 nor 1"));
  EXPECT_THAT(
      readAfter("UPDATE class_ddr_Model SET size = 'x'", [](auto& row) { row.ReadFieldDouble("size"); }),
      HasSubstr("not a number"));
}

TEST_F(DatabaseTest, BadTextsAreDamageAndSurviveAnUpdate) {
  saveModels(database, {"a", "b", "c"});
  runSql(path, "UPDATE class_ddr_Model SET modelName = CAST(x'61ff' AS TEXT) WHERE row = 0;"
               "UPDATE class_ddr_Model SET modelName = CAST(x'610062' AS TEXT) WHERE row = 1;"
               "UPDATE class_ddr_Model SET modelName = x'6162' WHERE row = 2;");
  rfm_Transaction transaction(database);
  rfm_Table table = database.Table(modelType);
  for (int number = 0; number < 3; ++number) {
    rfm_Row const& row = table.ReadRow(number);
    EXPECT_THAT(failureOf([&] { row.ReadFieldString("modelName"); }), StartsWith("Damaged: ")) << number;
    table.Row().WriteFieldInt("count", 7);
    table.UpdateRow(-1);
  }
  transaction.Commit();
  EXPECT_EQ(
      runSql(path, "SELECT group_concat(hex(modelName) || typeof(modelName) || count) FROM class_ddr_Model"),
      "61FFtext7,610062text7,6162blob7");
}

TEST_F(DatabaseTest, DamagedClassListsAreRefused) {
  EXPECT_THAT(bindAfter("UPDATE ddr_class SET \"Type Id\" = 'x' WHERE row = 0"), HasSubstr("type id"));
  EXPECT_THAT(bindAfter("UPDATE ddr_class SET \"Type Id\" = 0x220001 WHERE row = 0"),
              HasSubstr("type id twice"));
  EXPECT_THAT(
      bindAfter("UPDATE ddr_class SET \"Type Id\" = 0x220007, \"Class Name\" = 'ddr_Result' WHERE row = 0"),
      HasSubstr("a class twice"));
  EXPECT_THAT(bindAfter("UPDATE ddr_class SET \"Class Name\" = CAST(x'ff' AS TEXT) WHERE row = 0"),
              HasSubstr("class name"));
  EXPECT_THAT(bindAfter("UPDATE ddr_class SET \"Class Name\" = '' WHERE row = 0"), HasSubstr("empty"));
  EXPECT_THAT(
      bindAfter("UPDATE ddr_class SET \"Class Name\" = 'm', \"Class Table\" = 'ddr_header' WHERE row = 0"),
      HasSubstr("table that cannot be"));
  EXPECT_THAT(bindAfter("UPDATE ddr_class SET \"Class Table\" = NULL, row = 5 WHERE row = 0"),
              HasSubstr("missing"));
}

TEST_F(DatabaseTest, DamagedAttributeListsAreRefused) {
  EXPECT_THAT(bindAfter("UPDATE ddr_attribute SET position = 99 WHERE class = 0 AND position = 4"),
              HasSubstr("not in order"));
  EXPECT_THAT(
      bindAfter("UPDATE ddr_attribute SET position = 4, name = 'Count', kind = 5 WHERE position = 99"),
      HasSubstr("one name"));
  EXPECT_THAT(bindAfter("UPDATE ddr_attribute SET name = 'x', kind = 1e10 WHERE position = 4"),
              HasSubstr("kind"));
  EXPECT_THAT(bindAfter("UPDATE ddr_attribute SET kind = 5, class = 17, position = 0 WHERE position = 4"),
              HasSubstr("not listed"));
}

TEST_F(DatabaseTest, ATableThatIsMissingOrNotATableIsDamage) {
  saveModels(database, {"a"});
  auto const readTable = [&] {
    return failureOf([&] { openFile(path, utl_FileAccess::Read).Table(modelType); });
  };
  runSql(path, "DROP INDEX \"class_ddr_Model#uid\"; ALTER TABLE class_ddr_Model RENAME TO kept;"
               "CREATE VIEW class_ddr_Model AS SELECT * FROM kept");
  EXPECT_THAT(readTable(), AllOf(StartsWith("Damaged: "), HasSubstr("class 'ddr_Model'")));
  runSql(path, "DROP VIEW class_ddr_Model");
  EXPECT_THAT(readTable(), AllOf(StartsWith("Damaged: "), HasSubstr("table is missing")));
  runSql(path, "CREATE TABLE class_ddr_Model(row TEXT, \"#uid\")");
  EXPECT_THAT(readTable(), AllOf(StartsWith("Damaged: "), HasSubstr("not an integer primary key")));
}

TEST_F(DatabaseTest, RowNumbersThatCannotBeAreDamage) {
  saveModels(database, {"a"});
  runSql(path, "UPDATE class_ddr_Model SET row = 4000000000");
  EXPECT_THAT(failureOf([&] { database.Table(modelType).Length(); }), AllOf(StartsWith("Damaged: ")));
  EXPECT_THAT(failureOf([&] { database.Table(modelType).ReadRow(-1); }), StartsWith("Damaged: "));
}

TEST_F(DatabaseTest, AnIdentityOfTheWrongSizeIsDamage) {
  EXPECT_THAT(readAfter("UPDATE class_ddr_Model SET \"#uid\" = x'01'", [](auto&) {}), HasSubstr("identity"));
  EXPECT_THAT(readAfter("UPDATE class_ddr_Model SET \"#uid\" = 'text'", [](auto&) {}), HasSubstr("identity"));
}

TEST_F(DatabaseTest, FieldsAreFoundByNameInAnOlderLayout) {
  saveModels(database, {"a"});
  runSql(path, "ALTER TABLE class_ddr_Model DROP COLUMN count; ALTER TABLE class_ddr_Model ADD COLUMN later");
  rfm_Database reader = openFile(path, utl_FileAccess::Read);
  rfm_Table table = reader.Table(modelType);
  EXPECT_FALSE(table.HasField("count"));
  EXPECT_TRUE(table.HasField("later"));
  EXPECT_EQ(table.ReadRow(0).ReadFieldString("modelName"), cow_String("a"));
}

TEST_F(DatabaseTest, RowsAreWalkedFromAnyPlaceAndOverGaps) {
  saveModels(database, {"a", "b", "c", "d", "e"});
  runSql(path, "DELETE FROM class_ddr_Model WHERE row IN (1, 2)");
  rfm_Table table = database.Table(modelType);
  auto const walk = [&](int from) {
    std::string text;
    for (table.Seek(from); table.RowExists(-1);) {
      rfm_Row const& row = table.ReadRow(-1);
      text += std::to_string(row.RowNumber()) + row.ReadFieldString("modelName").Text();
    }
    return text;
  };
  EXPECT_EQ(walk(0), "0a3d4e");
  EXPECT_EQ(walk(1), "3d4e");
  EXPECT_EQ(walk(5), "");
  auto const nextRow = [&](int from) {
    table.Seek(from);
    return table.NextRow();
  };
  EXPECT_EQ(nextRow(0), 0);
  EXPECT_EQ(nextRow(1), 3);
  EXPECT_EQ(nextRow(5), -1);
  EXPECT_EQ(database.Table(resultType).NextRow(), -1);
  rfm_ReadScope const scope(database);
  EXPECT_EQ(walk(0), "0a3d4e");
  EXPECT_EQ(table.Length(), 5);
  EXPECT_FALSE(table.RowExists(1));
  EXPECT_THAT(failureOf([&] { table.ReadRow(1); }), HasSubstr("row 1"));
  EXPECT_EQ(table.ReadRow(3).ReadFieldString("modelName"), cow_String("d"));
  EXPECT_EQ(table.ReadRow(4).ReadFieldString("modelName"), cow_String("e"));
  EXPECT_THAT(failureOf([&] { table.ReadRow(-1); }), HasSubstr("row 5"));
  EXPECT_THAT(failureOf([&] { table.ReadRow(-2); }), StartsWith("Other: "));
}

TEST_F(DatabaseTest, RowsAreUpdatedWhileTheyAreWalked) {
  saveModels(database, {"a", "b", "c"});
  rfm_Transaction transaction(database);
  rfm_Table table = database.Table(modelType);
  for (table.Seek(0); table.RowExists(-1);) {
    table.ReadRow(-1);
    table.Row().WriteFieldString("modelName", "same");
    table.UpdateRow(-1);
  }
  transaction.Commit();
  EXPECT_EQ(contents(path), "a=0 b=1 c=2 | same same same");
}

TEST_F(DatabaseTest, TwoHandlesOfATableAreIndependent) {
  saveModels(database, {"a", "b", "c"});
  rfm_ReadScope const scope(database);
  rfm_Table first = database.Table(modelType);
  rfm_Table second = database.Table(modelType);
  first.ReadRow(0);
  second.ReadRow(1);
  first.ReadRow(-1);
  second.ReadRow(-1);
  EXPECT_EQ(first.Row().ReadFieldString("modelName"), cow_String("b"));
  EXPECT_EQ(second.Row().ReadFieldString("modelName"), cow_String("c"));
}

TEST_F(DatabaseTest, UpdatingOverwritesOneRow) {
  saveModels(database, {"a", "b"});
  rfm_Transaction transaction(database);
  rfm_Table table = database.Table(modelType);
  table.ReadRow(0);
  table.Row().WriteFieldString("modelName", "B");
  table.UpdateRow(1);
  EXPECT_EQ(table.FindUid(uidOf(0), std::array<int, 3>().data(), 3), 2);
  EXPECT_THAT(failureOf([&] { table.UpdateRow(2); }), HasSubstr("row 2"));
  EXPECT_THAT(failureOf([&] { database.Table(modelType).UpdateRow(-1); }), HasSubstr("no such row"));
  transaction.Commit();
  EXPECT_EQ(contents(path), "a=0 b=1 | a B");
}

TEST_F(DatabaseTest, CopiesTakeWhatTheLayoutHas) {
  saveModels(database, {"a"});
  rfm_Transaction transaction(database);
  rfm_Table source = database.Table(modelType);
  rfm_Table target = database.TableForWriting(resultType);
  source.ReadRow(0);
  target.Row().CopyFieldsFrom(source.Row());
  EXPECT_EQ(target.Row().Uid(), uidOf(0));
  rfm_Table same = database.TableForWriting(modelType);
  same.Row().CopyFieldsFrom(source.Row());
  EXPECT_EQ(same.AppendRow(), 1);
  transaction.Commit();
  EXPECT_EQ(contents(path), "a=0 | a a");
}

TEST_F(DatabaseTest, IdentitiesAreFoundDuringAndAfterTheFirstSave) {
  std::array<int, 2> rows{-1, -1};
  {
    rfm_Transaction transaction(database);
    rfm_Table table = database.TableForWriting(modelType);
    EXPECT_EQ(table.FindUid(uidOf(0), rows.data(), 2), 0);
    addModel(database, "a");
    addModel(database, "b");
    EXPECT_EQ(table.FindUid(uidOf(1), rows.data(), 2), 1);
    EXPECT_EQ(rows[0], 1);
    addModel(database, "c");
    EXPECT_EQ(table.FindUid(uidOf(2), rows.data(), 2), 1);
    EXPECT_EQ(rows[0], 2);
    transaction.Commit();
  }
  rfm_Database reader = openFile(path, utl_FileAccess::Read);
  EXPECT_EQ(reader.Table(modelType).FindUid(uidOf(0), rows.data(), 2), 1);
  EXPECT_EQ(rows[0], 0);
  EXPECT_EQ(reader.Table(modelType).FindUid(uidOf(77), rows.data(), 2), 0);
}

TEST_F(DatabaseTest, EachLookUpHasAnIndex) {
  saveModels(database, {"a"});
  EXPECT_THAT(
      runSql(path, "EXPLAIN QUERY PLAN SELECT row FROM class_ddr_Model WHERE \"#uid\" = x'00' ORDER BY row"),
      HasSubstr("INDEX class_ddr_Model#uid (#uid=?)"));
  EXPECT_THAT(runSql(path, "EXPLAIN QUERY PLAN SELECT OID FROM ddr_entry INDEXED BY ddr_entry_key "
                           "WHERE handle = 1 AND Key = 'a' ORDER BY position LIMIT 1"),
              HasSubstr("INDEX ddr_entry_key (handle=? AND Key=?)"));
  EXPECT_THAT(runSql(path, "EXPLAIN QUERY PLAN SELECT OID FROM ddr_entry WHERE handle = 1 AND position > -1 "
                           "ORDER BY position"),
              HasSubstr("PRIMARY KEY (handle=? AND position>?)"));
}

TEST_F(DatabaseTest, LookUpsReadOneRowWhateverTheSize) {
  {
    rfm_Transaction transaction(database);
    for (int number = 0; number < 3000; ++number) {
      addModel(database, numbered("n", number));
    }
    transaction.Commit();
  }
  rfm_Database reader = openFile(path, utl_FileAccess::Read);
  rfm_ReadScope const scope(reader);
  std::uint64_t const before = reader.File().Statistics().rowsRead;
  EXPECT_EQ(before, 0U);
  EXPECT_EQ(reader.Entries().Find(1, "n2999")->oid, 2999);
  EXPECT_EQ(reader.File().Statistics().rowsRead, 1U);
  reader.Table(modelType).ReadRow(1234);
  EXPECT_EQ(reader.File().Statistics().rowsRead, 2U);
}

// The entries of several collections, compared step by step with a plain list.
TEST_F(DatabaseTest, EntriesBehaveLikeLists) {
  unsigned const seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::map<std::int64_t, std::vector<rfm_Entry>> model;
  auto const matches = [&](rfm_Database& read) {
    for (std::int64_t handle = 1; handle <= 3; ++handle) {
      std::vector<std::string> stored;
      rfm_EntryCursor cursor = read.Entries().Scan(handle);
      while (cursor.Next()) {
        stored.push_back(std::string(cursor.Key()) + ":" + std::to_string(cursor.ClassId()) + ":" +
                         std::to_string(cursor.Oid()));
      }
      std::vector<std::string> expected;
      for (rfm_Entry const& entry : model[handle]) {
        expected.push_back(std::string(entry.key.Text()) + ":" + std::to_string(entry.classId) + ":" +
                           std::to_string(entry.oid));
      }
      EXPECT_EQ(stored, expected);
      EXPECT_EQ(read.Entries().Count(handle), static_cast<int>(expected.size()));
    }
  };
  for (int round = 0; round < 20; ++round) {
    bool const commits = random() % 3 != 0;
    auto const before = model;
    {
      rfm_Transaction transaction(database);
      for (int step = 0; step < 20; ++step) {
        std::int64_t const handle = 1 + static_cast<std::int64_t>(random() % 3);
        std::string const key = random() % 10 == 0 ? "" : numbered("k", static_cast<int>(random() % 8));
        int const oid = static_cast<int>(random() % 1000);
        std::vector<rfm_Entry>& entries = model[handle];
        auto const isKey = [&](rfm_Entry const& entry) { return entry.key.View() == key; };
        auto const first = std::find_if(entries.begin(), entries.end(), isKey);
        bool const present = first != entries.end();
        switch (random() % 8) {
        case 0:
          EXPECT_EQ(database.Entries().Remove(handle, key), present);
          std::erase_if(entries, isKey);
          break;
        case 1:
          EXPECT_EQ(database.Entries().Update(handle, key, 9, oid), present);
          for (rfm_Entry& entry : entries) {
            if (isKey(entry)) {
              entry.classId = 9;
              entry.oid = oid;
            }
          }
          break;
        case 2: {
          std::optional<rfm_Entry> const found = database.Entries().Find(handle, key);
          ASSERT_EQ(found.has_value(), present);
          if (found) {
            EXPECT_EQ(found->oid, first->oid);
          }
          break;
        }
        case 3:
          if (random() % 10 == 0) {
            database.Entries().Clear(handle);
            entries.clear();
          }
          break;
        default:
          database.Entries().Append(handle, key, 7, oid);
          entries.push_back({cow_String(key), 7, oid, 0});
          break;
        }
      }
      if (commits) {
        transaction.Commit();
      }
    }
    if (!commits) {
      model = before;
    }
    matches(database);
  }
  rfm_Database reader = openFile(path, utl_FileAccess::Read);
  matches(reader);
  EXPECT_EQ(runSql(path, "PRAGMA integrity_check"), "ok");
}

TEST_F(DatabaseTest, ACursorGoesOnAcrossATransaction) {
  saveModels(database, {"a", "b", "c"});
  rfm_EntryCursor cursor = database.Entries().Scan(1);
  ASSERT_TRUE(cursor.Next());
  EXPECT_EQ(cursor.Key(), "a");
  saveModels(database, {"d"});
  ASSERT_TRUE(cursor.Next());
  EXPECT_EQ(cursor.Key(), "b");
  EXPECT_EQ(cursor.Position(), 1);
  ASSERT_TRUE(cursor.Next());
  ASSERT_TRUE(cursor.Next());
  EXPECT_EQ(cursor.Key(), "d");
  EXPECT_FALSE(cursor.Next());
  EXPECT_FALSE(cursor.Next());
}

TEST_F(DatabaseTest, DamagedEntriesAreNamed) {
  saveModels(database, {"a", "b"});
  for (char const* const damage :
       {"Key = CAST(x'ff' AS TEXT)", "Key = x'41'", "Key = CAST(x'410042' AS TEXT)", "ClassID = -1",
        "ClassID = 'x'", "OID = 4294967296", "OID = -2", "position = 4294967296"}) {
    temporary_folder copies;
    std::string const copy = copies.path("b.odb");
    writeFile(copy, readFile(path));
    runSql(copy, std::string("UPDATE ddr_entry SET ") + damage + " WHERE position = 1");
    EXPECT_THAT(failureOf([&] { contents(copy); }),
                AllOf(StartsWith("Damaged: "), HasSubstr("of collection 1")))
        << damage;
  }
}

TEST_F(DatabaseTest, HandlesOfCollectionsAreNeverGivenTwice) {
  std::int64_t first = 0;
  {
    rfm_Transaction transaction(database);
    first = database.NewHandle();
    EXPECT_EQ(first, 1);
    EXPECT_EQ(database.NewHandle(), 2);
    transaction.Commit();
  }
  {
    rfm_Transaction const transaction(database);
    EXPECT_EQ(database.NewHandle(), 3);
  }
  rfm_Transaction transaction(database);
  EXPECT_EQ(database.NewHandle(), 3);
  database.Entries().Append(50, "of a file whose counter lies", 1, 1);
  EXPECT_EQ(database.NewHandle(), 51);
}

// An empty collection has no entry that would tell that its handle is taken.
TEST_F(DatabaseTest, ACounterThatEmptyCollectionsContradictIsNotTrusted) {
  {
    rfm_Transaction transaction(database);
    rfm_ClassEntry entry;
    entry.name = "header";
    entry.typeId = 99;
    entry.attributes = {{"Target#Handle", rfm_AttributeKind_Handle, 1, 0}};
    database.AddClass(entry);
    rfm_Table headers = database.TableForWriting(99);
    for (std::int64_t const handle : {7, 9, 8}) {
      headers.Row().WriteFieldHandle("Target#Handle", handle);
      headers.AppendRow();
    }
    transaction.Commit();
  }
  runSql(path, "UPDATE ddr_header SET next_handle = 2");
  rfm_Transaction transaction(database);
  EXPECT_EQ(database.NewHandle(), 10);
  EXPECT_EQ(database.NewHandle(), 11);
  transaction.Commit();
  EXPECT_EQ(runSql(path, "SELECT next_handle FROM ddr_header"), "12");
}

TEST_F(DatabaseTest, TheNextHandleIsThatOfTheHeader) {
  runSql(path, "UPDATE ddr_header SET next_handle = 77");
  EXPECT_EQ(rfm_nextHandle(database.File()), 77);
  runSql(path, "UPDATE ddr_header SET next_handle = 'x'");
  EXPECT_THAT(failureOf([&] { rfm_nextHandle(database.File()); }),
              AllOf(StartsWith("Damaged: "), HasSubstr("handle")));
}

TEST_F(DatabaseTest, AHandleCounterThatCannotBeIsDamage) {
  for (char const* const counter : {"'x'", "9223372036854775807", "5e18"}) {
    runSql(path, std::string("UPDATE ddr_header SET next_handle = ") + counter);
    rfm_Transaction const transaction(database);
    EXPECT_THAT(failureOf([&] { database.NewHandle(); }), AllOf(StartsWith("Damaged: "), HasSubstr("handle")))
        << counter;
  }
}

TEST_F(DatabaseTest, ChangesOfOthersAreSeen) {
  rfm_Database reader = openFile(path, utl_FileAccess::Read);
  rfm_Table table = reader.Table(modelType);
  std::uint64_t const before = reader.ChangeCount();
  EXPECT_EQ(reader.ChangeCount(), before);
  saveModels(database, {"a"});
  EXPECT_NE(reader.ChangeCount(), before);
  EXPECT_EQ(reader.Table(modelType).Length(), 1);
  EXPECT_EQ(table.Length(), 1);
  EXPECT_EQ(table.ReadRow(0).ReadFieldString("modelName"), cow_String("a"));
  EXPECT_EQ(contents(reader), "a=0 | a");
  std::uint64_t const own = database.ChangeCount();
  saveModels(database, {"b"});
  EXPECT_EQ(database.ChangeCount(), own);
}

TEST_F(DatabaseTest, AScopeSeesOneState) {
  saveModels(database, {"a"});
  rfm_Database reader = openFile(path, utl_FileAccess::Read);
  {
    rfm_ReadScope const scope(reader);
    EXPECT_EQ(contents(reader), "a=0 | a");
    EXPECT_THAT(in_child([&] {
                  return failureOf([&] {
                    rfm_Database writer = openFile(path, utl_FileAccess::Write);
                    saveModels(writer, {"b"});
                  });
                }),
                StartsWith("Locked: "));
    EXPECT_EQ(contents(reader), "a=0 | a");
  }
  EXPECT_EQ(in_child([&] {
              return failureOf([&] {
                rfm_Database writer = openFile(path, utl_FileAccess::Write);
                saveModels(writer, {"b"});
              });
            }),
            "nothing");
  EXPECT_EQ(contents(reader), "a=0 b=1 | a b");
}

} // namespace
