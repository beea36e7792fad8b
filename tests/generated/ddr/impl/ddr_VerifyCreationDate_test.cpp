// Whether a file is still the one that was opened.
#include "ddr_ModuleTest.h"

#include "child_process.h"
#include "database_test.h"
#include "omu_Exceptions.h"

namespace {

class DdrVerifyCreationDate : public ddr_ModuleTest {
protected:
  /// A database of two saves that is not open. Its header says 100, its records 200 and 300.
  void make() {
    setClock(100);
    cow_String const made = createSaved("a.odb");
    save(made);
    close(made);
    std::string const records = tableOf(file(), ddr_Ddb::TypeId());
    runSql(file(), "UPDATE " + records + " SET creationTime = 200 WHERE \"row\" = 0");
    runSql(file(), "UPDATE " + records + " SET creationTime = 300 WHERE \"row\" = 1");
  }
  /// The same with nothing in its header, opened: the record says 300.
  void openWithoutTimeInHeader() {
    make();
    runSql(file(), "UPDATE ddr_header SET creation_time = 0");
    opened = open("a.odb", utl_FileAccess::Read);
    ASSERT_EQ(record(opened).GetCreationTime(), 300);
  }
  /// A database without a time anywhere, opened: the record says 0.
  void openWithoutAnyTime() {
    setClock(0);
    close(createSaved("a.odb"));
    opened = open("a.odb", utl_FileAccess::Read);
  }
  /// Changes the file behind the back of the registry.
  void spoil(std::string const& sql) {
    EXPECT_EQ(in_child([&] { return runSql(file(), sql); }), "");
  }
  void spoilRecord(std::string const& assignment, int row) {
    spoil("UPDATE " + tableOfRecords() + " SET " + assignment + " WHERE \"row\" = " + std::to_string(row));
  }
  std::string tableOfRecords() {
    return in_child([&] { return tableOf(file(), ddr_Ddb::TypeId()); });
  }
  bool verified() { return root().VerifyCreationDate(handle()); }
  rfm_File handle() { return rfm_File::Open(path("a.odb"), utl_FileAccess::Read, true); }
  std::string file() const { return folder.path("a.odb"); }

  cow_String opened;
};

TEST_F(DdrVerifyCreationDate, TheTimeInTheHeaderCounts) {
  make();
  runSql(file(), "UPDATE ddr_header SET creation_time = 300");
  open("a.odb", utl_FileAccess::Read);
  EXPECT_TRUE(verified());
  spoil("UPDATE ddr_header SET creation_time = 301");
  EXPECT_FALSE(verified());
}

TEST_F(DdrVerifyCreationDate, TheTimeInTheHeaderCountsBeforeThatOfTheRecords) {
  make();
  open("a.odb", utl_FileAccess::Read);
  EXPECT_FALSE(verified()); // 100 against 300
}

TEST_F(DdrVerifyCreationDate, TimesAreComparedAs32Bits) {
  make();
  runSql(file(), "UPDATE ddr_header SET creation_time = 300 + (1 << 32)");
  open("a.odb", utl_FileAccess::Read);
  EXPECT_TRUE(verified());
  spoil("UPDATE ddr_header SET creation_time = 300 - (1 << 32)");
  EXPECT_TRUE(verified());
}

TEST_F(DdrVerifyCreationDate, ANegativeTimeIsATime) {
  setClock(-100);
  close(createSaved("a.odb"));
  open("a.odb", utl_FileAccess::Read);
  EXPECT_TRUE(verified());
  spoil("UPDATE ddr_header SET creation_time = -101");
  EXPECT_FALSE(verified());
}

TEST_F(DdrVerifyCreationDate, WithoutATimeInTheHeaderTheLastRecordCounts) {
  openWithoutTimeInHeader();
  EXPECT_TRUE(verified());
  spoilRecord("creationTime = 999", 0);
  EXPECT_TRUE(verified());
  spoilRecord("creationTime = 301", 1);
  EXPECT_FALSE(verified());
}

TEST_F(DdrVerifyCreationDate, AHeaderWithNothingIsAHeaderWithoutATime) {
  openWithoutTimeInHeader();
  spoil("UPDATE ddr_header SET creation_time = NULL");
  EXPECT_TRUE(verified());
}

TEST_F(DdrVerifyCreationDate, AClassListWithoutTheRecordAnswersZero) {
  openWithoutTimeInHeader();
  spoil("UPDATE ddr_class SET \"Class Name\" = 'another' WHERE \"Class Name\" = 'ddr_Ddb'");
  EXPECT_FALSE(verified());
}

TEST_F(DdrVerifyCreationDate, TheNameOfTheClassIsComparedByteByByte) {
  openWithoutTimeInHeader();
  spoil("UPDATE ddr_class SET \"Class Name\" = 'ddr_DDB' WHERE \"Class Name\" = 'ddr_Ddb'");
  EXPECT_FALSE(verified());
  spoil("UPDATE ddr_class SET \"Class Name\" = 'ddr_Ddb' WHERE \"Class Name\" = 'ddr_DDB'");
  EXPECT_TRUE(verified());
}

TEST_F(DdrVerifyCreationDate, ARecordWithoutATimeMatchesAFileThatAnswersZero) {
  openWithoutAnyTime();
  EXPECT_TRUE(verified());
  spoil("UPDATE ddr_class SET \"Class Name\" = 'another' WHERE \"Class Name\" = 'ddr_Ddb'");
  EXPECT_TRUE(verified());
  spoil("DELETE FROM ddr_header");
  EXPECT_TRUE(verified());
}

TEST_F(DdrVerifyCreationDate, ATableWithoutRowsAnswersZero) {
  openWithoutTimeInHeader();
  spoil("DELETE FROM " + tableOfRecords());
  EXPECT_FALSE(verified());
  spoil("UPDATE ddr_class SET \"Class Table\" = NULL WHERE \"Class Name\" = 'ddr_Ddb'");
  EXPECT_FALSE(verified());
}

TEST_F(DdrVerifyCreationDate, AMissingTableIsCaughtAndAnswersZero) {
  openWithoutTimeInHeader();
  spoil("DROP TABLE " + tableOfRecords());
  EXPECT_FALSE(verified());
}

TEST_F(DdrVerifyCreationDate, AClassListThatCannotBeReadIsCaughtAndAnswersZero) {
  openWithoutTimeInHeader();
  spoil("UPDATE ddr_class SET \"Type Id\" = 'no number' WHERE \"Class Name\" = 'ddr_Model'");
  EXPECT_FALSE(verified());
}

TEST_F(DdrVerifyCreationDate, AMissingHeaderIsCaughtAndAnswersZero) {
  openWithoutTimeInHeader();
  spoil("DELETE FROM ddr_header");
  EXPECT_FALSE(verified());
}

TEST_F(DdrVerifyCreationDate, WhatWasReadBeforeAnExceptionIsTheAnswer) {
  openWithoutTimeInHeader();
  spoilRecord("creationTime = 300", 0);
  spoilRecord("creationTime = 'no number'", 1);
  EXPECT_TRUE(verified());
  spoilRecord("creationTime = 301", 0);
  EXPECT_FALSE(verified());
}

TEST_F(DdrVerifyCreationDate, ATimeOutside32BitsInARecordIsAnExceptionThatIsCaught) {
  openWithoutTimeInHeader();
  spoilRecord("creationTime = 300", 0);
  spoilRecord("creationTime = 1 << 40", 1);
  EXPECT_TRUE(verified());
}

TEST_F(DdrVerifyCreationDate, AFileThatBecameUnreadableAnswersZero) {
  openWithoutTimeInHeader();
  rfm_File const before = handle();
  EXPECT_EQ(in_child([&] {
              writeFile(file(), std::string(100000, 'x'));
              return std::string("done");
            }),
            "done");
  EXPECT_FALSE(root().VerifyCreationDate(before));
}

TEST_F(DdrVerifyCreationDate, AFileThatIsNotRegisteredIsNotCaught) {
  make();
  auto const error = caught<nex_TextException>([&] { verified(); });
  EXPECT_EQ(std::string(error.what()), "No ddb file by specified file name in container: '" + file() + "'");
}

TEST_F(DdrVerifyCreationDate, ADatabaseThatLeftTheContainerIsNotCaught) {
  openWithoutTimeInHeader();
  root().Replace(ddr_DdbContainer());
  EXPECT_EQ(caught<omu_AccessErrorException>([&] { verified(); }).Key(), opened);
}

TEST_F(DdrVerifyCreationDate, ARepeatedOpeningIsRefusedWhenOnlyTheRecordsTellTheDifference) {
  openWithoutTimeInHeader();
  spoilRecord("creationTime = 301", 1);
  auto const error = caught<nex_TextException>([&] { open("a.odb", utl_FileAccess::Read); });
  EXPECT_EQ(placeOf(error), "generated/ddr/impl/ddr_Root:169");
  EXPECT_EQ(root().GetOpenCount(opened), 1);
}

} // namespace
