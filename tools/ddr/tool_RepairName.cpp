#include "tool_RepairName.h"

#include "ddr_Ddb.h"
#include "ddr_FixPS.h"
#include "nex_Exception.h"
#include "rfm_Database.h"
#include "rfm_File.h"
#include "rfm_ReadScope.h"
#include "tool_Database.h"
#include "tool_Output.h"
#include "utl_Utf8.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <nlohmann/json.hpp>

namespace {

struct Request {
  std::string file;
  bool json = false;
};

constexpr char const* notice =
    "every stored shortcut to a database will lead to this one, also a shortcut that names another database, "
    "and records that are open in other programs are not asked.";

/// Rows of one kind.
struct Rows {
  int stored = 0;
  int wrong = 0; ///< of these, with another name than the last record
};

struct Names {
  cow_String newest;
  Rows records;
  Rows shortcuts;
  int Wrong() const { return records.wrong + shortcuts.wrong; }
};

Rows count(rfm_Table rows, cow_String const& newest) {
  Rows counted;
  rows.Seek(0);
  while (rows.RowExists(-1)) {
    ++counted.stored;
    counted.wrong += rows.ReadRow(-1).ReadFieldString("name") == newest ? 0 : 1;
  }
  return counted;
}

/// What the repair would do now.
Names look(Request const& request, rom_UtlDatabase& database) {
  rfm_ReadScope const scope(database.Database());
  Names names;
  rfm_Table records = database.GetTable(ddr_Ddb::TypeId());
  int const last = std::max(records.Length() - 1, 0);
  names.newest = records.ReadRow(last).ReadFieldString("name");
  if (tool_withoutPadding(names.newest.View()).empty()) {
    nex_Exception::Throw(nex_TextException(fmt::format(
                             "Database file '{}', class 'ddr_Ddb', row {}: it has no name to give to "
                             "others; nothing was changed. Save the database again from the "
                             "application that created it.",
                             utl_Printable(request.file), last)),
                         "tools/ddr/tool_RepairName", __LINE__);
  }
  names.records = count(database.GetTable(ddr_Ddb::TypeId()), names.newest);
  names.shortcuts = count(database.GetTable(ddr_DdbShortcutImpl::TypeId()), names.newest);
  return names;
}

nlohmann::ordered_json json(Rows const& rows) {
  return {{"stored", rows.stored}, {"changed", rows.wrong}};
}

void print(Request const& request, Names const& names) {
  if (request.json) {
    tool_printJson(nlohmann::ordered_json{{"file", request.file},
                                          {"name", tool_withoutPadding(names.newest.View())},
                                          {"changed", names.Wrong()},
                                          {"records", json(names.records)},
                                          {"shortcuts", json(names.shortcuts)},
                                          {"notice", notice}});
    return;
  }
  std::string const name = utl_Printable(tool_withoutPadding(names.newest.View()));
  if (names.Wrong() == 0) {
    tool_print(fmt::format("Every name is '{}' already; nothing was changed.\n", name));
    return;
  }
  tool_print(
      fmt::format("Changed {} row{}: {} of {} saved records and {} of {} shortcuts. The name is '{}'.\n",
                  names.Wrong(), names.Wrong() == 1 ? "" : "s", names.records.wrong, names.records.stored,
                  names.shortcuts.wrong, names.shortcuts.stored, name));
}

void repair(Request const& request) {
  rfm_Database opened =
      rfm_Database::Open(rfm_File::Open(cow_String(request.file), utl_FileAccess::Write, true), "D0");
  opened.Bind();
  rom_UtlDatabase database(opened);
  Names const names = look(request, database);
  if (!request.json) {
    tool_print(fmt::format("Note: {}\n", notice));
  }
  if (names.Wrong() > 0) {
    ddr_FixPS::FixPersistentString(database);
  }
  print(request, names);
}

} // namespace

void tool_offerRepairName(CLI::App& app, tool_Command& command) {
  auto const request = std::make_shared<Request>();
  CLI::App* const verb = app.add_subcommand(
      "repair-name", "Give every stored version of the record, and every stored shortcut to a database, the "
                     "name of the last record; shortcuts that name other databases are changed too, and "
                     "records that are open elsewhere are not asked");
  verb->add_option("FILE", request->file, "The database")->required()->type_name("");
  verb->add_flag("--json", request->json, "Answer in JSON");
  verb->callback([request, &command] { command = [request] { repair(*request); }; });
}
