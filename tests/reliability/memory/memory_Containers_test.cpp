// Containers in small memory: a call that runs out of it leaves the container, and all that share its
// entries, as they were.
#include "memory_Call.h"

#include "cls_ListObj.h"
#include "cow_1DArray.h"
#include "cow_BtreeBuilder.h"
#include "cow_BtreeDiff.h"
#include "cow_BtreeIterator.h"
#include "cow_COW.h"
#include "cow_Erasure.h"
#include "cow_MapDiff.h"
#include "cow_MapIterator.h"
#include "dia_DiagnosticData.h"
#include "mdl_Container.h"

#include <optional>

namespace {

std::string const longText = "a text that is too long to be held in the object itself";

/// A text whose copies allocate.
std::string text(int number) {
  return longText + std::to_string(number);
}

// ---- cow_String ----

struct Texts {
  cow_String taken = longText.c_str();
  cow_String sharer = taken;
  std::string look() const { return std::string(taken.Text()) + "|" + sharer.Text(); }
};

std::vector<memory_call> const textCalls = memory_calls<Texts>({
    {"cow_String from characters", [](Texts& on) { on.taken = cow_String(text(1).c_str()); }},
    {"cow_String from a view",
     [](Texts& on) { on.taken = cow_String(std::string_view(longText).substr(3)); }},
    {"cow_String from a long string", [](Texts& on) { on.taken = cow_String(std::string(1000, 'x')); }},
    {"cow_String from a part", [](Texts& on) { on.taken = cow_String(longText.c_str(), 30); }},
    {"cow_String from a short text", [](Texts& on) { on.taken = cow_String("short"); }, memory_need::None},
    {"cow_String copied", [](Texts& on) { on.taken = cow_String(on.sharer); }, memory_need::None},
    {"cow_String compared",
     [](Texts& on) { static_cast<void>(cow_String::Compare(on.taken, on.sharer) + (on.taken == "x")); },
     memory_need::None},
});

// ---- handles ----

/// A polymorphic object whose copies allocate.
class Shape {
public:
  explicit Shape(std::string given) : name(std::move(given)) {}
  virtual ~Shape() = default;
  virtual Shape* Copy() const { return new Shape(*this); }
  std::string name;

protected:
  Shape(Shape const&) = default;
};

struct Handles {
  using Virtual = cow_COW<Shape, cow_Virtual<Shape>>;
  using Direct = cow_COW<std::string, cow_Direct<std::string>>;
  using Array = cow_ArrayCOW<Shape, cow_Virtual<Shape>>;

  Virtual shape{new Shape(text(1))};
  Virtual shapeSharer = shape;
  Direct direct{new std::string(text(2))};
  Direct directSharer = direct;
  Array array{new Shape(text(3))};
  Array arraySharer = array;
  std::optional<Array> made;
  cow_ErasedHandle* erased = nullptr;

  Handles() = default;
  Handles(Handles const&) = delete;
  Handles& operator=(Handles const&) = delete;
  ~Handles() { cow_Erasure<Virtual>::Release(erased); }

  std::string look() const {
    return shape.ConstGet().name + "|" + shapeSharer.ConstGet().name + "|" + direct.ConstGet() + "|" +
           directSharer.ConstGet() + "|" + array.ConstGet().name + "|" + arraySharer.ConstGet().name +
           (made ? made->IsEmpty() ? "|empty" : "|" + made->ConstGet().name : "") + (erased ? "|erased" : "");
  }
};

std::vector<memory_call> const handleCalls = memory_calls<Handles>({
    {"cow_COW of a copy", [](Handles& on) { on.shape = Handles::Virtual(on.shapeSharer.ConstGet()); }},
    {"cow_COW adopting", [](Handles& on) { on.shape = Handles::Virtual(new Shape(text(4))); }},
    {"cow_COW assigned a handle", [](Handles& on) { on.shape = on.shapeSharer; }, memory_need::None},
    {"cow_COW assigned an object", [](Handles& on) { on.shape = new Shape(text(5)); }},
    {"cow_COW::Get of a shared object", [](Handles& on) { on.shape.Get().name[0] = '!'; }},
    {"cow_COW::Get of a shared plain object", [](Handles& on) { on.direct.Get()[0] = '!'; }},
    {"cow_ArrayCOW empty", [](Handles& on) { on.made.emplace(); }},
    {"cow_ArrayCOW of a copy", [](Handles& on) { on.made.emplace(on.array.ConstGet()); }},
    {"cow_ArrayCOW adopting", [](Handles& on) { on.made.emplace(new Shape(text(6))); }},
    {"cow_ArrayCOW assigned an object", [](Handles& on) { on.array = new Shape(text(7)); }},
    {"cow_ArrayCOW::Get of a shared object", [](Handles& on) { on.array.Get().name[0] = '!'; }},
    {"cow_Erasure::Erase", [](Handles& on) { on.erased = cow_eraseHandle(on.shape); }},
    {"cow_Erasure::Restore",
     [](Handles& on) {
       if (!on.erased) {
         on.erased = cow_eraseHandle(on.shape);
       }
       on.shapeSharer = cow_Erasure<Handles::Virtual>::Restore(*on.erased);
     }},
});

// ---- cow_1DArray ----

using Array = cow_1DArray<std::string>;

std::string show(Array const& array) {
  std::string all = std::to_string(array.Size()) + ":";
  for (int index = 0; index < array.Size(); ++index) {
    all.append(array.ConstGet(index)).append(",");
  }
  return all;
}

struct Arrays {
  Array array{20};
  Array sharer;
  cow_1DArrayList<std::string> list;
  std::optional<Array> made;
  std::unique_ptr<std::string[]> plain;
  Array::Block block{2};
  std::optional<Array::Block> madeBlock;

  Arrays() {
    array.Get(1) = text(1);
    sharer = array; // of its two blocks, one is not made yet
    list.Append(text(2));
    block.items[1] = text(4);
  }
  std::string look() const {
    return show(array) + "|" + show(sharer) + "|" + show(list.Array()) + "|" + (made ? show(*made) : "") +
           (plain ? plain[1] : "") + "|" + block.items[1] + (madeBlock ? "|" + madeBlock->items[1] : "");
  }
};

std::vector<memory_call> const arrayCalls = memory_calls<Arrays>({
    {"cow_1DArray empty", [](Arrays& on) { on.made.emplace(); }},
    {"cow_1DArray of a size", [](Arrays& on) { on.made.emplace(3); }},
    {"cow_1DArray of a large size", [](Arrays& on) { on.made.emplace(1000); }},
    {"cow_1DArray copied", [](Arrays& on) { on.made = on.array; }, memory_need::None},
    {"cow_1DArray::ConstGet of an item", [](Arrays& on) { on.array.ConstGet(2); }, memory_need::None},
    {"cow_1DArray::ConstGet of a new block", [](Arrays& on) { on.array.ConstGet(19); }},
    {"cow_1DArray::Get of a shared block", [](Arrays& on) { on.array.Get(1)[0] = '!'; }},
    {"cow_1DArray::Get of a new block", [](Arrays& on) { on.array.Get(19); }},
    {"cow_1DArray::Grow", [](Arrays& on) { on.array.Grow(30); }},
    {"cow_1DArray::Grow by many blocks", [](Arrays& on) { on.array.Grow(5000); }},
    {"cow_1DArray::Grow to fewer", [](Arrays& on) { on.array.Grow(2); }},
    {"cow_1DArray::Grow to none", [](Arrays& on) { on.array.Grow(0); }},
    {"cow_1DArray::SetFromArray",
     [](Arrays& on) {
       std::string const items[] = {text(5), text(6)};
       on.array.SetFromArray(items, 2);
     }},
    {"cow_1DArray::GetCArray", [](Arrays& on) { on.plain = on.array.GetCArray(); }},
    {"cow_1DArrayBlock of a length", [](Arrays& on) { on.madeBlock.emplace(3); }},
    {"cow_1DArrayBlock copied", [](Arrays& on) { on.madeBlock.emplace(on.block); }},
    {"cow_1DArrayList::Append", [](Arrays& on) { on.list.Append(text(3)); }},
    {"cow_1DArrayList::Append of an item of its own",
     [](Arrays& on) { on.list.Append(on.list.ConstGet(0)); }},
    {"cow_1DArrayList::Get", [](Arrays& on) { on.list.Get(0)[0] = '!'; }, memory_need::None},
    {"cow_1DArrayIter",
     [](Arrays& on) {
       for (cow_1DArrayIter<std::string> each(on.array); !each.AtEnd(); each.Next()) {
         static_cast<void>(each.Value());
       }
     }},
});

// ---- cow_Map ----

using Map = cow_Map<cow_String, std::string>;

cow_String key(int number) {
  return cow_String(("a key, long enough to need memory: " + std::to_string(number)).c_str());
}

std::string show(Map const& map) {
  std::string all = std::to_string(map.Size()) + ":";
  cow_MapIterator<cow_String, std::string> each(map);
  for (each.First(); !each.AtEnd(); each.Next()) {
    all.append(each.Key().View()).append("=").append(each.Value()).append(",");
  }
  return all;
}

struct Maps {
  Map map;
  Map sharer;
  std::string told;

  Maps() {
    for (int number = 0; number < 12; ++number) {
      map.Insert(key(number), text(number));
    }
    sharer = map;
  }
  std::string look() const { return show(map) + "|" + show(sharer) + "|" + told; }
};

std::vector<memory_call> const mapCalls = memory_calls<Maps>({
    {"cow_Map copied and assigned",
     [](Maps& on) {
       Map const copy(on.map);
       on.sharer = copy;
     },
     memory_need::None},
    {"cow_Map::Insert of a new key", [](Maps& on) { on.map.Insert(key(100), text(100)); }},
    {"cow_Map::Insert of a key that is there", [](Maps& on) { on.map.Insert(key(3), text(101)); }},
    {"cow_Map::Remove of a leaf and of a root",
     [](Maps& on) {
       Map left = on.map;
       left.Remove(key(11));
       left.Remove(left.RootNode()->Key());
       on.map = left;
     }},
    {"cow_Map::Remove of the root", [](Maps& on) { on.map.Remove(cow_String(on.map.RootNode()->Key())); }},
    {"cow_Map::Remove of a key that is not there", [](Maps& on) { on.map.Remove(key(100)); }},
    {"cow_Map::Find for writing", [](Maps& on) { (*on.map.Find(key(5)))[0] = '!'; }},
    {"cow_Map::Find of a key that is not there", [](Maps& on) { static_cast<void>(on.map.Find(key(100))); }},
    {"cow_Map::ConstFind", [](Maps& on) { static_cast<void>(on.map.ConstFind(key(5))); }},
    {"cow_Map::Keys", [](Maps& on) { on.told = on.map.Keys().at(3).Text(); }},
    {"cow_Map::Clear", [](Maps& on) { on.map.Clear(); }, memory_need::None},
    {"cow_MapIterator",
     [](Maps& on) {
       std::string all;
       cow_MapIterator<cow_String, std::string> each(on.map);
       for (each.Last(); !each.AtEnd(); each.Prev()) {
         all += each.Value();
       }
       on.told = all;
     }},
    {"cow_mapDiff",
     [](Maps& on) {
       Map other = on.map;
       other.Insert(key(200), text(200));
       other.Remove(key(2));
       std::string all;
       cow_mapDiff(on.map, other, [&](cow_String const& name, auto, auto) { all += name.Text(); });
       on.told = all;
     }},
});

struct SoleMaps : Maps {
  SoleMaps() { sharer.Clear(); }
};

std::vector<memory_call> const soleMapCalls = memory_calls<SoleMaps>({
    {"cow_Map::Insert into an unshared map", [](SoleMaps& on) { on.map.Insert(key(100), text(100)); }},
    {"cow_Map::Insert of a key that is there, unshared",
     [](SoleMaps& on) { on.map.Insert(key(3), text(101)); }},
    {"cow_Map::Remove from an unshared map",
     [](SoleMaps& on) { on.map.Remove(cow_String(on.map.RootNode()->Key())); }, memory_need::None},
});

// ---- cow_Btree ----

using Tree = cow_Btree<std::string, std::string>;
using TreeIterator = cow_BtreeIterator<std::string, std::string>;

std::string show(Tree const& tree) {
  std::string all = std::to_string(tree.Count()) + ":";
  TreeIterator each(tree);
  for (each.First(); !each.AtEnd(); each.Next()) {
    all.append(each.Key()).append("=").append(each.Value()).append(",");
  }
  return all;
}

struct Trees {
  Tree tree;
  Tree sharer;
  cow_BtreeBuilder<std::string, std::string> builder;
  std::unique_ptr<Tree> made;
  std::string told;

  Trees() {
    for (int number = 10; number < 30; ++number) {
      tree.InsertUnlessMember(text(number), text(number));
    }
    sharer = tree;
  }
  std::string look() {
    Tree const built = builder.Take();
    return show(tree) + "|" + show(sharer) + "|" + show(built) + "|" + (made ? show(*made) : "") + told;
  }
};

std::vector<memory_call> const treeCalls = memory_calls<Trees>({
    {"cow_Btree copied and assigned",
     [](Trees& on) {
       Tree const copy(on.tree);
       on.sharer = copy;
     },
     memory_need::None},
    {"cow_Btree::Copy", [](Trees& on) { on.made.reset(on.tree.Copy()); }},
    {"cow_Btree::InsertUnlessMember before all", [](Trees& on) { on.tree.InsertUnlessMember("0", text(1)); }},
    {"cow_Btree::InsertUnlessMember behind all",
     [](Trees& on) { on.tree.InsertUnlessMember(text(99), text(1)); }},
    {"cow_Btree::InsertUnlessMember in between",
     [](Trees& on) { on.tree.InsertUnlessMember(text(15) + "x", text(1)); }},
    {"cow_Btree::InsertUnlessMember of a member",
     [](Trees& on) { on.tree.InsertUnlessMember(text(15), text(1)); }},
    {"cow_Btree::Remove of the first", [](Trees& on) { on.tree.Remove(text(10)); }},
    {"cow_Btree::Remove of the root",
     [](Trees& on) { on.tree.Remove(std::string(on.tree.RootNode()->Key())); }},
    {"cow_Btree::Remove of the last", [](Trees& on) { on.tree.Remove(text(29)); }},
    {"cow_Btree::Remove of a key that is not there", [](Trees& on) { on.tree.Remove(text(99)); }},
    {"cow_Btree::Find for writing", [](Trees& on) { on.tree.Find(text(20))->Value()[0] = '!'; }},
    {"cow_Btree::ConstFind",
     [](Trees& on) {
       std::string const wanted = text(20);
       static_cast<void>(on.tree.ConstFind(wanted));
     }},
    {"cow_Btree::Clear", [](Trees& on) { on.tree.Clear(); }, memory_need::None},
    {"cow_BtreeBuilder::Append",
     [](Trees& on) {
       cow_BtreeBuilder<std::string, std::string> building;
       for (int number = 10; number < 30; ++number) {
         building.Append(text(number), text(number));
       }
       on.tree = building.Take();
     }},
    {"cow_BtreeIterator",
     [](Trees& on) {
       std::string all;
       TreeIterator each(on.tree);
       for (each.Last(); !each.AtEnd(); each.Prev()) {
         all += each.Key();
       }
       on.told = all;
     }},
    {"cow_btreeDiff",
     [](Trees& on) {
       Tree other(on.tree);
       other.Remove(text(12));
       other.InsertUnlessMember(text(77), text(77));
       std::string all;
       cow_btreeDiff(on.tree, other, [&](std::string const& name, auto, auto) { all += name; });
       on.told = all;
     }},
    {"cow_PathStack::Push beyond its own room",
     [](Trees& on) {
       cow_PathStack<int, 2> stack;
       for (int number = 0; number < 9; ++number) {
         stack.Push(number);
       }
       cow_PathStack<int, 2> const copy(stack);
       on.told = std::to_string(copy.Top());
     }},
});

struct SoleTrees : Trees {
  SoleTrees() { sharer.Clear(); }
};

std::vector<memory_call> const soleTreeCalls = memory_calls<SoleTrees>({
    {"cow_Btree::InsertUnlessMember into an unshared tree",
     [](SoleTrees& on) { on.tree.InsertUnlessMember(text(99), text(1)); }},
    {"cow_Btree::Remove from an unshared tree",
     [](SoleTrees& on) { on.tree.Remove(std::string(on.tree.RootNode()->Key())); }},
});

// ---- mdl_Container ----

struct Boxes {
  mdl_Container<cow_String, Shape> box;
  mdl_Container<cow_String, Shape> sharer;
  std::string told;

  Boxes() {
    for (int number = 0; number < 6; ++number) {
      box.Insert(key(number), new Shape(text(number)));
    }
    sharer = box;
  }
  void adopt(cow_String const& name) {
    auto made = std::make_unique<Shape>(text(51));
    box.Insert(name, made.release());
  }
  static std::string show(mdl_Container<cow_String, Shape> const& box) {
    std::string all;
    for (mdl_ContainerIter<cow_String, Shape> each(box); !each.AtEnd(); each.Next()) {
      all.append(each.Key().View()).append("=").append(each.Value().name).append(",");
    }
    return all;
  }
  std::string look() const { return show(box) + "|" + show(sharer) + "|" + told; }
};

std::vector<memory_call> const boxCalls = memory_calls<Boxes>({
    {"mdl_Container::Insert of a copy", [](Boxes& on) { on.box.Insert(key(50), on.box.ConstGet(key(1))); }},
    {"mdl_Container::Insert adopting", [](Boxes& on) { on.adopt(key(51)); }},
    {"mdl_Container::Insert in place of another", [](Boxes& on) { on.adopt(key(3)); }},
    {"mdl_Container::Get", [](Boxes& on) { on.box.Get(key(2)).name[0] = '!'; }},
    {"mdl_Container::ConstGet", [](Boxes& on) { on.box.ConstGet(key(2)); }},
    {"mdl_Container::Get of a key that is not there",
     [](Boxes& on) { on.told = memory_refusal<omu_AccessErrorException>([&] { on.box.Get(key(99)); }); }},
    {"mdl_Container::Remove", [](Boxes& on) { on.box.Remove(key(0)); }},
    {"mdl_Container::Clear", [](Boxes& on) { on.box.Clear(); }, memory_need::None},
    {"mdl_ContainerIter", [](Boxes& on) { on.told = Boxes::show(on.box); }},
});

// ---- lists ----

struct Lists {
  cls_ListObj<dia_Message> list;
  cls_ListObj<dia_Message> sharer;
  dia_DiagnosticData messages;
  dia_DiagnosticData messagesSharer;
  std::optional<cls_ListObj<dia_Message>> made;

  Lists() {
    list.Append(dia_Message(1, dia_Severity::Error, text(1).c_str()));
    messages.Append(1, dia_Severity::Error, text(1).c_str());
    sharer = list;
    messagesSharer = messages;
  }
  template <class List>
  static std::string show(List const& list, auto at) {
    std::string all;
    for (int index = 0; index < list.Size(); ++index) {
      dia_Message const& message = at(list, index);
      all.append(std::to_string(message.Time())).append(message.Text().View()).append(",");
    }
    return all + "|";
  }
  std::string look() const {
    auto const item = [](auto const& from, int index) -> auto& {
      return from.ConstGet(index);
    };
    auto const message = [](auto const& from, int index) -> auto& {
      return from.Message(index);
    };
    return show(list, item) + show(sharer, item) + show(messages, message) + show(messagesSharer, message) +
           (made ? "made" : "");
  }
};

std::vector<memory_call> const listCalls = memory_calls<Lists>({
    {"cls_ListObj empty", [](Lists& on) { on.made.emplace(); }},
    {"cls_ListObj::Append",
     [](Lists& on) { on.list.Append(dia_Message(2, dia_Severity::Error, text(2).c_str())); }},
    {"cls_ListObj::Get",
     [](Lists& on) { on.list.Get(0) = dia_Message(3, dia_Severity::Error, text(3).c_str()); }},
    {"cls_ListObj::Clear", [](Lists& on) { on.list.Clear(); }},
    {"dia_DiagnosticData::Append",
     [](Lists& on) { on.messages.Append(2, dia_Severity::Error, text(2).c_str()); }},
    {"dia_DiagnosticData::Clear", [](Lists& on) { on.messages.Clear(); }},
});

class Memory_Containers : public memory_test {};

TEST_P(Memory_Containers, AreWhatTheyWereAfterAnyFailedAllocation) {
  constexpr std::uint64_t all = 1'000'000;
  failEach(all);
}

INSTANTIATE_TEST_SUITE_P(Texts, Memory_Containers, testing::ValuesIn(textCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Handles, Memory_Containers, testing::ValuesIn(handleCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Arrays, Memory_Containers, testing::ValuesIn(arrayCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Maps, Memory_Containers, testing::ValuesIn(mapCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(SoleMaps, Memory_Containers, testing::ValuesIn(soleMapCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(SoleTrees, Memory_Containers, testing::ValuesIn(soleTreeCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Trees, Memory_Containers, testing::ValuesIn(treeCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Boxes, Memory_Containers, testing::ValuesIn(boxCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Lists, Memory_Containers, testing::ValuesIn(listCalls), memory_testName);

} // namespace
