#include "tool_Path.h"

#include "ddr_Shortcut.h"
#include "nex_Exception.h"
#include "tool_Collection.h"
#include "tool_Database.h"
#include "tool_Output.h"
#include "utl_Utf8.h"
#include "utl_Version.h"

#include <CLI/CLI.hpp>
#include <array>
#include <fmt/format.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

namespace {

/// An edition of the product, and its word on the command line.
struct Edition {
  char const* word;
  utl_Product product;
};
constexpr std::array<Edition, 3> editions{
    {{"studio", utl_Product::Studio}, {"lens", utl_Product::Lens}, {"none", utl_Product::Other}}};

struct Request {
  std::string file;
  std::optional<std::string> model;
  bool results = false;
  bool userData = false;
  std::optional<std::string> edition;
  bool json = false;
};

struct PythonPath {
  char const* edition;
  std::string path;
};

/// Adopts an implementation in a shortcut of its kind.
template <class T, class Impl>
std::unique_ptr<omu_ShortcutBase> shortcut(Impl* adopted) {
  return std::make_unique<ddr_Shortcut<T>>(adopted);
}

void wantModel(Request const& request, ddr_Ddb const& record) {
  if (!tool_isMember(record, tool_Collection::Models, *request.model)) {
    nex_Exception::Throw(
        nex_TextException(fmt::format("Database file '{}': there is no model '{}'. Show the "
                                      "names with 'ddr ls'.",
                                      utl_Printable(request.file), utl_Printable(*request.model))),
        "tools/ddr/tool_Path", __LINE__);
  }
}

/// The shortcut to what was asked for.
std::unique_ptr<omu_ShortcutBase> target(Request const& request, ddr_Ddb const& record) {
  ddr_DdbShortcut const database(new ddr_DdbShortcutImpl(record.GetName()));
  if (request.model) {
    wantModel(request, record);
    ddr_ModelContainerShortcut const models(new ddr_ModelContainerInDdbShortcut(database));
    return shortcut<ddr_Model>(new ddr_ModelInModelContainerShortcut(cow_String(*request.model), models));
  }
  if (request.results) {
    return shortcut<ddr_ResultContainer>(new ddr_ResultContainerInDdbShortcut(database));
  }
  if (request.userData) {
    return shortcut<ddr_UserDataContainer>(new ddr_UserDataContainerInDdbShortcut(database));
  }
  return std::make_unique<ddr_DdbShortcut>(database);
}

/// The Python paths of the edition asked for, or of each.
std::vector<PythonPath> pythonPaths(Request const& request, omu_ShortcutBase const& shortcut) {
  utl_Version& running = omi_Singleton<utl_Version>::Instance();
  std::vector<PythonPath> paths;
  for (Edition const& edition : editions) {
    if (!request.edition || *request.edition == edition.word) {
      running.SetProduct(edition.product);
      paths.push_back({edition.word, std::string(shortcut.PythonPath().View())});
    }
  }
  running.SetProduct(utl_Product::Other);
  return paths;
}

void printPaths(Request const& request) {
  tool_Database const database(request.file, utl_FileAccess::Read);
  auto const shortcut = target(request, database.Record());
  cow_String const path = shortcut->Path();
  std::vector<PythonPath> const python = pythonPaths(request, *shortcut);
  if (request.json) {
    nlohmann::ordered_json answer{{"file", request.file}, {"path", path.View()}};
    for (PythonPath const& one : python) {
      answer["pythonPaths"][one.edition] = one.path;
    }
    tool_printJson(answer);
    return;
  }
  std::string text = tool_row("Path", path.View());
  for (PythonPath const& one : python) {
    text += tool_row(fmt::format("Python path, {}", one.edition), one.path);
  }
  tool_print(text);
}

} // namespace

void tool_offerPath(CLI::App& app, tool_Command& command) {
  auto const request = std::make_shared<Request>();
  CLI::App* const verb = app.add_subcommand(
      "path",
      "Print the scripting paths of a database, of a model or of a collection; never changes the file");
  verb->add_option("FILE", request->file, "The database")->required()->type_name("");
  CLI::Option* const model = verb->add_option("--model", request->model, "Of the model of this name");
  CLI::Option* const results = verb->add_flag("--results", request->results, "Of the results");
  CLI::Option* const userData = verb->add_flag("--user-data", request->userData, "Of the user data");
  results->excludes(model);
  userData->excludes(model)->excludes(results);
  verb->add_option("--edition", request->edition,
                   "The Python path of one edition: studio, lens or none (without it, of each)")
      ->check(CLI::IsMember({"studio", "lens", "none"}).description(""))
      ->type_name("EDITION");
  verb->add_flag("--json", request->json, "Answer in JSON");
  verb->callback([request, &command] { command = [request] { printPaths(*request); }; });
}
