// Operations on every container beside a plain model, with copies that share and must not see each other's
// changes.
#include "fuzz_script.h"

#include "atr_String.h"
#include "cls_ListObj.h"
#include "cls_Map2Obj.h"
#include "cow_1DArray.h"
#include "cow_Btree.h"
#include "cow_BtreeBuilder.h"
#include "cow_BtreeDiff.h"
#include "cow_BtreeIterator.h"
#include "cow_COW.h"
#include "cow_Erasure.h"
#include "cow_Map.h"
#include "cow_MapDiff.h"
#include "cow_MapIterator.h"
#include "mdl_Container.h"
#include "mdl_MapString2Obj.h"

#include <array>
#include <map>
#include <memory>
#include <vector>

namespace {

constexpr unsigned copies = 3;
constexpr unsigned longestKey = 6;
constexpr int mostSteps = 40;

/// A record that lives in memory only.
struct Item {
  explicit Item(int itsNumber) : number(itsNumber) {}
  explicit Item(cls_ReadVisitor const&) { fuzz_fail("what is in no file is not read"); }
  virtual ~Item() = default;
  virtual Item* Copy() const { return new Item(*this); }
  void DBWrite(cls_WriteVisitor const&) const { fuzz_fail("what is in no file is not written"); }
  static unsigned TypeId() { return 0x2f0099; }
  int number = 0;
};

struct ByteOrder {
  static bool Less(std::string_view left, std::string_view right) { return left < right; }
};

/// The order that the host has chosen.
struct ChosenOrder {
  static bool Less(std::string_view left, std::string_view right) {
    return atr_getNaturalOrder() != 0 ? strnatcmp(left, right) < 0 : left < right;
  }
};

// ---- the faces that maps show to the script ----

struct TreeFace : ChosenOrder {
  cow_Btree<cow_String, int> tree;
  void Put(cow_String const& key, int value) {
    if (!tree.InsertUnlessMember(key, value)) {
      tree.Find(key)->Value() = value;
    }
  }
  bool Remove(cow_String const& key) { return tree.Remove(key); }
  void Clear() { tree.Clear(); }
  int const* Find(cow_String const& key) const {
    auto const* const node = tree.ConstFind(key);
    return node == nullptr ? nullptr : &node->Value();
  }
  std::size_t Size() const { return tree.Count(); }
  cow_BtreeIterator<cow_String, int> Walk() const { return cow_BtreeIterator(tree); }
  static int ValueOf(int value) { return value; }
  template <class Visit>
  static void Diff(TreeFace const& before, TreeFace const& after, Visit visit) {
    cow_btreeDiff(before.tree, after.tree, visit);
  }
};

/// A tree that is built anew after each change, from its own entries.
struct BuiltTreeFace : TreeFace {
  void Put(cow_String const& key, int value) {
    TreeFace::Put(key, value);
    Rebuild();
  }
  bool Remove(cow_String const& key) {
    bool const removed = TreeFace::Remove(key);
    Rebuild();
    return removed;
  }
  void Rebuild() {
    cow_BtreeBuilder<cow_String, int> builder;
    auto entry = Walk();
    for (entry.First(); !entry.AtEnd(); entry.Next()) {
      fuzz_require(builder.Append(entry.Key(), entry.Value()), "ascending keys make a tree");
      fuzz_require(!builder.Append(entry.Key(), 0), "a key that does not ascend is refused");
    }
    tree = builder.Take();
  }
};

struct MapFace : ByteOrder {
  cow_Map<cow_String, int> map;
  void Put(cow_String const& key, int value) { map.Insert(key, value); }
  bool Remove(cow_String const& key) { return map.Remove(key); }
  void Clear() { map.Clear(); }
  int const* Find(cow_String const& key) const { return map.ConstFind(key); }
  std::size_t Size() const { return static_cast<std::size_t>(map.Size()); }
  cow_MapIterator<cow_String, int> Walk() const { return cow_MapIterator(map); }
  static int ValueOf(int value) { return value; }
  template <class Visit>
  static void Diff(MapFace const& before, MapFace const& after, Visit visit) {
    cow_mapDiff(before.map, after.map, visit);
  }
};

/// What collections of records have in common.
template <class Collection>
struct RecordsFace {
  Collection records;
  void Put(cow_String const& key, int value) {
    if (records.IsMember(key) && value % 2 == 0) {
      records.Get(key).number = value;
    } else {
      records.Insert(key, Item(value));
    }
  }
  bool Remove(cow_String const& key) { return records.Remove(key); }
  int const* Find(cow_String const& key) const {
    return records.IsMember(key) ? &records.ConstGet(key).number : nullptr;
  }
  std::size_t Size() const { return static_cast<std::size_t>(records.Size()); }
  static int ValueOf(Item const& item) { return item.number; }
};

struct ContainerFace : ByteOrder, RecordsFace<mdl_Container<cow_String, Item>> {
  void Clear() { records.Clear(); }
  mdl_ContainerIter<cow_String, Item> Walk() const { return mdl_ContainerIter(records); }
};

struct NamedFace : ByteOrder, RecordsFace<mdl_MapString2Obj<Item>> {
  void Clear() { records.GetMap().Clear(); }
  mdl_MapString2ObjIT<Item> Walk() const { return mdl_MapString2ObjIT(records); }
};

struct KeyedFace : ChosenOrder,
                   RecordsFace<cls_Map2Obj<cow_String, Item, cow_ArrayCOW<Item, cow_Virtual<Item>>>> {
  void Clear() { records.Clear(); }
  auto Walk() const { return cls_Map2ObjIter(records); }
};

// ---- maps ----

template <class Face>
class MapPlay {
public:
  void Run(fuzz_script& script) {
    for (int step = 0; step < mostSteps && !script.AtEnd(); ++step) {
      unsigned const operation = script.Below(16);
      unsigned const which = script.Below(copies);
      std::string_view const bytes = script.Bytes(script.Below(longestKey));
      std::string const key(bytes.substr(0, bytes.find('\0')));
      if (operation < 13) {
        Change(operation < 8, which, key, step);
      } else if (operation < 15) {
        CopyFrom(script.Below(copies), which);
      } else {
        Clear(which);
      }
    }
    for (unsigned which = 0; which < copies; ++which) {
      RequireSame(faces[which], models[which]);
      RequireDiff(which, (which + 1) % copies);
    }
  }

private:
  struct Order {
    bool operator()(std::string const& left, std::string const& right) const {
      return Face::Less(left, right);
    }
  };
  using Model = std::map<std::string, int, Order>;

  void Change(bool puts, unsigned which, std::string const& plainKey, int value) {
    cow_String const key(plainKey);
    Face& face = faces[which];
    Model& model = models[which];
    if (puts) {
      face.Put(key, value);
      model[plainKey] = value;
    } else {
      fuzz_require(face.Remove(key) == (model.erase(plainKey) == 1),
                   "removing tells whether the key was there");
    }
    int const* const found = face.Find(key);
    fuzz_require(puts ? found != nullptr && *found == value : found == nullptr,
                 "a key leads to what was put last");
  }

  void CopyFrom(unsigned from, unsigned to) {
    if (models[from].empty()) {
      Clear(to); // a tree that an empty one is assigned to keeps its nodes, on purpose and for good
    } else {
      faces[to] = Face(faces[from]);
      models[to] = models[from];
    }
  }

  void Clear(unsigned which) {
    faces[which].Clear();
    models[which].clear();
  }

  static void RequireSame(Face const& face, Model const& model) {
    fuzz_require(face.Size() == model.size(), "the size is the number of keys");
    auto expected = model.begin();
    auto entry = face.Walk();
    for (entry.First(); !entry.AtEnd(); entry.Next(), ++expected) {
      fuzz_require(expected != model.end() && entry.Key() == expected->first &&
                       Face::ValueOf(entry.Value()) == expected->second,
                   "a walk meets every entry in order");
    }
    fuzz_require(expected == model.end(), "a walk ends behind the last entry");
    if constexpr (requires { entry.Prev(); }) {
      for (entry.Last(); !entry.AtEnd(); entry.Prev()) {
        fuzz_require(expected != model.begin() && entry.Key() == (--expected)->first,
                     "a walk backwards meets every entry");
      }
      fuzz_require(expected == model.begin(), "a walk backwards ends before the first entry");
    }
  }

  void RequireDiff(unsigned from, unsigned to) const {
    if constexpr (requires { Face::Diff(faces[0], faces[0], [](auto const&...) {}); }) {
      Model changed = models[from];
      Face::Diff(faces[from], faces[to], [&](cow_String const& key, int const* before, int const* after) {
        auto const known = changed.find(key.Text());
        fuzz_require((before != nullptr) == (known != changed.end()) &&
                         (before == nullptr || *before == known->second),
                     "a difference tells what was there before");
        if (after == nullptr) {
          changed.erase(known);
        } else {
          changed[key.Text()] = *after;
        }
      });
      fuzz_require(changed == models[to], "the differences lead from one map to the other");
    }
  }

  std::array<Face, copies> faces;
  std::array<Model, copies> models;
};

// ---- arrays and handles ----

/// An array: items beyond the end stay until the array is emptied.
struct PlainArray {
  std::vector<int> items;
  std::size_t size = 0;
};

void playArray(fuzz_script& script) {
  std::array<cow_1DArray<int>, copies> arrays;
  std::array<PlainArray, copies> models;
  for (int step = 1; step <= mostSteps && !script.AtEnd(); ++step) {
    unsigned const operation = script.Below(9);
    unsigned const which = script.Below(copies);
    cow_1DArray<int>& array = arrays[which];
    PlainArray& model = models[which];
    unsigned const number = script.Byte() * (operation == 0 ? 5U : 1U);
    if (operation < 3) {
      array.Grow(static_cast<int>(number));
      model.size = number;
      if (number == 0) {
        model.items.clear();
      } else if (model.items.size() < number) {
        model.items.resize(number);
      }
    } else if (operation < 6) {
      if (model.size != 0) {
        array.Get(static_cast<int>(number % model.size)) = step;
        model.items[number % model.size] = step;
      }
    } else if (operation == 6) {
      array = arrays[number % copies];
      model = PlainArray(models[number % copies]);
    } else if (operation == 7) {
      array.Swap(arrays[number % copies]);
      std::swap(model, models[number % copies]);
    } else {
      std::vector<int> const items(number, step);
      array.SetFromArray(items.data(), static_cast<int>(number));
      model = {items, number};
    }
  }
  for (unsigned which = 0; which < copies; ++which) {
    std::size_t const size = models[which].size;
    fuzz_require(static_cast<std::size_t>(arrays[which].Size()) == size, "the size is what was set");
    auto const items = arrays[which].GetCArray();
    fuzz_require((items == nullptr) == (size == 0), "only an empty array has no items");
    fuzz_require(std::equal(models[which].items.begin(),
                            models[which].items.begin() + static_cast<std::ptrdiff_t>(size), items.get()),
                 "an item is what was put there last");
  }
}

/// A list of objects, stored with its database.
struct ObjectsFace {
  cls_ListObj<Item> list;
  void Append(int value) { list.Append(Item(value)); }
  void AppendOwn(int index) { list.Append(list.ConstGet(index)); }
  void Set(int index, int value) { list.Get(index).number = value; }
  void Clear() { list.Clear(); }
  std::vector<int> Items() const {
    std::vector<int> items;
    for (int index = 0; index < list.Size(); ++index) {
      items.push_back(list.ConstGet(index).number);
    }
    fuzz_require(Refuses(-1) && Refuses(list.Size()), "a place outside a list is refused");
    return items;
  }

private:
  bool Refuses(int index) const {
    try {
      list.ConstGet(index);
    } catch (nex_AssertException const&) {
      return true;
    }
    return false;
  }
};

/// An array that is filled from its end.
struct NumbersFace {
  cow_1DArrayList<int> list;
  void Append(int value) { list.Append(value); }
  void AppendOwn(int index) { list.Append(list.ConstGet(index)); }
  void Set(int index, int value) { list.Get(index) = value; }
  void Clear() { list = cow_1DArrayList<int>(); }
  std::vector<int> Items() const {
    std::vector<int> items;
    cow_1DArrayIter<int> each(list.Array());
    for (each.First(); !each.AtEnd(); each.Next()) {
      items.push_back(each.Value());
    }
    fuzz_require(static_cast<std::size_t>(list.Size()) == items.size(), "the size is the number of items");
    return items;
  }
};

template <class Face>
void playList(fuzz_script& script) {
  std::array<Face, copies> lists;
  std::array<std::vector<int>, copies> models;
  for (int step = 1; step <= mostSteps && !script.AtEnd(); ++step) {
    unsigned const operation = script.Below(9);
    unsigned const which = script.Below(copies);
    unsigned const number = script.Byte();
    Face& list = lists[which];
    std::vector<int>& model = models[which];
    std::size_t const place = model.empty() ? 0 : number % model.size();
    if (operation == 0) {
      list.Clear();
      model.clear();
    } else if (operation == 1) {
      list = Face(lists[number % copies]);
      model = std::vector<int>(models[number % copies]);
    } else if (operation < 4) {
      unsigned const most = operation == 2 ? 1 : number;
      for (unsigned added = 0; added < most; ++added) {
        list.Append(step);
        model.push_back(step);
      }
    } else if (!model.empty() && operation < 6) {
      list.AppendOwn(static_cast<int>(place));
      model.push_back(int(model[place]));
    } else if (!model.empty()) {
      list.Set(static_cast<int>(place), step);
      model[place] = step;
    }
  }
  for (unsigned which = 0; which < copies; ++which) {
    fuzz_require(lists[which].Items() == models[which], "a list holds what was put into it, in order");
  }
}

/// Handles: a value that is shared until it is written. A shared pointer counts the same sharers.
void playHandles(fuzz_script& script) {
  using Handle = cow_COW<Item, cow_Virtual<Item>>;
  std::vector<Handle> handles;
  std::array<std::shared_ptr<int>, copies> models;
  for (std::shared_ptr<int>& model : models) {
    model = std::make_shared<int>(0);
    handles.emplace_back(Item(0));
  }
  for (int step = 1; step <= mostSteps && !script.AtEnd(); ++step) {
    unsigned const which = script.Below(copies);
    unsigned const other = script.Below(copies);
    switch (script.Below(5)) {
    case 0:
      handles[which] = handles[other];
      models[which] = models[other];
      break;
    case 1: {
      Handle moved(std::move(handles[other]));
      handles[other] = handles[which];
      handles[which] = std::move(moved);
      std::swap(models[which], models[other]);
      break;
    }
    case 2: {
      cow_ErasedHandle* const erased = cow_eraseHandle(handles[other]);
      handles[which] = cow_Erasure<Handle>::Restore(*erased);
      cow_releaseErased<Item>(erased);
      models[which] = models[other];
      break;
    }
    case 3:
      handles[which] = new Item(step);
      models[which] = std::make_shared<int>(step);
      break;
    default:
      handles[which].Get().number = step;
      models[which] = std::make_shared<int>(step);
      break;
    }
    for (unsigned index = 0; index < copies; ++index) {
      fuzz_require(handles[index].ConstGet().number == *models[index],
                   "a handle reads what was written through it");
      fuzz_require(handles[index].Count() == static_cast<unsigned>(models[index].use_count()),
                   "a handle counts those who share its object");
    }
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  fuzz_script script(data, size);
  atr_setNaturalOrder(static_cast<int>(script.Below(2)));
  switch (script.Below(10)) {
  case 0:
    MapPlay<TreeFace>().Run(script);
    break;
  case 1:
    MapPlay<BuiltTreeFace>().Run(script);
    break;
  case 2:
    MapPlay<MapFace>().Run(script);
    break;
  case 3:
    MapPlay<ContainerFace>().Run(script);
    break;
  case 4:
    MapPlay<NamedFace>().Run(script);
    break;
  case 5:
    MapPlay<KeyedFace>().Run(script);
    break;
  case 6:
    playArray(script);
    break;
  case 7:
    playList<ObjectsFace>(script);
    break;
  case 8:
    playList<NumbersFace>(script);
    break;
  default:
    playHandles(script);
    break;
  }
  return 0;
}
