// Database files that hold what no release writes: each gets an answer that names it.
#include "ddr_ModuleTest.h"

#include "child_process.h"
#include "database_test.h"
#include "ddr_FixPS.h"
#include "rfm_Exception.h"

#include <climits>
#include <cstdlib>

namespace {

class DdrBadFile : public ddr_ModuleTest {
protected:
  DdrBadFile() {
    setClock(1000);
    cow_String const database = create("a.odb");
    addModels(database, {"m"});
    change(database, [](ddr_Ddb& changed) {
      changed.results.Insert("r", ddr_Result());
      changed.userData.Insert("u", ddr_UserData());
      changed.AddProductAddOn(ddr_ProductAddOn(ddr_ProductAddOn_Koru));
      changed.GetDiagnosticData().Append(1, dia_Severity::Error, "e");
    });
    save(database);
    close(database);
  }

  void sql(std::string const& text) { runSql(file(), text); }
  void setRecord(std::string const& assignment) {
    sql("UPDATE " + tableOf(file(), ddr_Ddb::TypeId()) + " SET " + assignment);
  }
  std::string refusal() {
    std::string const text = caught<nex_TextException>([&] { open("a.odb", utl_FileAccess::Read); }).what();
    EXPECT_THAT(text, testing::HasSubstr(file()));
    EXPECT_FALSE(root().IsMember(path("a.odb")));
    return text;
  }
  /// The creation and the modify time as text, in Greenwich.
  Texts times() {
    os_runtimeCalls().strftime = [](char* text, std::size_t size, char const* format, std::tm const* time) {
      return std::string(format) == "%Z" ? std::string("UTC").copy(text, size)
                                         : std::strftime(text, size, format, time);
    };
    ddr_Ddb const& opened = record(open("a.odb"));
    return {opened.CreateTime().Text(), opened.ModifyTime().Text()};
  }
  /// Opens, asks for everything, repairs the names and saves.
  void useEverything() {
    cow_String const database = open("a.odb");
    root().VerifyCreationDate(rfm_File::Open(path("a.odb"), utl_FileAccess::Read, true));
    record(database).checkWriteCompatibility();
    contentsOf(record(database));
    rom_UtlDatabase tables(record(database).GetTransporter()->Database());
    ddr_FixPS::FixPersistentString(tables);
    save(database);
  }
  std::string file() const { return folder.path("a.odb"); }
};

TEST_F(DdrBadFile, NegativeTimesAreTimesBefore1970) {
  setRecord("creationTime = -1, modifyTime = -2147483648");
  EXPECT_EQ(times(), (Texts{"Wed Dec 31 23:59:59 UTC 1969", "Fri Dec 13 20:45:52 UTC 1901"}));
}

TEST_F(DdrBadFile, TheLastTimeOf32BitsIsATime) {
  setRecord("creationTime = 2147483647, modifyTime = 0");
  EXPECT_EQ(times(), (Texts{"Tue Jan 19 03:14:07 UTC 2038", "Thu Jan 01 00:00:00 UTC 1970"}));
}

TEST_F(DdrBadFile, ATimeBeyond32BitsIsNamed) {
  for (std::string const field : {"creationTime", "modifyTime"}) {
    for (std::string const value : {"2147483648", "-2147483649", "9223372036854775807", "1.5e9", "'noon'"}) {
      setRecord(field + " = " + value);
      EXPECT_THAT(refusal(), testing::HasSubstr("class 'ddr_Ddb', row 0, field '" + field + "'")) << value;
    }
    setRecord(field + " = 5");
  }
}

TEST_F(DdrBadFile, AMissingTimeIsTheBeginningOfTimes) {
  setRecord("creationTime = NULL, modifyTime = NULL");
  EXPECT_EQ(times(), (Texts{"Thu Jan 01 00:00:00 UTC 1970", "Thu Jan 01 00:00:00 UTC 1970"}));
}

TEST_F(DdrBadFile, ATimeInTheHeaderMayBeAnyNumber) {
  for (std::string const value : {"-5", "2147483648", "-9223372036854775808", "9223372036854775807"}) {
    sql("UPDATE ddr_header SET creation_time = " + value);
    cow_String const database = open("a.odb", utl_FileAccess::Read);
    EXPECT_THAT(caught<nex_TextException>([&] { open("a.odb", utl_FileAccess::Read); }).what(),
                testing::HasSubstr("has been regenerated"))
        << value;
    close(database);
  }
}

TEST_F(DdrBadFile, ATimeInTheHeaderThatIsNoNumberIsNamed) {
  sql("UPDATE ddr_header SET creation_time = 'noon'");
  EXPECT_THAT(refusal(), testing::HasSubstr("the creation time in its header is not a number"));
}

TEST_F(DdrBadFile, AMissingTableOfTheRecordIsNamed) {
  sql("DROP TABLE " + tableOf(file(), ddr_Ddb::TypeId()));
  EXPECT_THAT(refusal(), testing::HasSubstr("class 'ddr_Ddb': it is damaged: its table is missing"));
}

TEST_F(DdrBadFile, ATableOfTheRecordThatIsNoneOfOursIsNamed) {
  sql("UPDATE ddr_class SET \"Class Table\" = 'ddr_header' WHERE \"Class Name\" = 'ddr_Ddb'");
  EXPECT_THAT(refusal(), testing::HasSubstr("its class list names a table that cannot be the class's"));
}

TEST_F(DdrBadFile, AnyClassWhoseTableIsMissingGetsAnAnswerAndLosesNothing) {
  int const classes = std::atoi(runSql(file(), "SELECT count(*) FROM ddr_class").c_str());
  std::string const good = readFile(file());
  ASSERT_GT(classes, 20);
  int refusals = 0;
  for (int row = 0; row < classes; ++row) {
    writeFile(file(), good);
    std::string const name =
        runSql(file(), "SELECT \"Class Name\" FROM ddr_class WHERE \"row\" = " + std::to_string(row));
    sql("UPDATE ddr_class SET \"Class Table\" = 'class_missing' WHERE \"row\" = " + std::to_string(row));
    std::string const bytes = readFile(file());
    std::string const answer = in_child([&] {
      try {
        useEverything();
      } catch (nex_TextException const& error) {
        return std::string(error.what());
      }
      return std::string("used");
    });
    if (answer == "used") {
      continue; // nothing of the class is stored, so its table is not asked for
    }
    ++refusals;
    EXPECT_THAT(answer, testing::HasSubstr(file())) << name;
    EXPECT_THAT(answer, testing::HasSubstr("class '" + name + "'"));
    EXPECT_EQ(readFile(file()), bytes) << name;
  }
  EXPECT_GE(refusals, 8); // as many classes as the database has rows of
}

TEST_F(DdrBadFile, AnyClassThatIsUnlistedGetsAnAnswer) {
  int const classes = std::atoi(runSql(file(), "SELECT count(*) FROM ddr_class").c_str());
  std::string const good = readFile(file());
  int refusals = 0;
  for (int row = 0; row < classes; ++row) {
    writeFile(file(), good);
    sql("UPDATE ddr_class SET \"Type Id\" = 3080193, \"Class Name\" = 'tst_Other' WHERE \"row\" = " +
        std::to_string(row));
    std::string const answer = in_child([&] {
      try {
        useEverything();
      } catch (nex_TextException const& error) {
        return std::string(error.what());
      }
      return std::string("used");
    });
    EXPECT_TRUE(answer == "used" || answer.find(file()) != std::string::npos) << row << " " << answer;
    refusals += answer == "used" ? 0 : 1;
  }
  EXPECT_GE(refusals, 6);
}

} // namespace
