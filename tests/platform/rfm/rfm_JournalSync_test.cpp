// Tests of rfm_JournalSync: a save waits until the name of its journal is durable, or is not made.
#include "rfm_TestFiles.h"

#include "child_process.h"
#include "fault_device.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <sqlite3.h>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

struct JournalSyncTest : rfm_Test {
  fault_device device{folder.path()};
  std::string const before = "a=0 | a";

  JournalSyncTest() {
    rfm_Database database = createFile(path);
    saveModels(database, {"a"});
  }
  static void saveLittle(rfm_Database& database) { saveModels(database, {"b"}); }
  // More than SQLite keeps in memory, so that it writes to the file before the commit.
  static void addMuch(rfm_Database& database) {
    for (int count = 0; count < 40; ++count) {
      addModel(database, std::string(100000, 'n'));
    }
  }
  // The syncs of a save, in order: 'F' one of the folder, 'f' one of a file.
  std::string syncsOfSave() {
    rfm_Database database = openFile(path, utl_FileAccess::Write);
    device.record(folder.names());
    saveLittle(database);
    device.stop();
    std::string syncs;
    for (device_event const& event : device.events()) {
      syncs += event.kind == device_event::Kind::SyncFolder ? "F"
               : event.kind == device_event::Kind::SyncFile ? "f"
                                                            : "";
    }
    return syncs;
  }
};

TEST_F(JournalSyncTest, TheNameOfAJournalIsDurableBeforeItsContents) {
  EXPECT_THAT(syncsOfSave(), StartsWith("FfF")) << "the second one is SQLite's";
}

TEST_F(JournalSyncTest, ASaveWhoseFolderCannotBeSyncedChangesNothingAndSaysSo) {
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  device.start({device_call::Sync, 1, device_fault::Effect::Error, EIO, false});
  EXPECT_EQ(failureOf([&] { saveLittle(database); }),
            "Full: Database file '" + path +
                "': the device failed while writing (Input/output error); nothing was changed. Check the "
                "device and its free space, then try again.");
  device.stop();
  EXPECT_EQ(device.faults(), 1);
  EXPECT_EQ(contents(database), before);
  EXPECT_EQ(contents(path), before);
  EXPECT_THAT(folder.names(), ElementsAre("a.odb"));
  saveLittle(database);
  EXPECT_EQ(contents(path), "a=0 b=1 | a b");
}

// What comes right behind a sync that has been done has nothing to do.
TEST_F(JournalSyncTest, NoSyncOfTheFolderFailsUnheardButTheSecondOfTwo) {
  std::string const syncs = syncsOfSave();
  int told = 0;
  for (std::size_t index = 0; index < syncs.size(); ++index) {
    createFile(path);
    rfm_Database database = openFile(path, utl_FileAccess::Write);
    int const number = static_cast<int>(index) + 1;
    device.start({device_call::Sync, number, device_fault::Effect::Error, EIO, false});
    std::string const failure = failureOf([&] { saveLittle(database); });
    device.stop();
    ASSERT_EQ(device.faults(), 1);
    if (index == 2) {
      EXPECT_EQ(failure, "nothing");
      continue;
    }
    ++told;
    EXPECT_THAT(failure, HasSubstr("(Input/output error)")) << syncs << " " << number;
    bool const stands = number == static_cast<int>(syncs.size());
    EXPECT_THAT(failure, HasSubstr(stands ? "the changes are in the file" : "nothing was changed"));
    EXPECT_EQ(contents(path), stands ? "b=0 | b" : "|") << syncs << " " << number;
  }
  EXPECT_GE(told, 4) << syncs;
}

// SQLite does not mind that, and the removal of the journal could be undone by a power cut.
TEST_F(JournalSyncTest, ASaveWhoseFolderCannotBeOpenedForTheLastSyncSaysThatItMayNotLast) {
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  device.start();
  saveLittle(database);
  int const opens = device.calls(device_call::Open);
  for (bool const lasting : {false, true}) {
    device.start({device_call::Open, opens, device_fault::Effect::Error, EMFILE, lasting});
    EXPECT_EQ(
        failureOf([&] { saveModels(database, {"c"}); }),
        "Full: Database file '" + path +
            "': the changes are in the file, but its folder could not be synced (Too many open files), so "
            "a power cut may still take them back. Close other files, then save again.");
    device.stop();
    EXPECT_EQ(device.faults(), 1);
    EXPECT_EQ(device.unsynced(), std::vector<std::string>{""});
    saveModels(database, {});
    EXPECT_EQ(device.unsynced(), std::vector<std::string>());
  }
  EXPECT_EQ(contents(path), contents(database));
}

TEST_F(JournalSyncTest, ALargeSaveWhoseFolderCannotBeSyncedChangesNothingAndSaysSo) {
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  {
    rfm_Transaction transaction(database);
    device.start({device_call::Sync, 1, device_fault::Effect::Error, EIO, false});
    EXPECT_EQ(failureOf([&] { addMuch(database); }),
              "Full: Database file '" + path +
                  "': the device failed while writing (Input/output error); nothing was changed. Check the "
                  "device and its free space, then try again.");
    device.stop();
    EXPECT_EQ(device.faults(), 1) << "before the commit";
    EXPECT_EQ(
        failureOf([&] { transaction.Commit(); }),
        "Other: Database file '" + path +
            "': an earlier change of this save failed; nothing was changed. Save again after the reason is "
            "removed.");
  }
  EXPECT_EQ(contents(database), before);
  EXPECT_EQ(contents(path), before);
  {
    rfm_Transaction transaction(database);
    addMuch(database);
    transaction.Commit();
  }
  EXPECT_GT(contents(path).size(), 4000000U);
}

// A commit looks at the folder before; a save that is written in part does not come to that.
TEST_F(JournalSyncTest, ALargeSaveWhoseFolderCannotBeOpenedChangesNothingAndSaysSo) {
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  device.start(
      {device_call::Open, 2, device_fault::Effect::Error, EMFILE, false}); // the journal is the first
  EXPECT_THAT(failureOf([&] {
                rfm_Transaction transaction(database);
                addMuch(database);
              }),
              HasSubstr(": the device failed while writing (Too many open files); nothing was changed. Close "
                        "other files, then try again."));
  device.stop();
  EXPECT_EQ(device.faults(), 1);
  EXPECT_EQ(contents(path), before);
  saveLittle(database);
  EXPECT_EQ(contents(path), "a=0 b=1 | a b");
}

int opened = 0;
sqlite3_vfs* systems = nullptr;

int countOpened(sqlite3_vfs*, char const* name, sqlite3_file* file, int flags, int* outFlags) {
  ++opened;
  return systems->xOpen(systems, name, file, flags, outFlags);
}

TEST_F(JournalSyncTest, AccessToFilesThatIsExchangedBeforehandStaysExchanged) {
  systems = sqlite3_vfs_find(nullptr);
  openFile(path, utl_FileAccess::Write);
  sqlite3_vfs counting = *systems; // of the same name
  counting.xOpen = countOpened;
  sqlite3_vfs_register(&counting, 1);
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  opened = 0;
  saveLittle(database);
  EXPECT_EQ(opened, 1) << "the journal";
  sqlite3_vfs_unregister(&counting);
  sqlite3_vfs_register(systems, 1);
  opened = 0;
  openFile(path, utl_FileAccess::Write);
  EXPECT_EQ(opened, 0);
}

TEST_F(JournalSyncTest, AccessToFilesOfAnotherOneIsNotTakenForOurs) {
  systems = sqlite3_vfs_find(nullptr);
  std::string const name = std::string("rfm-") + systems->zName;
  sqlite3_vfs others = *systems;
  others.zName = name.c_str();
  others.xOpen = countOpened;
  sqlite3_vfs_register(&others, 0);
  opened = 0;
  openFile(path, utl_FileAccess::Write);
  sqlite3_vfs_unregister(&others);
  EXPECT_EQ(opened, 0);
}

TEST_F(JournalSyncTest, AFileIsNotOpenedWhereSQLiteHasNoMemoryToBegin) {
  EXPECT_EQ(in_child([&] {
              sqlite3_mem_methods methods{};
              sqlite3_shutdown();
              sqlite3_config(SQLITE_CONFIG_GETMALLOC, &methods);
              methods.xInit = [](void*) { return SQLITE_NOMEM; };
              sqlite3_config(SQLITE_CONFIG_MALLOC, &methods);
              return failureOf([&] { openFile(path, utl_FileAccess::Write); });
            }),
            "exception: std::bad_alloc");
}

} // namespace
