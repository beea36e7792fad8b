// Converted files as hosts use them: opened, checked, changed, saved and opened again.
#include "upgrade_test.h"

#include "cls_MetadataRegistrar.h"
#include "database_test.h"
#include "ddr_Check.h"
#include "ddr_Ddb.h"
#include "ddr_Root.h"

#include <filesystem>
#include <memory>

namespace {

/// With the classes of all modules whose objects are in the new file, as a host has them that uses these
/// modules.
class DdrUpgradeUse : public each_layout_test {
protected:
  ddr_Root& root() { return ddr_Root::Instance(); }

  cow_String open(utl_FileAccess access = utl_FileAccess::Write) {
    ddr_Model::RegisterExtension("note", note_Extension());
    root().SetClassRegistrar(registrar().release());
    return root().OpenDdb(rfm_File::Open(cow_String(newPath), access, true), "");
  }
  ddr_Ddb const& record(cow_String const& name) { return root().Fetch().ConstGet(name); }

  std::unique_ptr<cls_ClassRegistrar> registrar() const {
    std::unique_ptr<cls_ClassRegistrar> made(
        omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
    rfm_Database database =
        rfm_Database::Open(rfm_File::Open(cow_String(newPath), utl_FileAccess::Read, true), "D0");
    database.Bind();
    note_registerClasses(*made);
    for (rfm_ClassEntry const& stored : database.Classes()) {
      if (made->Find(stored.typeId) == nullptr) {
        describe(*made, stored);
      }
    }
    return made;
  }

  static void describe(cls_ClassRegistrar& registrar, rfm_ClassEntry const& stored) {
    cls_ClassMetadata& described =
        registrar.CreateClassMD(stored.name, stored.typeId, stored.version, nullptr, stored.baseTypeId);
    for (rfm_AttributeEntry const& attribute : stored.attributes) {
      described.AddAttribute(attribute.name, static_cast<cls_AttributeType>(attribute.kind),
                             attribute.elementTypeId, static_cast<cls_CollectionType>(attribute.collection));
    }
  }

  static std::vector<std::string> modelsOf(ddr_Ddb const& record) {
    std::vector<std::string> names;
    cls_Map2ObjIter models(record.models);
    for (models.First(); !models.AtEnd(); models.Next()) {
      names.emplace_back(models.Value().GetName().Text()); // loads it
    }
    return names;
  }

  void addModel(cow_String const& name, char const* model) {
    ddr_DdbContainer databases = root().Fetch();
    databases.Get(name).models.Insert(model, ddr_Model(cow_String(newPath), model));
    root().Replace(databases);
  }
};

class DdrUpgradeUseOfOurs : public upgrade_test {};

INSTANTIATE_TEST_SUITE_P(Each, DdrUpgradeUse, testing::ValuesIn(layout_names()),
                         [](auto const& instance) { return instance.param; });

TEST_P(DdrUpgradeUse, OpensWithItsRecordsAndNames) {
  upgrade(GetParam());
  cow_String const name = open();
  EXPECT_EQ(name, cow_String("2000/02/29 00:00:00 " + GetParam() + ".ddr"));
  EXPECT_EQ(modelsOf(record(name)), (std::vector<std::string>{"Beam", "Plate", "Wing \u00b7 \u7ffc"}));
  EXPECT_EQ(record(name).results.Size(), 2);
  EXPECT_EQ(record(name).userData.Size(), 1);
  EXPECT_EQ(record(name).GetDescription(), cow_String("Wing, second load case"));
}

TEST_P(DdrUpgradeUse, PassesBothCompatibilityChecks) {
  upgrade(GetParam());
  cow_String const name = open();
  EXPECT_TRUE(record(name).checkUpwardsCompatibility());
  EXPECT_TRUE(record(name).checkWriteCompatibility());
}

TEST_P(DdrUpgradeUse, IsNotCurrentForAProcessThatLacksSomeOfItsModulesAndTakesASaveAllTheSame) {
  upgrade(GetParam());
  root().SetClassRegistrar(omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
  cow_String const name =
      root().OpenDdb(rfm_File::Open(cow_String(newPath), utl_FileAccess::Write, true), "");
  EXPECT_TRUE(record(name).checkUpwardsCompatibility());
  EXPECT_FALSE(record(name).checkWriteCompatibility()) << "classes that nobody here knows may be newer ones";
  addModel(name, "Added");
  root().SaveDdb(name, true);
  root().CloseDdb(name);
  EXPECT_EQ(after().value("SELECT count(*) FROM class_ddr_Model WHERE modelName = 'Added'"), "1");
}

TEST_F(DdrUpgradeUseOfOurs, PassesBothCompatibilityChecks) {
  // Without the classes of other modules, and so without models of 203, which need them.
  upgrade("database_203", R"(UPDATE class_ddr_Ddb SET "models#ClassID" = NULL, "models#OID" = NULL;
      DELETE FROM class_ddr_Model;
      DELETE FROM ddr_attribute WHERE class IN
        (SELECT "row" FROM ddr_class WHERE "Class Name" LIKE 'odiK%');
      DELETE FROM ddr_class WHERE "Class Name" LIKE 'odiK%';
      UPDATE ddr_class SET "row" = 4 WHERE "row" = 10;
      UPDATE ddr_attribute SET class = 4 WHERE class = 10;)");
  ddr_Root& root = ddr_Root::Instance();
  root.SetClassRegistrar(omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
  cow_String const name = root.OpenDdb(rfm_File::Open(cow_String(newPath), utl_FileAccess::Read, true), "");
  EXPECT_TRUE(root.Fetch().ConstGet(name).checkUpwardsCompatibility());
  EXPECT_TRUE(root.Fetch().ConstGet(name).checkWriteCompatibility());
}

TEST_P(DdrUpgradeUse, WasNotWriteCompatibleBefore) {
  upgrade(GetParam());
  std::filesystem::copy_file(oldPath, newPath, std::filesystem::copy_options::overwrite_existing);
  std::string said;
  try {
    cow_String const name = open(utl_FileAccess::Read);
    said = record(name).checkWriteCompatibility() ? "compatible" : "not compatible";
  } catch (nex_Exception const&) {
    said = "not compatible"; // not even readable
  }
  EXPECT_EQ(said, "not compatible");
}

TEST_P(DdrUpgradeUse, PassesItsOwnCreationDateCheck) {
  upgrade(GetParam());
  open();
  rfm_File const again = rfm_File::Open(cow_String(newPath), utl_FileAccess::Read, true);
  EXPECT_TRUE(root().VerifyCreationDate(again));
  EXPECT_EQ(rfm_Database::GetCreationTime(again), 951782400);
}

TEST_P(DdrUpgradeUse, TakesASaveAndOpensAgain) {
  upgrade(GetParam());
  cow_String const name = open();
  addModel(name, "Added");
  root().SaveDdb(name, true);
  root().CloseDdb(name);
  EXPECT_EQ(open(utl_FileAccess::Read), name);
  EXPECT_EQ(modelsOf(record(name)),
            (std::vector<std::string>{"Added", "Beam", "Plate", "Wing \u00b7 \u7ffc"}));
  EXPECT_EQ(record(name).results.Size(), 2);
}

TEST_P(DdrUpgradeUse, LosesNothingByASave) {
  upgrade(GetParam());
  auto const models = after().rows("ddr_Model");
  auto const notes = after().rows("odiK_Note");
  auto const tables = after().rows("ddr_ExtensionTable");
  cow_String const name = open();
  modelsOf(record(name));
  addModel(name, "Added");
  root().SaveDdb(name, true);
  root().CloseDdb(name);
  EXPECT_EQ(after().integrity(), "ok");
  EXPECT_EQ(after().rows("odiK_Note"), notes);
  for (auto const& [row, fields] : models) {
    EXPECT_EQ(after().row("ddr_Model", row), fields) << row;
  }
  for (auto const& [row, fields] : tables) {
    EXPECT_EQ(after().row("ddr_ExtensionTable", row), fields) << row;
  }
}

TEST_P(DdrUpgradeUse, KeepsChangesOfItsModelsApart) {
  upgrade(GetParam());
  cow_String const name = open();
  std::size_t const before = after().rows("ddr_ExtensionTable").size();
  ddr_DdbContainer databases = root().Fetch();
  for (char const* const model : {"Beam", "Plate"}) {
    ddr_Model& changed = databases.Get(name).models.Get(model);
    static_cast<note_Extension&>(changed.GetExtension("note")).text = cow_String(model);
  }
  root().Replace(databases);
  root().SaveDdb(name, true);
  root().CloseDdb(name);
  open(utl_FileAccess::Read);
  for (char const* const model : {"Beam", "Plate"}) {
    auto const& note =
        static_cast<note_Extension const&>(record(name).models.ConstGet(model).ConstGetExtension("note"));
    EXPECT_EQ(note.text, cow_String(model));
  }
  EXPECT_FALSE(record(name).models.ConstGet("Wing \u00b7 \u7ffc").InstanceTable().IsMember("note"));
  EXPECT_EQ(after().rows("ddr_ExtensionTable").size(), before);
}

TEST_P(DdrUpgradeUse, IsSoundForTheChecker) {
  upgrade(GetParam());
  std::string said;
  for (ddr_Finding const& finding : ddr_check(cow_String(newPath), ddr_CheckDepth::Deep).findings) {
    said += finding.where + ": " + finding.what + "\n";
  }
  EXPECT_EQ(said, "");
}

} // namespace
