#include "tool_Check.h"

#include "ddr_Check.h"
#include "tool_Names.h"
#include "tool_Output.h"
#include "utl_Utf8.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

namespace {

struct Request {
  std::vector<std::string> files;
  bool deep = false;
  bool json = false;
};

/// A file with what was found about it.
struct Checked {
  std::string file;
  ddr_CheckResult result;
};

/// Two files that store one persistent name.
struct Namesakes {
  Checked const* first;
  Checked const* second;
};

constexpr char const* namesakesText = "both store one persistent name: opened in one session, the second "
                                      "takes the place of the first. Open one of "
                                      "them at a time.";

std::vector<Checked> checkAll(Request const& request) {
  ddr_CheckDepth const depth = request.deep ? ddr_CheckDepth::Deep : ddr_CheckDepth::Quick;
  std::vector<Checked> checked;
  for (std::string const& file : request.files) {
    checked.push_back({file, ddr_check(cow_String(file), depth)});
  }
  return checked;
}

/// Every file whose name another one stores already, with the first such. A file that is given twice is one.
std::vector<Namesakes> namesakesIn(std::vector<Checked> const& checked) {
  std::vector<Namesakes> found;
  std::map<std::string_view, Checked const*> owners;
  for (Checked const& one : checked) {
    if (one.result.persistentName.IsEmpty()) {
      continue;
    }
    auto const [owner, isFirst] = owners.emplace(one.result.persistentName.View(), &one);
    std::error_code ignored;
    if (!isFirst && !std::filesystem::equivalent(owner->second->file, one.file, ignored)) {
      found.push_back({owner->second, &one});
    }
  }
  return found;
}

ddr_CheckStatus worst(std::vector<Checked> const& checked) {
  ddr_CheckStatus status = ddr_CheckStatus::Sound;
  for (Checked const& one : checked) {
    status = std::max(status, one.result.status);
  }
  return status;
}

std::string_view shortName(cow_String const& name) {
  std::string_view const text = name.View();
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

// ---- in words ----

std::string verdict(ddr_CheckResult const& result) {
  switch (result.status) {
  case ddr_CheckStatus::Sound:
    return fmt::format("sound ({} row{} looked at)", result.rowsChecked, result.rowsChecked == 1 ? "" : "s");
  case ddr_CheckStatus::Damaged:
    return "damaged";
  case ddr_CheckStatus::CannotTell:
    break;
  }
  return "cannot tell";
}

void printText(std::vector<Checked> const& checked, std::vector<Namesakes> const& namesakes) {
  std::string text;
  for (Checked const& one : checked) {
    text += fmt::format("{}: {}\n", utl_Printable(one.file), verdict(one.result));
    for (ddr_Finding const& finding : one.result.findings) {
      std::string const line =
          fmt::format("{}: {}. {} {}", finding.where, finding.what, finding.consequence, finding.remedy);
      text += fmt::format("  {}{}\n", finding.isWarning ? "Warning: " : "", utl_Printable(line));
    }
    if (one.result.moreFindings) {
      text += "  More was found than these lines tell.\n";
    }
  }
  for (Namesakes const& pair : namesakes) {
    text += fmt::format("Warning: '{}' and '{}' {}\n", utl_Printable(pair.first->file),
                        utl_Printable(pair.second->file), namesakesText);
  }
  tool_print(text);
}

// ---- in JSON ----

char const* verdictWord(ddr_CheckStatus status) {
  switch (status) {
  case ddr_CheckStatus::Sound:
    return "sound";
  case ddr_CheckStatus::Damaged:
    return "damaged";
  case ddr_CheckStatus::CannotTell:
    break;
  }
  return "cannotTell";
}

nlohmann::ordered_json fileJson(Checked const& one) {
  nlohmann::ordered_json answer{{"file", one.file},
                                {"verdict", verdictWord(one.result.status)},
                                {"name", shortName(one.result.persistentName)},
                                {"rowsChecked", one.result.rowsChecked},
                                {"findings", nlohmann::ordered_json::array()},
                                {"moreFindings", one.result.moreFindings}};
  for (ddr_Finding const& finding : one.result.findings) {
    answer["findings"].push_back(nlohmann::ordered_json{{"where", finding.where},
                                                        {"what", finding.what},
                                                        {"consequence", finding.consequence},
                                                        {"remedy", finding.remedy},
                                                        {"isWarning", finding.isWarning}});
  }
  return answer;
}

void printJson(Request const& request, std::vector<Checked> const& checked,
               std::vector<Namesakes> const& namesakes) {
  nlohmann::ordered_json answer{{"depth", request.deep ? "deep" : "quick"},
                                {"verdict", verdictWord(worst(checked))},
                                {"files", nlohmann::ordered_json::array()},
                                {"warnings", nlohmann::ordered_json::array()}};
  for (Checked const& one : checked) {
    answer["files"].push_back(fileJson(one));
  }
  for (Namesakes const& pair : namesakes) {
    answer["warnings"].push_back(
        nlohmann::ordered_json{{"files", {pair.first->file, pair.second->file}},
                               {"name", shortName(pair.first->result.persistentName)},
                               {"what", namesakesText}});
  }
  tool_printJson(answer);
}

int check(Request const& request) {
  std::vector<Checked> const checked = checkAll(request);
  std::vector<Namesakes> const namesakes = namesakesIn(checked);
  if (request.json) {
    printJson(request, checked, namesakes);
  } else {
    printText(checked, namesakes);
  }
  return static_cast<int>(worst(checked));
}

/// The exit status. A check that could not answer has told nothing of the files.
int checkOrCannotTell(Request const& request) {
  int verdict = static_cast<int>(ddr_CheckStatus::CannotTell);
  tool_report([&] { verdict = check(request); });
  return verdict;
}

} // namespace

void tool_offerCheck(CLI::App& app, tool_Command& command) {
  auto const request = std::make_shared<Request>();
  CLI::App* const verb = app.add_subcommand(
      "check", "Say whether databases are sound: exit status 0 sound, 1 damaged, 2 cannot tell");
  verb->add_option("FILE", request->files, "The databases; never changed")
      ->required()
      ->type_name("")
      ->transform(tool_unprotectedName);
  CLI::Option* const quick =
      verb->add_flag("--quick")->description("Look at the header and the last record (the default)");
  verb->add_flag("--deep", request->deep, "Look at everything")->excludes(quick);
  verb->add_flag("--json", request->json, "Answer in JSON");
  verb->callback([request, &command] { command = [request] { return checkOrCannotTell(*request); }; });
}
