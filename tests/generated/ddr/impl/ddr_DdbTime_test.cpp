// Times, versions and diagnostics of a database record.
#include "ddr_ModuleTest.h"
#include "recording_rows.h"

#include <memory>

namespace {

/// What the run time answers in one test.
struct Zone {
  std::string name;
  long secondsWest = 0;
  int daylight = 0;
};

class DdrDdbTime : public ddr_ModuleTest {
protected:
  DdrDdbTime() {
    setClock(1709622489); // 2024-03-05 07:08:09 in Greenwich
    zone() = Zone();
    os_runtimeCalls().localtime64 = [](std::int64_t const* moment) {
      static thread_local std::tm broken;
      std::time_t const time = *moment - zone().secondsWest;
      gmtime_r(&time, &broken);
      broken.tm_isdst = zone().daylight;
      return &broken;
    };
    os_runtimeCalls().timezone = [] { return zone().secondsWest; };
    os_runtimeCalls().strftime = [](char* text, std::size_t size, char const* format, std::tm const* time) {
      if (std::string(format) == "%Z") {
        return zone().name.copy(text, size - 1);
      }
      return std::strftime(text, size, format, time);
    };
  }

  static Zone& zone() {
    static Zone current;
    return current;
  }

  /// The zone as it stands in the text of a time.
  static std::string printedZone(Zone const& given) {
    zone() = given;
    std::string const text(ddr_Ddb("n", "i", "d").CreateTime().Text());
    std::size_t const begin = std::string("Tue Mar 05 07:08:09 ").size();
    return text.substr(begin, text.rfind(' ') - begin);
  }

  static ddr_Ddb withVersion(int version) {
    auto stored = std::make_shared<stored_object>();
    stored->ints["ddbVersion"] = {version};
    recording_source const source(stored, "");
    return ddr_Ddb(cls_ReadVisitor(source));
  }
};

TEST_F(DdrDdbTime, TextHasTheNameOfTheZone) {
  zone().name = "CET";
  EXPECT_STREQ(ddr_Ddb("n", "i", "d").CreateTime().Text(), "Tue Mar 05 07:08:09 CET 2024");
  EXPECT_STREQ(ddr_Ddb("n", "i", "d").ModifyTime().Text(), "Tue Mar 05 07:08:09 CET 2024");
}

TEST_F(DdrDdbTime, AZoneWithoutANameIsPrintedAsItsDistance) {
  EXPECT_STREQ(ddr_Ddb("n", "i", "d").CreateTime().Text(), "Tue Mar 05 07:08:09 GMT-00:00 2024");
}

TEST_F(DdrDdbTime, GreenwichPrintsAMinusAndFarEastWraps) {
  EXPECT_EQ(printedZone({"", 0, 0}), "GMT-00:00");
  EXPECT_EQ(printedZone({"", -13 * 3600, 0}), "GMT-11:00");
  EXPECT_EQ(printedZone({"", -12 * 3600, 0}), "GMT-12:00");
}

TEST_F(DdrDdbTime, DistancesAreCountedInMinutesWestOfGreenwich) {
  EXPECT_EQ(printedZone({"", 5 * 3600, 0}), "GMT-05:00");
  EXPECT_EQ(printedZone({"", -3600, 0}), "GMT+01:00");
  EXPECT_EQ(printedZone({"", -(5 * 3600 + 45 * 60), 0}), "GMT+05:45");
  EXPECT_EQ(printedZone({"", 12 * 3600, 0}), "GMT-12:00");
  EXPECT_EQ(printedZone({"", 12 * 3600 + 60, 0}), "GMT+11:59");
}

TEST_F(DdrDdbTime, DaylightSavingTakesAnHour) {
  EXPECT_EQ(printedZone({"", 5 * 3600, 1}), "GMT-04:00");
  EXPECT_EQ(printedZone({"", -3600, 1}), "GMT+02:00");
  EXPECT_EQ(printedZone({"", 0, 1}), "GMT+01:00");
  EXPECT_EQ(printedZone({"", 5 * 3600, -1}), "GMT-05:00");
}

TEST_F(DdrDdbTime, TheTextIsCutAt80Bytes) {
  zone().name = std::string(79, 'Z');
  cow_String const text = ddr_Ddb("n", "i", "d").CreateTime();
  EXPECT_EQ(text.Length(), 80U);
  EXPECT_EQ(std::string(text.Text()), "Tue Mar 05 07:08:09 " + std::string(60, 'Z'));
}

TEST_F(DdrDdbTime, ATimeThatCannotBeFormattedIsAnAssertion) {
  os_runtimeCalls().strftime = [](char*, std::size_t, char const*, std::tm const*) { return std::size_t{0}; };
  auto const error = caught<nex_AssertException>([] { ddr_Ddb("n", "i", "d").CreateTime(); });
  EXPECT_STREQ(error.what(), "strftime(date,maxSizeDate,\"%a %b %d %H:%M:%S <zone> %Y\", localtime(&t))");
  EXPECT_EQ(placeOf(error), "generated/ddr/impl/ddr_Ddb:289");
}

TEST_F(DdrDdbTime, TheTextsAreFormattedOnce) {
  ddr_Ddb const record("n", "i", "d");
  zone().name = "CET";
  std::string const created(record.CreateTime().Text());
  std::string const modified(record.ModifyTime().Text());
  zone().name = "EST";
  EXPECT_EQ(created, record.CreateTime().Text());
  EXPECT_EQ(modified, record.ModifyTime().Text());
}

TEST_F(DdrDdbTime, ALaterWriteLeavesTheTextThatWasGivenOutFirst) {
  ddr_Ddb const record("n", "i", "d");
  std::string const before(record.ModifyTime().Text());
  setClock(1800000000);
  recording_sink sink;
  record.DBWrite(cls_WriteVisitor(sink));
  EXPECT_EQ(record.GetModifyTime(), 1800000000);
  EXPECT_EQ(before, record.ModifyTime().Text());
}

TEST_F(DdrDdbTime, ACopyCarriesTheTextsThatWereGivenOut) {
  zone().name = "CET";
  ddr_Ddb const record("n", "i", "d");
  record.CreateTime();
  record.ModifyTime();
  ddr_Ddb const copy(record);
  zone().name = "EST";
  EXPECT_STREQ(copy.CreateTime().Text(), "Tue Mar 05 07:08:09 CET 2024");
  EXPECT_STREQ(copy.ModifyTime().Text(), "Tue Mar 05 07:08:09 CET 2024");
}

TEST_F(DdrDdbTime, SchemasUpTo891AreCompatible) {
  EXPECT_TRUE(withVersion(891).checkUpwardsCompatibility());
  EXPECT_FALSE(withVersion(892).checkUpwardsCompatibility());
  EXPECT_TRUE(withVersion(-1).checkUpwardsCompatibility());
  EXPECT_TRUE(ddr_Ddb("n", "i", "d").checkUpwardsCompatibility());
}

TEST_F(DdrDdbTime, AFreshFileCanBeWrittenBack) {
  cow_String const database = createSaved("a.odb");
  EXPECT_TRUE(record(database).checkWriteCompatibility());
}

TEST_F(DdrDdbTime, AFileOfOtherClassVersionsCannotBeWrittenBack) {
  cow_String const database = createSaved("a.odb");
  auto* const newer = omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar();
  newer->CreateClassMD("ddr_Model", ddr_Model::TypeId(), 875, nullptr, 1);
  root().SetClassRegistrar(newer);
  EXPECT_FALSE(record(database).checkWriteCompatibility());
}

TEST_F(DdrDdbTime, AMissingFilePassesOnItsError) {
  cow_String const database = createSaved("a.odb");
  ASSERT_EQ(std::remove(folder.path("a.odb").c_str()), 0);
  EXPECT_THROW(record(database).checkWriteCompatibility(), nex_TextException);
}

TEST_F(DdrDdbTime, ARecordWithoutDiagnosticsSaysSo) {
  ddr_Ddb record = withVersion(891);
  auto const error = caught<nex_TextException>([&] { record.GetDiagnosticData(); });
  EXPECT_STREQ(error.what(), "No diagnostic data available");
  EXPECT_EQ(placeOf(error), "generated/ddr/impl/ddr_Ddb:357");
  auto const constError = caught<nex_TextException>([&] { record.ConstGetDiagnosticData(); });
  EXPECT_STREQ(constError.what(), "No diagnostic data available");
  EXPECT_EQ(placeOf(constError), "generated/ddr/impl/ddr_Ddb:369");
}

} // namespace
