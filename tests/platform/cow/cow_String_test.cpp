// Texts: what they hold, what they share, how they compare.
#include "cow_String.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>
#include <unordered_set>

namespace {

std::string const longText = "a text that does not fit into the object itself";

std::string textOf(cow_String const& text) {
  EXPECT_EQ(std::strlen(text.Text()), text.Length());
  return std::string(text.View());
}

TEST(String, EmptyTextHasNoBufferAndReadsAsNothing) {
  cow_String const text;
  EXPECT_STREQ(text.Text(), "");
  EXPECT_EQ(text.Length(), 0U);
  EXPECT_TRUE(text.IsEmpty());
  EXPECT_EQ(text.ShareCount(), 0U);
}

TEST(String, NullAndEmptyTextsAreEmpty) {
  EXPECT_TRUE(cow_String(static_cast<char const*>(nullptr)).IsEmpty());
  EXPECT_TRUE(cow_String("").IsEmpty());
  EXPECT_TRUE(cow_String(nullptr, 0).IsEmpty());
  EXPECT_TRUE(cow_String(std::string_view()).IsEmpty());
  EXPECT_EQ(cow_String(""), cow_String());
}

TEST(String, HoldsTextsOfEveryLength) {
  for (std::size_t length = 0; length != 400; ++length) {
    std::string expected(length, 'x');
    for (std::size_t index = 0; index != length; ++index) {
      expected[index] = static_cast<char>('a' + index % 26);
    }
    cow_String const text(expected);
    EXPECT_EQ(textOf(text), expected);
    EXPECT_EQ(text.IsEmpty(), length == 0);
    EXPECT_EQ(text.ShareCount(), length <= 15 ? 0U : 1U) << length;
  }
}

TEST(String, EndsAtTheFirstZeroByte) {
  std::string const bytes("ab\0cd", 5);
  EXPECT_EQ(textOf(cow_String(bytes)), "ab");
  EXPECT_EQ(textOf(cow_String(bytes.data(), bytes.size())), "ab");
  EXPECT_EQ(textOf(cow_String(std::string_view(bytes))), "ab");
  EXPECT_EQ(textOf(cow_String(longText + std::string(1, '\0') + longText)), longText);
  EXPECT_EQ(textOf(cow_String("\0later", 6)), "");
  EXPECT_EQ(cow_String(bytes), cow_String("ab"));
}

TEST(String, ALongTextIsSharedByItsCopies) {
  cow_String const first(longText);
  {
    cow_String const second(first); // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_EQ(second.Text(), first.Text());
    EXPECT_EQ(first.ShareCount(), 2U);
  }
  EXPECT_EQ(first.ShareCount(), 1U);
}

TEST(String, AMovedFromTextIsEmpty) {
  for (std::string const& value : {std::string("short"), longText}) {
    cow_String source(value);
    cow_String const target(std::move(source));
    EXPECT_EQ(textOf(target), value);
    EXPECT_TRUE(source.IsEmpty()); // NOLINT(bugprone-use-after-move)
    cow_String assigned("before");
    source = target;
    assigned = std::move(source);
    EXPECT_EQ(textOf(assigned), value);
  }
}

TEST(String, AssignmentReplacesTheTextAndSurvivesItself) {
  cow_String text(longText);
  cow_String const& same = text;
  text = same;
  EXPECT_EQ(textOf(text), longText);
  EXPECT_EQ(text.ShareCount(), 1U);
  text = cow_String("short");
  EXPECT_EQ(textOf(text), "short");
  text = cow_String(longText + "2");
  EXPECT_EQ(textOf(text), longText + "2");
}

TEST(String, ComparesByUnsignedBytes) {
  EXPECT_EQ(cow_String::Compare("a", "b"), -1);
  EXPECT_EQ(cow_String::Compare("b", "a"), 1);
  EXPECT_EQ(cow_String::Compare("a", "a"), 0);
  EXPECT_EQ(cow_String::Compare("", "a"), -1);
  EXPECT_EQ(cow_String::Compare("a", "ab"), -1);
  EXPECT_EQ(cow_String::Compare("z", "\xc3\xa4"), -1);
  EXPECT_EQ(cow_String::Compare("\xff", "\x01\x01"), 1);
}

TEST(String, ComparesLikeTextsOfTheStandardLibrary) {
  unsigned const seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  auto const make = [&] {
    std::string text(random() % 20, 'a');
    for (char& letter : text) {
      letter = static_cast<char>(random() % 8 == 0 ? 1 + random() % 255 : 'a');
    }
    return text;
  };
  int equal = 0;
  for (int round = 0; round != 100000; ++round) {
    std::string const left = make();
    std::string const right = make();
    int const order = left.compare(right);
    int const expected = order < 0 ? -1 : static_cast<int>(order > 0);
    ASSERT_EQ(cow_String::Compare(left, right), expected) << left << " and " << right;
    ASSERT_EQ(cow_String(left) == cow_String(right), expected == 0);
    ASSERT_EQ(cow_String(left) < cow_String(right), expected < 0);
    equal += expected == 0 ? 1 : 0;
  }
  EXPECT_GT(equal, 100);
}

TEST(String, EqualTextsHaveEqualHashes) {
  std::unordered_set<cow_String> const texts{"Model-1", "Model-2", "Model-1", cow_String(longText),
                                             cow_String(longText)};
  EXPECT_EQ(texts.size(), 3U);
  EXPECT_EQ(texts.count("Model-2"), 1U);
}

TEST(String, IsWrittenToStreams) {
  std::ostringstream stream;
  stream << cow_String("Model-1") << cow_String();
  EXPECT_EQ(stream.str(), "Model-1");
}

static_assert(std::is_nothrow_copy_constructible_v<cow_String>);
static_assert(std::is_nothrow_move_constructible_v<cow_String>);
static_assert(std::is_nothrow_copy_assignable_v<cow_String>);

} // namespace
