// What a file defines beyond plain tables is never run, and what it claims to hold is limited by its size.
#include "rfm_Rebuild.h"
#include "rfm_TestFiles.h"
#include "shared_pages.h"
#include "temporary_folder.h"

#include <gmock/gmock.h>

using testing::AllOf;
using testing::Each;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
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

// Each table is checked by itself where others could be computed; enough is enough over all of them.
TEST_F(DefencesTest, ACheckOfPagesEndsWhenItHasFoundEnough) {
  std::string const fill =
      "(a); WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 60) "
      "INSERT INTO ";
  runSql(path, "CREATE TABLE computed(a, b AS (a + 1)); CREATE TABLE many" + fill +
                   "many SELECT NULL FROM n; CREATE TABLE more" + fill +
                   "more SELECT NULL FROM n; PRAGMA writable_schema = on; UPDATE sqlite_schema SET sql = "
                   "'CREATE TABLE ' || name || '(a NOT NULL)' WHERE name IN ('many', 'more')");
  EXPECT_THAT(openFile(path, utl_FileAccess::Read).CheckPages(),
              AllOf(SizeIs(60), Each("NULL value in many.a")));
}

// SQLite reads it without a word.
TEST_F(DefencesTest, APageThatDoesNotShowItsRowsIsNotSound) {
  openFile(path, utl_FileAccess::Read).WantSoundPages();
  std::string bytes = readFile(path);
  std::size_t const page =
      (std::stoul(runSql(path, "SELECT rootpage FROM sqlite_schema WHERE name = 'ddr_entry'")) - 1) * 4096;
  bytes.replace(page + 3, 2, 2, '\0'); // the number of rows on it
  writeFile(path, bytes);
  ASSERT_EQ(runSql(path, "SELECT count(*) FROM ddr_entry NOT INDEXED"), "0");
  EXPECT_THAT(
      failureOf([&] { openFile(path, utl_FileAccess::Read).WantSoundPages(); }),
      AllOf(StartsWith("Damaged: Database file '" + path + "': it is damaged: its pages are damaged: "),
            EndsWith(". Restore it from a backup.")));
}

TEST_F(DefencesTest, AnIndexThatLacksRowsIsNoDamageOfPages) {
  runSql(path,
         "PRAGMA writable_schema = on; UPDATE sqlite_schema SET sql = sql || ' WHERE 0' WHERE name = "
         "'ddr_entry_key'; PRAGMA writable_schema = reset; REINDEX; PRAGMA writable_schema = on; UPDATE "
         "sqlite_schema SET sql = substr(sql, 1, length(sql) - 8) WHERE name = 'ddr_entry_key'");
  rfm_Database const database = openFile(path, utl_FileAccess::Read);
  EXPECT_THAT(database.CheckPages(), Not(SizeIs(0)));
  database.WantSoundPages();
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

TEST_F(DefencesTest, AnIndexOfAKeyIsLeftAlone) {
  EXPECT_EQ(
      readAfter("DROP INDEX \"class_ddr_Model#uid\"; ALTER TABLE class_ddr_Model RENAME TO kept;"
                "CREATE TABLE class_ddr_Model(row INTEGER PRIMARY KEY, \"#uid\" BLOB UNIQUE, modelName);"
                "INSERT INTO class_ddr_Model SELECT row, \"#uid\", modelName FROM kept"),
      "nothing");
}

TEST_F(DefencesTest, AnIndexOfAKeyThatIsListedAsSomethingElseIsDamage) {
  EXPECT_THAT(
      readAfter("DROP INDEX \"class_ddr_Model#uid\"; ALTER TABLE class_ddr_Model RENAME TO kept;"
                "CREATE TABLE class_ddr_Model(row INTEGER PRIMARY KEY, \"#uid\" BLOB UNIQUE, modelName);"
                "PRAGMA writable_schema = on; UPDATE sqlite_schema SET type = 'thing' WHERE sql IS NULL AND "
                "tbl_name = 'class_ddr_Model'"),
      AllOf(StartsWith("Damaged: "),
            HasSubstr("'sqlite_autoindex_class_ddr_Model_1' is no plain table or index")));
}

TEST_F(DefencesTest, AnIndexOfAKeyWithAnEmptyTextIsDamage) {
  EXPECT_THAT(
      readAfter("DROP INDEX \"class_ddr_Model#uid\"; ALTER TABLE class_ddr_Model RENAME TO kept;"
                "CREATE TABLE class_ddr_Model(row INTEGER PRIMARY KEY, \"#uid\" BLOB UNIQUE, modelName);"
                "PRAGMA writable_schema = on; UPDATE sqlite_schema SET sql = '' WHERE sql IS NULL AND "
                "tbl_name = 'class_ddr_Model'"),
      AllOf(StartsWith("Damaged: "), HasSubstr("'sqlite_autoindex_class_ddr_Model_1' is no plain")));
}

TEST_F(DefencesTest, ATableThatIsDefinedInBytesIsDamage) {
  EXPECT_THAT(readAfter("PRAGMA writable_schema = on; UPDATE sqlite_schema SET sql = CAST(sql AS BLOB) WHERE "
                        "name = 'ddr_header'"),
              AllOf(StartsWith("Damaged: "), HasSubstr("'ddr_header' is no plain table")));
}

TEST_F(DefencesTest, ATableOfOthersWhoseNameHoldsAZeroIsLeftAlone) {
  EXPECT_EQ(readAfter("CREATE TABLE notes(a); PRAGMA writable_schema = on; UPDATE sqlite_schema SET "
                      "tbl_name = 'notes' || char(0) || 'more' WHERE name = 'notes'"),
            "nothing");
  EXPECT_TRUE(openFile(path, utl_FileAccess::Read).MissingIndexes().empty()); // asks for all definitions
}

TEST_F(DefencesTest, ATableThatIsListedAsSomethingElseIsDamage) {
  for (char const* const type : {"thing", "index", "view"}) {
    EXPECT_THAT(readAfter("PRAGMA writable_schema = on; UPDATE sqlite_schema SET type = '" +
                          std::string(type) + "' WHERE name = 'ddr_header'"),
                AllOf(StartsWith("Damaged: Database file '" + path + "'"), HasSubstr("ddr_header")))
        << type;
  }
}

TEST_F(DefencesTest, RowsThatShareThePagesOfALongTextAreDamage) {
  ASSERT_GT(share_long_text(path, "class_ddr_Model", long_row("class_ddr_Model", "modelName", 10),
                            short_rows("class_ddr_Model", "modelName", 11, 20)),
            10);
  EXPECT_THAT(failureOf([&] { contents(path); }),
              AllOf(StartsWith("Damaged: Database file '" + path + "', class 'ddr_Model', row "),
                    HasSubstr("lead to the same pages")));
}

TEST_F(DefencesTest, EntriesThatShareThePagesOfALongKeyAreDamage) {
  ASSERT_GT(share_long_text(path, "ddr_entry", long_entry(1, 1000), short_entries(1, 1001, 20)), 10);
  EXPECT_THAT(failureOf([&] { contents(path); }),
              AllOf(StartsWith("Damaged: "), HasSubstr(path), HasSubstr("collection 1 and those before it"),
                    HasSubstr("lead to the same pages")));
}

TEST_F(DefencesTest, NoIndexIsMadeOfKeysThatShareTheirPages) {
  runSql(path, "DROP INDEX ddr_entry_key");
  ASSERT_GT(share_long_text(path, "ddr_entry", long_entry(1, 1000), short_entries(1, 1001, 20)), 10);
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  rfm_Transaction transaction(database);
  EXPECT_THAT(failureOf([&] { database.Entries().Remove(1, "a"); }),
              AllOf(StartsWith("Damaged: "), HasSubstr("names of its entries")));
}

// Each text is gone again before the next row is read, so together they may be larger than the file.
TEST_F(DefencesTest, LongTextsThatCameAndWentAreNoDamage) {
  constexpr int rows = 20;
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  rfm_Transaction transaction(database);
  for (int number = 0; number < rows; ++number) {
    addModel(database, numbered("model", number));
  }
  rfm_Table written = database.TableForWriting(modelType);
  rfm_Table read = database.Table(modelType);
  for (int row = 0; row < rows; ++row) {
    written.ReadRow(row);
    written.Row().WriteFieldString("modelName", cow_String(std::string(1'000'000, 'x')));
    written.UpdateRow(row);
    EXPECT_EQ(read.ReadRow(row).ReadFieldString("modelName").Length(), 1'000'000);
    written.Row().WriteFieldString("modelName", cow_String("short"));
    written.UpdateRow(row);
  }
  transaction.Commit();
  EXPECT_LT(readFile(path).size(), 4'000'000U);
}

// The texts of its tables are most of the file.
TEST_F(DefencesTest, ManyWideTablesWithoutRowsAreNoDamage) {
  {
    rfm_Database database = openFile(path, utl_FileAccess::Write);
    rfm_Transaction transaction(database);
    rfm_ClassEntry wide = resultClass();
    for (int number = 0; number < 1900; ++number) {
      wide.attributes.push_back(
          {cow_String(numbered("anAttributeWithALongName", number)), rfm_AttributeKind_Integer, 1, 0});
    }
    for (unsigned number = 0; number < 30; ++number) {
      wide.name = cow_String(numbered("wide", static_cast<int>(number)));
      wide.typeId = 0x330000 + number;
      database.AddClass(wide);
      database.TableForWriting(wide.typeId);
    }
    transaction.Commit();
  }
  EXPECT_GT(std::stoul(runSql(path, "SELECT sum(length(sql)) FROM sqlite_schema")),
            256 * 1024 + readFile(path).size() / 16);
  EXPECT_EQ(failureOf([&] { contents(path); }), "nothing");
}

// A file with small pages whose tables have several levels, and what links its pages to each other.
class PagesTest : public DefencesTest {
protected:
  static constexpr std::size_t pageSize = 512;
  PagesTest() {
    runSql(path, "PRAGMA page_size = 512; VACUUM");
    rfm_Database database = openFile(path, utl_FileAccess::Write);
    rfm_Transaction transaction(database);
    for (int number = 0; number < 2000; ++number) {
      database.Entries().Append(7, numbered("entry", number), modelType, 0);
    }
    for (int number = 0; number < 300; ++number) {
      addModel(database, numbered("model", number));
    }
    database.Entries().Clear(1);
    transaction.Commit();
  }
  /// What is said to a copy of the file into a new one.
  template <class Copy>
  std::string failureToCopy(Copy const& copy) {
    rfm_Database const source = openFile(path, utl_FileAccess::Read);
    rfm_Database made =
        rfm_Database::Create(rfm_File::Open(cow_String(folder.path("new.odb")), utl_FileAccess::Create, true),
                             "D0", "", creationTime);
    rfm_Rebuild rebuild(source, made);
    rfm_ReadScope const scope(source);
    rfm_Transaction const transaction(made);
    return failureOf([&] { copy(rebuild, source, made); });
  }
  std::size_t number(std::size_t place, std::size_t size) const {
    std::size_t value = 0;
    for (std::size_t byte = 0; byte < size; ++byte) {
      value = value << 8U | static_cast<unsigned char>(bytes[place + byte]);
    }
    return value;
  }
  static std::string asBytes(std::size_t value) {
    return {static_cast<char>(value >> 24U), static_cast<char>(value >> 16U), static_cast<char>(value >> 8U),
            static_cast<char>(value)};
  }
  static std::size_t placeOf(std::size_t page) { return (page - 1) * pageSize; }
  // Reads the file, and finds the top page of a table in it.
  std::size_t topOf(std::string const& table) {
    bytes = readFile(path);
    std::string const root = runSql(path, "SELECT rootpage FROM sqlite_schema WHERE name = '" + table + "'");
    EXPECT_LE(bytes[placeOf(std::stoul(root))], 5) << "the table must have more than one level";
    return std::stoul(root);
  }
  std::size_t firstBelow(std::size_t page) const {
    return number(placeOf(page) + number(placeOf(page) + 12, 2), 4);
  }
  // Makes all links of a page lead to one other page.
  void lead(std::size_t page, std::size_t below) {
    std::size_t const cells = number(placeOf(page) + 3, 2);
    for (std::size_t cell = 0; cell < cells; ++cell) {
      bytes.replace(placeOf(page) + number(placeOf(page) + 12 + 2 * cell, 2), 4, asBytes(below));
    }
    bytes.replace(placeOf(page) + 8, 4, asBytes(below));
  }
  // A new page at the end of the file that is like another.
  std::size_t copyOf(std::size_t page) {
    bytes += bytes.substr(placeOf(page), pageSize);
    std::size_t const count = bytes.size() / pageSize;
    bytes.replace(28, 4, asBytes(count)); // where the file says how many pages it has
    return count;
  }
  // Lets a table have so many levels, each made of links to one page of the next, that its rows never end.
  void nest(std::string const& table) {
    std::size_t const top = topOf(table);
    std::size_t below = firstBelow(top);
    for (int level = 0; level < 15; ++level) {
      std::size_t const page = copyOf(top);
      lead(page, below);
      below = page;
    }
    lead(top, below);
    writeFile(path, bytes);
  }
  std::string bytes;
};

// With a few levels of pages that are made of links to one and the same page, the rows would never end.
TEST_F(PagesTest, PagesThatLeadToOnePageManyTimesAreDamage) {
  std::size_t const top = topOf("ddr_entry");
  lead(top, firstBelow(top));
  writeFile(path, bytes);
  rfm_Database database = openFile(path, utl_FileAccess::Read);
  std::string const failure = failureOf([&] {
    rfm_EntryCursor cursor = database.Entries().Scan(7);
    while (cursor.Next()) {
    }
  });
  EXPECT_THAT(failure, AllOf(StartsWith("Damaged: "), HasSubstr(path), HasSubstr("collection 7")));
}

TEST_F(PagesTest, RowsThatComeAgainAreDamage) {
  std::size_t const top = topOf("class_ddr_Model");
  lead(top, firstBelow(top));
  writeFile(path, bytes);
  EXPECT_THAT(failureOf([&] { contents(path); }),
              AllOf(StartsWith("Damaged: Database file '" + path + "', class 'ddr_Model', row "),
                    HasSubstr("its rows are not in order")));
}

TEST_F(PagesTest, AWalkThatWouldNeverEndIsStopped) {
  runSql(path, "DROP INDEX ddr_entry_key"); // or it would be walked instead
  nest("ddr_entry");
  rfm_Database const database = openFile(path, utl_FileAccess::Read);
  EXPECT_THAT(failureOf([&] { database.Entries().Count(7); }),
              AllOf(StartsWith("Damaged: Database file '" + path + "'"),
                    HasSubstr("more work than a file of its size can")));
}

TEST_F(PagesTest, ACopyOfRowsThatNeverEndIsRefused) {
  nest("class_ddr_Model");
  EXPECT_THAT(failureToCopy([](rfm_Rebuild& rebuild, rfm_Database const& source, rfm_Database& made) {
                for (rfm_ClassEntry const& entry : source.Classes()) {
                  made.AddClass(entry);
                }
                rebuild.CopyRows(modelType, 1, {});
              }),
              AllOf(StartsWith("Damaged: Database file '" + path + "', class 'ddr_Model', row "),
                    HasSubstr("its rows are not in order")));
}

TEST_F(PagesTest, ACopyOfEntriesThatNeverEndIsRefused) {
  nest("ddr_entry");
  EXPECT_THAT(failureToCopy([](rfm_Rebuild& rebuild, rfm_Database const&, rfm_Database&) {
                rebuild.CopyEntries(1, {});
              }),
              AllOf(StartsWith("Damaged: Database file '" + path + "': "),
                    HasSubstr("its entries are not in order")));
}

} // namespace
