#include "tool_Change.h"

#include "nex_Exception.h"
#include "tool_Database.h"
#include "tool_Names.h"
#include "tool_Output.h"
#include "utl_Utf8.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <unordered_set>

namespace {

enum class Action { Add, Remove };

struct Request {
  tool_Collection collection;
  Action action;
  std::string file;
  std::vector<std::string> names;
  bool json = false;
};

[[noreturn]] void refuse(Request const& request, std::string const& what, std::string const& advice) {
  std::string const text =
      fmt::format("Database file '{}': {}; nothing was changed. {}.", request.file, what, advice);
  nex_Exception::Throw(nex_TextException(utl_Printable(text)), "tools/ddr/tool_Change", __LINE__);
}

/// Refuses names that are wrong in any database.
void checkNames(Request const& request) {
  std::unordered_set<std::string_view> seen;
  for (std::string const& name : request.names) {
    if (name.empty()) {
      refuse(request, "a name is empty", "Give every name at least one character");
    }
    if (!utl_IsUtf8(name)) {
      refuse(request, fmt::format("the name '{}' is not UTF-8", name), "Give the names in UTF-8");
    }
    if (!seen.insert(name).second) {
      refuse(request, fmt::format("the name '{}' is given twice", name), "Give every name once");
    }
  }
}

/// Refuses names that are wrong in this database.
void checkMembers(Request const& request, ddr_Ddb const& record) {
  char const* const one = tool_words(request.collection).one;
  bool const shouldBeThere = request.action == Action::Remove;
  for (std::string const& name : request.names) {
    if (tool_isMember(record, request.collection, name) == shouldBeThere) {
      continue;
    }
    if (shouldBeThere) {
      refuse(request, fmt::format("there is no {} '{}'", one, name), "Show the names with 'ddr ls'");
    }
    refuse(request, fmt::format("there is a {} '{}' already", one, name),
           "Choose another name, or remove that one first");
  }
}

void apply(Request const& request, ddr_Ddb& record) {
  auto const act = request.action == Action::Add ? tool_insert : tool_remove;
  for (std::string const& name : request.names) {
    act(record, request.collection, name);
  }
}

void print(Request const& request, ddr_Ddb const& record) {
  tool_CollectionWords const& words = tool_words(request.collection);
  bool const added = request.action == Action::Add;
  std::size_t const changed = request.names.size();
  int const count = tool_size(record, request.collection);
  if (request.json) {
    tool_printJson(nlohmann::ordered_json{{"file", request.file},
                                          {"collection", words.field},
                                          {added ? "added" : "removed", request.names},
                                          {"count", count}});
  } else {
    tool_print(fmt::format("{} {} {}; there {} {} now.\n", added ? "Added" : "Removed", changed,
                           changed == 1 ? words.one : words.several, count == 1 ? "is" : "are", count));
  }
}

void perform(Request const& request) {
  checkNames(request);
  tool_Database database(request.file, utl_FileAccess::Write);
  checkMembers(request, database.Record());
  database.Save([&](ddr_Ddb& record) { apply(request, record); });
  print(request, database.Record());
}

void offerAction(CLI::App& verb, tool_Command& command, Request const& settings, char const* word,
                 std::string const& help) {
  auto const request = std::make_shared<Request>(settings);
  CLI::App* const action = verb.add_subcommand(word, help);
  action->add_option("FILE", request->file, "The database")->required()->type_name("");
  action->add_option("NAME", request->names, "Names, all of them or none")
      ->required()
      ->type_name("")
      ->transform(tool_unprotectedName);
  action->add_flag("--json", request->json, "Answer in JSON");
  action->callback([request, &command] { command = [request] { perform(*request); }; });
}

} // namespace

void tool_offerChange(CLI::App& app, tool_Command& command, tool_Collection collection) {
  tool_CollectionWords const& words = tool_words(collection);
  CLI::App* const verb = app.add_subcommand(words.verb, fmt::format("Add or remove {}", words.several));
  verb->require_subcommand(1);
  offerAction(*verb, command, {collection, Action::Add, {}, {}}, "add",
              fmt::format("Add {}, in one save", words.several));
  offerAction(*verb, command, {collection, Action::Remove, {}, {}}, "rm",
              fmt::format("Remove {}, in one save", words.several));
}
