// The registry of a thread's open databases.
#include "ddr_ModuleTest.h"

#include <memory>

namespace {

class DdrRoot : public ddr_ModuleTest {};

TEST_F(DdrRoot, IsEmptyAndHasNoClassesAtFirst) {
  thr_ThreadSingleton<ddr_Root>::Release();
  EXPECT_EQ(root().GetClassRegistrar(), nullptr);
  EXPECT_EQ(root().Fetch().Size(), 0);
  EXPECT_FALSE(root().IsMember(path("a.odb")));
}

TEST_F(DdrRoot, AdoptsItsClassRegistrar) {
  auto* const made = new cls_ClassRegistrar();
  root().SetClassRegistrar(made);
  EXPECT_EQ(root().GetClassRegistrar(), made);
  root().SetClassRegistrar(nullptr); // the leak check sees that the first one is gone
  EXPECT_EQ(root().GetClassRegistrar(), nullptr);
}

TEST_F(DdrRoot, KeepsAClassRegistrarThatItIsGivenAgain) {
  auto* const made = new cls_ClassRegistrar();
  root().SetClassRegistrar(made);
  root().SetClassRegistrar(made);
  ASSERT_EQ(root().GetClassRegistrar(), made);
  EXPECT_FALSE(made->TypeIds().empty()); // the address check sees that it is alive
}

TEST_F(DdrRoot, AnOpenDatabaseIsAMemberByItsFileName) {
  cow_String const database = create("a.odb");
  EXPECT_TRUE(root().IsMember(path("a.odb")));
  EXPECT_FALSE(root().IsMember(path("b.odb")));
  EXPECT_FALSE(root().IsMember(database));
}

TEST_F(DdrRoot, AFileWhoseDatabaseLeftTheContainerIsNoMember) {
  create("a.odb");
  root().Replace(ddr_DdbContainer());
  EXPECT_FALSE(root().IsMember(path("a.odb")));
  EXPECT_EQ(root().Fetch().Size(), 0);
  EXPECT_GT(root().GetPersistentName(path("a.odb")).Length(), 0U);
}

TEST_F(DdrRoot, KnowsThePersistentNameOfAFile) {
  cow_String const database = create("a.odb");
  EXPECT_EQ(root().GetPersistentName(path("a.odb")), database);
  EXPECT_EQ(record(database).GetName(), database);
}

TEST_F(DdrRoot, AnUnknownFileHasNoPersistentName) {
  create("a.odb");
  auto const error = caught<nex_TextException>([] { root().GetPersistentName("other.odb"); });
  EXPECT_STREQ(error.what(), "No ddb file by specified file name in container: 'other.odb'");
  EXPECT_STREQ(error.SourcePath(), "generated/ddr/impl/ddr_Root");
  EXPECT_GT(error.Line(), 0);
  EXPECT_EQ(root().Fetch().Size(), 1);
}

TEST_F(DdrRoot, AnEmptyFileNameIsQuotedAsItIs) {
  auto const error = caught<nex_TextException>([] { root().GetPersistentName(""); });
  EXPECT_STREQ(error.what(), "No ddb file by specified file name in container: ''");
}

TEST_F(DdrRoot, KnowsTheFileOfADatabase) {
  cow_String const first = create("a.odb");
  cow_String const second = create("b.odb");
  EXPECT_EQ(root().GetFileName(first), path("a.odb"));
  EXPECT_EQ(root().GetFileName(second), path("b.odb"));
}

TEST_F(DdrRoot, AnUnknownDatabaseHasNoFile) {
  create("a.odb");
  auto const error = caught<nex_TextException>([] { root().GetFileName("nobody"); });
  EXPECT_STREQ(error.what(), "No ddb file by specified persistent name in container: 'nobody'");
  EXPECT_STREQ(error.SourcePath(), "generated/ddr/impl/ddr_Root");
  EXPECT_GT(error.Line(), 0);
}

TEST_F(DdrRoot, OfTwoFilesWithOneNameTheFirstInKeyOrderIsGiven) {
  for (std::string const name : {"m.odb", "z.odb", "a.odb", "k.odb"}) {
    close(createSaved(name));
  }
  open("m.odb", utl_FileAccess::Write, "shared name");
  EXPECT_EQ(root().GetFileName("shared name"), path("m.odb"));
  open("z.odb", utl_FileAccess::Write, "shared name");
  EXPECT_EQ(root().GetFileName("shared name"), path("m.odb"));
  open("a.odb", utl_FileAccess::Write, "shared name");
  EXPECT_EQ(root().GetFileName("shared name"), path("a.odb"));
  open("k.odb", utl_FileAccess::Write, "shared name");
  EXPECT_EQ(root().GetFileName("shared name"), path("a.odb"));
}

TEST_F(DdrRoot, ADatabaseWithoutAFileHasAnEmptyFileNameThatStays) {
  ddr_DdbContainer container;
  container.Insert("memory", ddr_Ddb("memory", "id", ""));
  container.Insert("other", ddr_Ddb("other", "id", ""));
  root().Replace(container);
  cow_String const& none = root().GetFileName("memory");
  EXPECT_TRUE(none.IsEmpty());
  EXPECT_EQ(&none, &root().GetFileName("other"));
  root().Replace(ddr_DdbContainer());
  EXPECT_STREQ(none.Text(), "");
}

TEST_F(DdrRoot, AFetchedCopyDoesNotSeeLaterChanges) {
  create("a.odb");
  ddr_DdbContainer const before = root().Fetch();
  create("b.odb");
  EXPECT_EQ(before.Size(), 1);
  EXPECT_EQ(root().Fetch().Size(), 2);
}

TEST_F(DdrRoot, ReplaceSharesTheRecordsAndTheCount) {
  cow_String const database = create("a.odb");
  ddr_DdbContainer copy = root().Fetch();
  copy.Insert("memory", ddr_Ddb("memory", "id", ""));
  root().Replace(copy);
  EXPECT_EQ(root().Fetch().Size(), 2);
  EXPECT_EQ(&root().Fetch().ConstGet(database), &copy.ConstGet(database));
}

TEST_F(DdrRoot, AChangeOfTheGivenCopyAfterReplaceDoesNotShow) {
  cow_String const database = create("a.odb");
  ddr_DdbContainer copy = root().Fetch();
  root().Replace(copy);
  copy.Get(database).SetDescription("changed");
  EXPECT_STREQ(record(database).GetDescription().Text(), "a description");
}

TEST_F(DdrRoot, ReplaceByItsOwnContainerChangesNothing) {
  cow_String const database = create("a.odb");
  root().Replace(root().Fetch());
  EXPECT_EQ(root().Fetch().Size(), 1);
  EXPECT_TRUE(root().Fetch().IsMember(database));
}

TEST_F(DdrRoot, ReplaceLeavesFileNamesAndOpenRecords) {
  cow_String const database = create("a.odb");
  root().Replace(ddr_DdbContainer());
  EXPECT_EQ(root().GetPersistentName(path("a.odb")), database);
  EXPECT_EQ(root().GetOpenCount(database), 1);
}

TEST_F(DdrRoot, AnUnknownDatabaseWasNeverOpened) {
  EXPECT_EQ(root().GetOpenCount("nobody"), 0);
  EXPECT_FALSE(root().WasOpenedReadOnly("nobody"));
}

TEST_F(DdrRoot, NamesAreComparedAsBytes) {
  ddr_DdbContainer container;
  container.Insert("\xc3\xa9", ddr_Ddb("upper", "", ""));
  container.Insert("e", ddr_Ddb("lower", "", ""));
  container.Insert("", ddr_Ddb("empty", "", ""));
  root().Replace(container);
  EXPECT_STREQ(record("\xc3\xa9").GetName().Text(), "upper");
  EXPECT_STREQ(record("").GetName().Text(), "empty");
  EXPECT_EQ(keysOf(mdl_MapString2Obj<ddr_Result>()), Texts());
  Texts walked;
  for (cow_String const& key : root().Fetch().ConstGetMap().Keys()) {
    walked.emplace_back(key.Text());
  }
  EXPECT_EQ(walked, (Texts{"", "e", "\xc3\xa9"}));
}

TEST_F(DdrRoot, DatabasesAreNotSavedWhenTheRegistryGoes) {
  cow_String const database = createSaved("a.odb");
  addModels(database, {"unsaved"});
  thr_ThreadSingleton<ddr_Root>::Release();
  installClasses();
  EXPECT_EQ(modelNames(record(open("a.odb"))), Texts());
}

TEST_F(DdrRoot, FilesAreClosedWhenTheRegistryGoes) {
  int const before = openDescriptors();
  createSaved("a.odb");
  createSaved("b.odb");
  ASSERT_GT(openDescriptors(), before);
  thr_ThreadSingleton<ddr_Root>::Release();
  EXPECT_EQ(openDescriptors(), before);
}

/// A model that writes down when it is destroyed, and whether the registry could still be seen then.
class FarewellModel : public ddr_Model {
public:
  FarewellModel(Texts& seen, cow_String const& name) : farewells(&seen), database(name.View()) {}
  FarewellModel(FarewellModel const&) = default;
  FarewellModel& operator=(FarewellModel const&) = delete;
  ~FarewellModel() override {
    ddr_Root const* const registry = thr_ThreadSingletonBase<ddr_Root>::Instance();
    farewells->push_back(registry != nullptr && registry->GetClassRegistrar() != nullptr ? "with classes"
                                                                                         : "without classes");
    if (registry != nullptr) {
      farewells->push_back(std::to_string(registry->GetOpenCount(database)));
    }
  }
  FarewellModel* Copy() const override { return new FarewellModel(*this); }

private:
  Texts* farewells;
  cow_String database;
};

TEST_F(DdrRoot, RecordsGoBeforeTheOpenRecordsAndTheClassRegistrar) {
  Texts seen;
  cow_String const database = create("a.odb");
  {
    ddr_DdbContainer container = root().Fetch();
    container.Get(database).models.Insert("m", new FarewellModel(seen, database));
    root().Replace(container);
  }
  thr_ThreadSingleton<ddr_Root>::Release();
  EXPECT_EQ(seen, (Texts{"with classes", "1"}));
}

} // namespace
