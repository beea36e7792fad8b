#include "tool_Info.h"

#include "nex_Exception.h"
#include "rfm_Exception.h"
#include "tool_Collection.h"
#include "tool_Database.h"
#include "tool_Diagnostics.h"
#include "tool_Layout.h"
#include "tool_Output.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

namespace {

struct Request {
  std::string file;
  bool diagnostics = false;
  bool json = false;
};

/// The version of a class as the file stores it; none when the file does not list the class.
std::optional<int> classVersion(tool_Layout const& layout, unsigned typeId) {
  auto const found = layout.versions.find(typeId);
  return found == layout.versions.end() ? std::nullopt : std::optional<int>(found->second);
}

std::vector<std::string> addOns(ddr_Ddb const& record) {
  std::vector<std::string> texts;
  for (int index = 0; index < record.GetProductAddOns().Size(); ++index) {
    texts.emplace_back(record.GetProductAddOns().ConstGet(index).GetString().View());
  }
  return texts;
}

nlohmann::ordered_json versionsJson(tool_Layout const& layout) {
  nlohmann::ordered_json versions;
  for (auto const& [name, typeId] :
       {std::pair("ddr_Ddb", ddr_Ddb::TypeId()), std::pair("ddr_Model", ddr_Model::TypeId())}) {
    std::optional<int> const version = classVersion(layout, typeId);
    versions[name] = version ? nlohmann::ordered_json(*version) : nlohmann::ordered_json();
  }
  return versions;
}

void printJson(Request const& request, tool_Layout const& layout, tool_Database const& database) {
  ddr_Ddb const& record = database.Record();
  nlohmann::ordered_json answer;
  answer["file"] = request.file;
  answer["name"] = database.Name();
  answer["description"] = record.GetDescription().View();
  answer["created"] = record.CreateTime().View();
  answer["modified"] = record.ModifyTime().View();
  answer["analysisVersion"] = record.GetAnalysisVersion().View();
  answer["ddbVersion"] = record.GetDdbVersion();
  answer["classVersions"] = versionsJson(layout);
  answer["olderLayout"] = layout.IsOlder();
  for (tool_Collection const collection : tool_collections) {
    answer["counts"][tool_words(collection).field] = tool_size(record, collection);
  }
  answer["addOns"] = addOns(record);
  answer["onlyUserDefinedData"] = record.GetOnlyHasUserDefinedData();
  answer["upwardsCompatible"] = record.checkUpwardsCompatibility();
  answer["writeCompatible"] = record.checkWriteCompatibility();
  if (request.diagnostics) {
    answer["diagnostics"] = tool_diagnosticsJson(record);
  }
  tool_printJson(answer);
}

std::string yesOrNo(bool answer) {
  return answer ? "yes" : "no";
}

std::string versionText(tool_Layout const& layout, unsigned typeId) {
  std::optional<int> const version = classVersion(layout, typeId);
  return version ? std::to_string(*version) : "not in the file";
}

std::string versionRows(tool_Layout const& layout) {
  return tool_row("Class versions",
                  fmt::format("ddr_Ddb {}, ddr_Model {}", versionText(layout, ddr_Ddb::TypeId()),
                              versionText(layout, ddr_Model::TypeId()))) +
         tool_row("Layout", layout.Text());
}

void printText(Request const& request, tool_Layout const& layout, tool_Database const& database) {
  ddr_Ddb const& record = database.Record();
  std::string text = tool_row("Name", database.Name());
  text += tool_row("File", request.file);
  text +=
      tool_row("Description", record.GetDescription().IsEmpty() ? "(none)" : record.GetDescription().View());
  text += tool_row("Created", record.CreateTime().View());
  text += tool_row("Modified", record.ModifyTime().View());
  text += tool_row("Analysis version", record.GetAnalysisVersion().View());
  text += tool_row("Database version", std::to_string(record.GetDdbVersion()));
  text += versionRows(layout);
  for (tool_Collection const collection : tool_collections) {
    text += tool_row(tool_words(collection).heading, std::to_string(tool_size(record, collection)));
  }
  std::vector<std::string> const products = addOns(record);
  text += tool_row("Add-ons", products.empty() ? "(none)" : fmt::format("{}", fmt::join(products, ", ")));
  text += tool_row("Only user-defined data", yesOrNo(record.GetOnlyHasUserDefinedData()));
  text += tool_row("Readable here", yesOrNo(record.checkUpwardsCompatibility()));
  text += tool_row("Writable here", yesOrNo(record.checkWriteCompatibility()));
  if (request.diagnostics) {
    text += tool_diagnosticsText(record);
  }
  tool_print(text);
}

/// What is known of an older database whose record cannot be read as a current one.
void showHeader(Request const& request, tool_Layout const& layout, char const* reason) {
  if (request.json) {
    tool_printJson(nlohmann::ordered_json{{"file", request.file},
                                          {"description", layout.description.View()},
                                          {"classVersions", versionsJson(layout)},
                                          {"olderLayout", true},
                                          {"unreadable", reason}});
    return;
  }
  tool_print(tool_row("File", request.file) +
             tool_row("Description", layout.description.IsEmpty() ? "(none)" : layout.description.View()) +
             versionRows(layout) + tool_row("Not readable as it is", reason));
}

/// Whether a failure has another cause than the older layout.
bool isTrouble(nex_Exception const& failure) {
  auto const* const ofFile = dynamic_cast<rfm_Exception const*>(&failure);
  return ofFile != nullptr && ofFile->Kind() != rfm_ErrorKind::Other;
}

void show(Request const& request) {
  tool_Layout const layout(request.file);
  std::optional<tool_Database> database;
  try {
    database.emplace(request.file, utl_FileAccess::Read);
  } catch (nex_Exception const& failure) {
    if (!layout.IsOlder() || isTrouble(failure)) {
      throw;
    }
    showHeader(request, layout, failure.what());
    return;
  }
  if (request.json) {
    printJson(request, layout, *database);
  } else {
    printText(request, layout, *database);
  }
}

} // namespace

void tool_offerInfo(CLI::App& app, tool_Command& command) {
  auto const request = std::make_shared<Request>();
  CLI::App* const verb = app.add_subcommand("info", "Show what a database is; never changes the file");
  verb->add_option("FILE", request->file, "The database")->required()->type_name("");
  verb->add_flag("--diagnostics", request->diagnostics, "Show the messages kept with the database too");
  verb->add_flag("--json", request->json, "Answer in JSON");
  verb->callback([request, &command] { command = [request] { show(*request); }; });
}
