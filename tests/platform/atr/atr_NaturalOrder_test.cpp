// Natural order, against a simple reading of what it means.
#include "atr_String.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

int sign(int value) {
  return (value > 0) - (value < 0);
}

// One character that is no digit, or a whole number.
struct Token {
  bool number;
  std::string text; // a number without leading zeros
};

std::vector<Token> tokens(std::string_view text) {
  std::vector<Token> result;
  bool inNumber = false;
  for (char const character : text) {
    bool const digit = character >= '0' && character <= '9';
    if (!digit || !inNumber) {
      result.push_back({digit, ""});
    }
    std::string& last = result.back().text;
    if (!digit || character != '0' || !last.empty()) {
      last.push_back(character);
    }
    inNumber = digit;
  }
  return result;
}

int compareTokens(Token const& left, Token const& right) {
  if (left.number && right.number) {
    if (left.text.size() != right.text.size()) {
      return left.text.size() < right.text.size() ? -1 : 1;
    }
    return sign(left.text.compare(right.text));
  }
  // A number stands where its digits stand among the characters; no other character lies between them.
  std::string const leftText = left.number ? "0" : left.text;
  std::string const rightText = right.number ? "0" : right.text;
  return sign(leftText.compare(rightText));
}

int reference(std::string const& left, std::string const& right) {
  std::vector<Token> const leftTokens = tokens(left);
  std::vector<Token> const rightTokens = tokens(right);
  for (std::size_t index = 0; index < std::min(leftTokens.size(), rightTokens.size()); ++index) {
    if (int const order = compareTokens(leftTokens[index], rightTokens[index])) {
      return order;
    }
  }
  if (leftTokens.size() != rightTokens.size()) {
    return leftTokens.size() < rightTokens.size() ? -1 : 1;
  }
  return sign(left.compare(right));
}

int natural(std::string const& left, std::string const& right) {
  return strnatcmp(left.c_str(), right.c_str());
}

class RandomTexts : public testing::Test {
protected:
  RandomTexts() { RecordProperty("seed", std::to_string(seed)); }

  // Few different characters, so that common beginnings, equal numbers and leading zeros are frequent.
  std::string text() {
    static constexpr std::string_view alphabet = "0001299ab/:-\xc3\xa9 ";
    std::string result(random() % 24, ' ');
    for (char& character : result) {
      character = alphabet[random() % alphabet.size()];
    }
    return result;
  }

  // A text that shares a beginning with the given one.
  std::string relative(std::string const& other) {
    std::string result = other.substr(0, random() % (other.size() + 1)) + text();
    return random() % 2 == 0 ? result : result.substr(0, other.size());
  }

  unsigned const seed = std::random_device()();
  std::mt19937 random{seed};
};

TEST(NaturalOrder, NumbersCompareByValue) {
  EXPECT_EQ(natural("Model-2", "Model-10"), -1);
  EXPECT_EQ(natural("Model-10", "Model-2"), 1);
  EXPECT_EQ(natural("x9", "x10"), -1);
  EXPECT_EQ(natural("a2b10", "a2b9"), 1);
  EXPECT_EQ(natural("9", "10"), -1);
}

TEST(NaturalOrder, ADifferenceInsideANumberIsNotADifferenceOfDigits) {
  EXPECT_EQ(natural("Model-123", "Model-13"), 1);
  EXPECT_EQ(natural("Model-1234567890", "Model-123456789"), 1);
  EXPECT_EQ(natural("Model-19x", "Model-1x"), 1);
}

TEST(NaturalOrder, NumbersMayHaveAnyLength) {
  std::string const nines(60, '9');
  std::string const more = "1" + std::string(60, '0');
  EXPECT_EQ(natural("x" + nines, "x" + more), -1);
  EXPECT_EQ(natural("x" + more + "1", "x" + more + "2"), -1);
}

TEST(NaturalOrder, LeadingZerosDoNotCountAtFirst) {
  EXPECT_EQ(natural("x007", "x8"), -1);
  EXPECT_EQ(natural("x010", "x9"), 1);
  EXPECT_EQ(natural("x007b", "x7a"), 1);
}

TEST(NaturalOrder, LeadingZerosDecideWhenNothingElseDoes) {
  EXPECT_EQ(natural("x07", "x7"), -1);
  EXPECT_EQ(natural("x7", "x07"), 1);
  EXPECT_EQ(natural("x0", "x00"), -1);
  EXPECT_EQ(natural("a01b1", "a1b01"), -1);
}

TEST(NaturalOrder, OtherCharactersCompareAsUnsignedBytes) {
  EXPECT_EQ(natural("a", "b"), -1);
  EXPECT_EQ(natural("Z", "a"), -1);
  EXPECT_EQ(natural("z", "\xc3\xa9"), -1);
  EXPECT_EQ(natural("/", "0"), -1);
  EXPECT_EQ(natural(":", "9"), 1);
  EXPECT_EQ(natural("a b", "a  b"), 1);
}

TEST(NaturalOrder, ABeginningComesBeforeTheText) {
  EXPECT_EQ(natural("", "a"), -1);
  EXPECT_EQ(natural("Model", "Model-1"), -1);
  EXPECT_EQ(natural("Model-1", "Model"), 1);
}

TEST(NaturalOrder, OnlyIdenticalTextsAreEqual) {
  EXPECT_EQ(natural("", ""), 0);
  EXPECT_EQ(natural("Model-10", "Model-10"), 0);
  EXPECT_NE(natural("Model-10", "Model-010"), 0);
}

TEST(NaturalOrder, AViewIsReadToItsLengthOnly) {
  std::string_view const text = "Model-123";
  EXPECT_EQ(strnatcmp(text.substr(0, 7), text.substr(0, 8)), -1);
  EXPECT_EQ(strnatcmp(text.substr(0, 7), std::string_view("Model-1")), 0);
}

TEST_F(RandomTexts, AgreeWithTheReference) {
  for (int round = 0; round < 60000; ++round) {
    std::string const left = text();
    std::string const right = round % 2 == 0 ? text() : relative(left);
    int const expected = reference(left, right);
    ASSERT_EQ(natural(left, right), expected) << "seed " << seed << ": '" << left << "' '" << right << "'";
    ASSERT_EQ(natural(right, left), -expected) << "seed " << seed << ": '" << left << "' '" << right << "'";
    ASSERT_EQ(expected == 0, left == right) << "seed " << seed << ": '" << left << "' '" << right << "'";
  }
}

TEST_F(RandomTexts, AreInATotalOrder) {
  std::vector<std::string> texts;
  for (int count = 0; count < 120; ++count) {
    texts.push_back(count % 3 == 0 ? text() : relative(texts.back()));
  }
  for (std::string const& first : texts) {
    for (std::string const& second : texts) {
      for (std::string const& third : texts) {
        bool const chain = natural(first, second) < 0 && natural(second, third) < 0;
        ASSERT_TRUE(!chain || natural(first, third) < 0)
            << "seed " << seed << ": '" << first << "' '" << second << "' '" << third << "'";
      }
    }
  }
}

TEST_F(RandomTexts, CompareLikeTheirViews) {
  for (int round = 0; round < 20000; ++round) {
    std::string const left = text();
    std::string const right = relative(left);
    ASSERT_EQ(strnatcmp(std::string_view(left), std::string_view(right)), natural(left, right))
        << "seed " << seed << ": '" << left << "' '" << right << "'";
  }
}

TEST(NaturalOrderSetting, IsOffAtStartAndHoldsWhatIsSet) {
  EXPECT_EQ(atr_getNaturalOrder(), 0);
  atr_setNaturalOrder(3);
  EXPECT_EQ(atr_getNaturalOrder(), 3);
  atr_setNaturalOrder(0);
  EXPECT_EQ(atr_getNaturalOrder(), 0);
}

} // namespace
