// What conversions write down for good, and what it is called today.
#include "ddr_OldNames.h"

#include "cls_Attribute.h"
#include "ddr_Catalogue.h"
#include "ddr_Ddb.h"
#include "ddr_ModelContainers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

namespace {

unsigned typeIdOfCommand(std::string_view command) {
  auto const* const found =
      std::find_if(std::begin(ddr_modelContainers), std::end(ddr_modelContainers) - 1,
                   [&](ddr_ModelContainerKind const& kind) { return kind.command == command; });
  return found->typeId;
}

} // namespace

TEST(DdrOldNames, TheStoredNumbersStay) {
  EXPECT_EQ(ddr_oldDdbTypeId, 0x220006U);
  EXPECT_EQ(ddr_oldModelTypeId, 0x220007U);
  EXPECT_EQ(ddr_oldExtensionTableTypeId, 0x220018U);
  EXPECT_EQ(ddr_oldMapTypeId, 0x230002U);
  EXPECT_EQ(ddr_oldAddOnListTypeId, 0x230001U);
  EXPECT_EQ(ddr_oldDiagnosticDataTypeId, 0x240001U);
  EXPECT_EQ(ddr_oldDiagnosticListTypeId, 0x210001U);
  EXPECT_EQ(ddr_oldSectionTypeId, 0x260003bU);
  EXPECT_STREQ(ddr_oldStepCommand, "step");
  EXPECT_STREQ(ddr_oldSectionCommand, "section");
  EXPECT_EQ(ddr_oldSchemaVersion, 891);
}

TEST(DdrOldNames, ClassesAndCollectionsAreThoseOfToday) {
  EXPECT_EQ(ddr_oldDdbTypeId, ddr_Ddb::TypeId());
  EXPECT_EQ(ddr_oldModelTypeId, ddr_Model::TypeId());
  EXPECT_EQ(ddr_oldExtensionTableTypeId, ddr_ExtensionTable::TypeId());
  EXPECT_EQ(ddr_oldMapTypeId, cls_MapHeaderTypeId);
  EXPECT_EQ(ddr_oldAddOnListTypeId, cls_ListHeaderTypeId);
  EXPECT_EQ(ddr_oldDiagnosticDataTypeId, dia_DiagnosticData::TypeId());
  EXPECT_EQ(ddr_oldDiagnosticListTypeId, cls_ListObjTypeId);
}

TEST(DdrOldNames, CommandsAreThoseOfModelsToday) {
  EXPECT_STREQ(ddr_oldStepCommand, ddr_Model::stepCmd().Text());
  EXPECT_STREQ(ddr_oldSectionCommand, ddr_Model::sectionCmd().Text());
}

TEST(DdrOldNames, TheSectionOfConnectorsIsThatOfOldContainers) {
  EXPECT_EQ(ddr_oldSectionTypeId, typeIdOfCommand(ddr_oldSectionCommand));
}

// When the schema moves on, decide whether a database that was brought here from 203 needs more than its
// number.
TEST(DdrOldNames, TheSchemaThatIsGivenIsTheCurrentOne) {
  EXPECT_EQ(ddr_oldSchemaVersion, ddr_currentSchema);
}
