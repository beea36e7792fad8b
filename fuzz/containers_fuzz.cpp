// Operations on every container beside a plain model, with copies that share and must not see each other's
// changes.
#include "fuzz_script.h"

#include "cow_1DArray.h"
#include "cow_Btree.h"
#include "cow_BtreeIterator.h"
#include "cow_COW.h"
#include "cow_Map.h"
#include "cow_MapIterator.h"
#include "ddr_Ddb.h"

#include <array>
#include <map>
#include <vector>

namespace {

constexpr unsigned copies = 3;
constexpr unsigned longestKey = 6;

cow_String takeKey(fuzz_script& script) {
  std::string key(script.Bytes(script.Below(longestKey)));
  return cow_String(key.substr(0, key.find('\0')));
}

// ---- the faces that maps show to the script ----

struct Item {
  explicit Item(int itsNumber) : number(itsNumber) {}
  virtual ~Item() = default;
  virtual Item* Copy() const { return new Item(*this); }
  int number;
};

struct TreeFace {
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
  static bool Less(std::string const& left, std::string const& right) {
    return cow_KeyOrder<cow_String>::Compare(cow_String(left), cow_String(right)) < 0;
  }
  template <class Visit>
  void Walk(Visit visit) const {
    cow_BtreeIterator<cow_String, int> entry(tree);
    for (entry.First(); !entry.AtEnd(); entry.Next()) {
      visit(entry.Key(), entry.Value());
    }
  }
};

struct MapFace {
  cow_Map<cow_String, int> map;
  void Put(cow_String const& key, int value) { map.Insert(key, value); }
  bool Remove(cow_String const& key) { return map.Remove(key); }
  void Clear() { map.Clear(); }
  int const* Find(cow_String const& key) const { return map.ConstFind(key); }
  std::size_t Size() const { return static_cast<std::size_t>(map.Size()); }
  static bool Less(std::string const& left, std::string const& right) { return left < right; }
  template <class Visit>
  void Walk(Visit visit) const {
    cow_MapIterator<cow_String, int> entry(map);
    for (entry.First(); !entry.AtEnd(); entry.Next()) {
      visit(entry.Key(), entry.Value());
    }
  }
};

struct ContainerFace {
  mdl_Container<cow_String, Item> container;
  void Put(cow_String const& key, int value) {
    if (container.IsMember(key)) {
      container.Get(key).number = value;
    } else {
      container.Insert(key, Item(value));
    }
  }
  bool Remove(cow_String const& key) { return container.Remove(key); }
  void Clear() { container.Clear(); }
  int const* Find(cow_String const& key) const {
    return container.IsMember(key) ? &container.ConstGet(key).number : nullptr;
  }
  std::size_t Size() const { return static_cast<std::size_t>(container.Size()); }
  static bool Less(std::string const& left, std::string const& right) { return left < right; }
  template <class Visit>
  void Walk(Visit visit) const {
    for (mdl_ContainerIter<cow_String, Item> entry(container); !entry.AtEnd(); entry.Next()) {
      visit(entry.Key(), entry.Value().number);
    }
  }
};

/// Models in memory; the number of one is in its name.
struct ModelsFace {
  ddr_ModelContainer models;
  void Put(cow_String const& key, int value) {
    models.Insert(key, ddr_Model("database", std::to_string(value)));
    models.Get(key).SetDatabase(std::to_string(value));
  }
  bool Remove(cow_String const& key) { return models.Remove(key); }
  void Clear() { models.Clear(); }
  int const* Find(cow_String const& key) const {
    if (!models.IsMember(key)) {
      return nullptr;
    }
    found = std::stoi(models.ConstGet(key).GetDatabase().Text());
    return &found;
  }
  std::size_t Size() const { return static_cast<std::size_t>(models.Size()); }
  static bool Less(std::string const& left, std::string const& right) { return TreeFace::Less(left, right); }
  template <class Visit>
  void Walk(Visit visit) const {
    cls_Map2ObjIter entry(models);
    for (entry.First(); !entry.AtEnd(); entry.Next()) {
      visit(entry.Key(), std::stoi(entry.Value().GetName().Text()));
    }
  }
  mutable int found = 0;
};

template <class Face>
void playMap(fuzz_script& script) {
  struct Order {
    bool operator()(std::string const& left, std::string const& right) const {
      return Face::Less(left, right);
    }
  };
  std::array<Face, copies> faces;
  std::array<std::map<std::string, int, Order>, copies> models;
  for (int step = 0; !script.AtEnd(); ++step) {
    unsigned const operation = script.Below(16);
    unsigned const which = script.Below(copies);
    cow_String const key = takeKey(script);
    std::string const plainKey = key.Text();
    Face& face = faces[which];
    auto& model = models[which];
    if (operation < 8) {
      face.Put(key, step);
      model[plainKey] = step;
    } else if (operation < 13) {
      fuzz_require(face.Remove(key) == (model.erase(plainKey) == 1),
                   "removing tells whether the key was there");
    } else if (operation < 15) {
      unsigned const other = script.Below(copies);
      face = Face(faces[other]);
      model = models[other];
    } else {
      face.Clear();
      model.clear();
    }
    int const* const found = face.Find(key);
    auto const expected = model.find(plainKey);
    fuzz_require((found != nullptr) == (expected != model.end()), "a key is found where it was put");
    fuzz_require(found == nullptr || *found == expected->second, "a key leads to what was put last");
  }
  for (unsigned which = 0; which < copies; ++which) {
    auto expected = models[which].begin();
    fuzz_require(faces[which].Size() == models[which].size(), "the size is the number of keys");
    faces[which].Walk([&](cow_String const& key, int value) {
      fuzz_require(expected != models[which].end() && key == cow_String(expected->first) &&
                       value == expected->second,
                   "a walk meets every entry in order");
      ++expected;
    });
    fuzz_require(expected == models[which].end(), "a walk ends behind the last entry");
  }
}

/// An array: items beyond the end stay until the array is emptied.
struct PlainArray {
  std::vector<int> items;
  std::size_t size = 0;
};

void playArray(fuzz_script& script) {
  std::array<cow_1DArray<int>, copies> arrays;
  std::array<PlainArray, copies> models;
  for (int step = 1; !script.AtEnd(); ++step) {
    unsigned const operation = script.Below(8);
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
    } else {
      std::vector<int> const items(number, step);
      array.SetFromArray(items.data(), static_cast<int>(number));
      model = {items, number};
    }
  }
  for (unsigned which = 0; which < copies; ++which) {
    fuzz_require(static_cast<std::size_t>(arrays[which].Size()) == models[which].size,
                 "the size is what was set");
    for (std::size_t index = 0; index < models[which].size; ++index) {
      fuzz_require(arrays[which].ConstGet(static_cast<int>(index)) == models[which].items[index],
                   "an item is what was put there last");
    }
  }
}

/// Handles: a value that is shared until it is written.
void playHandles(fuzz_script& script) {
  std::vector<cow_COW<Item, cow_Virtual<Item>>> handles(copies, cow_COW<Item, cow_Virtual<Item>>(Item(0)));
  std::array<int, copies> models{};
  for (int step = 1; !script.AtEnd(); ++step) {
    unsigned const which = script.Below(copies);
    unsigned const other = script.Below(copies);
    if (script.Below(2) == 0) {
      handles[which] = handles[other];
      models[which] = models[other];
    } else {
      handles[which].Get().number = step;
      models[which] = step;
    }
    for (unsigned index = 0; index < copies; ++index) {
      fuzz_require(handles[index].ConstGet().number == models[index],
                   "a handle reads what was written through it");
    }
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  fuzz_script script(data, size);
  switch (script.Below(6)) {
  case 0:
    playMap<TreeFace>(script);
    break;
  case 1:
    playMap<MapFace>(script);
    break;
  case 2:
    playMap<ContainerFace>(script);
    break;
  case 3:
    playMap<ModelsFace>(script);
    break;
  case 4:
    playArray(script);
    break;
  default:
    playHandles(script);
    break;
  }
  return 0;
}
