// Tests of rfm_Rebuild on files that others wrote into, and when it must stop.
#include "rfm_Rebuild.h"
#include "rfm_TestFiles.h"

#include "fault_device.h"
#include "shared_pages.h"

#include <cerrno>
#include <filesystem>
#include <gmock/gmock.h>
#include <optional>
#include <sqlite3.h>
#include <stdexcept>
#include <utility>

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

struct RebuildTest : rfm_Test {
  std::string const oldPath = folder.path("old file_1.odb");
  std::string const newPath = folder.path("new.odb");

  RebuildTest() {
    rfm_Database database = createFile(oldPath);
    saveModels(database, {"a", "b"});
  }
  // Makes some thousand models in one table and one collection.
  void makeManyModels() const {
    rfm_Database database = openFile(oldPath, utl_FileAccess::Write);
    rfm_Transaction transaction(database);
    for (int number = 0; number < 3000; ++number) {
      addModel(database, numbered("model", number));
    }
    transaction.Commit();
  }
  rfm_Database begin() const {
    return rfm_Database::Create(rfm_File::Open(cow_String(newPath), utl_FileAccess::Create, true), "D0", "",
                                creationTime);
  }
  // Does something with a file that is being rebuilt, in its transaction.
  // @returns what went wrong
  std::string rebuild(std::function<void(rfm_Rebuild&, rfm_Database&)> const& work) {
    return failureOf([&] {
      rfm_Database const source = openFile(oldPath, utl_FileAccess::Read);
      rfm_Database made = begin();
      rfm_Rebuild rebuilding(source, made);
      rfm_ReadScope const scope(source);
      rfm_Transaction transaction(made);
      for (rfm_ClassEntry const& entry : source.Classes()) {
        made.AddClass(entry);
      }
      work(rebuilding, made);
      transaction.Commit();
      made.Publish();
    });
  }
  // Copies the tables of others.
  // @returns what could not be copied, or what went wrong
  std::string copyTables() {
    std::string missing;
    std::string const failure = rebuild([&](rfm_Rebuild& rebuilding, rfm_Database&) {
      for (std::string const& name : rebuilding.CopyFurtherTables([] {})) {
        missing += name + ";";
      }
    });
    return failure == "nothing" ? missing : failure;
  }
  // Gives a table of others a definition that no program would have made.
  void makeTable(std::string const& definition) const {
    runSql(oldPath, "CREATE TABLE notes(a); INSERT INTO notes VALUES(1); PRAGMA writable_schema = on;"
                    "UPDATE sqlite_schema SET sql = '" +
                        definition + "' WHERE name = 'notes'");
  }
  static std::size_t pageOf(std::string const& file, std::string const& table) {
    return std::stoul(runSql(file, "SELECT rootpage FROM sqlite_schema WHERE name = '" + table + "'"));
  }
  // Overwrites the page to which the middle of the top page of a table leads.
  void damageMiddle(std::string const& table) const {
    constexpr std::size_t pageSize = 4096;
    std::string bytes = readFile(oldPath);
    auto const number = [&](std::size_t place, std::size_t size) {
      std::size_t value = 0;
      for (std::size_t byte = 0; byte < size; ++byte) {
        value = value << 8U | static_cast<unsigned char>(bytes[place + byte]);
      }
      return value;
    };
    std::size_t const top = (pageOf(oldPath, table) - 1) * pageSize;
    ASSERT_LE(bytes[top], 5) << "the table must have more than one level";
    std::size_t const cell = number(top + 12 + 2 * (number(top + 3, 2) / 2), 2);
    bytes[(number(top + cell, 4) - 1) * pageSize] = '\x7f';
    writeFile(oldPath, bytes);
  }
  fault_device device{folder.path()};
};

// Before its second opening, at that moment, or when it is first read.
TEST_F(RebuildTest, AnotherFileUnderTheNameOfTheOldOneIsNotCopied) {
  std::string const other = folder.path("other.odb");
  std::string const sound = readFile(oldPath);
  for (auto const moment :
       {std::optional<device_call>(), std::optional(device_call::Open), std::optional(device_call::Read)}) {
    rfm_Database const source = openFile(oldPath, utl_FileAccess::Read);
    rfm_ReadScope const scope(source);
    rfm_Database made = begin();
    writeFile(other, sound);
    bool isReplaced = false;
    auto const replace = [&] {
      std::filesystem::rename(other, oldPath);
      isReplaced = true;
    };
    if (moment) {
      device.start();
      device.before(*moment, 1, replace);
    } else {
      replace();
    }
    EXPECT_THAT(failureOf([&] { rfm_Rebuild(source, made); }),
                StartsWith("Moved: Database file '" + oldPath + "': it was replaced, renamed or deleted"))
        << (moment ? nameOf(*moment) : "at once");
    device.stop();
    EXPECT_TRUE(isReplaced);
  }
}

TEST_F(RebuildTest, ACopyHoldsTheSame) {
  EXPECT_EQ(rebuild([](rfm_Rebuild& rebuilding, rfm_Database&) {
              rebuilding.CopyRows(modelType, 2, {});
              rebuilding.CopyRows(resultType, 0, {});
              rebuilding.CopyEntries(2, {});
            }),
            "nothing");
  EXPECT_EQ(contents(newPath), contents(oldPath));
}

// A row that a damaged page hides from whoever asks in order is not left out without a word.
TEST_F(RebuildTest, WhatIsCountedMustBeFound) {
  EXPECT_EQ(rebuild([](rfm_Rebuild& rebuilding, rfm_Database&) { rebuilding.CopyRows(modelType, 3, {}); }),
            "Damaged: Database file '" + oldPath +
                "', class 'ddr_Model': it is damaged: 3 of its rows are "
                "counted, and 2 are found. Restore it from a backup.");
  EXPECT_EQ(rebuild([](rfm_Rebuild& rebuilding, rfm_Database&) { rebuilding.CopyEntries(1, {}); }),
            "Damaged: Database file '" + oldPath +
                "': it is damaged: 1 of its entries are counted, and 2 are "
                "found. Restore it from a backup.");
  EXPECT_FALSE(std::filesystem::exists(newPath));
}

TEST_F(RebuildTest, OnlyAFileThatNobodySeesIsFilled) {
  rfm_Database const source = openFile(oldPath, utl_FileAccess::Read);
  rfm_Database made = begin();
  {
    rfm_Transaction const transaction(made);
    EXPECT_THAT(failureOf([&] { rfm_Rebuild(source, made); }), StartsWith("exception: "));
  }
  made.Publish();
  EXPECT_THAT(failureOf([&] { rfm_Rebuild(source, made); }), StartsWith("exception: "));
}

TEST_F(RebuildTest, AFileIsNotConvertedIntoItself) {
  rfm_Database const source = openFile(oldPath, utl_FileAccess::Read);
  auto const wantOther = [&](std::string const& name) {
    return failureOf([&] { rfm_Rebuild::WantOtherFile(source.File(), cow_String(name)); });
  };
  std::filesystem::create_symlink(oldPath, path);
  EXPECT_THAT(wantOther(path), AllOf(StartsWith("Other: Database file '" + path + "'"),
                                     HasSubstr("the file that is to be converted")));
  EXPECT_EQ(wantOther(newPath), "nothing");
  EXPECT_EQ(wantOther("/dev/null"), "nothing") << "on another device";
  std::filesystem::remove(oldPath);
  EXPECT_EQ(wantOther(oldPath), "nothing");
}

TEST_F(RebuildTest, ATableWhoseFunctionIsNotKnownHereIsNamed) {
  makeTable("CREATE TABLE notes(a CHECK (of_another_program(a)))");
  EXPECT_EQ(copyTables(), "table 'notes';");
  EXPECT_EQ(runSql(newPath, "SELECT count(*) FROM sqlite_schema WHERE name = 'notes'"), "0");
}

TEST_F(RebuildTest, ATableWhoseRowsCannotBeCopiedIsNamedAndNotThere) {
  makeTable("CREATE TABLE notes(a BLOB) STRICT");
  EXPECT_EQ(copyTables(), "table 'notes';");
  EXPECT_EQ(runSql(newPath, "SELECT count(*) FROM sqlite_schema WHERE name = 'notes'"), "0");
}

// What a table says of rows against its conditions must neither end the copy of all else nor lose rows
// unsaid.
TEST_F(RebuildTest, ATableWhoseRowsAreAgainstItsConditionsIsNamedWhateverItSaysOfThem) {
  for (char const* const action : {"ROLLBACK", "ABORT", "FAIL", "IGNORE", "REPLACE"}) {
    runSql(oldPath, "DROP TABLE IF EXISTS notes");
    makeTable(std::string("CREATE TABLE notes(a, b NOT NULL ON CONFLICT ") + action + ")");
    EXPECT_EQ(copyTables(), "table 'notes';") << action;
    EXPECT_EQ(openFile(newPath, utl_FileAccess::Read).CreationTime(), creationTime) << action;
  }
}

TEST_F(RebuildTest, RowsAgainstTheConditionOfTheirTableAreCopied) {
  makeTable("CREATE TABLE notes(a CHECK (a > 5))");
  EXPECT_EQ(copyTables(), "");
  EXPECT_EQ(runSql(newPath, "SELECT a FROM notes"), runSql(oldPath, "SELECT a FROM notes"));
}

TEST_F(RebuildTest, ASecondStatementInADefinitionIsNotRun) {
  makeTable("CREATE TABLE notes(a); DROP TABLE ddr_header");
  EXPECT_EQ(copyTables(), "table 'notes';");
  EXPECT_EQ(openFile(newPath, utl_FileAccess::Read).CreationTime(), creationTime);
}

TEST_F(RebuildTest, ATableThatIsListedUnderTwoNamesIsNamed) {
  runSql(oldPath, "CREATE TABLE notes(a); PRAGMA writable_schema = on;"
                  "UPDATE sqlite_schema SET tbl_name = 'NOTES' WHERE name = 'notes'");
  EXPECT_EQ(copyTables(), "table 'notes';");
}

TEST_F(RebuildTest, AnInterimTableIsMadeOnce) {
  EXPECT_EQ(rebuild([](rfm_Rebuild& rebuilding, rfm_Database&) {
              rebuilding.MakeInterimTable(modelType).AppendRow();
              EXPECT_EQ(rebuilding.MakeInterimTable(modelType).Length(), 1);
            }),
            "nothing");
}

TEST_F(RebuildTest, ATableThatHidesItsRowNumbersIsCopied) {
  runSql(oldPath, "CREATE TABLE notes(rowid, _rowid_, oid); INSERT INTO notes VALUES(1, 2, 3)");
  EXPECT_EQ(copyTables(), "");
  EXPECT_EQ(runSql(newPath, "SELECT * FROM notes"), "1 2 3");
}

TEST_F(RebuildTest, AQuestionThatThrowsStopsTheCopy) {
  runSql(oldPath, "CREATE TABLE notes(a); WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
                  "WHERE i < 100000) INSERT INTO notes SELECT i FROM n");
  int asked = 0;
  EXPECT_EQ(rebuild([&](rfm_Rebuild& rebuilding, rfm_Database&) {
              rebuilding.CopyFurtherTables([&] {
                if (++asked == 2) {
                  throw std::runtime_error("enough");
                }
              });
            }),
            "exception: enough");
  EXPECT_EQ(asked, 2);
  EXPECT_FALSE(std::filesystem::exists(newPath));
}

TEST_F(RebuildTest, ADamagedTableOfOthersIsDamage) {
  runSql(oldPath, "CREATE TABLE notes(a); INSERT INTO notes VALUES(1)");
  std::string bytes = readFile(oldPath);
  bytes[(pageOf(oldPath, "notes") - 1) * 4096] = '\x7f';
  writeFile(oldPath, bytes);
  EXPECT_THAT(copyTables(), StartsWith("Damaged: "));
}

struct Failure {
  int errorNumber;
  char const* words;
};

TEST_F(RebuildTest, ADeviceThatFailsWhileATableOfOthersIsCopiedIsTold) {
  runSql(oldPath, "CREATE TABLE notes(a); WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
                  "WHERE i < 12) INSERT INTO notes SELECT zeroblob(1000000) FROM n");
  auto const copyWith = [&](device_fault const& fault) {
    std::string const failure = rebuild([&](rfm_Rebuild& rebuilding, rfm_Database&) {
      device.start(fault);
      rebuilding.CopyFurtherTables([] {});
    });
    device.stop();
    EXPECT_GT(device.faults(), 0);
    return failure;
  };
  for (Failure const& failure : {Failure{ENOSPC, "no space left"}, Failure{EDQUOT, "no space left"},
                                 Failure{EIO, "failed while writing"}}) {
    EXPECT_THAT(copyWith({device_call::Write, 1, device_fault::Effect::Error, failure.errorNumber, true}),
                AllOf(StartsWith("Full: Database file '" + newPath + "'"), HasSubstr(failure.words)));
  }
  EXPECT_FALSE(std::filesystem::exists(newPath));
}

// What is sorted for an index does not stay in memory.
TEST_F(RebuildTest, AnIndexThatCannotBeSortedOnTheDeviceIsToldWithTheReason) {
  runSql(oldPath, "CREATE TABLE notes(a); WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
                  "WHERE i < 20) INSERT INTO notes SELECT zeroblob(1000000) FROM n;"
                  "CREATE INDEX notesByA ON notes(a)");
  char* const before = std::exchange(sqlite3_temp_directory, sqlite3_mprintf("%s", folder.path().c_str()));
  std::string const failure = rebuild([&](rfm_Rebuild& rebuilding, rfm_Database&) {
    device.start({device_call::Open, 1, device_fault::Effect::Error, EMFILE, true});
    rebuilding.CopyFurtherTables([] {});
  });
  device.stop();
  sqlite3_free(std::exchange(sqlite3_temp_directory, before));
  EXPECT_GT(device.faults(), 0);
  EXPECT_THAT(failure, AllOf(StartsWith("Other: Database file '" + newPath + "'"),
                             HasSubstr("cannot be opened (Too many open files). Close other files")));
  EXPECT_FALSE(std::filesystem::exists(newPath));
}

TEST_F(RebuildTest, ADamagedRowIsToldOfTheOldFile) {
  makeManyModels();
  damageMiddle("class_ddr_Model");
  EXPECT_THAT(
      rebuild([](rfm_Rebuild& rebuilding, rfm_Database&) { rebuilding.CopyRows(modelType, 3002, {}); }),
      AllOf(StartsWith("Damaged: Database file '" + oldPath + "', class 'ddr_Model', row "),
            Not(HasSubstr("row 0:"))));
}

TEST_F(RebuildTest, ADamagedEntryIsToldOfTheOldFile) {
  makeManyModels();
  damageMiddle("ddr_entry");
  EXPECT_THAT(rebuild([](rfm_Rebuild& rebuilding, rfm_Database&) { rebuilding.CopyEntries(3002, {}); }),
              AllOf(StartsWith("Damaged: Database file '" + oldPath + "': ")));
}

TEST_F(RebuildTest, AFullDeviceIsToldOfTheNewFile) {
  runSql(oldPath, "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 12) "
                  "INSERT INTO class_ddr_Model(row, modelName) SELECT i + 10, zeroblob(1000000) FROM n");
  std::string const failure = rebuild([&](rfm_Rebuild& rebuilding, rfm_Database&) {
    device.start({device_call::Write, 1, device_fault::Effect::Error, ENOSPC, true});
    rebuilding.CopyRows(modelType, 14, {});
  });
  device.stop();
  EXPECT_GT(device.faults(), 0);
  EXPECT_THAT(failure,
              AllOf(StartsWith("Full: Database file '" + newPath + "'"), HasSubstr("no space left")));
}

// What is wrong with the device is not all that is wrong.
TEST_F(RebuildTest, RowsThatShareTheirPagesAreToldOfTheOldFile) {
  ASSERT_GT(share_long_text(oldPath, "class_ddr_Model", long_row("class_ddr_Model", "modelName", 10),
                            short_rows("class_ddr_Model", "modelName", 11, 20)),
            10);
  std::string const failure = rebuild([&](rfm_Rebuild& rebuilding, rfm_Database&) {
    device.start({device_call::Write, 1, device_fault::Effect::Error, ENOSPC, true});
    rebuilding.CopyRows(modelType, 22, {});
  });
  device.stop();
  EXPECT_GT(device.faults(), 0);
  EXPECT_THAT(failure, AllOf(StartsWith("Damaged: Database file '" + oldPath + "', class 'ddr_Model', row "),
                             HasSubstr("lead to the same pages")));
}

TEST_F(RebuildTest, AFileThatIsNoDatabaseAnyMoreIsNotCopied) {
  rfm_Database const source = openFile(oldPath, utl_FileAccess::Read);
  rfm_Database made = begin();
  std::filesystem::remove(oldPath);
  writeFile(oldPath, std::string(5000, 'x'));
  EXPECT_EQ(failureOf([&] { rfm_Rebuild(source, made); }),
            "NotADatabase: Database file '" + oldPath +
                "': it cannot be opened a second time to be copied (it is not a database). Check the name.");
}

TEST_F(RebuildTest, AFileThatCannotBeOpenedASecondTimeIsToldWithTheReason) {
  rfm_Database const source = openFile(oldPath, utl_FileAccess::Read);
  for (Failure const& failure :
       {Failure{EMFILE, "Too many open files"}, Failure{EIO, "Input/output error"},
        Failure{ENXIO, "No such device or address"}, Failure{ERANGE, "Numerical result out of range"}}) {
    device_call const call = failure.errorNumber == EMFILE ? device_call::Open : device_call::Read;
    rfm_Database made = begin();
    device.start({call, 1, device_fault::Effect::Error, failure.errorNumber, true});
    std::string const said = failureOf([&] { rfm_Rebuild(source, made); });
    device.stop();
    EXPECT_GT(device.faults(), 0);
    EXPECT_THAT(said, AllOf(StartsWith("Other: Database file '" + oldPath + "'"),
                            HasSubstr("a second time to be copied (" + std::string(failure.words) + ")")));
  }
}

TEST_F(RebuildTest, AFileThatIsDamagedMeanwhileIsNotCopied) {
  rfm_Database const source = openFile(oldPath, utl_FileAccess::Read);
  rfm_Database made = begin();
  std::string bytes = readFile(oldPath);
  bytes[100] = '\x7f';
  std::filesystem::remove(oldPath);
  writeFile(oldPath, bytes);
  EXPECT_THAT(failureOf([&] { rfm_Rebuild(source, made); }),
              AllOf(StartsWith("Damaged: Database file '" + oldPath +
                               "': it cannot be opened a second time to be copied (it is damaged"),
                    EndsWith("Restore it from a backup.")));
}

TEST_F(RebuildTest, AClassTakesNoNameThatIsTooLong) {
  cow_String const tooLong(std::string(1025, 'n'));
  EXPECT_THAT(rebuild([&](rfm_Rebuild& rebuilding, rfm_Database& made) {
                rfm_ClassEntry entry = *made.FindClass(modelType);
                entry.name = tooLong;
                rebuilding.ChangeClass(entry);
              }),
              HasSubstr("a class name is empty or too long"));
  EXPECT_THAT(rebuild([&](rfm_Rebuild& rebuilding, rfm_Database& made) {
                rfm_ClassEntry entry = *made.FindClass(modelType);
                entry.attributes[0].name = tooLong;
                rebuilding.ChangeClass(entry);
              }),
              AllOf(HasSubstr("class 'ddr_Model'"), HasSubstr("an attribute name is empty or too long")));
}

TEST_F(RebuildTest, AClassDoesNotTakeTheNameOfAnother) {
  EXPECT_THAT(rebuild([](rfm_Rebuild& rebuilding, rfm_Database& made) {
                rfm_ClassEntry entry = *made.FindClass(modelType);
                rebuilding.ChangeClass(entry);
                entry.name = "ddr_Result";
                rebuilding.ChangeClass(entry);
              }),
              AllOf(StartsWith("Other: Database file '" + oldPath + "', class 'ddr_Result'"),
                    HasSubstr("two classes of that name")));
}

TEST_F(RebuildTest, ATableThatIsWalkedGetsFurtherFields) {
  EXPECT_EQ(rebuild([](rfm_Rebuild& rebuilding, rfm_Database& made) {
              rebuilding.CopyRows(modelType, 2, {});
              {
                rfm_Table table = made.Table(modelType);
                EXPECT_EQ(table.ReadRow(-1).ReadFieldString("modelName"), cow_String("a"));
                rfm_ClassEntry entry = *made.FindClass(modelType);
                entry.attributes.push_back({"later", rfm_AttributeKind_Integer, 1, 0});
                rebuilding.ChangeClass(entry);
              }
              rfm_Table table = made.Table(modelType);
              EXPECT_EQ(table.ReadRow(1).ReadFieldInt("later"), 0);
            }),
            "nothing");
}

TEST_F(RebuildTest, EachRetiredTableIsKeptApart) {
  EXPECT_EQ(rebuild([](rfm_Rebuild& rebuilding, rfm_Database& made) {
              rebuilding.CopyRows(modelType, 2, {});
              made.TableForWriting(resultType).AppendRow();
              EXPECT_EQ(rebuilding.RetireTable(modelType).Length(), 2);
              EXPECT_EQ(rebuilding.RetireTable(resultType).Length(), 1);
              EXPECT_EQ(rebuilding.RetiredTable(modelType).Length(), 2);
              EXPECT_EQ(rebuilding.RetiredTable(resultType).Length(), 1);
              EXPECT_THAT(failureOf([&] { rebuilding.RetiredTable(99); }), StartsWith("exception: "));
              EXPECT_EQ(made.Table(modelType).Length(), 0);
              rebuilding.DropRetired();
            }),
            "nothing");
  EXPECT_EQ(runSql(newPath, "SELECT count(*) FROM sqlite_schema WHERE name LIKE 'retired%'"), "0");
}

TEST_F(RebuildTest, OnlyATableThatWasJustMadeIsRetired) {
  rfm_Database const source = openFile(oldPath, utl_FileAccess::Read);
  rfm_Database made = begin();
  rfm_Rebuild rebuilding(source, made);
  {
    rfm_Transaction transaction(made);
    made.AddClass(modelClass());
    made.AddClass(resultClass());
    addModel(made, "a");
    transaction.Commit();
  }
  rfm_Transaction const transaction(made);
  EXPECT_THAT(failureOf([&] { rebuilding.RetireTable(modelType); }), StartsWith("exception: "));
  EXPECT_THAT(failureOf([&] { rebuilding.RetireTable(resultType); }), StartsWith("exception: "));
}

TEST_F(RebuildTest, ARetirementThatIsTakenBackLeavesNothing) {
  EXPECT_EQ(rebuild([](rfm_Rebuild& rebuilding, rfm_Database&) {
              rebuilding.CopyRows(modelType, 2, {});
              rebuilding.RetireTable(modelType);
              throw std::runtime_error("enough");
            }),
            "exception: enough");
  EXPECT_THAT(folder.names(), ElementsAre("old file_1.odb"));
}

} // namespace
