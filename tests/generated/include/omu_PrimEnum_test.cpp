// A persistent enumeration value.
#include "ddr_ProductAddOn.h"
#include "recording_rows.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

/// An enumeration of another owner, with texts that partly agree.
enum ColourEnum : int { Colour_Red = 3, Colour_Koru = 8 };
using Colour = omu_PrimEnum<ColourEnum, 1>;
template <>
omu_PrimEnumEntry const* Colour::EnumTable() noexcept {
  static constexpr omu_PrimEnumEntry table[] = {{"RED", Colour_Red}, {"KORU", Colour_Koru}, {nullptr, 0}};
  return table;
}

namespace {

template <class Work>
omu_ValueErrorException refused(Work const& work) {
  try {
    work();
  } catch (omu_ValueErrorException const& error) {
    return error;
  }
  throw std::logic_error("nothing was refused");
}

std::string placeOf(nex_Exception const& exception) {
  return std::string(exception.SourcePath()) + ":" + std::to_string(exception.Line());
}

Colour red() {
  Colour colour(Colour_Red);
  return colour;
}

TEST(OmuPrimEnum, StartsAsTheFirstValue) {
  ddr_ProductAddOn const addOn;
  EXPECT_EQ(addOn.GetValue(), ddr_ProductAddOn_Koru);
  EXPECT_STREQ(addOn.GetString().Text(), "KORU");
}

TEST(OmuPrimEnum, TheTableHasTwoTextsWithTheirValues) {
  omu_PrimEnumEntry const* const table = ddr_ProductAddOn::EnumTable();
  EXPECT_STREQ(table[0].text, "KORU");
  EXPECT_EQ(table[0].value, 0U);
  EXPECT_STREQ(table[1].text, "FENTAL");
  EXPECT_EQ(table[1].value, 1U);
  EXPECT_EQ(table[2].text, nullptr);
}

TEST(OmuPrimEnum, TakesAValue) {
  ddr_ProductAddOn const addOn(ddr_ProductAddOn_Fental);
  EXPECT_EQ(addOn.GetNumber(), 1U);
  EXPECT_STREQ(addOn.GetString().Text(), "FENTAL");
}

TEST(OmuPrimEnum, RefusesAValueOutsideTheTable) {
  auto const error = refused([] { ddr_ProductAddOn const addOn(static_cast<ddr_ProductAddOnEnum>(2)); });
  EXPECT_STREQ(error.what(), "omu_PrimEnum(Enum) - Enum value not allowed: 2  Permissible: KORU, FENTAL");
  EXPECT_EQ(placeOf(error), "generated/include/omu_PrimEnum:54");
}

TEST(OmuPrimEnum, PrintsARefusedValueWithItsSign) {
  auto const error = refused([] { Colour const colour(static_cast<ColourEnum>(-1)); });
  EXPECT_STREQ(error.what(), "omu_PrimEnum(Enum) - Enum value not allowed: -1  Permissible: RED, KORU");
}

TEST(OmuPrimEnum, TakesTheTextOfAnotherEnumeration) {
  Colour const colour(Colour_Koru);
  ddr_ProductAddOn const addOn(static_cast<omu_PrimEnumBase const&>(colour));
  EXPECT_EQ(addOn.GetValue(), ddr_ProductAddOn_Koru);
}

TEST(OmuPrimEnum, RefusesTheTextOfAnotherEnumerationThatItLacks) {
  auto const error =
      refused([] { ddr_ProductAddOn const addOn(static_cast<omu_PrimEnumBase const&>(red())); });
  EXPECT_STREQ(error.what(), "omu_PrimEnum(const omu_PrimEnumBase&) - str not allowed: RED");
  EXPECT_EQ(placeOf(error), "generated/include/omu_PrimEnum:67");
}

TEST(OmuPrimEnum, TakesAText) {
  EXPECT_EQ(ddr_ProductAddOn(cow_String("KORU")).GetNumber(), 0U);
  EXPECT_EQ(ddr_ProductAddOn(cow_String("FENTAL")).GetNumber(), 1U);
}

TEST(OmuPrimEnum, RefusesATextInLowerCase) {
  auto const error = refused([] { ddr_ProductAddOn const addOn(cow_String("koru")); });
  EXPECT_STREQ(error.what(),
               "omu_PrimEnum(const cow_String&) - str not allowed: koru  Permissible: KORU, FENTAL");
  EXPECT_EQ(placeOf(error), "generated/include/omu_PrimEnum:81");
}

TEST(OmuPrimEnum, RefusesTheBeginningOfATextAndALongerText) {
  EXPECT_THROW(ddr_ProductAddOn(cow_String("KOR")), omu_ValueErrorException);
  EXPECT_THROW(ddr_ProductAddOn(cow_String("KORUS")), omu_ValueErrorException);
  EXPECT_THROW(ddr_ProductAddOn(cow_String("")), omu_ValueErrorException);
}

recording_source sourceOf(std::string const& text) {
  auto const element = std::make_shared<stored_object>();
  element->strings[""] = text;
  return recording_source(element, "db");
}

TEST(OmuPrimEnum, ReadsTheStoredText) {
  recording_source const source = sourceOf("FENTAL");
  EXPECT_EQ(ddr_ProductAddOn{cls_ReadVisitor(source)}.GetValue(), ddr_ProductAddOn_Fental);
  EXPECT_EQ(source.calls(), recorded_calls{"ElementText"});
}

TEST(OmuPrimEnum, RefusesAStoredTextThatItLacks) {
  recording_source const source = sourceOf("OTHER");
  auto const error = refused([&] { ddr_ProductAddOn const addOn{cls_ReadVisitor(source)}; });
  EXPECT_STREQ(error.what(),
               "omu_PrimEnum(const cls_ReadVisitor&) - str not allowed: OTHER  Permissible: KORU, FENTAL");
  EXPECT_EQ(placeOf(error), "generated/include/omu_PrimEnum:95");
}

TEST(OmuPrimEnum, WritesItsText) {
  recording_sink sink;
  ddr_ProductAddOn(ddr_ProductAddOn_Fental).DBWrite(cls_WriteVisitor(sink));
  EXPECT_EQ(sink.calls(), recorded_calls{"WriteElementText FENTAL"});
}

TEST(OmuPrimEnum, SettingATextAnswersAndChangesNothingWhenItIsUnknown) {
  ddr_ProductAddOn addOn;
  EXPECT_TRUE(addOn.SetValue("FENTAL"));
  EXPECT_EQ(addOn.GetValue(), ddr_ProductAddOn_Fental);
  EXPECT_FALSE(addOn.SetValue("Koru"));
  EXPECT_EQ(addOn.GetValue(), ddr_ProductAddOn_Fental);
  EXPECT_STREQ(addOn.GetString().Text(), "FENTAL");
}

TEST(OmuPrimEnum, SettingAValueAnswersAndChangesNothingWhenItIsUnknown) {
  ddr_ProductAddOn addOn;
  EXPECT_TRUE(addOn.SetValue(ddr_ProductAddOn_Fental));
  EXPECT_STREQ(addOn.GetString().Text(), "FENTAL");
  EXPECT_FALSE(addOn.SetValue(static_cast<ddr_ProductAddOnEnum>(7)));
  EXPECT_EQ(addOn.GetNumber(), 1U);
  EXPECT_STREQ(addOn.GetString().Text(), "FENTAL");
}

TEST(OmuPrimEnum, PermissibleValuesHoldsEveryEntry) {
  cow_Map<cow_String, unsigned int> const values = ddr_ProductAddOn().PermissibleValues();
  EXPECT_EQ(values.Size(), 2);
  ASSERT_NE(values.ConstFind("KORU"), nullptr);
  EXPECT_EQ(*values.ConstFind("KORU"), 0U);
  ASSERT_NE(values.ConstFind("FENTAL"), nullptr);
  EXPECT_EQ(*values.ConstFind("FENTAL"), 1U);
}

TEST(OmuPrimEnum, PermissibleTextsAreInTheOrderOfTheTable) {
  EXPECT_STREQ(ddr_ProductAddOn().PermissibleValuesAsString().Text(), "KORU, FENTAL");
}

TEST(OmuPrimEnum, IsEqualToTheSameValueOfTheSameEnumeration) {
  ddr_ProductAddOn const koru(ddr_ProductAddOn_Koru);
  EXPECT_TRUE(koru == static_cast<omu_Primitive const&>(ddr_ProductAddOn(cow_String("KORU"))));
  EXPECT_FALSE(koru == static_cast<omu_Primitive const&>(ddr_ProductAddOn(ddr_ProductAddOn_Fental)));
  EXPECT_FALSE(koru == static_cast<omu_Primitive const&>(Colour(Colour_Koru)));
}

TEST(OmuPrimEnum, CopiesThroughItsBase) {
  ddr_ProductAddOn const fental(ddr_ProductAddOn_Fental);
  std::unique_ptr<omu_Primitive> const copy(static_cast<omu_Primitive const&>(fental).Copy());
  EXPECT_TRUE(fental == *copy);
}

} // namespace
