// mdl_Container: objects by key, in memory only.
#include "ddr_Forward.h"
#include "ddr_Result.h"
#include "mdl_Container.h"
#include "nex_Exception.h"

#include <gtest/gtest.h>
#include <string>

namespace {

using Container = mdl_Container<cow_String, ddr_Result>;

TEST(mdl_Container, InsertCopiesAReferenceAndAdoptsAPointer) {
  Container container;
  ddr_Result const given;
  auto* const adopted = new ddr_Result();
  EXPECT_TRUE(container.Insert("copied", given));
  EXPECT_TRUE(container.Insert("adopted", adopted));
  EXPECT_NE(&container.ConstGet("copied"), &given);
  EXPECT_EQ(&container.ConstGet("adopted"), adopted);
  EXPECT_EQ(container.Size(), 2);
}

TEST(mdl_Container, NoObjectIsRefused) {
  Container container;
  EXPECT_THROW(container.Insert("a", static_cast<ddr_Result*>(nullptr)), nex_AssertException);
  EXPECT_FALSE(container.IsMember("a"));
}

TEST(mdl_Container, InsertReplaces) {
  Container container;
  ddr_Result const second;
  container.Insert("k", ddr_Result());
  EXPECT_TRUE(container.Insert("k", second));
  EXPECT_EQ(container.ConstGet("k").GetUid(), second.GetUid());
  EXPECT_EQ(container.Size(), 1);
}

TEST(mdl_Container, UnknownKeyThrowsNamingIt) {
  Container container;
  for (bool const write : {false, true}) {
    try {
      write ? static_cast<void>(container.Get("Nobody")) : static_cast<void>(container.ConstGet("Nobody"));
      ADD_FAILURE() << "no exception";
    } catch (omu_AccessErrorException const& error) {
      EXPECT_NE(std::string(error.what()).find("Nobody"), std::string::npos);
    }
  }
  EXPECT_EQ(container.Size(), 0);
}

TEST(mdl_Container, GetUnsharesTheObject) {
  Container first;
  first.Insert("k", ddr_Result());
  Container second = first;
  EXPECT_EQ(&first.ConstGet("k"), &second.ConstGet("k"));
  EXPECT_NE(&second.Get("k"), &first.ConstGet("k"));
}

TEST(mdl_Container, RemoveAndClearLeaveCopiesAlone) {
  Container first;
  first.Insert("a", ddr_Result());
  first.Insert("b", ddr_Result());
  Container second = first;
  EXPECT_TRUE(second.Remove("a"));
  EXPECT_FALSE(second.Remove("a"));
  EXPECT_FALSE(second.IsMember("a"));
  second.Clear();
  EXPECT_EQ(second.Size(), 0);
  EXPECT_EQ(first.Size(), 2);
}

TEST(mdl_Container, WalkKeepsWhatItWalks) {
  Container container;
  for (char const* const key : {"b", "c", "a"}) {
    container.Insert(key, ddr_Result());
  }
  mdl_ContainerIter walk(container);
  container.Clear();
  std::string keys;
  for (; !walk.AtEnd(); walk.Next()) {
    keys += walk.Key().Text();
  }
  EXPECT_EQ(keys, "abc");
}

} // namespace
