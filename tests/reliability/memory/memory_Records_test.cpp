// Records, their collections, shortcuts and the registry in small memory.
#include "memory_World.h"
#include "sanitized.h"

#include "ddr_Check.h"
#include "ddr_Result.h"
#include "ddr_UserData.h"
#include "os_Runtime.h"
#include "rfm_Exception.h"

#include <limits>
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
  std::string told;

  Plain() {
    ddr_Model::RegisterExtension("first", note_Extension());
    setNote(model, "the note of the model");
    sharer = model;
    record->models.Insert("one", model);
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
           std::to_string(ddr_Model::ModuleTable()->Size()) + told;
  }
};

std::vector<memory_call> const plainCalls = memory_calls<Plain>({
    {"ddr_Model", [](Plain& on) { on.model = ddr_Model(longText, longText); }},
    {"ddr_Model copied", [](Plain& on) { on.model = ddr_Model(on.sharer); }},
    {"ddr_Model::Copy", [](Plain& on) { delete on.model.Copy(); }},
    {"ddr_Model::SetDatabase", [](Plain& on) { on.model.SetDatabase(longText); }},
    {"ddr_Model::RegisterExtension",
     [](Plain&) { ddr_Model::RegisterExtension("a second command name", note_Extension()); }},
    {"ddr_Model::UnRegisterExtension", [](Plain&) { ddr_Model::UnRegisterExtension("first"); }},
    {"ddr_Model::GetExtension of the prototype",
     [](Plain& on) { static_cast<note_Extension&>(on.model.GetExtension("first")).text = longText; }},
    {"ddr_Model::GetExtension", [](Plain& on) { setNote(on.model, "another note"); }},
    {"ddr_Model::ConstGetExtension", [](Plain& on) { on.told = noteOf(on.model); }},
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
    {"cls_Map2Obj in memory: Clear", [](Plain& on) { on.record->models.Clear(); }},
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
     [](Opened& on) { on.told = on.models().ConstFind("none") == nullptr ? "none" : ""; }},
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
    {"ddr_Shortcut copied", [](Shortcuts& on) { on.model = ddr_ModelShortcut(on.model); }},
    {"ddr_ShortcutImpl::Copy", [](Shortcuts& on) { delete on.model.Implementation().Copy(); }},
    {"ddr_Shortcut::Name", [](Shortcuts& on) { on.told = on.model.Name().Text(); }},
    {"ddr_Shortcut::Path", [](Shortcuts& on) { on.told = on.model.Path().Text(); }},
    {"ddr_Shortcut::PythonPath", [](Shortcuts& on) { on.told = on.model.PythonPath().Text(); }},
    {"ddr_Shortcut::PythonPath of a collection",
     [](Shortcuts& on) { on.told = on.userData.PythonPath().Text(); }},
    {"ddr_Shortcut::DdbName", [](Shortcuts& on) { on.told = on.model.DdbName().Text(); }},
    {"ddr_DdbShortcut::ConstGet",
     [](Shortcuts& on) { on.told = on.database.ConstGet(on.databases).GetDescription().Text(); }},
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
       try {
         lost.ConstGet(on.databases);
       } catch (omu_AccessErrorException const& refusal) {
         on.told = refusal.what();
       }
     }},
});

// ---- the registry ----

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
       try {
         on.world.root().GetFileName(longText);
       } catch (nex_TextException const& refusal) {
         on.told = refusal.what();
       }
     }},
    {"ddr_Root::CloseDdb", [](Registry& on) { on.world.root().CloseDdb(on.name); }},
    {"ddr_Root::OpenDdb", [](Registry& on) { on.world.open("b"); }},
    {"ddr_Root::OpenDdb for reading", [](Registry& on) { on.world.open("b", utl_FileAccess::Read); }},
    {"ddr_Root::OpenDdb once more", [](Registry& on) { on.world.open("a", utl_FileAccess::Read); }},
    {"ddr_Root::OpenDdb refused",
     [](Registry& on) {
       try {
         on.world.open("a");
       } catch (nex_TextException const& refusal) {
         on.told = refusal.what();
       }
     }},
    {"ddr_Root::OpenDdb of a missing file",
     [](Registry& on) {
       try {
         on.world.open("none");
       } catch (rfm_Exception const& refusal) {
         on.told = refusal.what();
       }
     }},
    {"ddr_Root::VerifyCreationDate",
     [](Registry& on) {
       rfm_File const file = rfm_File::Open(on.world.pathOf("a"), utl_FileAccess::Read, true);
       on.told = on.world.root().VerifyCreationDate(file) ? "the same" : "another";
     }},
    {"ddr_check, quick",
     [](Registry& on) {
       ddr_CheckResult const found = ddr_check(on.world.pathOf("b"), ddr_CheckDepth::Quick);
       on.told = std::to_string(static_cast<int>(found.status)) + std::to_string(found.rowsChecked);
     }},
    {"ddr_check, deep",
     [](Registry& on) {
       ddr_CheckResult const found = ddr_check(on.world.pathOf("b"), ddr_CheckDepth::Deep);
       on.told = std::to_string(static_cast<int>(found.status)) + std::to_string(found.rowsChecked);
     }},
});

// ---- saving ----

/// A changed database, to be saved later than it was made.
struct Saving : Registry {
  Saving() {
    world.edit(name, [](ddr_Ddb& record) {
      record.models.Remove("A");
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
};

std::vector<memory_call> const savingCalls = memory_calls<Saving>({
    {"ddr_Root::SaveDdb", [](Saving& on) { on.world.root().SaveDdb(on.name, true); }},
    {"ddr_Root::SaveDdb without a time", [](Saving& on) { on.world.root().SaveDdb(on.name, false); }},
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
    {"ddr_check, deep",
     [](Smallest& on) {
       ddr_CheckResult const found = ddr_check(on.world.pathOf("a"), ddr_CheckDepth::Deep);
       on.told = std::to_string(static_cast<int>(found.status)) + std::to_string(found.rowsChecked);
     }},
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

class Memory_Records : public memory_world_test {};

TEST_P(Memory_Records, AreWhatTheyWereAfterAnyFailedAllocation) {
  constexpr std::uint64_t affordable = 8;
  failEach(affordable);
}

INSTANTIATE_TEST_SUITE_P(Plain, Memory_Records, testing::ValuesIn(plainCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Opened, Memory_Records, testing::ValuesIn(openedCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Shortcuts, Memory_Records, testing::ValuesIn(shortcutCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Saving, Memory_Records, testing::ValuesIn(savingCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Smallest, Memory_Records, testing::ValuesIn(longSmallestCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Registry, Memory_Records, testing::ValuesIn(registryCalls), memory_testName);

} // namespace
