// What other modules attach to models: a host's class, registered, saved, read, and carried unread.
#include "ddr_ModuleTest.h"

#include "child_process.h"
#include "omu_Exceptions.h"

#include <memory>

namespace {

constexpr unsigned materialTypeId = 0x2380001;

/// A host's extension with one number and one text.
class Material : public mdl_Extension {
public:
  Material() : uid(cls_Uid::Allocate()) {}
  Material(int wantedDensity, char const* wantedName) : Material() {
    density = wantedDensity;
    name = cow_String(wantedName);
  }
  explicit Material(cls_ReadVisitor const& reader)
      : density(reader.ReadInt("density")), name(reader.ReadString("name")), uid(reader.GetUid()) {}
  Material* Copy() const override { return new Material(*this); }
  unsigned DynTypeId() const override { return materialTypeId; }
  void DBWrite(cls_WriteVisitor const& writer) const override {
    if (writer.StartWrite(materialTypeId, uid)) {
      writer.WriteInt("density", density);
      writer.WriteString("name", name);
    }
  }

  int density = 0;
  cow_String name;

private:
  cls_Uid uid;
};

void* readMaterial(cls_ReadVisitor& reader) {
  return static_cast<mdl_Extension*>(new Material(reader));
}

class DdrExtension : public ddr_ModuleTest {
protected:
  /// What a host's module does when it starts.
  static void describeMaterial() {
    std::unique_ptr<cls_ClassRegistrar> classes(
        omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
    classes->CreateClassMD("tst_Material", materialTypeId, 1, readMaterial, mdl_Extension::TypeId())
        .AddAttribute("density", cls_AttributeType::Integer, 1, cls_CollectionType::Single)
        .AddAttribute("name", cls_AttributeType::String, 1, cls_CollectionType::Single);
    root().SetClassRegistrar(classes.release());
  }
  static void registerMaterial() { ddr_Model::RegisterExtension("material", Material(7850, "Steel")); }

  static Material const& materialOf(ddr_Model const& model) {
    return dynamic_cast<Material const&>(model.ConstGetExtension("material"));
  }

  /// A saved database whose model "m" has a material of its own.
  cow_String createWithMaterial(std::string const& name) {
    describeMaterial();
    registerMaterial();
    cow_String const made = create(name);
    addModels(made, {"m"});
    change(made, [](ddr_Ddb& changed) {
      auto& material = dynamic_cast<Material&>(changed.models.Get("m").GetExtension("material"));
      material.density = 2700;
      material.name = cow_String("Aluminium");
    });
    save(made);
    return made;
  }

  /// The rows of the material's table: "name density".
  Texts storedMaterials(std::string const& name) {
    rfm_Database database = rfm_Database::Open(rfm_File::Open(path(name), utl_FileAccess::Read, true), "D0");
    database.Bind();
    rfm_Table table = database.Table(materialTypeId);
    Texts rows;
    for (int row = 0; row < table.Length(); ++row) {
      rfm_Row const& stored = table.ReadRow(row);
      rows.push_back(std::string(stored.ReadFieldString("name").Text()) + " " +
                     std::to_string(stored.ReadFieldInt("density")));
    }
    return rows;
  }
};

TEST_F(DdrExtension, AnUnknownKindIsAnAccessErrorAndChangesNothing) {
  ddr_Model model;
  auto const error = caught<omu_AccessErrorException>([&] { model.GetExtension("material"); });
  EXPECT_EQ(error.Key(), cow_String("material"));
  EXPECT_THROW(model.ConstGetExtension("material"), omu_AccessErrorException);
  EXPECT_EQ(model.InstanceTable().Size(), 0);
}

TEST_F(DdrExtension, ReadingAnAbsentKindGivesThePrototypeAndChangesNothing) {
  registerMaterial();
  ddr_Model const model;
  EXPECT_STREQ(materialOf(model).name.Text(), "Steel");
  EXPECT_EQ(&model.ConstGetExtension("material"), ddr_ModelExtension::ModuleTable()->ConstFind("material"));
  EXPECT_EQ(model.InstanceTable().Size(), 0);
}

TEST_F(DdrExtension, WritingAnAbsentKindStartsFromACopyOfThePrototype) {
  registerMaterial();
  ddr_Model model;
  auto& own = dynamic_cast<Material&>(model.GetExtension("material"));
  EXPECT_STREQ(own.name.Text(), "Steel");
  own.name = cow_String("Copper");
  EXPECT_EQ(model.InstanceTable().Size(), 1);
  EXPECT_STREQ(materialOf(model).name.Text(), "Copper");
  EXPECT_STREQ(materialOf(ddr_Model()).name.Text(), "Steel");
}

TEST_F(DdrExtension, TheSameExtensionIsGivenAgain) {
  registerMaterial();
  ddr_Model model;
  mdl_Extension* const own = &model.GetExtension("material");
  EXPECT_EQ(&model.GetExtension("material"), own);
  EXPECT_EQ(&model.ConstGetExtension("material"), own);
}

TEST_F(DdrExtension, TheModelsOwnExtensionComesBeforeThePrototype) {
  registerMaterial();
  ddr_Model model;
  model.GetExtension("material");
  ddr_Model::RegisterExtension("material", Material(1, "Water"));
  EXPECT_STREQ(materialOf(model).name.Text(), "Steel");
  EXPECT_STREQ(materialOf(ddr_Model()).name.Text(), "Water");
}

TEST_F(DdrExtension, AnUnregisteredKindStaysWithModelsThatHaveIt) {
  registerMaterial();
  ddr_Model model;
  model.GetExtension("material");
  ddr_Model::UnRegisterExtension("material");
  EXPECT_STREQ(materialOf(model).name.Text(), "Steel");
  EXPECT_THROW(ddr_Model().GetExtension("material"), omu_AccessErrorException);
}

TEST_F(DdrExtension, UnregisteringAnUnknownNameChangesNothing) {
  registerMaterial();
  ddr_Model::UnRegisterExtension("nothing");
  EXPECT_EQ(ddr_ModelExtension::ModuleTable()->Size(), 1);
  EXPECT_STREQ(materialOf(ddr_Model()).name.Text(), "Steel");
}

TEST_F(DdrExtension, TheRegisteredPrototypeIsACopy) {
  Material prototype(7850, "Steel");
  ddr_Model::RegisterExtension("material", prototype);
  prototype.name = cow_String("changed");
  EXPECT_STREQ(materialOf(ddr_Model()).name.Text(), "Steel");
}

TEST_F(DdrExtension, CopiesOfAModelShareUntilOneWrites) {
  registerMaterial();
  ddr_Model model;
  model.GetExtension("material");
  ddr_Model copy(model);
  EXPECT_EQ(&copy.ConstGetExtension("material"), &model.ConstGetExtension("material"));
  dynamic_cast<Material&>(copy.GetExtension("material")).name = cow_String("Copper");
  EXPECT_STREQ(materialOf(model).name.Text(), "Steel");
}

TEST_F(DdrExtension, KindsAreForgottenWhenTheModuleStops) {
  registerMaterial();
  ddr_finalize(libraries);
  EXPECT_THROW(ddr_Model().GetExtension("material"), omu_AccessErrorException);
  EXPECT_THROW(registerMaterial(), nex_TextException);
  ddr_Model::UnRegisterExtension("material");
  ddr_initialize(libraries); // the fixture stops it
  EXPECT_THROW(ddr_Model().GetExtension("material"), omu_AccessErrorException);
}

TEST_F(DdrExtension, IsSavedAndReadBack) {
  cow_String const database = reopen(createWithMaterial("a.odb"), "a.odb");
  Material const& material = materialOf(record(database).models.ConstGet("m"));
  EXPECT_STREQ(material.name.Text(), "Aluminium");
  EXPECT_EQ(material.density, 2700);
}

TEST_F(DdrExtension, IsReadBackByASecondProcess) {
  close(createWithMaterial("a.odb"));
  EXPECT_EQ(in_child([&] {
              cow_String const database = open("a.odb", utl_FileAccess::Read);
              Material const& material = materialOf(record(database).models.ConstGet("m"));
              return std::string(material.name.Text()) + " " + std::to_string(material.density);
            }),
            "Aluminium 2700");
}

TEST_F(DdrExtension, AChangeOfTheExtensionAloneIsSaved) {
  cow_String const database = reopen(createWithMaterial("a.odb"), "a.odb");
  change(database, [](ddr_Ddb& changed) {
    dynamic_cast<Material&>(changed.models.Get("m").GetExtension("material")).density = 2710;
  });
  save(database);
  EXPECT_EQ(storedMaterials("a.odb"), Texts{"Aluminium 2710"});
  EXPECT_EQ(materialOf(record(reopen(database, "a.odb")).models.ConstGet("m")).density, 2710);
}

/// The same files in a process that does not know the host's class.
class DdrExtensionOfAnotherModule : public DdrExtension {
protected:
  cow_String openWithoutTheModule(std::string const& name) {
    close(createWithMaterial(name));
    ddr_finalize(libraries);
    ddr_initialize(libraries);
    installClasses();
    return open(name);
  }
};

TEST_F(DdrExtensionOfAnotherModule, IsCountedButCannotBeAskedFor) {
  cow_String const database = openWithoutTheModule("a.odb");
  ddr_Model const& model = record(database).models.ConstGet("m");
  EXPECT_EQ(model.InstanceTable().Size(), 1);
  EXPECT_TRUE(model.InstanceTable().IsCarried("material"));
  auto const error = caught<nex_TextException>([&] { model.ConstGetExtension("material"); });
  EXPECT_STREQ(error.what(), "The extension 'material' is stored, but no module of this process defines its "
                             "class; load the module first.");
}

TEST_F(DdrExtensionOfAnotherModule, IsWrittenBackUnchanged) {
  cow_String const database = openWithoutTheModule("a.odb");
  change(database, [](ddr_Ddb& changed) { changed.models.Get("m").SetDatabase("touched"); });
  save(database);
  EXPECT_EQ(storedMaterials("a.odb"), Texts{"Aluminium 2700"});
  close(database);
  describeMaterial();
  EXPECT_STREQ(materialOf(record(open("a.odb")).models.ConstGet("m")).name.Text(), "Aluminium");
}

TEST_F(DdrExtensionOfAnotherModule, OtherModelsCanBeAddedBesideIt) {
  cow_String const database = openWithoutTheModule("a.odb");
  addModels(database, {"n"});
  save(database);
  close(database);
  describeMaterial();
  cow_String const again = open("a.odb");
  EXPECT_EQ(modelNames(record(again)), (Texts{"m", "n"}));
  EXPECT_EQ(materialOf(record(again).models.ConstGet("m")).density, 2700);
}

TEST_F(DdrExtensionOfAnotherModule, CannotBeCopiedIntoAnotherFile) {
  cow_String const source = openWithoutTheModule("a.odb");
  cow_String const target = create("b.odb");
  change(target, [&](ddr_Ddb& changed) { changed.SetModels(record(source).models); });
  auto const error = caught<nex_TextException>([&] { save(target); });
  EXPECT_STREQ(error.what(),
               "The extension 'material' cannot be copied to another file, because no module of "
               "this process defines its class; load the module first.");
  EXPECT_EQ(storedMaterials("a.odb"), Texts{"Aluminium 2700"});
}

TEST_F(DdrExtensionOfAnotherModule, CannotBeWrittenThroughEitherAndStays) {
  cow_String const database = openWithoutTheModule("a.odb");
  ddr_Model model = record(database).models.ConstGet("m");
  EXPECT_THROW(model.GetExtension("material"), nex_TextException);
  EXPECT_TRUE(model.InstanceTable().IsCarried("material"));
}

} // namespace
