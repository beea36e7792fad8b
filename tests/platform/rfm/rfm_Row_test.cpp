// Tests of rfm_Row: what is read from values that others stored, and identities.
#include "rfm_TestFiles.h"

#include <array>
#include <gmock/gmock.h>

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

struct RowTest : rfm_Test {
  RowTest() { saveModels(database, {"a"}); }
  // The model in row 0 after SQL was run on its fields.
  rfm_Row const& rowAfter(std::string const& assignment) {
    EXPECT_EQ(runSql(path, "UPDATE class_ddr_Model SET " + assignment), "");
    return table.ReadRow(0);
  }
  rfm_Database database = createFile(path);
  rfm_Table table = database.Table(modelType);
};

TEST_F(RowTest, AnIntegerIsReadAsADouble) {
  EXPECT_EQ(rowAfter("size = -3").ReadFieldDouble("size"), -3.0);
}

TEST_F(RowTest, ANumberBeyondAnUnsignedOneIsDamage) {
  rfm_Row const& row = rowAfter("count = 4294967296");
  EXPECT_THAT(
      failureOf([&] { row.ReadFieldUnsigned("count"); }),
      AllOf(StartsWith("Damaged: Database file '" + path + "', class 'ddr_Model', row 0, field 'count'"),
            HasSubstr("outside 32 bits")));
  EXPECT_EQ(row.ReadFieldInt64("count"), 4294967296);
}

TEST_F(RowTest, OnlyATextIsReadAsAText) {
  for (char const* const value : {"1", "0.5", "x'6162'"}) {
    rfm_Row const& row = rowAfter(std::string("modelName = ") + value);
    EXPECT_THAT(failureOf([&] { row.ReadFieldString("modelName"); }), HasSubstr("not a text")) << value;
  }
  rfm_Row const& row = rowAfter("modelName = CAST(x'ff' AS TEXT)");
  EXPECT_THAT(failureOf([&] { row.ReadFieldString("modelName"); }), HasSubstr("not UTF-8"));
}

TEST_F(RowTest, AnEmptyBlobIsKept) {
  rowAfter("modelName = x''");
  rfm_Transaction transaction(database);
  table.Row().WriteFieldInt("count", 5);
  table.UpdateRow(0);
  transaction.Commit();
  EXPECT_EQ(runSql(path, "SELECT typeof(modelName), length(modelName), count FROM class_ddr_Model"),
            "blob 0 5");
}

TEST_F(RowTest, AFieldOfTheClassListIsATableOnlyWhereItNamesOne) {
  rfm_Table list = database.ClassList();
  EXPECT_EQ(list.ReadRow(0).ReadFieldHandle("Class Table"), modelType);
  EXPECT_EQ(list.Row().ReadFieldHandle("Type Id"), modelType);
  runSql(path, "UPDATE ddr_class SET \"Class Table\" = ''");
  EXPECT_EQ(list.ReadRow(0).ReadFieldHandle("Class Table"), 0);
}

// More of them than are looked through one by one.
TEST_F(RowTest, EachOfManyFieldsIsFoundWhateverIsAskedForBefore) {
  constexpr int fields = 300;
  rfm_ClassEntry entry;
  entry.name = "wide";
  entry.typeId = 7;
  for (int number = 0; number < fields; ++number) {
    entry.attributes.push_back({cow_String(numbered("field", number)), rfm_AttributeKind_Integer, 1, 0});
  }
  rfm_Transaction const transaction(database);
  database.AddClass(entry);
  rfm_Table wide = database.TableForWriting(7);
  for (int number = 0; number < fields; ++number) {
    wide.Row().WriteFieldInt(entry.attributes[static_cast<std::size_t>(number)].name, number);
  }
  wide.AppendRow();
  rfm_Row const& row = wide.ReadRow(0);
  for (int step = 0, number = 0; step < fields; ++step, number = (number + 197) % fields) {
    EXPECT_EQ(row.ReadFieldInt(rfm_FieldHandle(cow_String(numbered("field", number)))), number);
    EXPECT_FALSE(row.HasField(rfm_FieldHandle(cow_String(numbered("none", number)))));
  }
}

TEST_F(RowTest, AChangedIdentityIsStoredWithTheRow) {
  std::array<int, 2> rows{};
  rfm_Transaction transaction(database);
  table.ReadRow(0);
  table.Row().SetUid(uidOf(0));
  table.UpdateRow(0);
  EXPECT_EQ(table.FindUid(uidOf(0), rows.data(), 2), 1);
  table.Row().SetUid(uidOf(7));
  table.Row().SetUid(uidOf(8));
  table.UpdateRow(0);
  EXPECT_EQ(table.FindUid(uidOf(0), rows.data(), 2), 0);
  EXPECT_EQ(table.FindUid(uidOf(8), rows.data(), 2), 1);
}

TEST_F(RowTest, ACopyTakesTheFieldsThatBothHave) {
  rfm_Transaction const transaction(database);
  rfm_ClassEntry entry = modelClass();
  entry.name = "other";
  entry.typeId = 99;
  entry.attributes = {{"count", rfm_AttributeKind_Integer, 1, 0}, {"own", rfm_AttributeKind_Integer, 1, 0}};
  database.AddClass(entry);
  rfm_Table target = database.TableForWriting(99);
  target.Row().WriteFieldInt("own", 3);
  target.Row().SetUid(uidOf(5));
  table.ReadRow(0);
  table.Row().WriteFieldInt("count", 4);
  target.Row().CopyFieldsFrom(table.Row());
  EXPECT_EQ(target.Row().ReadFieldInt("count"), 4);
  EXPECT_EQ(target.Row().ReadFieldInt("own"), 3);
  EXPECT_EQ(target.Row().Uid(), uidOf(0));
  table.ClearRow();
  target.Row().CopyFieldsFrom(table.Row());
  EXPECT_FALSE(target.Row().FieldIsSet("count"));
  EXPECT_EQ(target.Row().Uid(), uidOf(0)) << "the source has none to give";
}

TEST(rfm_ClassEntry, EntriesAreEqualWhenEachPartIs) {
  rfm_ClassEntry const entry = modelClass();
  EXPECT_TRUE(entry == modelClass());
  auto const differs = [&](std::function<void(rfm_ClassEntry&)> const& change) {
    rfm_ClassEntry other = modelClass();
    change(other);
    return !(entry == other);
  };
  EXPECT_TRUE(differs([](rfm_ClassEntry& other) { other.row = 7; }));
  EXPECT_TRUE(differs([](rfm_ClassEntry& other) { other.name = "x"; }));
  EXPECT_TRUE(differs([](rfm_ClassEntry& other) { other.table = "x"; }));
  EXPECT_TRUE(differs([](rfm_ClassEntry& other) { other.typeId = 7; }));
  EXPECT_TRUE(differs([](rfm_ClassEntry& other) { other.version = 7; }));
  EXPECT_TRUE(differs([](rfm_ClassEntry& other) { other.baseTypeId = 7; }));
  EXPECT_TRUE(differs([](rfm_ClassEntry& other) { other.attributes.pop_back(); }));
  EXPECT_TRUE(differs([](rfm_ClassEntry& other) { other.attributes[0].name = "x"; }));
  EXPECT_TRUE(differs([](rfm_ClassEntry& other) { other.attributes[0].kind = 77; }));
  EXPECT_TRUE(differs([](rfm_ClassEntry& other) { other.attributes[0].elementTypeId = 77; }));
  EXPECT_TRUE(differs([](rfm_ClassEntry& other) { other.attributes[0].collection = 77; }));
}

} // namespace
