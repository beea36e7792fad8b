// Tests of the verbs "model", "result" and "userdata".
#include "tool_Test.h"

#include <array>
#include <gmock/gmock.h>

using testing::HasSubstr;

namespace {

struct Kind {
  char const* verb;
  char const* one;
  char const* several;
  char const* field;
};

void PrintTo(Kind const& kind, std::ostream* stream) {
  *stream << kind.verb;
}

constexpr std::array<Kind, 3> kinds{{
    {"model", "model", "models", "models"},
    {"result", "result", "results", "results"},
    {"userdata", "user data entry", "user data entries", "userData"},
}};

struct ChangeTest : tool_Test, testing::WithParamInterface<Kind> {
  void SetUp() override { done({"create", "a.ddr"}); }
  static Words words(char const* action, Words const& names) {
    Words all{GetParam().verb, action, "a.ddr"};
    all.insert(all.end(), names.begin(), names.end());
    return all;
  }
  std::string add(Words const& names) { return done(words("add", names)); }
  std::string remove(Words const& names) { return done(words("rm", names)); }
  nlohmann::json names() { return json({"ls", "a.ddr"})[GetParam().field]; }
  // Refused, and nothing in the folder has changed.
  std::string refusedWhole(char const* action, Words const& names) {
    auto const before = everything();
    std::string const line = refused(words(action, names));
    EXPECT_EQ(everything(), before);
    return line;
  }
  // How many transactions have changed the file: SQLite counts them in its header.
  unsigned saves() const {
    std::string const file = bytes("a.ddr");
    unsigned count = 0;
    for (std::size_t place = 24; place < 28; ++place) {
      count = count << 8U | static_cast<unsigned char>(file[place]);
    }
    return count;
  }
};

TEST_P(ChangeTest, AddedNamesAreListed) {
  EXPECT_EQ(add({"N-10", "N-9"}), "Added 2 " + std::string(GetParam().several) + "; there are 2 now.\n");
  EXPECT_EQ(names(), nlohmann::json({"N-9", "N-10"}));
}

TEST_P(ChangeTest, OnlyTheCollectionMeantIsChanged) {
  add({"N"});
  nlohmann::json expected{{"models", 0}, {"results", 0}, {"userData", 0}};
  expected[GetParam().field] = 1;
  EXPECT_EQ(json({"info", "a.ddr"})["counts"], expected);
}

TEST_P(ChangeTest, RemovedNamesAreGone) {
  add({"A", "B", "C"});
  EXPECT_EQ(remove({"C", "A"}), "Removed 2 " + std::string(GetParam().several) + "; there is 1 now.\n");
  EXPECT_EQ(names(), nlohmann::json({"B"}));
}

TEST_P(ChangeTest, OneIsSaidAsOne) {
  EXPECT_EQ(add({"A"}), "Added 1 " + std::string(GetParam().one) + "; there is 1 now.\n");
  EXPECT_EQ(remove({"A"}), "Removed 1 " + std::string(GetParam().one) + "; there are 0 now.\n");
}

TEST_P(ChangeTest, JsonTellsWhatWasDone) {
  std::string const collection = GetParam().field;
  EXPECT_EQ(
      json(words("add", {"B", "A"})),
      nlohmann::json({{"file", "a.ddr"}, {"collection", collection}, {"added", {"B", "A"}}, {"count", 2}}));
  EXPECT_EQ(
      json(words("rm", {"B"})),
      nlohmann::json({{"file", "a.ddr"}, {"collection", collection}, {"removed", {"B"}}, {"count", 1}}));
}

TEST_P(ChangeTest, ManyNamesAreOneSave) {
  unsigned const before = saves();
  add({"A", "B", "C", "D"});
  EXPECT_EQ(saves(), before + 1);
  remove({"A", "C", "D"});
  EXPECT_EQ(saves(), before + 2);
}

TEST_P(ChangeTest, APresentNameIsNotAddedNorAnyOther) {
  add({"A"});
  EXPECT_EQ(refusedWhole("add", {"B", "A"}), "ddr: Database file 'a.ddr': there is a " +
                                                 std::string(GetParam().one) +
                                                 " 'A' already; nothing was changed. Choose another name, or "
                                                 "remove that one first.");
}

TEST_P(ChangeTest, AnUnknownNameIsNotRemovedNorAnyOther) {
  add({"A"});
  EXPECT_EQ(refusedWhole("rm", {"A", "B"}), "ddr: Database file 'a.ddr': there is no " +
                                                std::string(GetParam().one) +
                                                " 'B'; nothing was changed. Show the names with 'ddr ls'.");
}

TEST_P(ChangeTest, ANameGivenTwiceIsRefused) {
  EXPECT_THAT(refusedWhole("add", {"A", "A"}), HasSubstr("the name 'A' is given twice; nothing was changed"));
  add({"A"});
  EXPECT_THAT(refusedWhole("rm", {"A", "A"}), HasSubstr("the name 'A' is given twice; nothing was changed"));
}

TEST_P(ChangeTest, AnEmptyNameIsRefused) {
  EXPECT_THAT(refusedWhole("add", {"A", ""}), HasSubstr("a name is empty; nothing was changed"));
  EXPECT_THAT(refusedWhole("rm", {""}), HasSubstr("a name is empty; nothing was changed"));
}

TEST_P(ChangeTest, ANameThatIsNotUtf8IsRefused) {
  for (char const* name : {"\xff", "A\xc3", "\xed\xa0\x80", "\xc0\xaf"}) {
    EXPECT_THAT(refusedWhole("add", {"A", name}), HasSubstr("is not UTF-8; nothing was changed"));
  }
  EXPECT_THAT(refusedWhole("add", {"B\xff"}), HasSubstr("the name 'B\\xff' is not UTF-8"));
}

TEST_P(ChangeTest, AnyOtherTextIsAName) {
  nlohmann::json const odd = {" ",   "%%",  "++",   "-5",    "[a,b]", "[",  "[]",           "a,b",
                              "add", "b c", "info", "model", "rm",    "{}", "\xe6\xa2\x81", "\x01"};
  add(odd.get<Words>());
  for (nlohmann::json const& name : odd) {
    EXPECT_THAT(names(), testing::Contains(name));
  }
  remove(odd.get<Words>());
  EXPECT_EQ(names(), nlohmann::json::array());
}

TEST_P(ChangeTest, WhatFollowsTwoDashesIsAName) {
  add({"A", "--", "--json", "-b", "--", "++"});
  EXPECT_EQ(names(), nlohmann::json({"++", "--", "--json", "-b", "A"}));
}

TEST_P(ChangeTest, ALongNameComesBackWhole) {
  std::string const name(100000, 'n');
  add({name});
  EXPECT_EQ(names(), nlohmann::json({name}));
}

TEST_P(ChangeTest, AFailedSaveChangesNothing) {
  add({"A"});
  program_settings settings;
  settings.fileSizeLimit = bytes("a.ddr").size();
  Words many;
  for (int number = 0; number < 2000; ++number) {
    many.push_back("Name-" + std::to_string(number));
  }
  std::string const before = bytes("a.ddr");
  std::string const line = refused(words("add", many), settings);
  EXPECT_THAT(line, HasSubstr("Database file 'a.ddr'"));
  EXPECT_THAT(line, HasSubstr("nothing was changed"));
  EXPECT_EQ(bytes("a.ddr"), before);
  EXPECT_THAT(folder.names(), testing::ElementsAre("a.ddr"));
  EXPECT_EQ(names(), nlohmann::json({"A"}));
}

// As many as fit into one command line, then again as many.
TEST_P(ChangeTest, TwentyThousandNamesInTwoSaves) {
  constexpr int half = 10000;
  for (int first : {0, half}) {
    Words many;
    for (int number = first; number < first + half; ++number) {
      many.push_back("Name-" + std::to_string(number));
    }
    unsigned const before = saves();
    add(many);
    EXPECT_EQ(saves(), before + 1);
  }
  nlohmann::json const listed = names();
  ASSERT_EQ(listed.size(), 2U * half);
  for (std::size_t number = 0; number < listed.size(); ++number) {
    ASSERT_EQ(listed[number], "Name-" + std::to_string(number));
  }
}

TEST_P(ChangeTest, TheTimeOfModificationMoves) {
  runSql(folder.path("a.ddr"), "UPDATE class_ddr_Ddb SET modifyTime = 86400");
  ASSERT_THAT(json({"info", "a.ddr"})["modified"].get<std::string>(), testing::EndsWith("1970"));
  add({"A"});
  EXPECT_THAT(json({"info", "a.ddr"})["modified"].get<std::string>(),
              testing::Not(testing::EndsWith("1970")));
}

INSTANTIATE_TEST_SUITE_P(Kinds, ChangeTest, testing::ValuesIn(kinds),
                         [](auto const& kind) { return std::string(kind.param.verb); });

} // namespace
