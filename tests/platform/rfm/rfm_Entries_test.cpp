// Tests of rfm_Entries at the ends of what can be stored, and without the index by key.
#include "rfm_TestFiles.h"

#include <gmock/gmock.h>
#include <limits>
#include <vector>

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

struct EntriesTest : rfm_Test {
  EntriesTest() { saveModels(database, {"a", "b"}); }
  rfm_Database database = createFile(path);
};

TEST_F(EntriesTest, KeysAreFoundWithoutTheIndex) {
  runSql(path, "DROP INDEX ddr_entry_key");
  EXPECT_EQ(database.Entries().FindListed(1, "b")->oid, 1);
  EXPECT_FALSE(database.Entries().FindListed(1, "c"));
}

/// Without the index, and with more entries than are walked over each time.
struct EntriesWithoutIndexTest : EntriesTest {
  EntriesWithoutIndexTest() {
    runSql(path,
           "DROP INDEX ddr_entry_key; WITH RECURSIVE n(i) AS (SELECT 2 UNION ALL SELECT i + 1 FROM n WHERE "
           "i < 500) INSERT INTO ddr_entry SELECT 1, i, 'e' || i, 1, i FROM n");
  }
  /// The place of the entry found, and -1 for none.
  int placeOf(std::string const& key) {
    std::optional<rfm_Entry> const found = database.Entries().Find(1, key);
    return found ? found->position : -1;
  }
};

TEST_F(EntriesWithoutIndexTest, AllAreFoundWithOneWalk) {
  std::uint64_t const before = database.File().Statistics().rowsRead;
  for (int place = 2; place <= 500; ++place) {
    EXPECT_EQ(placeOf(numbered("e", place)), place);
  }
  EXPECT_EQ(placeOf("no such entry"), -1);
  EXPECT_LT(database.File().Statistics().rowsRead - before, 1000U);
}

TEST_F(EntriesWithoutIndexTest, TheFirstOfSeveralWithOneKeyIsFound) {
  runSql(path, "UPDATE ddr_entry SET Key = 'e' WHERE position > 70");
  EXPECT_EQ(placeOf("e"), 71);
}

TEST_F(EntriesWithoutIndexTest, ChangesOfOthersAreSeen) {
  EXPECT_EQ(placeOf("e400"), 400);
  runSql(
      path,
      "DELETE FROM ddr_entry WHERE position = 400; UPDATE ddr_entry SET Key = 'late' WHERE position = 300");
  EXPECT_EQ(placeOf("e400"), -1);
  EXPECT_EQ(placeOf("late"), 300);
}

TEST_F(EntriesWithoutIndexTest, ChangesThatWereTakenBackAreNotSeen) {
  EXPECT_EQ(placeOf("a"), 0);
  {
    rfm_Transaction transaction(database);
    database.Entries().Clear(1);
    EXPECT_EQ(placeOf("a"), -1);
  }
  EXPECT_EQ(placeOf("a"), 0);
  EXPECT_EQ(placeOf("e500"), 500);
}

TEST_F(EntriesWithoutIndexTest, WhatStandsBeforeADamagedEntryIsFound) {
  runSql(path, "UPDATE ddr_entry SET ClassID = 'x' WHERE position = 300");
  for (int count = 0; count < 2; ++count) {
    EXPECT_EQ(placeOf("e299"), 299);
    EXPECT_THAT(failureOf([&] { placeOf("e301"); }),
                AllOf(StartsWith("Damaged: "), HasSubstr("entry 300 of collection 1 refers to nothing")));
  }
}

TEST_F(EntriesTest, AChangeByKeyMakesTheIndexThatIsMissing) {
  runSql(path, "DROP INDEX ddr_entry_key");
  rfm_Transaction transaction(database);
  EXPECT_TRUE(database.Entries().Remove(1, "a"));
  transaction.Commit();
  EXPECT_EQ(runSql(path, "SELECT count(*) FROM sqlite_schema WHERE name = 'ddr_entry_key'"), "1");
}

TEST_F(EntriesTest, AnIndexOfThatNameIsNotMissing) {
  runSql(path, "DROP INDEX ddr_entry_key; CREATE INDEX ddr_entry_key ON ddr_entry(Key, handle)");
  EXPECT_TRUE(openFile(path, utl_FileAccess::Read).MissingIndexes().empty());
}

// The index is that of an empty table.
TEST_F(EntriesTest, ADamagedIndexChangesNeitherTheNumberOfEntriesNorTheNextHandle) {
  runSql(path,
         "INSERT INTO ddr_entry VALUES(50, 0, 'x', 1, 0); UPDATE ddr_header SET next_handle = 2;"
         "CREATE TABLE notes(a); CREATE INDEX notes_a ON notes(a); PRAGMA writable_schema = on;"
         "UPDATE sqlite_schema SET rootpage = (SELECT rootpage FROM sqlite_schema WHERE name = 'notes_a') "
         "WHERE name = 'ddr_entry_key'");
  rfm_Database damaged = openFile(path, utl_FileAccess::Write);
  EXPECT_EQ(damaged.Entries().Count(1), 2);
  rfm_Transaction const transaction(damaged);
  EXPECT_EQ(damaged.NewHandle(), 51);
}

TEST_F(EntriesTest, AChangeOfAnEntryWhereNoneIsStoredChangesNothing) {
  std::string const empty = folder.path("b.odb");
  rfm_Database other = createFile(empty);
  rfm_Transaction transaction(other);
  EXPECT_FALSE(other.Entries().Update(1, "a", modelType, 0));
  EXPECT_FALSE(other.Entries().Remove(1, "a"));
  transaction.Commit();
  EXPECT_EQ(contents(empty), "|");
}

TEST_F(EntriesTest, AKeyThatIsNothingIsStoredAsAnEmptyText) {
  rfm_Transaction transaction(database);
  database.Entries().Append(2, std::string_view(), modelType, 0);
  transaction.Commit();
  EXPECT_EQ(runSql(path, "SELECT typeof(Key), length(Key) FROM ddr_entry WHERE handle = 2"), "text 0");
  EXPECT_TRUE(database.Entries().Find(2, ""));
}

TEST_F(EntriesTest, ManyWalksAtOnceAreIndependent) {
  for (int round = 0; round < 2; ++round) {
    std::vector<rfm_EntryCursor> cursors;
    for (int number = 0; number < 5; ++number) {
      cursors.push_back(database.Entries().Scan(1));
      ASSERT_TRUE(cursors.back().Next());
    }
    for (rfm_EntryCursor& cursor : cursors) {
      EXPECT_EQ(cursor.Key(), "a");
      EXPECT_TRUE(cursor.Next());
      EXPECT_EQ(cursor.Key(), "b");
    }
  }
}

// SQLite does not look whether its rows are in order: it takes the collection to end before such a one.
TEST_F(EntriesTest, EntriesBehindOneThatIsOutOfOrderAreNotLeftOut) {
  saveModels(database, {"c", "d"});
  std::string bytes = readFile(path);
  std::string const kinds = "\x06\x09\x08\x0f\x03\x08"; // of the values of the first entry, whose handle is 1
  std::size_t const row = bytes.find(kinds);
  ASSERT_NE(row, std::string::npos);
  ASSERT_EQ(bytes.find(kinds, row + 1), std::string::npos);
  constexpr char numberOfEightBytes = 6;
  bytes[row + 1] = numberOfEightBytes;
  writeFile(path, bytes);
  rfm_Database reader = openFile(path, utl_FileAccess::Read);
  rfm_EntryCursor walk = reader.Entries().Scan(1);
  for (char const* const asked : {"once", "again"}) {
    EXPECT_EQ(
        failureOf([&] {
          while (walk.Next()) {
          }
        }),
        "Damaged: Database file '" + path +
            "': it is damaged: entry 3 of collection 1 stands behind one that is out of order. Restore it "
            "from a backup.")
        << asked;
  }
}

TEST_F(EntriesTest, AClassBeyondAllTypeIdsIsDamage) {
  runSql(path, "UPDATE ddr_entry SET ClassID = 4294967296 WHERE position = 1");
  EXPECT_EQ(database.Entries().Find(1, "a")->classId, modelType);
  EXPECT_THAT(
      failureOf([&] { database.Entries().Find(1, "b"); }),
      AllOf(StartsWith("Damaged: Database file '" + path + "'"), HasSubstr("entry 1 of collection 1")));
}

TEST_F(EntriesTest, ACollectionThatIsFullTakesNoMore) {
  runSql(path, "UPDATE ddr_entry SET position = 2147483644 WHERE position = 1");
  rfm_Transaction const transaction(database);
  database.Entries().Append(1, "last", modelType, 0);
  EXPECT_THAT(failureOf([&] { database.Entries().Append(1, "more", modelType, 0); }),
              AllOf(StartsWith("Full: Database file '" + path + "'"), HasSubstr("no room for more entries")));
  EXPECT_EQ(database.Entries().Count(1), 3);
}

TEST_F(EntriesTest, NoHandleFollowsTheLargest) {
  rfm_Transaction const transaction(database);
  database.NewHandle();
  database.Entries().Append(std::numeric_limits<std::int64_t>::max(), "a", modelType, 0);
  EXPECT_THAT(failureOf([&] { database.NewHandle(); }),
              AllOf(StartsWith("Damaged: "), HasSubstr("next collection handle")));
}

TEST_F(EntriesTest, AKeyThatIsLongerThanTheFileIsNotThere) {
  std::string const key(5 << 20, 'k');
  EXPECT_FALSE(database.Entries().Find(1, key));
  EXPECT_FALSE(database.Entries().FindListed(1, key));
}

TEST_F(EntriesTest, AKeyThatNoFileCanHoldIsRefused) {
  std::string const key((256 << 20) + 1, 'k');
  rfm_Transaction const transaction(database);
  EXPECT_THAT(failureOf([&] { database.Entries().Update(1, key, modelType, 0); }),
              AllOf(StartsWith("Other: Database file '" + path + "'"),
                    HasSubstr("larger than a database file can hold")));
}

TEST_F(EntriesTest, ADamagedEntryIsToldThoughAClassOfCollectionsHasNoRows) {
  {
    rfm_Transaction transaction(database);
    rfm_ClassEntry entry;
    entry.name = "collections";
    entry.typeId = 7;
    entry.attributes = {{"handle", rfm_AttributeKind_Handle, 1, 0}};
    database.AddClass(entry);
    transaction.Commit();
  }
  runSql(path, "UPDATE ddr_entry SET OID = -2 WHERE position = 1");
  EXPECT_THAT(failureOf([&] { contents(path); }), AllOf(StartsWith("Damaged: Database file '" + path + "': "),
                                                        HasSubstr("entry 1 of collection 1")));
}

TEST_F(EntriesTest, ARowThatIsNoNumberIsDamage) {
  runSql(path, "UPDATE ddr_entry SET OID = 'x' WHERE position = 1");
  EXPECT_THAT(failureOf([&] { contents(path); }), HasSubstr("entry 1 of collection 1 refers to nothing"));
}

} // namespace
