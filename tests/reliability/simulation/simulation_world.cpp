// simulation_world.cpp: the steps, and what must be so after them.
#include "simulation_world.h"

#include "database_test.h"
#include "dbc_Conversion.h"
#include "ddr_Check.h"
#include "ddr_FixPS.h"
#include "ddr_Shortcut.h"
#include "os_Time.h"
#include "simulation_files.h"
#include "simulation_layouts.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <numeric>
#include <stdexcept>

namespace {

constexpr char const* succeeded = "nothing"; // what failureOf says of it
constexpr char const* inUse = "it is in use";

constexpr unsigned faultPercent = 25;
constexpr unsigned faultBesideOthersPercent = 60; // where others are in the middle of calls on the file
constexpr unsigned laterPercent = 40;             // of the faults, in a call in which others may go on
constexpr std::size_t longNote = 6000;            // on pages of its own

std::vector<std::string> succeeds() {
  return {};
}

bool saysOneOf(std::string const& said, std::vector<std::string> const& texts) {
  return std::any_of(texts.begin(), texts.end(),
                     [&](std::string const& text) { return said.find(text) != std::string::npos; });
}

std::int64_t now() {
  return _time64(nullptr);
}

// A persistent name without what fills it up.
std::string shown(std::string const& name) {
  return "'" + name.substr(0, name.find("  ")) + "'";
}

std::string textOf(std::optional<plain_record> const& record) {
  return record ? record->text() : "no record";
}

} // namespace

simulation_world::simulation_world(simulation_ground& shared, unsigned itsNumber)
    : ground(shared), number(itsNumber), classes(simulation_registrar()) {
  module_client::root().SetClassRegistrar(simulation_registrar().release());
}

simulation_world::~simulation_world() {
  kept.reset();
  while (module_client::root().Fetch().Size() > 0) {
    cow_String const name = mdl_ContainerIter<cow_String, ddr_Ddb>(module_client::root().Fetch()).Key();
    module_client::close(name);
  }
}

void simulation_world::step() {
  struct Kind {
    unsigned weight;
    void (simulation_world::*play)();
  };
  static constexpr std::array kinds{
      Kind{3, &simulation_world::create},
      Kind{14, &simulation_world::open},
      Kind{3, &simulation_world::openUnderNewName},
      Kind{30, &simulation_world::change},
      Kind{5, &simulation_world::keepCopy},
      Kind{4, &simulation_world::giveCopyBack},
      Kind{3, &simulation_world::takeModelsOver},
      Kind{24, &simulation_world::save},
      Kind{2, &simulation_world::saveBesideAnother},
      Kind{7, &simulation_world::close},
      Kind{2, &simulation_world::repairNames},
      Kind{1, &simulation_world::upgrade},
      Kind{2, &simulation_world::check},
      Kind{4, &simulation_world::resolve},
      Kind{4, &simulation_world::readAgain},
  };
  static constexpr unsigned total = std::accumulate(
      kinds.begin(), kinds.end(), 0U, [](unsigned sum, Kind const& kind) { return sum + kind.weight; });
  ground.tick();
  unsigned drawn = ground.dice.below(total);
  auto kind = kinds.begin();
  while (drawn >= kind->weight) {
    drawn -= kind++->weight;
  }
  (this->*kind->play)();
  requireSame();
}

// ---- calls ----

simulation_world::Ending simulation_world::attempt(plain_file& file, std::string const& what, bool inTurns,
                                                   Expected const& expected,
                                                   std::function<void()> const& work,
                                                   std::string const& source) {
  ground.tell(number, what + " " + file.path);
  int const faultsBefore = file.faults;
  bool const faulty =
      ground.withFaults && ground.dice.chance(file.users == 0 ? faultPercent : faultBesideOthersPercent);
  bool const later = faulty && inTurns && ground.dice.chance(laterPercent);
  if (later) {
    ground.laterFault = drawFault();
  } else if (faulty) {
    ground.arm(number, drawFault());
  }
  if (inTurns && (later || !faulty)) {
    ground.interruptible = static_cast<int>(number);
  }
  ++file.users;
  std::string const said = failureOf(work);
  --file.users;
  bool const metFault = ground.disarm(number);
  ground.besideOthers += metFault && file.users > 0 ? 1 : 0;
  file.faults += metFault ? 1 : 0;
  isShaken = file.faults != faultsBefore;
  ground.tell(number, what + (metFault ? " met a fault and said " : " said ") + said);
  std::optional<Texts> const wanted = expected();
  if (said == succeeded) {
    require(!wanted || wanted->empty(), "a call is refused");
    return Ending::Done;
  }
  bool const isExpected = !wanted || saysOneOf(said, *wanted);
  bool const isInUse = said.find(inUse) != std::string::npos;
  require(isExpected || saysOneOf(said, metFault && !isInUse ? filesThatFailed(file)
                                        : source.empty()     ? Texts{file.path}
                                                             : Texts{file.path, source}),
          "a failure names the file");
  if (isShaken) {
    return Ending::Failed;
  }
  bool const isContended = file.users > 0 && isInUse;
  require(isExpected || isContended, "a call succeeds, or is refused for the right reason");
  return Ending::Refused;
}

simulation_world::Texts simulation_world::filesThatFailed(plain_file const& file) const {
  Texts texts;
  for (device_failure const& one : ground.device.failures()) {
    texts.push_back("'" + (one.name.empty() ? file.path : ground.folder.path(databaseOf(one.name))) + "'");
  }
  return texts;
}

device_fault simulation_world::drawFault() {
  constexpr std::array kinds{device_call::Open,   device_call::Read,     device_call::Write,
                             device_call::Sync,   device_call::Truncate, device_call::Delete,
                             device_call::Rename, device_call::Lock};
  constexpr std::array effects{device_fault::Effect::Error, device_fault::Effect::LateError,
                               device_fault::Effect::Short};
  constexpr std::array errors{EIO, ENOSPC, EDQUOT, EROFS};
  simulation_dice& dice = ground.dice;
  device_fault fault;
  fault.call = kinds[dice.below(kinds.size())];
  bool const isFrequent = fault.call == device_call::Read || fault.call == device_call::Write;
  fault.number = static_cast<int>(1 + dice.below(1 + dice.below(isFrequent ? 16 : 4))); // rather an early one
  fault.effect = effects[dice.below(isFrequent ? effects.size() : 2)];
  fault.errorNumber = errors[dice.below(errors.size())];
  fault.lasting = dice.chance(40);
  return fault;
}

bool simulation_world::hasLanded(plain_file const& file, std::optional<plain_record> const& after) {
  plain_file const found = observe(file.path, *classes, file.users > 0);
  bool const landed = found.inode != file.inode || found.commits != file.commits;
  ground.tell(number, landed ? "  and has happened" : "  and has not happened");
  if (!landed) {
    requireFile(file);
  } else if (after) {
    require(found.record == after, "a call that failed has done all or nothing");
  }
  return landed;
}

void simulation_world::replaced(plain_file& file, std::optional<plain_record> const& record) {
  plain_file const found = observe(file.path, *classes);
  require(found.inode != file.inode, "a new file has the name");
  file.inode = found.inode;
  file.commits = found.commits;
  file.creationTime = found.creationTime;
  file.take(record);
  requireFile(file);
}

// ---- files ----

void simulation_world::create() {
  plain_file& file = anyFile();
  std::string const description = anyKey();
  Ending const ending = attempt(file, "create", false, succeeds, [&] {
    module_client::root().CreateDdb(cow_String(file.path), cow_String(description));
  });
  if (ending == Ending::Refused || (ending == Ending::Failed && !hasLanded(file, std::nullopt))) {
    return;
  }
  replaced(file, std::nullopt);
  require(file.creationTime == now(), "a new file has the time at which it was made");
  if (ending == Ending::Done) {
    plain_record record;
    record.name = module_client::root().GetPersistentName(cow_String(file.path)).Text();
    record.description = description;
    record.creationTime = now();
    record.messages.emplace();
    plain.add(file.path, fresh(file, record, false));
    if (ground.dice.chance(70)) {
      saveOne(record.name);
    }
  }
}

void simulation_world::open() {
  if (std::none_of(ground.files.begin(), ground.files.end(),
                   [](plain_file const& file) { return file.record; }) &&
      ground.dice.chance(90)) {
    return create();
  }
  openFor(ground.dice.chance(25) ? utl_FileAccess::Read : utl_FileAccess::Write, {});
}

void simulation_world::openUnderNewName() {
  bool const sharesIt = !plain.databases.empty() && ground.dice.chance(30);
  openFor(ground.dice.chance(25) ? utl_FileAccess::Read : utl_FileAccess::Write,
          sharesIt ? anyName(plain.databases) : numbered("name ", ground.steps));
}

void simulation_world::openFor(utl_FileAccess access, std::string const& newName) {
  plain_file& file = anyFile();
  bool const readOnly = access == utl_FileAccess::Read;
  bool const isOpen = plain.isMember(file.path);
  bool const renames = !newName.empty() && !isOpen;
  plain_file const before = file;
  std::string name;
  auto const hasChanged = [&] { return file.inode != before.inode || file.commits != before.commits; };
  Ending const ending = attempt(
      file, renames ? "open under a new name" : "open", !renames,
      [&]() -> std::optional<Texts> {
        // What cannot be read of a file that is open is taken for another file; a lock of somebody in the
        // middle of a call may keep the reader out.
        bool const isDisturbed = hasChanged() || (isOpen && (isShaken || file.users > 0));
        return isDisturbed ? std::nullopt : std::optional(refusalToOpen(file, readOnly));
      },
      [&] {
        rfm_File const opened = rfm_File::Open(cow_String(file.path), access, true);
        name = module_client::root().OpenDdb(opened, cow_String(newName)).Text();
      });
  if (renames && ending != Ending::Refused && file.record) {
    plain_record renamed = *file.record;
    renamed.name = newName;
    bool const writes = renamed != *file.record;
    if (writes && (ending == Ending::Done || hasLanded(file, renamed))) {
      file.commit(renamed);
    }
    requireFile(file);
  } else if (ending == Ending::Done && hasChanged() && !isOpen) {
    openedWhileItChanged(file, before, name, readOnly);
    return;
  }
  if (ending == Ending::Done && isOpen) {
    plain_registry::Opening& again = plain.openings[plain.names[file.path]];
    again.readOnly = again.readOnly || readOnly;
    ++again.count;
  } else if (ending == Ending::Done) {
    plain.add(file.path, fresh(file, *file.record, readOnly));
  }
}

// What it loads later may belong to a later state than what it has read.
void simulation_world::openedWhileItChanged(plain_file const& file, plain_file const& before,
                                            std::string const& name, bool readOnly) {
  plain_record const found = plainOf(module_client::record(cow_String(name)), false);
  auto const possible =
      file.past.begin() + static_cast<std::ptrdiff_t>(before.past.size()) - (before.record ? 1 : 0);
  require(std::any_of(possible, file.past.end(),
                      [&](plain_record const& state) { return state.withoutNotes() == found; }),
          "what was opened while others saved is one state, not " + found.text());
  plain.add(file.path, fresh(file, found, readOnly));
  plain.close(name);
  module_client::close(cow_String(name));
}

plain_database simulation_world::fresh(plain_file const& file, plain_record const& record,
                                       bool readOnly) const {
  auto const place = static_cast<std::size_t>(&file - ground.files.data());
  return {record, std::make_shared<plain_way>(plain_way{place, file.inode, file.commits, !readOnly})};
}

simulation_world::Texts simulation_world::refusalToOpen(plain_file const& file, bool readOnly) const {
  if (!file.exists()) {
    return {"there is no such file"};
  }
  if (!plain.isMember(file.path)) {
    return file.record ? Texts() : Texts{"there is no such row"};
  }
  std::string const& name = plain.names.at(file.path);
  if (plain.databases.at(name).record.creationTime != file.creationTime) {
    return {"The database has been regenerated since it was first opened"};
  }
  auto const opening = plain.openings.find(name);
  bool const wasReadOnly = opening == plain.openings.end() || opening->second.readOnly;
  return wasReadOnly || readOnly ? Texts() : Texts{"Two applications opening the same file for write"};
}

void simulation_world::close() {
  if (!plain.databases.empty()) {
    closeOne(anyName(plain.databases));
  }
}

void simulation_world::closeOne(std::string const& given) {
  std::string const name = given; // the registry's own goes with the database
  ground.tell(number, "close " + shown(name));
  plain.close(name);
  module_client::close(cow_String(name));
}

simulation_world::Texts simulation_world::refusalToSave(plain_way const& way) const {
  plain_file const& file = ground.files[way.file];
  if (!way.canWrite) {
    return {"opened for reading only"};
  }
  if (way.inode != file.inode) { // others may have saved to the file before it was replaced
    return {"replaced, renamed or deleted", "changed by another user"};
  }
  return way.commits != file.commits ? Texts{"changed by another user"} : Texts();
}

void simulation_world::save() {
  if (plain.databases.empty()) {
    return open();
  }
  saveOne(anyName(plain.databases));
}

void simulation_world::saveOne(std::string const& name) {
  plain_database const& database = plain.databases[name];
  plain_file& file = ground.files[database.way->file];
  Ending const ending = attempt(
      file, "save " + shown(name) + " to", true, [&] { return refusalToSave(*database.way); },
      [&] { module_client::save(cow_String(name)); });
  bool const landed = ending == Ending::Failed && hasLanded(file, database.record);
  require(!landed || refusalToSave(*database.way).empty(), "a save that must be refused changes nothing");
  if (ending == Ending::Done || landed) {
    file.commit(database.record);
    database.way->commits = file.commits;
    requireFile(file);
  } else if (ending == Ending::Refused && !refusalToSave(*database.way).empty() && ground.dice.chance(70)) {
    closeOne(name); // what a host does that is told so
  }
}

void simulation_world::saveBesideAnother() {
  if (plain.databases.empty()) {
    return;
  }
  std::string const name = anyName(plain.databases);
  plain_way const& way = *plain.databases[name].way;
  plain_file const& file = ground.files[way.file];
  if (file.users > 0 || way.inode != file.inode || !way.canWrite) {
    return;
  }
  ground.tell(number, "save beside another program to " + file.path);
  {
    simulation_outsider const outsider(file.path, ground.dice.chance(50));
    std::string const said = failureOf([&] { module_client::save(cow_String(name)); });
    require(said.find(inUse) != std::string::npos && said.find(file.path) != std::string::npos,
            "nobody saves beside another program, who was told: " + said);
  }
  requireFile(file);
}

void simulation_world::repairNames() {
  plain_file& file = anyFile();
  if (file.users > 0 || !file.record) {
    return;
  }
  Ending const ending = attempt(file, "repair names in", false, succeeds, [&] {
    rfm_Database database =
        rfm_Database::Open(rfm_File::Open(cow_String(file.path), utl_FileAccess::Write, true), "D0");
    database.Bind();
    rom_UtlDatabase tables(database);
    ddr_FixPS::FixPersistentString(tables);
  });
  if (hasLanded(file, file.record)) { // unless there is one row alone
    ++file.commits;
  }
  if (ending == Ending::Done) {
    requireFile(file);
    require(runSql(file.path, "SELECT count(DISTINCT name) FROM " + tableOf(file.path, ddr_Ddb::TypeId())) ==
                "1",
            "all names are alike after a repair");
  }
}

void simulation_world::upgrade() {
  plain_file& file = anyFile();
  auto const& layouts = simulation_layouts();
  simulation_layout const& layout = layouts[ground.dice.below(layouts.size())];
  std::string const old = ground.folder.path(layout.name);
  writeFile(old, layout.bytes);
  Ending const ending = attempt(
      file, "upgrade " + layout.name + " into", false, succeeds,
      [&] { dbc_Conversion::Run(cow_String(old), cow_String(file.path)); }, old);
  require(readFile(old) == layout.bytes, "an upgrade leaves the old file as it is");
  std::filesystem::remove(old);
  if (ending == Ending::Done || (ending == Ending::Failed && hasLanded(file, layout.converted.record))) {
    replaced(file, layout.converted.record);
  }
}

void simulation_world::check() {
  plain_file& file = anyFile();
  plain_file const before = file;
  ddr_CheckResult result;
  attempt(file, "check", true, succeeds,
          [&] { result = ddr_check(cow_String(file.path), ddr_CheckDepth::Deep); });
  std::string found = "nothing";
  if (!result.findings.empty()) {
    found = result.findings.front().where + ": " + result.findings.front().what;
  }
  ground.tell(number, "  it found " + found);
  bool const neverSaved = !before.record || !file.record; // which is told as damage
  require(result.status != ddr_CheckStatus::Damaged || neverSaved, "no file is damaged: " + found);
  bool const isSound = result.status == ddr_CheckStatus::Sound;
  bool const isUndisturbed = !isShaken && file.users == 0 && file.commits == before.commits;
  require(isSound || !isUndisturbed || !file.record, "a file is sound: " + found);
}

// ---- databases in memory ----

void simulation_world::change() {
  if (kept && !kept->second.empty() && ground.dice.chance(20)) {
    std::string const& name = anyName(kept->second);
    changeOne(kept->first.Get(cow_String(name)), kept->second[name].record);
  } else if (plain.databases.empty()) {
    open();
  } else {
    std::string const& name = anyName(plain.databases);
    module_client::edit(cow_String(name),
                        [&](ddr_Ddb& record) { changeOne(record, plain.databases[name].record); });
  }
}

void simulation_world::changeOne(ddr_Ddb& record, plain_record& model) {
  std::string const plainKey = anyKey();
  cow_String const key(plainKey);
  unsigned const kind = ground.dice.below(16);
  ground.tell(number, numbered("change ", kind) + " of " + plainKey + " in " + shown(model.name));
  switch (kind) {
  case 0:
    record.models.Clear();
    model.models.clear();
    break;
  case 1:
  case 2:
  case 3:
    require(record.models.Remove(key) == (model.models.erase(plainKey) == 1),
            "removing tells what was there");
    break;
  case 4:
    record.results.Remove(key);
    model.results.erase(plainKey);
    break;
  case 5:
  case 6: {
    ddr_Result const result;
    record.results.Insert(key, result);
    model.results[plainKey] = result.GetUid().Text();
    break;
  }
  case 7: {
    ddr_UserData const userData;
    record.userData.Insert(key, userData);
    model.userData[plainKey] = userData.GetUid().Text();
    break;
  }
  case 8:
    record.userData.Remove(key);
    model.userData.erase(plainKey);
    break;
  case 9:
    record.SetDescription(key);
    model.description = plainKey;
    break;
  case 10:
    if (model.messages) {
      record.GetDiagnosticData().Append(1, dia_Severity::Warning, key);
      model.messages->push_back(plainKey);
    }
    break;
  case 11: { // the same model under another name
    std::string const other = anyKey();
    if (model.models.contains(other)) {
      record.models.Insert(key, ddr_Model(record.models.ConstGet(cow_String(other))));
      model.models[plainKey] = model.models[other];
    }
    break;
  }
  default: {
    std::string const note =
        ground.dice.chance(15) ? std::string(longNote, 'x') : numbered("note ", ground.steps);
    module_client::write_model(record, plainKey, note);
    model.models[plainKey] = std::string(note).append("/").append(note);
    break;
  }
  }
}

void simulation_world::keepCopy() {
  ground.tell(number, "keep a copy");
  kept.emplace(module_client::root().Fetch(), plain.databases);
}

void simulation_world::giveCopyBack() {
  if (!kept) {
    return;
  }
  ground.tell(number, "give the copy back");
  module_client::root().Replace(kept->first);
  plain.databases = kept->second;
  if (ground.dice.chance(50)) {
    kept.reset();
  }
}

void simulation_world::takeModelsOver() {
  if (plain.databases.empty()) {
    return;
  }
  auto const& givers = kept && !kept->second.empty() ? kept->second : plain.databases;
  ddr_DdbContainer const container =
      &givers == &plain.databases ? module_client::root().Fetch() : kept->first;
  std::string const& from = anyName(givers);
  std::string const& to = anyName(plain.databases);
  auto const& models = givers.at(from).record.models;
  if (std::any_of(models.begin(), models.end(), [](auto const& model) { return model.first.size() > 1; })) {
    return; // of an older release, with extensions that only a process which has their modules can copy
  }
  ground.tell(number, "take models of " + shown(from) + " over into " + shown(to));
  bool const alsoResults = ground.dice.chance(50);
  module_client::edit(cow_String(to), [&](ddr_Ddb& record) {
    record.SetModels(container.ConstGet(cow_String(from)).models);
    if (alsoResults) {
      record.results = container.ConstGet(cow_String(from)).results;
    }
  });
  plain.databases[to].record.models = givers.at(from).record.models;
  if (alsoResults) {
    plain.databases[to].record.results = givers.at(from).record.results;
  }
}

void simulation_world::resolve() {
  std::string const name = plain.databases.empty() ? "none" : anyName(plain.databases);
  std::string const key = anyKey();
  ddr_ModelContainerShortcut const models(
      new ddr_ModelContainerInDdbShortcut(ddr_DdbShortcut(new ddr_DdbShortcutImpl(cow_String(name)))));
  ddr_ModelShortcut const model(new ddr_ModelInModelContainerShortcut(cow_String(key), models));
  std::string found = "nowhere";
  ground.tell(number, "resolve " + key + " in " + shown(name));
  failureOf([&] { found = noteOf(model.ConstGet(module_client::root().Fetch())); });
  std::string expected = "nowhere";
  if (auto const database = plain.databases.find(name); database != plain.databases.end()) {
    auto const& known = database->second.record.models;
    expected = known.contains(key) ? known.at(key) : "nowhere";
  }
  require(found == expected, "a shortcut leads to " + expected + ", not to " + found);
}

void simulation_world::readAgain() {
  if (plain.databases.empty()) {
    return;
  }
  std::string const& name = anyName(plain.databases);
  plain_way const& way = *plain.databases[name].way;
  plain_file& file = ground.files[way.file];
  if (file.users > 0 || way.inode != file.inode || way.commits != file.commits) {
    return; // it would read what others have saved since
  }
  ddr_Ddb const& record = module_client::record(cow_String(name));
  record.models.Release();
  attempt(file, "read again", false, succeeds, [&] { plainOf(record); });
}

// ---- what must be so ----

void simulation_world::requireFile(plain_file const& file) {
  if (file.users > 0) {
    return; // a lock of somebody in the middle of a call may keep the reader out
  }
  plain_file const found = observe(file.path, *classes);
  require(found.inode == file.inode && found.creationTime == file.creationTime,
          "the file is the one that was made last");
  require(found.record == file.record,
          "the file holds\n  " + textOf(found.record) + " instead of\n  " + textOf(file.record));
  require(found.commits == file.commits, "a save counts once, in " + file.path);
}

void simulation_world::requireSame() {
  ddr_Root& root = module_client::root();
  requireSame(root.Fetch(), plain.databases);
  if (kept) {
    requireSame(kept->first, kept->second);
  }
  for (auto const& [name, database] : plain.databases) {
    plain_registry::Opening const expected = plain.openings[name];
    require(root.GetOpenCount(cow_String(name)) == expected.count &&
                root.WasOpenedReadOnly(cow_String(name)) == expected.readOnly,
            "the registry counts openings of " + shown(name));
    require(root.GetFileName(cow_String(name)).View() == plain.fileName(name),
            "the registry knows the file of " + shown(name));
  }
  for (plain_file const& file : ground.files) {
    require(root.IsMember(cow_String(file.path)) == plain.isMember(file.path),
            "the registry knows whether a file is open: " + file.path);
  }
}

void simulation_world::requireSame(ddr_DdbContainer const& found, plain_registry::Databases const& expected) {
  require(found.Size() == static_cast<int>(expected.size()), "every database is there, and no other one");
  for (auto const& [name, database] : expected) {
    plain_record const there = plainOf(found.ConstGet(cow_String(name)));
    require(there == database.record,
            "memory holds\n  " + there.text() + " instead of\n  " + database.record.text());
  }
}

void simulation_world::require(bool holds, std::string const& claim) const {
  if (!holds) {
    throw std::runtime_error("not so: " + claim);
  }
}

std::string const& simulation_world::anyName(plain_registry::Databases const& databases) {
  return std::next(databases.begin(), ground.dice.below(databases.size()))->first;
}
