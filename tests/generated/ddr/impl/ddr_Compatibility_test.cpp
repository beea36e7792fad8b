// Whether this release may use a database and write it back.
#include "ddr_ModuleTest.h"

#include "database_test.h"
#include "rfm_Exception.h"
#include "rom_ODBHeaderParser.h"

#include <thread>

namespace {

class DdrCompatibility : public ddr_ModuleTest {
protected:
  /// Makes a saved file, lets SQL change it, and opens it for reading.
  /// @return its persistent name
  cow_String opened(std::string const& sql = "") {
    close(createSaved("a.odb"));
    if (!sql.empty()) {
      runSql(file(), sql);
    }
    return open("a.odb", utl_FileAccess::Read);
  }
  /// SQL that gives a class of the file another version.
  static std::string version(std::string const& className, std::string const& given) {
    return "UPDATE ddr_class SET \"Class Version\" = " + given + " WHERE \"Class Name\" = '" + className +
           "'; ";
  }
  /// The status of the file and the class that decided: "1 ddr_Model".
  std::string status() {
    rom_ODBHeaderParser const parser(
        rfm_Database::Open(rfm_File::Open(path("a.odb"), utl_FileAccess::Read, true), "D0"));
    cow_String different;
    int const found = parser.GetUpToDateStatus(*root().GetClassRegistrar(), &different);
    EXPECT_EQ(parser.GetUpToDateStatus(*root().GetClassRegistrar(), nullptr), found);
    return std::to_string(found) + " " + different.Text();
  }
  bool canBeWritten(cow_String const& database) { return record(database).checkWriteCompatibility(); }
  std::string file() const { return folder.path("a.odb"); }
  /// SQL that lists a class which nobody registered.
  std::string const unknownClass = "INSERT INTO ddr_class VALUES((SELECT count(*) FROM ddr_class), "
                                   "'tst_Unknown', NULL, 3080193, 1, 1)";
};

TEST_F(DdrCompatibility, AFileOfTheSameVersionsIsUpToDate) {
  EXPECT_TRUE(canBeWritten(opened()));
  EXPECT_EQ(status(), "0 ");
}

TEST_F(DdrCompatibility, AnOlderClassMakesTheFileOld) {
  EXPECT_FALSE(canBeWritten(opened(version("ddr_Model", "873"))));
  EXPECT_EQ(status(), "1 ddr_Model");
}

TEST_F(DdrCompatibility, ANewerClassMakesTheFileNewer) {
  EXPECT_FALSE(canBeWritten(opened(version("ddr_Model", "875"))));
  EXPECT_EQ(status(), "2 ddr_Model");
}

TEST_F(DdrCompatibility, AnUnknownClassMakesTheFileNewer) {
  EXPECT_FALSE(canBeWritten(opened(unknownClass)));
  EXPECT_EQ(status(), "2 tst_Unknown");
}

TEST_F(DdrCompatibility, ANewerClassDecidesOverOlderOnes) {
  std::string const newer = version("ddr_Model", "875");
  opened(version("ddr_Result", "1") + newer + version("ddr_UserData", "1"));
  EXPECT_EQ(status(), "2 ddr_Model");
}

TEST_F(DdrCompatibility, TheFirstOfSeveralOlderClassesIsNamed) {
  opened(version("ddr_UserData", "1") + version("ddr_Result", "1"));
  EXPECT_EQ(status(), "1 ddr_Result");
}

TEST_F(DdrCompatibility, ClassesThatTheFileDoesNotListAreIgnored) {
  cow_String const database = opened();
  cls_ClassRegistrar* const more = omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar();
  more->CreateClassMD("tst_New", 0x2f0001, 5, nullptr, cls_NoBaseTypeId);
  root().SetClassRegistrar(more);
  EXPECT_TRUE(canBeWritten(database));
  EXPECT_EQ(status(), "0 ");
}

TEST_F(DdrCompatibility, VersionsAtTheEndsOfTheirRangeAreCompared) {
  EXPECT_FALSE(canBeWritten(opened(version("ddr_Model", "-2147483648"))));
  EXPECT_EQ(status(), "1 ddr_Model");
}

TEST_F(DdrCompatibility, TheFileAsItStandsNowIsAsked) {
  cow_String const database = createSaved("a.odb");
  ASSERT_TRUE(canBeWritten(database));
  runSql(file(), version("ddr_Model", "1"));
  EXPECT_FALSE(canBeWritten(database));
}

TEST_F(DdrCompatibility, TheClassesOfTheCallingThreadAreAsked) {
  cow_String const database = opened(version("ddr_Model", "875"));
  ddr_DdbContainer const container = root().Fetch();
  std::thread([&] {
    cls_ClassRegistrar* const newer = omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar();
    newer->CreateClassMD("ddr_Model", ddr_Model::TypeId(), 875, nullptr, 1);
    root().SetClassRegistrar(newer);
    EXPECT_TRUE(container.ConstGet(database).checkWriteCompatibility());
  }).join();
  EXPECT_FALSE(canBeWritten(database));
}

TEST_F(DdrCompatibility, AskingLeavesNoHandle) {
  cow_String const database = opened();
  int const before = openDescriptors();
  EXPECT_TRUE(canBeWritten(database));
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(DdrCompatibility, ADatabaseWithoutAFileSaysSo) {
  ddr_Ddb const inMemory("name", "its identity", "");
  EXPECT_STREQ(caught<nex_TextException>([&] { inMemory.checkWriteCompatibility(); }).what(),
               "The database 'its identity' has no file yet.");
}

TEST_F(DdrCompatibility, AThreadWithoutClassesSaysSo) {
  cow_String const database = opened();
  root().SetClassRegistrar(nullptr);
  EXPECT_STREQ(caught<nex_TextException>([&] { canBeWritten(database); }).what(),
               "Class registrar not initialized");
}

TEST_F(DdrCompatibility, AFileThatWentIsNamed) {
  cow_String const database = opened();
  ASSERT_EQ(std::remove(file().c_str()), 0);
  auto const error = caught<rfm_Exception>([&] { canBeWritten(database); });
  EXPECT_EQ(error.Kind(), rfm_ErrorKind::Missing);
  EXPECT_THAT(error.what(), testing::HasSubstr(file()));
}

TEST_F(DdrCompatibility, AHeaderThatIsDamagedByNowIsNamed) {
  cow_String const database = opened();
  runSql(file(), "DELETE FROM ddr_header");
  auto const error = caught<rfm_Exception>([&] { canBeWritten(database); });
  EXPECT_EQ(error.Kind(), rfm_ErrorKind::Damaged);
  EXPECT_THAT(error.what(), testing::HasSubstr(file()));
}

TEST_F(DdrCompatibility, AClassListThatIsDamagedByNowIsNamed) {
  cow_String const database = opened();
  runSql(file(), version("ddr_Model", "'no number'"));
  EXPECT_THAT(caught<rfm_Exception>([&] { canBeWritten(database); }).what(),
              testing::HasSubstr("a class version in its class list is not valid"));
}

TEST_F(DdrCompatibility, SchemasOfFilesAreComparedWithThatOfThisRelease) {
  struct Schema {
    std::string stored;
    bool isCompatible;
  };
  std::string const setSchema = " SET ddbVersion = ";
  close(createSaved("a.odb"));
  std::string const table = tableOf(file(), ddr_Ddb::TypeId());
  for (Schema const& schema : {Schema{"891", true}, Schema{"892", false}, Schema{"-1", true},
                               Schema{"2147483647", false}, Schema{"-2147483648", true}}) {
    runSql(file(), "UPDATE " + table + setSchema + schema.stored);
    cow_String const database = open("a.odb", utl_FileAccess::Read);
    EXPECT_EQ(record(database).checkUpwardsCompatibility(), schema.isCompatible) << schema.stored;
    close(database);
  }
}

} // namespace
