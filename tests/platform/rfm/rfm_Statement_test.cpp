// Tests of rfm_Statement: values that are nothing.
#include "rfm_Statement.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

namespace {

struct StatementTest : testing::Test {
  StatementTest() { sqlite3_open(":memory:", &database); }
  ~StatementTest() override {
    sqlite3_finalize(statement);
    sqlite3_close(database);
  }
  /// Runs a query up to its first row.
  void ask(char const* sql) {
    ASSERT_EQ(sqlite3_prepare_v2(database, sql, -1, &statement, nullptr), SQLITE_OK);
    ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
  }
  sqlite3* database = nullptr;
  sqlite3_stmt* statement = nullptr;
};

TEST_F(StatementTest, WhatIsNothingReadsAsEmptyAndIsThere) {
  ask("SELECT NULL, '', zeroblob(0)");
  for (int column = 0; column < 3; ++column) {
    EXPECT_EQ(rfm_columnText(statement, column), "") << column;
    EXPECT_NE(rfm_columnText(statement, column).data(), nullptr) << column;
    EXPECT_EQ(rfm_columnBytes(statement, column), "") << column;
    EXPECT_NE(rfm_columnBytes(statement, column).data(), nullptr) << column;
  }
}

} // namespace
