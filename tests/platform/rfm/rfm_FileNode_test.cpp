// Tests of names and folders: what cannot be opened or created there, and what stands in the way.
#include "rfm_TestFiles.h"

#include "child_process.h"
#include "fault_device.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <gmock/gmock.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

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

TEST_F(FileNodeTest, AFolderThatMayNotBeListedTakesAFileThatPowerCutsMayTake) {
  ASSERT_EQ(chmod(folder.path().c_str(), 0733), 0);
  EXPECT_THAT(in_child_without_rights([&] { return create(path); }),
              AllOf(StartsWith("Full: "), HasSubstr("the file is there, but a power cut may take it")));
  EXPECT_EQ(contents(path), "|");
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
  EXPECT_THAT(in_child_without_rights([&] {
                std::string const inner = folder.path("inner");
                std::filesystem::create_directory(inner);
                rfm_Database database = begin(inner + "/a.odb");
                chmod(inner.c_str(), 0);
                std::string const failure = failureOf([&] { database.Publish(); });
                chmod(inner.c_str(), 0700);
                database.Publish();
                return failure + " Then: " + contents(inner + "/a.odb");
              }),
              AllOf(StartsWith("NoPermission: "), testing::EndsWith("Then: |")));
}

TEST_F(FileNodeTest, AFileWhoseFolderVanishesIsNoLongerOpen) {
  std::string const inner = folder.path("inner");
  std::filesystem::create_directory(inner);
  rfm_Database database = begin(inner + "/a.odb");
  std::filesystem::remove_all(inner);
  EXPECT_THAT(failureOf([&] { database.Publish(); }), HasSubstr(inner + "/a.odb"));
  EXPECT_THAT(failureOf([&] { contents(database); }), HasSubstr("no longer open"));
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

} // namespace
