// Tests of the verb "path".
#include "tool_Test.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

struct PathTest : tool_Test {
  void SetUp() override {
    done({"create", "a.ddr"});
    done({"model", "add", "a.ddr", "Model-1"});
    name = json({"path", "a.ddr"})["path"].get<std::string>();
    name = name.substr(9, name.size() - 11);
  }
  // The container path behind the database: ".models['Model-1']".
  std::string behindDatabase(Words words) {
    words.insert(words.begin(), {"path", "a.ddr"});
    std::string const path = json(words)["path"].get<std::string>();
    std::string const database = fmt::format("ddbCont['{}']", name);
    return path.starts_with(database) ? path.substr(database.size()) : "another database";
  }
  std::string python(std::string const& edition, Words words) {
    words.insert(words.begin(), {"path", "a.ddr", "--edition", edition});
    nlohmann::json const paths = json(words)["pythonPaths"];
    EXPECT_EQ(paths.size(), 1U);
    return paths[edition].get<std::string>();
  }
  std::string name;
};

TEST_F(PathTest, ADatabaseIsNamedByItsWholePersistentName) {
  EXPECT_EQ(name.size(), 2048U);
  EXPECT_THAT(name, MatchesRegex("[0-9/]{10} [0-9:]{8} a\\.ddr +"));
  EXPECT_EQ(behindDatabase({}), "");
}

TEST_F(PathTest, MembersAreNamedBehindTheDatabase) {
  EXPECT_EQ(behindDatabase({"--model", "Model-1"}), ".models['Model-1']");
  EXPECT_EQ(behindDatabase({"--results"}), ".result");
  EXPECT_EQ(behindDatabase({"--user-data"}), ".userData");
}

TEST_F(PathTest, PythonPathsOpenTheFile) {
  EXPECT_EQ(python("studio", {"--model", "Model-1"}), "session.openOdb(r'a.ddr').models['Model-1']");
  EXPECT_EQ(python("lens", {"--results"}), "session.openOdb(r'a.ddr').result");
  EXPECT_EQ(python("none", {"--user-data"}), "openOdb(r'a.ddr').userData");
  EXPECT_EQ(python("none", {}), "openOdb(r'a.ddr').");
}

TEST_F(PathTest, WithoutAnEditionThePathOfEachIsGiven) {
  EXPECT_EQ(json({"path", "a.ddr", "--results"})["pythonPaths"],
            nlohmann::json({{"studio", "session.openOdb(r'a.ddr').result"},
                            {"lens", "session.openOdb(r'a.ddr').result"},
                            {"none", "openOdb(r'a.ddr').result"}}));
}

TEST_F(PathTest, JsonIsFilePathAndPythonPaths) {
  EXPECT_EQ(json({"path", "a.ddr", "--results", "--edition", "lens"}),
            nlohmann::json({{"file", "a.ddr"},
                            {"path", fmt::format("ddbCont['{}'].result", name)},
                            {"pythonPaths", {{"lens", "session.openOdb(r'a.ddr').result"}}}}));
}

TEST_F(PathTest, TheHelpNamesTheEditions) {
  EXPECT_THAT(
      done({"path", "--help"}),
      HasSubstr("  --edition EDITION           The Python path of one edition: studio, lens or none"));
}

TEST_F(PathTest, WordsShowBothForms) {
  EXPECT_EQ(done({"path", "a.ddr", "--results"}),
            fmt::format("Path                    ddbCont['{}'].result\n"
                        "Python path, studio     session.openOdb(r'a.ddr').result\n"
                        "Python path, lens       session.openOdb(r'a.ddr').result\n"
                        "Python path, none       openOdb(r'a.ddr').result\n",
                        name));
  EXPECT_EQ(done({"path", "a.ddr", "--results", "--edition", "lens"}),
            fmt::format("Path                    ddbCont['{}'].result\n"
                        "Python path, lens       session.openOdb(r'a.ddr').result\n",
                        name));
}

TEST_F(PathTest, AnUnknownModelIsAnsweredWithASentence) {
  EXPECT_EQ(refused({"path", "a.ddr", "--model", "X"}),
            "ddr: Database file 'a.ddr': there is no model 'X'. Show the names with 'ddr ls'.");
  EXPECT_THAT(refused({"path", "a.ddr", "--model", ""}), HasSubstr("there is no model ''."));
  EXPECT_THAT(refused({"path", "a.ddr", "--model", "[a,b]"}), HasSubstr("there is no model '[a,b]'."));
  EXPECT_THAT(refused({"path", "a.ddr", "--model", "a\nb"}), HasSubstr("there is no model 'a\\nb'."));
  EXPECT_THAT(refused({"path", "a.ddr", "--model", "\xff"}), HasSubstr("there is no model"));
}

TEST_F(PathTest, ModelsOfAnyNameHavePaths) {
  for (std::string const odd : {"it's", "a'].b", "-x", "[a,b]",
                                "M\xc3\xb6"
                                "bel",
                                "userData['default userData']"}) {
    done({"model", "add", "a.ddr", "--", odd});
    EXPECT_EQ(behindDatabase({"--model=" + odd}), fmt::format(".models['{}']", odd));
  }
}

TEST_F(PathTest, ALongNameIsCutByNothing) {
  std::string const longName(5000, 'x');
  done({"model", "add", "a.ddr", longName});
  EXPECT_EQ(python("none", {"--model", longName}), fmt::format("openOdb(r'a.ddr').models['{}']", longName));
}

TEST_F(PathTest, AFileNameStandsAsItWasGiven) {
  done({"create", "it's.ddr"});
  EXPECT_EQ(json({"path", "./it's.ddr", "--results"})["pythonPaths"]["none"],
            "openOdb(r'./it's.ddr').result");
}

TEST_F(PathTest, NothingIsWritten) {
  auto const before = everything();
  done({"path", "a.ddr", "--model", "Model-1"});
  EXPECT_EQ(everything(), before);
}

TEST_F(PathTest, WrongUsageHasStatus2) {
  for (Words const& words :
       {Words{"path"}, Words{"path", "a.ddr", "--edition", "gold"}, Words{"path", "a.ddr", "--model"},
        Words{"path", "a.ddr", "--model", "Model-1", "--results"},
        Words{"path", "a.ddr", "--results", "--user-data"}, Words{"path", "a.ddr", "b.ddr"}}) {
    program_result const result = run(words);
    EXPECT_EQ(result.status, 2) << testing::PrintToString(result);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, MatchesRegex("ddr: [^\n]+; see 'ddr path --help'\n"));
  }
}

} // namespace
