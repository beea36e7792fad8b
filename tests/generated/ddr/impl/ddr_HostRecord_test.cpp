// Results of a host's own class: read with their class where it is known, kept where it is not.
#include "ddr_ModuleTest.h"

#include "child_process.h"

#include <memory>

namespace {

constexpr unsigned loadResultTypeId = 0x2500001;

/// A host's result with one number.
class LoadResult : public ddr_Result {
public:
  explicit LoadResult(int wanted) : load(wanted) {}
  explicit LoadResult(cls_ReadVisitor const& reader) : ddr_Result(reader), load(reader.ReadInt("load")) {}
  LoadResult* Copy() const override { return new LoadResult(*this); }
  unsigned DynTypeId() const override { return loadResultTypeId; }
  void DBWrite(cls_WriteVisitor const& writer) const override {
    if (writer.StartWrite(loadResultTypeId, GetUid())) {
      writer.WriteInt("load", load);
    }
  }

  int load;
};

void* readLoadResult(cls_ReadVisitor& reader) {
  return static_cast<ddr_Result*>(new LoadResult(reader));
}

class DdrHostRecord : public ddr_ModuleTest {
protected:
  static void describeLoadResult() {
    std::unique_ptr<cls_ClassRegistrar> classes(
        omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
    classes->CreateClassMD("tst_LoadResult", loadResultTypeId, 1, readLoadResult, ddr_Result::TypeId())
        .AddAttribute("load", cls_AttributeType::Integer, 1, cls_CollectionType::Single);
    root().SetClassRegistrar(classes.release());
  }

  cow_String createWithLoad(std::string const& name, int load) {
    describeLoadResult();
    cow_String const made = create(name);
    change(made, [&](ddr_Ddb& changed) { changed.results.Insert("load", LoadResult(load)); });
    save(made);
    return made;
  }

  static int loadOf(cow_String const& database) {
    return dynamic_cast<LoadResult const&>(record(database).results.ConstGet("load")).load;
  }
};

TEST_F(DdrHostRecord, IsReadBackAsItsOwnClass) {
  cow_String const database = reopen(createWithLoad("a.odb", 42), "a.odb");
  EXPECT_EQ(record(database).results.ConstGet("load").DynTypeId(), loadResultTypeId);
  EXPECT_EQ(loadOf(database), 42);
}

TEST_F(DdrHostRecord, IsReadAsAResultWhereItsClassIsUnknown) {
  cow_String const made = createWithLoad("a.odb", 42);
  cls_Uid const uid = record(made).results.ConstGet("load").GetUid();
  close(made);
  installClasses();
  cow_String const database = open("a.odb");
  EXPECT_EQ(record(database).results.ConstGet("load").DynTypeId(), ddr_Result::TypeId());
  EXPECT_EQ(record(database).results.ConstGet("load").GetUid(), uid);
}

TEST_F(DdrHostRecord, LosesNothingInAProcessThatDoesNotKnowItsClass) {
  close(createWithLoad("a.odb", 42));
  std::string const done = in_child([&] {
    installClasses();
    cow_String const database = open("a.odb");
    change(database, [](ddr_Ddb& changed) {
      changed.results.Get("load");
      changed.results.Insert("other", ddr_Result());
      changed.models.Insert("m", ddr_Model());
    });
    save(database);
    return std::string("saved");
  });
  ASSERT_EQ(done, "saved");
  describeLoadResult();
  cow_String const database = open("a.odb");
  EXPECT_EQ(loadOf(database), 42);
  EXPECT_EQ(record(database).results.Size(), 2);
}

TEST_F(DdrHostRecord, AChangeThroughGetIsSaved) {
  cow_String const database = reopen(createWithLoad("a.odb", 42), "a.odb");
  change(database,
         [](ddr_Ddb& changed) { dynamic_cast<LoadResult&>(changed.results.Get("load")).load = 43; });
  save(database);
  EXPECT_EQ(loadOf(reopen(database, "a.odb")), 43);
}

TEST_F(DdrHostRecord, ACopyOfTheCollectionKeepsTheMostDerivedObject) {
  cow_String const database = createWithLoad("a.odb", 42);
  ddr_DdbContainer copy = root().Fetch();
  dynamic_cast<LoadResult&>(copy.Get(database).results.Get("load")).load = 43;
  EXPECT_EQ(loadOf(database), 42);
}

} // namespace
