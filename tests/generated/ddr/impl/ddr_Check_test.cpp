// What a check says of sound and of damaged files.
#include "ddr_Check.h"

#include "child_process.h"
#include "database_test.h"
#include "fault_device.h"

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
  cow_String createSaved() {
    cow_String const name = create("a");
    database_test::save(name);
    return name;
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
      text += finding.isWarning ? "warning" : "";
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
      cow_String const model(numbered("M", number).c_str());
      record.models.Insert(model, ddr_Model(record.GetDbId(), model));
    }
  });
  database_test::save(name);
  close(name);
  EXPECT_LT(ddr_check(pathOf("a"), Depth::Quick).rowsChecked, 20);
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
  expectCannotTell("it is not an ordinary file");
}

TEST_F(DdrCheck, ADeviceCannotBeJudged) {
  ddr_CheckResult const result = ddr_check(cow_String("/dev/null"), Depth::Deep);
  EXPECT_EQ(result.status, ddr_CheckStatus::CannotTell);
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
  EXPECT_EQ(ddr_check(pathOf("a"), Depth::Quick).findings.at(0).consequence,
            "What it leads to cannot be read.");
}

TEST_F(DdrCheck, AReferenceWithoutItsRowReadsAsEmpty) {
  save();
  setInRecord("\"results#OID\" = NULL");
  expectFound(", class 'ddr_Ddb', row 1: the reference 'results' is only half set\n");
  EXPECT_EQ(ddr_check(pathOf("a"), Depth::Quick).findings.at(0).consequence, "It reads as empty.");
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

// A time after January 2038 is stored as one before 1970.
TEST_F(DdrCheck, TimesBefore1970AreWarnedOf) {
  save();
  setInRecord("modifyTime = -5, creationTime = -2000000000");
  sql("UPDATE ddr_header SET creation_time = 2294967296");
  for (Depth const depth : {Depth::Quick, Depth::Deep}) {
    EXPECT_EQ(check(depth),
              "0\n"
              "warning, class 'ddr_Ddb', row 1: its creationTime, -2000000000, lies before 1970 or "
              "after January 2038\n"
              "warning, class 'ddr_Ddb', row 1: its modifyTime, -5, lies before 1970 or after "
              "January 2038\n");
  }
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

TEST_F(DdrCheck, ARecordWithoutACreationTimeIsFound) {
  save();
  setInRecord("creationTime = NULL");
  sql("UPDATE ddr_header SET creation_time = 2000");
  expectFound("its creationTime, 0, is not that of the file's header, 2000\n");
}

TEST_F(DdrCheck, CreationTimesAreComparedAsOpeningComparesThem) {
  save();
  setInRecord("creationTime = 7");
  sql("UPDATE ddr_header SET creation_time = 4294967303");
  EXPECT_EQ(check(Depth::Deep), "0\n");
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

// ---- collections of the last record ----

TEST_F(DdrCheck, AReferenceToTheCollectionOfAnotherPurposeIsFound) {
  save();
  std::string const whole = readFile(path);
  for (char const* assignment : {"\"userData#OID\" = \"results#OID\"", "\"results#OID\" = \"models#OID\"",
                                 "\"models#OID\" = \"userData#OID\""}) {
    writeFile(path, whole);
    setInRecord(assignment);
    SCOPED_TRACE(assignment);
    expectFound(" leads to a collection that serves another purpose, class ");
  }
}

TEST_F(DdrCheck, DiagnosticsThatAreMessagesAreFound) {
  save();
  setInRecord("\"diagnosticData#OID\" = 1 - \"diagnosticData#OID\"");
  expectFound("leads to an object of the wrong class, class 'dia_Message', row 0\n");
}

// Also when neither holds anything.
TEST_F(DdrCheck, EmptyCollectionsOfTwoPurposesAreFound) {
  close(createSaved());
  setInRecord("\"results#OID\" = \"userData#OID\"");
  expectFound(" leads to a collection that serves another purpose, class 'cls_MapHeader', row ");
}

TEST_F(DdrCheck, AReferenceToAnotherKindOfCollectionIsFound) {
  save();
  std::string const whole = readFile(path);
  std::string const map = "2293762";
  std::string const list = "2293761";
  std::string const objects = "2162689";
  for (auto const& [name, kinds] :
       std::vector<std::pair<std::string, std::vector<std::string>>>{{"models", {list, objects}},
                                                                     {"results", {list, objects}},
                                                                     {"userData", {list, objects}},
                                                                     {"diagnosticData", {map, list}},
                                                                     {"productAddOns", {map, objects}}}) {
    for (std::string const& kind : kinds) {
      writeFile(path, whole);
      setInRecord("\"" + name + "#ClassID\" = " + kind + ", \"" + name + "#OID\" = 0");
      SCOPED_TRACE(name + " " + kind);
      expectFound("the reference '" + name + "' leads to an object of the wrong class, class 'cls_");
    }
  }
}

TEST_F(DdrCheck, AnUnsetCollectionIsFound) {
  save();
  std::string const whole = readFile(path);
  for (std::string const name : {"models", "results", "userData", "diagnosticData"}) {
    for (char const* none : {"NULL", "-1"}) {
      writeFile(path, whole);
      setInRecord("\"" + name + "#OID\" = " + none +
                  (none[0] == 'N' ? ", \"" + name + "#ClassID\" = NULL" : ""));
      SCOPED_TRACE(name + none);
      expectFound(", class 'ddr_Ddb', row 1: the reference '" + name + "' is not set\n");
    }
  }
}

TEST_F(DdrCheck, UnsetAddOnsAreSound) {
  save();
  sql("DELETE FROM ddr_entry WHERE Key = 'KORU'");
  setInRecord("\"productAddOns#OID\" = NULL, \"productAddOns#ClassID\" = NULL");
  EXPECT_EQ(check(Depth::Deep), "0\n");
  EXPECT_EQ(failureOf([&] { open("a"); }), "nothing");
}

TEST_F(DdrCheck, AReferenceToARowBelowNoneIsFound) {
  save();
  setInRecord("\"models#OID\" = -7");
  expectFound("the reference 'models' leads to row -7 of class 'cls_MapHeader', which is not there\n");
}

TEST_F(DdrCheck, ATextThatIsNoAddOnIsFound) {
  save();
  std::string const whole = readFile(path);
  std::string const handle = runSql(path, "SELECT \"Target#Handle\" FROM class_cls_ListHeader");
  for (char const* text : {"'OTHER'", "''", "NULL", "'koru'"}) {
    writeFile(path, whole);
    sql("INSERT INTO ddr_entry VALUES(" + handle + ", 99, " + text + ", 0, -1)");
    SCOPED_TRACE(text);
    EXPECT_NE(failureOf([&] { open("a"); }), "nothing");
    for (Depth const depth : {Depth::Quick, Depth::Deep}) {
      EXPECT_THAT(check(depth), StartsWith("1\n, class 'cls_ListHeader', row 0"));
    }
  }
  writeFile(path, whole);
  sql("INSERT INTO ddr_entry VALUES(" + handle + ", 99, 'OTHER', 0, -1)");
  expectFound("the entry at place 99, 'OTHER', is no add-on product of this release\n");
}

TEST_F(DdrCheck, AttributesThatAreNotListedAreFound) {
  save();
  sql("DELETE FROM ddr_attribute");
  expectFound(
      ", class 'ddr_Ddb': its attribute 'models' is missing in the class list or differs from version "
      "848\n");
}

TEST_F(DdrCheck, AttributesThatAreListedOtherwiseAreFound) {
  save();
  std::string const whole = readFile(path);
  for (std::string const listed : {"element = 4711", "collection = 0", "kind = 11"}) {
    writeFile(path, whole);
    sql("UPDATE ddr_attribute SET " + listed + " WHERE name = 'results'");
    SCOPED_TRACE(listed);
    expectFound(
        ", class 'ddr_Ddb': its attribute 'results' is missing in the class list or differs from version "
        "848\n");
  }
}

// What the objects in a collection are cannot be told then, so none is wrong.
TEST_F(DdrCheck, ACollectionOfAClassThatIsNotListedIsJudgedByItsKind) {
  save();
  sql("UPDATE ddr_attribute SET element = 4711 WHERE name = 'models'");
  EXPECT_THAT(check(Depth::Deep), testing::Not(HasSubstr("wrong class")));
  setInRecord("\"models#ClassID\" = 2228225, \"models#OID\" = 0");
  EXPECT_THAT(check(Depth::Deep), HasSubstr("the reference 'models' leads to an object of the wrong class"));
}

TEST_F(DdrCheck, AReferenceThatMayLeadToAnyClassIsSound) {
  save();
  sql("UPDATE " + tableOf(path, note_Extension::TypeId()) +
      " SET \"part#ClassID\" = 2228225, \"part#OID\" = 0");
  expectFoundInTheDeep(
      "the reference 'part' leads to an object of the wrong class, class 'ddr_Result', row 0\n");
  sql("UPDATE ddr_attribute SET element = 1 WHERE name = 'part'");
  EXPECT_EQ(check(Depth::Deep), "0\n");
}

TEST_F(DdrCheck, AHandleOfAnotherNameMakesNoCollection) {
  save();
  sql("UPDATE ddr_attribute SET name = 'Other#Handle' WHERE class = (SELECT row FROM ddr_class WHERE "
      "\"Class Name\" = 'cls_MapHeader')");
  expectFound(", class 'cls_MapHeader': its table has no column for 'Other#Handle'\n");
  expectFound("the reference 'models' leads to an object of the wrong class, class 'cls_MapHeader', row ");
}

// Such a layout is converted before it is read, so nobody reads it by the rules of this release.
TEST_F(DdrCheck, AnOlderVersionIsNotComparedWithThisOne) {
  save();
  sql("UPDATE ddr_attribute SET element = 4711 WHERE name = 'modelName'");
  expectFound(", class 'ddr_Model': its attribute 'modelName' is missing in the class list");
  sql(R"(UPDATE ddr_class SET "Class Version" = 400 WHERE "Class Name" = 'ddr_Model')");
  EXPECT_EQ(check(Depth::Deep), "0\n");
}

TEST_F(DdrCheck, AFileThatStopsBeingReadableCannotBeJudged) {
  save();
  fault_device device(folder.path());
  int failed = 0;
  for (Depth const depth : {Depth::Quick, Depth::Deep}) {
    for (int number = 1;; ++number) {
      device.start({device_call::Read, number, device_fault::Effect::Error, EIO, true});
      ddr_CheckResult const result = ddr_check(pathOf("a"), depth);
      device.stop();
      if (device.faults() == 0) {
        EXPECT_EQ(result.status, ddr_CheckStatus::Sound);
        break;
      }
      ++failed;
      EXPECT_EQ(result.status, ddr_CheckStatus::CannotTell) << "read " << number;
      ASSERT_EQ(result.findings.size(), 1U);
    }
  }
  EXPECT_GT(failed, 10);
}

// What is kept of a file in memory has given way to other parts of it, and is read again.
TEST_F(DdrCheck, ALargeFileThatStopsBeingReadableAtTheEndCannotBeJudged) {
  save();
  setInRecord("description = printf('%.*c', 20000, 'x')");
  for (int number = 0; number < 4; ++number) {
    sql("CREATE TABLE notes" + std::to_string(number) + "(" + std::string(900'000, 'a') + ")");
  }
  fault_device device(folder.path());
  device.start();
  EXPECT_EQ(check(Depth::Deep), "0\n");
  device.stop();
  int const reads = device.calls(device_call::Read);
  for (int number = reads - 8; number <= reads; ++number) {
    device.start({device_call::Read, number, device_fault::Effect::Error, EIO, true});
    ddr_CheckResult const result = ddr_check(pathOf("a"), Depth::Deep);
    device.stop();
    EXPECT_EQ(result.status, ddr_CheckStatus::CannotTell) << "read " << number << " of " << reads;
  }
}

TEST_F(DdrCheck, AMissingTableOfEntriesIsFound) {
  save();
  sql("DROP TABLE ddr_entry");
  expectFound("it has no table 'ddr_entry'");
}

TEST_F(DdrCheck, AMessageTimeBeyondTheNumbersIsFound) {
  save();
  sql("UPDATE class_dia_Message SET time = 5000000000 WHERE text = 'second'");
  expectFound(", class 'dia_Message', row 1, field 'time': it is damaged");
}

TEST_F(DdrCheck, AWrongBaseClassIsFound) {
  save();
  sql(R"(UPDATE ddr_class SET "Base Type Id" = 4711 WHERE "Class Name" = 'ddr_Model')");
  expectFound(", class 'ddr_Model': its base class, 4711, is not that of version 874\n");
}

TEST_F(DdrCheck, NewerVersionsAreWarnedOf) {
  save();
  setInRecord("ddbVersion = 892");
  EXPECT_EQ(check(Depth::Deep), "0\nwarning, class 'ddr_Ddb', row 1: its ddbVersion, 892, is newer than this "
                                "release knows, 891\n");
  setInRecord("ddbVersion = 891");
  sql(R"(UPDATE ddr_class SET "Class Version" = 99999 WHERE "Class Name" = 'ddr_Ddb')");
  EXPECT_EQ(check(Depth::Deep),
            "0\nwarning, class 'ddr_Ddb': its version, 99999, is newer than this release knows, 848\n");
}

// Whoever has rows but no record was saved once, so another save is no remedy.
TEST_F(DdrCheck, RecordsThatTheClassListHidesAreFound) {
  save();
  std::string const whole = readFile(path);
  for (char const* assignment : {"\"Type Id\" = 4711", "\"Class Table\" = NULL"}) {
    writeFile(path, whole);
    sql(std::string("UPDATE ddr_class SET ") + assignment + " WHERE \"Class Name\" = 'ddr_Ddb'");
    SCOPED_TRACE(assignment);
    expectFound(": its database records cannot be found\n");
    EXPECT_THAT(check(Depth::Deep), Not(HasSubstr("it holds no database record")));
  }
}

TEST_F(DdrCheck, OneFaultIsToldOnce) {
  save();
  sql("DROP TABLE class_ddr_UserData");
  std::string const found = check(Depth::Deep);
  std::string const fault = ", class 'ddr_UserData': it is damaged: its table is missing\n";
  ASSERT_THAT(found, HasSubstr(fault));
  EXPECT_EQ(found.find(fault), found.rfind(fault));
}

// Every cell of the last record and of the entries, with values that could be meant: what the deep check
// calls sound opens and lists all it holds, and what does not open the quick check finds too.
TEST_F(DdrCheck, WhatIsSoundOpens) {
  save();
  std::string const whole = readFile(path);
  std::vector<std::string> changes;
  for (std::string const name : {"models", "results", "userData", "diagnosticData", "productAddOns"}) {
    for (char const* row : {"NULL", "-7", "-1", "0", "1", "77"}) {
      changes.push_back("UPDATE class_ddr_Ddb SET \"" + name + "#OID\" = " + row + " WHERE row = 1");
      for (char const* header : {"NULL", "2293761", "2293762", "2162689", "2228225"}) {
        changes.push_back("UPDATE class_ddr_Ddb SET \"" + name + "#OID\" = " + row + ", \"" + name +
                          "#ClassID\" = " + header + " WHERE row = 1");
      }
    }
  }
  for (char const* column : {"name", "modifyTime", "creationTime", "analysisVersion", "sequenceData",
                             "onlyHasUserDefinedData", "description", "ddbVersion"}) {
    for (char const* value : {"NULL", "''", "-1", "5000000000", "x'ff'", "0.5"}) {
      changes.push_back(std::string("UPDATE class_ddr_Ddb SET ") + column + " = " + value + " WHERE row = 1");
    }
  }
  for (char const* assignment :
       {"Key = ''", "Key = NULL", "Key = 'OTHER'", "ClassID = 0", "ClassID = 2228240", "ClassID = 4711",
        "OID = -1", "OID = 77", "ClassID = 0, OID = -1"}) {
    int const entries = std::stoi(runSql(path, "SELECT count(*) FROM ddr_entry"));
    for (int entry = 0; entry < entries; ++entry) {
      changes.push_back(
          std::string("UPDATE ddr_entry SET ") + assignment +
          " WHERE (handle, position) = (SELECT handle, position FROM ddr_entry ORDER BY handle, "
          "position LIMIT 1 OFFSET " +
          std::to_string(entry) + ")");
    }
  }
  int sound = 0;
  for (std::string const& change : changes) {
    writeFile(path, whole);
    sql(change);
    bool const isSound = ddr_check(pathOf("a"), Depth::Deep).status == ddr_CheckStatus::Sound;
    bool const isSoundAtFirstSight = ddr_check(pathOf("a"), Depth::Quick).status == ddr_CheckStatus::Sound;
    std::string const opening = failureOf([&] {
      restart();
      open("a");
    });
    std::string const reading = failureOf([&] { stored("a"); });
    // Whether a class is an extension is known to its module, not to the file.
    bool const isRead =
        reading == "nothing" || reading.find("no module of this process defines") != std::string::npos;
    EXPECT_TRUE(!isSound || isRead) << change << ": " << reading;
    EXPECT_TRUE(!isSoundAtFirstSight || opening == "nothing") << change << ": " << opening;
    sound += isSound ? 1 : 0;
  }
  EXPECT_GT(sound, 10);
  EXPECT_LT(sound, static_cast<int>(changes.size()) / 2);
}

// ---- what only the deep check sees ----

TEST_F(DdrCheck, ANextHandleThatIsInUseIsFound) {
  save();
  std::string const whole = readFile(path);
  for (char const* next : {"1", "2", "0", "-1", "(SELECT max(\"Target#Handle\") FROM class_cls_MapHeader)"}) {
    writeFile(path, whole);
    sql(std::string("UPDATE ddr_header SET next_handle = ") + next);
    SCOPED_TRACE(next);
    expectFoundInTheDeep(": its header gives collections handles from ");
  }
}

// What a low number in the header would mix up, a save keeps apart.
TEST_F(DdrCheck, ASaveAfterALowNextHandleIsSound) {
  close(createSaved());
  sql("UPDATE ddr_header SET next_handle = 1");
  cow_String const name = open("a");
  writeModel(name, "M1", "one");
  edit(name, [](ddr_Ddb& record) { record.results.Insert("R1", ddr_Result()); });
  database_test::save(name);
  close(name);
  EXPECT_EQ(check(Depth::Deep), "0\n");
}

TEST_F(DdrCheck, AnEntryWithoutANameIsFound) {
  save();
  sql("UPDATE ddr_entry SET Key = NULL WHERE Key = 'M1'");
  expectFoundInTheDeep(" has no name\n");
}

TEST_F(DdrCheck, AnEntryOfAnEmptyNameIsWarnedOf) {
  save();
  sql("UPDATE ddr_entry SET Key = '' WHERE Key = 'M1'");
  EXPECT_THAT(check(Depth::Deep),
              AllOf(StartsWith("0\nwarning, class 'cls_MapHeader', row "), HasSubstr(" has no name\n")));
}

TEST_F(DdrCheck, AnEntryThatLeadsNowhereIsFoundWithItsName) {
  save();
  sql("UPDATE ddr_entry SET OID = 77 WHERE Key = 'R1'");
  expectFound("the entry 'R1' leads to row 77 of class 'ddr_Result', which is not there\n");
}

TEST_F(DdrCheck, AnEntryOfNoObjectIsFound) {
  save();
  sql("UPDATE ddr_entry SET ClassID = 0, OID = -1 WHERE Key = 'R1'");
  expectFound("the entry 'R1' leads to no object\n");
}

TEST_F(DdrCheck, AnEntryOfAWrongClassIsFound) {
  save();
  sql("UPDATE ddr_entry SET ClassID = 2228240, OID = 0 WHERE Key = 'R1'");
  expectFound("the entry 'R1' leads to an object of the wrong class, class 'ddr_UserData', row 0\n");
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
  expectFound(", class 'cls_ListObj', row 1: it shares its entries with another collection (class "
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
  expectFound(", class 'dia_Message', row 1: its severity 7 is none that this release knows\n");
}

TEST_F(DdrCheck, AMessageOfASeverityBelowAllIsFound) {
  save();
  sql("UPDATE class_dia_Message SET severity = -1 WHERE text = 'second'");
  expectFound(", class 'dia_Message', row 1: its severity -1 is none that this release knows\n");
}

TEST_F(DdrCheck, ASeverityThatIsNoNumberIsFoundOnce) {
  save();
  sql("UPDATE class_dia_Message SET severity = 'high' WHERE text = 'second'");
  expectFound(", class 'dia_Message', row 1, field 'severity': it is damaged");
  EXPECT_EQ(ddr_check(pathOf("a"), Depth::Deep).findings.size(), 1U);
}

TEST_F(DdrCheck, AMessageWithoutATextualTextIsFound) {
  save();
  sql("UPDATE class_dia_Message SET text = 5 WHERE text = 'second'");
  expectFound(", class 'dia_Message', row 1, field 'text': it is damaged");
}

TEST_F(DdrCheck, DiagnosticsOfAWrongClassAreFound) {
  save();
  sql("UPDATE ddr_entry SET ClassID = 2228240, OID = 0 WHERE ClassID = 2359297");
  expectFound("leads to an object of the wrong class, class 'ddr_UserData', row 0\n");
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

TEST_F(DdrCheck, TheLastFindingThatFitsIsNoneTooMany) {
  save();
  std::string const add = "WITH RECURSIVE n(i) AS (VALUES(1) UNION ALL SELECT i + 1 FROM n WHERE i < ";
  std::string const rows = ") INSERT INTO class_ddr_UserData SELECT i + 10, NULL FROM n";
  sql(add + std::to_string(ddr_CheckResult::mostFindings) + rows);
  ddr_CheckResult const result = ddr_check(pathOf("a"), Depth::Deep);
  EXPECT_EQ(result.findings.size(), ddr_CheckResult::mostFindings);
  EXPECT_FALSE(result.moreFindings);
  sql("INSERT INTO class_ddr_UserData VALUES(1000, NULL)");
  EXPECT_TRUE(ddr_check(pathOf("a"), Depth::Deep).moreFindings);
}

TEST_F(DdrCheck, AMissingIndexOfNamesIsAWarningOfTheDeep) {
  save();
  sql("DROP INDEX ddr_entry_key");
  EXPECT_EQ(check(Depth::Quick), "0\n");
  EXPECT_EQ(check(Depth::Deep), "0\nwarning: its index of the names of entries is missing\n");
}

TEST_F(DdrCheck, AMissingIndexOfIdentitiesIsAWarningOfTheDeep) {
  save();
  sql("DROP INDEX \"class_ddr_Model#uid\"");
  EXPECT_EQ(check(Depth::Quick), "0\n");
  EXPECT_EQ(check(Depth::Deep), "0\nwarning, class 'ddr_Model': its index of identities is missing\n");
}

TEST_F(DdrCheck, TheRemedyOfAMissingIndexMakesIt) {
  save();
  sql("DROP INDEX ddr_entry_key; DROP INDEX \"class_ddr_Model#uid\"");
  for (ddr_Finding const& finding : ddr_check(pathOf("a"), Depth::Deep).findings) {
    std::string const remedy = finding.remedy.substr(finding.remedy.find("CREATE INDEX"));
    sql(remedy.substr(0, remedy.rfind('.')));
  }
  EXPECT_EQ(check(Depth::Deep), "0\n");
}

TEST_F(DdrCheck, TriggersAndViewsOfOthersAreWarningsOfTheDeep) {
  save();
  sql("CREATE VIEW names AS SELECT Key FROM ddr_entry;"
      "CREATE TRIGGER class_ddr_Model AFTER INSERT ON class_ddr_Model BEGIN DELETE FROM ddr_entry; END");
  EXPECT_EQ(check(Depth::Quick), "0\n");
  EXPECT_EQ(check(Depth::Deep),
            "0\nwarning: it holds view 'names', which no database has from this application\n"
            "warning: it holds trigger 'class_ddr_Model', which no database has from this application\n");
}

TEST_F(DdrCheck, TablesOfOthersAreNotMentioned) {
  save();
  sql("CREATE TABLE notes(a); CREATE INDEX notesByA ON notes(a)");
  EXPECT_EQ(check(Depth::Deep), "0\n");
}

TEST_F(DdrCheck, TwoEntriesThatShareAnObjectAreFound) {
  save();
  sql("UPDATE ddr_entry SET OID = (SELECT OID FROM ddr_entry WHERE Key = 'M1') WHERE Key = 'M2'");
  expectFoundInTheDeep("the entry 'M2' leads to the object of another entry, class 'ddr_Model', row ");
}

TEST_F(DdrCheck, NamesFromTheFileAreEscaped) {
  save();
  sql("UPDATE ddr_entry SET OID = 77, Key = 'a' || char(10) || 'b' WHERE Key = 'R1'");
  EXPECT_THAT(check(Depth::Deep), HasSubstr("the entry 'a\\nb' leads to row 77"));
}

} // namespace
