// Tests of rfm_Schema: which definitions of tables and indexes are plain.
#include "rfm_Schema.h"

#include <gtest/gtest.h>

namespace {

constexpr int inTable = 2;
constexpr int inIndex = 1;

TEST(rfm_Schema, NamesAndTypesArePlain) {
  for (char const* const sql :
       {"CREATE TABLE t1(a, B2 INTEGER, c_3 TEXT NOT NULL)", "create table t(a, primary key(a))sql",
        "CREATE TABLE t(a,\r\n\tb)", "CREATE TABLE t(a NUMERIC(10))", ""}) {
    EXPECT_TRUE(rfm_isPlainDefinition(sql, inTable)) << sql;
  }
}

TEST(rfm_Schema, NamesInQuotesMayHoldAnything) {
  for (char const* const sql :
       {"CREATE TABLE \"check {1} as\"(a)", "CREATE TABLE [select * from](a)", "CREATE TABLE `a;b`(a)sql",
        "CREATE TABLE 'default'(a)", "CREATE TABLE \"one \"\" check\"(a)", "CREATE TABLE [one ] (a)sql",
        "CREATE TABLE \"never closed: check", "CREATE TABLE t(a) \"check\""}) {
    EXPECT_TRUE(rfm_isPlainDefinition(sql, inTable)) << sql;
  }
}

TEST(rfm_Schema, WhatComputesOrChecksIsNotPlain) {
  for (char const* const sql :
       {"CREATE TABLE t(a CHECK (a))", "create table t(a default 1)", "CREATE TABLE t(a AS (b))sql",
        "CREATE TABLE t(a Collate nocase)", "CREATE TABLE t AS SELECT 1", "CREATE VIRTUAL TABLE t USING m",
        "CREATE TABLE t([a]DEFAULT 1)", "CREATE TABLE t(\"a\"\"\"CHECK(a))"}) {
    EXPECT_FALSE(rfm_isPlainDefinition(sql, inTable)) << sql;
  }
}

TEST(rfm_Schema, LettersThatNoPlainDefinitionHasAreRefused) {
  for (char const* const sql : {"CREATE TABLE t(a{b)", "CREATE TABLE t(a) -- note", "CREATE TABLE t(a);",
                                "CREATE TABLE t(a+b)", "CREATE TABLE t(\xc3\xa4)", "CREATE TABLE t(a@b)"}) {
    EXPECT_FALSE(rfm_isPlainDefinition(sql, inTable)) << sql;
  }
}

TEST(rfm_Schema, AnExpressionInAnIndexIsTooDeep) {
  EXPECT_TRUE(rfm_isPlainDefinition("CREATE INDEX i ON t(a, b)", inIndex));
  EXPECT_FALSE(rfm_isPlainDefinition("CREATE INDEX i ON t(abs(a))", inIndex));
  EXPECT_FALSE(rfm_isPlainDefinition("CREATE TABLE t(a b((c)))", inTable));
}

using Columns = std::vector<std::string_view>;

TEST(rfm_Schema, TheColumnsOfAWrittenTableAreInItsText) {
  char const* const none = "CREATE TABLE \"t\"(\"row\" INTEGER PRIMARY KEY, \"#uid\" BLOB)";
  char const* const two =
      R"sql(CREATE TABLE "t"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "a", "b, (c)" INTEGER))sql";
  EXPECT_EQ(rfm_writtenColumns(none, "t"), Columns());
  EXPECT_EQ(rfm_writtenColumns(two, "t"), (Columns{"a", "b, (c)"}));
}

TEST(rfm_Schema, WhiteSpaceInATextChangesNoColumns) {
  char const* const sql = "CREATE\nTABLE\t\"t\" (\"row\"INTEGER PRIMARY\r\nKEY , \"#uid\" BLOB,\"a\" )";
  EXPECT_EQ(rfm_writtenColumns(sql, "t"), (Columns{"a"}));
}

TEST(rfm_Schema, TheColumnsOfAnyOtherTextAreNotKnown) {
  for (char const* const sql :
       {R"sql(CREATE TABLE "u"("row" INTEGER PRIMARY KEY, "#uid" BLOB))sql",
        R"sql(CREATE TABLE t("row" INTEGER PRIMARY KEY, "#uid" BLOB))sql",
        R"sql(create table "t"("row" INTEGER PRIMARY KEY, "#uid" BLOB))sql",
        R"sql(CREATE VIRTUAL TABLE "t"("row" INTEGER PRIMARY KEY, "#uid" BLOB))sql",
        R"sql(CREATE TABLE "t" AS SELECT 1)sql",
        R"sql(CREATE TABLE "t"("#uid" BLOB, "row" INTEGER PRIMARY KEY))sql",
        R"sql(CREATE TABLE "t"("row" INTEGERPRIMARY KEY, "#uid" BLOB))sql",
        R"sql(CREATE TABLE "t"("row" INT PRIMARY KEY, "#uid" BLOB))sql",
        R"sql(CREATE TABLE "t"("row" INTEGER UNIQUE, "#uid" BLOB))sql",
        R"sql(CREATE TABLE "t"("row" INTEGER PRIMARY, "#uid" BLOB))sql",
        R"sql(CREATE TABLE "t"("row" INTEGER PRIMARY KEY DESC, "#uid" BLOB))sql",
        R"sql(CREATE TABLE "t"("row" INTEGER PRIMARY KEY, "uid" BLOB))sql",
        R"sql(CREATE TABLE "t"("row" INTEGER PRIMARY KEY, "#uid" TEXT))sql",
        R"sql(CREATE TABLE "t"("row" INTEGER PRIMARY KEY, "#uid" BLOB, a))sql",
        R"sql(CREATE TABLE "t"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "a" TEXT))sql",
        R"sql(CREATE TABLE "t"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "a""b"))sql",
        R"sql(CREATE TABLE "t"("row" INTEGER PRIMARY KEY, "#uid" BLOB, "a)sql",
        R"sql(CREATE TABLE "t"("row" INTEGER PRIMARY KEY, "#uid" BLOB, PRIMARY KEY("#uid")))sql",
        R"sql(CREATE TABLE "t"("row" INTEGER PRIMARY KEY, "#uid" BLOB) WITHOUT ROWID)sql",
        R"sql(CREATE TABLE "t"("row" INTEGER PRIMARY KEY, "#uid" BLOB)sql",
        "CREATE TABLE",
        ""}) {
    EXPECT_EQ(rfm_writtenColumns(sql, "t"), std::nullopt) << sql;
  }
}

} // namespace
