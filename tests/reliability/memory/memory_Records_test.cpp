// Records, their collections, shortcuts and the registry in small memory.
#include "child_process.h"
#include "memory_World.h"
#include "sanitized.h"

#include "ddr_Check.h"
#include "ddr_Result.h"
#include "ddr_UserData.h"
#include "os_Runtime.h"
#include "rfm_Exception.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <limits>
#include <map>
#include <new>
#include <optional>

namespace {

constexpr char const* longText = "a text that is too long to be held in the object itself";

/// All that a record holds; loads it.
std::string show(ddr_Ddb const& record) {
  std::string all = contentsOf(record);
  cls_Map2ObjIter each(record.models);
  for (each.First(); !each.AtEnd(); each.Next()) {
    all.append(each.Value().GetDatabase() == cow_String("new") ? "new " : "old ");
  }
  for (int index = 0; index < record.GetProductAddOns().Size(); ++index) {
    all.append(" ").append(record.GetProductAddOns().ConstGet(index).GetString().View());
  }
  all.append(record.models.IsChanged() ? " changed" : "")
      .append(record.results.IsChanged() ? " results" : "");
  all.append(record.userData.IsChanged() ? " userData" : "");
  return all.append(" ")
      .append(record.GetSequenceData().View())
      .append(std::to_string(record.GetModifyTime()));
}

/// Texts without the identities in them, which every object that is made has anew.
std::string withoutIdentities(std::string const& text) {
  std::string plain;
  for (std::size_t place = 0; place < text.size(); ++place) {
    plain += text[place];
    if (text[place] == '#') {
      place += 10;
    }
  }
  return plain;
}

/// All that the registry holds; loads it.
std::string showRegistry(memory_world& world) {
  std::string all;
  for (mdl_ContainerIter<cow_String, ddr_Ddb> each(world.root().Fetch()); !each.AtEnd(); each.Next()) {
    all += std::string(each.Key().Text()) + ":" + show(each.Value()) +
           std::to_string(world.root().GetOpenCount(each.Key())) +
           world.root().GetFileName(each.Key()).Text() +
           (world.root().WasOpenedReadOnly(each.Key()) ? " read only" : "");
  }
  all += world.root().IsMember(world.pathOf("a")) ? " a" : "";
  all += world.root().IsMember(world.pathOf("b")) ? " b" : "";
  return withoutIdentities(all);
}

// ---- records in memory ----

struct Plain {
  ddr_Model model{"database", "a model with a name that is not short"};
  ddr_Model sharer = model;
  std::unique_ptr<ddr_Ddb> record = std::make_unique<ddr_Ddb>("a name of some length", longText, longText);
  std::unique_ptr<ddr_Ddb> copy;
  ddr_ModelContainer modelsSharer;
  std::string told;

  Plain() {
    ddr_Model::RegisterExtension("first", note_Extension());
    setNote(model, "the note of the model");
    sharer = model;
    record->models.Insert("none", model);
    record->models.Insert("one", model);
    record->models.Insert("two", model);
    modelsSharer = record->models;
    record->results.Insert("one", ddr_Result());
  }
  Plain(Plain const&) = delete;
  Plain& operator=(Plain const&) = delete;
  ~Plain() {
    ddr_Model::UnRegisterExtension("first");
    ddr_Model::UnRegisterExtension("a second command name");
  }

  static std::string show(ddr_Model const& model) {
    return std::string(model.GetName().View()) + model.GetDatabase().Text() + noteOf(model) +
           std::to_string(model.InstanceTable().Size());
  }
  std::string look() const {
    return show(model) + "|" + show(sharer) + "|" + withoutIdentities(::show(*record)) + "|" +
           (copy ? withoutIdentities(::show(*copy)) : "") + "|" +
           std::to_string(ddr_Model::ModuleTable()->Size()) + show(modelsSharer.ConstGet("one")) +
           std::to_string(modelsSharer.Size()) + told;
  }
};

std::vector<memory_call> const plainCalls = memory_calls<Plain>({
    {"ddr_Model unnamed", [](Plain& on) { on.model = ddr_Model(); }, memory_need::None},
    {"ddr_Model", [](Plain& on) { on.model = ddr_Model(longText, longText); }},
    {"ddr_Model copied", [](Plain& on) { on.model = ddr_Model(on.sharer); }, memory_need::None},
    {"ddr_Model::Copy", [](Plain& on) { delete on.model.Copy(); }},
    {"ddr_Model::SetDatabase", [](Plain& on) { on.model.SetDatabase(longText); }},
    {"ddr_Model::RegisterExtension",
     [](Plain&) { ddr_Model::RegisterExtension("a second command name", note_Extension()); }},
    {"ddr_Model::UnRegisterExtension", [](Plain&) { ddr_Model::UnRegisterExtension("first"); }, memory_need::None},
    {"ddr_Model::GetExtension of the prototype",
     [](Plain& on) { static_cast<note_Extension&>(on.model.GetExtension("first")).text = longText; }},
    {"ddr_Model::GetExtension", [](Plain& on) { setNote(on.model, "another note"); }},
    {"ddr_Model::ConstGetExtension", [](Plain& on) { on.told = noteOf(on.model); }},
    {"ddr_Model::GetExtension of an unknown name",
     [](Plain& on) {
       on.told = memory_refusal<omu_AccessErrorException>([&] { on.model.GetExtension(longText); });
     }},
    {"ddr_Model::ConstGetExtension of an unknown name",
     [](Plain& on) {
       on.told = memory_refusal<omu_AccessErrorException>([&] { on.model.ConstGetExtension(longText); });
     }},
    {"ddr_Result::Copy", [](Plain& on) { on.record->results.Insert("two", on.record->results.ConstGet("one").Copy()); }},
    {"ddr_UserData::Copy", [](Plain& on) { on.record->userData.Insert("two", ddr_UserData().Copy()); }},
    {"ddr_Ddb", [](Plain& on) { on.copy = std::make_unique<ddr_Ddb>(longText, "file", longText); }},
    {"ddr_Ddb::Copy", [](Plain& on) { on.copy.reset(on.record->Copy()); }},
    {"ddr_Ddb::SetDescription", [](Plain& on) { on.record->SetDescription(longText); }},
    {"ddr_Ddb::SetAnalysisVersion", [](Plain& on) { on.record->SetAnalysisVersion(longText); }},
    {"ddr_Ddb::SetSequenceData", [](Plain& on) { on.record->SetSequenceData(longText); }},
    {"ddr_Ddb::AddProductAddOn",
     [](Plain& on) { on.record->AddProductAddOn(ddr_ProductAddOn(ddr_ProductAddOn_Fental)); }},
    {"ddr_Ddb::CreateTime", [](Plain& on) { on.told = on.record->CreateTime().Text(); }},
    {"ddr_Ddb::ModifyTime", [](Plain& on) { on.told = on.record->ModifyTime().Text(); }},
    {"ddr_Ddb::GetDiagnosticData",
     [](Plain& on) { on.record->GetDiagnosticData().Append(1, dia_Severity::Error, longText); }},
    {"ddr_Ddb::SetModels",
     [](Plain& on) {
       ddr_ModelContainer given;
       given.Insert("two", ddr_Model("elsewhere", "two"));
       on.record->SetModels(given);
     }},
    {"cls_Map2Obj in memory: Insert", [](Plain& on) { on.record->models.Insert(longText, on.model); }},
    {"cls_Map2Obj in memory: Get", [](Plain& on) { on.record->models.Get("one").SetDatabase("new"); }},
    {"cls_Map2Obj in memory: Remove", [](Plain& on) { on.record->models.Remove("one"); }},
    {"cls_Map2Obj in memory: Clear", [](Plain& on) { on.record->models.Clear(); }, memory_need::None},
    {"cls_Map2Obj in memory: LetGoOfStore", [](Plain& on) { on.record->models.LetGoOfStore(); }},
    {"cls_Map2Obj in memory: assigned",
     [](Plain& on) {
       ddr_ModelContainer other;
       other.Insert("three", on.model);
       on.record->models = other;
     }},
});

// ---- records of files ----

struct Opened : memory_subject {
  cow_String name = world.open("a");
  ddr_ModelContainer otherModels = world.root().Fetch().ConstGet(world.open("b")).models;
  ddr_DdbContainer databases = world.root().Fetch();
  std::string told;

  ddr_Ddb& record() { return databases.Get(name); }
  ddr_ModelContainer const& models() const { return databases.ConstGet(name).models; }
  std::string look() const {
    std::string const all = show(databases.ConstGet(name)) + "|" + show(world.root().Fetch().ConstGet(name)) +
                            "|" + std::to_string(world.root().GetOpenCount(name)) + told;
    return withoutIdentities(all) + world.traces();
  }
};

constexpr char const* longName = "a model with a name that is not short";

std::vector<memory_call> const openedCalls = memory_calls<Opened>({
    {"cls_Map2Obj::ConstGet", [](Opened& on) { on.told = on.models().ConstGet("B").GetName().Text(); }},
    {"cls_Map2Obj::ConstFind", [](Opened& on) { on.told = on.models().ConstFind(longName)->GetName().Text(); }},
    {"cls_Map2Obj::ConstFind of a missing key",
     [](Opened& on) { on.told = on.models().ConstFind("none") == nullptr ? "none" : ""; }, memory_need::None},
    {"cls_Map2Obj::ConstGet of a missing key",
     [](Opened& on) {
       on.told = memory_refusal<omu_AccessErrorException>([&] { on.models().ConstGet(longText); });
     }},
    {"cls_Map2Obj::Get of a missing key",
     [](Opened& on) {
       on.told = memory_refusal<omu_AccessErrorException>([&] { on.record().models.Get(longText); });
     }},
    {"cls_Map2ObjIter",
     [](Opened& on) {
       std::string all;
       cls_Map2ObjIter each(on.models());
       for (each.Last(); !each.AtEnd(); each.Prev()) {
         all += each.Value().GetName().Text();
       }
       on.told = all;
     }},
    {"cls_Map2Obj::Insert of a copy",
     [](Opened& on) { on.record().models.Insert(longText, ddr_Model("", "new")); }},
    {"cls_Map2Obj::Insert in place of a record",
     [](Opened& on) { on.record().models.Insert(longName, ddr_Model("", "new")); }},
    {"cls_Map2Obj::Insert adopting",
     [](Opened& on) {
       auto made = std::make_unique<ddr_Model>("", "new");
       cow_String const key(longText);
       ddr_ModelContainer& models = on.record().models;
       models.Insert(key, made.release());
     }},
    {"cls_Map2Obj::Get", [](Opened& on) { on.record().models.Get(longName).SetDatabase("new"); }},
    {"cls_Map2Obj::Find", [](Opened& on) { on.record().models.Find("B")->SetDatabase("new"); }},
    {"cls_Map2Obj::Remove", [](Opened& on) { on.record().models.Remove(longName); }},
    {"cls_Map2Obj::Clear", [](Opened& on) { on.record().models.Clear(); }},
    {"cls_Map2Obj::LetGoOfStore", [](Opened& on) { on.record().models.LetGoOfStore(); }},
    {"cls_Map2Obj::Release of a key",
     [](Opened& on) {
       on.models().ConstGet("B");
       on.models().Release("B");
     }},
    {"cls_Map2Obj::Release",
     [](Opened& on) {
       on.models().ConstGet("B");
       on.models().Release();
     }},
    {"cls_Map2Obj copied",
     [](Opened& on) {
       ddr_ModelContainer const copy(on.models());
       on.told = copy.ConstGet("C").GetName().Text();
     }},
    {"ddr_Ddb::SetModels of another file",
     [](Opened& on) {
       on.record().SetModels(on.otherModels);
     }},
    {"mdl_MapString2Obj::Insert", [](Opened& on) { on.record().results.Insert(longText, ddr_Result()); }},
    {"mdl_MapString2Obj::Insert in place of a record",
     [](Opened& on) { on.record().results.Insert("B", ddr_Result()); }},
    {"mdl_MapString2Obj::Remove", [](Opened& on) { on.record().userData.Remove(longName); }},
    {"mdl_MapString2Obj::Get", [](Opened& on) { on.record().userData.Get("B"); }},
    {"mdl_MapString2Obj::ConstGet of a missing name",
     [](Opened& on) {
       on.told = memory_refusal<omu_AccessErrorException>(
           [&] { on.databases.ConstGet(on.name).results.ConstGet(longText); });
     }},
    {"mdl_MapString2Obj::Get of a missing name",
     [](Opened& on) {
       on.told = memory_refusal<omu_AccessErrorException>([&] { on.record().results.Get(longText); });
     }},
    {"mdl_MapString2Obj::GetMap", [](Opened& on) { on.record().results.GetMap(); }},
    {"mdl_MapString2ObjIT",
     [](Opened& on) {
       mdl_MapString2ObjIT<ddr_Result> each(on.databases.ConstGet(on.name).results);
       for (each.Last(); !each.AtEnd(); each.Prev()) {
       }
     }},
    {"ddr_Ddb::checkWriteCompatibility",
     [](Opened& on) {
       on.told = on.databases.ConstGet(on.name).checkWriteCompatibility() ? "compatible" : "incompatible";
     }},
    {"stored bookmarks",
     [](Opened& on) {
       std::string const all = host_describe(
           static_cast<host_Bookmarks const&>(on.models().ConstGet("A").ConstGetExtension("bookmarks")));
       on.told = std::string(all, 0, 2000);
     }},
    {"ddr_Model::ConstGetExtension of an unknown class",
     [](Opened& on) {
       on.told = memory_refusal<nex_TextException>([&] { on.models().ConstGet("B").ConstGetExtension("stranger"); });
     }},
});

/// A stored collection that a host has for itself.
struct OwnCollection : Opened {
  ddr_ModelContainer own = models();

  OwnCollection() {
    own.Get("A").SetDatabase("new");
    own.Remove("C");
  }
  std::string look() const {
    std::string all = Opened::look() + std::to_string(own.Size()) + (own.IsChanged() ? " changed" : "");
    for (cls_Map2ObjIter each(own); !each.AtEnd(); each.Next()) {
      all.append(" ").append(each.Value().GetName().View()).append(noteOf(each.Value()));
    }
    return all;
  }
};

std::vector<memory_call> const ownCollectionCalls = memory_calls<OwnCollection>({
    {"cls_Map2Obj assigned", [](OwnCollection& on) { on.own = on.otherModels; }, memory_need::None},
    {"cls_Map2Obj assigned one in memory",
     [](OwnCollection& on) {
       ddr_ModelContainer made;
       made.Insert(longText, ddr_Model("", "new"));
       on.own = made;
     }},
});

// ---- shortcuts ----

struct Shortcuts : Opened {
  ddr_DdbShortcut database{new ddr_DdbShortcutImpl(name)};
  ddr_ModelContainerShortcut models{new ddr_ModelContainerInDdbShortcut(database)};
  ddr_ResultContainerShortcut results{new ddr_ResultContainerInDdbShortcut(database)};
  ddr_UserDataContainerShortcut userData{new ddr_UserDataContainerInDdbShortcut(database)};
  ddr_ModelShortcut model{new ddr_ModelInModelContainerShortcut(longName, models)};

  std::string look() const {
    return Opened::look() + database.Path().Text() + models.Path().Text() + results.Path().Text() +
           userData.Path().Text() + model.Path().Text();
  }
};

std::vector<memory_call> const shortcutCalls = memory_calls<Shortcuts>({
    {"ddr_DdbShortcut",
     [](Shortcuts& on) { on.database = ddr_DdbShortcut(new ddr_DdbShortcutImpl("other")); }},
    {"ddr_ModelContainerShortcut",
     [](Shortcuts& on) {
       on.models = ddr_ModelContainerShortcut(
           new ddr_ModelContainerInDdbShortcut(ddr_DdbShortcut(new ddr_DdbShortcutImpl("other"))));
     }},
    {"ddr_ResultContainerShortcut",
     [](Shortcuts& on) {
       on.results = ddr_ResultContainerShortcut(
           new ddr_ResultContainerInDdbShortcut(ddr_DdbShortcut(new ddr_DdbShortcutImpl("other"))));
     }},
    {"ddr_UserDataContainerShortcut",
     [](Shortcuts& on) {
       on.userData = ddr_UserDataContainerShortcut(
           new ddr_UserDataContainerInDdbShortcut(ddr_DdbShortcut(new ddr_DdbShortcutImpl("other"))));
     }},
    {"ddr_ModelShortcut",
     [](Shortcuts& on) {
       on.model = ddr_ModelShortcut(new ddr_ModelInModelContainerShortcut(longText, on.models));
     }},
    {"ddr_Shortcut unset", [](Shortcuts& on) { on.told = ddr_ModelShortcut().IsSet() ? "set" : "unset"; }},
    {"ddr_Shortcut::Implementation of an unset one",
     [](Shortcuts& on) {
       on.told = memory_refusal<nex_TextException>([] { ddr_ModelShortcut().Implementation(); });
     }},
    {"ddr_Shortcut::ConstGet of an unset one",
     [](Shortcuts& on) {
       on.told = memory_refusal<nex_TextException>([&] { ddr_ModelShortcut().ConstGet(on.databases); });
     }},
    {"ddr_Shortcut copied", [](Shortcuts& on) { on.model = ddr_ModelShortcut(on.model); }, memory_need::None},
    {"ddr_ShortcutImpl::Copy", [](Shortcuts& on) { delete on.model.Implementation().Copy(); }},
    {"ddr_Shortcut::Name", [](Shortcuts& on) { on.told = on.model.Name().Text(); }},
    {"ddr_Shortcut::Path", [](Shortcuts& on) { on.told = on.model.Path().Text(); }},
    {"ddr_Shortcut::PythonPath", [](Shortcuts& on) { on.told = on.model.PythonPath().Text(); }},
    {"ddr_Shortcut::PythonPath of a collection",
     [](Shortcuts& on) { on.told = on.userData.PythonPath().Text(); }},
    {"ddr_Shortcut::DdbName", [](Shortcuts& on) { on.told = on.model.DdbName().Text(); }},
    {"ddr_DdbShortcut::ConstGet",
     [](Shortcuts& on) { on.told = on.database.ConstGet(on.databases).GetDescription().Text(); },
     memory_need::None},
    {"ddr_DdbShortcut::Get", [](Shortcuts& on) { on.database.Get(on.databases).SetDescription(longText); }},
    {"ddr_ModelContainerShortcut::Get",
     [](Shortcuts& on) { on.models.Get(on.databases).Insert(longText, ddr_Model("", "new")); }},
    {"ddr_ResultContainerShortcut::Get",
     [](Shortcuts& on) { on.results.Get(on.databases).Insert(longText, ddr_Result()); }},
    {"ddr_UserDataContainerShortcut::Get",
     [](Shortcuts& on) { on.userData.Get(on.databases).Insert(longText, ddr_UserData()); }},
    {"ddr_ModelShortcut::ConstGet",
     [](Shortcuts& on) { on.told = on.model.ConstGet(on.databases).GetName().Text(); }},
    {"ddr_ModelShortcut::Get", [](Shortcuts& on) { on.model.Get(on.databases).SetDatabase("new"); }},
    {"ddr_ModelShortcut::ConstGet of a missing model",
     [](Shortcuts& on) {
       ddr_ModelShortcut const lost(new ddr_ModelInModelContainerShortcut("none", on.models));
       on.told = memory_refusal<omu_AccessErrorException>([&] { lost.ConstGet(on.databases); });
     }},
});

// ---- the registry ----

/// What a check says.
std::string findings(cow_String const& fileName, ddr_CheckDepth depth) {
  ddr_CheckResult const result = ddr_check(fileName, depth);
  std::string all =
      std::to_string(static_cast<int>(result.status)) + " " + std::to_string(result.rowsChecked);
  for (ddr_Finding const& finding : result.findings) {
    all.append("\n").append(finding.where).append(finding.what).append(finding.consequence);
    all.append(finding.remedy).append(finding.isWarning ? " warning" : "");
  }
  return all;
}

struct Registry : memory_subject {
  cow_String name = world.open("a");
  std::string told;

  Registry() = default;
  std::string look() const { return showRegistry(world) + told + world.traces(); }
};

std::vector<memory_call> const registryCalls = memory_calls<Registry>({
    {"ddr_Root::SetClassRegistrar",
     [](Registry& on) {
       on.world.root().SetClassRegistrar(new cls_ClassRegistrar(*on.world.root().GetClassRegistrar()));
     }},
    {"ddr_Root::Fetch and Replace",
     [](Registry& on) {
       ddr_DdbContainer changed = on.world.root().Fetch();
       changed.Get(on.name).models.Remove("A");
       changed.Get(on.name).SetDescription(longText);
       on.world.root().Replace(changed);
     }},
    {"ddr_Root::IsMember", [](Registry& on) { on.world.root().IsMember(on.world.pathOf("a")); }},
    {"ddr_Root::GetPersistentName",
     [](Registry& on) { on.told = on.world.root().GetPersistentName(on.world.pathOf("a")).Text(); }},
    {"ddr_Root::GetFileName", [](Registry& on) { on.told = on.world.root().GetFileName(on.name).Text(); }},
    {"ddr_Root::GetFileName of an unknown name",
     [](Registry& on) {
       on.told = memory_refusal<nex_TextException>([&] { on.world.root().GetFileName(longText); });
     }},
    {"ddr_Root::CloseDdb", [](Registry& on) { on.world.root().CloseDdb(on.name); }},
    {"ddr_Root::OpenDdb", [](Registry& on) { on.world.open("b"); }},
    {"ddr_Root::OpenDdb for reading", [](Registry& on) { on.world.open("b", utl_FileAccess::Read); }},
    {"ddr_Root::OpenDdb once more", [](Registry& on) { on.world.open("a", utl_FileAccess::Read); }},
    {"ddr_Root::OpenDdb refused",
     [](Registry& on) { on.told = memory_refusal<nex_TextException>([&] { on.world.open("a"); }); }},
    {"ddr_Root::OpenDdb of a missing file",
     [](Registry& on) { on.told = memory_refusal<rfm_Exception>([&] { on.world.open("none"); }); }},
    {"ddr_Root::CreateDdb on a name that is taken",
     [](Registry& on) {
       on.told = memory_refusal<rfm_Exception>(
           [&] { on.world.root().CreateDdb(on.world.pathOf("b"), longText, utl_FileAccess::CreateNew); });
     }},
    {"ddr_Root::CreateSavedDdb on a name that is taken",
     [](Registry& on) {
       on.told = memory_refusal<rfm_Exception>([&] {
         on.world.root().CreateSavedDdb(on.world.pathOf("b"), longText, utl_FileAccess::CreateNew);
       });
     }},
    {"ddr_Root::SaveDdb of an unknown name",
     [](Registry& on) {
       on.told = memory_refusal<omu_AccessErrorException>([&] { on.world.root().SaveDdb(longText, true); });
     }},
    {"ddr_Root::VerifyCreationDate",
     [](Registry& on) {
       rfm_File const file = rfm_File::Open(on.world.pathOf("a"), utl_FileAccess::Read, true);
       on.told = on.world.root().VerifyCreationDate(file) ? "the same" : "another";
     }},
    {"ddr_check, quick",
     [](Registry& on) { on.told = findings(on.world.pathOf("b"), ddr_CheckDepth::Quick); }},
    {"ddr_check, deep", [](Registry& on) { on.told = findings(on.world.pathOf("b"), ddr_CheckDepth::Deep); }},
    {"ddr_check of a missing file",
     [](Registry& on) { on.told = findings(on.world.pathOf("none"), ddr_CheckDepth::Deep); }},
});

// ---- saving ----

/// A changed database, to be saved later than it was made.
struct Saving : Registry {
  Saving() {
    world.edit(name, [](ddr_Ddb& record) {
      lead(static_cast<host_Bookmarks&>(record.models.Get("A").GetExtension("bookmarks")));
      record.models.Remove("C");
      record.models.Get("B").SetDatabase("new");
      record.results.Insert("new", ddr_Result());
      record.SetDescription(longText);
    });
    os_runtimeCalls().time64 = [](std::int64_t*) { return std::int64_t{1700001000}; };
  }
  ~Saving() {
    os_runtimeCalls().time64 = [](std::int64_t*) { return std::int64_t{1700000000}; };
  }
  std::string look() const {
    bool const stamps = world.root().Fetch().ConstGet(name).GetUpdateModifyTime();
    return Registry::look() + contentOf(world.folder.path("a")) + (stamps ? " stamps" : "");
  }

private:
  static void lead(host_Bookmarks& bookmarks) {
    bookmarks.models = ddr_ModelContainerShortcut(new ddr_ModelContainerInDdbShortcut(bookmarks.database));
    bookmarks.results = ddr_ResultContainerShortcut(new ddr_ResultContainerInDdbShortcut(bookmarks.database));
    bookmarks.userData =
        ddr_UserDataContainerShortcut(new ddr_UserDataContainerInDdbShortcut(bookmarks.database));
    bookmarks.model = ddr_ModelShortcut(new ddr_ModelInModelContainerShortcut("A", bookmarks.models));
  }
};

std::vector<memory_call> const savingCalls = memory_calls<Saving>({
    {"ddr_Root::SaveDdb", [](Saving& on) { on.world.root().SaveDdb(on.name, true); }},
    {"ddr_Root::SaveDdb without a time", [](Saving& on) { on.world.root().SaveDdb(on.name, false); }},
});

/// A changed database that cannot be saved.
template <void (*makeImpossible)(memory_world&, cow_String const&)>
struct Unsavable : Saving {
  Unsavable() { makeImpossible(world, name); }
};

/// Somebody else has saved the file meanwhile.
void overtake(memory_world& world, cow_String const& /*name*/) {
  std::string const failure = in_child([&] {
    return runSql(world.folder.path("a"), "UPDATE class_ddr_Model SET modelName = 'theirs' WHERE row = 0");
  });
  EXPECT_EQ(failure, "");
}

/// A model has come from another file, with an extension whose class nobody knows.
void takeStranger(memory_world& world, cow_String const& name) {
  std::filesystem::copy_file(world.folder.path("a"), world.folder.path("copy"));
  cow_String const other = world.root().OpenDdb(
      rfm_File::Open(world.pathOf("copy"), utl_FileAccess::Write, true), "the name of the copy");
  ddr_Model const model = world.root().Fetch().ConstGet(other).models.ConstGet("B");
  world.edit(name, [&](ddr_Ddb& record) { record.models.Insert("D", model); });
  world.root().CloseDdb(other);
}

/// Saves, which must be refused in such words.
template <class Subject>
void beRefused(Subject& on, char const* words) {
  on.told = memory_refusal<nex_TextException>([&] { on.world.root().SaveDdb(on.name, true); });
  if (on.told.find(words) == std::string::npos) {
    throw std::logic_error(on.told);
  }
}

std::vector<memory_call> const overtakenCalls = memory_calls<Unsavable<overtake>>({
    {"ddr_Root::SaveDdb overtaken",
     [](Unsavable<overtake>& on) { beRefused(on, "was changed by another user"); }},
});

std::vector<memory_call> const strangerCalls = memory_calls<Unsavable<takeStranger>>({
    {"ddr_Root::SaveDdb of an unknown class from another file",
     [](Unsavable<takeStranger>& on) { beRefused(on, "cannot be copied to another file"); }},
});

/// A changed database that was opened for reading.
struct ReadOnly : memory_subject {
  cow_String name = world.open("a", utl_FileAccess::Read);
  std::string told;

  ReadOnly() {
    world.edit(name, [](ddr_Ddb& record) { record.SetDescription(longText); });
  }
  std::string look() const { return showRegistry(world) + told + world.traces(); }
};

std::vector<memory_call> const readOnlyCalls = memory_calls<ReadOnly>({
    {"ddr_Root::SaveDdb of what was opened for reading", [](ReadOnly& on) { beRefused(on, "for reading"); }},
});

// ---- damaged files ----

/// A file in which several things are wrong.
struct DamagedFile : memory_subject {
  std::string told;

  DamagedFile() {
    runSql(world.folder.path("a"),
           "DROP TABLE class_ddr_Result;"
           "UPDATE class_ddr_Ddb SET description = CAST(x'ff' AS TEXT), \"userData#OID\" = 77;"
           "UPDATE class_ddr_Model SET modelName = x'00' WHERE row = 1;"
           "UPDATE ddr_entry SET OID = 99 WHERE position = 0");
  }
  std::string look() const { return showRegistry(world) + told + world.traces(); }
};

std::vector<memory_call> const damagedFileCalls = memory_calls<DamagedFile>({
    {"ddr_check of a damaged file, quick",
     [](DamagedFile& on) { on.told = findings(on.world.pathOf("a"), ddr_CheckDepth::Quick); }},
    {"ddr_check of a damaged file, deep",
     [](DamagedFile& on) { on.told = findings(on.world.pathOf("a"), ddr_CheckDepth::Deep); }},
    {"ddr_Root::OpenDdb of a damaged file",
     [](DamagedFile& on) { on.told = memory_refusal<rfm_Exception>([&] { on.world.open("a"); }); }},
});

/// A file in which no page can be read.
struct Rubbish : memory_subject {
  std::string told;

  Rubbish() { writeFile(world.folder.path("a"), "SQLite format 3" + std::string(9000, '\0')); }
  std::string look() const { return showRegistry(world) + told + world.traces(); }
};

std::vector<memory_call> const rubbishCalls = memory_calls<Rubbish>({
    {"ddr_check of rubbish",
     [](Rubbish& on) { on.told = findings(on.world.pathOf("a"), ddr_CheckDepth::Deep); }},
    {"ddr_Root::OpenDdb of rubbish",
     [](Rubbish& on) { on.told = memory_refusal<rfm_Exception>([&] { on.world.open("a"); }); }},
});

// ---- the smallest file ----

/// A database that holds nothing but its record.
struct Smallest : memory_subject {
  std::string told;

  Smallest() { world.setImage(folderOf(world)); }
  std::string look() const {
    std::string all = showRegistry(world) + told;
    for (mdl_ContainerIter<cow_String, ddr_Ddb> each(world.root().Fetch()); !each.AtEnd(); each.Next()) {
      each.Value().GetTransporter()->GetTableSize(ddr_Ddb::TypeId()); // opens again what had to be closed
    }
    all += world.traces();
    for (std::string const& name : world.folder.names()) {
      all += " " + contentOf(world.folder.path(name));
    }
    return all;
  }

private:
  static device_image const& folderOf(memory_world& world) {
    static device_image const made = [&] {
      world.setImage({});
      world.root().CreateSavedDdb(world.pathOf("a"), "", utl_FileAccess::Create);
      world.closeAll();
      return world.image();
    }();
    return made;
  }
};

/// It is open, and changed.
struct SmallestOpened : Smallest {
  cow_String name = world.open("a");

  SmallestOpened() {
    world.edit(name, [](ddr_Ddb& record) { record.SetDescription(longText); });
  }
};

std::vector<memory_call> const smallestCalls = memory_calls<Smallest>({
    {"ddr_Root::CreateDdb",
     [](Smallest& on) {
       on.world.root().CreateDdb(on.world.pathOf("b"), longText, utl_FileAccess::CreateNew);
     }},
    {"ddr_Root::OpenDdb", [](Smallest& on) { on.world.open("a"); }},
});

std::vector<memory_call> const longSmallestCalls = memory_calls<Smallest>({
    {"ddr_Root::CreateSavedDdb",
     [](Smallest& on) {
       on.world.root().CreateSavedDdb(on.world.pathOf("b"), longText, utl_FileAccess::CreateNew);
     }},
    {"ddr_check, deep", [](Smallest& on) { on.told = findings(on.world.pathOf("a"), ddr_CheckDepth::Deep); }},
});

std::vector<memory_call> const smallestOpenedCalls = memory_calls<SmallestOpened>({
    {"ddr_Root::SaveDdb", [](SmallestOpened& on) { on.world.root().SaveDdb(on.name, true); }},
    {"ddr_Root::CloseDdb", [](SmallestOpened& on) { on.world.root().CloseDdb(on.name); }},
});

class Memory_Smallest : public memory_world_test {};

// Each of their allocations, but for builds in which that takes minutes.
TEST_P(Memory_Smallest, AreWhatTheyWereAfterAnyFailedAllocation) {
  failEach(isSanitized ? 8 : std::numeric_limits<std::uint64_t>::max());
}

INSTANTIATE_TEST_SUITE_P(Closed, Memory_Smallest, testing::ValuesIn(smallestCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Opened, Memory_Smallest, testing::ValuesIn(smallestOpenedCalls), memory_testName);

/// A database whose header has no time of creation, open for reading.
struct UndatedFile : memory_subject {
  UndatedFile() {
    runSql(world.folder.path("a"), "UPDATE ddr_header SET creation_time = NULL");
    world.open("a", utl_FileAccess::Read);
  }
  std::string openAgain() const {
    try {
      rfm_File const file = rfm_File::Open(world.pathOf("a"), utl_FileAccess::Read, true);
      world.root().OpenDdb(file, cow_String());
      return "opened";
    } catch (std::bad_alloc const&) {
      return "no memory";
    } catch (nex_TextException const& refusal) {
      std::string const text = refusal.what();
      return text.find("has been regenerated") == std::string::npos ? text : "regenerated";
    }
  }
  std::string look() const { return showRegistry(world) + world.traces(); }
};

class Memory_UndatedFiles : public memory_world_test {
protected:
  /// Opens one once more with an allocation failing.
  /// @param number [from 1] of the allocation; 0 for none
  /// @returns whether one failed
  bool tryOut(std::uint64_t number) {
    UndatedFile const on;
    std::string const found = on.look();
    failing_memory::start(number, failing_memory::Lasting::Once);
    std::string const answer = on.openAgain();
    failing_memory::stop();
    bool const hasFailed = failing_memory::failures() > 0;
    if (answer != "opened") {
      EXPECT_TRUE(hasFailed);
      EXPECT_EQ(on.look(), found);
      EXPECT_EQ(on.openAgain(), "opened");
    }
    ++answers[answer];
    return hasFailed;
  }

  std::map<std::string, int> answers{{"no memory", 0}, {"opened", 0}, {"regenerated", 0}};
};

// A file whose records cannot be read is taken for another one, even if they cannot for want of memory.
TEST_F(Memory_UndatedFiles, AreOpenedOnceMoreWhenMemoryIsBack) {
  tryOut(0); // what is made once and kept
  tryOut(1);
  bool hasFailed = true;
  for (std::uint64_t number = 1; hasFailed; number += isSanitized ? 20 : 5) {
    SCOPED_TRACE("allocation " + std::to_string(number));
    std::int64_t const blocks = failing_memory::blocks();
    hasFailed = tryOut(number);
    EXPECT_EQ(failing_memory::blocks(), blocks) << "blocks leaked";
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_EQ(answers.size(), 3U);
  EXPECT_THAT(answers, testing::Each(testing::Pair(testing::_, testing::Gt(0))));
}

class Memory_LongSmallest : public memory_world_test {};

// They make several thousand allocations.
TEST_P(Memory_LongSmallest, AreWhatTheyWereAfterAnyFailedAllocation) {
  failEach(isSanitized ? 8 : 400);
}

INSTANTIATE_TEST_SUITE_P(Closed, Memory_LongSmallest, testing::ValuesIn(longSmallestCalls), memory_testName);

class Memory_Records : public memory_world_test {};

TEST_P(Memory_Records, AreWhatTheyWereAfterAnyFailedAllocation) {
  constexpr std::uint64_t affordable = 8;
  failEach(affordable);
}

INSTANTIATE_TEST_SUITE_P(Plain, Memory_Records, testing::ValuesIn(plainCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Opened, Memory_Records, testing::ValuesIn(openedCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(OwnCollection, Memory_Records, testing::ValuesIn(ownCollectionCalls),
                         memory_testName);
INSTANTIATE_TEST_SUITE_P(Overtaken, Memory_Records, testing::ValuesIn(overtakenCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Stranger, Memory_Records, testing::ValuesIn(strangerCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(ReadOnly, Memory_Records, testing::ValuesIn(readOnlyCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(DamagedFile, Memory_Records, testing::ValuesIn(damagedFileCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Rubbish, Memory_Records, testing::ValuesIn(rubbishCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Shortcuts, Memory_Records, testing::ValuesIn(shortcutCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Saving, Memory_Records, testing::ValuesIn(savingCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Registry, Memory_Records, testing::ValuesIn(registryCalls), memory_testName);

} // namespace
