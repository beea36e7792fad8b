#include "tool_List.h"

#include "tool_Collection.h"
#include "tool_Database.h"
#include "tool_Output.h"
#include "utl_Utf8.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <memory>
#include <nlohmann/json.hpp>

namespace {

struct Request {
  std::string file;
  bool json = false;
};

void printJson(std::string const& file, ddr_Ddb const& record) {
  nlohmann::ordered_json answer{{"file", file}};
  for (tool_Collection const collection : tool_collections) {
    answer[tool_words(collection).field] = tool_names(record, collection);
  }
  tool_printJson(answer);
}

void printText(ddr_Ddb const& record) {
  std::string text;
  for (tool_Collection const collection : tool_collections) {
    text += fmt::format("{} ({})\n", tool_words(collection).heading, tool_size(record, collection));
    for (std::string const& name : tool_names(record, collection)) {
      text += fmt::format("  {}\n", utl_Printable(name));
    }
  }
  tool_print(text);
}

void list(Request const& request) {
  tool_Database const database(request.file, utl_FileAccess::Read);
  if (request.json) {
    printJson(request.file, database.Record());
  } else {
    printText(database.Record());
  }
}

} // namespace

void tool_offerList(CLI::App& app, tool_Command& command) {
  auto const request = std::make_shared<Request>();
  CLI::App* const verb =
      app.add_subcommand("ls", "List the models, results and user data; never changes the file");
  verb->add_option("FILE", request->file, "The database")->required()->type_name("");
  verb->add_flag("--json", request->json, "Answer in JSON");
  verb->callback([request, &command] { command = [request] { list(*request); }; });
}
