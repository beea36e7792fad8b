// Searching with regular expressions.
#include "rgx_ReIterator.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

// The key of a database and what follows it in a path.
constexpr char const* pathExpression = R"(ddbCont\[\'(.*?)\'\]\.(.*?)$)";

std::string group(char const* pattern, std::string const& text, int number) {
  return rgx_match(pattern, text).NthString(number).Text();
}

TEST(ReIterator, NumbersGroupsFromOne) {
  std::string const path = "ddbCont['job-1'].models['Model-1']";
  EXPECT_EQ(group(pathExpression, path, 1), "job-1");
  EXPECT_EQ(group(pathExpression, path, 2), "models['Model-1']");
  EXPECT_EQ(group(pathExpression, path, 0), path);
}

TEST(ReIterator, AnswersEmptyTextsWhenNothingMatches) {
  rgx_ReIterator const result = rgx_match(pathExpression, "ddbCont['job-1']");
  EXPECT_FALSE(result.Matched());
  for (int number = -1; number < 5; ++number) {
    EXPECT_TRUE(result.NthString(number).IsEmpty()) << number;
  }
}

TEST(ReIterator, AnswersEmptyTextsForGroupsThatAreNotThere) {
  rgx_ReIterator const result = rgx_match("(a)|(b)", "b");
  EXPECT_TRUE(result.Matched());
  EXPECT_TRUE(result.NthString(1).IsEmpty());
  EXPECT_STREQ(result.NthString(2).Text(), "b");
  EXPECT_TRUE(result.NthString(3).IsEmpty());
  EXPECT_TRUE(result.NthString(-1).IsEmpty());
}

TEST(ReIterator, LazyGroupsStopAtTheFirstClosing) {
  std::string const path = "ddbCont['a'].b'].models['m']";
  EXPECT_EQ(group(pathExpression, path, 1), "a");
  EXPECT_EQ(group(pathExpression, path, 2), "b'].models['m']");
}

TEST(ReIterator, SearchesAnywhereInTheText) {
  EXPECT_EQ(group("b+", "aabbbaab", 0), "bbb");
  EXPECT_TRUE(rgx_match("^a", "ab").Matched());
  EXPECT_FALSE(rgx_match("^b", "ab").Matched());
}

TEST(ReIterator, ADotTakesAllButALineBreak) {
  EXPECT_EQ(group(pathExpression, "ddbCont['a b'].models['c\td']", 2), "models['c\td']");
  EXPECT_FALSE(rgx_match(pathExpression, "ddbCont['a\nb'].models['c']").Matched());
}

TEST(ReIterator, TheEndIsTheEndOfTheText) {
  EXPECT_FALSE(rgx_match(pathExpression, "ddbCont['a'].models['c']\n").Matched());
  EXPECT_EQ(group("b$", "a\nb", 0), "b");
}

TEST(ReIterator, AnotherPatternOrEncodingIsCompiledAnew) {
  EXPECT_EQ(group("a(.)", "ab", 1), "b");
  EXPECT_EQ(group("(.)a", "ca", 1), "c");
  EXPECT_EQ(group("a(.)", "a\xff", 1), "\xff");
  EXPECT_EQ(group("a(.)", "a\xc3\xa9", 1), "\xc3\xa9");
}

TEST(ReIterator, CharactersAreUtf8WhenTheTextIs) {
  EXPECT_EQ(group("^(.)b",
                  "\xc3\xa9"
                  "b",
                  1),
            "\xc3\xa9");
  EXPECT_EQ(group("[\xc3\xa9]", "caf\xc3\xa9", 0), "\xc3\xa9");
}

TEST(ReIterator, BytesThatAreNotUtf8AreTakenAsTheyAre) {
  EXPECT_EQ(group(pathExpression, "ddbCont['caf\xe9'].models['\xff']", 1), "caf\xe9");
  EXPECT_EQ(group(pathExpression, "ddbCont['caf\xe9'].models['\xff']", 2), "models['\xff']");
}

TEST(ReIterator, TextsStayWithTheResult) {
  std::string text(3000, 'x');
  rgx_ReIterator const result = rgx_match("x+", text);
  text.assign(3000, 'y');
  EXPECT_EQ(result.NthString(0).View(), std::string(3000, 'x'));
}

TEST(ReIterator, TakesTimeInProportionWhateverTheText) {
  // With an engine that tries every way, this expression takes two to the power of the length.
  EXPECT_FALSE(rgx_match("(x+x+)+y", std::string(5000, 'x')).Matched());
}

TEST(ReIterator, RefusesWhatIsNoExpression) {
  try {
    rgx_match("(a", "a");
    FAIL() << "nothing was thrown";
  } catch (std::invalid_argument const& exception) {
    EXPECT_NE(std::string(exception.what()).find("(a"), std::string::npos);
  }
}

} // namespace
