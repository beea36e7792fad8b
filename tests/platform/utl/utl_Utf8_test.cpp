// Texts from outside.
#include "utl_Utf8.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <string_view>

namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

// A plain reading of the encoding's definition.
bool wellFormed(std::string_view text) {
  std::size_t position = 0;
  while (position < text.size()) {
    auto const byte = [&](std::size_t offset) -> unsigned {
      return position + offset < text.size() ? static_cast<unsigned char>(text[position + offset]) : 0U;
    };
    unsigned const lead = byte(0);
    std::size_t const length = lead < 0x80 ? 1 : lead >= 0xc2 && lead < 0xe0 ? 2 : (lead >> 4) == 0xe ? 3 : 4;
    if (length == 4 && (lead < 0xf0 || lead > 0xf4)) {
      return false;
    }
    for (std::size_t offset = 1; offset < length; ++offset) {
      if ((byte(offset) & 0xc0U) != 0x80) {
        return false;
      }
    }
    if ((lead == 0xe0 && byte(1) < 0xa0) || (lead == 0xed && byte(1) > 0x9f) ||
        (lead == 0xf0 && byte(1) < 0x90) || (lead == 0xf4 && byte(1) > 0x8f)) {
      return false;
    }
    position += length;
  }
  return true;
}

TEST(IsUtf8, AcceptsWellFormedTexts) {
  for (std::string_view const text :
       {""sv, "plain ASCII text that is long"sv, "caf\xc3\xa9"sv, "\xe2\x82\xac"sv, "\xf0\x9f\x98\x80"sv,
        "\xf4\x8f\xbf\xbf"sv, "a\0b"sv}) {
    EXPECT_TRUE(utl_IsUtf8(text)) << utl_Printable(text);
  }
}

TEST(IsUtf8, RefusesEverythingElse) {
  for (std::string_view const text : {"\x80"sv, "caf\xe9"sv, "\xc0\x80"sv, "\xc1\xbf"sv, "\xe0\x80\x80"sv,
                                      "\xed\xa0\x80"sv, "\xf4\x90\x80\x80"sv, "\xf8\x88\x80\x80\x80"sv,
                                      "\xff"sv, "\xe2\x82"sv, "12345678\xc3"sv, "1234567\xc3"sv}) {
    EXPECT_FALSE(utl_IsUtf8(text)) << utl_Printable(text);
  }
}

TEST(IsUtf8, AgreesWithTheDefinitionOnRandomTexts) {
  unsigned const seed = std::random_device()();
  std::mt19937 random(seed);
  constexpr std::string_view bytes =
      "aZ\x7f\x80\x8f\x90\x9f\xa0\xbf\xc1\xc2\xdf\xe0\xe2\xed\xef\xf0\xf1\xf4\xf5";
  int accepted = 0;
  for (int round = 0; round < 200000; ++round) {
    std::string text(random() % 14, 'a');
    for (char& character : text) {
      if (random() % 2 == 0) {
        character = bytes[random() % bytes.size()];
      }
    }
    bool const expected = wellFormed(text);
    accepted += expected ? 1 : 0;
    ASSERT_EQ(utl_IsUtf8(text), expected) << "seed " << seed << ": " << utl_Printable(text);
  }
  EXPECT_GT(accepted, 1000) << "seed " << seed;
}

TEST(Printable, LeavesReadableTextsAlone) {
  EXPECT_EQ(utl_Printable("Model-1 'x' \\ caf\xc3\xa9 \xf0\x9f\x98\x80"),
            "Model-1 'x' \\ caf\xc3\xa9 \xf0\x9f\x98\x80");
  EXPECT_EQ(utl_Printable(""), "");
}

TEST(Printable, EscapesControlCharacters) {
  EXPECT_EQ(utl_Printable("a\nb\rc\td"), "a\\nb\\rc\\td");
  EXPECT_EQ(utl_Printable("\x1b[31m\x7f\0"sv), "\\x1b[31m\\x7f\\x00");
}

TEST(Printable, EscapesBytesThatAreNotUtf8) {
  EXPECT_EQ(utl_Printable("caf\xe9 x"), "caf\\xe9 x");
  EXPECT_EQ(utl_Printable("\xe2\x82"), "\\xe2\\x82");
  EXPECT_EQ(utl_Printable("\xc3\xa9\xff\xc3\xa9"), "\xc3\xa9\\xff\xc3\xa9");
}

TEST(Printable, EscapesWhatBreaksLinesOrTurnsTheDirection) {
  EXPECT_EQ(utl_Printable("\xc2\x85"), "\\u0085");
  EXPECT_EQ(utl_Printable("\xe2\x80\xa8"), "\\u2028");
  EXPECT_EQ(utl_Printable("a\xe2\x80\xae"
                          "b"),
            "a\\u202eb");
  EXPECT_EQ(utl_Printable("\xe2\x81\xa6"), "\\u2066");
}

TEST(Printable, AnswersUtf8OnOneLineWhateverItIsGiven) {
  unsigned const seed = std::random_device()();
  std::mt19937 random(seed);
  for (int round = 0; round < 20000; ++round) {
    std::string text(random() % 20, ' ');
    for (char& character : text) {
      character = static_cast<char>(random() & 0xffU);
    }
    std::string const printable = utl_Printable(text);
    ASSERT_TRUE(utl_IsUtf8(printable)) << "seed " << seed;
    ASSERT_EQ(printable.find_first_of("\n\r\t\0"s), std::string::npos) << "seed " << seed;
  }
}

TEST(utl_PrintableStart, IsTheWholeOfAnOrdinaryText) {
  EXPECT_EQ(utl_PrintableStart(""), "");
  EXPECT_EQ(utl_PrintableStart("a\nb"), "a\\nb");
  EXPECT_EQ(utl_PrintableStart(std::string(200, 'a')), std::string(200, 'a'));
}

TEST(utl_PrintableStart, CutsALongTextBetweenCharacters) {
  EXPECT_EQ(utl_PrintableStart(std::string(201, 'a')), std::string(200, 'a') + "...");
  EXPECT_EQ(utl_PrintableStart(std::string(199, 'a') + "\u20ac" + "bc"), std::string(199, 'a') + "...");
  EXPECT_EQ(utl_PrintableStart(std::string(197, 'a') + "\u20ac" + "bc"), std::string(197, 'a') + "\u20ac...");
}

TEST(utl_PrintableStart, CutsBytesThatAreNoText) {
  std::string const start = utl_PrintableStart(std::string(50'000'000, '\x80'));
  EXPECT_TRUE(start.starts_with("\\x80") && start.ends_with("\\x80..."));
  EXPECT_LT(start.size(), 810U);
}

} // namespace
