// Tests of rfm_Connection: what the answers of SQLite and of the device are told as.
#include "rfm_Connection.h"
#include "rfm_TestFiles.h"

#include "child_process.h"
#include "fault_device.h"

#include <cerrno>
#include <filesystem>
#include <gmock/gmock.h>
#include <new>
#include <sqlite3.h>
#include <unistd.h>
#include <utility>

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

struct Answer {
  int result;
  char const* kind;
  char const* words;
  char const* remedy;
};

TEST(rfm_Connection, EachAnswerOfSqliteIsToldWithItsRemedy) {
  for (Answer const& answer : {
           Answer{SQLITE_READONLY_DBMOVED, "Moved", "replaced, renamed or deleted", "open the file anew"},
           Answer{SQLITE_READONLY_ROLLBACK, "Interrupted", "save was interrupted", "once for writing"},
           Answer{SQLITE_READONLY_DIRECTORY, "NoPermission", "its folder cannot be written", "copy the file"},
           Answer{SQLITE_READONLY_CANTINIT, "NoPermission", "its folder cannot be written", "copy the file"},
           Answer{SQLITE_READONLY_CANTLOCK, "NoPermission", "its folder cannot be written", "copy the file"},
           Answer{SQLITE_READONLY, "ReadOnly", "it cannot be written", "make the file writable"},
           Answer{SQLITE_BUSY_RECOVERY, "Locked", "in use by another process", "Try again"},
           Answer{SQLITE_BUSY_SNAPSHOT, "Locked", "in use by another process", "Try again"},
           Answer{SQLITE_BUSY_TIMEOUT, "Locked", "in use by another process", "Try again"},
           Answer{SQLITE_BUSY, "Locked", "in use by another process", "Try again"},
           Answer{SQLITE_LOCKED, "Locked", "in use by another process", "Try again"},
           Answer{SQLITE_CANTOPEN_FULLPATH, "Other", "its name cannot be used", "shorter name"},
           Answer{SQLITE_CANTOPEN, "NoPermission", "cannot be opened", "Check the permissions"},
           Answer{SQLITE_PERM, "NoPermission", "no permission", "Ask the owner"},
           Answer{SQLITE_AUTH, "NoPermission", "no permission", "Ask the owner"},
           Answer{SQLITE_FULL, "Full", "no space left", "Make room"},
           Answer{SQLITE_IOERR_WRITE, "Full", "failed while writing", "Check the device"},
           Answer{SQLITE_IOERR_FSYNC, "Full", "failed while writing", "Check the device"},
           Answer{SQLITE_IOERR_DIR_FSYNC, "Full", "failed while writing", "Check the device"},
           Answer{SQLITE_IOERR_TRUNCATE, "Full", "failed while writing", "Check the device"},
           Answer{SQLITE_IOERR_DELETE, "Full", "failed while writing", "Check the device"},
           Answer{SQLITE_IOERR_LOCK, "Locked", "it cannot be locked", "supports file locks"},
           Answer{SQLITE_IOERR_RDLOCK, "Locked", "it cannot be locked", "supports file locks"},
           Answer{SQLITE_IOERR_CHECKRESERVEDLOCK, "Locked", "it cannot be locked", "supports file locks"},
           Answer{SQLITE_IOERR_READ, "Other", "the device failed", "Check the device"},
           Answer{SQLITE_NOTADB, "NotADatabase", "not a database", "Check the name"},
           Answer{SQLITE_CORRUPT, "Damaged", "it is damaged", "Restore it"},
           Answer{SQLITE_ERROR, "Damaged", "it is damaged", "Restore it"},
           Answer{SQLITE_SCHEMA, "Damaged", "it is damaged", "Restore it"},
           Answer{SQLITE_CONSTRAINT, "Damaged", "it is damaged", "Restore it"},
           Answer{SQLITE_MISMATCH, "Damaged", "it is damaged", "Restore it"},
           Answer{SQLITE_FORMAT, "Damaged", "it is damaged", "Restore it"},
           Answer{SQLITE_TOOBIG, "Damaged", "it is damaged", "Restore it"}, // while reading
           Answer{SQLITE_INTERRUPT, "Damaged", "more work than a file of its size", "Restore it"},
           Answer{SQLITE_MISUSE, "Other", "it cannot be used", "open it anew"},
       }) {
    rfm_Connection connection{cow_String("shown.odb")};
    errno = 0;
    EXPECT_THAT(failureOf([&] { connection.Fail(answer.result); }),
                AllOf(StartsWith(std::string(answer.kind) + ": Database file 'shown.odb': "),
                      HasSubstr(answer.words), HasSubstr(answer.remedy)))
        << sqlite3_errstr(answer.result) << ' ' << answer.result;
  }
}

TEST(rfm_Connection, ALongNameOutOfAFileIsCutInMessages) {
  cow_String const name(std::string(199, 'n') + "\u00e4" + std::string(50'000'000, 'n'));
  rfm_Connection connection{cow_String("shown.odb")};
  std::string const failure = failureOf([&] { connection.Fail(SQLITE_CORRUPT, {&name, 3, name.View()}); });
  EXPECT_THAT(failure, HasSubstr(", class '" + std::string(199, 'n') + "...', row 3, field '"));
  EXPECT_LT(failure.size(), 600U);
}

TEST(rfm_Connection, MemoryThatSqliteLacksIsNotToldAsAMatterOfTheFile) {
  rfm_Connection connection{cow_String("shown.odb")};
  EXPECT_THROW(connection.Fail(SQLITE_NOMEM), std::bad_alloc);
  EXPECT_THROW(connection.Fail(SQLITE_IOERR_NOMEM), std::bad_alloc);
}

TEST(rfm_Connection, OneThatIsClosedIsNotRead) {
  rfm_Connection connection{cow_String("shown.odb")};
  EXPECT_THAT(failureOf([&] { connection.EnterScope(); }),
              AllOf(StartsWith("Other: "), HasSubstr("no longer open")));
  EXPECT_THAT(failureOf([&] { connection.Begin(); }), HasSubstr("no longer open"));
  EXPECT_EQ(connection.FileSize(), 0);
}

TEST(rfm_Connection, AFileWithoutANameIsNotOpened) {
  rfm_Connection connection{cow_String("shown.odb")};
  EXPECT_THAT(failureOf([&] { connection.Open("", rfm_Connection::Mode::Read); }),
              AllOf(StartsWith("NoPermission: Database file 'shown.odb'"), HasSubstr("cannot be opened")));
}

struct ConnectionTest : rfm_Test {
  ConnectionTest() {
    rfm_Database database = createFile(path);
    saveModels(database, {"a", "b"});
  }
  // What opening a file for writing says when calls of a kind fail.
  std::string openWith(device_fault const& fault) {
    device.start(fault);
    std::string failure = failureOf([&] { openFile(path, utl_FileAccess::Write); });
    device.stop();
    EXPECT_GT(device.faults(), 0);
    return failure;
  }
  // What a save says when calls of a kind fail.
  std::string saveWith(device_fault const& fault) {
    rfm_Database database = openFile(path, utl_FileAccess::Write);
    device.start(fault);
    std::string failure = failureOf([&] { saveModels(database, {"c"}); });
    device.stop();
    EXPECT_GT(device.faults(), 0);
    return failure;
  }
  static device_fault lasting(device_call call, int errorNumber) {
    return {call, 1, device_fault::Effect::Error, errorNumber, true};
  }
  fault_device device{folder.path()};
};

// What a file defines is not trusted, and its pages are looked at before they are used.
TEST_F(ConnectionTest, FilesAreOpenedDefensively) {
  for (rfm_Connection::Mode const mode : {rfm_Connection::Mode::Read, rfm_Connection::Mode::Write}) {
    rfm_Connection connection{cow_String("shown.odb")};
    connection.Open(path, mode);
    for (auto const& [setting, value] :
         {std::pair{SQLITE_DBCONFIG_DEFENSIVE, 1}, std::pair{SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0},
          std::pair{SQLITE_DBCONFIG_ENABLE_TRIGGER, 0}, std::pair{SQLITE_DBCONFIG_ENABLE_VIEW, 0},
          std::pair{SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0}}) {
      int set = -1;
      ASSERT_EQ(sqlite3_db_config(connection.Database(), setting, -1, &set), SQLITE_OK);
      EXPECT_EQ(set, value) << setting;
    }
    for (auto const& [pragma, value] :
         {std::pair{"PRAGMA cell_size_check", 1}, std::pair{"PRAGMA mmap_size", 0}}) {
      sqlite3_stmt* statement = nullptr;
      ASSERT_EQ(sqlite3_prepare_v2(connection.Database(), pragma, -1, &statement, nullptr), SQLITE_OK);
      EXPECT_EQ(sqlite3_step(statement), SQLITE_ROW) << pragma;
      EXPECT_EQ(sqlite3_column_int(statement, 0), value) << pragma;
      sqlite3_finalize(statement);
    }
    for (int const limit : {SQLITE_LIMIT_ATTACHED, SQLITE_LIMIT_TRIGGER_DEPTH, SQLITE_LIMIT_LENGTH}) {
      sqlite3* usual = nullptr;
      ASSERT_EQ(sqlite3_open(":memory:", &usual), SQLITE_OK);
      EXPECT_LT(sqlite3_limit(connection.Database(), limit, -1), sqlite3_limit(usual, limit, -1)) << limit;
      sqlite3_close(usual);
    }
  }
}

TEST_F(ConnectionTest, AFileThatSqliteCannotOpenIsNamedWithTheReason) {
  for (bool const lasts : {false, true}) { // once, SQLite opens it for reading
    device_fault fault = lasting(device_call::Open, EIO);
    fault.lasting = lasts;
    EXPECT_EQ(openWith(fault), "Other: Database file '" + path +
                                   "': it, or a file beside it, cannot be opened (Input/output error). Check "
                                   "the device, then try again.");
    fault.errorNumber = EMFILE;
    EXPECT_EQ(openWith(fault),
              "Other: Database file '" + path +
                  "': it, or a file beside it, cannot be opened (Too many open files). Close "
                  "other files, then try again.");
    fault.errorNumber = ENOSPC;
    EXPECT_EQ(openWith(fault),
              "Full: Database file '" + path +
                  "': there is no space left on the device; nothing was changed. Make room on "
                  "the device, then try again.");
  }
}

TEST_F(ConnectionTest, AFileThatTurnsOutToBeReadOnlyIsNotOpenedForWriting) {
  EXPECT_EQ(
      openWith({device_call::Open, 1, device_fault::Effect::Error, EROFS, false}),
      "ReadOnly: Database file '" + path +
          "': it cannot be written (Read-only file system). Open it for reading, or copy it elsewhere.");
  EXPECT_EQ(
      openWith({device_call::Open, 1, device_fault::Effect::Error, EACCES, false}),
      "ReadOnly: Database file '" + path +
          "': it cannot be written (Permission denied). Open it for reading, or make the file writable.");
}

struct Reason {
  int errorNumber;
  char const* answer;
};

// A file system that takes no new file, though what is there can be opened.
TEST_F(ConnectionTest, AJournalThatCannotBeMadeIsToldWithTheReason) {
  for (Reason const& reason :
       {Reason{ENOSPC, "there is no space left on the device; nothing was changed. Make room on the device, "
                       "then try again."},
        Reason{EDQUOT,
               "there is no space left on the device (Disk quota exceeded); nothing was changed. Make "
               "room, or ask for a larger quota, then try again."},
        Reason{EROFS, "it, or a file beside it, cannot be opened (Read-only file system). Make the medium "
                      "writable, then try again."},
        Reason{EMFILE, "it, or a file beside it, cannot be opened (Too many open files). Close other files, "
                       "then try again."},
        Reason{ENFILE, "it, or a file beside it, cannot be opened (Too many open files in system). Close "
                       "other files, then try again."}}) {
    device_fault fault = lasting(device_call::Open, reason.errorNumber);
    fault.creating = true;
    EXPECT_THAT(saveWith(fault), AllOf(HasSubstr("Database file '" + path + "'"),
                                       HasSubstr(std::string(": ") + reason.answer)));
    EXPECT_EQ(contents(path), "a=0 b=1 | a b");
    EXPECT_THAT(folder.names(), testing::ElementsAre("a.odb"));
  }
}

TEST_F(ConnectionTest, AJournalThatCannotBeMadeOnceIsMadeLater) {
  device_fault fault = lasting(device_call::Open, EMFILE);
  fault.creating = true;
  fault.lasting = false;
  EXPECT_EQ(saveWith(fault), "nothing");
  EXPECT_EQ(contents(path), "a=0 b=1 c=2 | a b c");
  EXPECT_THAT(folder.names(), testing::ElementsAre("a.odb"));
}

TEST_F(ConnectionTest, AJournalThatCannotBeOpenedForReadingOnIsToldWithTheReason) {
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  interruptSave(path);
  device.start(lasting(device_call::Open, EMFILE));
  std::string const failure = failureOf([&] { contents(database); });
  device.stop();
  EXPECT_THAT(failure, AllOf(StartsWith("Other: Database file '" + path + "'"),
                             HasSubstr("cannot be opened (Too many open files). Close other files")));
  EXPECT_EQ(contents(database), "a=0 b=1 | a b");
}

TEST_F(ConnectionTest, ANewFileThatCannotBeMadeIsToldWithTheReason) {
  for (Reason const& reason :
       {Reason{EMFILE, "cannot be opened (Too many open files). Close other files, then try again."},
        Reason{ENOSPC, "there is no space left on the device; nothing was changed. Make room"}}) {
    device_fault fault = lasting(device_call::Open, reason.errorNumber);
    fault.creating = true;
    device.start(fault);
    std::string const failure = failureOf([&] { createFile(folder.path("b.odb")); });
    device.stop();
    EXPECT_THAT(failure,
                AllOf(HasSubstr("Database file '" + folder.path("b.odb") + "'"), HasSubstr(reason.answer)));
    EXPECT_THAT(folder.names(), testing::ElementsAre("a.odb"));
  }
}

// The definitions of a file that somebody is writing may be half there: it is asked again when that one is
// done.
TEST_F(ConnectionTest, DefinitionsThatSomebodyElseIsJustWritingAreNoDamage) {
  runSql(path, "CREATE VIEW long AS SELECT '" + std::string(900'000, 'x') + "'");
  child_process writer([&](child_process& self) -> std::string {
    sqlite3* database = nullptr;
    sqlite3_open(path.c_str(), &database);
    sqlite3_exec(database, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr);
    self.ready();
    self.wait_for_go();
    return "";
  });
  writer.wait_until_ready();
  EXPECT_THAT(
      failureOf([&] { openFile(path, utl_FileAccess::Read); }),
      AllOf(StartsWith("Locked: Database file '" + path + "'"), HasSubstr("in use by another process")));
}

TEST_F(ConnectionTest, AWriteThatIsRefusedIsToldWithTheReason) {
  for (Reason const& reason :
       {Reason{EIO, "the device failed while writing (Input/output error); nothing was changed. Check the "
                    "device and its free space, then try again."},
        Reason{EROFS, "it cannot be written (Read-only file system); nothing was changed. Make the medium "
                      "writable, then try again."},
        Reason{EFBIG, "there is no space left on the device (File too large); nothing was changed. Raise the "
                      "limit of the size of files, then try again."}}) {
    EXPECT_THAT(
        saveWith(lasting(device_call::Write, reason.errorNumber)),
        AllOf(HasSubstr("Database file '" + path + "'"), HasSubstr(std::string(": ") + reason.answer)));
  }
}

TEST_F(ConnectionTest, ALockThatIsRefusedIsToldWithTheReason) {
  for (Reason const& reason :
       {Reason{EIO, "it cannot be locked (Input/output error). Check the device, then try again."},
        Reason{EOPNOTSUPP,
               "it cannot be locked (Operation not supported). Use a file system that supports file "
               "locks, then try again."}}) {
    EXPECT_EQ(saveWith(lasting(device_call::Lock, reason.errorNumber)),
              "Locked: Database file '" + path + "': " + reason.answer);
  }
}

TEST_F(ConnectionTest, AFullDeviceIsToldWhateverItCallsItself) {
  for (int const number : {EDQUOT, EFBIG, ENOSPC}) {
    EXPECT_THAT(saveWith(lasting(device_call::Write, number)),
                AllOf(StartsWith("Full: Database file '" + path + "'"), HasSubstr("no space left")))
        << number;
    EXPECT_EQ(contents(path), "a=0 b=1 | a b") << number;
  }
}

TEST_F(ConnectionTest, AJournalThatFindsNoSpaceIsToldSo) {
  EXPECT_THAT(saveWith(lasting(device_call::Open, ENOSPC)),
              AllOf(StartsWith("Full: Database file '" + path + "'"), HasSubstr("no space left")));
  EXPECT_EQ(contents(path), "a=0 b=1 | a b");
}

TEST_F(ConnectionTest, AFileThatWasDeletedIsNotWritten) {
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  std::filesystem::remove(path);
  EXPECT_THAT(failureOf([&] { saveModels(database, {"c"}); }),
              AllOf(StartsWith("Moved: Database file '" + path + "'"), HasSubstr("nothing was changed")));
}

TEST_F(ConnectionTest, AFileThatWasEmptiedAndDeletedIsNotReadOn) {
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  std::filesystem::resize_file(path, 0);
  std::filesystem::remove(path);
  EXPECT_THAT(failureOf([&] { contents(database); }),
              AllOf(StartsWith("Moved: Database file '" + path + "'"), HasSubstr("deleted since")));
}

TEST_F(ConnectionTest, ADeletedFileThatTheDeviceDoesNotDeliverIsReadOnLater) {
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  std::filesystem::remove(path);
  device.start({device_call::Read, 1, device_fault::Effect::Error, EIO, false});
  std::string const failure = failureOf([&] { contents(database); });
  device.stop();
  EXPECT_EQ(device.faults(), 1);
  EXPECT_THAT(failure, AllOf(StartsWith("Other: Database file '" + path + "'"), HasSubstr("device failed")));
  EXPECT_EQ(contents(database), "a=0 b=1 | a b");
}

// What a file lost its name to has no device any more that could be asked for its last answer.
TEST_F(ConnectionTest, ADeletedFileThatIsDamagedIsToldAsDamaged) {
  std::size_t const page =
      std::stoul(runSql(path, "SELECT rootpage FROM sqlite_schema WHERE name = 'class_ddr_Model'"));
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  std::string bytes = readFile(path);
  bytes[(page - 1) * 4096] = '\x7f';
  writeFile(path, bytes);
  std::filesystem::remove(path);
  EXPECT_THAT(failureOf([&] { contents(database); }), StartsWith("Damaged: Database file '" + path + "'"));
}

} // namespace
