#include "tool_CommandLine.h"

#include "tool_Change.h"
#include "tool_Check.h"
#include "tool_Create.h"
#include "tool_Info.h"
#include "tool_List.h"
#include "tool_Names.h"
#include "tool_Output.h"
#include "tool_Path.h"
#include "tool_RepairName.h"
#include "tool_Report.h"
#include "tool_Upgrade.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr char const* examples =
    "Examples:\n"
    "  ddr create wing.ddr --description \"Wing, second load case\"\n"
    "  ddr model add wing.ddr Model-1 Model-2\n"
    "  ddr ls wing.ddr\n"
    "  ddr check --deep wing.ddr\n"
    "\n"
    "A name that begins with '-' goes behind '--':  ddr model add wing.ddr -- -x\n"
    "Exit status: 0 done, 1 failed (standard error says why), 2 wrong usage;\n"
    "of check: 0 sound, 1 damaged, 2 cannot tell.";

/// The command that the words have reached: "ddr model add".
std::string reachedCommand(CLI::App const& app) {
  std::string words = app.get_name();
  for (CLI::App const* reached = &app; !reached->get_subcommands().empty();) {
    reached = reached->get_subcommands().front();
    words += " " + reached->get_name();
  }
  return words;
}

bool isDigit(char letter) {
  return letter >= '0' && letter <= '9';
}

/// How many words a verb has behind which many names follow, and how many of those are no names; none for
/// other verbs.
std::optional<std::pair<std::ptrdiff_t, std::size_t>> namesBehind(std::vector<std::string> const& words) {
  if (words.size() > 2 && (words[1] == "add" || words[1] == "rm")) {
    return std::pair(2, 1U); // the file
  }
  if (words.size() > 1 && words[0] == "check") {
    return std::pair(1, 0U);
  }
  return std::nullopt;
}

/// Where many names may follow, puts the options in front and "--" before the rest: the parser would take
/// "++" among the names, and what follows a "--" between them, for something else than names.
std::vector<std::string> withOptionsFirst(std::vector<std::string> const& words) {
  auto const verb = namesBehind(words);
  if (!verb) {
    return words;
  }
  auto const [verbWords, noNames] = *verb;
  std::vector<std::string> sorted(words.begin(), words.begin() + verbWords);
  std::vector<std::string> fileAndNames;
  bool onlyNames = false;
  for (auto word = words.begin() + verbWords; word != words.end(); ++word) {
    bool const isOption = word->size() > 1 && word->front() == '-' && !isDigit((*word)[1]); // -5 is a name
    if (onlyNames || !isOption) {
      fileAndNames.push_back(fileAndNames.size() < noNames ? *word : tool_protectedName(*word));
    } else if (*word == "--") {
      onlyNames = true;
    } else {
      sorted.push_back(*word);
    }
  }
  sorted.emplace_back("--");
  sorted.insert(sorted.end(), fileAndNames.begin(), fileAndNames.end());
  return sorted;
}

/// What is wrong with the usage. A word that nothing takes is named before what is missing without it.
std::string complaint(CLI::App const& app, CLI::ParseError const& answer) {
  std::vector<std::string> untaken = app.remaining(true);
  std::erase(untaken, "--"); // was understood, yet is kept among them
  if (!untaken.empty()) {
    return fmt::format("'{}' was not expected", untaken.front());
  }
  std::string const said = answer.what();
  if (answer.get_exit_code() == static_cast<int>(CLI::ExitCodes::ArgumentMismatch)) { // "--model: 1 required"
    std::string const option = said.substr(0, said.find(':'));
    return fmt::format("{} {}", option,
                       said.ends_with("missing") ? "needs a value" : "was given more than once");
  }
  return said;
}

/// Answers a request for help or the version, or complains about the usage.
int answerParser(CLI::App const& app, CLI::ParseError const& answer) {
  if (answer.get_exit_code() != static_cast<int>(CLI::ExitCodes::Success)) {
    tool_printFailure(fmt::format("{}; see '{} --help'", complaint(app, answer), reachedCommand(app)));
    return tool_StatusUsage;
  }
  return tool_report([&] {
    bool const wantsVersion = answer.get_name() == "CallForVersion";
    tool_print(wantsVersion ? std::string(answer.what()) + "\n" : app.help());
  });
}

int run(int argumentCount, char** arguments) {
  CLI::App app("Looks into database files and changes what is in them.", "ddr");
  app.set_version_flag("--version", "ddr " DDR_VERSION, "Print the version and exit");
  app.set_help_flag("--help,-h", "Print this help and exit");
  app.require_subcommand(1);
  app.get_formatter()->label("REQUIRED", "");

  tool_Command command;
  tool_offerCreate(app, command);
  tool_offerInfo(app, command);
  tool_offerList(app, command);
  tool_offerPath(app, command);
  tool_offerCheck(app, command);
  tool_offerRepairName(app, command);
  tool_offerChange(app, command, tool_Collection::Models);
  tool_offerChange(app, command, tool_Collection::Results);
  tool_offerChange(app, command, tool_Collection::UserData);
  tool_offerUpgrade(app, command);
  app.footer(examples); // last, or the verbs would have it too

  try {
    std::vector<std::string> words =
        withOptionsFirst(std::vector<std::string>(arguments + 1, arguments + argumentCount));
    std::reverse(words.begin(), words.end()); // as the parser wants them
    app.parse(std::move(words));
  } catch (CLI::ParseError const& answer) {
    return answerParser(app, answer);
  }
  return tool_report(command);
}

} // namespace

int tool_run(int argumentCount, char** arguments) noexcept {
  int status = tool_StatusFailure;
  int const failed = tool_report([&] { status = run(argumentCount, arguments); });
  return failed != tool_StatusDone ? failed : status;
}
