// What happens to an open file meanwhile, met in small memory.
#include "database_test.h"
#include "memory_World.h"
#include "sanitized.h"

#include "rfm_Database.h"
#include "rfm_Exception.h"
#include "rfm_ReadScope.h"
#include "rfm_Rebuild.h"
#include "rfm_Statement.h"
#include "rfm_Transaction.h"
#include "temporary_folder.h"

#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <limits>
#include <new>
#include <optional>
#include <sqlite3.h>
#include <system_error>

using testing::HasSubstr;

namespace {

constexpr unsigned newType = 0x2f0077;

/// A database that is open, and what a call has told of it.
struct OpenDatabase : memory_subject {
  std::string const path = world.pathOf("a").Text();
  rfm_Database database = open(path, utl_FileAccess::Write);
  std::string told;

  static rfm_Database open(std::string const& name, utl_FileAccess access) {
    rfm_Database opened = rfm_Database::Open(rfm_File::Open(cow_String(name), access, true), "D0");
    opened.Bind();
    return opened;
  }
  std::string look() const { return told; }
};

/// Its file is deleted.
struct DeletedFile : OpenDatabase {
  DeletedFile() { std::filesystem::remove(path); }
};

std::vector<memory_call> const callsOnDeletedFiles = memory_calls<DeletedFile>({
    {"rfm_Table::ReadRow of a deleted file",
     [](DeletedFile& on) {
       on.told = on.database.Table(ddr_Model::TypeId()).ReadRow(2).ReadFieldString("modelName").Text();
     }},
});

/// A table in it has lost the column of its row numbers.
struct DamagedTable : OpenDatabase {
  DamagedTable() { runSql(path, "ALTER TABLE class_ddr_Model RENAME COLUMN \"row\" TO number"); }
};

std::vector<memory_call> const callsOnDamagedTables = memory_calls<DamagedTable>({
    {"rfm_Table::Length of a damaged table",
     [](DamagedTable& on) {
       on.told = memory_refusal<rfm_Exception>([&] { on.database.Table(ddr_Model::TypeId()).Length(); });
     }},
});

/// Somebody else adds a class while a table is held.
struct ChangedClassList : OpenDatabase {
  rfm_Table const models = database.Table(ddr_Model::TypeId());

  ChangedClassList() {
    rfm_Database other = open(path, utl_FileAccess::Write);
    rfm_Transaction transaction(other);
    rfm_ClassEntry entry;
    entry.name = cow_String("memory_AClassWithALongName");
    entry.typeId = newType;
    other.AddClass(entry);
    transaction.Commit();
  }
};

std::vector<memory_call> const callsOnChangedClassLists = memory_calls<ChangedClassList>({
    {"rfm_Database::Table of a class that somebody else has added",
     [](ChangedClassList& on) {
       on.told =
           std::to_string(on.database.Table(newType).Length()) + " " + std::to_string(on.models.Length());
     }},
});

/// Tables of others in it are copied. Allocations count within that.
struct CopiedTables : OpenDatabase {
  CopiedTables() {
    runSql(path,
           "CREATE TABLE notes(a, b UNIQUE); CREATE INDEX notesByA ON notes(a);"
           "CREATE VIEW aViewWithALongName AS SELECT a FROM notes;"
           "INSERT INTO notes VALUES(1, 'one'), (2, 'two'); CREATE TABLE logs(a CHECK (random() <> a))");
  }
  void copy() {
    bool const isCounting = failing_memory::pause();
    rfm_Database made =
        rfm_Database::Create(rfm_File::Open(world.pathOf("new"), utl_FileAccess::Create, true), "D0", "", 7);
    rfm_Rebuild rebuilding(database, made);
    rfm_ReadScope const scope(database);
    rfm_Transaction transaction(made);
    failing_memory::resume(isCounting);
    std::vector<std::string> const left = rebuilding.CopyFurtherTables([] {});
    failing_memory::pause();
    told = std::to_string(left.size());
    transaction.Commit();
  }
};

std::vector<memory_call> const callsOnCopiedTables = memory_calls<CopiedTables>({
    {"rfm_Rebuild::CopyFurtherTables", [](CopiedTables& on) { on.copy(); }},
    {"rfm_Rebuild::FurtherThings",
     [](CopiedTables& on) { on.told = rfm_Rebuild::FurtherThings(on.database).at(0); }},
});

// What SQLite has allocated in advance would pass unseen.
TEST(Memory_Sqlite, AsksForEachBlock) {
  temporary_folder const folder;
  std::string const path = folder.path("a");
  writeFile(path, "");
  runSql(path,
         "CREATE TABLE t(a); WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 15)"
         "INSERT INTO t SELECT zeroblob(3000) FROM n");
  sqlite3* database = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
  sqlite3_stmt* statement = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(database, "SELECT length(a) FROM t", -1, &statement, nullptr), SQLITE_OK);
  failing_memory::start();
  std::uint64_t pages = 0; // each holds one row
  while (sqlite3_step(statement) == SQLITE_ROW) {
    ++pages;
  }
  failing_memory::stop();
  EXPECT_EQ(pages, 15U);
  EXPECT_GE(failing_memory::allocations(), pages);
  int used = 0;
  int hits = 0;
  sqlite3_db_status(database, SQLITE_DBSTATUS_LOOKASIDE_HIT, &used, &hits, 0);
  EXPECT_EQ(hits, 0);
  sqlite3_finalize(statement);
  sqlite3_close(database);
}

struct ConvertedValue {
  char const* sql;
  std::string_view (*read)(sqlite3_stmt*, int);
};

// SQLite makes a text of what is stored as something else when it is asked for.
TEST(Memory_Values, OneForWhichThereIsNoMemoryIsNotTakenForAnEmptyOne) {
  for (ConvertedValue const& value :
       {ConvertedValue{"SELECT zeroblob(100000)", rfm_columnText},
        ConvertedValue{"SELECT 12345", rfm_columnText}, ConvertedValue{"SELECT 12345", rfm_columnBytes}}) {
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(":memory:", &database), SQLITE_OK);
    sqlite3_stmt* statement = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(database, value.sql, -1, &statement, nullptr), SQLITE_OK);
    ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
    failing_memory::start(1, failing_memory::Lasting::FromThenOn);
    bool hasFailed = false;
    try {
      value.read(statement, 0);
    } catch (std::bad_alloc const&) {
      hasFailed = true;
    }
    failing_memory::stop();
    EXPECT_TRUE(hasFailed) << value.sql;
    sqlite3_finalize(statement);
    sqlite3_close(database);
  }
}

class Memory_DeletedFiles : public memory_world_test {};

// What stays of a file can be read into memory but once.
TEST_P(Memory_DeletedFiles, AreWhatTheyWereAfterAnyFailedAllocation) {
  failEach(isSanitized ? 8 : std::numeric_limits<std::uint64_t>::max());
}

INSTANTIATE_TEST_SUITE_P(Each, Memory_DeletedFiles, testing::ValuesIn(callsOnDeletedFiles), memory_testName);

// A file is closed where a save cannot even be rolled back, and opened again when it is next used.
class Memory_ClosedFiles : public memory_world_test {
protected:
  static void closeForWantOfMemory(OpenDatabase& on) {
    {
      rfm_Transaction const abandoned(on.database);
      failing_memory::start(1, failing_memory::Lasting::FromThenOn);
    }
    failing_memory::stop();
    ASSERT_FALSE(isOpen(on.path));
  }

  static std::string row(OpenDatabase const& on) {
    return on.database.Table(ddr_Model::TypeId()).ReadRow(2).ReadFieldString("modelName").Text();
  }

private:
  // Whether SQLite has it open: what only holds on to a file cannot be read.
  static bool isOpen(std::string const& path) {
    bool open = false;
    for (auto const& descriptor : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      int const flags = fcntl(std::stoi(descriptor.path().filename()), F_GETFL);
      open = open || (std::filesystem::read_symlink(descriptor, gone) == path && (flags & O_PATH) == 0);
    }
    return open;
  }
};

TEST_F(Memory_ClosedFiles, AreOpenedAgain) {
  OpenDatabase on;
  std::string const held = row(on);
  closeForWantOfMemory(on);
  EXPECT_EQ(row(on), held);
  closeForWantOfMemory(on);
  EXPECT_NO_THROW(rfm_Transaction(on.database).Commit());
}

TEST_F(Memory_ClosedFiles, AreNotTakenForWhatHasReplacedThem) {
  OpenDatabase on;
  closeForWantOfMemory(on);
  std::filesystem::rename(on.world.pathOf("b").Text(), on.path);
  std::string const found = readFile(on.path);
  for (int tries = 0; tries < 2; ++tries) {
    EXPECT_THAT(failureOf([&] { rfm_Transaction(on.database).Commit(); }),
                HasSubstr("'" + on.path + "': it was replaced, renamed or deleted since it was opened"));
    EXPECT_THAT(failureOf([&] { row(on); }), HasSubstr("it was replaced, renamed or deleted"));
  }
  EXPECT_EQ(readFile(on.path), found);
}

class Memory_Connections : public memory_world_test {};

TEST_P(Memory_Connections, AreWhatTheyWereAfterAnyFailedAllocation) {
  failEach(isSanitized ? 8 : 40);
}

INSTANTIATE_TEST_SUITE_P(DamagedTables, Memory_Connections, testing::ValuesIn(callsOnDamagedTables),
                         memory_testName);
INSTANTIATE_TEST_SUITE_P(ChangedClassLists, Memory_Connections, testing::ValuesIn(callsOnChangedClassLists),
                         memory_testName);
INSTANTIATE_TEST_SUITE_P(CopiedTables, Memory_Connections, testing::ValuesIn(callsOnCopiedTables),
                         memory_testName);

} // namespace
