// One body over many key and value types: random writes, step by step beside a std::map, with copies alive.
#include "Random.h"
#include "Tracked.h"

#include "cow_BtreeIterator.h"
#include "cow_COW.h"
#include "cow_MapIterator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

class Record {
public:
  explicit Record(int theNumber) : number(theNumber) {}
  virtual ~Record() = default;
  virtual Record* Copy() const { return new Record(*this); }
  Tracked number;
};
using Handle = cow_ArrayCOW<Record, cow_Virtual<Record>>;

template <class Key>
Key makeKey(unsigned number);
template <>
int makeKey<int>(unsigned number) {
  return static_cast<int>(number) - 50;
}
template <>
cow_String makeKey<cow_String>(unsigned number) {
  // Short ones, long ones, numbered ones and the empty one.
  return number == 0       ? cow_String()
         : number % 3 == 0 ? cow_String(numbered("a name of some length, number ", static_cast<int>(number)))
                           : cow_String(numbered("Model-", static_cast<int>(number)));
}
template <>
std::string makeKey<std::string>(unsigned number) {
  return std::to_string(number);
}

template <class Value>
struct Values {
  static Value Make(int number) { return Value(number); }
  static int Number(Value const& value) { return value; }
};
template <>
struct Values<Tracked> {
  static Tracked Make(int number) { return Tracked(number); }
  static int Number(Tracked const& value) { return value.Number(); }
};
template <>
struct Values<Handle> {
  static Handle Make(int number) { return Handle(new Record(number)); }
  static int Number(Handle const& value) { return value.ConstGet().number.Number(); }
};
template <>
struct Values<cow_String> {
  static cow_String Make(int number) { return std::to_string(number); }
  static int Number(cow_String const& value) { return std::stoi(value.Text()); }
};

// The tree and the map behind one face.
template <class K, class V>
struct TreeFace {
  using Key = K;
  using Value = V;
  using Iterator = cow_BtreeIterator<K, V>;
  cow_Btree<K, V> collection;

  bool Insert(K const& key, V const& value) {
    if (collection.InsertUnlessMember(key, value)) {
      return true;
    }
    auto* const node = collection.Find(key);
    return node && (node->Value() = value, true);
  }
  bool Remove(K const& key) { return collection.Remove(key); }
  V const* ConstFind(K const& key) const {
    auto const* const node = collection.ConstFind(key);
    return node ? &node->Value() : nullptr;
  }
  std::size_t Size() const { return collection.Count(); }
  static bool Less(K const& left, K const& right) { return cow_KeyOrder<K>::Compare(left, right) < 0; }

  // No gap between neighbours that the rule of balance would have closed at the last write is checked here;
  // only that the order holds and that no height is too small.
  void CheckOrder() const { Check(collection.RootNode()); }
  static int Check(cow_BtreeNode<K, V> const* node) {
    if (!node) {
      return -1;
    }
    int const height = std::max(Check(node->Left().Peek()), Check(node->Right().Peek())) + 1;
    EXPECT_GE(node->Height(), height);
    return height;
  }
};

template <class K, class V>
struct MapFace {
  using Key = K;
  using Value = V;
  using Iterator = cow_MapIterator<K, V>;
  cow_Map<K, V> collection;

  bool Insert(K const& key, V const& value) { return collection.Insert(key, value); }
  bool Remove(K const& key) { return collection.Remove(key); }
  V const* ConstFind(K const& key) const { return collection.ConstFind(key); }
  std::size_t Size() const { return static_cast<std::size_t>(collection.Size()); }
  static bool Less(K const& left, K const& right) { return left < right; }
  void CheckOrder() const {
    for (K const& key : collection.Keys()) {
      EXPECT_TRUE(collection.IsMember(key));
    }
  }
};

template <class Face>
class RandomOperations : public testing::Test {
public:
  using Key = typename Face::Key;
  using Value = typename Face::Value;
  struct Order {
    bool operator()(Key const& left, Key const& right) const { return Face::Less(left, right); }
  };
  using Model = std::map<Key, int, Order>;

  static void ExpectSame(Face const& face, Model const& model) {
    ASSERT_EQ(face.Size(), model.size());
    typename Face::Iterator entry(face.collection);
    entry.First();
    for (auto const& [key, number] : model) {
      ASSERT_FALSE(entry.AtEnd());
      ASSERT_TRUE(entry.Key() == key);
      ASSERT_EQ(Values<Value>::Number(entry.Value()), number);
      entry.Next();
    }
    ASSERT_TRUE(entry.AtEnd());
    entry.Last();
    for (auto last = model.rbegin(); last != model.rend(); ++last) {
      ASSERT_TRUE(!entry.AtEnd() && entry.Key() == last->first);
      entry.Prev();
    }
    ASSERT_TRUE(entry.AtEnd());
    face.CheckOrder();
  }
};

using Faces =
    testing::Types<TreeFace<int, int>, TreeFace<int, Tracked>, TreeFace<cow_String, int>,
                   TreeFace<cow_String, Handle>, TreeFace<cow_String, cow_String>,
                   TreeFace<std::string, Tracked>, MapFace<cow_String, int>, MapFace<cow_String, Tracked>,
                   MapFace<cow_String, Handle>, MapFace<cow_String, cow_String>>;
TYPED_TEST_SUITE(RandomOperations, Faces);

TYPED_TEST(RandomOperations, MatchAStandardMapAtEveryStep) {
  unsigned const seed = std::random_device()();
  SCOPED_TRACE(seed);
  Random random(seed);
  int const liveBefore = Tracked::live;
  std::size_t const countersBefore = cow_Counter::LiveCount();
  int const failuresBefore = Tracked::failures;
  bool const canFail = std::is_same_v<typename TypeParam::Value, Tracked>;
  {
    std::vector<TypeParam> faces(3);
    std::vector<typename TestFixture::Model> models(3);
    for (int step = 0; step != 6000; ++step) {
      std::size_t const which = random() % faces.size();
      TypeParam& face = faces[which];
      typename TestFixture::Model& model = models[which];
      auto const key = makeKey<typename TypeParam::Key>(random() % 150);
      auto const value = Values<typename TypeParam::Value>::Make(step);
      unsigned const operation = random() % 100;
      Tracked::failAt = canFail && random() % 4 == 0 ? 1 + static_cast<int>(random() % 8) : 0;
      try {
        if (operation < 45) {
          ASSERT_TRUE(face.Insert(key, value));
          model[key] = step;
        } else if (operation < 90) {
          bool const removed = face.Remove(key);
          ASSERT_EQ(removed, model.erase(key) == 1);
        } else if (operation < 96) {
          std::size_t const other = random() % faces.size();
          if (faces[other].Size() != 0) { // an empty tree would leave the old nodes unreleased
            face = faces[other];
            model = models[other];
          }
        }
      } catch (CopyFailed const&) { // then nothing has changed
      }
      Tracked::failAt = 0;
      auto const* const found = face.ConstFind(key);
      auto const expected = model.find(key);
      ASSERT_EQ(found != nullptr, expected != model.end()) << step;
      if (found) {
        ASSERT_EQ(Values<typename TypeParam::Value>::Number(*found), expected->second) << step;
      }
      if (step % 50 == 0) {
        for (std::size_t index = 0; index != faces.size(); ++index) {
          TestFixture::ExpectSame(faces[index], models[index]);
        }
      }
    }
  }
  EXPECT_EQ(Tracked::live, liveBefore);
  EXPECT_EQ(cow_Counter::LiveCount(), countersBefore);
  if (canFail) {
    EXPECT_GT(Tracked::failures, failuresBefore + 50);
  }
}

} // namespace
