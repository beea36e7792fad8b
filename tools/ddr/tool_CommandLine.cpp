#include "tool_CommandLine.h"

#include "tool_Change.h"
#include "tool_Create.h"
#include "tool_Info.h"
#include "tool_List.h"
#include "tool_Output.h"
#include "tool_Report.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>
#include <string_view>

namespace {

constexpr char const* examples =
    "Examples:\n"
    "  ddr create wing.ddr --description \"Wing, second load case\"\n"
    "  ddr model add wing.ddr Model-1 Model-2\n"
    "  ddr ls wing.ddr\n"
    "\n"
    "A name that begins with '-' goes behind '--':  ddr model add wing.ddr -- -1\n"
    "Exit status: 0 done, 1 failed (standard error says why), 2 wrong usage.";

/// The command that the words have reached: "ddr model add".
std::string reachedCommand(CLI::App const& app) {
  std::string words = app.get_name();
  for (CLI::App const* reached = &app; !reached->get_subcommands().empty();) {
    reached = reached->get_subcommands().front();
    words += " " + reached->get_name();
  }
  return words;
}

/// The parser takes "++" for the end of a command and would drop it without a word.
void refuseDroppedWords(int argumentCount, char** arguments) {
  char** const end = arguments + argumentCount;
  auto const isWord = [](std::string_view word) {
    return [word](char const* argument) { return argument == word; };
  };
  char** const literal = std::find_if(arguments, end, isWord("--"));
  if (std::find_if(arguments, literal, isWord("++")) != literal) {
    throw CLI::ExtrasError({"++ (put -- before the names to use it as one)"});
  }
}

/// Answers a request for help or the version, or tells what is wrong with the usage.
int answerParser(CLI::App const& app, CLI::ParseError const& answer) {
  if (answer.get_exit_code() != static_cast<int>(CLI::ExitCodes::Success)) {
    tool_printFailure(fmt::format("{}; see {} --help", answer.what(), reachedCommand(app)));
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
  app.footer(examples);
  app.require_subcommand(1);

  tool_Command command;
  tool_offerCreate(app, command);
  tool_offerInfo(app, command);
  tool_offerList(app, command);
  tool_offerChange(app, command, tool_Collection::Models);
  tool_offerChange(app, command, tool_Collection::Results);
  tool_offerChange(app, command, tool_Collection::UserData);

  try {
    refuseDroppedWords(argumentCount, arguments);
    app.parse(argumentCount, arguments);
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
