// The digital search tree: bits, shapes, sharing, iteration.
#include "cow_Map.h"

#include "Random.h"
#include "Shape.h"
#include "Tracked.h"

#include "cow_COW.h"
#include "cow_MapDiff.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <pthread.h>

namespace {

using Map = cow_Map<cow_String, int>;

Map mapOf(std::initializer_list<char const*> keys) {
  Map map;
  int value = 0;
  for (char const* key : keys) {
    map.Insert(key, ++value);
  }
  return map;
}

std::string bitsOf(char const* key) {
  std::string bits;
  for (unsigned depth = 0; depth != 8; ++depth) {
    bits += cow_branchBit(key, depth) == 0 ? '0' : '1';
  }
  return bits;
}

std::string keysOf(Map const& map) {
  std::string keys;
  for (cow_String const& key : map.Keys()) {
    keys += key.Text() + std::string(" ");
  }
  return keys;
}

TEST(Map, BitsComeFromTheFrontAndTheBackInTurn) {
  // a, c and e have the lowest bit 1; b and d have 0.
  EXPECT_EQ(bitsOf("a"), "11000000");     // front a, back a, then below the length
  EXPECT_EQ(bitsOf("ab"), "10000000");    // a, b, then the second from the front: b
  EXPECT_EQ(bitsOf("ba"), "01100000");    // b, a, a
  EXPECT_EQ(bitsOf("bcd"), "00110000");   // b, d, c, c
  EXPECT_EQ(bitsOf("abcde"), "11001100"); // a, e, b, d, c, c
}

TEST(Map, TheEmptyKeyHasBitZeroAtEveryDepth) {
  EXPECT_EQ(bitsOf(""), "00000000");
  EXPECT_EQ(shapeOf(mapOf({"b", "d", ""})), "b(d( -) -)");
}

TEST(Map, TwoKeysWithBitOneGoRight) {
  EXPECT_EQ(shapeOf(mapOf({"a", "c"})), "a(- c)");
}

TEST(Map, TheFirstKeyOfABranchKeepsItsPlace) {
  EXPECT_EQ(shapeOf(mapOf({"ab", "ad", "aa", "b"})), "ab(b ad(- aa))");
  EXPECT_EQ(shapeOf(mapOf({"b", "aa", "ad", "ab"})), "b(- aa(ad(ab -) -))");
}

TEST(Map, ANewMapIsEmpty) {
  Map map;
  EXPECT_EQ(map.Size(), 0);
  EXPECT_EQ(map.RootNode(), nullptr);
  EXPECT_FALSE(map.IsMember(""));
  EXPECT_EQ(map.Find("a"), nullptr);
  EXPECT_FALSE(map.Remove("a"));
}

TEST(Map, InsertingAKeyAgainReplacesItsValue) {
  Map map;
  EXPECT_TRUE(map.Insert("a", 1));
  EXPECT_TRUE(map.Insert("a", 2));
  EXPECT_EQ(map.Size(), 1);
  EXPECT_EQ(*map.ConstFind("a"), 2);
  EXPECT_TRUE(map.Insert("a", *map.ConstFind("a")));
  EXPECT_EQ(*map.ConstFind("a"), 2);
}

TEST(Map, NaturalOrderPlaysNoPart) {
  int const before = atr_getNaturalOrder();
  atr_setNaturalOrder(1);
  Map const map = mapOf({"x10", "x9", "X2"});
  EXPECT_EQ(keysOf(map), "X2 x10 x9 ");
  EXPECT_TRUE(map.IsMember("x9"));
  atr_setNaturalOrder(before);
}

TEST(Map, KeysComeInAscendingByteOrder) {
  EXPECT_EQ(keysOf(mapOf({"b", "\xff", "", "ab", "a", "B"})), " B a ab b \xff ");
}

TEST(Map, AnIteratorWalksBothWays) {
  Map const map = mapOf({"c", "a", "d", "b"});
  cow_MapIterator<cow_String, int> entry(map);
  EXPECT_TRUE(entry.AtEnd());
  std::string walk;
  for (entry.First(); !entry.AtEnd(); entry.Next()) {
    walk += entry.Key().Text() + std::to_string(entry.Value());
  }
  for (entry.Last(); !entry.AtEnd(); entry.Prev()) {
    walk += entry.Key().Text();
  }
  entry.Next();
  entry.Prev();
  EXPECT_TRUE(entry.AtEnd());
  EXPECT_EQ(walk, "a2b4c1d3dcba");
}

TEST(Map, AnIteratorWalksTheMapAsItWas) {
  auto map = std::make_unique<Map>(mapOf({"a", "b", "c"}));
  cow_MapIterator<cow_String, int> entry(*map);
  entry.First();
  map->Remove("b");
  map->Insert("c", 9);
  map.reset();
  std::string walk;
  for (; !entry.AtEnd(); entry.Next()) {
    walk += entry.Key().Text() + std::to_string(entry.Value());
  }
  EXPECT_EQ(walk, "a1b2c3");
}

TEST(Map, OnlyANodeIsShared) {
  Map const empty;
  Map const copyOfNothing(empty);
  EXPECT_FALSE(empty.RootLink().IsShared());
  Map const map = mapOf({"a"});
  EXPECT_FALSE(map.RootLink().IsShared());
  Map const copy(map);
  EXPECT_TRUE(map.RootLink().IsShared());
}

TEST(Map, AnIteratorOfAnEmptyMapIsAtTheEnd) {
  Map const map;
  cow_MapIterator<cow_String, int> entry(map);
  entry.First();
  EXPECT_TRUE(entry.AtEnd());
  entry.Last();
  EXPECT_TRUE(entry.AtEnd());
}

TEST(Map, ACopySharesAllNodesUntilOneIsWritten) {
  Map const first = mapOf({"a", "b", "c", "d"});
  Map second(first);
  EXPECT_EQ(nodesOf(second), nodesOf(first));
  auto const nodes = nodesOf(first);
  second.Insert("c", 99);
  second.Insert("e", 5);
  EXPECT_EQ(nodesOf(first), nodes);
  EXPECT_EQ(*first.ConstFind("c"), 3);
  EXPECT_FALSE(first.IsMember("e"));
  EXPECT_EQ(*second.ConstFind("c"), 99);
  EXPECT_EQ(second.Size(), 5);
}

TEST(Map, FindCopiesThePathAndConstFindNothing) {
  Map const first = mapOf({"a", "b", "c", "e"}); // a(b c(- e))
  Map second(first);
  second.ConstFind("e");
  EXPECT_EQ(nodesOf(second), nodesOf(first));
  *second.Find("e") = 99;
  EXPECT_EQ(*first.ConstFind("e"), 4);
  EXPECT_EQ(second.RootNode()->Left().Peek(), first.RootNode()->Left().Peek());
  EXPECT_NE(second.RootNode()->Right().Peek(), first.RootNode()->Right().Peek());
}

TEST(Map, FindInPlaceWritesForAllSharers) {
  Map const first = mapOf({"a", "b"});
  Map const second(first); // NOLINT(performance-unnecessary-copy-initialization)
  *second.FindInPlace("b") = 77;
  EXPECT_EQ(*first.ConstFind("b"), 77);
  EXPECT_EQ(second.FindInPlace("x"), nullptr);
}

TEST(Map, ALeafTakesTheRemovedPlace) {
  Map map = mapOf({"b", "d", "a", "f", "c"}); // b(d(f -) a(- c))
  ASSERT_EQ(shapeOf(map), "b(d(f -) a(- c))");
  EXPECT_TRUE(map.Remove("b"));
  EXPECT_EQ(shapeOf(map), "f(d a(- c))");
  EXPECT_TRUE(map.Remove("a"));
  EXPECT_EQ(shapeOf(map), "f(d c)");
  EXPECT_TRUE(map.Remove("c"));
  EXPECT_FALSE(map.Remove("c"));
  EXPECT_TRUE(map.Remove("f"));
  EXPECT_EQ(shapeOf(map), "d");
  EXPECT_TRUE(map.Remove("d"));
  EXPECT_EQ(shapeOf(map), "-");
  EXPECT_EQ(map.Size(), 0);
}

TEST(Map, RemovingFromACopyLeavesTheSourceWhole) {
  Map const first = mapOf({"b", "d", "a", "f", "c"});
  auto const nodes = nodesOf(first);
  for (char const* key : {"a", "b", "c", "d", "f"}) {
    Map second(first);
    EXPECT_TRUE(second.Remove(key));
    EXPECT_FALSE(second.IsMember(key));
    EXPECT_EQ(second.Keys().size(), 4U);
    EXPECT_EQ(nodesOf(first), nodes);
  }
  Map third(first);
  EXPECT_FALSE(third.Remove("x"));
  EXPECT_EQ(nodesOf(third), nodes);
}

TEST(Map, ClearReleasesTheNodes) {
  int const before = Tracked::live;
  cow_Map<cow_String, Tracked> map;
  map.Insert("a", Tracked(1));
  map.Insert("b", Tracked(2));
  cow_Map<cow_String, Tracked> copy(map);
  copy.Insert("c", Tracked(3));
  map = cow_Map<cow_String, Tracked>();
  EXPECT_EQ(copy.Size(), 3);
  copy.Clear();
  EXPECT_EQ(Tracked::live, before);
  EXPECT_EQ(copy.Size(), 0);
}

TEST(Map, AWriteThatFailsLeavesTheMapAsItWas) {
  unsigned const seed = std::random_device()();
  SCOPED_TRACE(seed);
  Random random(seed);
  int const liveBefore = Tracked::live;
  int const failuresBefore = Tracked::failures;
  for (int round = 0; round != 50; ++round) {
    cow_Map<cow_String, Tracked> map;
    for (int index = 0; index != 60; ++index) {
      map.Insert(std::to_string(random() % 100), Tracked(index));
    }
    std::string const shape = shapeOf(map);
    auto const nodes = nodesOf(map);
    cow_String const key(std::to_string(random() % 100));
    for (int operation = 0; operation != 3; ++operation) {
      for (int failAt = 1;; ++failAt) {
        cow_Map<cow_String, Tracked> changed(map);
        Tracked const value(-1);
        Tracked::failAt = failAt;
        bool failed = false;
        try {
          operation == 0   ? static_cast<void>(changed.Insert(key, value))
          : operation == 1 ? static_cast<void>(changed.Remove(key))
                           : static_cast<void>(changed.Find(key));
        } catch (CopyFailed const&) {
          failed = true;
        }
        Tracked::failAt = 0;
        EXPECT_EQ(nodesOf(map), nodes);
        if (!failed) {
          break;
        }
        EXPECT_EQ(shapeOf(changed), shape);
        EXPECT_EQ(changed.Size(), map.Size());
        EXPECT_FALSE(changed.IsMember(key) && *changed.ConstFind(key) == value);
      }
    }
  }
  EXPECT_GT(Tracked::failures, failuresBefore + 100);
  EXPECT_EQ(Tracked::live, liveBefore);
}

// A name of letters whose lowest bit is 0: all such names lie on one branch.
std::string nameOnOneBranch(int number) {
  std::string name;
  for (int digit = 0; digit != 7; ++digit) {
    name += "bdfh"[number % 4];
    number /= 4;
  }
  return name;
}

TEST(Map, AVeryDeepMapNeedsNoDeepStack) {
  auto work = [] {
    constexpr int count = 6000;
    Map map;
    for (int number = 0; number != count; ++number) {
      map.Insert(nameOnOneBranch(number), number);
    }
    Map copy(map);
    EXPECT_TRUE(copy.Remove(nameOnOneBranch(0)));
    EXPECT_EQ(copy.RootNode()->Key(), cow_String(nameOnOneBranch(count - 1)));
    EXPECT_EQ(*copy.Find(nameOnOneBranch(count - 2)), count - 2);
    EXPECT_EQ(copy.Keys().size(), std::size_t{count - 1});
    int removed = 0;
    cow_mapDiff(map, copy, [&](cow_String const&, int const*, int const* now) { removed += now ? 0 : 1; });
    EXPECT_EQ(removed, 1);
  };
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, std::size_t{256} << 10), 0);
  pthread_t thread;
  ASSERT_EQ(pthread_create(
                &thread, &attributes,
                [](void* argument) -> void* {
                  (*static_cast<decltype(work)*>(argument))();
                  return nullptr;
                },
                &work),
            0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attributes);
}

TEST(Map, HoldsCopyOnWriteHandles) {
  using Handle = cow_ArrayCOW<int, cow_Direct<int>>;
  cow_Map<cow_String, Handle> const first = [] {
    cow_Map<cow_String, Handle> map;
    map.Insert("a", Handle(new int(1)));
    return map;
  }();
  cow_Map<cow_String, Handle> second(first);
  second.Find("a")->Get() = 2;
  EXPECT_EQ(first.ConstFind("a")->ConstGet(), 1);
  EXPECT_EQ(second.ConstFind("a")->ConstGet(), 2);
}

} // namespace
