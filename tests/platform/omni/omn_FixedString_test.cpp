// Fixed texts.
#include "omn_FixedString.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr omn_FixedString material("material");

static_assert(material.Length() == 8);
static_assert(material == omn_FixedString("material"));
static_assert(material != omn_FixedString("section"));

TEST(FixedString, HandsOutItsLiteral) {
  EXPECT_STREQ(material.Text(), "material");
  EXPECT_EQ(material.Length(), 8U);
}

TEST(FixedString, ComparesTextsNotPlaces) {
  std::string const elsewhere = "material";
  EXPECT_EQ(material, omn_FixedString(elsewhere.c_str()));
  EXPECT_NE(material, omn_FixedString("materials"));
  EXPECT_NE(material, omn_FixedString(""));
}

} // namespace
