// What a check says of sound and of damaged files.
#include "ddr_Check.h"

#include "database_test.h"

#include "ddr_Result.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

class DdrCheck : public database_test {
protected:
  /// A file with two models and a result, closed. @returns its path
  std::string saved() {
    cow_String const name = create("a");
    writeModel(name, "M1", "one");
    writeModel(name, "M2", "two");
    edit(name, [](ddr_Ddb& record) { record.results.Insert("R1", ddr_Result()); });
    save(name);
    close(name);
    return pathOf("a").Text();
  }
  /// Status and findings: "1: where what".
  static std::string outcome(std::string const& path, ddr_CheckDepth depth) {
    ddr_CheckResult const result = ddr_check(cow_String(path.c_str()), depth);
    std::string text = std::to_string(static_cast<int>(result.status));
    for (ddr_Finding const& finding : result.findings) {
      text += ": " + finding.where;
      text += " " + finding.what;
    }
    return text;
  }
  static std::string bytesOf(std::string const& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }
};

TEST_F(DdrCheck, ASoundFileHasNoFindingsAndKeepsItsBytes) {
  std::string const path = saved();
  std::string const before = bytesOf(path);
  EXPECT_EQ(outcome(path, ddr_CheckDepth::Quick), "0");
  EXPECT_EQ(outcome(path, ddr_CheckDepth::Deep), "0");
  EXPECT_EQ(bytesOf(path), before);
}

TEST_F(DdrCheck, AMissingFileCannotBeJudged) {
  EXPECT_EQ(outcome(pathOf("none").Text(), ddr_CheckDepth::Quick).substr(0, 1), "2");
}

TEST_F(DdrCheck, AFileWithoutARecordIsDamaged) {
  create("a");
  EXPECT_NE(outcome(pathOf("a").Text(), ddr_CheckDepth::Quick).find("it holds no database record"),
            std::string::npos);
}

TEST_F(DdrCheck, AnEntryThatLeadsNowhereIsFoundWithItsName) {
  std::string const path = saved();
  runSql(path, "UPDATE ddr_entry SET OID = 77 WHERE Key = 'R1'");
  EXPECT_EQ(outcome(path, ddr_CheckDepth::Quick), "0"); // looks at the last record alone
  EXPECT_NE(outcome(path, ddr_CheckDepth::Deep).find("the entry 'R1' leads to row 77"), std::string::npos);
}

TEST_F(DdrCheck, AHalfSetReferenceOfTheLastRecordIsFoundAtOnce) {
  std::string const path = saved();
  runSql(path, "UPDATE " + tableOf(path, ddr_Ddb::TypeId()) + " SET \"results#ClassID\" = NULL");
  EXPECT_NE(outcome(path, ddr_CheckDepth::Quick).find("the reference 'results' is only half set"),
            std::string::npos);
}

TEST_F(DdrCheck, EntriesSharedByTwoCollectionsAreFound) {
  std::string const path = saved();
  std::string const headers = tableOf(path, cls_MapHeaderTypeId);
  runSql(path, "UPDATE " + headers + " SET \"Target#Handle\" = (SELECT min(\"Target#Handle\") FROM " +
                   headers + ")");
  EXPECT_NE(outcome(path, ddr_CheckDepth::Deep).find("it shares its entries with another collection"),
            std::string::npos);
}

TEST_F(DdrCheck, AFileThatIsCutShortIsDamaged) {
  std::string const path = saved();
  std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
  EXPECT_EQ(outcome(path, ddr_CheckDepth::Quick).substr(0, 1), "1");
}

} // namespace
