// Texts that are edited, translated and formatted.
#include "atr_String.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace {

TEST(StringBase, FindsTheFirstOccurrenceFromAPosition) {
  atr_StringBase const text("abcabc");
  EXPECT_EQ(text.Find("bc"), 1);
  EXPECT_EQ(text.Find("bc", 1), 1);
  EXPECT_EQ(text.Find("bc", 2), 4);
  EXPECT_EQ(text.Find("abcabc"), 0);
}

TEST(StringBase, AnswersTheLengthForWhatIsAbsent) {
  atr_StringBase const text("abcabc");
  EXPECT_EQ(text.Find("x"), 6);
  EXPECT_EQ(text.Find("abc", 4), 6);
  EXPECT_EQ(text.Find("abcabcabc"), 6);
  EXPECT_EQ(text.Find("a", 100), 6);
  EXPECT_EQ(text.Find(""), 6);
  EXPECT_EQ(atr_StringBase().Find("a"), 0);
}

TEST(StringBase, ANegativePositionCountsAsZero) {
  EXPECT_EQ(atr_StringBase("abc").Find("a", -5), 0);
}

TEST(StringBase, ErasesAStretch) {
  EXPECT_EQ(atr_StringBase("userData['default userData'].x").Erase(8, 20).Text(), "userData.x");
  EXPECT_EQ(atr_StringBase("abc").Erase(0, 3).Text(), "");
}

TEST(StringBase, ErasesNothingOutsideTheText) {
  constexpr int most = std::numeric_limits<int>::max();
  EXPECT_EQ(atr_StringBase("abcdef").Erase(4, most).Text(), "abcd");
  EXPECT_EQ(atr_StringBase("abcdef").Erase(6, 1).Text(), "abcdef");
  EXPECT_EQ(atr_StringBase("abcdef").Erase(most, most).Text(), "abcdef");
  EXPECT_EQ(atr_StringBase("abcdef").Erase(2, 0).Text(), "abcdef");
  EXPECT_EQ(atr_StringBase("abcdef").Erase(2, -1).Text(), "abcdef");
  EXPECT_EQ(atr_StringBase("abcdef").Erase(-2, 3).Text(), "bcdef");
}

TEST(StringBase, AppendsAtTheEnd) {
  EXPECT_EQ(atr_StringBase("a").append("bc").append("").append("d").Text(), "abcd");
}

TEST(StringBase, SubstitutesEveryOccurrence) {
  atr_StringBase text("<zone> 2024 <zone>");
  EXPECT_EQ(text.Substitute("<zone>", "GMT-05:00"), 2);
  EXPECT_EQ(text.Text(), "GMT-05:00 2024 GMT-05:00");
}

TEST(StringBase, DoesNotSearchWhatItPutIn) {
  atr_StringBase text("aXa");
  EXPECT_EQ(text.Substitute("X", "XX"), 1);
  EXPECT_EQ(text.Text(), "aXXa");
  atr_StringBase overlapping("aaaaa");
  EXPECT_EQ(overlapping.Substitute("aa", "b"), 2);
  EXPECT_EQ(overlapping.Text(), "bba");
}

TEST(StringBase, SubstitutesNothingForWhatIsAbsentOrEmpty) {
  atr_StringBase text("abc");
  EXPECT_EQ(text.Substitute("x", "y"), 0);
  EXPECT_EQ(text.Substitute("", "y"), 0);
  EXPECT_EQ(text.Text(), "abc");
}

TEST(StringBase, LengthCountsBytes) {
  EXPECT_EQ(atr_StringBase("\xc3\xa9").Length(), 2);
  EXPECT_EQ(atr_StringBase().Length(), 0);
}

TEST(Translate, GivesTheTextItselfWithoutAHook) {
  EXPECT_EQ(atr_translate("No diagnostic data available"), "No diagnostic data available");
}

TEST(Translate, AsksTheHook) {
  atr_setTranslate([](std::string_view text) { return "<" + std::string(text) + ">"; });
  std::string const translated = atr_translate("text");
  atr_setTranslate(nullptr);
  EXPECT_EQ(translated, "<text>");
  EXPECT_EQ(atr_translate("text"), "text");
}

TEST(SubstituteFormat, PutsValuesInOrder) {
  EXPECT_EQ(atr_SubstituteFormat("file '%s' as %s", {"a.odb", "b"}), "file 'a.odb' as b");
}

TEST(SubstituteFormat, DoesNotReadValuesAsFormats) {
  EXPECT_EQ(atr_SubstituteFormat("'%s' '%s'", {"%s", "100%"}), "'%s' '100%'");
}

TEST(SubstituteFormat, TwoPercentSignsAreOne) {
  EXPECT_EQ(atr_SubstituteFormat("100%% of %s", {"x"}), "100% of x");
  EXPECT_EQ(atr_SubstituteFormat("%%s", {"x"}), "%s");
}

TEST(SubstituteFormat, OtherPercentSignsStay) {
  EXPECT_EQ(atr_SubstituteFormat("%d 50% %", {"x"}), "%d 50% %");
}

TEST(SubstituteFormat, MissingValuesAreEmptyAndFurtherOnesLeftOut) {
  EXPECT_EQ(atr_SubstituteFormat("'%s' '%s'", {"x"}), "'x' ''");
  EXPECT_EQ(atr_SubstituteFormat("'%s'", {"x", "y"}), "'x'");
}

} // namespace
