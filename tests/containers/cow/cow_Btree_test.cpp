// The balanced tree: entries, exact shapes, sharing, iteration.
#include "cow_Btree.h"

#include "Random.h"
#include "Shape.h"
#include "Tracked.h"

#include "cow_COW.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

namespace {

using Tree = cow_Btree<cow_String, int>;
using Iterator = cow_BtreeIterator<cow_String, int>;

Tree treeOf(std::initializer_list<char const*> keys) {
  Tree tree;
  int value = 0;
  for (char const* key : keys) {
    tree.InsertUnlessMember(key, ++value);
  }
  return tree;
}

// Switches the natural order on for one test.
class NaturalOrder {
public:
  explicit NaturalOrder(int on) : before(atr_getNaturalOrder()) { atr_setNaturalOrder(on); }
  NaturalOrder(NaturalOrder const&) = delete;
  NaturalOrder& operator=(NaturalOrder const&) = delete;
  ~NaturalOrder() { atr_setNaturalOrder(before); }

private:
  int before;
};

TEST(Btree, ANewTreeIsEmpty) {
  Tree tree;
  EXPECT_EQ(tree.Count(), 0U);
  EXPECT_EQ(tree.RootNode(), nullptr);
  EXPECT_EQ(tree.ConstFind("a"), nullptr);
  EXPECT_EQ(tree.Find("a"), nullptr);
}

TEST(Btree, IteratesInKeyOrderBothWays) {
  Tree const tree = treeOf({"b", "a", "c"});
  Iterator entry(tree);
  EXPECT_TRUE(entry.AtEnd());
  std::string keys;
  for (entry.First(); !entry.AtEnd(); entry.Next()) {
    keys += entry.Key().View();
  }
  for (entry.Last(); !entry.AtEnd(); entry.Prev()) {
    keys += entry.Key().View();
  }
  EXPECT_EQ(keys, "abccba");
}

TEST(Btree, AnIteratorTurnsRoundAnywhere) {
  Tree const tree = treeOf({"d", "b", "f", "a", "c", "e", "g"});
  Iterator entry(tree);
  std::string walk;
  entry.First();
  for (char const step : std::string("+++-++--+++++")) {
    walk += entry.Key().View();
    step == '+' ? entry.Next() : entry.Prev();
  }
  EXPECT_EQ(walk, "abcdcdedcdefg");
  EXPECT_TRUE(entry.AtEnd());
  entry.Next();
  entry.Prev();
  EXPECT_TRUE(entry.AtEnd());
}

TEST(Btree, AnIteratorOfAnEmptyTreeIsAtTheEnd) {
  Tree const tree;
  Iterator entry(tree);
  entry.First();
  EXPECT_TRUE(entry.AtEnd());
  entry.Last();
  EXPECT_TRUE(entry.AtEnd());
}

TEST(Btree, InsertingAPresentKeyKeepsTheFirstValue) {
  Tree tree = treeOf({"a", "b"});
  EXPECT_FALSE(tree.InsertUnlessMember("a", 99));
  EXPECT_EQ(tree.Count(), 2U);
  EXPECT_EQ(tree.ConstFind("a")->Value(), 1);
}

TEST(Btree, InsertingAPresentKeyIntoACopyCopiesNothing) {
  Tree const first = treeOf({"a", "b"});
  Tree second(first);
  EXPECT_FALSE(second.InsertUnlessMember("b", 99));
  EXPECT_FALSE(second.Remove("c"));
  EXPECT_EQ(nodesOf(second), nodesOf(first));
}

TEST(Btree, TheFourthAscendingKeyRotatesOnce) {
  EXPECT_EQ(shapeOf(treeOf({"1", "2", "3"})), "1:2(- 2:1(- 3:0))");
  EXPECT_EQ(shapeOf(treeOf({"1", "2", "3", "4"})), "2:2(1:0 3:1(- 4:0))");
}

TEST(Btree, TheFourthDescendingKeyRotatesOnce) {
  EXPECT_EQ(shapeOf(treeOf({"4", "3", "2"})), "4:2(3:1(2:0 -) -)");
  EXPECT_EQ(shapeOf(treeOf({"4", "3", "2", "1"})), "3:2(2:1(1:0 -) 4:0)");
}

// An absent child counts like a leaf, and the child that moves up is not looked at: the heavy inner side only
// changes places, and the next write turns it back.
TEST(Btree, BalanceIsLooserThanALevel) {
  EXPECT_EQ(shapeOf(treeOf({"1", "4", "2"})), "1:2(- 4:1(2:0 -))");
  EXPECT_EQ(shapeOf(treeOf({"1", "4", "2", "3"})), "4:3(1:2(- 2:1(- 3:0)) -)");
  EXPECT_EQ(shapeOf(treeOf({"1", "4", "2", "3", "5"})), "1:3(- 4:2(2:1(- 3:0) 5:0))");
}

TEST(Btree, AscendingKeysStayShallow) {
  cow_Btree<int, int> tree;
  for (int key = 0; key != 1 << 15; ++key) {
    tree.InsertUnlessMember(key, key);
  }
  EXPECT_LE(tree.RootNode()->Height(), 20);
}

TEST(Btree, NaturalOrderSortsNumbersByValue) {
  NaturalOrder const natural(1);
  EXPECT_EQ(keysOf(treeOf({"x10", "x9"})), "x9 x10");
  EXPECT_EQ(keysOf(treeOf({"Model-10", "Model-2", "Model-1"})), "Model-1 Model-2 Model-10");
}

TEST(Btree, ByteOrderSortsNumbersByDigits) {
  NaturalOrder const natural(0);
  EXPECT_EQ(keysOf(treeOf({"x9", "x10"})), "x10 x9");
}

TEST(Btree, TheOrderIsReadAtEveryComparison) {
  NaturalOrder const natural(0);
  Tree tree = treeOf({"x10", "x9"});
  EXPECT_TRUE(tree.IsMember("x9"));
  atr_setNaturalOrder(1);
  EXPECT_FALSE(tree.IsMember("x9"));
  atr_setNaturalOrder(0);
  EXPECT_TRUE(tree.IsMember("x9"));
}

TEST(Btree, TheEmptyKeyIsAKeyAndComesFirst) {
  Tree tree = treeOf({"b", "", "a"});
  EXPECT_EQ(tree.ConstFind("")->Value(), 2);
  Iterator entry(tree);
  entry.First();
  EXPECT_TRUE(entry.Key().IsEmpty());
  EXPECT_TRUE(tree.Remove(""));
  EXPECT_EQ(keysOf(tree), "a b");
}

TEST(Btree, ACopySharesAllNodes) {
  Tree const first = treeOf({"b", "a", "c"});
  Tree const second(first); // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_EQ(second.RootNode(), first.RootNode());
  EXPECT_EQ(second.Count(), 3U);
}

TEST(Btree, InsertingIntoACopyLeavesTheSourceItsNodes) {
  Tree const first = treeOf({"d", "b", "f", "a", "c", "e", "g"});
  auto const nodes = nodesOf(first);
  std::string const shape = shapeOf(first);
  Tree second(first);
  second.InsertUnlessMember("h", 8);
  EXPECT_EQ(nodesOf(first), nodes);
  EXPECT_EQ(shapeOf(first), shape);
  EXPECT_EQ(keysOf(first), "a b c d e f g");
  EXPECT_EQ(keysOf(second), "a b c d e f g h");
}

TEST(Btree, AWriteCopiesOnlyThePath) {
  Tree const first = treeOf({"d", "b", "f", "a", "c", "e", "g"});
  Tree second(first);
  second.Find("a")->Value() = 99;
  auto const before = nodesOf(first);
  auto const after = nodesOf(second);
  std::vector<Tree::Node const*> kept;
  std::set_intersection(before.begin(), before.end(), after.begin(), after.end(), std::back_inserter(kept));
  EXPECT_EQ(kept.size(), 4U); // d, b and a were copied
  EXPECT_EQ(first.ConstFind("a")->Value(), 4);
  EXPECT_EQ(second.ConstFind("a")->Value(), 99);
}

TEST(Btree, FindOfASoleTreeCopiesNothing) {
  Tree tree = treeOf({"b", "a", "c"});
  auto const nodes = nodesOf(tree);
  tree.Find("c")->Value() = 5;
  EXPECT_EQ(tree.Find("x"), nullptr);
  EXPECT_EQ(nodesOf(tree), nodes);
}

TEST(Btree, ConstFindCopiesNothing) {
  Tree const first = treeOf({"b", "a", "c"});
  Tree second(first);
  EXPECT_EQ(second.ConstFind("c")->Value(), 3);
  EXPECT_EQ(nodesOf(second), nodesOf(first));
}

TEST(Btree, FindInPlaceWritesForAllSharers) {
  Tree const first = treeOf({"b", "a", "c"});
  Tree const second(first); // NOLINT(performance-unnecessary-copy-initialization)
  *second.FindInPlace("c") = 77;
  EXPECT_EQ(first.ConstFind("c")->Value(), 77);
  EXPECT_EQ(nodesOf(second), nodesOf(first));
  EXPECT_EQ(second.FindInPlace("x"), nullptr);
}

TEST(Btree, RemovingFromAnEmptyTreeIsRefused) {
  Tree tree;
  EXPECT_FALSE(tree.Remove("a"));
}

TEST(Btree, RemovingTheOnlyEntryLeavesNoRoot) {
  Tree tree = treeOf({"a"});
  EXPECT_TRUE(tree.Remove("a"));
  EXPECT_EQ(tree.RootNode(), nullptr);
  EXPECT_EQ(tree.Count(), 0U);
}

TEST(Btree, RemovingAnAbsentKeyChangesNothing) {
  Tree tree = treeOf({"d", "b", "f"});
  std::string const shape = shapeOf(tree);
  for (char const* key : {"", "a", "c", "e", "z"}) {
    EXPECT_FALSE(tree.Remove(key));
    EXPECT_EQ(shapeOf(tree), shape);
  }
  EXPECT_EQ(tree.Count(), 3U);
}

TEST(Btree, ANodeWithoutRightChildIsReplacedByItsLeft) {
  Tree tree = treeOf({"c", "b", "d", "a"});
  EXPECT_TRUE(tree.Remove("b"));
  EXPECT_EQ(shapeOf(tree), "c:1(a:0 d:0)");
}

TEST(Btree, ANodeWithoutLeftChildIsReplacedByItsRight) {
  Tree tree = treeOf({"b", "a", "c", "d"});
  EXPECT_TRUE(tree.Remove("c"));
  EXPECT_EQ(shapeOf(tree), "b:1(a:0 d:0)");
}

TEST(Btree, ANodeWithTwoChildrenIsReplacedByTheNextKey) {
  Tree tree = treeOf({"d", "b", "f", "a", "c", "e", "g"});
  EXPECT_TRUE(tree.Remove("d"));
  EXPECT_EQ(shapeOf(tree), "e:2(b:1(a:0 c:0) f:1(- g:0))");
  EXPECT_EQ(keysOf(tree), "a b c e f g");
  EXPECT_TRUE(tree.Remove("f"));
  EXPECT_TRUE(tree.Remove("b"));
  EXPECT_EQ(shapeOf(tree), "e:2(c:1(a:0 -) g:0)");
}

TEST(Btree, TheSuccessorKeepsItsRightSubtree) {
  Tree tree = treeOf({"d", "b", "h", "a", "c", "f", "i", "g"});
  EXPECT_EQ(shapeOf(tree), "d:3(b:1(a:0 c:0) h:2(f:1(- g:0) i:0))");
  EXPECT_TRUE(tree.Remove("d"));
  EXPECT_EQ(shapeOf(tree), "f:2(b:1(a:0 c:0) h:1(g:0 i:0))");
}

// The successor of d is f, its parent h; l lies between and loses a level, but keeps its height of 2.
TEST(Btree, NodesOnTheWayToTheSuccessorKeepTheirHeights) {
  Tree tree = treeOf({"d", "b", "l", "a", "h", "n", "f"});
  ASSERT_EQ(shapeOf(tree), "d:3(b:1(a:0 -) l:2(h:1(f:0 -) n:0))");
  EXPECT_TRUE(tree.Remove("d"));
  EXPECT_EQ(shapeOf(tree), "f:3(b:1(a:0 -) l:2(h:0 n:0))");
}

TEST(Btree, RemovalRotatesTowardsTheLighterSide) {
  Tree tree = treeOf({"4", "2", "6", "1", "5", "7", "8"});
  EXPECT_EQ(shapeOf(tree), "4:3(2:1(1:0 -) 6:2(5:0 7:1(- 8:0)))");
  EXPECT_TRUE(tree.Remove("1"));
  EXPECT_EQ(shapeOf(tree), "6:2(4:1(2:0 5:0) 7:1(- 8:0))");
}

TEST(Btree, RemovingFromACopyLeavesTheSourceWhole) {
  Tree const first = treeOf({"d", "b", "f", "a", "c", "e", "g"});
  auto const nodes = nodesOf(first);
  for (char const* key : {"a", "b", "c", "d", "e", "f", "g"}) {
    Tree second(first);
    EXPECT_TRUE(second.Remove(key));
    EXPECT_EQ(nodesOf(first), nodes);
    EXPECT_EQ(keysOf(first), "a b c d e f g");
    EXPECT_EQ(second.Count(), 6U);
  }
}

TEST(Btree, AssigningSharesTheNodes) {
  Tree const first = treeOf({"b", "a"});
  Tree second = treeOf({"x"});
  second = first;
  EXPECT_EQ(second.RootNode(), first.RootNode());
  EXPECT_EQ(second.Count(), 2U);
  Tree const& same = second;
  second = same;
  EXPECT_EQ(second.Count(), 2U);
  Tree third;
  third = first;
  EXPECT_EQ(third.RootNode(), first.RootNode());
}

TEST(Btree, AssigningAnEmptyTreeDoesNotFreeTheOldNodes) {
  int const before = Tracked::live;
  cow_Btree<cow_String, Tracked> tree;
  tree.InsertUnlessMember("a", Tracked(1));
  tree.InsertUnlessMember("b", Tracked(2));
  cow_Btree<cow_String, Tracked> const empty;
  tree = empty;
  EXPECT_EQ(tree.Count(), 0U);
  EXPECT_EQ(tree.RootNode(), nullptr);
  EXPECT_EQ(Tracked::live, before + 2);
  Tracked::live = before; // they stay for good
}

TEST(Btree, ClearReleasesTheNodes) {
  int const before = Tracked::live;
  cow_Btree<cow_String, Tracked> tree;
  tree.InsertUnlessMember("a", Tracked(1));
  tree.InsertUnlessMember("b", Tracked(2));
  cow_Btree<cow_String, Tracked> const copy(tree);
  tree.Clear();
  EXPECT_EQ(tree.Count(), 0U);
  EXPECT_TRUE(tree.InsertUnlessMember("c", Tracked(3)));
  EXPECT_EQ(Tracked::live, before + 3);
  tree.Clear();
  EXPECT_EQ(Tracked::live, before + 2);
  EXPECT_EQ(copy.Count(), 2U);
}

TEST(Btree, IsHeldInCopyOnWriteHandles) {
  using Handle = cow_COW<Tree, cow_Virtual<Tree>>;
  Handle const first(new Tree(treeOf({"a"})));
  Handle second(first);
  second.Get().InsertUnlessMember("b", 2);
  EXPECT_EQ(first.ConstGet().Count(), 1U);
  EXPECT_EQ(second.ConstGet().Count(), 2U);
}

TEST(Btree, ReturnsItsNodesToThePool) {
  using Node = Tree::Node;
  std::size_t const before = mem_poolLiveBlocks(64);
  static_assert(sizeof(Node) <= 64 && sizeof(Node) > 40);
  {
    Tree tree;
    for (int index = 0; index != 1000; ++index) {
      tree.InsertUnlessMember(numbered("k", index), index);
    }
    Tree const copy(tree);
    for (int index = 0; index < 1000; index += 3) {
      tree.Remove(numbered("k", index));
    }
    EXPECT_GE(mem_poolLiveBlocks(64), before + 1000);
  }
  EXPECT_EQ(mem_poolLiveBlocks(64), before);
}

// Each key lies between the two before it, so that every insertion bends the tree the other way.
TEST(Btree, KeysFromBothEndsStayShallow) {
  cow_Btree<int, int> tree;
  constexpr int half = 20000;
  for (int key = 0; key != half; ++key) {
    tree.InsertUnlessMember(key, key);
    tree.InsertUnlessMember(2 * half - key, key);
  }
  EXPECT_EQ(tree.Count(), 2U * half);
  EXPECT_LE(tree.RootNode()->Height(), 30);
}

TEST(PathStack, KeepsItsEntriesWhenItOutgrowsItself) {
  cow_PathStack<int, 2> stack;
  for (int number = 0; number != 100; ++number) {
    stack.Push(number);
  }
  cow_PathStack<int, 2> const copy(stack);
  int sum = 0;
  while (!stack.IsEmpty()) {
    sum += stack.Pop();
  }
  EXPECT_EQ(sum, 4950);
  EXPECT_EQ(copy.Size(), 100U);
  EXPECT_EQ(copy.Top(), 99);
  stack = copy;
  cow_PathStack<int, 2> const& same = stack;
  stack = same;
  EXPECT_EQ(stack.Size(), 100U);
  EXPECT_EQ(stack[50], 50);
}

} // namespace
