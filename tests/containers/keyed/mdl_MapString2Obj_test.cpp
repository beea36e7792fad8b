// mdl_MapString2Obj: records by name, always loaded.
#include "ddr_Forward.h"
#include "ddr_Result.h"
#include "mdl_MapString2Obj.h"
#include "recording_rows.h"

#include <gtest/gtest.h>
#include <string>

namespace {

using Results = mdl_MapString2Obj<ddr_Result>;

std::string names(Results const& results) {
  std::string text;
  for (mdl_MapString2ObjIT<ddr_Result> walk(results); !walk.AtEnd(); walk.Next()) {
    text += std::string(walk.Key().Text()) + " ";
  }
  return text;
}

TEST(mdl_MapString2Obj, InsertingTwiceKeepsTheSecond) {
  Results results;
  ddr_Result const second;
  EXPECT_TRUE(results.Insert("R", ddr_Result()));
  EXPECT_TRUE(results.Insert("R", second));
  EXPECT_EQ(results.Size(), 1);
  EXPECT_EQ(results.ConstGet("R").GetUid(), second.GetUid());
}

TEST(mdl_MapString2Obj, WriteOfARefusedMapStopsAtOnce) {
  Results results;
  results.Insert("R", ddr_Result());
  sink_answers answers;
  answers.refused = {""};
  recording_sink sink(answers);
  results.DBWrite(cls_WriteVisitor(sink));
  ASSERT_EQ(sink.calls().size(), 1U);
  EXPECT_EQ(sink.calls().front().substr(0, 5), "Start");
}

TEST(mdl_MapString2Obj, InsertAdoptsAPointer) {
  Results results;
  auto* const given = new ddr_Result();
  EXPECT_TRUE(results.Insert("R", given));
  EXPECT_EQ(&results.ConstGet("R"), given);
}

TEST(mdl_MapString2Obj, IsMarkedByInsertAndGetMap) {
  Results results;
  EXPECT_FALSE(results.IsChanged());
  Results inserted = results;
  inserted.Insert("R", ddr_Result());
  EXPECT_TRUE(inserted.IsChanged());
  Results viaMap = results;
  viaMap.GetMap();
  EXPECT_TRUE(viaMap.IsChanged());
  Results read;
  read.GetMap();
  EXPECT_FALSE(results.Remove("absent"));
  EXPECT_FALSE(results.IsChanged());
}

TEST(mdl_MapString2Obj, GetUnsharesTheRecord) {
  Results first;
  first.Insert("R", ddr_Result());
  Results second = first;
  EXPECT_EQ(&first.ConstGet("R"), &second.ConstGet("R"));
  ddr_Result const& written = second.Get("R");
  EXPECT_NE(&first.ConstGet("R"), &written);
}

TEST(mdl_MapString2Obj, ChangingACopyLeavesTheSource) {
  Results first;
  first.Insert("A", ddr_Result());
  Results second = first;
  second.Insert("B", ddr_Result());
  second.Remove("A");
  EXPECT_EQ(names(first), "A ");
  EXPECT_EQ(names(second), "B ");
}

TEST(mdl_MapString2Obj, UnknownNameThrowsNamingIt) {
  Results results;
  for (bool const write : {false, true}) {
    try {
      write ? static_cast<void>(results.Get("Nobody")) : static_cast<void>(results.ConstGet("Nobody"));
      ADD_FAILURE() << "no exception";
    } catch (omu_AccessErrorException const& error) {
      EXPECT_NE(std::string(error.what()).find("Nobody"), std::string::npos);
    }
  }
  EXPECT_FALSE(results.IsChanged());
}

TEST(mdl_MapString2Obj, WalksInByteOrder) {
  Results results;
  for (char const* const name : {"b", "a10", "", "a2"}) {
    results.Insert(name, ddr_Result());
  }
  EXPECT_EQ(names(results), " a10 a2 b ");
  mdl_MapString2ObjIT<ddr_Result> walk(results);
  walk.Last();
  EXPECT_EQ(walk.Key(), cow_String("b"));
  walk.Prev();
  EXPECT_EQ(walk.Key(), cow_String("a2"));
}

TEST(mdl_MapString2Obj, NewCollectionsHaveIdentitiesOfTheirOwn) {
  Results first;
  Results second;
  EXPECT_FALSE(first.Uid() == second.Uid());
  EXPECT_FALSE(first.Uid().IsNone());
  EXPECT_EQ(Results(first).Uid(), first.Uid());
}

} // namespace
