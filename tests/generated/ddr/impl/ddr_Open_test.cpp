// Opening database files.
#include "ddr_ModuleTest.h"

#include "child_process.h"
#include "database_test.h"
#include "omu_Exceptions.h"
#include "pnt_DebugPrint.h"
#include "rfm_Exception.h"
#include "rfm_Transaction.h"
#include "rom_ODBHeaderParser.h"
#include "typ_DebugFlags.h"

#include <algorithm>
#include <filesystem>
#include <regex>
#include <sstream>
#include <sys/stat.h>
#include <thread>

namespace {

constexpr utl_FileAccess forReading = utl_FileAccess::Read;
constexpr utl_FileAccess forWriting = utl_FileAccess::Write;

class DdrOpen : public ddr_ModuleTest {
protected:
  ~DdrOpen() override {
    typ_DebugFlags::SetDebugFlags(34, 0);
    pnt_setDebugPrint(nullptr);
  }

  /// A database file that is not open.
  /// @return its persistent name
  cow_String make(std::string const& name) {
    cow_String const database = createSaved(name);
    close(database);
    return database;
  }

  /// Makes a database file through the registry of another thread.
  void makeElsewhere(std::string const& name) {
    std::thread([&] {
      installClasses();
      make(name);
    }).join();
  }

  nex_TextException refused(std::string const& name, utl_FileAccess access, cow_String const& newName = "") {
    return caught<nex_TextException>([&] { open(name, access, newName); });
  }

  /// The names stored in the rows of the database record.
  Texts storedNames(std::string const& name) {
    rfm_Database database = rfm_Database::Open(rfm_File::Open(path(name), forReading, true), "D0");
    database.Bind();
    rfm_Table table = database.Table(ddr_Ddb::TypeId());
    Texts names;
    for (int row = 0; row < table.Length(); ++row) {
      names.emplace_back(table.ReadRow(row).ReadFieldString("name").Text());
    }
    return names;
  }

  /// Puts a text that is no add-on into the stored list.
  void storeUnknownAddOn(std::string const& name) {
    rfm_Database database = rfm_Database::Open(rfm_File::Open(path(name), forWriting, true), "D0");
    database.Bind();
    std::int64_t const handle =
        database.Table(ddr_ProductAddOnList::TypeId()).ReadRow(0).ReadFieldHandle("Target#Handle");
    rfm_Transaction transaction(database);
    database.Entries().Clear(handle);
    database.Entries().Append(handle, "OTHER", 0, -1);
    transaction.Commit();
  }

  /// What opening prints at a debug level.
  std::string printedAt(int level, std::string const& name) {
    std::ostringstream printed;
    pnt_setDebugPrint(&printed);
    typ_DebugFlags::SetDebugFlags(34, level);
    open(name);
    pnt_setDebugPrint(nullptr);
    return printed.str();
  }
};

TEST_F(DdrOpen, NeedsClasses) {
  make("a.odb");
  root().SetClassRegistrar(nullptr);
  auto const error = refused("a.odb", forReading);
  EXPECT_STREQ(error.what(), "Class registrar not initialized");
  EXPECT_EQ(placeOf(error), "generated/ddr/impl/ddr_Root:161");
  EXPECT_FALSE(root().IsMember(path("a.odb")));
}

TEST_F(DdrOpen, GivesTheStoredNameOfANewDatabase) {
  cow_String const made = make("a.odb");
  EXPECT_EQ(open("a.odb"), made);
  EXPECT_EQ(made.Length(), 2048U);
  EXPECT_TRUE(root().IsMember(path("a.odb")));
  EXPECT_EQ(root().GetPersistentName(path("a.odb")), made);
  EXPECT_EQ(root().GetOpenCount(made), 1);
}

TEST_F(DdrOpen, AFirstOpeningReturnsTheNameThatTheRecordHolds) {
  make("a.odb");
  cow_String const& name = root().OpenDdb(rfm_File::Open(path("a.odb"), forReading, true), "");
  EXPECT_EQ(&name, &record(name).GetName());
}

TEST_F(DdrOpen, ALaterOpeningReturnsTheNameThatTheRegistryHolds) {
  make("a.odb");
  open("a.odb", forReading);
  cow_String const& name = root().OpenDdb(rfm_File::Open(path("a.odb"), forReading, true), "");
  EXPECT_EQ(&name, &root().GetPersistentName(path("a.odb")));
}

TEST_F(DdrOpen, RemembersWhetherItWasForReading) {
  make("a.odb");
  make("b.odb");
  EXPECT_TRUE(root().WasOpenedReadOnly(open("a.odb", forReading)));
  EXPECT_FALSE(root().WasOpenedReadOnly(open("b.odb", forWriting)));
}

TEST_F(DdrOpen, ASecondOpeningForReadingOnlyCounts) {
  make("a.odb");
  cow_String const first = open("a.odb", forReading);
  ddr_Ddb const* const before = &record(first);
  EXPECT_EQ(open("a.odb", forReading), first);
  EXPECT_EQ(root().GetOpenCount(first), 2);
  EXPECT_EQ(&record(first), before);
}

TEST_F(DdrOpen, ASecondOpeningReadsNothingOfTheDatabase) {
  make("a.odb");
  cow_String const name = open("a.odb", forReading);
  auto const& statistics = record(name).GetTransporter()->File().Statistics();
  auto const before = statistics.rowsRead;
  rfm_File const again = rfm_File::Open(path("a.odb"), forReading, true);
  root().OpenDdb(again, "");
  EXPECT_EQ(statistics.rowsRead, before);
  EXPECT_LE(again.Statistics().rowsRead, 2U);
}

TEST_F(DdrOpen, TwoWritersAreRefused) {
  make("a.odb");
  cow_String const name = open("a.odb", forWriting);
  auto const error = refused("a.odb", forWriting);
  EXPECT_STREQ(error.what(), "Two applications opening the same file for write is not allowed.");
  EXPECT_EQ(placeOf(error), "generated/ddr/impl/ddr_Root:177");
  EXPECT_EQ(root().GetOpenCount(name), 1);
  EXPECT_FALSE(root().WasOpenedReadOnly(name));
}

TEST_F(DdrOpen, ACreatedDatabaseCountsAsAWriter) {
  cow_String const name = createSaved("a.odb");
  EXPECT_EQ(root().GetOpenCount(name), 1);
  EXPECT_FALSE(root().WasOpenedReadOnly(name));
  EXPECT_EQ(placeOf(refused("a.odb", forWriting)), "generated/ddr/impl/ddr_Root:177");
}

TEST_F(DdrOpen, AWriterIsLetThroughOnceAReaderCameBehindTheFirstWriter) {
  make("a.odb");
  cow_String const name = open("a.odb", forWriting);
  open("a.odb", forReading);
  EXPECT_TRUE(root().WasOpenedReadOnly(name));
  open("a.odb", forWriting);
  EXPECT_EQ(root().GetOpenCount(name), 3);
  EXPECT_TRUE(root().WasOpenedReadOnly(name));
}

TEST_F(DdrOpen, AReaderFirstLetsAnyNumberOfWritersThrough) {
  make("a.odb");
  cow_String const name = open("a.odb", forReading);
  for (int writer = 0; writer < 5; ++writer) {
    open("a.odb", forWriting);
  }
  EXPECT_EQ(root().GetOpenCount(name), 6);
  EXPECT_TRUE(root().WasOpenedReadOnly(name));
}

TEST_F(DdrOpen, ReadersBehindAWriterAreAlwaysLetThrough) {
  make("a.odb");
  cow_String const name = open("a.odb", forWriting);
  for (int reader = 0; reader < 3; ++reader) {
    open("a.odb", forReading);
  }
  EXPECT_EQ(root().GetOpenCount(name), 4);
}

TEST_F(DdrOpen, TheRuleOfOneWriterHoldsInEveryOrderOfFourOpenings) {
  for (unsigned order = 0; order < 16; ++order) {
    std::string const file = std::to_string(order) + ".odb";
    cow_String const name = make(file);
    int count = 0;
    bool anyReader = false;
    for (unsigned turn = 0; turn < 4; ++turn) {
      bool const reads = ((order >> turn) & 1U) != 0;
      bool opened = true;
      try {
        open(file, reads ? forReading : forWriting);
      } catch (nex_TextException const&) {
        opened = false;
      }
      EXPECT_EQ(opened, count == 0 || anyReader || reads) << order << " " << turn;
      count += opened ? 1 : 0;
      anyReader = anyReader || reads;
      EXPECT_EQ(root().GetOpenCount(name), count) << order << " " << turn;
      EXPECT_EQ(root().WasOpenedReadOnly(name), anyReader) << order << " " << turn;
    }
  }
}

TEST_F(DdrOpen, TheRuleOfOneWriterHoldsInEveryOrderBehindACreation) {
  for (unsigned order = 0; order < 8; ++order) {
    std::string const file = std::to_string(order) + ".odb";
    cow_String const name = createSaved(file);
    int count = 1;
    bool anyReader = false;
    for (unsigned turn = 0; turn < 3; ++turn) {
      bool const reads = ((order >> turn) & 1U) != 0;
      bool opened = true;
      try {
        open(file, reads ? forReading : forWriting);
      } catch (nex_TextException const&) {
        opened = false;
      }
      EXPECT_EQ(opened, anyReader || reads) << order << " " << turn;
      count += opened ? 1 : 0;
      anyReader = anyReader || reads;
      EXPECT_EQ(root().GetOpenCount(name), count) << order << " " << turn;
    }
  }
}

TEST_F(DdrOpen, TheRuleOfOneWriterBeginsAnewAfterClosing) {
  make("a.odb");
  cow_String const name = open("a.odb", forReading);
  open("a.odb", forWriting);
  close(name);
  open("a.odb", forWriting);
  EXPECT_EQ(root().GetOpenCount(name), 1);
  EXPECT_EQ(placeOf(refused("a.odb", forWriting)), "generated/ddr/impl/ddr_Root:177");
}

TEST_F(DdrOpen, TheRuleOfOneWriterHoldsForEachThreadAlone) {
  make("a.odb");
  cow_String const name = open("a.odb", forWriting);
  std::thread([&] {
    installClasses();
    EXPECT_EQ(open("a.odb", forWriting), name);
    EXPECT_EQ(root().GetOpenCount(name), 1);
  }).join();
  EXPECT_EQ(root().GetOpenCount(name), 1);
}

TEST_F(DdrOpen, AGivenNameIsNoWayAroundTheRuleOfOneWriter) {
  cow_String const made = make("a.odb");
  open("a.odb", forWriting);
  EXPECT_EQ(placeOf(refused("a.odb", forWriting, "another name")), "generated/ddr/impl/ddr_Root:177");
  EXPECT_EQ(storedNames("a.odb"), Texts{made.Text()});
}

TEST_F(DdrOpen, ARefusedOpeningKeepsNoHandle) {
  make("a.odb");
  open("a.odb", forWriting);
  int const before = openDescriptors();
  refused("a.odb", forWriting);
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(DdrOpen, AGivenNameIsIgnoredForAFileThatIsOpen) {
  cow_String const made = make("a.odb");
  open("a.odb", forReading);
  EXPECT_EQ(open("a.odb", forReading, "another name"), made);
  EXPECT_EQ(storedNames("a.odb"), Texts{made.Text()});
}

TEST_F(DdrOpen, ARegeneratedFileIsRefusedWhileTheOldOneIsRegistered) {
  setClock(1000);
  cow_String const name = createSaved("a.odb");
  open("a.odb", forReading);
  setClock(2000);
  makeElsewhere("a.odb");
  auto const error = refused("a.odb", forReading);
  EXPECT_STREQ(error.what(),
               "The database has been regenerated since it was first opened. Close the existing "
               "database and reopen using the new file.");
  EXPECT_EQ(placeOf(error), "generated/ddr/impl/ddr_Root:169");
  EXPECT_EQ(root().GetOpenCount(name), 2);
}

TEST_F(DdrOpen, ARegeneratedFileOpensOnceTheOldOneIsClosed) {
  setClock(1000);
  cow_String const old = createSaved("a.odb");
  close(old);
  setClock(2000);
  cow_String const made = make("a.odb");
  EXPECT_NE(made, old);
  EXPECT_EQ(open("a.odb"), made);
}

TEST_F(DdrOpen, TheRegenerationIsCheckedBeforeTheOneWriterRule) {
  setClock(1000);
  createSaved("a.odb");
  setClock(2000);
  makeElsewhere("a.odb");
  EXPECT_EQ(placeOf(refused("a.odb", forWriting)), "generated/ddr/impl/ddr_Root:169");
}

TEST_F(DdrOpen, AGivenNameIsWrittenIntoTheLastRecordFirst) {
  cow_String const made = createSaved("a.odb");
  save(made);
  close(made);
  EXPECT_EQ(open("a.odb", forWriting, "new name"), cow_String("new name"));
  EXPECT_EQ(storedNames("a.odb"), (Texts{made.Text(), "new name"}));
  EXPECT_STREQ(record("new name").GetName().Text(), "new name");
  EXPECT_EQ(root().GetPersistentName(path("a.odb")), cow_String("new name"));
}

TEST_F(DdrOpen, ARenamedDatabaseThatWasOpenedForReadingStaysForReading) {
  make("a.odb");
  cow_String const name = open("a.odb", forReading, "new name");
  EXPECT_TRUE(root().WasOpenedReadOnly(name));
  EXPECT_TRUE(record(name).GetTransporter()->File().ReadOnly());
  EXPECT_EQ(storedNames("a.odb"), Texts{"new name"});
  int const stamped = record(name).GetModifyTime();
  EXPECT_THROW(save(name), nex_TextException);
  EXPECT_EQ(record(name).GetModifyTime(), stamped);
}

TEST_F(DdrOpen, ARenamedDatabaseThatWasOpenedForWritingKeepsTheHandleOfTheCaller) {
  make("a.odb");
  rfm_File const file = rfm_File::Open(path("a.odb"), forWriting, true);
  cow_String const name = root().OpenDdb(file, "new name");
  EXPECT_TRUE(record(name).GetTransporter()->File() == file);
  EXPECT_FALSE(root().WasOpenedReadOnly(name));
  save(name);
}

TEST_F(DdrOpen, RenamingLeavesTheRestOfTheRecord) {
  cow_String const made = create("a.odb");
  addModels(made, {"m"});
  change(made, [](ddr_Ddb& changed) {
    changed.results.Insert("r", ddr_Result());
    changed.SetSequenceData("a sequence");
  });
  save(made);
  close(made);
  ddr_Ddb const& opened = record(open("a.odb", forWriting, "new name"));
  EXPECT_EQ(modelNames(opened), Texts{"m"});
  EXPECT_TRUE(opened.results.IsMember("r"));
  EXPECT_STREQ(opened.GetSequenceData().Text(), "a sequence");
}

TEST_F(DdrOpen, AGivenNameStaysInTheFile) {
  make("a.odb");
  close(open("a.odb", forReading, "new name"));
  EXPECT_EQ(open("a.odb", forReading), cow_String("new name"));
}

TEST_F(DdrOpen, AGivenNameMayBeLongerThanThoseOfNewDatabases) {
  make("a.odb");
  cow_String const longName(std::string(5000, 'n'));
  close(open("a.odb", forReading, longName));
  EXPECT_EQ(open("a.odb", forReading), longName);
}

TEST_F(DdrOpen, AFileThatMayNotBeWrittenIsNotRenamed) {
  cow_String const made = make("a.odb");
  ASSERT_EQ(chmod(folder.path("a.odb").c_str(), 0444), 0);
  ASSERT_EQ(chmod(folder.path().c_str(), 0555), 0);
  std::string const answer = in_child_without_rights([&] {
    std::string const text = refused("a.odb", forReading, "new name").what();
    bool const stillOpens = open("a.odb", forReading) == made;
    return text + (stillOpens ? "; opens" : "; does not open");
  });
  ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
  EXPECT_THAT(answer, testing::StartsWith("Database file '" + folder.path("a.odb") + "': "));
  EXPECT_THAT(answer, testing::EndsWith("; opens"));
  EXPECT_EQ(storedNames("a.odb"), Texts{made.Text()});
}

TEST_F(DdrOpen, AFileThatAnotherProcessIsSavingIsNotRenamed) {
  cow_String const made = make("a.odb");
  child_process other([&](child_process& self) {
    rfm_Database database = rfm_Database::Open(rfm_File::Open(path("a.odb"), forWriting, true), "D0");
    database.Bind();
    rfm_Transaction const transaction(database);
    self.ready();
    self.wait_for_go();
    return std::string("done");
  });
  other.wait_until_ready();
  auto const error = caught<rfm_Exception>([&] { open("a.odb", forReading, "new name"); });
  EXPECT_EQ(error.Kind(), rfm_ErrorKind::Locked);
  EXPECT_FALSE(root().IsMember(path("a.odb")));
  other.go();
  EXPECT_EQ(other.result(), "done");
  EXPECT_EQ(storedNames("a.odb"), Texts{made.Text()});
}

TEST_F(DdrOpen, OfTwoFilesThatStoreOneNameTheSecondTakesThePlaceOfTheFirst) {
  cow_String const made = make("a.odb");
  std::filesystem::copy_file(folder.path("a.odb"), folder.path("b.odb"));
  open("a.odb", forReading);
  open("a.odb", forReading);
  EXPECT_EQ(open("b.odb", forWriting), made);
  EXPECT_EQ(root().Fetch().Size(), 1);
  EXPECT_EQ(record(made).GetDbId(), path("b.odb"));
  EXPECT_TRUE(root().IsMember(path("a.odb")));
  EXPECT_TRUE(root().IsMember(path("b.odb")));
  EXPECT_EQ(root().GetOpenCount(made), 1);
  EXPECT_FALSE(root().WasOpenedReadOnly(made));
}

TEST_F(DdrOpen, TheFileHandleIsLetGoWithTheDatabase) {
  cow_String const made = make("a.odb");
  int const before = openDescriptors();
  open("a.odb", forReading);
  close(made);
  EXPECT_EQ(openDescriptors(), before);
}

/// Works inside the folder of the test, where relative names of files look like addresses.
class DdrOpenAddress : public DdrOpen {
protected:
  DdrOpenAddress() : former(std::filesystem::current_path()) {
    std::filesystem::current_path(folder.path());
    std::filesystem::create_directory("ab:");
    made = make("x.odb");
    std::filesystem::rename("x.odb", "ab:/x.odb");
  }
  ~DdrOpenAddress() override { std::filesystem::current_path(former); }

  static rfm_File address(utl_FileAccess access) { return rfm_File::Open("ab://x.odb", access, true); }

  std::filesystem::path former;
  cow_String made;
};

TEST_F(DdrOpenAddress, OpensWithoutAGivenName) {
  EXPECT_EQ(root().OpenDdb(address(forReading), ""), made);
  EXPECT_TRUE(root().IsMember("ab://x.odb"));
}

TEST_F(DdrOpenAddress, IsCountedAgainWithAGivenNameOnceItIsOpen) {
  root().OpenDdb(address(forReading), "");
  EXPECT_EQ(root().OpenDdb(address(forReading), "new name"), made);
  EXPECT_EQ(root().OpenDdb(address(forWriting), "new name"), made);
  EXPECT_EQ(root().GetOpenCount(made), 3);
  EXPECT_EQ(storedNames("ab:/x.odb"), Texts{made.Text()});
}

TEST_F(DdrOpenAddress, NeedsASchemeOfTwoLetters) {
  std::filesystem::create_directory("c:");
  std::filesystem::rename("ab:/x.odb", "c:/x.odb");
  rfm_File const file = rfm_File::Open("c://x.odb", forReading, true);
  EXPECT_EQ(root().OpenDdb(file, "new name"), cow_String("new name"));
}

TEST_F(DdrOpenAddress, OpensForWritingAndSaves) {
  save(root().OpenDdb(address(forWriting), ""));
  EXPECT_EQ(storedNames("ab:/x.odb").size(), 2U);
}

TEST_F(DdrOpenAddress, IsRefusedWithAGivenName) {
  std::string const bytes = readFile("ab:/x.odb");
  for (utl_FileAccess access : {forReading, forWriting}) {
    auto const error = caught<nex_TextException>([&] { root().OpenDdb(address(access), "new name"); });
    EXPECT_STREQ(error.what(),
                 "ERROR: The Network ODB file you are opening\nconflicts with an ODB file that was opened "
                 "previously.  Please close any open ODB files before opening this ODB file.");
    EXPECT_EQ(placeOf(error), "generated/ddr/impl/ddr_Root:208");
  }
  EXPECT_FALSE(root().IsMember("ab://x.odb"));
  EXPECT_EQ(readFile("ab:/x.odb"), bytes);
}

TEST_F(DdrOpen, AFileThatWasNeverSavedIsReadAtRowZeroAndNamed) {
  create("a.odb");
  close(root().GetPersistentName(path("a.odb")));
  auto const error = refused("a.odb", forReading);
  EXPECT_THAT(error.what(), testing::HasSubstr(folder.path("a.odb")));
  EXPECT_THAT(error.what(), testing::HasSubstr("ddr_Ddb"));
  EXPECT_THAT(error.what(), testing::HasSubstr("row 0"));
  EXPECT_FALSE(root().IsMember(path("a.odb")));
}

TEST_F(DdrOpen, AGivenNameForAFileThatWasNeverSavedIsRefusedAtRowZero) {
  create("a.odb");
  close(root().GetPersistentName(path("a.odb")));
  for (utl_FileAccess access : {forReading, forWriting}) {
    EXPECT_THAT(refused("a.odb", access, "new name").what(), testing::HasSubstr("row 0"));
  }
  EXPECT_EQ(root().Fetch().Size(), 0);
}

TEST_F(DdrOpen, OnlyTheLastRecordIsRead) {
  cow_String const made = create("a.odb", "first");
  save(made);
  change(made, [](ddr_Ddb& changed) { changed.SetDescription("second"); });
  save(made);
  EXPECT_STREQ(record(reopen(made, "a.odb")).GetDescription().Text(), "second");
}

TEST_F(DdrOpen, AFailedOpeningLeavesTheRegistryAndNoDescriptor) {
  cow_String const open1 = createSaved("a.odb");
  writeFile(folder.path("b.odb"), "no database at all");
  int const before = openDescriptors();
  EXPECT_THROW(open("b.odb"), rfm_Exception);
  EXPECT_THROW(open("missing.odb"), rfm_Exception);
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(root().Fetch().Size(), 1);
  EXPECT_FALSE(root().IsMember(path("b.odb")));
  EXPECT_EQ(root().GetOpenCount(open1), 1);
}

TEST_F(DdrOpen, ANameThatCannotBeStoredLeavesFileAndRegistry) {
  make("a.odb");
  std::string const bytes = readFile(folder.path("a.odb"));
  for (utl_FileAccess access : {forReading, forWriting}) {
    EXPECT_THROW(open("a.odb", access, "no text \xff"), nex_TextException);
    EXPECT_EQ(readFile(folder.path("a.odb")), bytes);
    EXPECT_FALSE(root().IsMember(path("a.odb")));
  }
}

TEST_F(DdrOpen, ARecordThatCannotBeReadLeavesTheRegistryButKeepsTheNewName) {
  cow_String const made = create("a.odb");
  change(made, [](ddr_Ddb& changed) { changed.AddProductAddOn(ddr_ProductAddOn(ddr_ProductAddOn_Koru)); });
  save(made);
  close(made);
  storeUnknownAddOn("a.odb");
  int const before = openDescriptors();
  EXPECT_THROW(open("a.odb", forReading, "new name"), omu_ValueErrorException);
  EXPECT_FALSE(root().IsMember(path("a.odb")));
  EXPECT_EQ(root().Fetch().Size(), 0);
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(storedNames("a.odb"), Texts{"new name"});
}

TEST_F(DdrOpen, PrintsNothingAtDebugLevelOne) {
  make("a.odb");
  EXPECT_EQ(printedAt(1, "a.odb"), "");
}

TEST_F(DdrOpen, PrintsOneLineAtDebugLevelTwoAndAbove) {
  make("a.odb");
  make("b.odb");
  std::regex const line("ddr_Root::OpenDdb: It took [0-9.e+-]+ to read ddb\n");
  EXPECT_TRUE(std::regex_match(printedAt(2, "a.odb"), line));
  EXPECT_TRUE(std::regex_match(printedAt(3, "b.odb"), line));
}

TEST_F(DdrOpen, TheElapsedSecondsPrintAsAStreamPrintsANumber) {
  make("a.odb");
  std::string const line = printedAt(2, "a.odb");
  std::string const front = "ddr_Root::OpenDdb: It took ";
  std::string const back = " to read ddb\n";
  ASSERT_THAT(line, testing::StartsWith(front));
  ASSERT_THAT(line, testing::EndsWith(back));
  std::string const number = line.substr(front.size(), line.size() - front.size() - back.size());
  double const seconds = std::stod(number);
  std::ostringstream again;
  again << seconds;
  EXPECT_EQ(number, again.str());
  EXPECT_GT(seconds, 0.0);
  EXPECT_LT(seconds, 60.0);
}

TEST_F(DdrOpen, AnOpeningUnderAGivenNamePrintsOneLineToo) {
  make("a.odb");
  std::ostringstream printed;
  pnt_setDebugPrint(&printed);
  typ_DebugFlags::SetDebugFlags(34, 2);
  open("a.odb", forReading, "new name");
  std::string const text = printed.str();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
}

TEST_F(DdrOpen, AReadingThatFailsPrintsNothing) {
  make("a.odb");
  std::ostringstream printed;
  pnt_setDebugPrint(&printed);
  typ_DebugFlags::SetDebugFlags(34, 2);
  runSql(folder.path("a.odb"), "DELETE FROM " + tableOf(folder.path("a.odb"), ddr_Ddb::TypeId()));
  EXPECT_THROW(open("a.odb"), nex_TextException);
  EXPECT_EQ(printed.str(), "");
}

TEST_F(DdrOpen, AnotherDebugFlagPrintsNothing) {
  make("a.odb");
  typ_DebugFlags::SetDebugFlags(33, 9);
  EXPECT_EQ(printedAt(0, "a.odb"), "");
  typ_DebugFlags::SetDebugFlags(33, 0);
}

TEST_F(DdrOpen, ARepeatedOpeningPrintsNothing) {
  make("a.odb");
  open("a.odb", forReading);
  EXPECT_EQ(printedAt(2, "a.odb"), "");
}

TEST_F(DdrOpen, TheObjectCacheIsEmptyAfterwards) {
  make("a.odb");
  rom_CowBarn const& cache = record(open("a.odb")).GetTransporter()->ObjectCache();
  EXPECT_EQ(cache.Size(), 0);
  EXPECT_EQ(cache.Generation(), 2U); // before the record is read, and when it is registered
}

TEST_F(DdrOpen, EachOpeningGivesTheRecordANewIdentity) {
  make("a.odb");
  cow_String const first = open("a.odb");
  cls_Uid const firstUid = record(first).GetUid();
  root().CloseDdb(first);
  EXPECT_NE(record(open("a.odb")).GetUid(), firstUid);
}

TEST_F(DdrOpen, TheCreationTimeOfAnUnknownFileCannotBeVerified) {
  make("a.odb");
  rfm_File const file = rfm_File::Open(path("a.odb"), forReading, true);
  auto const error = caught<nex_TextException>([&] { root().VerifyCreationDate(file); });
  EXPECT_EQ(std::string(error.what()),
            "No ddb file by specified file name in container: '" + folder.path("a.odb") + "'");
}

TEST_F(DdrOpen, TheCreationTimeOfTheOpenFileIsVerified) {
  setClock(5000);
  make("a.odb");
  setClock(9000);
  open("a.odb", forReading);
  EXPECT_TRUE(root().VerifyCreationDate(rfm_File::Open(path("a.odb"), forReading, true)));
}

} // namespace
