// Trees whose values or keys throw while they are copied stay whole, and keep their very shape.
#include "Random.h"
#include "Shape.h"
#include "Tracked.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace {

using Tree = cow_Btree<cow_String, Tracked>;
using Node = Tree::Node;

std::string nameOf(unsigned number) {
  std::string name = std::to_string(number);
  return std::string(4 - name.size(), '0') + name;
}

Tree randomTree(Random& random, unsigned keyRange, unsigned writes) {
  Tree tree;
  for (unsigned write = 0; write != writes; ++write) {
    std::string const key = nameOf(random() % keyRange);
    if (random() % 3 != 0) {
      tree.InsertUnlessMember(key, Tracked(static_cast<int>(write)));
    } else {
      tree.Remove(key);
    }
  }
  return tree;
}

// The nodes that removing `key` touches on its way down: those to the key, and on to its successor.
int nodesOnTheWay(Tree const& tree, cow_String const& key) {
  int count = 0;
  Node const* node = tree.RootNode();
  for (; node; node = key < node->Key() ? node->Left().Peek() : node->Right().Peek()) {
    ++count;
    if (node->Key() == key) {
      break;
    }
  }
  if (node && !node->Left().IsEmpty() && !node->Right().IsEmpty()) {
    for (node = node->Right().Peek(); node; node = node->Left().Peek()) {
      ++count;
    }
  }
  return count;
}

int copiesMadeBy(auto&& work) {
  int const before = Tracked::copies;
  work();
  return Tracked::copies - before;
}

// Makes each copy of `write`, in turn, fail on a copy of `tree` and checks that neither tree shows it.
// Returns how many writes failed.
int failEveryCopy(Tree const& tree, int copies, auto&& write) {
  std::string const shape = shapeOf(tree);
  auto const nodes = nodesOf(tree);
  int failed = 0;
  for (int copy = 1; copy <= copies; ++copy) {
    Tree changed(tree);
    int const failures = Tracked::failures;
    Tracked::failAt = copy;
    EXPECT_THROW(write(changed), CopyFailed);
    Tracked::failAt = 0;
    failed += Tracked::failures - failures;
    EXPECT_EQ(shapeOf(changed), shape);
    EXPECT_EQ(changed.Count(), tree.Count());
    EXPECT_EQ(nodesOf(tree), nodes);
    EXPECT_EQ(shapeOf(tree), shape);
  }
  return failed;
}

// Among so many random trees there is one that rebalances in the way that a test is about.
constexpr int mostRounds = 30000;

class BtreeFailure : public testing::Test {
protected:
  BtreeFailure() : seed(std::random_device()()), random(seed) {}
  ~BtreeFailure() override { EXPECT_EQ(Tracked::live, liveBefore) << "seed " << seed; }

  int liveBefore = Tracked::live;
  unsigned seed;
  Random random;
};

TEST_F(BtreeFailure, InsertThatFailsAnywhereLeavesTheTreeAsItWas) {
  SCOPED_TRACE(seed);
  int failed = 0;
  int afterTheLeaf = 0;
  for (int round = 0; round < 300 || (afterTheLeaf == 0 && round < mostRounds); ++round) {
    Tree const tree = randomTree(random, 100, 150);
    cow_String const key(nameOf(random() % 100));
    if (tree.IsMember(key)) {
      continue;
    }
    auto const insert = [&](Tree& changed) { changed.InsertUnlessMember(key, Tracked(7)); };
    Tree complete(tree);
    int const copies = copiesMadeBy([&] { insert(complete); });
    EXPECT_TRUE(complete.IsMember(key));
    failed += failEveryCopy(tree, copies, insert);
    afterTheLeaf += copies > 1 + nodesOnTheWay(tree, key) ? 1 : 0;
  }
  EXPECT_GT(failed, 500);
  EXPECT_GT(afterTheLeaf, 0) << "no rotation met a shared node";
}

TEST_F(BtreeFailure, RemoveThatFailsAnywhereLeavesTheTreeAsItWas) {
  SCOPED_TRACE(seed);
  int failed = 0;
  int afterTheRemoval = 0;
  for (int round = 0; round != 30; ++round) {
    Tree const tree = randomTree(random, 60, 150);
    for (unsigned number = 0; number != 60; ++number) {
      cow_String const key(nameOf(number));
      auto const remove = [&](Tree& changed) { changed.Remove(key); };
      Tree complete(tree);
      int const copies = copiesMadeBy([&] { remove(complete); });
      if (!tree.IsMember(key)) {
        EXPECT_EQ(copies, 0);
        EXPECT_EQ(complete.RootNode(), tree.RootNode());
        continue;
      }
      EXPECT_EQ(complete.Count() + 1, tree.Count());
      failed += failEveryCopy(tree, copies, remove);
      afterTheRemoval += copies > nodesOnTheWay(tree, key) ? 1 : 0;
    }
  }
  EXPECT_GT(failed, 1000);
  EXPECT_GT(afterTheRemoval, 0) << "no rotation met a shared node";
}

TEST_F(BtreeFailure, FindThatFailsLeavesTheTreeAsItWas) {
  SCOPED_TRACE(seed);
  Tree const tree = randomTree(random, 60, 100);
  int failed = 0;
  for (unsigned number = 0; number != 60; ++number) {
    cow_String const key(nameOf(number));
    auto const find = [&](Tree& changed) { changed.Find(key); };
    Tree complete(tree);
    failed += failEveryCopy(tree, copiesMadeBy([&] { find(complete); }), find);
  }
  EXPECT_GT(failed, 60);
}

TEST_F(BtreeFailure, AKeyThatFailsToBeCopiedIsNotInserted) {
  struct Key {
    Key(int theNumber) : number(theNumber), mark(theNumber) {}
    bool operator<(Key const& other) const { return number < other.number; }
    int number;
    Tracked mark;
  };
  cow_Btree<Key, int> tree;
  tree.InsertUnlessMember(1, 1);
  cow_Btree<Key, int> const before(tree);
  int const failures = Tracked::failures;
  Key const second(2);
  for (int copy = 1; copy <= 2; ++copy) {
    Tracked::failAt = copy;
    EXPECT_THROW(tree.InsertUnlessMember(second, 2), CopyFailed);
    EXPECT_EQ(tree.Count(), 1U);
    EXPECT_FALSE(tree.IsMember(second));
  }
  EXPECT_EQ(Tracked::failures, failures + 2);
  EXPECT_TRUE(tree.InsertUnlessMember(second, 2));
  EXPECT_EQ(before.Count(), 1U);
}

} // namespace
