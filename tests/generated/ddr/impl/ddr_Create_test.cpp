// Creating databases, and the persistent names that they get.
#include "ddr_ModuleTest.h"

#include "rfm_Database.h"
#include "rfm_Exception.h"

#include <filesystem>

namespace {

// 2024-03-05 07:08:09 in Greenwich.
constexpr std::int64_t march = 1709622489;

class DdrCreate : public ddr_ModuleTest {
protected:
  /// The text without the blanks at its end.
  static std::string trimmed(cow_String const& text) {
    std::string const whole(text.View());
    return whole.substr(0, whole.find_last_not_of(' ') + 1);
  }

  /// A path of a given length that leads into the folder of the test.
  std::string longPath(std::size_t length, std::string const& ending) const {
    std::string long_(folder.path() + "/");
    while (long_.size() + ending.size() < length) {
      long_ += long_.size() + ending.size() + 2 <= length ? "./" : "/";
    }
    return long_ + ending;
  }

  /// The name that the registry would give to a file, found without making the file.
  static cow_String nameFor(std::string const& file) {
    ddr_Root::Instance().CreateDdb(cow_String(file), "");
    return ddr_Root::Instance().GetPersistentName(cow_String(file));
  }
};

TEST_F(DdrCreate, NeedsClasses) {
  root().SetClassRegistrar(nullptr);
  auto const error = caught<nex_TextException>([&] { create("a.odb"); });
  EXPECT_STREQ(error.what(), "Class registrar not initialized");
  EXPECT_EQ(placeOf(error), "generated/ddr/impl/ddr_Root:109");
  EXPECT_EQ(folder.names(), Texts());
}

TEST_F(DdrCreate, ThePersistentNameIsTheTimeAndTheFileNamePadded) {
  setClock(march);
  std::filesystem::path const former = std::filesystem::current_path();
  std::filesystem::current_path(folder.path());
  cow_String const name = nameFor("a.odb");
  std::filesystem::current_path(former);
  std::string wanted = "2024/03/05 07:08:09 a.odb";
  wanted.resize(2048, ' ');
  EXPECT_EQ(std::string(name.Text()), wanted);
  EXPECT_EQ(ddr_Root::PERS_STRING_PAD, 2048U);
}

TEST_F(DdrCreate, ThePersistentNameIsInLocalTime) {
  setClock(march);
  os_runtimeCalls().localtime64 = [](std::int64_t const* moment) {
    static thread_local std::tm broken;
    std::time_t const time = *moment - 5 * 3600;
    return gmtime_r(&time, &broken);
  };
  EXPECT_EQ(trimmed(create("a.odb")), "2024/03/05 02:08:09 " + folder.path("a.odb"));
}

TEST_F(DdrCreate, TwoDatabasesOfOneFileNameInDifferentSecondsHaveDifferentNames) {
  setClock(march);
  cow_String const first = create("a.odb");
  close(first);
  setClock(march + 1);
  EXPECT_NE(create("a.odb"), first);
}

TEST_F(DdrCreate, ANameOfAFileThatJustFitsIsNotCut) {
  setClock(march);
  std::string const file = longPath(2048 - 20, "fits.odb");
  ASSERT_EQ(file.size(), 2028U);
  cow_String const name = nameFor(file);
  EXPECT_EQ(std::string(name.Text()), "2024/03/05 07:08:09 " + file);
}

TEST_F(DdrCreate, ALongFileNameIsCutAt2048) {
  setClock(march);
  std::string const file = longPath(3000, "long.odb");
  cow_String const name = nameFor(file);
  EXPECT_EQ(name.Length(), 2048U);
  EXPECT_EQ(std::string(name.Text()), ("2024/03/05 07:08:09 " + file).substr(0, 2048));
  EXPECT_EQ(root().GetFileName(name), cow_String(file));
}

TEST_F(DdrCreate, ALongFileNameThatIsNoTextIsRefused) {
  auto const error = caught<rfm_Exception>([&] { nameFor(longPath(2028 + 3, std::string(9, '\x80'))); });
  EXPECT_NE(std::string(error.what()).find("the name is not UTF-8"), std::string::npos) << error.what();
  EXPECT_EQ(folder.names(), Texts());
}

TEST_F(DdrCreate, ACutInTheMiddleOfACharacterLeavesABlankInItsPlace) {
  setClock(march);
  struct Cut {
    std::string character;
    std::size_t kept; // bytes of the character before the cut
  };
  for (Cut const& cut : {Cut{"\xc3\xa9", 1}, Cut{"\xe2\x82\xac", 1}, Cut{"\xe2\x82\xac", 2},
                         Cut{"\xf0\x9f\x98\x80", 1}, Cut{"\xf0\x9f\x98\x80", 3}}) {
    std::string const before = longPath(2028 - cut.kept, "x");
    cow_String const name = nameFor(before + cut.character + ".odb");
    std::string wanted = "2024/03/05 07:08:09 " + before;
    wanted.resize(2048, ' ');
    EXPECT_EQ(std::string(name.Text()), wanted);
    save(name); // a cut character could not be stored
    close(name);
  }
}

TEST_F(DdrCreate, ACharacterThatEndsAtTheCutIsKept) {
  setClock(march);
  std::string const before = longPath(2028 - 3, "x");
  cow_String const name = nameFor(before + "\xe2\x82\xac" + ".odb");
  EXPECT_EQ(std::string(name.Text()), "2024/03/05 07:08:09 " + before + "\xe2\x82\xac");
}

TEST_F(DdrCreate, ATimeThatCannotBeFormattedIsAnAssertion) {
  setClock(march);
  os_runtimeCalls().strftime = [](char*, std::size_t, char const*, std::tm const*) { return std::size_t{0}; };
  auto const error = caught<nex_AssertException>([&] { create("a.odb"); });
  EXPECT_STREQ(error.what(), "dsLen > 0 && dsLen <= PERS_STRING_PAD");
  EXPECT_EQ(placeOf(error), "generated/ddr/impl/ddr_Root:119");
  EXPECT_EQ(folder.names(), Texts());
  EXPECT_EQ(root().Fetch().Size(), 0);
}

TEST_F(DdrCreate, ATimeThatIsTooLongIsAnAssertion) {
  os_runtimeCalls().strftime = [](char*, std::size_t, char const*, std::tm const*) {
    return std::size_t{2049};
  };
  EXPECT_EQ(placeOf(caught<nex_AssertException>([&] { create("a.odb"); })),
            "generated/ddr/impl/ddr_Root:119");
  EXPECT_EQ(folder.names(), Texts());
}

TEST_F(DdrCreate, ATimeOfTheWholeLengthLeavesNoRoomForTheFile) {
  os_runtimeCalls().strftime = [](char* text, std::size_t, char const*, std::tm const*) {
    std::fill(text, text + 2048, 't');
    return std::size_t{2048};
  };
  EXPECT_EQ(std::string(create("a.odb").Text()), std::string(2048, 't'));
}

TEST_F(DdrCreate, TheTimeIsFormattedWithOnePatternAndRoomForTheZero) {
  static Texts formats;
  formats.clear();
  static os_RuntimeCalls const real;
  os_runtimeCalls().strftime = [](char* text, std::size_t size, char const* format, std::tm const* time) {
    formats.push_back(std::to_string(size) + " " + format);
    return real.strftime(text, size, format, time);
  };
  create("a.odb");
  EXPECT_EQ(formats, Texts{"2049 %Y/%m/%d %H:%M:%S "});
}

TEST_F(DdrCreate, TheRecordIsNewAndKnowsItsFile) {
  setClock(march);
  cow_String const name = create("a.odb", "what it is");
  ddr_Ddb const& made = record(name);
  EXPECT_EQ(made.GetName(), name);
  EXPECT_EQ(made.GetDbId(), path("a.odb"));
  EXPECT_STREQ(made.GetDescription().Text(), "what it is");
  EXPECT_EQ(made.GetCreationTime(), march);
  EXPECT_EQ(made.GetModifyTime(), march);
  ASSERT_NE(made.GetTransporter(), nullptr);
  EXPECT_EQ(made.GetTransporter()->File().FileName(), path("a.odb"));
}

TEST_F(DdrCreate, TheFileHasItsHeaderAtOnceAndNoRecord) {
  setClock(march);
  create("a.odb", "what it is");
  rfm_Database database = rfm_Database::Open(rfm_File::Open(path("a.odb"), utl_FileAccess::Read, true), "D0");
  database.Bind();
  EXPECT_EQ(database.CreationTime(), march);
  EXPECT_STREQ(database.Description().Text(), "what it is");
  EXPECT_NE(database.FindClassByName("ddr_Ddb"), nullptr);
  EXPECT_EQ(database.Table(ddr_Ddb::TypeId()).Length(), 0);
}

TEST_F(DdrCreate, ACreationTimeBeyond32BitsIsTruncatedInRecordAndHeaderAlike) {
  setClock((std::int64_t{1} << 32) + 77);
  cow_String const name = createSaved("a.odb");
  EXPECT_EQ(record(name).GetCreationTime(), 77);
  rfm_File const file = rfm_File::Open(path("a.odb"), utl_FileAccess::Read, true);
  EXPECT_EQ(rfm_Database::GetCreationTime(file), 77);
  EXPECT_TRUE(root().VerifyCreationDate(file));
}

TEST_F(DdrCreate, IsOpenOnceAndForWriting) {
  cow_String const name = create("a.odb");
  EXPECT_EQ(root().GetOpenCount(name), 1);
  EXPECT_FALSE(root().WasOpenedReadOnly(name));
  EXPECT_TRUE(root().IsMember(path("a.odb")));
}

TEST_F(DdrCreate, RefusesAFileOfAnotherProgramAndLeavesTheRegistry) {
  cow_String const open1 = createSaved("open.odb");
  writeFile(folder.path("notes.txt"), "my notes");
  ddr_Ddb const* const before = &record(open1);
  EXPECT_THROW(create("notes.txt"), rfm_Exception);
  EXPECT_EQ(readFile(folder.path("notes.txt")), "my notes");
  EXPECT_FALSE(root().IsMember(path("notes.txt")));
  EXPECT_EQ(root().Fetch().Size(), 1);
  EXPECT_EQ(&record(open1), before);
  EXPECT_EQ(folder.names(), (Texts{"notes.txt", "open.odb"}));
}

TEST_F(DdrCreate, AMissingFolderLeavesTheRegistry) {
  auto const error = caught<rfm_Exception>([&] { create("missing/a.odb"); });
  EXPECT_EQ(error.Kind(), rfm_ErrorKind::Missing);
  EXPECT_EQ(root().Fetch().Size(), 0);
  EXPECT_EQ(folder.names(), Texts());
}

TEST_F(DdrCreate, ReplacesADatabaseOfOurs) {
  setClock(march);
  cow_String const first = create("a.odb");
  addModels(first, {"old"});
  save(first);
  close(first);
  setClock(march + 1);
  cow_String const second = createSaved("a.odb");
  EXPECT_EQ(modelNames(record(reopen(second, "a.odb"))), Texts());
}

TEST_F(DdrCreate, WhatHasReplacedANewDatabaseIsNotWrittenTo) {
  for (bool const isSaved : {false, true}) {
    if (isSaved) {
      root().CreateSavedDdb(path("a.odb"), "first", utl_FileAccess::Create);
    } else {
      root().CreateDdb(path("a.odb"), "first");
    }
    cow_String const name = root().GetPersistentName(path("a.odb"));
    cow_String const other = create("b.odb");
    addModels(other, {"kept"});
    save(other);
    std::filesystem::rename(folder.path("b.odb"), folder.path("a.odb"));
    auto const error = caught<rfm_Exception>([&] { save(name); });
    EXPECT_EQ(error.Kind(), rfm_ErrorKind::Moved) << error.what();
    close(name);
    close(other);
    EXPECT_EQ(modelNames(record(open("a.odb"))), Texts{"kept"});
    close(root().GetPersistentName(path("a.odb")));
  }
}

TEST_F(DdrCreate, ADatabaseThatIsStillOpenGoesOnReadingItsOldFile) {
  setClock(march);
  cow_String const first = create("a.odb");
  addModels(first, {"old"});
  save(first);
  cow_String const reread = reopen(first, "a.odb");
  setClock(march + 1);
  cow_String const second = createSaved("a.odb");
  EXPECT_STREQ(record(reread).models.ConstGet("old").GetName().Text(), "old");
  EXPECT_EQ(root().GetPersistentName(path("a.odb")), second);
  EXPECT_EQ(modelNames(record(second)), Texts());
}

} // namespace
