// What old models kept in containers, and the commands that take it over.
#include "ddr_ModelContainers.h"

#include "ddr_Model.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>

namespace {

std::string row(ddr_ModelContainerKind const& kind) {
  char text[120];
  std::snprintf(text, sizeof text, "%s %s %#x", kind.container, kind.command, kind.typeId);
  return text;
}

} // namespace

TEST(DdrModelContainers, NameContainerCommandAndClassOfEachKind) {
  char const* const expected[] = {"matCont material 0x238007d",
                                  "sectCont section 0x260003b",
                                  "ampCont amplitude 0x2440017",
                                  "constraintCont constraint 0x2d00012",
                                  "bpCont profile 0x2640014",
                                  "amcCont adaptiveMeshControl 0x2680010",
                                  "loadCont load 0x2880052",
                                  "bcCont bc 0x2980030",
                                  "ipCont interactionProperty 0x2a00062",
                                  "intCont interaction 0x2a00061",
                                  "fCont field 0x2ec002c",
                                  "foCont fieldOutputRequest 0x2400032",
                                  "hoCont historyOutputRequest 0x2400033"};
  ASSERT_EQ(std::size(ddr_modelContainers), std::size(expected) + 1);
  for (std::size_t index = 0; index < std::size(expected); ++index) {
    EXPECT_EQ(row(ddr_modelContainers[index]), expected[index]);
  }
}

TEST(DdrModelContainers, ARowOfNullsEndsTheTable) {
  ddr_ModelContainerKind const& last = *std::rbegin(ddr_modelContainers);
  EXPECT_EQ(last.container, nullptr);
  EXPECT_EQ(last.command, nullptr);
  EXPECT_EQ(last.typeId, 0U);
}

TEST(DdrModelContainers, CommandsAreThoseOfModels) {
  std::string const commands[] = {ddr_Model::materialCmd().Text(),
                                  ddr_Model::sectionCmd().Text(),
                                  ddr_Model::amplitudeCmd().Text(),
                                  ddr_Model::constraintCmd().Text(),
                                  ddr_Model::profileCmd().Text(),
                                  ddr_Model::adaptiveMeshControlCmd().Text(),
                                  ddr_Model::loadCmd().Text(),
                                  ddr_Model::bcCmd().Text(),
                                  ddr_Model::interactionPropertyCmd().Text(),
                                  ddr_Model::interactionCmd().Text(),
                                  ddr_Model::fieldCmd().Text(),
                                  ddr_Model::fieldOutputRequestCmd().Text(),
                                  ddr_Model::historyOutputRequestCmd().Text()};
  for (std::size_t index = 0; index < std::size(commands); ++index) {
    EXPECT_EQ(ddr_modelContainers[index].command, commands[index]);
  }
}
