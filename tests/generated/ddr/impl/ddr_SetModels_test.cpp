// Taking over a whole collection of models, from memory, from this file and from another.
#include "ddr_ModuleTest.h"

namespace {

class DdrSetModels : public ddr_ModuleTest {
protected:
  cow_String createWithModels(std::string const& name, Texts const& models) {
    cow_String const made = create(name);
    addModels(made, models);
    save(made);
    return reopen(made, name);
  }

  static Texts owners(ddr_Ddb const& database) {
    Texts found;
    for (std::string const& name : modelNames(database)) {
      found.emplace_back(database.models.ConstGet(cow_String(name)).GetDatabase().Text());
    }
    return found;
  }

  std::uint64_t rowsWrittenBySave(cow_String const& database) {
    auto const& statistics = record(database).GetTransporter()->File().Statistics();
    auto const before = statistics.rowsWritten;
    save(database);
    return statistics.rowsWritten - before;
  }
};

TEST_F(DdrSetModels, EveryModelBelongsToTheDatabaseAfterwards) {
  ddr_ModelContainer models;
  models.Insert("a", ddr_Model("elsewhere", "a"));
  models.Insert("b", ddr_Model("", "b"));
  ddr_Ddb record("n", "the dbId", "");
  record.SetModels(models);
  EXPECT_EQ(owners(record), (Texts{"the dbId", "the dbId"}));
}

TEST_F(DdrSetModels, TheGivenCollectionIsLeftAsItWas) {
  ddr_ModelContainer models;
  models.Insert("a", ddr_Model("elsewhere", "a"));
  ddr_Ddb record("n", "the dbId", "");
  record.SetModels(models);
  EXPECT_STREQ(models.ConstGet("a").GetDatabase().Text(), "elsewhere");
}

TEST_F(DdrSetModels, FormerModelsAreGone) {
  ddr_Ddb record("n", "the dbId", "");
  record.models.Insert("former", ddr_Model());
  ddr_ModelContainer models;
  models.Insert("a", ddr_Model());
  record.SetModels(models);
  EXPECT_EQ(modelNames(record), Texts{"a"});
}

TEST_F(DdrSetModels, TheOwnCollectionCanBeGiven) {
  ddr_Ddb record("n", "the dbId", "");
  record.models.Insert("a", ddr_Model("elsewhere", "a"));
  record.SetModels(record.models);
  EXPECT_EQ(owners(record), Texts{"the dbId"});
}

TEST_F(DdrSetModels, ModelsOfTheOwnFileStayBoundAndUnchanged) {
  cow_String const database = createWithModels("a.odb", {"m", "n"});
  EXPECT_EQ(rowsWrittenBySave(database), 1U);
  change(database, [](ddr_Ddb& changed) { changed.SetModels(changed.models); });
  ddr_ModelContainer const& models = record(database).models;
  EXPECT_TRUE(models.BelongsTo(record(database).GetTransporter()->StoreIdentity()));
  EXPECT_FALSE(models.IsChanged());
  EXPECT_EQ(rowsWrittenBySave(database), 1U);
}

TEST_F(DdrSetModels, ModelsOfTheOwnFileGetTheirOwnerBackWithoutBeingWritten) {
  cow_String const database = createWithModels("a.odb", {"m"});
  ddr_ModelContainer models = record(database).models;
  models.AdjustUnstored([](ddr_Model const&) { return true; },
                        [](ddr_Model& model) { model.SetDatabase("elsewhere"); });
  change(database, [&](ddr_Ddb& changed) { changed.SetModels(models); });
  EXPECT_EQ(owners(record(database)), Texts{folder.path("a.odb")});
  EXPECT_EQ(rowsWrittenBySave(database), 1U);
}

TEST_F(DdrSetModels, AChangeOfTheOwnFilesModelsIsStillWritten) {
  cow_String const database = createWithModels("a.odb", {"m", "n"});
  change(database, [](ddr_Ddb& changed) {
    ddr_ModelContainer models = changed.models;
    models.Insert("added", ddr_Model("", "added"));
    models.Remove("n");
    changed.SetModels(models);
  });
  save(database);
  EXPECT_EQ(modelNames(record(reopen(database, "a.odb"))), (Texts{"added", "m"}));
}

TEST_F(DdrSetModels, ModelsOfAnotherFileAreWrittenWholeIntoThisOne) {
  cow_String const source = createWithModels("source.odb", {"m", "n"});
  cow_String const target = createWithModels("target.odb", {"former"});
  change(target, [&](ddr_Ddb& changed) { changed.SetModels(record(source).models); });
  EXPECT_NE(record(target).models.Uid(), record(source).models.Uid());
  EXPECT_EQ(owners(record(target)), (Texts{folder.path("target.odb"), folder.path("target.odb")}));
  save(target);
  cow_String const again = reopen(target, "target.odb");
  EXPECT_EQ(modelNames(record(again)), (Texts{"m", "n"}));
  EXPECT_STREQ(record(again).models.ConstGet("n").GetName().Text(), "n");
}

TEST_F(DdrSetModels, TheOtherFileIsNeverWritten) {
  cow_String const source = createWithModels("source.odb", {"m"});
  std::string const bytes = readFile(folder.path("source.odb"));
  cow_String const target = create("target.odb");
  change(target, [&](ddr_Ddb& changed) {
    changed.SetModels(record(source).models);
    changed.models.Get("m");
    changed.models.Insert("added", ddr_Model());
  });
  save(target);
  EXPECT_EQ(readFile(folder.path("source.odb")), bytes);
  EXPECT_EQ(modelNames(record(source)), Texts{"m"});
  EXPECT_EQ(owners(record(source)), Texts{folder.path("source.odb")});
}

TEST_F(DdrSetModels, TheOtherFileMayBeClosedAfterwards) {
  cow_String const source = createWithModels("source.odb", {"m"});
  cow_String const target = create("target.odb");
  change(target, [&](ddr_Ddb& changed) { changed.SetModels(record(source).models); });
  close(source);
  save(target);
  EXPECT_EQ(modelNames(record(reopen(target, "target.odb"))), Texts{"m"});
}

TEST_F(DdrSetModels, ModelsOfAClosedFileThatWereNotReadAreRefusedByFile) {
  cow_String const source = createWithModels("source.odb", {"m"});
  ddr_ModelContainer const models = record(source).models;
  close(source);
  ddr_Ddb record("n", "the dbId", "");
  auto const error = caught<nex_TextException>([&] { record.SetModels(models); });
  EXPECT_THAT(error.what(), testing::HasSubstr(folder.path("source.odb")));
  EXPECT_EQ(modelNames(record), Texts());
}

TEST_F(DdrSetModels, AnAssignedCollectionOfAnotherFileIsTakenOverByTheSave) {
  cow_String const source = createWithModels("source.odb", {"m", "n"});
  std::string const bytes = readFile(folder.path("source.odb"));
  cow_String const target = create("target.odb");
  change(target, [&](ddr_Ddb& changed) { changed.models = record(source).models; });
  save(target);
  EXPECT_EQ(readFile(folder.path("source.odb")), bytes);
  close(source);
  EXPECT_EQ(modelNames(record(reopen(target, "target.odb"))), (Texts{"m", "n"}));
}

TEST_F(DdrSetModels, AModelTakenOutOfAnotherFileCarriesItsIdentity) {
  cow_String const source = createWithModels("source.odb", {"m"});
  cls_Uid const uid = record(source).models.ConstGet("m").GetUid();
  cow_String const target = create("target.odb");
  change(target, [&](ddr_Ddb& changed) { changed.SetModels(record(source).models); });
  save(target);
  EXPECT_EQ(record(reopen(target, "target.odb")).models.ConstGet("m").GetUid(), uid);
}

} // namespace
