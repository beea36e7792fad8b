// Tests of names and folders: what cannot be opened or created there, and what stands in the way.
#include "rfm_TestFiles.h"

#include "child_process.h"
#include "fault_device.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <memory>
#include <optional>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using testing::AllOf;
using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

bool rememberNoNames = false;

} // namespace

// Stands before the C library's own, which needs memory for the name that it returns.
extern "C" __attribute__((visibility("default"))) char* realpath(char const* name, char* resolved) noexcept {
  static auto const pass = reinterpret_cast<char* (*)(char const*, char*)>(dlsym(RTLD_NEXT, "realpath"));
  if (rememberNoNames) {
    errno = ENOMEM;
    return nullptr;
  }
  return pass(name, resolved);
}

namespace {

struct FileNodeTest : rfm_Test {
  static std::string openForReading(std::string const& name) {
    return failureOf([&] { openFile(name, utl_FileAccess::Read); });
  }
  static std::string create(std::string const& name) {
    return failureOf([&] { createFile(name); });
  }
  static rfm_Database begin(std::string const& name) {
    return rfm_Database::Create(rfm_File::Open(cow_String(name), utl_FileAccess::Create, true), "D0", "", 1);
  }
  static rfm_Database beginNew(std::string const& name) {
    return rfm_Database::Create(rfm_File::Open(cow_String(name), utl_FileAccess::CreateNew, true), "D0", "",
                                1);
  }
  // Begins a file and gives it up while the system refuses to delete it, or says so.
  void giveUpUndeleted(device_fault::Effect effect) const {
    std::optional<rfm_Database> database = begin(path);
    fault_device device(folder.path());
    device.start({device_call::Delete, 1, effect, EIO, true});
    database.reset();
    EXPECT_EQ(device.faults(), 1);
  }
  // The name of the only file in the folder, which grows there.
  std::string growing() const {
    std::vector<std::string> const names = folder.names();
    return names.size() == 1 ? names[0] : "none";
  }
};

TEST_F(FileNodeTest, ANameBelowAFileIsMissing) {
  createFile(path);
  EXPECT_THAT(openForReading(path + "/b.odb"),
              AllOf(StartsWith("Missing: Database file '" + path + "/b.odb'"), HasSubstr("no such file")));
  EXPECT_THAT(create(path + "/b.odb"),
              AllOf(StartsWith("Missing: "), HasSubstr("its folder does not exist")));
}

TEST_F(FileNodeTest, AFileAtTheTopOfAllFoldersIsNamedWithIt) {
  std::string const top = "/" + std::filesystem::path(folder.path()).filename().string();
  EXPECT_THAT(openForReading(top), AllOf(StartsWith("Missing: "), HasSubstr("there is no such file")));
  EXPECT_THAT(in_child_without_rights([&] { return create(top); }),
              AllOf(StartsWith("NoPermission: Database file '" + top + "'"), HasSubstr("its folder")));
}

TEST_F(FileNodeTest, AFileOfANameThatIsTooLongForItsJournalIsNotOpened) {
  createFile(path);
  std::string deep = folder.path();
  for (int depth = 0; depth < 3; ++depth) {
    deep += "/" + std::string(200, 'd');
    std::filesystem::create_directory(deep);
  }
  std::filesystem::copy_file(path, deep + "/a.odb");
  EXPECT_THAT(openForReading(deep + "/a.odb"), AllOf(StartsWith("Other: "), HasSubstr("name is too long")));
}

// The whole path of the file is longer than the system takes, though its name from here is not.
TEST_F(FileNodeTest, AFileTooDeepToBeNamedIsNotOpened) {
  std::string const name(200, 'd');
  std::filesystem::path const before = std::filesystem::current_path();
  std::filesystem::current_path(folder.path());
  constexpr int depth = 25;
  for (int level = 0; level < depth; ++level) {
    ASSERT_EQ(mkdir(name.c_str(), 0777), 0);
    ASSERT_EQ(chdir(name.c_str()), 0);
  }
  writeFile("a.odb", "deep");
  EXPECT_THAT(openForReading("a.odb"), AllOf(StartsWith("Other: "), HasSubstr("name is too long")));
  std::remove("a.odb");
  for (int level = 0; level < depth; ++level) {
    ASSERT_EQ(chdir(".."), 0);
    ASSERT_EQ(rmdir(name.c_str()), 0);
  }
  std::filesystem::current_path(before);
}

TEST_F(FileNodeTest, AFolderThatIsNotThereTakesNoFile) {
  for (char const* const name : {"none/", "none/.", "none/..", "none/a.odb"}) {
    EXPECT_THAT(create(folder.path(name)),
                AllOf(StartsWith("Missing: "), HasSubstr("its folder does not exist")))
        << name;
  }
}

TEST_F(FileNodeTest, WhatOnlyLooksLikeALeftoverStays) {
  for (char const* const name :
       {"a.odb.new-0-0", "a.odb.new--7-0", "a.odb.new-999999999", "a.odb.new-999999999x0",
        "a.odb.new-999999999-", "a.odb.new-999999999-x", "a.odb.new-999999999-0x", "a.odb.new-99999999999-0",
        "a.odb.old-999999999-0"}) {
    writeFile(folder.path(name), "of somebody else");
    createFile(path);
    EXPECT_THAT(folder.names(), ElementsAre("a.odb", name));
    std::filesystem::remove(folder.path(name));
  }
}

TEST_F(FileNodeTest, ALeftoverOfAProcessOfAnotherUserStays) {
  ASSERT_EQ(chmod(folder.path().c_str(), 0777), 0);
  writeFile(folder.path("a.odb.new-1-0"), "grows");
  EXPECT_EQ(in_child_without_rights([&] { return create(path); }), "nothing");
  EXPECT_THAT(folder.names(), ElementsAre("a.odb", "a.odb.new-1-0"));
}

// Processes that do not see each other, in containers for example, may share a folder.
TEST_F(FileNodeTest, AGrowingFileWhoseProcessIsNotSeenStays) {
  rfm_Database database = begin(path);
  std::string const grows = folder.path(growing());
  std::string const unseen = folder.path("a.odb.new-999999999-0");
  EXPECT_EQ(in_child([&] {
              std::string const like = folder.path("a.odb.new-" + std::to_string(getpid()) + "-0");
              link(grows.c_str(), unseen.c_str());
              link(grows.c_str(), like.c_str());
              std::string const failure = create(path);
              return failure + (unlink(like.c_str()) == 0 ? " stayed" : " went");
            }),
            "nothing stayed");
  EXPECT_EQ(unlink(unseen.c_str()), 0) << "went";
  database.Publish();
  EXPECT_EQ(contents(database), "|");
}

TEST_F(FileNodeTest, AFileThatWasReplacedWhileItGrewDoesNotTakeTheName) {
  createFile(path);
  std::string const stands = readFile(path);
  {
    rfm_Database database = begin(path);
    std::string grows = folder.names()[1];
    writeFile(folder.path("other"), "of somebody else");
    std::filesystem::rename(folder.path("other"), folder.path(grows));
    EXPECT_EQ(failureOf([&] { database.Publish(); }),
              "Moved: Database file '" + path + "': the file beside it in which it was made, '" + grows +
                  "', was removed or replaced meanwhile; nothing was changed. Make it again.");
    EXPECT_THAT(failureOf([&] { contents(database); }), HasSubstr("it is no longer open"));
    EXPECT_THAT(failureOf([&] { saveModels(database, {"a"}); }), HasSubstr("it is no longer open"));
  }
  ASSERT_EQ(folder.names().size(), 2U);
  EXPECT_EQ(readFile(folder.path(folder.names()[1])), "of somebody else");
  EXPECT_EQ(readFile(path), stands);
}

TEST_F(FileNodeTest, AFileThatWasRemovedWhileItGrewDoesNotTakeTheName) {
  rfm_Database database = begin(path);
  std::string const grows = growing();
  std::filesystem::remove(folder.path(grows));
  EXPECT_EQ(failureOf([&] { database.Publish(); }),
            "Moved: Database file '" + path + "': the file beside it in which it was made, '" + grows +
                "', was removed or replaced meanwhile; nothing was changed. Make it again.");
  EXPECT_THAT(folder.names(), ElementsAre());
}

TEST_F(FileNodeTest, AFileThatIsRemovedAtTheLastMomentDoesNotTakeTheName) {
  rfm_Database database = begin(path);
  fault_device device(folder.path());
  device.start();
  device.before(device_call::Rename, 1, [&] { std::filesystem::remove(folder.path(growing())); });
  EXPECT_THAT(failureOf([&] { database.Publish(); }), HasSubstr("was removed or replaced meanwhile"));
  EXPECT_THAT(folder.names(), ElementsAre());
}

TEST_F(FileNodeTest, ANameThatIsTakenIsNotGrownUnder) {
  std::string next;
  {
    rfm_Database const database = begin(path);
    std::size_t const number = growing().rfind('-') + 1;
    next = growing().substr(0, number) + std::to_string(std::stoi(growing().substr(number)) + 1);
  }
  std::filesystem::create_directory(folder.path(next));
  EXPECT_EQ(create(path), "nothing");
  EXPECT_THAT(folder.names(), ElementsAre("a.odb", next));
}

TEST_F(FileNodeTest, AGrowingFileThatCouldNotBeDeletedGoesWithTheNextOfItsName) {
  giveUpUndeleted(device_fault::Effect::Error);
  std::string const left = growing();
  ASSERT_NE(left, "none");
  rfm_Database const another = begin(path); // grows, and stays
  std::string const grows = growing();
  EXPECT_NE(grows, left);
  createFile(path);
  EXPECT_THAT(folder.names(), ElementsAre("a.odb", grows));
}

TEST_F(FileNodeTest, AGrowingFileThatCannotBeDeletedIsTriedAgainUntilItIsGone) {
  giveUpUndeleted(device_fault::Effect::Error);
  {
    fault_device device(folder.path());
    device.start({device_call::Delete, 1, device_fault::Effect::Error, EIO, false});
    rfm_Database const another = begin(path);
    EXPECT_EQ(device.faults(), 1);
  }
  EXPECT_EQ(folder.names().size(), 1U);
  createFile(path);
  EXPECT_THAT(folder.names(), ElementsAre("a.odb"));
}

// Else there would be no room for one that is there.
TEST_F(FileNodeTest, AGrowingFileIsForgottenThatWasDeletedAndReportedAsNot) {
  for (int tries = 0; tries < 20; ++tries) {
    giveUpUndeleted(device_fault::Effect::LateError);
    EXPECT_THAT(folder.names(), ElementsAre());
  }
  giveUpUndeleted(device_fault::Effect::Error);
  createFile(path);
  EXPECT_THAT(folder.names(), ElementsAre("a.odb"));
}

TEST_F(FileNodeTest, OfManyGrowingFilesThatCouldNotBeDeletedTheNextOneTakesSomeAway) {
  std::vector<rfm_Database> many;
  for (int number = 0; number < 20; ++number) {
    many.push_back(begin(path));
  }
  {
    fault_device device(folder.path());
    device.start({device_call::Delete, 1, device_fault::Effect::Error, EIO, true});
    many.clear();
  }
  ASSERT_EQ(folder.names().size(), 20U);
  createFile(path);
  EXPECT_EQ(folder.names().size(), 1U + 4U);
  EXPECT_EQ(folder.names().front(), "a.odb");
}

TEST_F(FileNodeTest, ASecondNameThatCouldNotBeDeletedGoesWithTheNextFile) {
  {
    rfm_Database database = beginNew(path);
    fault_device device(folder.path());
    device.lackNoReplace();
    constexpr int behindThoseOfJournals = 4;
    device.start({device_call::Delete, behindThoseOfJournals, device_fault::Effect::Error, EIO, false});
    database.Publish();
    EXPECT_EQ(device.faults(), 1);
  }
  ASSERT_EQ(folder.names().size(), 2U);
  createFile(path);
  EXPECT_THAT(folder.names(), ElementsAre("a.odb"));
}

// Its names could not be synced.
TEST_F(FileNodeTest, AFolderThatMayNotBeListedTakesNoFile) {
  ASSERT_EQ(chmod(folder.path().c_str(), 0733), 0);
  EXPECT_THAT(in_child_without_rights([&] { return create(path); }),
              AllOf(StartsWith("NoPermission: "), HasSubstr("its folder")));
  EXPECT_THAT(folder.names(), ElementsAre());
}

TEST_F(FileNodeTest, ACopyOfTheProcessLeavesTheGrowingFileAlone) {
  std::optional<rfm_Database> database = begin(path);
  EXPECT_EQ(in_child([&] {
              database.reset();
              return growing().substr(0, 10);
            }),
            "a.odb.new-");
  database->Publish();
  EXPECT_EQ(contents(path), "|");
}

TEST_F(FileNodeTest, AFolderThatIsClosedMeanwhileIsToldAndTriedAgain) {
  ASSERT_EQ(chmod(folder.path().c_str(), 0777), 0);
  for (mode_t const mode : {0U, 0600U}) { // all of it, or what is in it
    EXPECT_THAT(in_child_without_rights([&] {
                  std::string const inner = folder.path("inner");
                  std::filesystem::create_directory(inner);
                  rfm_Database database = begin(inner + "/a.odb");
                  chmod(inner.c_str(), mode);
                  std::string const failure = failureOf([&] { database.Publish(); });
                  chmod(inner.c_str(), 0700);
                  database.Publish();
                  std::string const stored = contents(inner + "/a.odb");
                  std::filesystem::remove_all(inner);
                  return failure + " Then: " + stored;
                }),
                AllOf(StartsWith("NoPermission: "), testing::EndsWith("Then: |")))
        << mode;
  }
}

TEST_F(FileNodeTest, AFileWhoseFolderVanishesIsReadOn) {
  std::string const inner = folder.path("inner");
  std::filesystem::create_directory(inner);
  rfm_Database database = begin(inner + "/a.odb");
  std::filesystem::remove_all(inner);
  EXPECT_THAT(failureOf([&] { database.Publish(); }), HasSubstr(inner + "/a.odb"));
  EXPECT_EQ(contents(database), "|");
  EXPECT_THAT(folder.names(), ElementsAre());
}

TEST_F(FileNodeTest, AFolderInThePlaceOfAJournalIsInTheWay) {
  rfm_Database database = begin(path);
  std::filesystem::create_directory(path + "-journal");
  EXPECT_THAT(failureOf([&] { database.Publish(); }),
              AllOf(StartsWith("Other: Database file '" + path + "'"), HasSubstr("cannot be reached")));
  std::filesystem::remove(path + "-journal");
  database.Publish();
  EXPECT_EQ(contents(path), "|");
}

struct Refusal {
  int errorNumber;
  char const* answer;
};

// What the system says of a folder that does not take the name, and what is told of it.
TEST_F(FileNodeTest, AFolderThatDoesNotTakeTheNameIsToldAndTriedAgain) {
  for (Refusal const& refusal : {Refusal{EPERM, "NoPermission: "}, Refusal{EROFS, "ReadOnly: "},
                                 Refusal{ENOSPC, "Full: "}, Refusal{ENAMETOOLONG, "Other: "}}) {
    rfm_Database database = begin(path);
    {
      rfm_Transaction transaction(database);
      database.AddClass(modelClass());
      addModel(database, "a");
      transaction.Commit();
    }
    fault_device device(folder.path());
    device.start({device_call::Rename, 1, device_fault::Effect::Error, refusal.errorNumber, false});
    EXPECT_THAT(failureOf([&] { database.Publish(); }),
                StartsWith(refusal.answer + ("Database file '" + path + "'")));
    device.stop();
    EXPECT_EQ(device.faults(), 1);
    EXPECT_THAT(folder.names(), testing::Not(Contains("a.odb")));
    EXPECT_EQ(contents(database), "a=0 | a");
    database.Publish();
    EXPECT_EQ(contents(path), "a=0 | a");
    std::filesystem::remove(path);
  }
}

// Not every file system can rename without replacing; each can refuse a second name.
TEST_F(FileNodeTest, ANewFileTakesASecondNameWhereRenamingWouldReplace) {
  for (int const errorNumber : {EINVAL, ENOSYS}) {
    rfm_Database database = beginNew(path);
    fault_device device(folder.path());
    device.start({device_call::Rename, 1, device_fault::Effect::Error, errorNumber, false});
    database.Publish();
    device.stop();
    EXPECT_EQ(device.faults(), 1);
    EXPECT_THAT(folder.names(), ElementsAre("a.odb"));
    EXPECT_EQ(contents(path), "|");
    std::filesystem::remove(path);
  }
}

TEST_F(FileNodeTest, AFolderThatDoesNotTakeTheNameOfANewFileIsToldAndTriedAgain) {
  for (Refusal const& refusal :
       {Refusal{EIO, "Other: "}, Refusal{EINVAL, "Other: "}, Refusal{EEXIST, "Other: "}}) {
    rfm_Database database = beginNew(path);
    fault_device device(folder.path());
    device.start({device_call::Rename, 1, device_fault::Effect::Error, refusal.errorNumber, true});
    std::string const failure = failureOf([&] { database.Publish(); });
    device.stop();
    EXPECT_THAT(failure, StartsWith(refusal.answer + ("Database file '" + path + "'")));
    EXPECT_EQ(refusal.errorNumber == EEXIST, failure.find("stands there already") != std::string::npos)
        << failure;
    EXPECT_GT(device.faults(), 0);
    EXPECT_THAT(folder.names(), testing::Not(Contains("a.odb")));
    database.Publish();
    EXPECT_EQ(contents(path), "|");
    std::filesystem::remove(path);
  }
}

TEST_F(FileNodeTest, ARenamingThatIsDoneAndReportedAsFailedIsDone) {
  for (bool const replaces : {false, true}) {
    rfm_Database database = begin(path);
    fault_device device(folder.path());
    device.start({device_call::Rename, 1, device_fault::Effect::LateError, EIO, false});
    EXPECT_EQ(failureOf([&] { database.Publish(); }), "nothing");
    EXPECT_EQ(device.faults(), 1) << replaces;
    EXPECT_EQ(contents(database), "|");
    EXPECT_THAT(folder.names(), ElementsAre("a.odb"));
  }
}

// ---- what others do while a file takes its name ----

struct PublishTest : FileNodeTest {
  /// A database with the journal of a save that was cut off.
  void makeInterrupted(std::string const& name) {
    saveModels(*std::make_unique<rfm_Database>(createFile(name)), {"half"});
    interruptSave(name);
  }
  /// Puts one under the name that is to be taken.
  void putThere(std::string const& other) {
    std::filesystem::rename(other, path);
    std::filesystem::rename(other + "-journal", path + "-journal");
  }
  bool isFolderLocked() const {
    int const descriptor = open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    bool const isLocked = flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    close(descriptor);
    return isLocked;
  }
};

// Without a lock it would lose its place, and its journal would be the new file's.
TEST_F(PublishTest, ADatabaseThatAppearsAtTheLastMomentIsReplacedTogetherWithItsJournal) {
  std::string const other = folder.path("b.odb");
  makeInterrupted(other);
  rfm_Database database = begin(path);
  fault_device device(folder.path());
  device.start();
  device.before(device_call::Rename, 1, [&] { putThere(other); });
  database.Publish();
  EXPECT_THAT(folder.names(), ElementsAre("a.odb"));
  EXPECT_EQ(contents(path), "|");
  EXPECT_EQ(runSql(path, "PRAGMA integrity_check"), "ok");
}

TEST_F(PublishTest, ADatabaseThatAppearsAtTheLastMomentKeepsItsNameWhereNothingIsToBeReplaced) {
  std::string const other = folder.path("b.odb");
  for (bool const lacksNoReplace : {false, true}) {
    makeInterrupted(other);
    rfm_Database database =
        rfm_Database::Create(rfm_File::Open(cow_String(path), utl_FileAccess::CreateNew, true), "D0", "", 1);
    fault_device device(folder.path());
    if (lacksNoReplace) {
      device.lackNoReplace();
    }
    device.start();
    device.before(device_call::Rename, 1, [&] { putThere(other); });
    EXPECT_THAT(failureOf([&] { database.Publish(); }), HasSubstr("a database stands there already"));
    device.stop();
    rfm_Database kept = openFile(path, utl_FileAccess::Write);
    EXPECT_EQ(contents(kept), "half=0 | half");
    std::filesystem::remove(path);
  }
}

// It is opened when it is first used.
TEST_F(PublishTest, AFileThatIsReplacedBeforeItIsUsedIsNotTakenForTheOther) {
  std::string const other = folder.path("b.odb");
  rfm_Database database = begin(path);
  database.Publish();
  saveModels(*std::make_unique<rfm_Database>(createFile(other)), {"other"});
  std::string const found = contents(other);
  std::filesystem::rename(other, path);
  for (int tries = 0; tries < 2; ++tries) {
    EXPECT_THAT(failureOf([&] { saveModels(database, {"lost"}); }),
                StartsWith("Moved: Database file '" + path + "': it was replaced, renamed or deleted"));
  }
  EXPECT_EQ(contents(path), found);
  std::filesystem::remove(path);
  EXPECT_THAT(failureOf([&] { saveModels(database, {"lost"}); }), StartsWith("Moved: "));
  EXPECT_THAT(folder.names(), testing::IsEmpty());
}

// What is locked must be what has the name.
TEST_F(PublishTest, WhatTakesTheNameBeforeItIsLockedIsLookedAtAnew) {
  int moments = 0;
  for (bool happened = true; happened;) {
    happened = false;
    createFile(path);
    writeFile(folder.path("letter"), "Dear reader");
    rfm_Database database = begin(path);
    fault_device device(folder.path());
    device.start();
    device.before(device_call::Lock, moments + 1, [&] {
      happened = folder.names().size() == 3; // else the file has taken its name
      if (happened) {
        std::filesystem::rename(folder.path("letter"), path);
      }
    });
    std::string const failure = failureOf([&] { database.Publish(); });
    EXPECT_EQ(failure.substr(0, 14), happened ? "NotADatabase: " : "nothing") << moments;
    if (happened) {
      EXPECT_EQ(readFile(path), "Dear reader") << moments;
      std::filesystem::remove(path);
    }
    moments += happened ? 1 : 0;
  }
  EXPECT_GT(moments, 2);
}

// Between the look at the name and SQLite's opening.
TEST_F(PublishTest, ANewFileWhoseNameIsTakenWhileItIsOpenedIsNotMistaken) {
  std::string const other = folder.path("b.odb");
  saveModels(*std::make_unique<rfm_Database>(createFile(other)), {"other"});
  rfm_Database database = createFile(path);
  fault_device device(folder.path());
  device.start();
  device.before(device_call::Open, 1, [&] { std::filesystem::rename(other, path); });
  EXPECT_THAT(failureOf([&] { contents(database); }), StartsWith("Moved: Database file '" + path + "'"));
  device.stop();
  EXPECT_THAT(failureOf([&] { saveModels(database, {"a"}); }), StartsWith("Moved: "));
  EXPECT_EQ(contents(path), "other=0 | other");
}

// Else the journal of a database that another one has just made could be taken for a stray one.
TEST_F(PublishTest, OthersThatMakeFilesInTheFolderWait) {
  for (device_call const moment : {device_call::Delete, device_call::Rename}) {
    makeInterrupted(path);
    std::filesystem::remove(path);
    rfm_Database database = begin(path);
    fault_device device(folder.path());
    device.start();
    bool wait = false;
    device.before(moment, 1, [&] { wait = isFolderLocked(); });
    EXPECT_FALSE(isFolderLocked());
    database.Publish();
    EXPECT_TRUE(wait) << nameOf(moment);
    EXPECT_FALSE(isFolderLocked());
    EXPECT_EQ(contents(path), "|");
    std::filesystem::remove(path);
  }
}

TEST_F(PublishTest, AFolderThatIsHeldAllTheTimeTakesNoFile) {
  rfm_Database database = begin(path);
  sqlite3_vfs* const ordinary = sqlite3_vfs_find(nullptr);
  sqlite3_vfs hasty = *ordinary;
  hasty.zName = "hasty";
  hasty.xSleep = [](sqlite3_vfs*, int microseconds) { return microseconds; };
  sqlite3_vfs_register(&hasty, 1);
  int const holder = open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(flock(holder, LOCK_EX), 0);
  std::string const failure = failureOf([&] { database.Publish(); });
  close(holder);
  sqlite3_vfs_unregister(&hasty);
  sqlite3_vfs_register(ordinary, 1);
  EXPECT_THAT(failure, AllOf(StartsWith("Locked: "), HasSubstr("'" + path + "'")));
  database.Publish();
  EXPECT_EQ(contents(path), "|");
}

TEST_F(PublishTest, EachAnswerOfAFileSystemWithoutLocksOfFoldersIsKnown) {
  for (int const errorNumber : {EOPNOTSUPP, ENOSYS, EINVAL, ENOLCK}) {
    rfm_Database database = begin(path);
    fault_device device(folder.path());
    device.start({device_call::Lock, 1, device_fault::Effect::Error, errorNumber, false});
    EXPECT_EQ(failureOf([&] { database.Publish(); }), "nothing") << errorNumber;
    EXPECT_EQ(device.faults(), 1);
    EXPECT_EQ(contents(path), "|");
  }
}

TEST_F(PublishTest, AFolderThatCannotBeLockedTakesNoFile) {
  rfm_Database database = begin(path);
  fault_device device(folder.path());
  device.start({device_call::Lock, 1, device_fault::Effect::Error, EIO, false});
  EXPECT_EQ(
      failureOf([&] { database.Publish(); }),
      "Locked: Database file '" + path +
          "': its folder cannot be locked (Input/output error); nothing was changed. Check the device, then "
          "try again.");
  EXPECT_THAT(folder.names(), testing::Not(Contains("a.odb")));
  database.Publish();
  EXPECT_EQ(contents(path), "|");
}

TEST_F(PublishTest, ALockOfTheFolderThatIsInterruptedIsAskedForAgain) {
  rfm_Database database = begin(path);
  fault_device device(folder.path());
  device.start({device_call::Lock, 1, device_fault::Effect::Error, EINTR, false});
  bool isLocked = false;
  device.before(device_call::Rename, 1, [&] { isLocked = isFolderLocked(); });
  database.Publish();
  EXPECT_EQ(device.faults(), 1);
  EXPECT_TRUE(isLocked);
}

// It has its name, and a second try would find it there.
TEST_F(PublishTest, AFileWhoseNameIsNotSyncedIsThereAndSaysHowToKeepIt) {
  fault_device device(folder.path());
  rfm_Database database = beginNew(path);
  device.start({device_call::Sync, 2, device_fault::Effect::Error, EIO, false}); // the first is the file's
  EXPECT_EQ(
      failureOf([&] { database.Publish(); }),
      "Full: Database file '" + path +
          "': its folder could not be synced (Input/output error); the file is there, but a power cut may "
          "take it. Check the device and its free space, then save a change to it, or remove it and try "
          "again.");
  EXPECT_EQ(contents(path), "|");
  EXPECT_THAT(failureOf([&] { beginNew(path); }), HasSubstr("a database stands there already"));
  device.start();
  rfm_Transaction(database).Commit(); // without a change, but it owes a sync
  EXPECT_GT(device.calls(device_call::Sync), 0);
  device.start();
  rfm_Transaction(database).Commit();
  EXPECT_EQ(device.calls(device_call::Sync), 0);
  std::filesystem::remove(path);
  beginNew(path).Publish();
  EXPECT_EQ(contents(path), "|");
}

// A power cut must not bring the journal back beside the new file.
TEST_F(PublishTest, ANameIsNotTakenBeforeTheRemovalOfAStrayJournalIsSynced) {
  makeInterrupted(path);
  std::filesystem::remove(path);
  fault_device device(folder.path());
  rfm_Database database = begin(path);
  device.start({device_call::Sync, 2, device_fault::Effect::Error, EIO, false}); // the first is the file's
  EXPECT_EQ(
      failureOf([&] { database.Publish(); }),
      "Full: Database file '" + path +
          "': its folder could not be synced (Input/output error); nothing was changed. Check the device and "
          "its free space, then try again.");
  EXPECT_THAT(folder.names(), testing::Not(Contains("a.odb")));
  device.start();
  int syncs = 0;
  device.before(device_call::Rename, 1, [&] { syncs = device.calls(device_call::Sync); });
  database.Publish();
  EXPECT_EQ(syncs, 2) << "of the file, and of the folder where the journal is gone already";
  EXPECT_EQ(contents(path), "|");
}

TEST_F(PublishTest, AFileSystemWithoutRenamingThatRefusesIsUsedInOtherWays) {
  for (int const linkError : {0, EPERM, EOPNOTSUPP, ENOSYS}) {
    rfm_Database database = begin(path);
    fault_device device(folder.path());
    device.lackNoReplace();
    if (linkError == 0) {
      device.start();
    } else {
      device.start({device_call::Rename, 1, device_fault::Effect::Error, linkError, false});
    }
    EXPECT_EQ(failureOf([&] { database.Publish(); }), "nothing");
    EXPECT_EQ(device.calls(device_call::Rename), linkError == 0 ? 1 : 2);
    device.stop();
    EXPECT_THAT(folder.names(), ElementsAre("a.odb"));
    EXPECT_EQ(contents(database), "|");
    std::filesystem::remove(path);
  }
}

TEST_F(PublishTest, ADatabaseThatAppearsWhereNothingCanRefuseKeepsItsName) {
  std::string const other = folder.path("b.odb");
  makeInterrupted(other);
  rfm_Database database = beginNew(path);
  fault_device device(folder.path());
  device.lackNoReplace();
  device.start({device_call::Rename, 1, device_fault::Effect::Error, EPERM, false});
  device.before(device_call::Rename, 1, [&] { putThere(other); });
  EXPECT_THAT(failureOf([&] { database.Publish(); }), HasSubstr("a database stands there already"));
  device.stop();
  rfm_Database kept = openFile(path, utl_FileAccess::Write);
  EXPECT_EQ(contents(kept), "half=0 | half");
}

TEST_F(PublishTest, AFileSystemThatTakesNoNameInAnyWayIsToldAndTriedAgain) {
  rfm_Database database = begin(path);
  fault_device device(folder.path());
  device.lackNoReplace();
  device.start({device_call::Rename, 1, device_fault::Effect::Error, EPERM, true});
  EXPECT_THAT(failureOf([&] { database.Publish(); }),
              StartsWith("NoPermission: Database file '" + path + "'"));
  EXPECT_EQ(device.calls(device_call::Rename), 2) << "a second name, and the name";
  device.stop();
  database.Publish();
  EXPECT_EQ(contents(path), "|");
}

// Nobody can wait there, and nobody is kept from saving.
TEST_F(PublishTest, AFileSystemWithoutLocksOfFoldersIsUsedWithoutThem) {
  rfm_Database database = begin(path);
  fault_device device(folder.path());
  device.lackFolderLocks();
  EXPECT_EQ(failureOf([&] { database.Publish(); }), "nothing");
  EXPECT_FALSE(isFolderLocked());
  EXPECT_EQ(contents(path), "|");
}

// ---- memory that runs out in the system ----

constexpr char const* noMemory = "exception: std::bad_alloc";

TEST_F(FileNodeTest, WantOfMemoryForANameIsNoFailureOfTheFile) {
  createFile(path);
  rememberNoNames = true;
  EXPECT_EQ(openForReading(path), noMemory);
  EXPECT_EQ(create(folder.path("b.odb")), noMemory);
  rememberNoNames = false;
  EXPECT_EQ(openForReading(path), "nothing");
}

struct SystemMemoryTest : FileNodeTest, testing::WithParamInterface<device_call> {
  /// Does a piece of work on a new file while the system has no memory for one call after the other.
  /// @returns how often that was told
  int toldOf(std::function<void()> const& work) {
    for (int told = 0, number = 1;; ++number) {
      createFile(path);
      fault_device device(folder.path());
      device.start({GetParam(), number, device_fault::Effect::Error, ENOMEM, false});
      std::string const failure = failureOf(work);
      device.stop();
      if (device.faults() == 0) {
        EXPECT_EQ(failure, "nothing");
        return told;
      }
      EXPECT_THAT(failure, AnyOf("nothing", noMemory, HasSubstr(" is there, but "),
                                 HasSubstr(" are in the file, but ")))
          << number;
      told += failure == noMemory ? 1 : 0;
      EXPECT_EQ(failureOf(work), "nothing") << number << ", when tried again";
    }
  }
};

TEST_P(SystemMemoryTest, ItsWantIsNoFailureOfTheFile) {
  int told = toldOf([&] { contents(path); });
  told += toldOf(
      [&] { saveModels(*std::make_unique<rfm_Database>(openFile(path, utl_FileAccess::Write)), {"a"}); });
  told += toldOf([&] { createFile(path); });
  EXPECT_GT(told, 0);
}

INSTANTIATE_TEST_SUITE_P(Calls, SystemMemoryTest,
                         testing::Values(device_call::Open, device_call::Read, device_call::Write,
                                         device_call::Sync, device_call::Rename, device_call::Lock),
                         [](auto const& chosen) { return std::string(nameOf(chosen.param)); });

} // namespace
