// Building a tree from ascending keys: the same tree, without the work.
#include "cow_BtreeBuilder.h"

#include "Shape.h"
#include "Tracked.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

cow_String key(int number) {
  char text[16];
  std::snprintf(text, sizeof text, "%06d", number);
  return cow_String(text);
}

TEST(BtreeBuilder, BuildsTheTreeThatInsertingBuilds) {
  for (int size = 0; size <= 1200; size = size < 80 ? size + 1 : size + 37) {
    cow_Btree<cow_String, int> inserted;
    cow_BtreeBuilder<cow_String, int> builder;
    for (int number = 0; number < size; ++number) {
      inserted.InsertUnlessMember(key(number), number);
      ASSERT_TRUE(builder.Append(key(number), number));
    }
    cow_Btree<cow_String, int> const built = builder.Take();
    ASSERT_EQ(shapeOf(built), shapeOf(inserted)) << size << " keys";
    ASSERT_EQ(built.Count(), inserted.Count());
  }
}

TEST(BtreeBuilder, RefusesAKeyThatDoesNotComeAfterTheLast) {
  cow_BtreeBuilder<cow_String, int> builder;
  EXPECT_TRUE(builder.Append("b", 1));
  EXPECT_FALSE(builder.Append("b", 2));
  EXPECT_FALSE(builder.Append("a", 3));
  EXPECT_TRUE(builder.Append("c", 4));
  cow_Btree<cow_String, int> const built = builder.Take();
  EXPECT_EQ(keysOf(built), "b c");
  EXPECT_EQ(built.ConstFind("b")->Value(), 1);
}

TEST(BtreeBuilder, BeginsAnewWhenTheTreeIsTaken) {
  cow_BtreeBuilder<cow_String, int> builder;
  builder.Append("b", 1);
  builder.Take();
  EXPECT_TRUE(builder.Take().IsEmpty());
  EXPECT_TRUE(builder.Append("a", 2));
  EXPECT_EQ(keysOf(builder.Take()), "a");
}

TEST(BtreeBuilder, AFailedCopyChangesNothingAndLeaksNothing) {
  int const liveBefore = Tracked::live;
  {
    cow_BtreeBuilder<cow_String, Tracked> builder;
    for (int number = 0; number < 5; ++number) {
      builder.Append(key(number), Tracked(number));
    }
    Tracked const value(5);
    Tracked::failAt = 1;
    EXPECT_THROW(builder.Append(key(5), value), CopyFailed);
    Tracked::failAt = 0;
    EXPECT_TRUE(builder.Append(key(5), value));
    EXPECT_EQ(builder.Take().Count(), 6U);
  }
  EXPECT_EQ(Tracked::live, liveBefore);
}

} // namespace
