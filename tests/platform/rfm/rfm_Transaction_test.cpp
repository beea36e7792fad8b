// Tests of rfm_Transaction: all or nothing, whatever fails, and what a save costs.
#include "rfm_TestFiles.h"

#include "child_process.h"
#include "fault_device.h"
#include "fault_vfs.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <optional>
#include <set>
#include <sqlite3.h>
#include <unistd.h>

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

struct TransactionTest : rfm_Test {
  // A save that touches everything: a new class, new rows, a changed row, new and removed entries, a handle.
  static void saveMuch(rfm_Database& database) {
    rfm_Transaction transaction(database);
    rfm_ClassEntry entry;
    entry.name = "later";
    entry.typeId = 99;
    entry.attributes = {{"Target#Handle", rfm_AttributeKind_Handle, 1, 0}};
    database.AddClass(entry);
    rfm_Table header = database.TableForWriting(99);
    header.Row().WriteFieldHandle("Target#Handle", database.NewHandle());
    header.AppendRow();
    rfm_Table table = database.TableForWriting(modelType);
    table.ReadRow(0);
    table.Row().WriteFieldString("modelName", "A");
    table.UpdateRow(-1);
    addModel(database, "z");
    database.Entries().Remove(1, "b");
    transaction.Commit();
  }
  std::string const before = "a=0 b=1 | a b";
  std::string const after = "a=0 z=2 | A b z";

  void createTwo() {
    rfm_Database database = createFile(path);
    saveModels(database, {"a", "b"});
  }
};

TEST_F(TransactionTest, ACommittedChangeIsThereAndARolledBackOneIsNot) {
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  {
    rfm_Transaction transaction(database);
    addModel(database, "c");
  }
  EXPECT_EQ(contents(database), before);
  saveMuch(database);
  EXPECT_EQ(contents(database), after);
  EXPECT_EQ(contents(path), after);
}

TEST_F(TransactionTest, ARollBackTakesClassesOutOfMemory) {
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  rfm_Table table = database.Table(resultType);
  {
    rfm_Transaction transaction(database);
    rfm_ClassEntry entry;
    entry.name = "later";
    entry.typeId = 99;
    database.AddClass(entry);
    database.TableForWriting(99).AppendRow();
    rfm_Table written = database.TableForWriting(resultType);
    written.AppendRow();
    EXPECT_EQ(table.Length(), 1);
    EXPECT_EQ(database.FindClass(resultType)->table, cow_String("class_ddr_Result"));
  }
  EXPECT_EQ(database.Classes().size(), 2U);
  EXPECT_EQ(database.FindClass(99), nullptr);
  EXPECT_TRUE(database.FindClass(resultType)->table.IsEmpty());
  EXPECT_EQ(table.Length(), 0);
  EXPECT_EQ(database.Table(99).Length(), 0);
  saveMuch(database);
  rfm_Database reader = openFile(path, utl_FileAccess::Read);
  EXPECT_EQ(reader.Classes().size(), 3U);
  EXPECT_EQ(reader.Table(99).ReadRow(0).ReadFieldHandle("Target#Handle"), 2);
}

TEST_F(TransactionTest, ThereIsOneAtATime) {
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  rfm_Transaction transaction(database);
  EXPECT_EQ(failureOf([&] { rfm_Transaction second(database); }), "exception: !inTransaction");
  addModel(database, "c");
  transaction.Commit();
  EXPECT_EQ(contents(path), "a=0 b=1 c=2 | a b c");
  EXPECT_EQ(failureOf([&] { transaction.Commit(); }), "exception: inTransaction");
}

TEST_F(TransactionTest, ChangesWantATransaction) {
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  rfm_Table table = database.Table(modelType);
  table.ReadRow(0);
  EXPECT_EQ(failureOf([&] { table.UpdateRow(-1); }), "exception: inTransaction");
  EXPECT_EQ(failureOf([&] { table.AppendRow(); }), "exception: inTransaction");
  EXPECT_EQ(failureOf([&] { database.NewHandle(); }), "exception: inTransaction");
  EXPECT_EQ(failureOf([&] { database.AddClass(modelClass()); }), "exception: inTransaction");
  EXPECT_EQ(failureOf([&] { database.Entries().Clear(1); }), "exception: inTransaction");
  EXPECT_EQ(contents(path), before);
}

TEST_F(TransactionTest, AFileOpenedForReadingIsNotWritten) {
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Read);
  EXPECT_EQ(failureOf([&] { rfm_Transaction transaction(database); }),
            "ReadOnly: Database file '" + path + "': it was opened for reading only. Open it for writing.");
}

TEST_F(TransactionTest, AScopeAroundATransactionGoesOn) {
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  rfm_ReadScope const scope(database);
  EXPECT_EQ(contents(database), before);
  saveMuch(database);
  EXPECT_EQ(contents(database), after);
}

TEST_F(TransactionTest, IndexesAreMadeInTheMiddleOfWalks) {
  rfm_Database database = createFile(path);
  rfm_Transaction transaction(database);
  for (int number = 0; number < 5; ++number) {
    addModel(database, numbered("n", number));
  }
  rfm_Table table = database.Table(modelType);
  rfm_EntryCursor cursor = database.Entries().Scan(1);
  table.ReadRow(-1);
  ASSERT_TRUE(cursor.Next());
  int row = -1;
  EXPECT_EQ(database.Table(modelType).FindUid(uidOf(3), &row, 1), 1);
  EXPECT_EQ(row, 3);
  EXPECT_EQ(database.Entries().Find(1, "n4")->oid, 4);
  EXPECT_EQ(table.ReadRow(-1).ReadFieldString("modelName"), cow_String("n1"));
  ASSERT_TRUE(cursor.Next());
  EXPECT_EQ(cursor.Key(), "n1");
  transaction.Commit();
  ASSERT_TRUE(cursor.Next());
  EXPECT_EQ(cursor.Key(), "n2");
  EXPECT_EQ(table.ReadRow(-1).ReadFieldString("modelName"), cow_String("n2"));
  EXPECT_EQ(runSql(path, "PRAGMA integrity_check"), "ok");
}

TEST_F(TransactionTest, AFileCanBeOpenedAndReadWhileItIsSaved) {
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  rfm_Transaction transaction(database);
  addModel(database, "c");
  ASSERT_TRUE(std::filesystem::exists(path + "-journal"));
  EXPECT_EQ(contents(path), before);
  EXPECT_EQ(in_child([&] { return contents(path); }), before);
  transaction.Commit();
  EXPECT_EQ(contents(path), "a=0 b=1 c=2 | a b c");
}

TEST_F(TransactionTest, ASaveWaitsForNobodyForever) {
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  rfm_Database other = openFile(path, utl_FileAccess::Write);
  {
    rfm_Transaction const transaction(other);
    EXPECT_THAT(failureOf([&] { saveMuch(database); }), StartsWith("Locked: "));
  }
  {
    rfm_ReadScope const scope(other);
    EXPECT_THAT(failureOf([&] { saveMuch(database); }), StartsWith("Locked: "));
    EXPECT_EQ(contents(database), before);
    EXPECT_EQ(database.Classes().size(), 2U);
  }
  saveMuch(database);
  EXPECT_EQ(contents(path), after);
}

TEST_F(TransactionTest, AnotherWritersClassesAreTakenOver) {
  createTwo();
  rfm_Database first = openFile(path, utl_FileAccess::Write);
  rfm_Database second = openFile(path, utl_FileAccess::Write);
  saveMuch(first);
  rfm_Transaction transaction(second);
  EXPECT_NE(second.FindClass(99), nullptr);
  EXPECT_EQ(second.TableForWriting(99).AppendRow(), 1);
  EXPECT_EQ(second.NewHandle(), 3);
  transaction.Commit();
  EXPECT_EQ(first.Table(99).Length(), 2);
}

TEST_F(TransactionTest, TwoProcessesAppendWithoutLoss) {
  createTwo();
  auto const appendFifty = [&](std::string const& name) -> std::string {
    std::optional<rfm_Database> database;
    for (int number = 0; number < 50;) {
      try {
        if (!database) {
          database = openFile(path, utl_FileAccess::Write);
        }
        rfm_Transaction transaction(*database);
        addModel(*database, name + std::to_string(number));
        transaction.Commit();
        ++number;
      } catch (rfm_Exception const& failure) {
        if (failure.Kind() != rfm_ErrorKind::Locked) {
          return failure.what();
        }
      }
    }
    return "done";
  };
  child_process first([&](child_process&) { return appendFifty("x"); });
  child_process second([&](child_process&) { return appendFifty("y"); });
  EXPECT_EQ(first.result(), "done");
  EXPECT_EQ(second.result(), "done");
  rfm_Database database = openFile(path, utl_FileAccess::Read);
  std::set<std::string> names;
  std::set<int> rows;
  rfm_EntryCursor cursor = database.Entries().Scan(1);
  while (cursor.Next()) {
    names.emplace(cursor.Key());
    rows.insert(cursor.Oid());
  }
  EXPECT_EQ(names.size(), 102U);
  EXPECT_EQ(rows.size(), 102U);
  EXPECT_EQ(database.Table(modelType).Length(), 102);
}

TEST_F(TransactionTest, AKilledSaveIsWholeOrNotThere) {
  createTwo();
  for (int round = 0; round < 10; ++round) {
    {
      child_process saver([&](child_process& self) -> std::string {
        rfm_Database database = openFile(path, utl_FileAccess::Write);
        self.ready();
        for (int number = 1;; ++number) {
          rfm_Transaction transaction(database);
          rfm_Table table = database.TableForWriting(modelType);
          for (int row = 0; row < 2; ++row) {
            table.ReadRow(row);
            table.Row().WriteFieldInt("count", number);
            table.UpdateRow(-1);
          }
          transaction.Commit();
        }
      });
      saver.wait_until_ready();
      usleep(static_cast<useconds_t>(2000 + 700 * round));
    } // kills it
    rfm_Database database = openFile(path, utl_FileAccess::Write);
    rfm_Table table = database.Table(modelType);
    int const first = table.ReadRow(0).ReadFieldInt("count");
    EXPECT_EQ(table.ReadRow(1).ReadFieldInt("count"), first);
    EXPECT_EQ(contents(database), before);
  }
}

TEST_F(TransactionTest, ASaveCostsTheSyncsOfAPlainCommit) {
  fault_vfs device;
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  auto const saveOne = [&](char const* name) {
    rfm_Transaction transaction(database);
    rfm_Table table = database.TableForWriting(modelType);
    table.ReadRow(0);
    table.Row().WriteFieldString("modelName", name);
    table.UpdateRow(-1);
    transaction.Commit();
  };
  saveOne("warm");
  device.reset();
  saveOne("x");
  int const syncs = device.syncs();
  int const writes = device.writes();
  EXPECT_EQ(database.File().Statistics().rowsWritten, 2U);

  sqlite3* plain = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &plain), SQLITE_OK);
  auto const run = [&](char const* sql) {
    ASSERT_EQ(sqlite3_exec(plain, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(plain);
  };
  run("PRAGMA synchronous = extra; PRAGMA journal_mode = delete; SELECT * FROM class_ddr_Model");
  device.reset();
  run("BEGIN IMMEDIATE; UPDATE class_ddr_Model SET modelName = 'y' WHERE row = 0; COMMIT");
  EXPECT_EQ(syncs + 1, device.syncs()) << "the last one, of the folder, is ours, and is not seen here";
  EXPECT_EQ(writes, device.writes());
  EXPECT_GT(syncs, 1);
  sqlite3_close(plain);
}

TEST_F(TransactionTest, ASaveWithoutChangesWritesNothing) {
  fault_vfs device;
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  device.reset();
  {
    rfm_Transaction transaction(database);
    transaction.Commit();
  }
  EXPECT_EQ(device.changes(), 0);
}

TEST_F(TransactionTest, ForeignCommitsLeaveOutWhatADatabaseSavedItself) {
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  std::uint32_t const atFirst = database.ForeignCommits();
  saveModels(database, {"c"});
  rfm_Database copy = database;
  saveModels(copy, {"d"});
  EXPECT_EQ(database.ForeignCommits(), atFirst);
  {
    rfm_Transaction takenBack(database);
    addModel(database, "e");
  }
  EXPECT_EQ(database.ForeignCommits(), atFirst);
  rfm_Transaction(database).Commit(); // changes nothing, so the file does not count it
  EXPECT_EQ(database.ForeignCommits(), atFirst);
}

TEST_F(TransactionTest, ForeignCommitsCountOtherDatabasesOnTheSameFileHandle) {
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  std::uint32_t const atFirst = database.ForeignCommits();
  rfm_Database beside = rfm_Database::Open(database.File(), "D0");
  beside.Bind();
  saveModels(beside, {"c"});
  EXPECT_EQ(database.ForeignCommits(), atFirst + 1);
  saveModels(database, {"d"});
  EXPECT_EQ(database.ForeignCommits(), atFirst + 1);
}

TEST_F(TransactionTest, ForeignCommitsCountOtherProcesses) {
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  std::uint32_t const atFirst = database.ForeignCommits();
  in_child([this] {
    rfm_Database other = openFile(path, utl_FileAccess::Write);
    saveModels(other, {"c"});
    return std::string();
  });
  EXPECT_EQ(database.ForeignCommits(), atFirst + 1);
}

TEST_F(TransactionTest, ReadingChangesNothingOnTheDevice) {
  createTwo();
  fault_vfs device;
  {
    rfm_Database database = openFile(path, utl_FileAccess::Read);
    EXPECT_EQ(contents(database), before);
  }
  EXPECT_EQ(device.changes(), 0);
}

struct Fault {
  char const* name;
  int errorNumber;
  bool lasting;
};

struct FaultTest : TransactionTest, testing::WithParamInterface<Fault> {};

TEST_P(FaultTest, AFailedSaveLeavesTheStateBefore) {
  createTwo();
  std::string const whole = readFile(path);
  int failed = 0;
  for (int request = 1; request < 1000; ++request) {
    writeFile(path, whole);
    fault_vfs device;
    std::string failure;
    {
      rfm_Database database = openFile(path, utl_FileAccess::Write);
      device.fail_at(request, GetParam().errorNumber, GetParam().lasting);
      failure = failureOf([&] { saveMuch(database); });
      if (device.failures() == 0) {
        EXPECT_EQ(failure, "nothing");
        EXPECT_GT(failed, 10) << "too few requests were made to fail";
        return;
      }
      if (failure != "nothing") {
        ++failed;
        EXPECT_EQ(database.Classes().size(), 2U) << request;
        if (GetParam().errorNumber == ENOSPC) {
          EXPECT_THAT(failure, StartsWith("Full: Database file '" + path + "'")) << request;
        }
      }
      device.reset();
      // The same handle goes on, once the device works again.
      EXPECT_EQ(contents(database), failure == "nothing" ? after : before) << request << ": " << failure;
    }
    rfm_Database database = openFile(path, utl_FileAccess::Write);
    EXPECT_EQ(contents(database), failure == "nothing" ? after : before) << request << ": " << failure;
    EXPECT_EQ(runSql(path, "PRAGMA integrity_check"), "ok") << request;
    saveModels(database, {"next"});
    EXPECT_THAT(folder.names(), ElementsAre("a.odb")) << request;
  }
  FAIL() << "every request failed";
}

TEST_P(FaultTest, AFailedSaveIsRecoveredAfterTheProcessEnds) {
  createTwo();
  std::string const whole = readFile(path);
  for (int request = 1; request < 1000; ++request) {
    writeFile(path, whole);
    std::string const answer = in_child([&]() -> std::string {
      fault_vfs device;
      rfm_Database database = openFile(path, utl_FileAccess::Write);
      device.fail_at(request, GetParam().errorNumber, true);
      std::string const failure = failureOf([&] { saveMuch(database); });
      if (device.failures() == 0) {
        return "no failure";
      }
      _exit(failure == "nothing" ? 2 : 1);
    });
    if (answer == "no failure") {
      EXPECT_GT(request, 10);
      return;
    }
    rfm_Database database = openFile(path, utl_FileAccess::Write);
    EXPECT_EQ(contents(database), before) << request;
    EXPECT_EQ(runSql(path, "PRAGMA integrity_check"), "ok") << request;
  }
  FAIL() << "every request failed";
}

TEST_P(FaultTest, AFailedCreationLeavesNothing) {
  int failed = 0;
  for (int request = 1; request < 1000; ++request) {
    fault_vfs device;
    device.fail_at(request, GetParam().errorNumber, GetParam().lasting);
    std::string const failure = failureOf([&] { createFile(path); });
    if (device.failures() == 0) {
      EXPECT_EQ(failure, "nothing");
      EXPECT_GT(failed, 5);
      return;
    }
    if (failure != "nothing") {
      ++failed;
      EXPECT_THAT(folder.names(), ElementsAre()) << request << ": " << failure;
    }
    std::filesystem::remove(path);
  }
  FAIL() << "every request failed";
}

INSTANTIATE_TEST_SUITE_P(Devices, FaultTest,
                         testing::Values(Fault{"FullForGood", ENOSPC, true}, Fault{"FullOnce", ENOSPC, false},
                                         Fault{"BrokenForGood", EIO, true}, Fault{"BrokenOnce", EIO, false}),
                         [](auto const& chosen) { return std::string(chosen.param.name); });

TEST_F(TransactionTest, AFailedChangeSpoilsTheWholeSave) {
  createTwo();
  fault_vfs device;
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  rfm_Transaction transaction(database);
  device.fail_at(1, ENOSPC, false);
  std::string failure;
  int added = 0;
  while (failure.empty() || failure == "nothing") {
    failure = failureOf([&] { addModel(database, numbered("n", added++)); });
    ASSERT_LT(added, 100000);
  }
  EXPECT_GT(device.failures(), 0);
  EXPECT_THAT(failure, StartsWith("Full: "));
  EXPECT_THAT(failureOf([&] { addModel(database, "more"); }),
              HasSubstr("earlier change of this save failed"));
  EXPECT_THAT(failureOf([&] { transaction.Commit(); }), HasSubstr("earlier change of this save failed"));
  EXPECT_EQ(contents(database), before);
}

// The device itself fails, below SQLite: late in a commit, or while reading.
struct DeviceTest : TransactionTest {
  fault_device device{folder.path()};

  // How many calls of a kind the save makes.
  int callsOfSave(device_call call) {
    createTwo();
    rfm_Database database = openFile(path, utl_FileAccess::Write);
    device.start();
    saveMuch(database);
    device.stop();
    return device.calls(call);
  }
  std::string failureOfSave(rfm_Database& database, device_fault const& fault) {
    device.start(fault);
    std::string failure = failureOf([&] { saveMuch(database); });
    device.stop();
    EXPECT_EQ(device.faults(), 1);
    return failure;
  }
};

TEST_F(DeviceTest, ASaveWhoseFolderIsNotSyncedStandsAndSaysSo) {
  int const syncs = callsOfSave(device_call::Sync);
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  std::uint32_t const foreign = database.ForeignCommits();
  EXPECT_EQ(
      failureOfSave(database, {device_call::Sync, syncs, device_fault::Effect::Error, EIO, false}),
      "Full: Database file '" + path +
          "': the changes are in the file, but its folder could not be synced (Input/output error), so a "
          "power cut may still take them back. Check the device, then save again.");
  EXPECT_EQ(contents(database), after);
  EXPECT_EQ(contents(path), after);
  EXPECT_EQ(database.ForeignCommits(), foreign);
  EXPECT_EQ(database.Table(99).Length(), 1) << "memory knows the class that was added";
  saveModels(database, {"next"});
  EXPECT_EQ(database.ForeignCommits(), foreign);
}

TEST_F(DeviceTest, ATransactionWhoseCommitFailedAtItsVeryEndIsStored) {
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  rfm_Transaction transaction(database);
  addModel(database, "c");
  EXPECT_FALSE(transaction.IsStored());
  device.start({device_call::Delete, 1, device_fault::Effect::LateError, EIO, false});
  EXPECT_THAT(failureOf([&] { transaction.Commit(); }),
              HasSubstr("the changes are in the file, but its journal could not be deleted"));
  device.stop();
  EXPECT_TRUE(transaction.IsStored());
}

// Whoever is told of want of memory takes it that nothing was changed.
TEST_F(DeviceTest, ASaveThatStandsIsNotToldAsWantOfMemory) {
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  EXPECT_THAT(
      failureOfSave(database, {device_call::Delete, 1, device_fault::Effect::LateError, ENOMEM, false}),
      HasSubstr(
          "the changes are in the file, but its journal could not be deleted (Cannot allocate memory)"));
  EXPECT_EQ(contents(database), after);
  EXPECT_EQ(contents(path), after);
}

TEST_F(DeviceTest, ASaveThatCannotBeUnlockedLasts) {
  int const locks = callsOfSave(device_call::Lock);
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  EXPECT_EQ(
      failureOfSave(database, {device_call::Lock, locks, device_fault::Effect::Error, EIO, false}),
      "Other: Database file '" + path +
          "': the changes are in the file, but it could not be unlocked (Input/output error). Close the "
          "database if others cannot use the file.");
  EXPECT_EQ(contents(database), after);
  EXPECT_EQ(contents(path), after);
  device.start();
  rfm_Transaction(database).Commit();
  EXPECT_EQ(device.calls(device_call::Sync), 0) << "nothing is owed";
}

TEST_F(DeviceTest, ASaveWhoseLastLockStaysLasts) {
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  device.start();
  device.before(device_call::Delete, 1, [&] { device.refuseUnlocking(EIO); });
  std::string const failure = failureOf([&] { saveMuch(database); });
  device.stop();
  EXPECT_EQ(failure, "Other: Database file '" + path +
                         "': the changes are in the file, but it could not be unlocked (Input/output error). "
                         "Close the database if others cannot use the file.");
  device.refuseUnlocking(0);
  EXPECT_EQ(contents(database), after);
}

TEST_F(DeviceTest, ASaveWhoseJournalStaysIsTakenBack) {
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  EXPECT_EQ(
      failureOfSave(database, {device_call::Delete, 1, device_fault::Effect::Error, EIO, false}),
      "Full: Database file '" + path +
          "': its journal could not be deleted (Input/output error); nothing was changed. Check the device, "
          "then save again.");
  EXPECT_EQ(contents(database), before);
  EXPECT_EQ(database.FindClass(99), nullptr);
  saveMuch(database);
  EXPECT_EQ(contents(database), after);
}

// What it finds in the file then is not its own.
TEST_F(DeviceTest, ASaveWhoseJournalStaysIsTakenBackWhateverOthersSaveMeanwhile) {
  int othersThatSaved = 0;
  bool wasLastMoment = false;
  for (int moment = 1; !wasLastMoment; ++moment) {
    createTwo();
    child_process other([&](child_process& self) {
      self.wait_for_go();
      rfm_Database database = openFile(path, utl_FileAccess::Write);
      return failureOf([&] { saveModels(database, {"other"}); });
    });
    rfm_Database database = openFile(path, utl_FileAccess::Write);
    std::uint32_t const foreign = database.ForeignCommits();
    std::string answer;
    device.start({device_call::Delete, 1, device_fault::Effect::Error, EIO, false});
    device.before(device_call::Delete, 1, [&] {
      device.before(device_call::Lock, device.calls(device_call::Lock) + moment, [&] {
        other.go();
        answer = other.result();
      });
    });
    std::string const failure = failureOf([&] { saveMuch(database); });
    device.stop();
    EXPECT_THAT(failure,
                HasSubstr("its journal could not be deleted (Input/output error); nothing was changed"))
        << moment;
    bool const otherSaved = answer == "nothing";
    othersThatSaved += otherSaved ? 1 : 0;
    wasLastMoment = answer.empty();
    EXPECT_EQ(contents(path), otherSaved ? "a=0 b=1 other=2 | a b other" : before)
        << moment << ": " << answer;
    EXPECT_EQ(contents(database), contents(path)) << moment;
    EXPECT_EQ(database.ForeignCommits() - foreign, otherSaved ? 1U : 0U) << moment;
  }
  EXPECT_GT(othersThatSaved, 0);
}

TEST_F(DeviceTest, ASaveWhoseFolderCannotBeOpenedForItsSyncIsNotMade) {
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  auto const failureWith = [&](int errorNumber) {
    rfm_Transaction transaction(database);
    addModel(database, "c");
    device.start({device_call::Open, 1, device_fault::Effect::Error, errorNumber, false});
    std::string const failure = failureOf([&] { transaction.Commit(); });
    device.stop();
    return failure;
  };
  EXPECT_EQ(
      failureWith(EMFILE),
      "Full: Database file '" + path +
          "': its folder cannot be opened, which a save that lasts needs (Too many open files); nothing "
          "was changed. Close other files, then save again.");
  EXPECT_EQ(
      failureWith(EACCES),
      "NoPermission: Database file '" + path +
          "': its folder cannot be opened, which a save that lasts needs (Permission denied); nothing was "
          "changed. Ask for permission to read the folder, or copy the file.");
  EXPECT_THAT(failureWith(EPERM), StartsWith("NoPermission: Database file '" + path + "'"));
  EXPECT_EQ(contents(path), before);
  saveModels(database, {"c"});
}

TEST_F(DeviceTest, ASaveWhoseJournalSomebodyTookAwayStands) {
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  rfm_Transaction transaction(database);
  addModel(database, "c");
  ASSERT_TRUE(std::filesystem::remove(path + "-journal"));
  EXPECT_THAT(failureOf([&] { transaction.Commit(); }),
              HasSubstr("the changes are in the file, but its journal could not be deleted"));
  EXPECT_TRUE(transaction.IsStored());
  EXPECT_EQ(contents(path), "a=0 b=1 c=2 | a b c");
}

TEST_F(DeviceTest, ASaveWhoseJournalSomebodyTookAwaySaysThatItMayNotLast) {
  auto const failureWithoutSync = [&](int number) {
    createTwo();
    rfm_Database database = openFile(path, utl_FileAccess::Write);
    rfm_Transaction transaction(database);
    addModel(database, "c");
    device.start({device_call::Sync, number, device_fault::Effect::Error, EIO, false});
    device.before(device_call::Delete, 1, [&] { EXPECT_TRUE(std::filesystem::remove(path + "-journal")); });
    std::string failure = failureOf([&] { transaction.Commit(); });
    device.stop();
    EXPECT_TRUE(transaction.IsStored());
    EXPECT_EQ(contents(path), "a=0 b=1 c=2 | a b c");
    return failure;
  };
  constexpr int noneOfThem = 1000;
  EXPECT_THAT(failureWithoutSync(noneOfThem), HasSubstr("its journal could not be deleted"));
  int const syncs = device.calls(device_call::Sync);
  EXPECT_EQ(
      failureWithoutSync(syncs),
      "Full: Database file '" + path +
          "': the changes are in the file, but its folder could not be synced (Input/output error), so a "
          "power cut may still take them back. Check the device, then save again.");
  EXPECT_EQ(device.faults(), 1);
}

// Another program made the file give pages back as soon as they are free.
TEST_F(DeviceTest, ASaveThatCannotCutTheFileOffStands) {
  createTwo();
  runSql(path, "PRAGMA auto_vacuum = full; VACUUM");
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  std::string const longName(100000, 'n');
  saveModels(database, {longName.c_str()});
  rfm_Transaction transaction(database);
  database.Entries().Clear(1);
  device.start({device_call::Truncate, 1, device_fault::Effect::Error, EIO, false});
  std::string const failure = failureOf([&] { transaction.Commit(); });
  device.stop();
  EXPECT_EQ(device.faults(), 1);
  EXPECT_THAT(failure, HasSubstr("the changes are in the file, but it could not be cut off"));
  EXPECT_TRUE(transaction.IsStored());
  EXPECT_EQ(contents(path), "| a b " + longName);
  EXPECT_EQ(runSql(path, "PRAGMA integrity_check"), "ok");
}

TEST_F(DeviceTest, TheNextSaveSyncsWhatTheOneBeforeCouldNot) {
  int const syncs = callsOfSave(device_call::Sync);
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  failureOfSave(database, {device_call::Sync, syncs, device_fault::Effect::Error, EIO, false});
  device.start();
  rfm_Transaction(database).Commit();
  EXPECT_GE(device.calls(device_call::Sync), 4);
  device.start();
  rfm_Transaction(database).Commit();
  EXPECT_EQ(device.calls(device_call::Sync), 0) << "nothing is owed any more";
}

TEST_F(DeviceTest, AReadThatTheDeviceRefusesIsNotToldAsDamage) {
  createTwo();
  rfm_Database database = openFile(path, utl_FileAccess::Read);
  int failed = 0;
  std::array<int, 3> const errors{EIO, ENXIO, ERANGE};
  for (int number = 1;; ++number) {
    int const errorNumber = errors[static_cast<std::size_t>(number) % errors.size()];
    device.start({device_call::Read, number, device_fault::Effect::Error, errorNumber, false});
    std::string const failure = failureOf([&] { contents(path); });
    device.stop();
    if (device.faults() == 0) {
      break;
    }
    ++failed;
    EXPECT_THAT(failure, StartsWith("Other: Database file '" + path + "'"));
    EXPECT_THAT(failure, HasSubstr(std::string(": the device failed (") + std::strerror(errorNumber) +
                                   "). Check the device, then try again."));
  }
  EXPECT_GT(failed, 3);
}

TEST_F(DeviceTest, ACheckOfPagesThatTheDeviceRefusesFailsAndFindsNothing) {
  createTwo();
  int failed = 0;
  for (int number = 1;; ++number) {
    rfm_Database database = openFile(path, utl_FileAccess::Read);
    device.start({device_call::Read, number, device_fault::Effect::Error, EIO, false});
    std::string const failure = failureOf([&] { EXPECT_THAT(database.CheckPages(), ElementsAre()); });
    device.stop();
    if (device.faults() == 0) {
      break;
    }
    failed += failure == "nothing" ? 0 : 1;
    EXPECT_THAT(failure, HasSubstr("the device failed (Input/output error)"));
  }
  EXPECT_GT(failed, 3);
}

} // namespace
