#include "tool_Upgrade.h"

#include "dbc_Conversion.h"
#include "tool_Interruption.h"
#include "tool_Output.h"
#include "tool_Progress.h"
#include "tool_Replacement.h"
#include "utl_Utf8.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

namespace {

struct Request {
  std::string oldFile;
  std::string newFile;
  bool force = false;
  bool dryRun = false;
  bool quiet = false;
  bool json = false;
};

// ---- progress ----

std::string titleOf(dbc_Progress const& progress) {
  switch (progress.phase) {
  case dbc_Progress::Phase::Copying:
    return "Copying";
  case dbc_Progress::Phase::Converting:
    return progress.step == 0 ? "Converting"
                              : fmt::format("Step {} of {}", progress.step, progress.className.View());
  case dbc_Progress::Phase::Finishing:
    break;
  }
  return "Finishing";
}

dbc_ConversionReport convert(Request const& request) {
  tool_Interruption const interruption;
  std::optional<tool_Progress> shown;
  if (!request.quiet && !request.json) {
    shown.emplace();
  }
  // Without --force nothing that appears in the course of the work is replaced either.
  utl_FileAccess const access = request.force ? utl_FileAccess::Create : utl_FileAccess::CreateNew;
  return dbc_Conversion::Run(
      cow_String(request.oldFile), cow_String(request.newFile),
      [&](dbc_Progress const& progress) {
        if (shown) {
          shown->Show(titleOf(progress), progress.done, progress.total);
        }
        return !interruption.Wanted();
      },
      access);
}

// ---- the report in words ----

std::string rows(std::int64_t count) {
  return count == 1 ? "1 row" : fmt::format("{} rows", count);
}

std::string versions(dbc_ClassReport const& of) {
  if (of.versionIn == 0) {
    return fmt::format("new, {}", of.versionOut);
  }
  return of.versionIn == of.versionOut ? fmt::format("{}", of.versionIn)
                                       : fmt::format("{} -> {}", of.versionIn, of.versionOut);
}

char const* wordOf(dbc_Note::Kind kind) {
  switch (kind) {
  case dbc_Note::Kind::Supplied:
    return "supplied";
  case dbc_Note::Kind::Dropped:
    return "dropped";
  case dbc_Note::Kind::Carried:
    break;
  }
  return "carried";
}

std::string noteLine(dbc_Note const& note) {
  std::string line = fmt::format("  {}", wordOf(note.kind));
  if (!note.field.empty()) {
    line += " " + utl_Printable(note.field);
  }
  line += fmt::format(" in {}", rows(note.rows));
  if (note.step != 0) {
    line += fmt::format(", step {}", note.step);
  }
  return line + ": " + utl_Printable(note.text) + "\n";
}

std::string classLine(dbc_ClassReport const& of, bool isPlan) {
  return fmt::format("{:<36}{:<14}{:>10}{}\n", utl_Printable(of.name.View()), versions(of), of.rowsIn,
                     isPlan ? "" : fmt::format("{:>10}", of.rowsOut));
}

std::string classTable(dbc_ConversionReport const& report, bool isPlan) {
  std::string text = fmt::format("{:<36}{:<14}{:>10}{}\n", "Class", "Version", isPlan ? "Rows" : "Rows in",
                                 isPlan ? "" : fmt::format("{:>10}", "Rows out"));
  for (dbc_ClassReport const& of : report.classes) {
    text += classLine(of, isPlan);
    for (dbc_StepEntry const& step : of.steps) {
      text += fmt::format("  step {}: {} -> {}, {}\n", step.step, step.versionBefore, step.versionAfter,
                          rows(step.rows));
    }
    for (dbc_Note const& note : of.notes) {
      text += noteLine(note);
    }
  }
  text += fmt::format("{:<50}{:>10}{}\n", "Entries of collections", report.entriesIn,
                      isPlan ? "" : fmt::format("{:>10}", report.entriesOut));
  for (std::string const& left : report.leftBehind) {
    text += fmt::format("{} {}\n", isPlan ? "Would not be carried:" : "Not carried:", utl_Printable(left));
  }
  return text;
}

void printText(Request const& request, dbc_ConversionReport const& report) {
  std::string const oldName = utl_Printable(request.oldFile);
  if (report.alreadyCurrent) {
    tool_print(fmt::format("'{}' is current already; {}.\n", oldName,
                           request.dryRun ? "nothing would be copied" : "nothing was copied"));
    return;
  }
  std::string const headline =
      request.dryRun ? fmt::format("'{}' would be upgraded so:\n", oldName)
                     : fmt::format("Upgraded '{}' to '{}'.\n", oldName, utl_Printable(request.newFile));
  tool_print(headline + "\n" + classTable(report, request.dryRun));
}

// ---- the report in JSON ----

nlohmann::ordered_json classJson(dbc_ClassReport const& of, bool isPlan) {
  nlohmann::ordered_json answer;
  answer["name"] = of.name.View();
  answer["typeId"] = of.typeId;
  answer["versionIn"] = of.versionIn == 0 ? nlohmann::ordered_json() : nlohmann::ordered_json(of.versionIn);
  answer["versionOut"] = of.versionOut;
  answer["known"] = of.known;
  answer["rowsIn"] = of.rowsIn;
  if (!isPlan) {
    answer["rowsOut"] = of.rowsOut;
  }
  answer["steps"] = nlohmann::ordered_json::array();
  for (dbc_StepEntry const& step : of.steps) {
    answer["steps"].push_back({{"step", step.step},
                               {"versionBefore", step.versionBefore},
                               {"versionAfter", step.versionAfter},
                               {"rows", step.rows}});
  }
  if (isPlan) {
    return answer;
  }
  answer["notes"] = nlohmann::ordered_json::array();
  for (dbc_Note const& note : of.notes) {
    answer["notes"].push_back({{"kind", wordOf(note.kind)},
                               {"step", note.step},
                               {"field", note.field},
                               {"text", note.text},
                               {"rows", note.rows}});
  }
  return answer;
}

void printJson(Request const& request, dbc_ConversionReport const& report) {
  nlohmann::ordered_json answer;
  answer["input"] = request.oldFile;
  bool const hasOutput = !report.alreadyCurrent && !request.dryRun;
  answer["output"] = hasOutput ? nlohmann::ordered_json(request.newFile) : nlohmann::ordered_json();
  answer["alreadyCurrent"] = report.alreadyCurrent;
  answer["dryRun"] = request.dryRun;
  answer["classes"] = nlohmann::ordered_json::array();
  for (dbc_ClassReport const& of : report.classes) {
    answer["classes"].push_back(classJson(of, !hasOutput));
  }
  answer["entriesIn"] = report.entriesIn;
  if (hasOutput) {
    answer["entriesOut"] = report.entriesOut;
  }
  answer["leftBehind"] = report.leftBehind;
  tool_printJson(answer);
}

// ---- the command ----

dbc_ConversionReport plan(Request const& request) {
  return dbc_Conversion::Plan(cow_String(request.oldFile));
}

dbc_ConversionReport make(Request const& request) {
  std::error_code ignored;
  bool const isSame = std::filesystem::equivalent(request.oldFile, request.newFile, ignored);
  bool const stands = std::filesystem::is_regular_file(request.newFile, ignored);
  if (stands && !isSame && !request.force) {
    // Whether to replace what stands there is no question where nothing would be made.
    if (dbc_ConversionReport planned = plan(request); planned.alreadyCurrent) {
      return planned;
    }
    tool_refuseToReplace(request.newFile);
  }
  return convert(request); // refuses the same file, with the reason
}

void upgrade(Request const& request) {
  dbc_ConversionReport const report = request.dryRun ? plan(request) : make(request);
  if (request.json) {
    printJson(request, report);
  } else if (!request.quiet) {
    printText(request, report);
  }
}

} // namespace

void tool_offerUpgrade(CLI::App& app, tool_Command& command) {
  auto const request = std::make_shared<Request>();
  CLI::App* const verb = app.add_subcommand(
      "upgrade", "Make a current database of an older release's; never changes the old one");
  verb->add_option("OLD", request->oldFile, "The database of an older release")->required()->type_name("");
  CLI::Option const* const output =
      verb->add_option("NEW", request->newFile, "The file to make; may be left out with --dry-run")
          ->type_name("");
  verb->add_flag("--dry-run", request->dryRun, "List steps and row counts; make nothing");
  verb->add_flag("--force", request->force, "Replace a database that stands there, with all that is in it");
  verb->add_flag("--quiet", request->quiet, "Show neither progress nor the report in words");
  verb->add_flag("--json", request->json, "Answer in JSON, without progress");
  verb->callback([request, output, &command] {
    if (output->empty() && !request->dryRun) {
      throw CLI::RequiredError("NEW");
    }
    command = [request] { upgrade(*request); };
  });
}
