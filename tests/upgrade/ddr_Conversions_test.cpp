// The steps that the module declares, and what careful readers would correct in its conversions.
#include "dbc_Conversion.h"
#include "dbc_DatabaseConverter.h"
#include "dbc_OldClassRegistrar.h"
#include "ddr_DdbConversions.h"
#include "ddr_Library.h"
#include "ddr_ModelConversions.h"
#include "layout_files.h"
#include "stored_file.h"
#include "temporary_folder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

class DdrConversions : public testing::Test {
protected:
  DdrConversions() { ddr_initialize(libraries); }
  ~DdrConversions() override { ddr_finalize(libraries); }

  /// Everything that the module declares to the steps.
  static void declare(dbc_DatabaseConverter& converter) {
    for (auto const& old : omi_Singleton<dbc_OldClassRegistrar>::Instance().Versions()) {
      old.holder->Peek()->SchemaChanges(converter);
    }
  }

  /// Makes a file of a layout, changes it and converts it.
  dbc_ConversionReport convert(std::string const& layout, std::string const& changes) {
    make_layout_file(oldPath, layout, changes);
    return dbc_Conversion::Run(cow_String(oldPath.c_str()), cow_String(newPath.c_str()));
  }
  std::string failure(std::string const& layout, std::string const& changes) {
    try {
      convert(layout, changes);
    } catch (std::exception const& error) {
      return error.what();
    }
    return "nothing";
  }
  stored_file converted() const { return stored_file(newPath); }

  temporary_folder folder;
  std::string oldPath = folder.path("old.ddr");
  std::string newPath = folder.path("new.ddr");

private:
  int libraries = 0;
};

TEST_F(DdrConversions, AreDeclaredToTheirSteps) {
  dbc_DatabaseConverter converter;
  declare(converter);
  std::vector<std::string> declared;
  for (auto const& [number, step] : converter.Converters()) {
    for (dbc_ClassConverter const& bound : step.Classes()) {
      char text[80];
      std::snprintf(text, sizeof text, "%d: %s %#x %d%s%s", number, bound.ClassName().Text(), bound.TypeId(),
                    bound.OldVersion(), bound.ConversionFunction() ? " row" : "",
                    bound.FinalizeFunction() ? " finalize" : "");
      declared.emplace_back(text);
    }
  }
  EXPECT_EQ(declared, (std::vector<std::string>{
                          "203: ddr_Ddb 0x220006 203 row", "309: ddr_Ddb 0x220006 204 row",
                          "321: ddr_Ddb 0x220006 309 row", "401: ddr_Model 0x220007 203 row finalize",
                          "818: ddr_Ddb 0x220006 321", "848: ddr_Ddb 0x220006 818",
                          "857: ddr_Model 0x220007 401 row", "874: ddr_Model 0x220007 857 row"}));
}

TEST_F(DdrConversions, TheStepOfDatabases203HasTheirOwnNumber) {
  dbc_DatabaseConverter converter;
  declare(converter);
  ASSERT_EQ(converter.GetConverter(203).Classes().size(), 1U);
  dbc_ClassConverter const& bound = converter.GetConverter(203).Classes().front();
  EXPECT_EQ(bound.OldVersion(), 203);
  EXPECT_EQ(bound.ConversionFunction(), &ddr_convertDdb203);
}

TEST_F(DdrConversions, AStoredVersionOf203IsOverwritten) {
  convert("database_203", "UPDATE class_ddr_Ddb SET ddbVersion = 892;");
  EXPECT_EQ(converted().field("ddr_Ddb", 0, "ddbVersion"), "891");
  EXPECT_EQ(converted().field("ddr_Ddb", 1, "ddbVersion"), "891");
}

TEST_F(DdrConversions, AddOnsOf309AreTakenOverWhereAFileHasThem) {
  convert("database_309", "ALTER TABLE class_ddr_Ddb ADD COLUMN \"productAddOns#ClassID\" INTEGER;"
                          "ALTER TABLE class_ddr_Ddb ADD COLUMN \"productAddOns#OID\" INTEGER;"
                          "UPDATE class_ddr_Ddb SET \"productAddOns#ClassID\" = 0x230001, "
                          "\"productAddOns#OID\" = 7 WHERE \"row\" = 0;");
  EXPECT_EQ(converted().field("ddr_Ddb", 0, "productAddOns#ClassID"), std::to_string(0x230001));
  EXPECT_EQ(converted().field("ddr_Ddb", 0, "productAddOns#OID"), "7");
  EXPECT_EQ(converted().field("ddr_Ddb", 1, "productAddOns#OID"), "NULL");
}

TEST_F(DdrConversions, AddOnsOf309OfWhichHalfIsSetAreNotTakenOver) {
  for (std::string const half : {"#ClassID", "#OID"}) {
    convert("database_309", "ALTER TABLE class_ddr_Ddb ADD COLUMN \"productAddOns#ClassID\" INTEGER;"
                            "ALTER TABLE class_ddr_Ddb ADD COLUMN \"productAddOns#OID\" INTEGER;"
                            "UPDATE class_ddr_Ddb SET \"productAddOns" +
                                half + "\" = 7;");
    EXPECT_EQ(converted().field("ddr_Ddb", 0, "productAddOns#ClassID"), "NULL") << half;
    EXPECT_EQ(converted().field("ddr_Ddb", 0, "productAddOns#OID"), "NULL") << half;
  }
}

TEST_F(DdrConversions, TheLastOldModelServesEveryModel) {
  convert("model_203", "");
  std::string const materials = "SELECT group_concat(\"extension#OID\") FROM class_0x238007d";
  EXPECT_EQ(converted().value(materials), "'13,13,13'");
}

TEST_F(DdrConversions, WhatTheStepOfModels203KeepsEndsWithTheStep) {
  convert("model_203", "");
  // A second file with other contents must not see the first one's.
  convert("model_203", "UPDATE class_odiK_Model SET \"matCont#OID\" = 4;");
  EXPECT_EQ(converted().value("SELECT group_concat(\"extension#OID\") FROM class_0x238007d"), "'4,4,4'");
}

TEST_F(DdrConversions, WhatTheStepOfModels203KeepsEndsWithAFailureToo) {
  std::string const damage = "UPDATE class_ddr_Model SET modelName = 7 WHERE \"row\" = 3;";
  EXPECT_NE(failure("model_203", damage).find("row 3"), std::string::npos);
  convert("model_203", "UPDATE class_odiK_Model SET \"matCont#OID\" = 5;");
  EXPECT_EQ(converted().value("SELECT group_concat(\"extension#OID\") FROM class_0x238007d"), "'5,5,5'");
}

TEST_F(DdrConversions, ConnectorPropertiesThatLackFieldsBecomeSections) {
  convert("model_401",
          "ALTER TABLE class_kprC_ConnectorProperty DROP COLUMN assmType;"
          "ALTER TABLE class_kprC_ConnectorProperty DROP COLUMN u1ReferenceLength;"
          "DELETE FROM ddr_attribute WHERE name IN ('assmType', 'u1ReferenceLength');"
          "UPDATE ddr_attribute AS one SET position = (SELECT count(*) FROM ddr_attribute AS other "
          "WHERE other.class = one.class AND other.position < one.position);"
          "UPDATE class_kprC_ConnectorProperty SET rotType = NULL, integrationMethod = NULL;");
  stored_file const file = converted();
  ASSERT_FALSE(file.rows("0x2600045").empty());
  for (auto const& [row, fields] : file.rows("0x2600045")) {
    EXPECT_EQ(fields.count("assembledType"), 0U) << row;
    EXPECT_EQ(fields.count("rotationalType"), 0U) << row;
    EXPECT_EQ(fields.at("integration"), "'UNSPECIFIED'") << row;
    EXPECT_EQ(std::stod(fields.at("u1ReferenceLength")), 1.7976931348623157e308) << row;
  }
}

TEST_F(DdrConversions, ExtensionsFitAClassThatTheFileHasInANarrowerLayout) {
  convert("model_203",
          "INSERT INTO ddr_class VALUES((SELECT count(*) FROM ddr_class), 'mat_Old', "
          "'class_mat_Old', 0x238007d, 7, 1);"
          "INSERT INTO ddr_attribute VALUES((SELECT count(*) - 1 FROM ddr_class), 0, 'text', 11, "
          "1, 0);"
          "CREATE TABLE class_mat_Old(\"row\" INTEGER PRIMARY KEY, \"#uid\" BLOB, text);"
          "INSERT INTO class_mat_Old VALUES(4, NULL, 'was here');");
  EXPECT_EQ(converted().field("mat_Old", 4, "text"), "'was here'");
  EXPECT_EQ(converted().field("mat_Old", 4, "extension#OID"), "NULL");
  EXPECT_EQ(converted().field("mat_Old", 5, "extension#OID"), "13");
  EXPECT_EQ(converted().field("mat_Old", 7, "text"), "NULL");
  EXPECT_EQ(converted().rows("mat_Old").at(7).count("##BaseClassOID"), 0U); // the class has no base part
  EXPECT_EQ(converted().attributes("mat_Old").size(), 2U);
  EXPECT_EQ(converted().version("mat_Old"), 7);
}

} // namespace
