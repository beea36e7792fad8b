// Saving databases.
#include "ddr_ModuleTest.h"

#include "omu_Exceptions.h"
#include "rfm_Exception.h"
#include "rom_ODBHeaderParser.h"

namespace {

class DdrSave : public ddr_ModuleTest {
protected:
  /// The modify times of all stored records.
  std::vector<int> storedTimes(std::string const& name) {
    rfm_Database database = rfm_Database::Open(rfm_File::Open(path(name), utl_FileAccess::Read, true), "D0");
    database.Bind();
    rfm_Table table = database.Table(ddr_Ddb::TypeId());
    std::vector<int> times;
    for (int row = 0; row < table.Length(); ++row) {
      times.push_back(table.ReadRow(row).ReadFieldInt("modifyTime"));
    }
    return times;
  }
};

TEST_F(DdrSave, AnUnknownDatabaseIsAnAccessError) {
  auto const error = caught<omu_AccessErrorException>([] { save("nobody"); });
  EXPECT_EQ(error.Key(), cow_String("nobody"));
}

TEST_F(DdrSave, EachSaveAppendsOneRecord) {
  setClock(100);
  cow_String const database = create("a.odb");
  EXPECT_EQ(storedTimes("a.odb"), std::vector<int>());
  for (int time = 101; time < 104; ++time) {
    setClock(time);
    save(database);
  }
  EXPECT_EQ(storedTimes("a.odb"), (std::vector<int>{101, 102, 103}));
}

TEST_F(DdrSave, ASaveThatUpdatesTheTimeStampsTheRecord) {
  setClock(100);
  cow_String const database = create("a.odb");
  setClock(200);
  save(database, true);
  EXPECT_EQ(record(database).GetModifyTime(), 200);
  EXPECT_EQ(record(database).GetCreationTime(), 100);
}

TEST_F(DdrSave, ASaveThatLeavesTheTimeAloneSwitchesStampingOffForGood) {
  setClock(100);
  cow_String const database = create("a.odb");
  setClock(200);
  save(database, false);
  EXPECT_FALSE(record(database).GetUpdateModifyTime());
  setClock(300);
  save(database, true);
  EXPECT_FALSE(record(database).GetUpdateModifyTime());
  EXPECT_EQ(storedTimes("a.odb"), (std::vector<int>{100, 100}));
  EXPECT_EQ(record(database).GetModifyTime(), 100);
}

TEST_F(DdrSave, StampingIsOnAgainAfterOpeningAnew) {
  setClock(100);
  cow_String const database = create("a.odb");
  save(database, false);
  cow_String const again = reopen(database, "a.odb");
  setClock(300);
  save(again, true);
  EXPECT_EQ(storedTimes("a.odb"), (std::vector<int>{100, 300}));
}

TEST_F(DdrSave, ADatabaseOpenedForReadingIsRefusedBeforeItIsStamped) {
  setClock(100);
  close(createSaved("a.odb"));
  cow_String const database = open("a.odb", utl_FileAccess::Read);
  std::string const bytes = readFile(folder.path("a.odb"));
  setClock(500);
  auto const error = caught<nex_TextException>([&] { save(database); });
  EXPECT_THAT(error.what(), testing::HasSubstr(folder.path("a.odb")));
  EXPECT_EQ(record(database).GetModifyTime(), 100);
  EXPECT_EQ(readFile(folder.path("a.odb")), bytes);
}

TEST_F(DdrSave, ADatabaseWithoutAFileIsRefusedByName) {
  ddr_DdbContainer container;
  container.Insert("memory", ddr_Ddb("memory", "the identity", ""));
  root().Replace(container);
  EXPECT_THAT(caught<nex_TextException>([] { save("memory"); }).what(), testing::HasSubstr("the identity"));
}

TEST_F(DdrSave, TheObjectCacheIsClearedBeforeAndAfter) {
  cow_String const database = create("a.odb");
  rom_CowBarn& cache = record(database).GetTransporter()->ObjectCache();
  auto const before = cache.Generation();
  save(database);
  EXPECT_EQ(cache.Generation(), before + 2);
  EXPECT_EQ(cache.Size(), 0);
}

TEST_F(DdrSave, ARecordThatACopyOfTheContainerSharesIsUnshared) {
  cow_String const database = create("a.odb");
  ddr_DdbContainer const copy = root().Fetch();
  setClock(4000000);
  save(database);
  EXPECT_NE(&copy.ConstGet(database), &record(database));
  EXPECT_NE(copy.ConstGet(database).GetModifyTime(), 4000000);
  EXPECT_EQ(record(database).GetModifyTime(), 4000000);
}

TEST_F(DdrSave, ASecondSaveWithNothingChangedWritesTheRecordAlone) {
  cow_String const database = create("a.odb");
  Texts names;
  for (int number = 0; number < 50; ++number) {
    names.push_back("Model-" + std::to_string(number));
  }
  addModels(database, names);
  save(database);
  auto const& statistics = record(database).GetTransporter()->File().Statistics();
  auto const before = statistics.rowsWritten;
  save(database);
  EXPECT_EQ(statistics.rowsWritten, before + 1);
}

TEST_F(DdrSave, ASaveOfOneChangedModelWritesAsMuchWhateverTheirNumber) {
  auto const written = [this](int count) {
    std::string const file = std::to_string(count) + ".odb";
    cow_String const database = create(file);
    Texts names;
    for (int number = 0; number < count; ++number) {
      names.push_back("Model-" + std::to_string(number));
    }
    addModels(database, names);
    save(database);
    cow_String const again = reopen(database, file);
    auto const& statistics = record(again).GetTransporter()->File().Statistics();
    auto const before = statistics.rowsWritten;
    change(again, [](ddr_Ddb& changed) { changed.models.Get("Model-3").SetDatabase("elsewhere"); });
    save(again);
    return statistics.rowsWritten - before;
  };
  EXPECT_EQ(written(200), written(10));
}

TEST_F(DdrSave, ModelsOfTheSavedRecordAreWritten) {
  cow_String const database = create("a.odb");
  addModels(database, {"b", "a"});
  save(database);
  addModels(database, {"c"});
  change(database, [](ddr_Ddb& changed) { changed.models.Remove("a"); });
  save(database);
  EXPECT_EQ(modelNames(record(reopen(database, "a.odb"))), (Texts{"b", "c"}));
}

TEST_F(DdrSave, AFailedSaveLeavesTheFileAndCanBeRepeated) {
  cow_String const database = createSaved("a.odb");
  addModels(database, {"m"});
  change(database, [](ddr_Ddb& changed) { changed.SetDescription("\xff no text"); });
  std::string const bytes = readFile(folder.path("a.odb"));
  EXPECT_THROW(save(database), nex_TextException);
  EXPECT_EQ(readFile(folder.path("a.odb")), bytes);
  change(database, [](ddr_Ddb& changed) { changed.SetDescription("a text"); });
  save(database);
  cow_String const again = reopen(database, "a.odb");
  EXPECT_EQ(modelNames(record(again)), Texts{"m"});
  EXPECT_STREQ(record(again).GetDescription().Text(), "a text");
}

} // namespace
