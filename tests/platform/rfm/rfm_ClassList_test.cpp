// Tests of the header and the class list of a file: what is refused when they are read or added to.
#include "rfm_Check.h"
#include "rfm_TestFiles.h"

#include <gmock/gmock.h>

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

struct ClassListTest : rfm_Test {
  rfm_Database database = createFile(path);

  // What opening the file says after SQL was run on it.
  std::string openAfter(std::string const& sql) {
    EXPECT_EQ(runSql(path, sql), "");
    return failureOf([&] { openFile(path, utl_FileAccess::Read); });
  }
  // What adding a class says that was changed from one that could be added.
  std::string addChanged(std::function<void(rfm_ClassEntry&)> const& change) {
    rfm_ClassEntry entry;
    entry.name = "c";
    entry.typeId = 7;
    entry.attributes = {{"a", rfm_AttributeKind_Integer, 1, 0}};
    change(entry);
    rfm_Transaction const transaction(database);
    return failureOf([&] { database.AddClass(entry); });
  }
  // Lists classes until there are as many.
  void fillUpTo(int count) {
    EXPECT_EQ(runSql(path, "WITH RECURSIVE n(i) AS (SELECT 2 UNION ALL SELECT i + 1 FROM n WHERE i < " +
                               std::to_string(count - 1) +
                               ") INSERT INTO ddr_class SELECT i, 'c' || i, NULL, i, 0, 1 FROM n"),
              "");
  }
};

TEST_F(ClassListTest, ARecordOfAnotherDatabaseIsDamage) {
  EXPECT_THAT(
      openAfter("UPDATE ddr_header SET name = 'D1'"),
      AllOf(StartsWith("Damaged: Database file '" + path + "'"), HasSubstr("no database record 'D0'")));
}

TEST_F(ClassListTest, TwoRecordsAreDamage) {
  EXPECT_THAT(openAfter("INSERT INTO ddr_header SELECT * FROM ddr_header"),
              AllOf(StartsWith("Damaged: "), HasSubstr("several database records")));
}

TEST_F(ClassListTest, ARecordThatVanishesIsDamage) {
  EXPECT_EQ(runSql(path, "DELETE FROM ddr_header"), "");
  EXPECT_THAT(failureOf([&] { rfm_nextHandle(database.File()); }), HasSubstr("next collection handle"));
  rfm_Transaction const transaction(database);
  EXPECT_THAT(failureOf([&] { database.NewHandle(); }),
              AllOf(StartsWith("Damaged: "), HasSubstr("its header is missing")));
}

/// A handle that a row has, and no collection may get after it.
struct LastHandleTest : ClassListTest, testing::WithParamInterface<std::int64_t> {};

TEST_P(LastHandleTest, ThatARowHasLeavesNoneToGiveOut) {
  {
    rfm_Transaction transaction(database);
    rfm_ClassEntry entry;
    entry.name = "header";
    entry.typeId = 99;
    entry.attributes = {{"Target#Handle", rfm_AttributeKind_Handle, 1, 0}};
    database.AddClass(entry);
    rfm_Table headers = database.TableForWriting(99);
    headers.Row().WriteFieldHandle("Target#Handle", GetParam());
    headers.AppendRow();
    transaction.Commit();
  }
  rfm_Transaction const transaction(database);
  EXPECT_THAT(failureOf([&] { database.NewHandle(); }), HasSubstr("next collection handle"));
}

INSTANTIATE_TEST_SUITE_P(Handles, LastHandleTest,
                         testing::Values(std::int64_t{1} << 62, (std::int64_t{1} << 62) + 1));

TEST_F(ClassListTest, AListThatIsTooLongIsDamage) {
  fillUpTo(65537);
  EXPECT_THAT(openAfter(""), AllOf(StartsWith("Damaged: "), HasSubstr("class list is too long")));
}

TEST_F(ClassListTest, AListThatIsFullTakesNoMore) {
  fillUpTo(65536);
  EXPECT_THAT(addChanged([](rfm_ClassEntry& entry) { entry.typeId = 0x990000; }),
              HasSubstr("too many classes or attributes"));
}

TEST_F(ClassListTest, TwoClassesInOneTableAreDamage) {
  EXPECT_THAT(openAfter("UPDATE ddr_class SET \"Class Table\" = iif(row = 0, 'class_t', 'class_T')"),
              AllOf(StartsWith("Damaged: Database file '" + path + "', class 'ddr_Result'"),
                    HasSubstr("a table that cannot be the class's")));
}

TEST_F(ClassListTest, NamesThatAreTooLongAreDamage) {
  std::string const name = "'" + std::string(1025, 'n') + "'";
  EXPECT_THAT(openAfter("UPDATE ddr_attribute SET name = " + name + " WHERE position = 0"),
              AllOf(StartsWith("Damaged: "), HasSubstr("attribute name is empty or too long")));
  EXPECT_THAT(openAfter("UPDATE ddr_class SET \"Class Name\" = " + name + " WHERE row = 0"),
              AllOf(StartsWith("Damaged: "), HasSubstr("class name is empty or too long")));
}

TEST_F(ClassListTest, AnAttributeWithoutANameIsDamage) {
  EXPECT_THAT(openAfter("UPDATE ddr_attribute SET name = '' WHERE position = 0"),
              AllOf(StartsWith("Damaged: "), HasSubstr("attribute name is empty or too long")));
}

TEST_F(ClassListTest, ANameThatIsNoTextIsDamage) {
  EXPECT_THAT(openAfter("UPDATE ddr_class SET \"Class Name\" = x'41' WHERE row = 0"),
              AllOf(StartsWith("Damaged: "), HasSubstr("a class name in its class list is not a text")));
}

TEST_F(ClassListTest, MoreAttributesThanATableCanHaveAreDamage) {
  EXPECT_THAT(
      openAfter("WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 1989) INSERT "
                "INTO ddr_attribute SELECT 1, i, 'a' || i, 5, 1, 0 FROM n"),
      AllOf(StartsWith("Damaged: Database file '" + path + "', class 'ddr_Result'"),
            HasSubstr("too many attributes")));
}

TEST_F(ClassListTest, AClassThatCouldNotBeReadBackIsNotAdded) {
  cow_String const longName(std::string(1025, 'n'));
  auto const badNames = HasSubstr("empty, too long or not UTF-8");
  EXPECT_EQ(addChanged([](rfm_ClassEntry&) {}), "nothing");
  EXPECT_THAT(addChanged([](rfm_ClassEntry& entry) { entry.name = "\xff"; }), badNames);
  EXPECT_THAT(addChanged([&](rfm_ClassEntry& entry) { entry.name = longName; }), badNames);
  EXPECT_THAT(addChanged([](rfm_ClassEntry& entry) { entry.attributes[0].name = "\xff"; }), badNames);
  EXPECT_THAT(addChanged([&](rfm_ClassEntry& entry) { entry.attributes[0].name = longName; }), badNames);
  EXPECT_THAT(addChanged([](rfm_ClassEntry& entry) { entry.attributes[0].name = ""; }), badNames);
  EXPECT_THAT(addChanged([](rfm_ClassEntry& entry) {
                for (int number = 0; number < 1990; ++number) {
                  entry.attributes.push_back({cow_String(numbered("n", number)), 5, 1, 0});
                }
              }),
              HasSubstr("too many classes or attributes"));
  EXPECT_EQ(database.Classes().size(), 2U);
}

// More of them than there is room for at first.
TEST_F(ClassListTest, ClassesAreFoundByNameUntilTheyAreTakenBack) {
  constexpr int added = 100;
  std::size_t const before = database.Classes().size();
  {
    rfm_Transaction const transaction(database);
    for (int number = 0; number < added; ++number) {
      rfm_ClassEntry entry;
      entry.name = cow_String(numbered("c", number));
      entry.typeId = static_cast<unsigned>(1000 + number);
      database.AddClass(entry);
    }
    EXPECT_EQ(database.Classes().size(), before + added);
    for (int number = 0; number < added; ++number) {
      rfm_ClassEntry const* const found = database.FindClassByName(numbered("c", number));
      ASSERT_NE(found, nullptr) << number;
      EXPECT_EQ(found->typeId, static_cast<unsigned>(1000 + number));
    }
  }
  EXPECT_EQ(database.Classes().size(), before);
  EXPECT_EQ(database.FindClassByName("c0"), nullptr);
  EXPECT_EQ(database.FindClass(1000), nullptr);
  EXPECT_EQ(database.FindClassByName("ddr_Model")->typeId, modelType);
}

TEST_F(ClassListTest, TheNameOfATableIsMadeOfPlainLetters) {
  rfm_Transaction const transaction(database);
  rfm_ClassEntry entry;
  entry.name = "a{z[Z:9_/@`";
  entry.typeId = 7;
  database.AddClass(entry);
  database.TableForWriting(7);
  EXPECT_EQ(database.FindClass(7)->table, cow_String("class_a_z_Z_9____"));
}

TEST_F(ClassListTest, TheNameOfATableIsOneAboveTheNumbersThatAreTaken) {
  // All but the first end in no number that we make.
  for (std::string const taken : {"class_A_B_7", "class_A_B_old", "class_A_B_9x",
                                  "class_A_B_4611686018427387904", "class_A_B_99999999999999999999"}) {
    ASSERT_EQ(runSql(path, "CREATE TABLE " + taken + "(x)"), "");
  }
  rfm_Transaction const transaction(database);
  std::string tables;
  unsigned typeId = 7;
  for (char const* const name : {"A B", "A?B", "A_B", "a:b", "A_B_x"}) {
    rfm_ClassEntry entry;
    entry.name = cow_String(name);
    entry.typeId = typeId;
    database.AddClass(entry);
    database.TableForWriting(typeId);
    tables += database.FindClass(typeId)->table.Text() + std::string(" ");
    ++typeId;
  }
  EXPECT_EQ(tables, "class_A_B class_A_B_8 class_A_B_9 class_a_b_10 class_A_B_x ");
}

TEST_F(ClassListTest, ADatabaseThatIsNotBoundReadsItsClassesWhenATableIsAskedFor) {
  saveModels(database, {"a"});
  rfm_Database const unbound =
      rfm_Database::Open(rfm_File::Open(cow_String(path), utl_FileAccess::Read, true), "D0");
  EXPECT_TRUE(unbound.Classes().empty());
  EXPECT_EQ(unbound.Table(modelType).Length(), 1);
  EXPECT_EQ(unbound.Classes().size(), 2U);
}

TEST_F(ClassListTest, TwoDatabasesOnOneFileHandleSeeEachOthersClasses) {
  rfm_Database other = rfm_Database::Open(database.File(), "D0");
  other.Bind();
  saveModels(database, {"a"});
  EXPECT_EQ(other.Table(modelType).Length(), 1);
  rfm_Table const first = other.ClassList();
  rfm_Table const second = other.ClassList();
  EXPECT_EQ(first.Length(), 2);
  EXPECT_EQ(second.Length(), 2);
}

TEST_F(ClassListTest, ATableOfAClassThatSomebodyElseTookOutOfTheListIsEmpty) {
  rfm_Table table = database.Table(resultType);
  runSql(path, "DELETE FROM ddr_class WHERE \"Class Name\" = 'ddr_Result'");
  EXPECT_EQ(database.Table(resultType).Length(), 0);
  EXPECT_EQ(database.FindClass(resultType), nullptr);
  rfm_Transaction const transaction(database);
  EXPECT_THAT(failureOf([&] { table.UpdateRow(0); }),
              HasSubstr("class 'ddr_Result', row 0: there is no such row"));
}

TEST_F(ClassListTest, AFileIsNotPublishedInTheMiddleOfATransaction) {
  std::string const other = folder.path("b.odb");
  rfm_Database made =
      rfm_Database::Create(rfm_File::Open(cow_String(other), utl_FileAccess::Create, true), "D0", "", 0);
  {
    rfm_Transaction const transaction(made);
    EXPECT_THAT(failureOf([&] { made.Publish(); }), StartsWith("exception: "));
  }
  made.Publish();
  EXPECT_EQ(contents(other), "|");
}

} // namespace
