// Tests of creating files: what becomes visible when, what is replaced, and what is left behind.
#include "rfm_TestFiles.h"

#include "child_process.h"
#include "fault_vfs.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <unistd.h>

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

struct CreateTest : rfm_Test {
  void saveFile(char const* model) {
    rfm_Database database = createFile(path);
    saveModels(database, {model});
  }
  rfm_Database beginNew() {
    return rfm_Database::Create(rfm_File::Open(cow_String(path), utl_FileAccess::CreateNew, true), "D0",
                                "new", creationTime + 1);
  }
  rfm_Database begin() {
    return rfm_Database::Create(rfm_File::Open(cow_String(path), utl_FileAccess::Create, true), "D0", "new",
                                creationTime + 1);
  }
};

TEST_F(CreateTest, AFileAppearsWhenItIsPublished) {
  rfm_Database database = begin();
  EXPECT_FALSE(std::filesystem::exists(path));
  database.Publish();
  EXPECT_THAT(folder.names(), ElementsAre("a.odb"));
  EXPECT_EQ(openFile(path, utl_FileAccess::Read).CreationTime(), creationTime + 1);
}

TEST_F(CreateTest, PublishingSyncsTheFileOnce) {
  fault_vfs device;
  rfm_Database database = begin();
  EXPECT_EQ(device.syncs(), 0);
  database.Publish();
  EXPECT_EQ(device.syncs(), 1);
}

TEST_F(CreateTest, AnUnpublishedFileLeavesNothing) {
  {
    rfm_Database database = begin();
    rfm_Transaction transaction(database);
    database.AddClass(modelClass());
    transaction.Commit();
  }
  EXPECT_THAT(folder.names(), ElementsAre());
  { rfm_File::Open(cow_String(path), utl_FileAccess::Create, true); }
  EXPECT_THAT(folder.names(), ElementsAre());
}

TEST_F(CreateTest, TheSameHandlesWorkBeforeAndAfterPublishing) {
  rfm_Database database = begin();
  {
    rfm_Transaction transaction(database);
    database.AddClass(modelClass());
    addModel(database, "before");
    transaction.Commit();
  }
  rfm_Table table = database.Table(modelType);
  EXPECT_EQ(table.Length(), 1);
  database.Publish();
  saveModels(database, {"after"});
  EXPECT_EQ(table.Length(), 2);
  EXPECT_EQ(contents(database), "before=0 after=1 | before after");
  EXPECT_EQ(contents(path), "before=0 after=1 | before after");
}

TEST_F(CreateTest, ARolledBackChangeOfAnUnpublishedFileIsGone) {
  rfm_Database database = begin();
  {
    rfm_Transaction transaction(database);
    database.AddClass(modelClass());
    transaction.Commit();
  }
  {
    rfm_Transaction transaction(database);
    for (int number = 0; number < 3000; ++number) {
      addModel(database, numbered("n", number));
    }
  }
  saveModels(database, {"a"});
  database.Publish();
  EXPECT_EQ(contents(path), "a=0 | a");
  EXPECT_EQ(runSql(path, "PRAGMA integrity_check"), "ok");
}

TEST_F(CreateTest, APublishedFileIsSmall) {
  createFile(path);
  EXPECT_LE(std::filesystem::file_size(path), 6U * 4096U);
}

TEST_F(CreateTest, TheHeaderIsKept) {
  createFile(path);
  rfm_Database const database = openFile(path, utl_FileAccess::Read);
  EXPECT_EQ(database.Description(), cow_String("a description"));
  EXPECT_EQ(database.CreationTime(), creationTime);
  EXPECT_EQ(rfm_Database::GetCreationTime(database.File()), creationTime);
  EXPECT_EQ(database.FileName(), cow_String(path));
}

TEST_F(CreateTest, TheCreationTimeIsZeroWithoutAHeader) {
  createFile(path);
  rfm_File const file = rfm_File::Open(cow_String(path), utl_FileAccess::Read, true);
  EXPECT_EQ(rfm_Database::GetCreationTime(file), creationTime);
  runSql(path, "UPDATE ddr_header SET creation_time = NULL");
  EXPECT_EQ(rfm_Database::GetCreationTime(file), 0);
  runSql(path, "DROP TABLE ddr_header");
  EXPECT_EQ(rfm_Database::GetCreationTime(file), 0);
}

TEST_F(CreateTest, ADescriptionThatIsNotUtf8IsRefused) {
  rfm_File const file = rfm_File::Open(cow_String(path), utl_FileAccess::Create, true);
  EXPECT_THAT(failureOf([&] { rfm_Database::Create(file, "D0", "\xff", 1); }),
              AllOf(StartsWith("Other: "), HasSubstr("not UTF-8")));
}

TEST_F(CreateTest, AFileOfOursIsReplacedAndItsOldHandleReadsOn) {
  rfm_Database old = createFile(path);
  saveModels(old, {"old"});
  rfm_Database reader = openFile(path, utl_FileAccess::Read);
  rfm_Database database = begin();
  EXPECT_EQ(contents(path), "old=0 | old");
  database.Publish();
  EXPECT_EQ(contents(path), "|");
  EXPECT_EQ(contents(old), "old=0 | old");
  EXPECT_EQ(contents(reader), "old=0 | old");
  EXPECT_EQ(failureOf([&] { saveModels(old, {"b"}); }),
            "Moved: Database file '" + path +
                "': it was replaced, renamed or deleted since it was opened; nothing was changed. Close the "
                "database "
                "and open the file anew.");
  EXPECT_EQ(contents(old), "old=0 | old");
}

TEST_F(CreateTest, AnOldHandleDoesNotTakeTheJournalOfTheNewFileForItsOwn) {
  rfm_Database oldWriter = createFile(path);
  saveModels(oldWriter, {"old"});
  rfm_Database oldReader = openFile(path, utl_FileAccess::Read);
  rfm_Database database = createFile(path);
  saveModels(database, {"new"});
  rfm_Transaction transaction(database);
  // More than SQLite keeps in memory, so that its journal is complete before the end of the transaction.
  for (int number = 0; number < 3000; ++number) {
    addModel(database, numbered(std::string(2000, 'n'), number));
  }
  std::string const journal = readFile(path + "-journal");
  ASSERT_EQ(journal.substr(0, 8), "\xd9\xd5\x05\xf9\x20\xa1\x63\xd7");
  EXPECT_EQ(contents(oldWriter), "old=0 | old");
  EXPECT_EQ(contents(oldReader), "old=0 | old");
  EXPECT_TRUE(std::filesystem::exists(path + "-journal"));
  transaction.Commit();
  rfm_Database reader = openFile(path, utl_FileAccess::Read);
  EXPECT_EQ(reader.Table(modelType).Length(), 3001);
  EXPECT_EQ(runSql(path, "PRAGMA integrity_check"), "ok");
  EXPECT_EQ(contents(oldWriter), "old=0 | old");
}

TEST_F(CreateTest, ARenamedOrDeletedFileIsReadOnButNotWritten) {
  rfm_Database database = createFile(path);
  saveModels(database, {"a"});
  std::filesystem::rename(path, folder.path("b.odb"));
  EXPECT_EQ(contents(database), "a=0 | a");
  EXPECT_THAT(failureOf([&] { saveModels(database, {"b"}); }), StartsWith("Moved: "));
  rfm_Database second = openFile(folder.path("b.odb"), utl_FileAccess::Write);
  std::filesystem::remove(folder.path("b.odb"));
  EXPECT_EQ(contents(second), "a=0 | a");
  EXPECT_THAT(failureOf([&] { saveModels(second, {"b"}); }), StartsWith("Moved: "));
  EXPECT_THAT(folder.names(), ElementsAre());
}

TEST_F(CreateTest, AFileThatIsRenamedInTheMiddleOfASaveIsNotRead) {
  createFile(path);
  child_process saver([&](child_process& self) -> std::string {
    rfm_Database database = openFile(path, utl_FileAccess::Write);
    rfm_Transaction transaction(database);
    // More than SQLite keeps in memory: the file is changed before the end.
    for (int number = 0; number < 3000; ++number) {
      addModel(database, numbered(std::string(2000, 'n'), number));
    }
    self.ready();
    self.wait_for_go();
    _exit(1);
  });
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  EXPECT_EQ(contents(database), "|");
  saver.wait_until_ready();
  std::filesystem::rename(path, folder.path("b.odb"));
  EXPECT_THAT(failureOf([&] { contents(database); }), StartsWith("Locked: "));
  saver.go();
  EXPECT_EQ(saver.result(), "exit status 1");
  EXPECT_EQ(
      failureOf([&] { contents(database); }),
      "Moved: Database file '" + path +
          "': it was renamed or deleted since it was opened, without the journal of a save that was "
          "interrupted. Give the file its name back, and open it once for writing, which brings back the "
          "last complete save.");
  std::filesystem::rename(folder.path("b.odb"), path);
  EXPECT_EQ(contents(database), "|");
}

TEST_F(CreateTest, AFileThatIsRenamedIsReadOnBesideTheJournalOfAnother) {
  rfm_Database database = createFile(path);
  saveModels(database, {"a"});
  std::string const other = folder.path("other.odb");
  rfm_Database later = createFile(other);
  for (char const* const name : {"b", "c", "d"}) {
    saveModels(later, {name});
  }
  interruptSave(other);
  std::filesystem::rename(path, folder.path("b.odb"));
  std::filesystem::rename(other + "-journal", path + "-journal");
  EXPECT_EQ(contents(database), "a=0 | a");
}

TEST_F(CreateTest, AFileThatIsRenamedAndDoesNotFitIntoMemoryIsNotReadOn) {
  createFile(path);
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  std::filesystem::rename(path, folder.path("b.odb"));
  std::filesystem::resize_file(folder.path("b.odb"), std::uintmax_t{2} << 30U);
  EXPECT_EQ(failureOf([&] { contents(database); }),
            "Moved: Database file '" + path +
                "': it was replaced, renamed or deleted since it was opened, and is too large to be read on. "
                "Close the database and open the file anew.");
}

TEST_F(CreateTest, AnInterruptedOldFileIsReplacedTogetherWithItsJournal) {
  saveModels(*std::make_unique<rfm_Database>(createFile(path)), {"old"});
  interruptSave(path);
  createFile(path);
  EXPECT_THAT(folder.names(), ElementsAre("a.odb"));
  EXPECT_EQ(contents(path), "|");
}

TEST_F(CreateTest, TheJournalOfADeletedFileDoesNotReachTheNewOne) {
  saveModels(*std::make_unique<rfm_Database>(createFile(path)), {"old"});
  interruptSave(path);
  std::filesystem::remove(path);
  createFile(path);
  EXPECT_THAT(folder.names(), ElementsAre("a.odb"));
  EXPECT_EQ(contents(path), "|");
}

TEST_F(CreateTest, WhatAppearsMeanwhileIsNotReplaced) {
  rfm_Database database = begin();
  writeFile(path, "somebody's notes");
  EXPECT_THAT(failureOf([&] { database.Publish(); }),
              AllOf(StartsWith("NotADatabase: "), HasSubstr("a file that is not a database stands there")));
  EXPECT_EQ(readFile(path), "somebody's notes");
  std::filesystem::remove(path);
  database.Publish();
  EXPECT_EQ(contents(path), "|");
}

TEST_F(CreateTest, ANewFileDoesNotReplaceADatabaseThatStandsThere) {
  saveFile("kept");
  std::string const before = readFile(path);
  EXPECT_EQ(failureOf([&] { beginNew(); }),
            "Other: Database file '" + path +
                "': a database stands there already. It is not replaced; choose another name, or remove it.");
  EXPECT_EQ(readFile(path), before);
  EXPECT_THAT(folder.names(), ElementsAre("a.odb"));
}

TEST_F(CreateTest, ANewFileDoesNotReplaceADatabaseThatAppearsMeanwhile) {
  {
    rfm_Database database = beginNew();
    saveFile("kept");
    EXPECT_THAT(failureOf([&] { database.Publish(); }), HasSubstr("a database stands there already"));
  }
  EXPECT_EQ(contents(path), "kept=0 | kept");
  EXPECT_THAT(folder.names(), ElementsAre("a.odb"));
}

TEST_F(CreateTest, ANewFileTakesANameThatIsFree) {
  beginNew().Publish();
  EXPECT_EQ(openFile(path, utl_FileAccess::Read).CreationTime(), creationTime + 1);
  EXPECT_THAT(folder.names(), ElementsAre("a.odb"));
}

TEST_F(CreateTest, ALinkToNothingIsNotReplaced) {
  std::filesystem::create_symlink(folder.path("none"), path);
  EXPECT_THAT(failureOf([&] { begin(); }),
              AllOf(StartsWith("NotADatabase: "), HasSubstr("a link to nothing")));
}

TEST_F(CreateTest, ALinkToAFileOfOursIsFollowed) {
  createFile(folder.path("real.odb"));
  std::filesystem::create_symlink(folder.path("real.odb"), path);
  rfm_Database database = createFile(path);
  saveModels(database, {"a"});
  EXPECT_TRUE(std::filesystem::is_symlink(path));
  EXPECT_EQ(contents(folder.path("real.odb")), "a=0 | a");
}

TEST_F(CreateTest, LeftoversOfDeadProcessesAreRemoved) {
  std::string const answer = in_child([&]() -> std::string {
    rfm_Database const database = begin();
    _exit(1);
  });
  ASSERT_EQ(answer, "exit status 1");
  ASSERT_EQ(folder.names().size(), 1U);
  writeFile(folder.path("a.odb.new-1-0"), "of a process that lives");
  writeFile(folder.path("a.odb.new-x"), "of nobody");
  writeFile(folder.path("b.odb.new-999999999-0"), "of another file");
  createFile(path);
  EXPECT_THAT(folder.names(), ElementsAre("a.odb", "a.odb.new-1-0", "a.odb.new-x", "b.odb.new-999999999-0"));
}

TEST_F(CreateTest, TwoCreationsOfOneNameDoNotDisturbEachOther) {
  rfm_Database first = begin();
  rfm_Database second = createFile(path);
  saveModels(second, {"second"});
  first.Publish();
  EXPECT_EQ(contents(path), "|");
  EXPECT_EQ(contents(second), "second=0 | second");
}

TEST_F(CreateTest, AFileThatIsBeingSavedIsNotReplaced) {
  rfm_Database old = createFile(path);
  rfm_Database database = begin();
  {
    rfm_Transaction transaction(old);
    addModel(old, "a");
    EXPECT_THAT(failureOf([&] { database.Publish(); }), StartsWith("Locked: "));
    transaction.Commit();
  }
  EXPECT_EQ(contents(path), "a=0 | a");
  database.Publish();
  EXPECT_EQ(contents(path), "|");
}

TEST_F(CreateTest, PublishingTwiceOrAnOpenedFileIsAMistake) {
  rfm_Database database = createFile(path);
  EXPECT_THAT(failureOf([&] { database.Publish(); }), StartsWith("exception: "));
  EXPECT_THAT(failureOf([&] { rfm_Database::Create(database.File(), "D0", "", 0); }),
              StartsWith("exception: "));
}

} // namespace
