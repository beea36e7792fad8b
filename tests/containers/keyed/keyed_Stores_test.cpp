// Collections whose copies belong to different stores, or to none, and saves that fail in between.
#include "database_test.h"

#include "ddr_Result.h"
#include "rom_Memento.h"
#include "rom_Transporter.h"

#include <gtest/gtest.h>
#include <string>

namespace {

class keyed_Stores : public database_test {
protected:
  void fill(cow_String const& name) {
    for (char const* model : {"M1", "M2", "M3"}) {
      writeModel(name, model, model);
    }
  }
  std::string storedModels(std::string const& file) const {
    std::string const all = stored(file);
    return all.substr(0, all.find('|'));
  }
};

TEST_F(keyed_Stores, ReleaseAfterTheFirstSaveLeavesAnEarlierCopyWhole) {
  cow_String const name = create("a");
  fill(name);
  ddr_DdbContainer const earlier = root().Fetch();
  save(name);
  record(name).models.Release();
  EXPECT_EQ(earlier.ConstGet(name).models.ConstGet("M2").GetName(), cow_String("M2"));
}

TEST_F(keyed_Stores, ReleaseOfTheSourceLeavesACollectionTakenOverWhole) {
  cow_String const source = create("a");
  fill(source);
  save(source);
  cow_String const target = create("b");
  ddr_ModelContainer const models = record(source).models;
  edit(target, [&](ddr_Ddb& database) { database.SetModels(models); });
  record(source).models.Release();
  save(target);
  EXPECT_EQ(storedModels("b"), storedModels("a"));
}

TEST_F(keyed_Stores, ReleaseAfterTheFileIsClosedKeepsWhatIsLoaded) {
  cow_String const name = create("a");
  fill(name);
  save(name);
  ddr_ModelContainer const copy = record(name).models;
  close(name);
  copy.Release();
  copy.Release("M1");
  EXPECT_EQ(copy.ConstGet("M1").GetName(), cow_String("M1"));
}

TEST_F(keyed_Stores, RemoveTakesAKeyThatStandsInTheCollection) {
  cow_String const name = create("a");
  save(name);
  edit(name, [&](ddr_Ddb& database) {
    cow_String const key("a name that is longer than sixteen bytes");
    database.models.Insert(key, ddr_Model(database.GetDbId(), key));
  });
  edit(name, [](ddr_Ddb& database) {
    cls_Map2ObjIter walk(database.models);
    walk.First();
    EXPECT_TRUE(database.models.Remove(walk.Key()));
    EXPECT_EQ(database.models.Size(), 0);
  });
}

TEST_F(keyed_Stores, NoRecordIsRefused) {
  cow_String const name = create("a");
  edit(name, [](ddr_Ddb& database) {
    EXPECT_THROW(database.models.Insert("M", static_cast<ddr_Model*>(nullptr)), nex_AssertException);
    EXPECT_THROW(database.results.Insert("R", static_cast<ddr_Result*>(nullptr)), nex_AssertException);
    EXPECT_FALSE(database.models.IsMember("M"));
    EXPECT_FALSE(database.results.IsMember("R"));
  });
}

TEST_F(keyed_Stores, ARemovedKeyStaysRemovedAfterAFailedSave) {
  cow_String const name = create("a");
  fill(name);
  save(name);
  edit(name, [](ddr_Ddb& database) {
    database.models.Remove("M1");
    database.SetDescription("\xff"); // cannot be stored
  });
  EXPECT_NE(failureOf([&] { save(name); }), "nothing");
  EXPECT_THROW(record(name).models.ConstGet("M1"), omu_AccessErrorException);
  edit(name, [](ddr_Ddb& database) { database.SetDescription("text"); });
  save(name);
  EXPECT_EQ(storedModels("a").find("M1"), std::string::npos);
}

TEST_F(keyed_Stores, AFlushAfterAFailedFirstSaveIsRefusedAndTheNextSaveWritesAll) {
  cow_String const name = create("a");
  fill(name);
  edit(name, [](ddr_Ddb& database) { database.SetDescription("\xff"); });
  EXPECT_NE(failureOf([&] { save(name); }), "nothing");
  edit(name, [&](ddr_Ddb& database) {
    EXPECT_NE(failureOf([&] { database.models.Flush(); }).find("does not hold this collection yet"),
              std::string::npos);
    database.SetDescription("text");
  });
  save(name);
  EXPECT_EQ(stored("a"), contents(name));
  EXPECT_NE(storedModels("a").find("M3"), std::string::npos);
}

TEST_F(keyed_Stores, TwoCollectionsWithOneHeaderAreRefused) {
  cow_String const name = create("a");
  save(name);
  close(name);
  std::string const path = pathOf("a").Text();
  runSql(path, "UPDATE " + tableOf(path, ddr_Ddb::TypeId()) + " SET \"results#OID\" = \"models#OID\"");
  EXPECT_NE(failureOf([&] { open("a"); }).find("two collections share this row"), std::string::npos);
}

TEST_F(keyed_Stores, EndingAWriteTwiceIsRefused) {
  cow_String const name = create("a");
  rom_Transporter& transporter = *record(name).GetTransporter();
  rom_MementoWrite memento(transporter, ddr_Ddb::TypeId(), -1);
  cls_WriteVisitor visitor(memento);
  record(name).DBWrite(visitor);
  visitor.End();
  EXPECT_THROW(visitor.End(), nex_AssertException);
}

} // namespace
