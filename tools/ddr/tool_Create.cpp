#include "tool_Create.h"

#include "tool_Database.h"
#include "tool_Output.h"
#include "tool_Replacement.h"
#include "utl_Utf8.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <memory>
#include <nlohmann/json.hpp>

namespace {

struct Request {
  std::string file;
  std::string description;
  bool force = false;
  bool json = false;
};

void create(Request const& request) {
  if (!request.force) {
    tool_refuseToReplace(request.file);
  }
  // Nothing that appears since is replaced either.
  tool_Database const database(request.file, request.description,
                               request.force ? utl_FileAccess::Create : utl_FileAccess::CreateNew);
  if (request.json) {
    tool_printJson(nlohmann::ordered_json{
        {"file", request.file}, {"name", database.Name()}, {"description", request.description}});
  } else {
    tool_print(fmt::format("Created '{}'.\n", utl_Printable(request.file)));
  }
}

} // namespace

void tool_offerCreate(CLI::App& app, tool_Command& command) {
  auto const request = std::make_shared<Request>();
  CLI::App* const verb = app.add_subcommand("create", "Make an empty database");
  verb->add_option("FILE", request->file, "The file to make")->required()->type_name("");
  verb->add_option("--description", request->description, "What the database is about");
  verb->add_flag("--force", request->force, "Replace a database that stands there, with all that is in it");
  verb->add_flag("--json", request->json, "Answer in JSON");
  verb->callback([request, &command] { command = [request] { create(*request); }; });
}
