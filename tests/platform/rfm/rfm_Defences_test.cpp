// What a file defines beyond plain tables is never run, and what it claims to hold is limited by its size.
#include "rfm_TestFiles.h"

#include <gmock/gmock.h>

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class DefencesTest : public rfm_Test {
protected:
  DefencesTest() {
    rfm_Database database = createFile(path);
    saveModels(database, {"a", "b"});
  }
  /// Runs SQL on the file, and says what reading all of it does then.
  std::string readAfter(std::string const& sql) {
    runSql(path, sql);
    return failureOf([&] { contents(path); });
  }
};

TEST_F(DefencesTest, ViewsAndTriggersOfOthersAreLeftAlone) {
  EXPECT_EQ(readAfter("CREATE VIEW names AS SELECT Key FROM ddr_entry;"
                      "CREATE TRIGGER gone AFTER INSERT ON ddr_entry BEGIN DELETE FROM ddr_entry; END"),
            "nothing");
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  saveModels(database, {"c"});
  EXPECT_EQ(runSql(path, "SELECT count(*) FROM ddr_entry"), "3");
}

TEST_F(DefencesTest, TablesOfOthersAreLeftAlone) {
  EXPECT_EQ(readAfter("CREATE TABLE notes(a, b AS (a + 1)); CREATE INDEX notesByB ON notes(abs(a))"),
            "nothing");
}

TEST_F(DefencesTest, AViewInThePlaceOfATableIsDamage) {
  EXPECT_THAT(
      readAfter("ALTER TABLE ddr_header RENAME TO kept; CREATE VIEW ddr_header AS SELECT * FROM kept"),
      AllOf(StartsWith("Damaged: "), HasSubstr(path), HasSubstr("'ddr_header' is no plain table")));
}

TEST_F(DefencesTest, ATableOfAModuleIsDamage) {
  EXPECT_THAT(readAfter("ALTER TABLE ddr_entry RENAME TO kept;"
                        "CREATE VIRTUAL TABLE ddr_entry USING rtree(handle, position, Key)"),
              AllOf(StartsWith("Damaged: "), HasSubstr("'ddr_entry' is no plain table")));
}

TEST_F(DefencesTest, AComputedColumnIsDamage) {
  EXPECT_THAT(readAfter("ALTER TABLE class_ddr_Model ADD COLUMN more AS (zeroblob(200000000))"),
              AllOf(StartsWith("Damaged: "), HasSubstr("class 'ddr_Model'"), HasSubstr("no plain table")));
}

TEST_F(DefencesTest, AFilledInColumnIsDamage) {
  EXPECT_THAT(readAfter("ALTER TABLE class_ddr_Model ADD COLUMN more DEFAULT 'much more'"),
              HasSubstr("no plain table"));
}

TEST_F(DefencesTest, AnIndexOfExpressionsIsDamage) {
  EXPECT_THAT(readAfter("CREATE INDEX byMore ON ddr_entry(abs(OID))"), HasSubstr("'byMore' is no plain"));
}

TEST_F(DefencesTest, AnIndexOfSomeRowsIsDamage) {
  EXPECT_THAT(readAfter("CREATE INDEX some ON class_ddr_Model(\"#uid\") WHERE row = 1"),
              HasSubstr("'some' is no plain"));
}

TEST_F(DefencesTest, AFurtherPlainColumnAndIndexAreLeftAlone) {
  EXPECT_EQ(readAfter("ALTER TABLE class_ddr_Model ADD COLUMN \"check (default) as\" INTEGER;"
                      "CREATE INDEX further ON class_ddr_Model(\"check (default) as\" DESC)"),
            "nothing");
}

TEST_F(DefencesTest, AMissingTableIsNamed) {
  for (char const* const table : {"ddr_entry", "ddr_attribute", "ddr_class", "ddr_header"}) {
    EXPECT_THAT(readAfter(std::string("DROP TABLE ").append(table)),
                AllOf(StartsWith("Damaged: "), HasSubstr(path), HasSubstr(table)));
  }
}

// A table whose top page is made of links to one and the same page: with a few levels of such pages the rows
// would never end.
TEST_F(DefencesTest, PagesThatLeadToOnePageManyTimesAreDamage) {
  runSql(path, "PRAGMA page_size = 512; VACUUM");
  {
    rfm_Database database = openFile(path, utl_FileAccess::Write);
    rfm_Transaction transaction(database);
    for (int number = 0; number < 2000; ++number) {
      database.Entries().Append(7, numbered("entry", number), modelType, 0);
    }
    transaction.Commit();
  }
  runSql(path, "DROP INDEX ddr_entry_key");
  std::size_t const root =
      std::stoul(runSql(path, "SELECT rootpage FROM sqlite_schema WHERE name = 'ddr_entry'"));
  std::string bytes = readFile(path);
  std::size_t const page = (root - 1) * 512;
  ASSERT_EQ(bytes[page], 2) << "the table must have more than one level";
  auto const number = [&](std::size_t place) {
    return static_cast<std::size_t>(static_cast<unsigned char>(bytes[place]));
  };
  std::size_t const cells = number(page + 3) << 8U | number(page + 4);
  std::string const first = bytes.substr(page + (number(page + 12) << 8U | number(page + 13)), 4);
  for (std::size_t cell = 0; cell < cells; ++cell) {
    std::size_t const pointer = page + 12 + 2 * cell;
    bytes.replace(page + (number(pointer) << 8U | number(pointer + 1)), 4, first);
  }
  bytes.replace(page + 8, 4, first);
  writeFile(path, bytes);
  rfm_Database database = openFile(path, utl_FileAccess::Read);
  std::string const failure = failureOf([&] {
    rfm_EntryCursor cursor = database.Entries().Scan(7);
    while (cursor.Next()) {
    }
  });
  EXPECT_THAT(failure, AllOf(StartsWith("Damaged: "), HasSubstr(path), HasSubstr("collection 7")));
}

} // namespace
