// Our containers beside those of the standard library and absl::btree_map: build, find, iterate, copy, write,
// erase.
#include "cow_1DArray.h"
#include "cow_BtreeIterator.h"
#include "cow_COW.h"
#include "cow_MapIterator.h"

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include <malloc.h>

#include <absl/container/btree_map.h>
#include <benchmark/benchmark.h>

namespace {

// What the maps hold, behind a copy-on-write handle or a shared pointer.
class Record {
public:
  virtual ~Record() = default;
  virtual Record* Copy() const { return new Record(*this); }

private:
  [[maybe_unused]] int number = 0;
};

using Handle = cow_ArrayCOW<Record, cow_Virtual<Record>>;
using Pointer = std::shared_ptr<Record>;

// ---- One face for all maps ----

template <class Map>
struct Standard {
  using Key = std::string;
  using Value = Pointer;
  static Value MakeValue() { return std::make_shared<Record>(); }
  static void Insert(Map& map, Key const& key, Value const& value) { map.emplace(key, value); }
  static Value const* Find(Map const& map, Key const& key) {
    auto const found = map.find(key);
    return found == map.end() ? nullptr : &found->second;
  }
  static void Write(Map& map, Key const& key, Value const& value) { map.find(key)->second = value; }
  static void Erase(Map& map, Key const& key) { map.erase(key); }
  static std::size_t Walk(Map const& map) {
    std::size_t bytes = 0;
    for (auto const& [key, value] : map) {
      bytes += key.size();
      benchmark::DoNotOptimize(value.get());
    }
    return bytes;
  }
};

template <class Map>
struct Face : Standard<Map> {};

template <>
struct Face<cow_Btree<cow_String, Handle>> {
  using Map = cow_Btree<cow_String, Handle>;
  using Key = cow_String;
  using Value = Handle;
  static Value MakeValue() { return Handle(new Record); }
  static void Insert(Map& map, Key const& key, Value const& value) { map.InsertUnlessMember(key, value); }
  static Value const* Find(Map const& map, Key const& key) {
    auto const* const node = map.ConstFind(key);
    return node ? &node->Value() : nullptr;
  }
  static void Write(Map& map, Key const& key, Value const& value) { map.Find(key)->Value() = value; }
  static void Erase(Map& map, Key const& key) { map.Remove(key); }
  static std::size_t Walk(Map const& map) {
    std::size_t bytes = 0;
    cow_BtreeIterator<cow_String, Handle> entry(map);
    for (entry.First(); !entry.AtEnd(); entry.Next()) {
      bytes += entry.Key().Length();
      benchmark::DoNotOptimize(entry.Value().Peek());
    }
    return bytes;
  }
};

template <>
struct Face<cow_Map<cow_String, Handle>> {
  using Map = cow_Map<cow_String, Handle>;
  using Key = cow_String;
  using Value = Handle;
  static Value MakeValue() { return Handle(new Record); }
  static void Insert(Map& map, Key const& key, Value const& value) { map.Insert(key, value); }
  static Value const* Find(Map const& map, Key const& key) { return map.ConstFind(key); }
  static void Write(Map& map, Key const& key, Value const& value) { *map.Find(key) = value; }
  static void Erase(Map& map, Key const& key) { map.Remove(key); }
  static std::size_t Walk(Map const& map) {
    std::size_t bytes = 0;
    cow_MapIterator<cow_String, Handle> entry(map);
    for (entry.First(); !entry.AtEnd(); entry.Next()) {
      bytes += entry.Key().Length();
      benchmark::DoNotOptimize(entry.Value().Peek());
    }
    return bytes;
  }
};

// ---- What goes into the maps ----

enum class Names { Numbered, Random };

std::string makeName(Names names, std::size_t number, std::mt19937& random) {
  if (names == Names::Numbered) {
    return "Model-" + std::to_string(number + 1);
  }
  constexpr char letters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  std::string name(40, ' ');
  for (char& letter : name) {
    letter = letters[random() % (sizeof letters - 1)];
  }
  return name;
}

template <class Map>
struct Data {
  Data(Names names, std::size_t count) {
    std::mt19937 random(20240131);
    std::vector<std::string> plain;
    plain.reserve(count);
    for (std::size_t number = 0; number != count; ++number) {
      plain.push_back(makeName(names, number, random));
    }
    std::shuffle(plain.begin(), plain.end(), random);
    keys.assign(plain.begin(), plain.end());
    std::shuffle(plain.begin(), plain.end(), random);
    wanted.assign(plain.begin(), plain.end());
    for (std::string& name : plain) {
      name.back() = name.back() == '5' ? 'z' : static_cast<char>(name.back() + 70);
      absent.push_back(name);
    }
    for (std::size_t number = 0; number != count; ++number) {
      values.push_back(Face<Map>::MakeValue());
    }
  }

  Map Build() const {
    Map map;
    for (std::size_t index = 0; index != keys.size(); ++index) {
      Face<Map>::Insert(map, keys[index], values[index]);
    }
    return map;
  }

  std::vector<typename Face<Map>::Key> keys;   // in the order of insertion
  std::vector<typename Face<Map>::Key> wanted; // the same, in another order
  std::vector<typename Face<Map>::Key> absent;
  std::vector<typename Face<Map>::Value> values;
};

// The data of the measurement before serve the next one of the same size.
template <class Map, Names names>
Data<Map> const& dataOf(benchmark::State const& state) {
  static std::unique_ptr<Data<Map> const> latest;
  auto const count = static_cast<std::size_t>(state.range(0));
  if (!latest || latest->keys.size() != count) {
    latest = std::make_unique<Data<Map> const>(names, count);
  }
  return *latest;
}

void perKey(benchmark::State& state, std::size_t count) {
  state.counters["per_key"] =
      benchmark::Counter(static_cast<double>(count),
                         benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// What is allocated now [byte]: blocks of the pools and of the heap.
std::size_t usedBytes() {
  std::size_t bytes = mallinfo2().uordblks + mallinfo2().hblkhd + 4 * mem_poolLiveBlocks(4);
  for (std::size_t size = 8; size <= mem_poolLargestBlock; size += 8) {
    bytes += size * mem_poolLiveBlocks(size);
  }
  return bytes;
}

// ---- The measurements ----

template <class Map, Names names>
void build(benchmark::State& state) {
  Data<Map> const& data = dataOf<Map, names>(state);
  for (auto _ : state) {
    auto map = std::make_unique<Map>(data.Build());
    benchmark::DoNotOptimize(map.get());
    state.PauseTiming();
    map.reset();
    state.ResumeTiming();
  }
  perKey(state, data.keys.size());
}

template <class Map, Names names>
void find(benchmark::State& state, bool hit) {
  Data<Map> const& data = dataOf<Map, names>(state);
  Map const map = data.Build();
  auto const& wanted = hit ? data.wanted : data.absent;
  for (auto const& key : wanted) {
    if ((Face<Map>::Find(map, key) != nullptr) != hit) {
      state.SkipWithError("a look-up gave the wrong answer");
      return;
    }
  }
  std::size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(Face<Map>::Find(map, wanted[next]));
    next = next + 1 == wanted.size() ? 0 : next + 1;
  }
  perKey(state, 1);
}
template <class Map, Names names>
void findHit(benchmark::State& state) {
  find<Map, names>(state, true);
}
template <class Map, Names names>
void findMiss(benchmark::State& state) {
  find<Map, names>(state, false);
}

template <class Map, Names names>
void iterate(benchmark::State& state) {
  Data<Map> const& data = dataOf<Map, names>(state);
  Map const map = data.Build();
  for (auto _ : state) {
    benchmark::DoNotOptimize(Face<Map>::Walk(map));
  }
  perKey(state, data.keys.size());
}

template <class Map, Names names>
void copy(benchmark::State& state) {
  Data<Map> const& data = dataOf<Map, names>(state);
  Map const map = data.Build();
  for (auto _ : state) {
    Map another(map);
    benchmark::DoNotOptimize(&another);
  }
  perKey(state, 1);
}

template <class Map, Names names>
void copyThenWrite(benchmark::State& state) {
  Data<Map> const& data = dataOf<Map, names>(state);
  Map const map = data.Build();
  auto const value = Face<Map>::MakeValue();
  std::size_t next = 0;
  for (auto _ : state) {
    Map another(map);
    Face<Map>::Write(another, data.wanted[next], value);
    benchmark::DoNotOptimize(&another);
    next = next + 1 == data.wanted.size() ? 0 : next + 1;
  }
  perKey(state, 1);
}

template <class Map, Names names>
void erase(benchmark::State& state) {
  Data<Map> const& data = dataOf<Map, names>(state);
  for (auto _ : state) {
    state.PauseTiming();
    auto map = std::make_unique<Map>(data.Build());
    state.ResumeTiming();
    for (auto const& key : data.wanted) {
      Face<Map>::Erase(*map, key);
    }
    benchmark::DoNotOptimize(map.get());
  }
  perKey(state, data.keys.size());
}

// The handles that records are held by, and the array.
template <class Copied>
void copyHandle(benchmark::State& state, Copied const& original) {
  std::size_t const before = cow_Counter::LiveCount();
  for (auto _ : state) {
    Copied another(original);
    benchmark::DoNotOptimize(&another);
  }
  if (cow_Counter::LiveCount() != before) {
    state.SkipWithError("copying made a counter");
  }
  perKey(state, 1);
}

// What an entry of an empty value costs, key included; the value's counter counts.
void entryBytes(benchmark::State& state) {
  auto const count = static_cast<std::size_t>(state.range(0));
  std::mt19937 random(1);
  for (auto _ : state) {
    std::size_t const before = usedBytes();
    cow_Btree<cow_String, Handle> map;
    for (std::size_t number = 0; number != count; ++number) {
      map.InsertUnlessMember(cow_String(makeName(Names::Numbered, 100000 + number, random)), Handle());
    }
    state.counters["bytes_per_entry"] =
        static_cast<double>(usedBytes() - before) / static_cast<double>(count);
  }
}

// Mean and largest depth, the root having depth 1.
template <class Node>
void reportDepth(benchmark::State& state, Node const* root) {
  std::vector<std::pair<Node const*, int>> pending{{root, 1}};
  double sum = 0;
  double count = 0;
  int largest = 0;
  while (!pending.empty()) {
    auto const [node, depth] = pending.back();
    pending.pop_back();
    if (!node) {
      continue;
    }
    sum += depth;
    ++count;
    largest = std::max(largest, depth);
    pending.emplace_back(node->Left().Peek(), depth + 1);
    pending.emplace_back(node->Right().Peek(), depth + 1);
  }
  state.counters["mean_depth"] = sum / count;
  state.counters["largest_depth"] = largest;
}

template <class Map, Names names>
void depth(benchmark::State& state) {
  Map const map = dataOf<Map, names>(state).Build();
  for (auto _ : state) {
    reportDepth(state, map.RootNode());
  }
}

using Btree = cow_Btree<cow_String, Handle>;
using Trie = cow_Map<cow_String, Handle>;
using StdMap = std::map<std::string, Pointer>;
using StdUnorderedMap = std::unordered_map<std::string, Pointer>;
using AbslBtreeMap = absl::btree_map<std::string, Pointer>;

template <class Map, Names names>
void addAll(std::string const& map, std::vector<std::int64_t> const& sizes) {
  std::string const rest = std::string(names == Names::Numbered ? "/numbered/" : "/random40/") + map;
  for (std::int64_t const size : sizes) {
    auto const add = [&](char const* work, void (*function)(benchmark::State&)) {
      benchmark::RegisterBenchmark((work + rest).c_str(), function)->Arg(size);
    };
    add("build", build<Map, names>);
    add("find_hit", findHit<Map, names>);
    add("find_miss", findMiss<Map, names>);
    add("iterate", iterate<Map, names>);
    add("copy", copy<Map, names>);
    add("copy_then_write", copyThenWrite<Map, names>);
    add("erase", erase<Map, names>);
  }
}

template <Names names>
void addPeers(std::vector<std::int64_t> const& sizes) {
  addAll<StdMap, names>("std_map", sizes);
  addAll<StdUnorderedMap, names>("std_unordered_map", sizes);
  addAll<AbslBtreeMap, names>("absl_btree_map", sizes);
}

bool const added = [] {
  std::vector<std::int64_t> const all{100, 1000, 10000, 1000000};
  std::vector<std::int64_t> const upToTenThousand{100, 1000, 10000};
  addAll<Btree, Names::Numbered>("cow_Btree", all);
  addAll<Trie, Names::Numbered>("cow_Map", upToTenThousand);
  addPeers<Names::Numbered>(all);
  addAll<Btree, Names::Random>("cow_Btree", upToTenThousand);
  addAll<Trie, Names::Random>("cow_Map", upToTenThousand);
  addPeers<Names::Random>(upToTenThousand);
  for (std::int64_t const size : all) {
    benchmark::RegisterBenchmark("depth/numbered/cow_Btree", depth<Btree, Names::Numbered>)
        ->Arg(size)
        ->Iterations(1);
  }
  for (std::int64_t const size : upToTenThousand) {
    benchmark::RegisterBenchmark("depth/numbered/cow_Map", depth<Trie, Names::Numbered>)
        ->Arg(size)
        ->Iterations(1);
    benchmark::RegisterBenchmark("depth/random40/cow_Map", depth<Trie, Names::Random>)
        ->Arg(size)
        ->Iterations(1);
  }
  benchmark::RegisterBenchmark("copy_handle/record/cow_ArrayCOW",
                               [](benchmark::State& state) { copyHandle(state, Handle(new Record)); });
  benchmark::RegisterBenchmark("copy_handle/text/cow_String", [](benchmark::State& state) {
    copyHandle(state, cow_String("a text that is too long to be held in the object"));
  });
  benchmark::RegisterBenchmark("copy_handle/array/cow_1DArray",
                               [](benchmark::State& state) { copyHandle(state, cow_1DArray<int>(100000)); });
  benchmark::RegisterBenchmark("entry_bytes/numbered/cow_Btree", entryBytes)->Arg(100000)->Iterations(1);
  return true;
}();

} // namespace
