// The entries in which two trees, or two maps, differ.
#include "cow_BtreeDiff.h"
#include "cow_MapDiff.h"

#include "Random.h"

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using Tree = cow_Btree<cow_String, int>;
using Map = cow_Map<cow_String, int>;

// One line for each visit: "key:before>after", a "-" for an absent side.
std::string lineOf(cow_String const& key, int const* before, int const* after) {
  std::string line(key.View());
  line.append(":").append(before ? std::to_string(*before) : "-");
  line.append(">").append(after ? std::to_string(*after) : "-").append(" ");
  return line;
}

std::string diffOf(Tree const& before, Tree const& after) {
  std::string lines;
  cow_btreeDiff(before, after, [&](auto const&... visited) { lines += lineOf(visited...); });
  return lines;
}

std::string diffOf(Map const& before, Map const& after) {
  std::string lines;
  cow_mapDiff(before, after, [&](auto const&... visited) { lines += lineOf(visited...); });
  return lines;
}

Tree treeOf(int count) {
  Tree tree;
  for (int number = 0; number != count; ++number) {
    tree.InsertUnlessMember(numbered("k", number), number);
  }
  return tree;
}

TEST(BtreeDiff, ATreeAndItsCopyDoNotDiffer) {
  Tree const tree = treeOf(100);
  EXPECT_EQ(diffOf(tree, Tree(tree)), "");
  EXPECT_EQ(diffOf(Tree(), Tree()), "");
}

TEST(BtreeDiff, AgainstAnEmptyTreeEverythingDiffersInKeyOrder) {
  EXPECT_EQ(diffOf(treeOf(3), Tree()), "k0:0>- k1:1>- k2:2>- ");
  EXPECT_EQ(diffOf(Tree(), treeOf(3)), "k0:->0 k1:->1 k2:->2 ");
}

TEST(BtreeDiff, TreesThatShareNothingAreComparedByKey) {
  Tree before;
  before.InsertUnlessMember("a", 1);
  before.InsertUnlessMember("b", 2);
  Tree after;
  after.InsertUnlessMember("b", 3);
  after.InsertUnlessMember("c", 4);
  EXPECT_EQ(diffOf(before, after), "a:1>- b:2>3 c:->4 ");
}

TEST(BtreeDiff, OneWriteInALargeTreeVisitsFewEntries) {
  Tree const before = treeOf(10000);
  for (int number : {0, 1234, 5000, 9999}) {
    Tree after(before);
    cow_String const key(numbered("k", number));
    after.Find(key)->Value() = -1;
    int visits = 0;
    bool seen = false;
    cow_btreeDiff(before, after, [&](cow_String const& visited, int const* old, int const* now) {
      ++visits;
      seen |= visited == key && *old == number && *now == -1;
    });
    EXPECT_TRUE(seen);
    EXPECT_LE(visits, 25);

    Tree shorter(before);
    shorter.Remove(key);
    visits = 0;
    seen = false;
    cow_btreeDiff(before, shorter, [&](cow_String const& visited, int const* old, int const* now) {
      ++visits;
      seen |= visited == key && *old == number && !now;
    });
    EXPECT_TRUE(seen);
    EXPECT_LE(visits, 50);
  }
}

// Random writes to a copy, against a plain map of the same writes.
template <class Collection, class Write>
void compareWithAModel(Write write) {
  unsigned const seed = std::random_device()();
  SCOPED_TRACE(seed);
  Random random(seed);
  Collection before;
  std::map<std::string, int> modelBefore;
  int differences = 0;
  for (int round = 0; round != 300; ++round) {
    Collection after(before);
    std::map<std::string, int> modelAfter(modelBefore);
    for (unsigned step = random() % 20; step != 0; --step) {
      write(after, modelAfter, numbered("k", static_cast<int>(random() % 300)),
            static_cast<int>(random() % 5));
    }
    std::map<std::string, int> patched(modelBefore);
    std::optional<std::string> last;
    auto const patch = [&](cow_String const& key, int const* old, int const* now) {
      std::string const name(key.View());
      EXPECT_TRUE(!last || *last < name) << name;
      last = name;
      EXPECT_EQ(old != nullptr, modelBefore.count(name) == 1);
      if (old) {
        EXPECT_EQ(*old, modelBefore.at(name));
      }
      if (now) {
        patched[name] = *now;
      } else {
        patched.erase(name);
      }
      ++differences;
    };
    if constexpr (std::is_same_v<Collection, Tree>) {
      cow_btreeDiff(before, after, patch);
    } else {
      cow_mapDiff(before, after, patch);
    }
    ASSERT_EQ(patched, modelAfter);
    if (round % 3 == 0) {
      before = after;
      modelBefore = modelAfter;
    }
  }
  EXPECT_GT(differences, 300);
}

TEST(BtreeDiff, RandomWritesAreFoundInOrder) {
  compareWithAModel<Tree>(
      [](Tree& tree, std::map<std::string, int>& model, std::string const& key, int value) {
        if (value == 0) {
          tree.Remove(key);
          model.erase(key);
        } else if (auto* const node = tree.Find(key)) {
          node->Value() = value;
          model[key] = value;
        } else {
          tree.InsertUnlessMember(key, value);
          model[key] = value;
        }
      });
}

TEST(MapDiff, RandomWritesAreFoundInOrder) {
  compareWithAModel<Map>([](Map& map, std::map<std::string, int>& model, std::string const& key, int value) {
    if (value == 0) {
      map.Remove(key);
      model.erase(key);
    } else {
      map.Insert(key, value);
      model[key] = value;
    }
  });
}

TEST(MapDiff, AMapAndItsCopyDoNotDiffer) {
  Map map;
  map.Insert("a", 1);
  map.Insert("b", 2);
  EXPECT_EQ(diffOf(map, Map(map)), "");
}

TEST(MapDiff, AgainstAnEmptyMapEverythingDiffersInByteOrder) {
  Map map;
  for (char const* key : {"c", "a", "b"}) {
    map.Insert(key, key[0]);
  }
  EXPECT_EQ(diffOf(map, Map()), "a:97>- b:98>- c:99>- ");
  EXPECT_EQ(diffOf(Map(), map), "a:->97 b:->98 c:->99 ");
}

TEST(MapDiff, AnEntryThatMovedIsNotReportedAsRemoved) {
  Map before;
  for (char const* key : {"b", "d", "f"}) { // one branch: every bit is 0
    before.Insert(key, key[0]);
  }
  Map after(before);
  after.Remove("b");
  std::string removed;
  cow_mapDiff(before, after,
              [&](cow_String const& key, int const*, int const* now) { removed += now ? "" : key.Text(); });
  EXPECT_EQ(removed, "b");
}

} // namespace
