// Tests of the command line: help, version, and usage that is not understood.
#include "tool_Test.h"

#include <gmock/gmock.h>

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

struct CommandLineTest : tool_Test {
  // What the tool says of a usage that it does not understand.
  std::string misused(Words const& words) {
    program_result const result = run(words);
    EXPECT_EQ(result.status, 2) << testing::PrintToString(result);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(folder.names(), ElementsAre());
    return result.err;
  }
};

TEST_F(CommandLineTest, HelpNamesEveryVerbAndTheStatuses) {
  EXPECT_THAT(done({"--help"}), AllOf(HasSubstr("create "), HasSubstr("info "), HasSubstr("ls "),
                                      HasSubstr("model "), HasSubstr("result "), HasSubstr("userdata "),
                                      HasSubstr("Exit status: 0 done, 1 failed")));
  EXPECT_EQ(done({"-h"}), done({"--help"}));
}

TEST_F(CommandLineTest, EveryVerbHasHelpOfItsOwn) {
  EXPECT_THAT(done({"create", "--help"}), AllOf(HasSubstr("--description TEXT"), HasSubstr("--force")));
  EXPECT_THAT(done({"userdata", "rm", "--help"}), HasSubstr("Usage: ddr userdata rm [OPTIONS] FILE NAME..."));
  for (Words verb :
       {Words{"create"}, Words{"info"}, Words{"ls"}, Words{"model", "add"}, Words{"result", "rm"}}) {
    verb.emplace_back("--help");
    EXPECT_THAT(done(verb), AllOf(HasSubstr("FILE"), HasSubstr("--json")));
  }
}

TEST_F(CommandLineTest, TheVersionIsTheProjects) {
  EXPECT_EQ(done({"--version"}), "ddr " TOOL_VERSION "\n");
}

TEST_F(CommandLineTest, AMissingVerbIsWrongUsage) {
  EXPECT_EQ(misused({}), "ddr: A subcommand is required; see 'ddr --help'\n");
  EXPECT_EQ(misused({"model"}), "ddr: A subcommand is required; see 'ddr model --help'\n");
}

TEST_F(CommandLineTest, AnUnknownVerbIsNamed) {
  EXPECT_EQ(misused({"frob"}), "ddr: 'frob' was not expected; see 'ddr --help'\n");
  EXPECT_EQ(misused({"model", "frob", "a.ddr"}), "ddr: 'frob' was not expected; see 'ddr model --help'\n");
}

TEST_F(CommandLineTest, AMissingFileNameIsWrongUsage) {
  for (char const* verb : {"create", "info", "ls"}) {
    EXPECT_EQ(misused({verb}), "ddr: FILE is required; see 'ddr " + std::string(verb) + " --help'\n");
  }
  EXPECT_EQ(misused({"model", "add"}), "ddr: FILE is required; see 'ddr model add --help'\n");
}

TEST_F(CommandLineTest, AMissingNameIsWrongUsage) {
  EXPECT_EQ(misused({"result", "rm", "a.ddr"}), "ddr: NAME is required; see 'ddr result rm --help'\n");
}

TEST_F(CommandLineTest, AnUnknownOptionIsNamed) {
  EXPECT_EQ(misused({"create", "a.ddr", "--fast"}),
            "ddr: '--fast' was not expected; see 'ddr create --help'\n");
  EXPECT_EQ(misused({"model", "add", "a.ddr", "-q", "A"}),
            "ddr: '-q' was not expected; see 'ddr model add --help'\n");
}

TEST_F(CommandLineTest, AnOptionWithoutItsValueIsNamed) {
  EXPECT_EQ(misused({"create", "a.ddr", "--description"}),
            "ddr: --description needs a value; see 'ddr create --help'\n");
  EXPECT_EQ(misused({"path", "a.ddr", "--edition"}), "ddr: --edition needs a value; see 'ddr path --help'\n");
}

TEST_F(CommandLineTest, AnOptionThatIsGivenTwiceIsNamed) {
  EXPECT_EQ(misused({"path", "a.ddr", "--model", "A", "--model", "B"}),
            "ddr: --model was given more than once; see 'ddr path --help'\n");
}

TEST_F(CommandLineTest, AWordTooMuchIsNamed) {
  EXPECT_EQ(misused({"ls", "a.ddr", "b.ddr"}), "ddr: 'b.ddr' was not expected; see 'ddr ls --help'\n");
}

TEST_F(CommandLineTest, ControlCharactersInAComplaintAreEscaped) {
  EXPECT_EQ(misused({"\x1b[31m\n"}), "ddr: '\\x1b[31m ' was not expected; see 'ddr --help'\n");
}

TEST_F(CommandLineTest, AnswersThatCannotBeWrittenFail) {
  program_settings full;
  full.outputFile = "/dev/full";
  EXPECT_EQ(refused({"--help"}, full),
            "ddr: The answer cannot be written to standard output (No space left on device).");
  done({"create", "a.ddr"});
  EXPECT_EQ(run({"ls", "a.ddr"}, full).status, 1);
  EXPECT_EQ(run({"info", "a.ddr", "--json"}, full).status, 1);
}

} // namespace
