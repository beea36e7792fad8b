// Tests of rfm_SchemaSize: which schemas are too large for their file, read from sound and from damaged
// pages.
#include "rfm_SchemaSize.h"

#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace {

/// A file of SQLite's that is in memory.
struct BytesFile : sqlite3_file {
  explicit BytesFile(std::string fileBytes) : bytes(std::move(fileBytes)) { pMethods = methods(); }

  std::string bytes;
  int calls = 0;       // of reading, and of asking for the size
  int failingCall = 0; // [from 1]; 0: none

private:
  bool Fails() { return ++calls == failingCall; }
  static sqlite3_io_methods const* methods() {
    static sqlite3_io_methods made{};
    made.xRead = [](sqlite3_file* file, void* buffer, int size, sqlite3_int64 place) {
      auto& self = *static_cast<BytesFile*>(file);
      if (self.Fails()) {
        return SQLITE_IOERR_READ;
      }
      auto const begin = std::min(static_cast<std::size_t>(place), self.bytes.size());
      std::size_t const got =
          self.bytes.copy(static_cast<char*>(buffer), static_cast<std::size_t>(size), begin);
      std::fill_n(static_cast<char*>(buffer) + got, static_cast<std::size_t>(size) - got, '\0');
      return got == static_cast<std::size_t>(size) ? SQLITE_OK : SQLITE_IOERR_SHORT_READ;
    };
    made.xFileSize = [](sqlite3_file* file, sqlite3_int64* size) {
      auto& self = *static_cast<BytesFile*>(file);
      *size = static_cast<sqlite3_int64>(self.bytes.size());
      return self.Fails() ? SQLITE_IOERR_FSTAT : SQLITE_OK;
    };
    return &made;
  }
};

int check(std::string const& bytes) {
  BytesFile file(bytes);
  return rfm_checkSchemaSize(file);
}

/// A file as SQLite writes it.
std::string fileOf(int pageSize, std::string const& sql) {
  sqlite3* database = nullptr;
  sqlite3_open(":memory:", &database);
  std::string const all = "PRAGMA page_size = " + std::to_string(pageSize) + "; BEGIN; " + sql + "; COMMIT";
  EXPECT_EQ(sqlite3_exec(database, all.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
      << sqlite3_errmsg(database);
  sqlite3_int64 size = 0;
  std::unique_ptr<unsigned char, void (*)(void*)> const bytes(sqlite3_serialize(database, "main", &size, 0),
                                                              sqlite3_free);
  std::string file(reinterpret_cast<char const*>(bytes.get()), static_cast<std::size_t>(size));
  sqlite3_close(database);
  return file;
}

constexpr std::size_t muchText = 600'000; // more than a file that holds nothing else may define
std::string const longView = "CREATE VIEW v AS SELECT '" + std::string(muchText, 'x') + "'";
std::string const changedTo = "; PRAGMA writable_schema = on; UPDATE sqlite_schema SET ";

struct rfm_SchemaSize : testing::TestWithParam<int> {};

TEST_P(rfm_SchemaSize, APlainTableMayHaveALongText) {
  EXPECT_EQ(check(fileOf(GetParam(), "CREATE TABLE t(" + std::string(muchText, 'a') + ")")), SQLITE_OK);
}

TEST_P(rfm_SchemaSize, AViewMayNot) {
  EXPECT_EQ(check(fileOf(GetParam(), longView)), SQLITE_CORRUPT);
}

TEST_P(rfm_SchemaSize, AViewThatIsStoredAsBytesMayNot) {
  EXPECT_EQ(check(fileOf(GetParam(), longView + changedTo + "sql = CAST(sql AS BLOB)")), SQLITE_CORRUPT);
}

TEST_P(rfm_SchemaSize, AThingWithoutATextMayHaveALongName) {
  for (char const* const text : {"NULL", "7", "''", "x''"}) {
    EXPECT_EQ(check(fileOf(GetParam(), longView + changedTo + "name = sql, sql = " + text)), SQLITE_OK)
        << text;
  }
}

INSTANTIATE_TEST_SUITE_P(Pages, rfm_SchemaSize, testing::Values(512, 4096, 65536));

// A text has its first part beside others and the rest in pages of its own; how much of it depends on its
// length. What is no part of it would not be plain.
TEST(rfm_SchemaSizeOfPages, TextsOfEveryLengthAreReadAsTheyAre) {
  constexpr std::size_t pageSize = 512;
  std::string sql;
  for (std::size_t length = 0; length < pageSize; ++length) {
    sql += "CREATE TABLE t" + std::to_string(length) + "(" + std::string(pageSize + length, 'a') + ");";
  }
  std::string const bytes = fileOf(pageSize, sql);
  EXPECT_EQ(check(bytes), SQLITE_OK);
  EXPECT_EQ(check(fileOf(pageSize, sql + changedTo + "sql = '-' || sql")), SQLITE_CORRUPT)
      << "they are not read";
}

TEST(rfm_SchemaSizeOfPages, ADeviceThatFailsIsTold) {
  BytesFile sound(fileOf(4096, longView + "; CREATE TABLE t(a)"));
  ASSERT_EQ(rfm_checkSchemaSize(sound), SQLITE_CORRUPT);
  for (int call = 1; call <= sound.calls; ++call) {
    BytesFile file(sound.bytes);
    file.failingCall = call;
    EXPECT_EQ(rfm_checkSchemaSize(file), call == 1 ? SQLITE_IOERR_FSTAT : SQLITE_IOERR_READ) << call;
  }
}

/// Pages of 512 bytes that SQLite would not write.
struct MadePages {
  static constexpr std::size_t size = 512;
  static constexpr unsigned inner = 5;
  static constexpr unsigned leaf = 13;
  explicit MadePages(std::size_t count) : bytes(count * size, '\0') { put(16, 2, size); }
  void put(std::size_t place, int length, std::uint64_t value) {
    for (int index = length - 1; index >= 0; --index, value >>= 8U) {
      bytes[place + static_cast<std::size_t>(index)] = static_cast<char>(value);
    }
  }
  std::string bytes;
};

TEST(rfm_SchemaSizeOfPages, PagesThatLeadInACircleAreReadOnce) {
  MadePages made(3);
  made.put(100, 1, MadePages::inner);
  made.put(108, 4, 2);
  made.put(512, 1, MadePages::inner);
  made.put(512 + 3, 2, 1);
  made.put(512 + 8, 4, 2);
  made.put(512 + 12, 2, 100);
  made.put(512 + 100, 4, 1);
  BytesFile file(made.bytes);
  EXPECT_EQ(rfm_checkSchemaSize(file), SQLITE_OK);
  EXPECT_EQ(file.calls, 4) << "the size, the header and two pages";
}

TEST(rfm_SchemaSizeOfPages, MoreRowsThanAPageHoldsEndWithIt) {
  MadePages made(2);
  made.put(100, 1, MadePages::leaf);
  made.put(103, 2, 0xffff);
  EXPECT_EQ(check(made.bytes), SQLITE_OK);
}

// What they claim to hold is written with nine bytes.
TEST(rfm_SchemaSizeOfPages, RowsThatClaimMoreThanThereIsAreRefused) {
  MadePages made(1024);
  made.put(100, 1, MadePages::leaf);
  made.put(103, 2, 2);
  made.put(108, 2, 200);
  made.put(110, 2, 200);
  made.put(200, 8, ~std::uint64_t{0});
  made.put(208, 1, 0xff);
  EXPECT_EQ(check(made.bytes), SQLITE_CORRUPT);
}

TEST(rfm_SchemaSizeOfPages, ARowWhosePagesAreNotThereDefinesNothing) {
  for (std::uint64_t const next : {0U, 5000U}) {
    MadePages made(1024);
    made.put(100, 1, MadePages::leaf);
    made.put(103, 2, 1);
    made.put(108, 2, 200);
    made.put(200, 8, ~std::uint64_t{0});
    made.put(208, 1, 0xff);
    made.put(249, 4, next); // behind the part of the row that stands there
    EXPECT_EQ(check(made.bytes), SQLITE_OK) << next;
  }
}

TEST(rfm_SchemaSizeOfPages, PagesThatAreKeptForOthersAreLeftToSqlite) {
  MadePages made(2);
  made.put(20, 1, 255); // of each page
  made.put(100, 1, MadePages::leaf);
  BytesFile file(made.bytes);
  EXPECT_EQ(rfm_checkSchemaSize(file), SQLITE_OK);
  EXPECT_EQ(file.calls, 2) << "the size and the header";
}

} // namespace
