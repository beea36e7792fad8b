// Closing databases, and destroying what shares them in every order.
#include "ddr_ModuleTest.h"

#include <optional>

namespace {

class DdrClose : public ddr_ModuleTest {
protected:
  /// A saved database with one model that is not in memory.
  cow_String openWithModel(std::string const& name) {
    cow_String const made = create(name);
    addModels(made, {"m"});
    change(made, [](ddr_Ddb& changed) { changed.results.Insert("r", ddr_Result()); });
    save(made);
    return reopen(made, name);
  }

  void expectDetached(ddr_ModelContainer const& models, std::string const& name) {
    EXPECT_EQ(models.Size(), 1);
    auto const error = caught<nex_TextException>([&] { models.ConstGet("m"); });
    EXPECT_THAT(error.what(), testing::HasSubstr(folder.path(name)));
  }
};

TEST_F(DdrClose, AnUnknownDatabaseIsRefusedAndNothingChanges) {
  cow_String const database = create("a.odb");
  auto const error = caught<nex_TextException>([] { close("nobody"); });
  EXPECT_STREQ(error.what(), "No ddb file by specified persistent name in container: 'nobody'");
  EXPECT_STREQ(error.SourcePath(), "generated/ddr/impl/ddr_Root");
  EXPECT_TRUE(root().IsMember(path("a.odb")));
  EXPECT_TRUE(root().Fetch().IsMember(database));
}

TEST_F(DdrClose, OneCloseEndsEveryOpening) {
  close(createSaved("a.odb"));
  cow_String const database = open("a.odb", utl_FileAccess::Read);
  open("a.odb", utl_FileAccess::Read);
  close(database);
  EXPECT_FALSE(root().IsMember(path("a.odb")));
  EXPECT_FALSE(root().Fetch().IsMember(database));
  EXPECT_THROW(root().GetPersistentName(path("a.odb")), nex_TextException);
}

TEST_F(DdrClose, TheOpenRecordStaysUntilTheFileIsOpenedAgain) {
  close(createSaved("a.odb"));
  cow_String const database = open("a.odb", utl_FileAccess::Read);
  open("a.odb", utl_FileAccess::Read);
  close(database);
  EXPECT_EQ(root().GetOpenCount(database), 2);
  EXPECT_TRUE(root().WasOpenedReadOnly(database));
  open("a.odb", utl_FileAccess::Write);
  EXPECT_EQ(root().GetOpenCount(database), 1);
  EXPECT_FALSE(root().WasOpenedReadOnly(database));
}

TEST_F(DdrClose, DoesNotSave) {
  cow_String const database = createSaved("a.odb");
  addModels(database, {"unsaved"});
  std::string const bytes = readFile(folder.path("a.odb"));
  close(database);
  EXPECT_EQ(readFile(folder.path("a.odb")), bytes);
}

TEST_F(DdrClose, ClosesTheFile) {
  int const before = openDescriptors();
  cow_String const database = createSaved("a.odb");
  ASSERT_GT(openDescriptors(), before);
  close(database);
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(DdrClose, OtherDatabasesStay) {
  cow_String const first = createSaved("a.odb");
  cow_String const second = createSaved("b.odb");
  close(first);
  EXPECT_TRUE(root().IsMember(path("b.odb")));
  save(second);
}

TEST_F(DdrClose, TheNameThatTheRecordHoldsCanBeGiven) {
  cow_String const database = createSaved("a.odb");
  close(record(database).GetName());
  EXPECT_EQ(root().Fetch().Size(), 0);
}

TEST_F(DdrClose, TheNameThatTheRegistryHoldsCanBeGiven) {
  createSaved("a.odb");
  root().CloseDdb(root().GetPersistentName(path("a.odb")));
  EXPECT_EQ(root().Fetch().Size(), 0);
}

TEST_F(DdrClose, OfTwoFilesWithOneNameTheFirstIsForgotten) {
  close(createSaved("a.odb"));
  close(createSaved("b.odb"));
  open("b.odb", utl_FileAccess::Write, "shared name");
  open("a.odb", utl_FileAccess::Write, "shared name");
  close("shared name");
  EXPECT_FALSE(root().IsMember(path("a.odb")));
  EXPECT_FALSE(root().IsMember(path("b.odb")));
  EXPECT_EQ(root().GetPersistentName(path("b.odb")), cow_String("shared name"));
}

TEST_F(DdrClose, ADatabaseWithoutAFileCanBeClosed) {
  ddr_DdbContainer container;
  container.Insert("memory", ddr_Ddb("memory", "id", ""));
  root().Replace(container);
  close("memory");
  EXPECT_EQ(root().Fetch().Size(), 0);
}

TEST_F(DdrClose, ACopyOfTheContainerKeepsTheDatabaseReadable) {
  cow_String const database = openWithModel("a.odb");
  ddr_DdbContainer const copy = root().Fetch();
  close(database);
  EXPECT_STREQ(copy.ConstGet(database).models.ConstGet("m").GetName().Text(), "m");
}

TEST_F(DdrClose, TheObjectCacheIsClearedThoughACopyLives) {
  cow_String const database = openWithModel("a.odb");
  ddr_DdbContainer const copy = root().Fetch();
  rom_CowBarn& cache = copy.ConstGet(database).GetTransporter()->ObjectCache();
  auto const before = cache.Generation();
  close(database);
  EXPECT_EQ(cache.Generation(), before + 1);
}

TEST_F(DdrClose, ACopyGivenBackMakesTheDatabaseSavableAgain) {
  cow_String const database = openWithModel("a.odb");
  ddr_DdbContainer copy = root().Fetch();
  close(database);
  copy.Get(database).models.Insert("n", ddr_Model());
  root().Replace(copy);
  save(database);
  close(database);
  copy = ddr_DdbContainer();
  EXPECT_EQ(modelNames(record(open("a.odb"))), (Texts{"m", "n"}));
}

TEST_F(DdrClose, ACollectionThatOutlivesItsFileIsDetached) {
  cow_String const database = openWithModel("a.odb");
  ddr_ModelContainer const models = record(database).models;
  close(database);
  expectDetached(models, "a.odb");
}

TEST_F(DdrClose, ARecordThatWasReadOutlivesItsFile) {
  cow_String const database = openWithModel("a.odb");
  record(database).models.ConstGet("m");
  ddr_ModelContainer const models = record(database).models;
  ddr_ResultContainer const results = record(database).results;
  close(database);
  EXPECT_STREQ(models.ConstGet("m").GetName().Text(), "m");
  EXPECT_TRUE(results.IsMember("r"));
}

TEST_F(DdrClose, AModelThatWasCopiedOutlivesItsFile) {
  cow_String const database = openWithModel("a.odb");
  ddr_Model const model = record(database).models.ConstGet("m");
  close(database);
  EXPECT_STREQ(model.GetName().Text(), "m");
}

TEST_F(DdrClose, ARecordCopyKeepsTheFileUntilItGoes) {
  int const before = openDescriptors();
  cow_String const database = openWithModel("a.odb");
  std::optional<ddr_Ddb> copy(record(database));
  close(database);
  EXPECT_GT(openDescriptors(), before);
  EXPECT_STREQ(copy->models.ConstGet("m").GetName().Text(), "m");
  ddr_ModelContainer const models = copy->models;
  models.Release();
  copy.reset();
  EXPECT_EQ(openDescriptors(), before);
  expectDetached(models, "a.odb");
}

/// What may hold a database besides the registry; destroyed in every order.
enum class Holder { Registry, Container, Record, Models };

TEST_F(DdrClose, EveryOrderOfDestructionIsSafe) {
  int const descriptors = openDescriptors();
  std::vector<Holder> order = {Holder::Registry, Holder::Container, Holder::Record, Holder::Models};
  int orders = 0;
  do {
    std::string const file = "order" + std::to_string(orders++) + ".odb";
    cow_String const database = openWithModel(file);
    std::optional<ddr_DdbContainer> container(root().Fetch());
    std::optional<ddr_Ddb> copy(record(database));
    std::optional<ddr_ModelContainer> models(record(database).models);
    int holdingFile = 3;
    for (Holder const holder : order) {
      switch (holder) {
      case Holder::Registry:
        close(database);
        --holdingFile;
        break;
      case Holder::Container:
        container.reset();
        --holdingFile;
        break;
      case Holder::Record:
        copy.reset();
        --holdingFile;
        break;
      case Holder::Models:
        models.reset();
        break;
      }
      if (models && holdingFile == 0) {
        expectDetached(*models, file);
      }
    }
    EXPECT_EQ(openDescriptors(), descriptors);
  } while (std::ranges::next_permutation(order).found);
  EXPECT_EQ(orders, 24);
}

TEST_F(DdrClose, CopiesOutliveTheStopOfTheModule) {
  cow_String const database = openWithModel("a.odb");
  std::optional<ddr_DdbContainer> container(root().Fetch());
  std::optional<ddr_ModelContainer> models(record(database).models);
  ddr_finalize(libraries);
  EXPECT_STREQ(container->ConstGet(database).models.ConstGet("m").GetName().Text(), "m");
  models->Release();
  container.reset();
  expectDetached(*models, "a.odb");
  models.reset();
  ddr_initialize(libraries); // the fixture stops it
}

TEST_F(DdrClose, OpeningAndClosingManyTimesLeavesNothingBehind) {
  cow_String const database = openWithModel("a.odb");
  close(database);
  int const before = openDescriptors();
  for (int time = 0; time < 200; ++time) {
    close(open("a.odb", time % 2 == 0 ? utl_FileAccess::Read : utl_FileAccess::Write));
  }
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(root().Fetch().Size(), 0);
}

} // namespace
