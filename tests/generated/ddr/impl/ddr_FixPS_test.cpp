// Repairing the persistent names stored in a file.
#include "ddr_ModuleTest.h"

#include "child_process.h"
#include "database_test.h"
#include "ddr_FixPS.h"
#include "ddr_Shortcut.h"
#include "rfm_Exception.h"
#include "rfm_Transaction.h"

namespace {

/// Files whose rows are written one by one, so that their names are as a test wants them.
class DdrFixPS : public ddr_ModuleTest {
protected:
  rfm_Database openDatabase(std::string const& name, utl_FileAccess access = utl_FileAccess::Write) {
    rfm_Database database = rfm_Database::Open(rfm_File::Open(path(name), access, true), "D0");
    database.Bind();
    return database;
  }

  static void append(rfm_Database& database, unsigned typeId, Texts const& names) {
    rfm_Table table = database.TableForWriting(typeId);
    for (std::string const& name : names) {
      table.ClearRow();
      table.Row().WriteFieldString("name", cow_String(name));
      table.AppendRow();
    }
  }

  /// A file that is not open, with these names in the rows of its record and of its shortcuts.
  void make(std::string const& name, Texts const& records, Texts const& shortcuts) {
    close(create(name));
    rfm_Database database = openDatabase(name);
    rfm_Transaction transaction(database);
    append(database, ddr_Ddb::TypeId(), records);
    append(database, ddr_DdbShortcutImpl::TypeId(), shortcuts);
    transaction.Commit();
  }

  void fix(std::string const& name, utl_FileAccess access = utl_FileAccess::Write) {
    rom_UtlDatabase database(openDatabase(name, access));
    ddr_FixPS::FixPersistentString(database);
  }

  Texts names(std::string const& name, unsigned typeId) {
    rfm_Table table = openDatabase(name, utl_FileAccess::Read).Table(typeId);
    Texts found;
    table.Seek(0);
    while (table.RowExists(-1)) {
      found.emplace_back(table.ReadRow(-1).ReadFieldString("name").Text());
    }
    return found;
  }
  Texts recordNames(std::string const& name) { return names(name, ddr_Ddb::TypeId()); }
  Texts shortcutNames(std::string const& name) { return names(name, ddr_DdbShortcutImpl::TypeId()); }
};

TEST_F(DdrFixPS, GivesEveryRecordAndEveryShortcutTheNameOfTheLastRecord) {
  make("a.odb", {"one", "two", "three"}, {"four", "five"});
  fix("a.odb");
  EXPECT_EQ(recordNames("a.odb"), (Texts{"three", "three", "three"}));
  EXPECT_EQ(shortcutNames("a.odb"), (Texts{"three", "three"}));
}

TEST_F(DdrFixPS, LeavesASingleRecordAndRepairsItsShortcuts) {
  make("a.odb", {"only"}, {"old", "only", "older"});
  fix("a.odb");
  EXPECT_EQ(recordNames("a.odb"), Texts{"only"});
  EXPECT_EQ(shortcutNames("a.odb"), (Texts{"only", "only", "only"}));
}

TEST_F(DdrFixPS, ShortcutsToOtherDatabasesAreRewrittenToo) {
  make("a.odb", {"a"}, {"the name of another database"});
  fix("a.odb");
  EXPECT_EQ(shortcutNames("a.odb"), Texts{"a"});
}

TEST_F(DdrFixPS, AnEmptyNameOfTheLastRecordCountsToo) {
  make("a.odb", {"one", ""}, {"two"});
  fix("a.odb");
  EXPECT_EQ(recordNames("a.odb"), (Texts{"", ""}));
  EXPECT_EQ(shortcutNames("a.odb"), Texts{""});
}

TEST_F(DdrFixPS, AFileWithoutRecordsIsLeftAloneWithItsShortcuts) {
  make("a.odb", {}, {"old"});
  std::string const bytes = readFile(folder.path("a.odb"));
  fix("a.odb");
  fix("a.odb", utl_FileAccess::Read);
  EXPECT_EQ(readFile(folder.path("a.odb")), bytes);
}

TEST_F(DdrFixPS, AFileWithoutShortcutsIsRepaired) {
  make("a.odb", {"one", "two"}, {});
  fix("a.odb");
  EXPECT_EQ(recordNames("a.odb"), (Texts{"two", "two"}));
}

TEST_F(DdrFixPS, ASecondRepairFindsNothingToChange) {
  make("a.odb", {"one", "two"}, {"three"});
  fix("a.odb");
  fix("a.odb");
  EXPECT_EQ(recordNames("a.odb"), (Texts{"two", "two"}));
  EXPECT_EQ(shortcutNames("a.odb"), Texts{"two"});
}

TEST_F(DdrFixPS, RowsWithGapsBetweenThemAreRepaired) {
  make("a.odb", {"one", "two"}, {"three", "four", "five"});
  std::string const file = folder.path("a.odb");
  runSql(file, "DELETE FROM " + tableOf(file, ddr_DdbShortcutImpl::TypeId()) + " WHERE name = 'four'");
  fix("a.odb");
  EXPECT_EQ(shortcutNames("a.odb"), (Texts{"two", "two"}));
}

TEST_F(DdrFixPS, RecordsWithGapsBetweenThemAreRepaired) {
  make("a.odb", {"one", "two", "three", "four"}, {"five"});
  runSql(path("a.odb").Text(),
         "DELETE FROM " + tableOf(path("a.odb").Text(), ddr_Ddb::TypeId()) + " WHERE row = 1");
  fix("a.odb");
  EXPECT_EQ(recordNames("a.odb"), (Texts{"four", "four", "four"}));
  EXPECT_EQ(shortcutNames("a.odb"), Texts{"four"});
}

TEST_F(DdrFixPS, EverythingElseInTheRowsStays) {
  setClock(100);
  cow_String const database = create("a.odb");
  addModels(database, {"m"});
  change(database, [](ddr_Ddb& changed) {
    changed.SetSequenceData("a sequence");
    changed.GetDiagnosticData().Append(7, dia_Severity::Warning, "a warning");
  });
  save(database);
  setClock(200);
  save(database);
  close(database);
  std::string const file = folder.path("a.odb");
  std::string const table = tableOf(file, ddr_Ddb::TypeId());
  runSql(file, "UPDATE " + table + " SET name = 'old' WHERE modifyTime = 100");
  std::string const others = "SELECT group_concat(quote(modifyTime) || quote(creationTime) || "
                             "quote(sequenceData) || quote(\"models#OID\") || "
                             "quote(\"diagnosticData#OID\") || quote(ddbVersion)) FROM " +
                             table;
  std::string const before = runSql(file, others);
  fix("a.odb");
  EXPECT_EQ(recordNames("a.odb"), (Texts{database.Text(), database.Text()}));
  EXPECT_EQ(runSql(file, others), before);
  ddr_Ddb const& reread = record(open("a.odb"));
  EXPECT_EQ(modelNames(reread), Texts{"m"});
  EXPECT_EQ(reread.ConstGetDiagnosticData().Size(), 1);
}

TEST_F(DdrFixPS, AnOpenRecordDoesNotNotice) {
  cow_String const database = createSaved("a.odb");
  save(database);
  std::string const file = folder.path("a.odb");
  runSql(file, "UPDATE " + tableOf(file, ddr_Ddb::TypeId()) + " SET name = 'new' WHERE \"row\" = 1");
  fix("a.odb");
  EXPECT_EQ(record(database).GetName(), database);
  EXPECT_EQ(root().GetPersistentName(path("a.odb")), database);
  EXPECT_EQ(recordNames("a.odb"), (Texts{"new", "new"}));
}

TEST_F(DdrFixPS, ARepairThroughTheWayOfAnOpenDatabaseLetsItGoOnSaving) {
  cow_String const database = createSaved("a.odb");
  addModels(database, {"m"});
  rom_UtlDatabase own(record(database).GetTransporter()->Database());
  ddr_FixPS::FixPersistentString(own);
  save(database);
  ddr_FixPS::FixPersistentString(own);
  addModels(database, {"n"});
  save(database);
  EXPECT_EQ(recordNames("a.odb"), (Texts(3, database.Text())));
  EXPECT_EQ(modelNames(record(reopen(database, "a.odb"))), (Texts{"m", "n"}));
}

TEST_F(DdrFixPS, ARepairDoesNotHideThatAnotherProcessHasSaved) {
  cow_String const database = createSaved("a.odb");
  save(database);
  std::string const file = folder.path("a.odb");
  ASSERT_EQ(in_child([&] {
              return runSql(file, "UPDATE " + tableOf(file, ddr_Ddb::TypeId()) + " SET name = 'theirs'");
            }),
            "");
  rom_UtlDatabase own(record(database).GetTransporter()->Database());
  ddr_FixPS::FixPersistentString(own);
  EXPECT_THAT(caught<nex_TextException>([&] { save(database); }).what(),
              testing::HasSubstr("was changed by another user"));
  EXPECT_EQ(recordNames("a.odb"), (Texts{"theirs", "theirs"}));
}

TEST_F(DdrFixPS, AFileOpenedForReadingIsRefusedByName) {
  make("a.odb", {"one", "two"}, {"three"});
  std::string const bytes = readFile(folder.path("a.odb"));
  auto const error = caught<rfm_Exception>([&] { fix("a.odb", utl_FileAccess::Read); });
  EXPECT_EQ(error.Kind(), rfm_ErrorKind::ReadOnly);
  EXPECT_THAT(error.what(), testing::HasSubstr(folder.path("a.odb")));
  EXPECT_EQ(readFile(folder.path("a.odb")), bytes);
}

TEST_F(DdrFixPS, ARowThatCannotBeReadLeavesTheWholeFile) {
  make("a.odb", {"one", "two"}, {"three", "four"});
  std::string const file = folder.path("a.odb");
  runSql(file, "UPDATE " + tableOf(file, ddr_DdbShortcutImpl::TypeId()) +
                   " SET \"#uid\" = x'00' WHERE name = 'four'");
  auto const error = caught<rfm_Exception>([&] { fix("a.odb"); });
  EXPECT_EQ(error.Kind(), rfm_ErrorKind::Damaged);
  EXPECT_THAT(error.what(), testing::HasSubstr("class 'ddr_DdbShortcutImpl', row 1"));
  EXPECT_EQ(recordNames("a.odb"), (Texts{"one", "two"}));
}

TEST_F(DdrFixPS, ALastNameThatIsNoTextLeavesTheWholeFile) {
  make("a.odb", {"one", "two"}, {"three"});
  std::string const file = folder.path("a.odb");
  runSql(file, "UPDATE " + tableOf(file, ddr_Ddb::TypeId()) + " SET name = x'ff' WHERE name = 'two'");
  EXPECT_THAT(caught<rfm_Exception>([&] { fix("a.odb"); }).what(),
              testing::HasSubstr("class 'ddr_Ddb', row 1, field 'name'"));
  EXPECT_EQ(shortcutNames("a.odb"), Texts{"three"});
}

TEST_F(DdrFixPS, AMissingTableIsNamed) {
  make("a.odb", {"one", "two"}, {"three"});
  std::string const file = folder.path("a.odb");
  runSql(file, "DROP TABLE " + tableOf(file, ddr_DdbShortcutImpl::TypeId()));
  EXPECT_THAT(caught<rfm_Exception>([&] { fix("a.odb"); }).what(),
              testing::HasSubstr("class 'ddr_DdbShortcutImpl': it is damaged: its table is missing"));
  EXPECT_EQ(recordNames("a.odb"), (Texts{"one", "two"}));
}

} // namespace
