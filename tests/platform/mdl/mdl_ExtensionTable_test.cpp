// Extensions of models: the model's own, the registered prototypes, and those that nobody here knows.
#include "database_test.h"

#include "cls_MetadataRegistrar.h"
#include "nex_Exception.h"
#include "omu_Exceptions.h"
#include "rom_Memento.h"

#include <string>

namespace {

note_Extension note(char const* text) {
  note_Extension made;
  made.text = text;
  return made;
}

std::string textOf(mdl_Extension const& extension) {
  return static_cast<note_Extension const&>(extension).text.Text();
}

class mdl_Extensions : public database_test {
protected:
  /// Installs classes without notes, as a process without their module has them.
  void forgetNotes() {
    root().SetClassRegistrar(omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
    ddr_Model::UnRegisterExtension("note");
  }
  /// Installs them again.
  void knowNotes() { root().SetClassRegistrar(registrar().release()); }
};

TEST_F(mdl_Extensions, ConstGetOfAnAbsentKindReadsThePrototype) {
  ddr_Model::RegisterExtension("kind", note("prototype"));
  ddr_Model const model;
  EXPECT_EQ(textOf(model.ConstGetExtension("kind")), "prototype");
  EXPECT_EQ(model.InstanceTable().Size(), 0);
}

TEST_F(mdl_Extensions, GetOfAnAbsentKindMakesACopyOfThePrototype) {
  ddr_Model::RegisterExtension("kind", note("prototype"));
  ddr_Model model;
  static_cast<note_Extension&>(model.GetExtension("kind")).text = "own";
  EXPECT_EQ(textOf(model.ConstGetExtension("kind")), "own");
  EXPECT_EQ(textOf(ddr_Model().ConstGetExtension("kind")), "prototype");
  EXPECT_EQ(model.InstanceTable().Size(), 1);
}

TEST_F(mdl_Extensions, OwnExtensionComesFirst) {
  ddr_Model::RegisterExtension("kind", note("prototype"));
  ddr_Model model;
  model.GetExtension("kind");
  ddr_Model::RegisterExtension("kind", note("another"));
  EXPECT_EQ(textOf(model.ConstGetExtension("kind")), "prototype");
  EXPECT_EQ(textOf(ddr_Model().ConstGetExtension("kind")), "another");
}

TEST_F(mdl_Extensions, CopiesOfAModelShareUntilOneWrites) {
  ddr_Model first;
  setNote(first, "first");
  ddr_Model second = first;
  EXPECT_EQ(&first.ConstGetExtension("note"), &second.ConstGetExtension("note"));
  setNote(second, "second");
  EXPECT_EQ(noteOf(first), "first/first");
  EXPECT_EQ(noteOf(second), "second/second");
}

TEST_F(mdl_Extensions, UnknownKindThrowsAndChangesNothing) {
  ddr_Model model;
  EXPECT_THROW(model.ConstGetExtension("nobody"), omu_AccessErrorException);
  EXPECT_THROW(model.GetExtension("nobody"), omu_AccessErrorException);
  EXPECT_EQ(model.InstanceTable().Size(), 0);
}

TEST_F(mdl_Extensions, UnregisteringForgetsThePrototypeAlone) {
  ddr_Model::RegisterExtension("kind", note("prototype"));
  ddr_Model model;
  model.GetExtension("kind");
  ddr_Model::UnRegisterExtension("kind");
  ddr_Model::UnRegisterExtension("never registered");
  EXPECT_EQ(textOf(model.ConstGetExtension("kind")), "prototype");
  EXPECT_THROW(ddr_Model().ConstGetExtension("kind"), omu_AccessErrorException);
}

TEST_F(mdl_Extensions, ComeBackFromTheFile) {
  cow_String name = create("a");
  ddr_Model::RegisterExtension("other", note("other"));
  edit(name, [](ddr_Ddb& record) {
    record.models.Insert("M", ddr_Model(record.GetDbId(), "M"));
    setNote(record.models.Get("M"), "note");
    record.models.Get("M").GetExtension("other");
  });
  name = reopen(name, "a");
  ddr_Model const& model = record(name).models.ConstGet("M");
  EXPECT_EQ(noteOf(model), "note/note");
  EXPECT_EQ(textOf(model.ConstGetExtension("other")), "other");
  EXPECT_EQ(model.InstanceTable().Size(), 2);
}

// An extension table without anything gets its map all the same.
TEST_F(mdl_Extensions, EmptyTableComesBackEmpty) {
  cow_String name = create("a");
  edit(name, [](ddr_Ddb& record) { record.models.Insert("M", ddr_Model(record.GetDbId(), "M")); });
  name = reopen(name, "a");
  EXPECT_EQ(record(name).models.ConstGet("M").InstanceTable().Size(), 0);
  writeModel(name, "M", "later");
  EXPECT_EQ(contents(reopen(name, "a")).substr(0, 14), "M=later/later ");
}

TEST_F(mdl_Extensions, OfUnknownClassesAreCarriedThroughASave) {
  cow_String name = create("a");
  ddr_Model::RegisterExtension("other", note("other"));
  edit(name, [](ddr_Ddb& record) {
    record.models.Insert("M", ddr_Model(record.GetDbId(), "M"));
    setNote(record.models.Get("M"), "note");
  });
  save(name);
  close(name);
  std::string const before = stored("a");

  // Not possible through a restart alone: this process remembers that notes are extensions.
  forgetNotes();
  name = open("a");
  ddr_Model const& unread = record(name).models.ConstGet("M");
  EXPECT_TRUE(unread.InstanceTable().IsMember("note"));
  EXPECT_TRUE(unread.InstanceTable().IsCarried("note"));
  EXPECT_EQ(
      failureOf([&] { unread.ConstGetExtension("note"); }),
      "The extension 'note' is stored, but no module of this process defines its class; load the module "
      "first.");
  edit(name, [](ddr_Ddb& record) { record.models.Get("M").GetExtension("other"); });
  save(name);
  edit(name, [](ddr_Ddb& record) { record.models.Get("M"); });
  save(name);
  close(name);

  knowNotes();
  EXPECT_EQ(stored("a"), before);
  name = open("a");
  EXPECT_EQ(noteOf(record(name).models.ConstGet("M")), "note/note");
}

TEST_F(mdl_Extensions, OfUnknownClassesCannotMoveToAnotherFile) {
  cow_String name = create("a");
  writeModel(name, "M", "note");
  save(name);
  close(name);
  forgetNotes();
  name = open("a");
  cow_String const other = create("b");
  edit(other, [&](ddr_Ddb& record) { record.SetModels(root().Fetch().ConstGet(name).models); });
  EXPECT_EQ(
      failureOf([&] { save(other); }),
      "The extension 'note' cannot be copied to another file, because no module of this process defines "
      "its class; load the module first.");
}

/// A kind of model that another module defines.
class special_Model : public ddr_Model {
public:
  using ddr_Model::ddr_Model;
  explicit special_Model(cls_ReadVisitor const& reader)
      : ddr_Model(reader), secret(reader.ReadString("secret")), identity(reader.GetUid()) {}
  static unsigned TypeId() noexcept { return 0x2f0021; }
  unsigned DynTypeId() const override { return TypeId(); }
  special_Model* Copy() const override { return new special_Model(*this); }
  void DBWrite(cls_WriteVisitor const& writer) const override {
    if (writer.StartWrite(TypeId(), GetUid())) {
      writer.WriteString("modelName", GetName());
      InstanceTable().DBWrite(cls_WriteVisitor(writer, "instanceTable"));
      writer.WriteString("secret", secret);
    }
  }
  cow_String secret;

private:
  cls_Uid identity;
};

void* readSpecial(cls_ReadVisitor& reader) {
  return static_cast<ddr_Model*>(new special_Model(reader));
}

void registerSpecial(cls_ClassRegistrar& classes) {
  classes.CreateClassMD("special_Model", special_Model::TypeId(), 1, readSpecial, ddr_Model::TypeId())
      .AddAttribute("modelName", cls_AttributeType::String, 1, cls_CollectionType::Single)
      .AddAttribute("instanceTable", cls_AttributeType::Object, 0x220018, cls_CollectionType::Single)
      .AddAttribute("secret", cls_AttributeType::String, 1, cls_CollectionType::Single);
}

// The record of a class that only another process knows is changed here and keeps what it holds beyond.
TEST_F(mdl_Extensions, ModelOfAnUnknownClassKeepsItsFieldsThroughAChange) {
  std::unique_ptr<cls_ClassRegistrar> classes = registrar();
  registerSpecial(*classes);
  root().SetClassRegistrar(classes.release());
  cow_String name = create("a");
  edit(name, [](ddr_Ddb& record) {
    auto* const special = new special_Model(record.GetDbId(), "M");
    special->secret = "kept";
    record.models.Insert("M", special);
  });
  save(name);
  close(name);

  knowNotes();
  name = open("a");
  EXPECT_EQ(record(name).models.ConstGet("M").GetName(), cow_String("M"));
  writeModel(name, "M", "changed");
  name = reopen(name, "a");
  EXPECT_EQ(noteOf(record(name).models.ConstGet("M")), "changed/changed");
  close(name);

  classes = registrar();
  registerSpecial(*classes);
  root().SetClassRegistrar(classes.release());
  name = open("a");
  auto const* const special = dynamic_cast<special_Model const*>(&record(name).models.ConstGet("M"));
  ASSERT_NE(special, nullptr);
  EXPECT_EQ(special->secret, cow_String("kept"));
  EXPECT_EQ(noteOf(*special), "changed/changed");
}

} // namespace
