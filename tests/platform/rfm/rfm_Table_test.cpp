// Tests of rfm_Table: tables of odd layouts, and handles that outlive what they knew.
#include "rfm_TestFiles.h"

#include <array>
#include <gmock/gmock.h>
#include <limits>
#include <vector>

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr unsigned bareType = 77;

struct TableTest : rfm_Test {
  rfm_Database database = createFile(path);
  std::array<int, 2> rows{-1, -1};

  // A class with neither fields nor a base, with two objects.
  rfm_Table makeBareTable() {
    rfm_ClassEntry entry;
    entry.name = "bare";
    entry.typeId = bareType;
    database.AddClass(entry);
    rfm_Table table = database.TableForWriting(bareType);
    for (int number = 0; number < 2; ++number) {
      table.Row().SetUid(uidOf(number));
      table.AppendRow();
    }
    return table;
  }
};

TEST_F(TableTest, ARowWithoutFieldsTakesItsIdentityAlone) {
  rfm_Transaction transaction(database);
  rfm_Table table = makeBareTable();
  table.ReadRow(0);
  table.UpdateRow(-1);
  EXPECT_EQ(table.FindUid(uidOf(0), rows.data(), 2), 1) << "nothing to write, nothing changed";
  table.UpdateRow(1);
  EXPECT_EQ(table.FindUid(uidOf(0), rows.data(), 2), 2);
  EXPECT_EQ(table.FindUid(uidOf(1), rows.data(), 2), 0);
  EXPECT_THAT(failureOf([&] { table.UpdateRow(2); }), HasSubstr("row 2: there is no such row"));
}

TEST_F(TableTest, ARowOfAClassWithoutATableIsNotUpdated) {
  rfm_Transaction const transaction(database);
  rfm_Table table = database.Table(modelType);
  EXPECT_THAT(failureOf([&] { table.UpdateRow(0); }),
              HasSubstr("class 'ddr_Model', row 0: there is no such row"));
}

TEST_F(TableTest, NoIdentityIsFoundWhereThereIsNone) {
  EXPECT_EQ(database.Table(modelType).FindUid(uidOf(0), rows.data(), 2), 0) << "no table";
  EXPECT_EQ(database.ClassList().FindUid(uidOf(0), rows.data(), 2), 0) << "no identities";
  saveModels(database, {"a"});
  EXPECT_EQ(database.Table(modelType).FindUid(uidOf(0), rows.data(), 0), 0) << "none asked for";
  EXPECT_THAT(rows, ElementsAre(-1, -1));
}

TEST_F(TableTest, ManyWalksAtOnceAreIndependent) {
  saveModels(database, {"a", "b"});
  rfm_ReadScope const scope(database);
  for (int round = 0; round < 2; ++round) {
    std::vector<rfm_Table> tables;
    for (int number = 0; number < 5; ++number) {
      tables.push_back(database.Table(modelType));
      tables.back().ReadRow(-1);
    }
    for (rfm_Table& table : tables) {
      EXPECT_EQ(table.Row().ReadFieldString("modelName"), cow_String("a"));
      EXPECT_EQ(table.ReadRow(-1).ReadFieldString("modelName"), cow_String("b"));
    }
  }
}

TEST_F(TableTest, ARowThatWasFoundIsReadNext) {
  saveModels(database, {"a", "b"});
  rfm_ReadScope const scope(database);
  rfm_Table table = database.Table(modelType);
  EXPECT_EQ(table.NextRow(), 0);
  EXPECT_EQ(table.NextRow(), 0) << "it was not read";
  EXPECT_EQ(table.ReadRow(0).ReadFieldString("modelName"), cow_String("a"));
  EXPECT_TRUE(table.RowExists(-1));
  EXPECT_EQ(table.ReadRow(-1).ReadFieldString("modelName"), cow_String("b"));
  EXPECT_EQ(table.NextRow(), -1);
  EXPECT_FALSE(table.RowExists(-1));
  table.Seek(1);
  EXPECT_EQ(table.NextRow(), 1);
  table.Seek(0);
  EXPECT_EQ(table.ReadRow(-1).ReadFieldString("modelName"), cow_String("a"));
}

TEST_F(TableTest, ARowThatCannotBeReadIsFoundAllTheSame) {
  std::string const longName(20000, 'x'); // which takes pages of its own
  saveModels(database, {longName.c_str(), "b"});
  constexpr std::size_t pageSize = 4096;
  std::string bytes = readFile(path);
  for (std::size_t page = 0; page < bytes.size(); page += pageSize) {
    bool const isOfTheName = bytes.compare(page + 4, 1000, longName, 0, 1000) == 0;
    bytes[page] = isOfTheName ? '\x7f' : bytes[page]; // the number of the name's next page
  }
  writeFile(path, bytes);
  rfm_Database const damaged = openFile(path, utl_FileAccess::Read);
  rfm_ReadScope const scope(damaged);
  rfm_Table table = damaged.Table(modelType);
  EXPECT_TRUE(table.RowExists(-1));
  EXPECT_EQ(table.NextRow(), 0);
  EXPECT_THAT(failureOf([&] { table.ReadRow(0); }), HasSubstr("class 'ddr_Model', row 0: it is damaged"));
  table.Seek(1);
  EXPECT_EQ(table.NextRow(), 1);
  EXPECT_EQ(table.ReadRow(1).ReadFieldString("modelName"), cow_String("b"));
}

TEST_F(TableTest, ATableOfAHandleBeyondAllTypesIsEmpty) {
  saveModels(database, {"a"});
  EXPECT_EQ(database.TableOfHandle(modelType).Length(), 1);
  EXPECT_EQ(database.TableOfHandle((std::int64_t{1} << 32) + modelType).Length(), 0);
  EXPECT_EQ(database.TableOfHandle(-1).Length(), 0);
}

TEST_F(TableTest, ATableWithoutItsOwnColumnsIsDamage) {
  saveModels(database, {"a"});
  std::string const missing = "its table lacks a column that every table has";
  std::string const differs = "the column 'row' of its table is not an integer primary key";
  for (auto const& [columns, what] :
       {std::pair{"row INTEGER PRIMARY KEY", missing}, std::pair{"\"#uid\" INTEGER PRIMARY KEY", missing},
        std::pair{"row, \"#uid\"", differs}, std::pair{"row PRIMARY KEY, \"#uid\"", differs},
        std::pair{"row TEXT PRIMARY KEY, \"#uid\"", differs}}) {
    EXPECT_EQ(runSql(path, std::string("DROP TABLE class_ddr_Model; CREATE TABLE class_ddr_Model(") +
                               columns + ", modelName)"),
              "");
    EXPECT_THAT(
        failureOf([&] { openFile(path, utl_FileAccess::Read).Table(modelType); }),
        StartsWith("Damaged: Database file '" + path + "', class 'ddr_Model': it is damaged: " + what))
        << columns;
  }
}

// Another connection makes the table, with a column that this one's class list does not tell of.
TEST_F(TableTest, WhatWasPutIntoARowStaysWhenTheTableTurnsOutToHaveOtherColumns) {
  rfm_Table table = database.Table(modelType);
  table.Row().WriteFieldString("modelName", "kept");
  {
    rfm_Database other = openFile(path, utl_FileAccess::Write);
    saveModels(other, {"a"});
  }
  runSql(path, "ALTER TABLE class_ddr_Model DROP COLUMN count; ALTER TABLE class_ddr_Model ADD COLUMN later");
  rfm_Transaction transaction(database);
  EXPECT_EQ(table.AppendRow(), 1);
  EXPECT_TRUE(table.HasField("later"));
  EXPECT_FALSE(table.HasField("count"));
  transaction.Commit();
  EXPECT_EQ(contents(path), "a=0 | a kept");
}

TEST_F(TableTest, ATableEndsBeforeTheLargestRowNumber) {
  rfm_Transaction const transaction(database);
  rfm_Table table = makeBareTable();
  for (int const number : {-1, std::numeric_limits<int>::max() - 1, std::numeric_limits<int>::max()}) {
    EXPECT_THAT(failureOf([&] { table.InsertRow(number); }),
                AllOf(StartsWith("Full: Database file '" + path + "', class 'bare'"),
                      HasSubstr("no room for more rows")))
        << number;
  }
  for (int const number : {-1, std::numeric_limits<int>::max() - 1}) {
    EXPECT_THAT(failureOf([&] { table.WantRoomFor(number); }), HasSubstr("no room for more rows")) << number;
  }
  EXPECT_EQ(failureOf([&] { table.WantRoomFor(std::numeric_limits<int>::max() - 2); }), "nothing");
  table.InsertRow(std::numeric_limits<int>::max() - 2);
  EXPECT_THAT(failureOf([&] { table.AppendRow(); }), StartsWith("Full: "));
}

} // namespace
