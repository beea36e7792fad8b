// What a check says of sound and of damaged files.
#include "ddr_Check.h"

#include "child_process.h"
#include "database_test.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

using Depth = ddr_CheckDepth;

class DdrCheck : public database_test {
protected:
  DdrCheck() : path(folder.path("a")) {}

  /// A file with two models that hold a note, a result, user data and two messages, closed.
  void save() {
    cow_String const name = create("a");
    writeModel(name, "M1", "one");
    writeModel(name, "M2", "two");
    edit(name, [](ddr_Ddb& record) {
      record.results.Insert("R1", ddr_Result());
      record.userData.Insert("U1", ddr_UserData());
      record.GetDiagnosticData().Append(1, dia_Severity::Warning, "first");
      record.GetDiagnosticData().Append(2, dia_Severity::Error, "second");
      record.AddProductAddOn(ddr_ProductAddOn("KORU"));
      record.AddProductAddOn(ddr_ProductAddOn("KORU"));
    });
    database_test::save(name);
    database_test::save(name);
    close(name);
  }
  void sql(std::string const& text) { runSql(path, text); }
  /// Changes the last record: "models#OID = 7".
  void setInRecord(std::string const& assignment) {
    sql("UPDATE class_ddr_Ddb SET " + assignment + " WHERE row = (SELECT max(row) FROM class_ddr_Ddb)");
  }

  /// Status and findings: "1\nwhere: what\n". The check must not change the file.
  std::string check(Depth depth) { return check("a", depth); }
  std::string check(std::string const& file, Depth depth) {
    ddr_CheckResult const result = ddr_check(pathOf(file), depth);
    std::string text = std::to_string(static_cast<int>(result.status)) + "\n";
    for (ddr_Finding const& finding : result.findings) {
      EXPECT_THAT(finding.where, StartsWith("Database file '" + folder.path(file) + "'"));
      EXPECT_THAT(finding.consequence, EndsWith("."));
      EXPECT_THAT(finding.remedy, EndsWith("."));
      text += finding.where.substr(std::string("Database file ''").size() + folder.path(file).size());
      text += ": " + finding.what + "\n";
    }
    return text;
  }
  /// Found by both checks, and by both as damage.
  void expectFound(std::string const& finding) {
    for (Depth const depth : {Depth::Quick, Depth::Deep}) {
      EXPECT_THAT(check(depth), AllOf(StartsWith("1\n"), HasSubstr(finding)));
    }
  }
  /// Found by the deep check alone: the quick one does not look so far.
  void expectFoundInTheDeep(std::string const& finding) {
    EXPECT_EQ(check(Depth::Quick), "0\n");
    EXPECT_THAT(check(Depth::Deep), AllOf(StartsWith("1\n"), HasSubstr(finding)));
  }
  void expectCannotTell(std::string const& finding) {
    for (Depth const depth : {Depth::Quick, Depth::Deep}) {
      EXPECT_EQ(check(depth), "2\n: " + finding + "\n");
    }
  }

  std::string const path;
};

TEST_F(DdrCheck, ASoundFileHasNoFindingsAndKeepsItsBytes) {
  save();
  std::string const before = readFile(path);
  EXPECT_EQ(check(Depth::Quick), "0\n");
  EXPECT_EQ(check(Depth::Deep), "0\n");
  EXPECT_EQ(readFile(path), before);
  EXPECT_EQ(folder.names().size(), 1U);
}

TEST_F(DdrCheck, ADatabaseSavedManyTimesIsSound) {
  save();
  for (int round = 0; round < 3; ++round) {
    cow_String const name = open("a");
    writeModel(name, numbered("N", round), "more");
    edit(name, [](ddr_Ddb& record) {
      record.models.Remove("M1");
      record.results.Remove("R1");
      record.results.Insert("R2", ddr_Result());
      record.GetDiagnosticData().Clear();
    });
    database_test::save(name);
    close(name);
  }
  EXPECT_EQ(check(Depth::Deep), "0\n");
}

TEST_F(DdrCheck, AnOpenDatabaseIsCheckedBesideItsWriter) {
  save();
  cow_String const name = open("a");
  EXPECT_EQ(check(Depth::Deep), "0\n");
  writeModel(name, "M3", "three");
  database_test::save(name);
  EXPECT_EQ(check(Depth::Deep), "0\n");
}

TEST_F(DdrCheck, TheQuickCheckLooksAtFewRowsAndTheDeepOneAtAll) {
  cow_String const name = create("a");
  edit(name, [&](ddr_Ddb& record) {
    for (int number = 0; number < 100; ++number) {
      record.results.Insert(numbered("R", number).c_str(), ddr_Result());
    }
  });
  database_test::save(name);
  close(name);
  EXPECT_LT(ddr_check(pathOf("a"), Depth::Quick).rowsChecked, 10);
  EXPECT_GT(ddr_check(pathOf("a"), Depth::Deep).rowsChecked, 200);
}

TEST_F(DdrCheck, ThePersistentNameIsGiven) {
  cow_String const name = create("a");
  database_test::save(name);
  for (Depth const depth : {Depth::Quick, Depth::Deep}) {
    EXPECT_EQ(ddr_check(pathOf("a"), depth).persistentName, name);
  }
}

// ---- files that are not databases, or not ours to look at ----

TEST_F(DdrCheck, AMissingFileCannotBeJudged) {
  expectCannotTell("there is no such file");
}

TEST_F(DdrCheck, AFolderCannotBeJudged) {
  ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
  expectCannotTell("it is a folder");
}

TEST_F(DdrCheck, ADatabaseOfAnotherProgramCannotBeJudged) {
  writeFile(path, "");
  sql("CREATE TABLE t(a)");
  expectCannotTell("it is a database of another program");
}

TEST_F(DdrCheck, ANewerFormatCannotBeJudged) {
  save();
  sql("PRAGMA user_version = 99");
  expectCannotTell("it has the format version 99, this program knows those up to 1");
}

TEST_F(DdrCheck, AFileWithoutPermissionCannotBeJudged) {
  save();
  ASSERT_EQ(chmod(path.c_str(), 0), 0);
  std::string const answer = in_child_without_rights([&] { return check(Depth::Deep); });
  EXPECT_EQ(answer, "2\n: there is no permission to use it\n");
}

TEST_F(DdrCheck, ALockedFileCannotBeJudged) {
  save();
  sqlite3* other = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &other), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
  std::string const answer = in_child([&] { return check(Depth::Quick); });
  sqlite3_close(other);
  EXPECT_THAT(answer, StartsWith("2\n: it is in use by another process (" + std::to_string(getpid())));
  EXPECT_EQ(check(Depth::Quick), "0\n");
}

TEST_F(DdrCheck, APipeCannotBeJudgedAndIsNotWaitedFor) {
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_THAT(check(Depth::Quick), Not(StartsWith("0\n")));
}

TEST_F(DdrCheck, AnEmptyFileIsDamaged) {
  writeFile(path, "");
  expectFound(": it is empty\n");
}

TEST_F(DdrCheck, ALetterIsDamaged) {
  writeFile(path, "Dear reader, this is a letter: " + std::string(5000, '.'));
  expectFound(": it is not a database\n");
}

TEST_F(DdrCheck, AFileThatIsCutAnywhereIsDamaged) {
  save();
  std::string const whole = readFile(path);
  for (std::size_t size = 1; size < whole.size(); size += size < 4096 ? 511 : 4000) {
    writeFile(path, whole.substr(0, size));
    EXPECT_THAT(check(Depth::Quick), StartsWith("1\n")) << size;
    EXPECT_THAT(check(Depth::Deep), StartsWith("1\n")) << size;
  }
}

// Whatever byte is wrong, the check ends with an answer and leaves the file alone.
TEST_F(DdrCheck, AnyWrongByteIsBorne) {
  save();
  std::string const whole = readFile(path);
  int damaged = 0;
  for (std::size_t place = 0; place < whole.size(); place += 97) {
    std::string bytes = whole;
    bytes[place] = static_cast<char>(~bytes[place]);
    writeFile(path, bytes);
    damaged += check(Depth::Deep)[0] == '1' ? 1 : 0;
    ASSERT_EQ(readFile(path) == bytes, true) << place;
  }
  EXPECT_GT(damaged, 20);
}

TEST_F(DdrCheck, PagesOfRubbishAreBorne) {
  save();
  std::string const whole = readFile(path);
  for (std::size_t page = 0; page < whole.size(); page += 4096) {
    std::string bytes = whole;
    std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(page) + (page == 0 ? 100 : 0),
                page == 0 ? 3996 : 4096, '\x5a');
    writeFile(path, bytes);
    EXPECT_THAT(check(Depth::Deep), StartsWith("1\n")) << page;
  }
}

// ---- header, class list and record ----

TEST_F(DdrCheck, AMissingHeaderIsFound) {
  save();
  sql("DELETE FROM ddr_header");
  expectFound(": it is damaged: it has no database record 'D0'\n");
}

TEST_F(DdrCheck, AFileWithoutARecordIsDamaged) {
  create("a");
  expectFound(": it holds no database record\n");
}

TEST_F(DdrCheck, ATableThatTheClassListNamesButThatIsMissingIsFound) {
  save();
  sql("DROP TABLE class_ddr_Result");
  expectFound(", class 'ddr_Result': it is damaged: its table is missing\n");
}

TEST_F(DdrCheck, AMissingTableOfRecordsIsFound) {
  save();
  sql("DROP TABLE class_ddr_Ddb");
  expectFound(", class 'ddr_Ddb': it is damaged: its table is missing\n");
}

TEST_F(DdrCheck, AMissingColumnIsFound) {
  save();
  sql("ALTER TABLE class_ddr_Ddb DROP COLUMN description");
  expectFound(", class 'ddr_Ddb': its table has no column for 'description'\n");
}

TEST_F(DdrCheck, AMissingClassListIsFound) {
  save();
  sql("DROP TABLE ddr_class");
  expectFound("it is damaged");
}

TEST_F(DdrCheck, AClassAmongItsOwnBasesIsFound) {
  save();
  sql(R"(UPDATE ddr_class SET "Base Type Id" = 2228231 WHERE "Class Name" = 'ddr_Model')");
  expectFound(", class 'ddr_Model': it is among its own base classes\n");
}

TEST_F(DdrCheck, AHalfSetReferenceIsFound) {
  save();
  setInRecord("\"results#ClassID\" = NULL");
  expectFound(", class 'ddr_Ddb', row 1: the reference 'results' is only half set\n");
}

TEST_F(DdrCheck, AReferenceToARowThatIsNotThereIsFound) {
  save();
  setInRecord("\"results#OID\" = 77");
  expectFound("the reference 'results' leads to row 77 of class 'cls_MapHeader', which is not there\n");
}

TEST_F(DdrCheck, AReferenceToAnUnknownClassIsFound) {
  save();
  setInRecord("\"results#ClassID\" = 4711");
  expectFound("the reference 'results' names class 4711, which the file does not list\n");
}

TEST_F(DdrCheck, AReferenceToAWrongClassIsFound) {
  save();
  setInRecord("\"results#ClassID\" = 2228225, \"results#OID\" = 0");
  expectFound("the reference 'results' leads to an object of the wrong class, class 'ddr_Result', row 0\n");
}

TEST_F(DdrCheck, AValueOfAWrongTypeIsFound) {
  save();
  setInRecord("ddbVersion = 'many'");
  expectFound(", class 'ddr_Ddb', row 1, field 'ddbVersion': it is damaged");
}

TEST_F(DdrCheck, ATextThatIsNotUtf8IsFound) {
  save();
  setInRecord("description = CAST(x'ff' AS TEXT)");
  expectFound(", class 'ddr_Ddb', row 1, field 'description': it is damaged");
}

TEST_F(DdrCheck, AnEmptyPersistentNameIsFound) {
  save();
  setInRecord("name = ''");
  expectFound(", class 'ddr_Ddb', row 1: it has no persistent name\n");
}

TEST_F(DdrCheck, TimesBefore1970AreFound) {
  save();
  setInRecord("modifyTime = -5");
  expectFound(", class 'ddr_Ddb', row 1: its modifyTime, -5, lies before 1970\n");
}

TEST_F(DdrCheck, TimesBeyond2038AreFound) {
  save();
  setInRecord("modifyTime = 5000000000");
  expectFound(", class 'ddr_Ddb', row 1, field 'modifyTime': it is damaged");
}

TEST_F(DdrCheck, ACreationTimeThatTheHeaderContradictsIsFound) {
  save();
  setInRecord("creationTime = 1000");
  sql("UPDATE ddr_header SET creation_time = 2000");
  expectFound("its creationTime, 1000, is not that of the file's header, 2000\n");
}

TEST_F(DdrCheck, AHeaderWithoutACreationTimeIsSound) {
  save();
  sql("UPDATE ddr_header SET creation_time = NULL");
  EXPECT_EQ(check(Depth::Deep), "0\n");
}

TEST_F(DdrCheck, ACollectionWithoutEntriesOfItsOwnIsFound) {
  save();
  sql("UPDATE class_cls_MapHeader SET \"Target#Handle\" = NULL WHERE row = 0");
  expectFound(", class 'cls_MapHeader', row 0: the collection has no entries of its own\n");
}

// ---- what only the deep check sees ----

TEST_F(DdrCheck, AnEntryThatLeadsNowhereIsFoundWithItsName) {
  save();
  sql("UPDATE ddr_entry SET OID = 77 WHERE Key = 'R1'");
  expectFoundInTheDeep("the entry 'R1' leads to row 77 of class 'ddr_Result', which is not there\n");
}

TEST_F(DdrCheck, AnEntryOfNoObjectIsFound) {
  save();
  sql("UPDATE ddr_entry SET ClassID = 0, OID = -1 WHERE Key = 'R1'");
  expectFoundInTheDeep("the entry 'R1' leads to no object\n");
}

TEST_F(DdrCheck, AnEntryOfAWrongClassIsFound) {
  save();
  sql("UPDATE ddr_entry SET ClassID = 2228240, OID = 0 WHERE Key = 'R1'");
  expectFoundInTheDeep("the entry 'R1' leads to an object of the wrong class, class 'ddr_UserData', row 0\n");
}

TEST_F(DdrCheck, AModelOfAWrongClassIsFound) {
  save();
  sql("UPDATE ddr_entry SET ClassID = 2228240, OID = 0 WHERE Key = 'M1'");
  expectFoundInTheDeep("the entry 'M1' leads to an object of the wrong class, class 'ddr_UserData', row 0\n");
}

TEST_F(DdrCheck, TwoEntriesOfOneNameAreFound) {
  save();
  sql("UPDATE ddr_entry SET Key = 'M1' WHERE Key = 'M2'");
  expectFoundInTheDeep("the entry 'M1' is there twice\n");
}

TEST_F(DdrCheck, EntriesSharedByTwoCollectionsAreFound) {
  save();
  sql("UPDATE class_cls_ListObj SET \"Target#Handle\" = (SELECT min(\"Target#Handle\") FROM "
      "class_cls_ListObj) WHERE row = 1");
  expectFoundInTheDeep(", class 'cls_ListObj', row 1: it shares its entries with another collection (class "
                       "'cls_ListObj', row 0)\n");
}

TEST_F(DdrCheck, EntriesOfNoCollectionAreFound) {
  save();
  sql("INSERT INTO ddr_entry VALUES(4711, 0, '', 0, -1)");
  expectFoundInTheDeep(": the entries of collection 4711 belong to no collection\n");
}

TEST_F(DdrCheck, ObjectsOfTwoClassesWithOneIdentityAreFound) {
  save();
  sql("UPDATE class_ddr_Model SET \"#uid\" = (SELECT \"#uid\" FROM class_ddr_Result) WHERE row = 1");
  expectFoundInTheDeep(", class 'ddr_Model', row 1: it has the identity of an object of another class, class "
                       "'ddr_Result', row 0\n");
}

TEST_F(DdrCheck, CopiesOfOneModelShareAnIdentityAndAreSound) {
  save();
  cow_String const name = open("a");
  edit(name, [](ddr_Ddb& record) { record.models.Insert("Copy", record.models.ConstGet("M1")); });
  database_test::save(name);
  close(name);
  EXPECT_EQ(runSql(path, "SELECT count(*) - count(DISTINCT \"#uid\") FROM class_ddr_Model"), "1");
  EXPECT_EQ(check(Depth::Deep), "0\n");
}

TEST_F(DdrCheck, ARowWithoutIdentityIsFound) {
  save();
  sql("UPDATE class_ddr_Model SET \"#uid\" = NULL WHERE row = 1");
  expectFoundInTheDeep(", class 'ddr_Model', row 1: it has no identity\n");
}

TEST_F(DdrCheck, AnIdentityThatIsNoneIsFound) {
  save();
  sql("UPDATE class_ddr_Model SET \"#uid\" = x'00' WHERE row = 1");
  expectFoundInTheDeep(", class 'ddr_Model', row 1, field '#uid': it is damaged");
}

// Rows that cannot be read, with gaps between them: every one is named, and the walk goes on behind them.
TEST_F(DdrCheck, ManyUnreadableRowsAreNamedOneByOne) {
  save();
  sql("WITH RECURSIVE n(i) AS (VALUES(1) UNION ALL SELECT i + 1 FROM n WHERE i < 4) "
      "INSERT INTO class_ddr_UserData SELECT i * 1000, x'00' FROM n");
  sql("INSERT INTO class_ddr_UserData VALUES(5000, NULL)");
  std::string const found = check(Depth::Deep);
  for (char const* row : {"1000", "2000", "3000", "4000"}) {
    EXPECT_THAT(found, HasSubstr(std::string("class 'ddr_UserData', row ") + row + ", field '#uid'"));
  }
  EXPECT_THAT(found, HasSubstr("class 'ddr_UserData', row 5000: it has no identity"));
  EXPECT_EQ(std::count(found.begin(), found.end(), '\n'), 6);
}

TEST_F(DdrCheck, ObjectsThatHoldEachOtherAreFound) {
  save();
  // The note of the first model is made to hold itself.
  sql("UPDATE ddr_entry SET ClassID = 2228231, OID = 0 WHERE Key = 'note'");
  expectFoundInTheDeep("it leads back to an object that holds it, class ");
}

TEST_F(DdrCheck, AChainThatIsTooLongToReadIsFound) {
  save();
  // Result lists, each the one entry of the one before.
  sql("WITH RECURSIVE n(i) AS (VALUES(1) UNION ALL SELECT i + 1 FROM n WHERE i < 100000) "
      "INSERT INTO class_cls_ListObj SELECT 1000 + i, randomblob(16), 1000 + i FROM n");
  sql("WITH RECURSIVE n(i) AS (VALUES(1) UNION ALL SELECT i + 1 FROM n WHERE i < 99999) "
      "INSERT INTO ddr_entry SELECT 1000 + i, 0, '', 2162689, 1001 + i FROM n");
  expectFoundInTheDeep("it holds objects on more than 1000 levels\n");
}

TEST_F(DdrCheck, AMessageOfAnUnknownSeverityIsFound) {
  save();
  sql("UPDATE class_dia_Message SET severity = 7 WHERE text = 'second'");
  expectFoundInTheDeep(", class 'dia_Message', row 1: its severity 7 is none that this release knows\n");
}

TEST_F(DdrCheck, AMessageWithoutATextualTextIsFound) {
  save();
  sql("UPDATE class_dia_Message SET text = 5 WHERE text = 'second'");
  expectFoundInTheDeep(", class 'dia_Message', row 1, field 'text': it is damaged");
}

TEST_F(DdrCheck, DiagnosticsOfAWrongClassAreFound) {
  save();
  sql("UPDATE ddr_entry SET ClassID = 2228240, OID = 0 WHERE ClassID = 2359297");
  expectFoundInTheDeep("leads to an object of the wrong class, class 'ddr_UserData', row 0\n");
}

TEST_F(DdrCheck, AnIndexThatLacksARowIsFound) {
  save();
  sql("PRAGMA writable_schema = 1; UPDATE sqlite_master SET rootpage = (SELECT rootpage FROM sqlite_master "
      "WHERE name = 'class_ddr_UserData#uid') WHERE name = 'class_ddr_Result#uid'");
  expectFoundInTheDeep(": its pages are damaged: ");
}

TEST_F(DdrCheck, MoreFindingsThanAreListedAreCountedOff) {
  save();
  sql("WITH RECURSIVE n(i) AS (VALUES(1) UNION ALL SELECT i + 1 FROM n WHERE i < 500) "
      "INSERT INTO class_ddr_UserData SELECT i + 10, NULL FROM n");
  ddr_CheckResult const result = ddr_check(pathOf("a"), Depth::Deep);
  EXPECT_EQ(result.findings.size(), ddr_CheckResult::mostFindings);
  EXPECT_TRUE(result.moreFindings);
}

TEST_F(DdrCheck, NamesFromTheFileAreEscaped) {
  save();
  sql("UPDATE ddr_entry SET OID = 77, Key = 'a' || char(10) || 'b' WHERE Key = 'R1'");
  EXPECT_THAT(check(Depth::Deep), HasSubstr("the entry 'a\\nb' leads to row 77"));
}

} // namespace
