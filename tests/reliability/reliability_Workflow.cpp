// reliability_Workflow.cpp: the work, and looks at files.
#include "reliability_Workflow.h"

#include "dbc_Conversion.h"
#include "ddr_Check.h"
#include "ddr_FixPS.h"
#include "ddr_Result.h"
#include "ddr_Shortcut.h"
#include "ddr_UserData.h"
#include "layout_files.h"
#include "long_run.h"
#include "os_Runtime.h"
#include "rfm_Database.h"
#include "rfm_Transaction.h"
#include "sanitized.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <set>
#include <sqlite3.h>
#include <stdexcept>
#include <unistd.h>

namespace {

/// A number over bytes.
class Sum {
public:
  void add(void const* bytes, std::size_t size) {
    auto const* const begin = static_cast<unsigned char const*>(bytes);
    for (std::size_t index = 0; index < size; ++index) {
      value = (value ^ begin[index]) * 0x100000001b3U;
    }
  }
  void add(std::int64_t number) { add(&number, sizeof number); }
  void add(std::string_view text) {
    add(static_cast<std::int64_t>(text.size()));
    add(text.data(), text.size());
  }
  std::string text() const { return std::to_string(value); }

private:
  std::uint64_t value = 0xcbf29ce484222325U;
};

class Reader {
public:
  explicit Reader(std::string const& path) {
    if (sqlite3_open_v2(path.c_str(), &database, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
      fail();
    }
  }
  ~Reader() { sqlite3_close(database); }
  Reader(Reader const&) = delete;
  Reader& operator=(Reader const&) = delete;

  void rows(std::string const& sql, std::function<void(sqlite3_stmt*)> const& use) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(database, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
      fail();
    }
    int result = 0;
    while ((result = sqlite3_step(statement)) == SQLITE_ROW) {
      use(statement);
    }
    sqlite3_finalize(statement);
    if (result != SQLITE_DONE) {
      fail();
    }
  }

private:
  [[noreturn]] void fail() {
    std::string const text = sqlite3_errmsg(database);
    throw std::runtime_error(text);
  }

  sqlite3* database = nullptr;
};

std::string_view textOf(sqlite3_stmt* statement, int column) {
  auto const* const bytes = static_cast<char const*>(sqlite3_column_blob(statement, column));
  return {bytes ? bytes : "", static_cast<std::size_t>(sqlite3_column_bytes(statement, column))};
}

/// Adds a row; identities as numbers in the order of their first appearance.
void addRow(Sum& sum, std::map<std::string, std::int64_t>& identities, sqlite3_stmt* row) {
  for (int column = 0; column < sqlite3_column_count(row); ++column) {
    int const type = sqlite3_column_type(row, column);
    sum.add(type);
    if (type == SQLITE_BLOB && sqlite3_column_bytes(row, column) == 16) {
      sum.add(
          identities.emplace(std::string(textOf(row, column)), static_cast<std::int64_t>(identities.size()))
              .first->second);
    } else if (type == SQLITE_INTEGER) {
      sum.add(static_cast<std::int64_t>(sqlite3_column_int64(row, column)));
    } else {
      sum.add(textOf(row, column));
    }
  }
}

void fill(ddr_Ddb& record) {
  for (char const* const key : {"A", "B", "C"}) {
    record.models.Insert(key, ddr_Model(record.GetDbId(), key));
    setNote(record.models.Get(key), key);
    record.results.Insert(key, ddr_Result());
    record.userData.Insert(key, ddr_UserData());
  }
  record.GetDiagnosticData().Append(1, dia_Severity::Warning, "first");
}

void change(ddr_Ddb& record) {
  setNote(record.models.Get("B"), std::string(6000, 'b'));
  record.models.Insert("D", ddr_Model(record.GetDbId(), "D"));
  setNote(record.models.Get("D"), "new");
  record.results.Insert("B", ddr_Result());
  record.userData.Insert("E", ddr_UserData());
  record.GetDiagnosticData().Append(2, dia_Severity::Error, "second");
  record.SetDescription("changed");
}

void removeMuch(ddr_Ddb& record) {
  record.models.Remove("A");
  record.models.Remove("C");
  record.results.Remove("C");
  record.userData.Remove("A");
  setNote(record.models.Get("B"), "short");
}

void nothing(reliability_test&) {}

void makeSaved(reliability_test& test) {
  cow_String const name = test.create("a");
  test.edit(name, fill);
  test.save(name);
  test.close(name);
}

/// Three states of the record, and shortcuts.
void makeRenamed(reliability_test& test) {
  makeSaved(test);
  cow_String const name = test.open("a");
  test.edit(name, change);
  test.save(name);
  test.edit(name, removeMuch);
  test.save(name);
  test.close(name);
  rfm_Database database =
      rfm_Database::Open(rfm_File::Open(test.pathOf("a"), utl_FileAccess::Write, true), "D0");
  database.Bind();
  rfm_Transaction transaction(database);
  rfm_Table records = database.TableForWriting(ddr_Ddb::TypeId());
  records.ReadRow(records.Length() - 1);
  records.Row().WriteFieldString("name", "a new name");
  records.UpdateRow(records.Length() - 1);
  rfm_Table shortcuts = database.TableForWriting(ddr_DdbShortcutImpl::TypeId());
  for (char const* const text : {"one", "two"}) {
    shortcuts.ClearRow();
    shortcuts.Row().WriteFieldString("name", text);
    shortcuts.AppendRow();
  }
  transaction.Commit();
}

/// A file with the journal of a save that was cut off.
void makeInterrupted(reliability_test& test) {
  makeSaved(test);
  std::string const path = test.folder.path("a");
  sqlite3* database = nullptr;
  sqlite3_open(path.c_str(), &database);
  sqlite3_exec(database,
               "PRAGMA cache_size = 1; BEGIN IMMEDIATE;"
               "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 500)"
               "INSERT INTO ddr_entry SELECT 1, 1000 + i, 'half ' || i, 1, 1 FROM n;"
               "UPDATE ddr_entry SET Key = 'overwritten' WHERE position = 0",
               nullptr, nullptr, nullptr);
  sqlite3_db_cacheflush(database);
  device_image kept;
  for (std::string const& name : test.folder.names()) {
    kept[name] = readFile(test.folder.path(name));
  }
  sqlite3_exec(database, "ROLLBACK", nullptr, nullptr, nullptr);
  sqlite3_close(database);
  for (auto const& [name, bytes] : kept) {
    writeFile(test.folder.path(name), bytes);
  }
}

/// The journal of a save that was cut off, whose file is gone.
void makeStrayJournal(reliability_test& test) {
  makeInterrupted(test);
  std::filesystem::remove(test.folder.path("a"));
}

void openAnd(reliability_test& test, void (*work)(ddr_Ddb&)) {
  test.opened = test.open("a");
  test.edit(test.opened, work);
}

void saveOpened(reliability_test& test) {
  test.save(test.opened);
  test.step();
}

void createAndSave(reliability_test& test) {
  if (!test.root().IsMember(test.pathOf("a"))) {
    test.create("a");
    test.step();
  }
  test.opened = test.root().GetPersistentName(test.pathOf("a"));
  if (test.root().Fetch().ConstGet(test.opened).models.Size() == 0) {
    test.edit(test.opened, fill);
    test.pause();
  }
  saveOpened(test);
}

void createOver(reliability_test& test) {
  test.opened = test.create("a");
  test.step();
}

void createSaved(reliability_test& test, utl_FileAccess access) {
  test.root().CreateSavedDdb(test.pathOf("a"), "new", access);
  test.step();
}

void createNew(reliability_test& test) {
  createSaved(test, utl_FileAccess::CreateNew);
}

void openUnderNewName(reliability_test& test) {
  test.opened =
      test.root().OpenDdb(rfm_File::Open(test.pathOf("a"), utl_FileAccess::Write, true), "another name");
  test.step();
}

void repairNames(reliability_test& test) {
  rfm_Database database =
      rfm_Database::Open(rfm_File::Open(test.pathOf("a"), utl_FileAccess::Write, true), "D0");
  database.Bind();
  rom_UtlDatabase tables(database);
  ddr_FixPS::FixPersistentString(tables);
  test.step();
}

void openAndRead(reliability_test& test, utl_FileAccess access) {
  if (!test.root().IsMember(test.pathOf("a"))) {
    test.opened = test.open("a", access);
  }
  test.contents(test.opened);
}

void check(reliability_test& test) {
  ddr_CheckResult const result = ddr_check(test.pathOf("a"), ddr_CheckDepth::Deep);
  if (result.status != ddr_CheckStatus::Sound) {
    ddr_Finding const& first = result.findings.at(0);
    throw std::runtime_error((result.status == ddr_CheckStatus::Damaged ? "damaged: " : "") + first.where +
                             ": " + first.what + ". " + first.remedy);
  }
}

void makeOld(reliability_test& test) {
  make_layout_file(test.folder.path("old"), test.workflow().layout);
}

void makeOldAndAnother(reliability_test& test) {
  makeOld(test);
  make_layout_file(test.folder.path("a"), "model_857");
}

void upgrade(reliability_test& test) {
  dbc_Conversion::Run(test.pathOf("old"), test.pathOf("a"), {});
  test.step();
}

constexpr int upgradeStride = 10;
constexpr int creationStride = 4;

std::vector<Workflow> makeWorkflows() {
  std::vector<Workflow> all{
      {"CreateAndSave", nothing, nothing, createAndSave, 2, true},
      {"CreateOverAnother", makeSaved, nothing, createOver, 1},
      {"CreateSavedOverAnother", makeSaved, nothing,
       [](reliability_test& test) { createSaved(test, utl_FileAccess::Create); }, 1, false, false, "",
       creationStride},
      {"CreateNewBesideAStrayJournal", makeStrayJournal, nothing, createNew, 1},
      {"CreateNewWithASecondName", [](reliability_test& test) { test.useSecondNames(); }, nothing, createNew,
       1},
      {"SaveChanges", makeSaved, [](reliability_test& test) { openAnd(test, change); }, saveOpened, 1, true},
      {"SaveRemovals", makeSaved, [](reliability_test& test) { openAnd(test, removeMuch); }, saveOpened, 1,
       true},
      {"OpenWithNewName", makeSaved, nothing, openUnderNewName, 1},
      {"RepairNames", makeRenamed, nothing, repairNames, 1},
      {"Recover", makeInterrupted, nothing,
       [](reliability_test& test) { openAndRead(test, utl_FileAccess::Write); }, 0},
      {"Read", makeSaved, nothing, [](reliability_test& test) { openAndRead(test, utl_FileAccess::Read); }, 0,
       false, true},
      {"Check", makeSaved, nothing, check, 0, false, true},
      {"UpgradeOverAnother", makeOldAndAnother, nothing, upgrade, 1, false, false, "database_309",
       upgradeStride},
  };
  // The ordinary run takes every call of one layout, and some of the others.
  for (std::string const& layout : layout_names()) {
    all.push_back({"Upgrade_" + layout, makeOld, nothing, upgrade, 1, false, false, layout,
                   layout == "model_857" ? 1 : upgradeStride});
  }
  return all;
}

/// "#a934feae20" becomes "#3", the third identity in the text.
std::string withNumberedIdentities(std::string const& text) {
  std::string numbered;
  std::map<std::string, std::size_t> identities;
  for (std::size_t place = 0; place < text.size();) {
    numbered += text[place];
    if (text[place++] == '#') {
      std::size_t const end = std::min(text.find_first_not_of("0123456789abcdef", place), text.size());
      auto const found = identities.emplace(text.substr(place, end - place), identities.size() + 1).first;
      numbered += std::to_string(found->second);
      place = end;
    }
  }
  return numbered;
}

} // namespace

std::size_t numberOf(device_image const& image) {
  std::size_t number = 0;
  for (auto const& [name, bytes] : image) {
    for (std::string_view const part : {std::string_view(name), std::string_view(bytes)}) {
      number = (number ^ std::hash<std::string_view>()(part)) * 0x9e3779b97f4a7c15U;
    }
  }
  return number;
}

std::string contentOf(std::string const& path) {
  try {
    Reader reader(path);
    Sum sum;
    std::vector<std::string> tables;
    reader.rows("SELECT name, sql FROM sqlite_schema WHERE type = 'table' ORDER BY name",
                [&](sqlite3_stmt* row) {
                  tables.emplace_back(textOf(row, 0));
                  sum.add(textOf(row, 0));
                  sum.add(textOf(row, 1));
                });
    std::map<std::string, std::int64_t> identities;
    for (std::string const& table : tables) {
      reader.rows("SELECT * FROM \"" + table + "\"",
                  [&](sqlite3_stmt* row) { addRow(sum, identities, row); });
    }
    std::string text = sum.text();
    reader.rows("PRAGMA integrity_check", [&](sqlite3_stmt* row) {
      if (textOf(row, 0) != "ok") {
        text.append(" ").append(textOf(row, 0));
      }
    });
    return text;
  } catch (std::exception const& failure) {
    return std::string("unreadable: ") + failure.what();
  }
}

std::vector<Workflow> const& workflows() {
  static std::vector<Workflow> const all = makeWorkflows();
  return all;
}

torture_share::torture_share() : start(std::chrono::steady_clock::now()) {
  minutes = decimalSetting("DDR_TORTURE_MINUTES", 0);
  images = setting("DDR_TORTURE_IMAGES", 0);
  chosenSeed = static_cast<std::uint64_t>(setting("DDR_TORTURE_SEED", 1));
}

bool torture_share::goesOn(double part, long long done) const {
  std::chrono::duration<double> const spent = std::chrono::steady_clock::now() - start;
  bool const hasTime = spent.count() < minutes * 60 * part;
  return images > 0
             ? static_cast<double>(done) < static_cast<double>(images) * part && (minutes == 0 || hasTime)
             : hasTime;
}

reliability_test::reliability_test() : device(folder.path()) {
  os_runtimeCalls().time64 = [](std::int64_t* seconds) {
    constexpr std::int64_t now = 1700000000;
    if (seconds) {
      *seconds = now;
    }
    return now;
  };
}

bool reliability_test::isWhole() const {
  return share.isLong() || (!isSanitized && workflow().layout.empty());
}

reliability_test::~reliability_test() {
  closeAll();
  os_runtimeCalls() = os_RuntimeCalls();
}

void reliability_test::step() {
  device.mark("step");
  if (collecting) {
    known.push_back(recovered());
    knownRegistries.push_back(registry());
  }
}

void reliability_test::pause() {
  if (collecting) {
    knownRegistries.push_back(registry());
  }
}

void reliability_test::closeAll() {
  kept.reset();
  while (root().Fetch().Size() > 0) {
    cow_String const name = mdl_ContainerIter<cow_String, ddr_Ddb>(root().Fetch()).Key();
    close(name);
  }
}

device_image reliability_test::image() const {
  device_image found;
  for (std::string const& name : folder.names()) {
    found[name] = readFile(folder.path(name));
  }
  return found;
}

void reliability_test::setImage(device_image const& wanted) {
  for (std::string const& name : folder.names()) {
    if (!wanted.contains(name)) {
      std::filesystem::remove(folder.path(name));
    }
  }
  for (auto const& [name, bytes] : wanted) {
    writeFile(folder.path(name), bytes);
  }
}

std::vector<std::string> const& reliability_test::states() {
  if (known.empty()) {
    GetParam().prepare(*this);
    prepared = image();
    known.push_back(recovered());
    startOver();
    GetParam().begin(*this);
    knownRegistries.push_back(registry());
    collecting = true;
    GetParam().act(*this);
    knownRegistries.push_back(registry());
    collecting = false;
    requireStates();
    startOver();
    GetParam().begin(*this);
    device.start();
    GetParam().act(*this);
    device.stop();
    for (int kind = 0; kind < device_callKinds; ++kind) {
      knownCalls.at(static_cast<std::size_t>(kind)) = device.calls(static_cast<device_call>(kind));
    }
    closeAll();
  }
  return known;
}

void reliability_test::requireStates() const {
  std::set<std::string> different;
  for (std::string const& state : known) {
    bool const isSound = !state.empty() && state.find_first_not_of("0123456789") == std::string::npos;
    if (!isSound && state != "missing") {
      throw std::logic_error("no state of a sound file: " + state);
    }
    different.insert(state);
  }
  if (known.size() != static_cast<std::size_t>(workflow().steps) + 1 || different.size() != known.size()) {
    throw std::logic_error(std::to_string(known.size()) + " states, " + std::to_string(different.size()) +
                           " of them different, in " + std::to_string(workflow().steps) + " steps");
  }
}

void reliability_test::startOver() {
  closeAll();
  setImage(prepared);
}

std::string reliability_test::recovered() {
  std::string const path = folder.path("a");
  if (access(path.c_str(), F_OK) == 0) {
    try {
      rfm_Database database =
          rfm_Database::Open(rfm_File::Open(pathOf("a"), utl_FileAccess::Write, true), "D0");
      database.Bind();
    } catch (std::exception const& failure) {
      return failure.what();
    }
  }
  device_image const found = image();
  auto const old = found.find("old");
  if (prepared.contains("old") && (old == found.end() || old->second != prepared.at("old"))) {
    return "the file that is only read was changed";
  }
  if (!found.contains("a")) {
    return "missing";
  }
  std::string& content = contentOfImage[numberOf(found)]; // the same bytes hold the same
  if (content.empty()) {
    content = contentOf(path); // refuses to read where a journal must still be played back
  }
  return content;
}

std::string reliability_test::registry() {
  std::string text;
  for (mdl_ContainerIter<cow_String, ddr_Ddb> each(root().Fetch()); !each.AtEnd(); each.Next()) {
    text += std::string(each.Key().View().substr(0, 30)) + ": " + contentsOf(each.Value()) + " opened " +
            std::to_string(root().GetOpenCount(each.Key())) + "\n";
  }
  return withNumberedIdentities(text) + (root().IsMember(pathOf("a")) ? "member" : "no member");
}
