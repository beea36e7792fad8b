// Expressions of fixed texts and lazy gaps: they find what the general engine finds.
#include "rgx_GapPattern.h"
#include "rgx_ReIterator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

using ::testing::ElementsAre;

constexpr char const* pathExpression = R"(ddbCont\[\'(.*?)\'\]\.(.*?)$)";

/// What the general engine finds: a group around the whole keeps an expression from having the simple form.
std::vector<std::string> foundByGeneralEngine(std::string const& expression, std::string const& text) {
  rgx_ReIterator const result = rgx_match("(" + expression + ")", text);
  std::vector<std::string> groups;
  for (int group = 1; result.Matched() && group <= 3; ++group) {
    groups.emplace_back(result.NthString(group).Text());
  }
  return groups;
}

std::vector<std::string> found(std::string const& expression, std::string const& text) {
  std::vector<std::string_view> const groups = rgx_GapPattern::Read(expression)->Match(text);
  return {groups.begin(), groups.end()};
}

TEST(GapPattern, ReadsFixedTextsWithAGapBehindEach) {
  for (char const* expression : {pathExpression, "a(.*?)$", R"(a b(.*?)\.\\(.*?)-(.*?)$)"}) {
    EXPECT_TRUE(rgx_GapPattern::Read(expression)) << expression;
  }
}

TEST(GapPattern, LeavesEveryOtherFormToTheGeneralEngine) {
  for (char const* expression : {"",
                                 "$",
                                 "a",
                                 "a$",
                                 "(.*?)$",
                                 "a(.*?)",
                                 "a(.*?)b",
                                 "a(.*?)(.*?)$",
                                 "a(.*)$",
                                 "a.(.*?)$",
                                 "a?(.*?)$",
                                 "[ab](.*?)$",
                                 "^a(.*?)$",
                                 "a|b(.*?)$",
                                 R"(\d(.*?)$)",
                                 R"(\)",
                                 "a(.*?)$$",
                                 "a(.*?)$b",
                                 "\xc3\xa9(.*?)$",
                                 "a\n(.*?)$",
                                 "(a(.*?)$)"}) {
    EXPECT_FALSE(rgx_GapPattern::Read(expression)) << expression;
  }
}

TEST(GapPattern, AnswersTheWholeMatchAndTheGroups) {
  EXPECT_THAT(found(pathExpression, "x.ddbCont['a'].b'].c"), ElementsAre("ddbCont['a'].b'].c", "a", "b'].c"));
  EXPECT_THAT(found("a(.*?)$", "a"), ElementsAre("a", ""));
}

TEST(GapPattern, AnswersNothingWithoutAMatch) {
  for (char const* text : {"", "ddbCont['a']", "'].", "ddbCont['a'].b\n", "ddbCont['a\n'].b"}) {
    EXPECT_TRUE(found(pathExpression, text).empty()) << text;
  }
}

TEST(GapPattern, FindsWhatTheGeneralEngineFinds) {
  unsigned const seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  char const* const pieces[] = {"ab", "a", "b", "c", "\n", "cb", ".", "\xc3\xa9", "\xff", "ba"};
  int matches = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    for (auto length = random() % 12; length > 0; --length) {
      text += pieces[random() % std::size(pieces)];
    }
    std::vector<std::string> const expected = foundByGeneralEngine("ab(.*?)cb(.*?)$", text);
    ASSERT_EQ(found("ab(.*?)cb(.*?)$", text), expected) << text;
    matches += !expected.empty();
  }
  EXPECT_GT(matches, 100);
}

TEST(GapPattern, FindsWhatTheGeneralEngineFindsInPaths) {
  unsigned const seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  char const* const pieces[] = {"ddbCont['", "ddbCont[", "'].", "']",       "'",
                                ".",         "a",        "\n",  "\xc3\xa9", "\xff"};
  int matches = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string text = round % 2 == 0 ? "ddbCont['" : "";
    for (auto length = random() % 10; length > 0; --length) {
      text += pieces[random() % std::size(pieces)];
    }
    std::vector<std::string> const expected = foundByGeneralEngine(pathExpression, text);
    ASSERT_EQ(found(pathExpression, text), expected) << text;
    matches += !expected.empty();
  }
  EXPECT_GT(matches, 100);
}

} // namespace
