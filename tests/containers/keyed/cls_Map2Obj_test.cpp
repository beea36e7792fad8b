// cls_Map2Obj against an agent that writes down what is asked of it.
#include "cls_Map2Obj.h"

#include "atr_String.h"

#include <gtest/gtest.h>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

/// What a made-up store holds and what was asked of it.
struct Rows {
  std::vector<std::pair<std::string, std::string>> rows; // in stored order
  std::vector<std::string> log;
  bool readOnly = false;
  bool startAnswer = true;
  bool keepsState = false;
  cls_CollectionAgent* agent = nullptr; // the last one given out
  std::string failOn;                   // writing the record of this text throws

  std::string const* Find(std::string const& key) const {
    for (auto const& [name, text] : rows) {
      if (name == key) {
        return &text;
      }
    }
    return nullptr;
  }
  void Log(std::string const& what) { log.push_back(what); }
  /// The log, and begins it anew.
  std::string TakeLog() {
    std::string text;
    for (std::string const& line : std::exchange(log, {})) {
      text += line + "; ";
    }
    return text;
  }
};

cls_AgentHandle agentOf(Rows& store);

class Source : public cls_RowSource {
public:
  explicit Source(Rows& ofStore) : store(ofStore), isCollection(true) {}
  Source(Rows& ofStore, std::string recordText) : store(ofStore), text(std::move(recordText)) {}

  bool IsPresent() const override { return true; }
  unsigned ClassId() const override { return isCollection ? cls_MapHeaderTypeId : 0x2f0009; }
  cls_Uid Uid() const override { return uid; }
  cow_String const& DbId() const override { return dbId; }
  std::string Where() const override { return "the made-up store"; }
  cls_ClassRegistrar const& Registrar() const override { return registrar; }
  bool IsA(unsigned baseTypeId) const override { return baseTypeId == ClassId(); }
  bool FieldIsPresent(cls_FieldHandle const&) const override { return true; }
  bool DataIsPresent(cls_FieldHandle const&) const override { return true; }
  int ReadInt(cls_FieldHandle const&, int absent) const override { return absent; }
  double ReadDouble(cls_FieldHandle const&, double absent) const override { return absent; }
  bool ReadBool(cls_FieldHandle const&, bool absent) const override { return absent; }
  cow_String ReadString(cls_FieldHandle const&, cow_String const&) const override { return text.c_str(); }
  std::unique_ptr<cls_RowSource> Object(cls_FieldHandle const&) const override { return nullptr; }
  cow_COW<int, cow_Direct<int>> const* SharedObject(cls_FieldHandle const&, unsigned) const override {
    return nullptr;
  }
  cls_AgentHandle Collection() const override { return agentOf(store); }
  std::unique_ptr<cls_ListSource> List() const override { return nullptr; }
  cow_String ElementText() const override { return {}; }

private:
  Rows& store;
  bool isCollection = false;
  std::string text;
  cls_Uid uid = cls_Uid::Allocate();
  cow_String dbId;
  cls_ClassRegistrar registrar;
};

/// The place of one record, or of the collection's header.
class Sink : public cls_RowSink {
public:
  explicit Sink(Rows& ofStore, std::string ofKey = {}) : store(ofStore), key(std::move(ofKey)) {}

  bool Start(unsigned typeId, cls_Uid const&) override {
    store.Log(key.empty() ? (typeId == cls_MapHeaderTypeId ? "start header" : "start ?") : "start " + key);
    return store.startAnswer;
  }
  bool FieldIsPresent(cls_FieldHandle const&) const override { return true; }
  void WriteInt(cls_FieldHandle const&, int) override {}
  void WriteDouble(cls_FieldHandle const&, double) override {}
  void WriteBool(cls_FieldHandle const&, bool) override {}
  void WriteString(cls_FieldHandle const&, cow_String const& value) override {
    if (!store.failOn.empty() && store.failOn == value.Text()) {
      throw std::runtime_error("no room");
    }
    store.Log(key + "=" + value.Text());
    for (auto& [name, text] : store.rows) {
      if (name == key) {
        text = value.Text();
        return;
      }
    }
    store.rows.emplace_back(key, value.Text());
  }
  void WriteNullObject(cls_FieldHandle const&) override {}
  std::unique_ptr<cls_RowSink> Object(cls_FieldHandle const&) override { return nullptr; }
  std::unique_ptr<cls_RowSink> BasePart(unsigned) override { return nullptr; }
  cls_AgentHandle Collection() override {
    store.Log("take agent");
    return agentOf(store);
  }
  std::unique_ptr<cls_ListSink> List() override { return nullptr; }
  void WriteElementText(cow_String const&) override {}
  void End() override {}
  void const* Store() const override { return &store; }

private:
  Rows& store;
  std::string key;
};

class Agent : public cls_CollectionAgent {
public:
  explicit Agent(Rows& ofStore) : store(ofStore) {}

  void Begin() override { store.Log("begin"); }
  void First() override {
    store.Log("first");
    at = 0;
    Read();
  }
  bool AtEnd() const override { return at >= store.rows.size(); }
  cow_String const& Key() const override { return current; }
  void Next() override {
    ++at;
    Read();
  }
  cls_StoredReference Reference() const override { return {}; }
  std::unique_ptr<cls_RowSource> OpenCurrent() override { return nullptr; }
  void Bind(cls_PC const*) override { store.Log("bind"); }
  std::unique_ptr<cls_RowSource> OpenRecord(cow_String const& key) override {
    store.Log(std::string("open ") + key.Text());
    std::string const* const text = store.Find(key.Text());
    return text == nullptr ? nullptr : std::make_unique<Source>(store, *text);
  }
  bool IsStored(cow_String const& key) override { return store.Find(key.Text()) != nullptr; }
  bool IsReadOnly() const override { return store.readOnly; }
  void BeginWrite() override { store.Log("begin write"); }
  std::unique_ptr<cls_RowSink> WriteRequest(cow_String const& key) override {
    store.Log(std::string("request ") + key.Text());
    return std::make_unique<Sink>(store, key.Text());
  }
  void WriteReference(cow_String const&, cls_StoredReference const&) override {}
  void RemoveStored(cow_String const& key) override {
    store.Log(std::string("remove ") + key.Text());
    std::erase_if(store.rows, [&](auto const& row) { return row.first == key.Text(); });
  }
  void EndWrite(std::unique_ptr<cls_StoredState> stored) override {
    store.Log("end write");
    if (store.keepsState) {
      state = std::move(stored);
    }
  }
  void AbandonWrite() noexcept override { store.log.emplace_back("abandon write"); }
  void DropCached(cow_String const& key) override { store.Log(std::string("drop ") + key.Text()); }
  void DropCached() override { store.Log("drop all"); }
  void const* Store() const override { return &store; }
  cls_StoredState* StoredState() override { return state.get(); }
  void SetStoredState(std::unique_ptr<cls_StoredState> newState) override {
    if (store.keepsState) {
      state = std::move(newState);
    }
  }

private:
  void Read() { current = AtEnd() ? cow_String() : cow_String(store.rows[at].first.c_str()); }
  Rows& store;
  std::size_t at = 0;
  cow_String current;
  std::unique_ptr<cls_StoredState> state;
};

cls_AgentHandle agentOf(Rows& store) {
  store.agent = new Agent(store);
  return cls_AgentHandle(store.agent);
}

class Record {
public:
  explicit Record(char const* given) : text(given), uid(cls_Uid::Allocate()) {}
  explicit Record(cls_ReadVisitor const& reader) : text(reader.ReadString("text")), uid(reader.GetUid()) {}
  Record* Copy() const { return new Record(*this); }
  static unsigned TypeId() { return 0x2f0009; }
  void DBWrite(cls_WriteVisitor const& writer) const {
    if (writer.StartWrite(TypeId(), uid)) {
      writer.WriteString("text", text);
    }
  }
  cow_String text;

private:
  cls_Uid uid;
};

using Map = cls_Map2Obj<cow_String, Record, cow_ArrayCOW<Record, cow_Virtual<Record>>>;

/// Keys in order; loaded records with their texts.
std::string contents(Map const& map) {
  std::string text;
  cls_Map2ObjIter walk(map);
  for (walk.First(); !walk.AtEnd(); walk.Next()) {
    text += std::string(walk.Key().Text()) +
            (walk.IsLoaded() ? "=" + std::string(walk.Value().text.Text()) : "") + " ";
  }
  return text;
}

/// Once with an agent that remembers the stored state, once with one that only knows which keys changed.
class cls_Map2Obj_ : public testing::TestWithParam<bool> {
protected:
  cls_Map2Obj_() { store.keepsState = GetParam(); }
  Map read() {
    Source const source(store);
    return Map(cls_ReadVisitor(source));
  }
  /// A map bound to the rows b, a, c.
  Map bound() {
    store.rows = {{"b", "B"}, {"a", "A"}, {"c", "C"}};
    Map map = read();
    store.log.clear();
    return map;
  }
  void write(Map const& map) {
    Sink sink(store);
    map.DBWrite(cls_WriteVisitor(sink));
  }
  Rows store;
};

INSTANTIATE_TEST_SUITE_P(Agents, cls_Map2Obj_, testing::Bool(), [](auto const& agent) {
  return std::string(agent.param ? "WithStoredState" : "WithChangedKeysOnly");
});

TEST_P(cls_Map2Obj_, ReadingTakesAllKeysAndNoRecord) {
  store.rows = {{"b", "B"}, {"a", "A"}};
  Map const map = read();
  EXPECT_EQ(store.TakeLog(), "begin; first; bind; ");
  EXPECT_EQ(contents(map), "a b ");
  EXPECT_TRUE(map.IsBound());
  EXPECT_FALSE(map.IsChanged());
}

TEST_P(cls_Map2Obj_, ReadingTakesTheIdentityOfTheReader) {
  Source const source(store);
  EXPECT_EQ(Map(cls_ReadVisitor(source)).Uid(), source.Uid());
}

TEST_P(cls_Map2Obj_, StoredKeyTwiceIsNoErrorOnReading) {
  store.rows = {{"a", "A"}, {"a", "A"}};
  EXPECT_EQ(contents(read()), "a ");
}

TEST_P(cls_Map2Obj_, ConstGetLoadsOnce) {
  Map const map = bound();
  EXPECT_EQ(map.ConstGet("b").text, cow_String("B"));
  EXPECT_EQ(map.ConstGet("b").text, cow_String("B"));
  EXPECT_EQ(store.TakeLog(), "open b; ");
  EXPECT_FALSE(map.IsChanged());
}

TEST_P(cls_Map2Obj_, LoadingThroughOneCopyLoadsForTheOther) {
  Map const map = bound();
  Map const copy = map;
  EXPECT_EQ(&map.ConstGet("a"), &copy.ConstGet("a"));
  EXPECT_EQ(store.TakeLog(), "open a; ");
}

TEST_P(cls_Map2Obj_, GetLoadsAndMarks) {
  Map map = bound();
  EXPECT_EQ(map.Get("c").text, cow_String("C"));
  EXPECT_EQ(store.TakeLog(), "open c; ");
  EXPECT_TRUE(map.IsChanged());
}

TEST_P(cls_Map2Obj_, GetUnsharesTheRecord) {
  Map map = bound();
  Map const copy = map;
  map.Get("a").text = "changed";
  EXPECT_EQ(copy.ConstGet("a").text, cow_String("A"));
  EXPECT_EQ(map.ConstGet("a").text, cow_String("changed"));
}

TEST_P(cls_Map2Obj_, UnknownKeyThrowsAndChangesNothing) {
  Map map = bound();
  EXPECT_THROW(map.ConstGet("x"), omu_AccessErrorException);
  EXPECT_THROW(map.Get("x"), omu_AccessErrorException);
  EXPECT_THROW(Map().ConstGet("x"), omu_AccessErrorException);
  EXPECT_FALSE(map.IsChanged());
  EXPECT_EQ(contents(map), "a b c ");
}

TEST_P(cls_Map2Obj_, ConstFindLoadsAMemberOnce) {
  Map const map = bound();
  EXPECT_EQ(map.ConstFind("b")->text, cow_String("B"));
  EXPECT_EQ(map.ConstFind("b"), &map.ConstGet("b"));
  EXPECT_EQ(store.TakeLog(), "open b; ");
  EXPECT_FALSE(map.IsChanged());
}

TEST_P(cls_Map2Obj_, FindLoadsMarksAndUnshares) {
  Map map = bound();
  Map const copy = map;
  map.Find("c")->text = "changed";
  EXPECT_EQ(store.TakeLog(), "open c; ");
  EXPECT_TRUE(map.IsChanged());
  EXPECT_EQ(copy.ConstGet("c").text, cow_String("C"));
  EXPECT_EQ(map.ConstGet("c").text, cow_String("changed"));
}

TEST_P(cls_Map2Obj_, FindingAnUnknownKeyAnswersNullAndAsksNobody) {
  Map map = bound();
  store.rows.emplace_back("d", "D");
  EXPECT_EQ(map.ConstFind("d"), nullptr);
  EXPECT_EQ(map.Find("d"), nullptr);
  EXPECT_EQ(map.Find("x"), nullptr);
  EXPECT_EQ(store.TakeLog(), "");
  EXPECT_FALSE(map.IsChanged());
}

TEST_P(cls_Map2Obj_, KeyStoredByAnotherHolderIsFound) {
  Map const map = bound();
  store.rows.emplace_back("d", "D");
  EXPECT_EQ(map.ConstGet("d").text, cow_String("D"));
}

TEST_P(cls_Map2Obj_, InsertReplacesAndReturnsTrue) {
  Map map = bound();
  EXPECT_TRUE(map.Insert("a", Record("new")));
  EXPECT_TRUE(map.Insert("a", new Record("newer")));
  EXPECT_TRUE(map.Insert("d", Record("D")));
  EXPECT_EQ(contents(map), "a=newer b c d=D ");
  EXPECT_EQ(store.TakeLog(), "");
  EXPECT_TRUE(map.IsChanged());
}

TEST_P(cls_Map2Obj_, CopyHasTheSameEntriesAgentFlagAndIdentity) {
  Map map = bound();
  map.Insert("d", Record("D"));
  Map const copy(map);
  EXPECT_EQ(contents(copy), contents(map));
  EXPECT_TRUE(copy.IsBound());
  EXPECT_TRUE(copy.IsChanged());
  EXPECT_EQ(copy.Uid(), map.Uid());
}

TEST_P(cls_Map2Obj_, ReleaseDropsUnchangedRecords) {
  Map map = bound();
  map.ConstGet("a");
  map.ConstGet("b");
  map.Get("c").text = "changed";
  store.log.clear();
  map.Release();
  EXPECT_EQ(contents(map), "a b c=changed ");
  EXPECT_EQ(store.TakeLog(), "drop a; drop b; drop all; ");
}

TEST_P(cls_Map2Obj_, ReleaseOfOneKeyTellsTheAgent) {
  Map map = bound();
  map.ConstGet("a");
  map.ConstGet("b");
  store.log.clear();
  map.Release("a");
  map.Release("unknown");
  EXPECT_EQ(contents(map), "a b=B c ");
  EXPECT_EQ(store.TakeLog(), "drop a; ");
  EXPECT_EQ(map.ConstGet("a").text, cow_String("A"));
}

TEST_P(cls_Map2Obj_, ReleaseInMemoryDropsNothing) {
  Map map;
  map.Insert("a", Record("A"));
  map.Release();
  map.Release("a");
  EXPECT_EQ(contents(map), "a=A ");
}

TEST_P(cls_Map2Obj_, WriteOfABoundMapStopsBeforeItsRecords) {
  Map map = bound();
  map.Get("a").text = "changed";
  store.log.clear();
  write(map);
  EXPECT_EQ(store.TakeLog(), "start header; ");
}

TEST_P(cls_Map2Obj_, WriteOfARefusedMapStopsAtOnce) {
  Map map;
  map.Insert("a", Record("A"));
  store.startAnswer = false;
  write(map);
  EXPECT_EQ(store.TakeLog(), "start header; ");
  EXPECT_FALSE(map.IsBound());
}

TEST_P(cls_Map2Obj_, FirstWriteBindsAndWritesEverything) {
  store.keepsState = true; // keys inserted in memory are known to no agent
  Map map;
  map.Insert("b", Record("B"));
  map.Insert("a", Record("A"));
  write(map);
  EXPECT_EQ(store.TakeLog(),
            "start header; take agent; begin; bind; first; begin write; request a; start a; a=A; "
            "request b; start b; b=B; end write; ");
  EXPECT_TRUE(map.IsBound());
  EXPECT_FALSE(map.IsChanged());
}

TEST_P(cls_Map2Obj_, FirstWriteOverOtherKeysSaysSoWordForWord) {
  store.rows = {{"x", "X"}};
  Map map;
  map.Insert("a", Record("A"));
  testing::internal::CaptureStderr();
  write(map);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "cls_Map2Obj::DBWrite - Duplicate key when loading collection from DDB");
  EXPECT_TRUE(map.IsMember("x"));
  EXPECT_EQ(map.ConstGet("x").text, cow_String("X"));
}

TEST_P(cls_Map2Obj_, FirstWriteOverTheSameKeysSaysNothing) {
  store.rows = {{"a", "stored"}};
  Map map;
  map.Insert("a", Record("A"));
  testing::internal::CaptureStderr();
  write(map);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_P(cls_Map2Obj_, FlushWritesChangedRecordsThenRemovesThenEnds) {
  Map map = bound();
  map.Get("c").text = "C2";
  map.Insert("d", Record("D"));
  map.Remove("b");
  map.ConstGet("a");
  store.log.clear();
  map.Flush();
  std::string log = store.TakeLog();
  std::size_t const begin = log.find("begin; first; "); // an agent without state is walked for what to remove
  if (begin != std::string::npos) {
    log.erase(begin, 14);
  }
  EXPECT_EQ(log, "begin write; request c; start c; c=C2; request d; start d; d=D; remove b; end write; ");
  EXPECT_FALSE(map.IsChanged());
}

TEST_P(cls_Map2Obj_, FlushWithoutChangesAsksNothing) {
  Map map = bound();
  map.ConstGet("a");
  store.log.clear();
  map.Flush();
  EXPECT_EQ(store.TakeLog(), "");
}

TEST_P(cls_Map2Obj_, SecondFlushWritesNothing) {
  Map map = bound();
  map.Get("a").text = "A2";
  map.Flush();
  store.log.clear();
  map.Flush();
  EXPECT_EQ(store.TakeLog(), "");
}

TEST_P(cls_Map2Obj_, FlushOfAMapInMemoryDoesNothing) {
  Map map;
  map.Insert("a", Record("A"));
  map.Flush();
  EXPECT_TRUE(map.IsChanged());
}

TEST_P(cls_Map2Obj_, FlushToAReadOnlyStoreDoesNothing) {
  Map map = bound();
  map.Get("a").text = "A2";
  store.readOnly = true;
  store.log.clear();
  map.Flush();
  EXPECT_EQ(store.TakeLog(), "");
  EXPECT_TRUE(map.IsChanged());
}

TEST_P(cls_Map2Obj_, FailedFlushStaysChangedAndCanBeRepeated) {
  Map map = bound();
  map.Get("a").text = "A2";
  map.Get("b").text = "B2";
  store.failOn = "B2";
  EXPECT_THROW(map.Flush(), std::runtime_error);
  EXPECT_TRUE(map.IsChanged());
  EXPECT_EQ(store.log.back(), "abandon write");
  store.failOn.clear();
  store.log.clear();
  map.Flush();
  EXPECT_EQ(store.log.back(), "end write");
  EXPECT_EQ(*store.Find("a"), "A2");
  EXPECT_EQ(*store.Find("b"), "B2");
}

TEST_P(cls_Map2Obj_, EmptyChangedEntryIsSkipped) {
  Map map = bound();
  store.agent->MarkChanged("a"); // as another copy does
  map.Get("b").text = "B2";
  store.log.clear();
  map.Flush();
  EXPECT_EQ(*store.Find("a"), "A");
  EXPECT_EQ(*store.Find("b"), "B2");
  for (std::string const& line : store.log) {
    EXPECT_NE(line, "request a");
  }
}

TEST_P(cls_Map2Obj_, ClearedMapRemovesEveryStoredKey) {
  Map map = bound();
  map.Clear();
  map.Flush();
  EXPECT_TRUE(store.rows.empty());
}

TEST_P(cls_Map2Obj_, RemoveOfAnUnknownKeyChangesNothing) {
  Map map = bound();
  EXPECT_FALSE(map.Remove("x"));
  EXPECT_FALSE(map.IsChanged());
}

TEST_P(cls_Map2Obj_, LettingGoLoadsEverythingAndTakesANewIdentity) {
  Map map = bound();
  cls_Uid const before = map.Uid();
  map.LetGoOfStore();
  EXPECT_EQ(contents(map), "a=A b=B c=C ");
  EXPECT_FALSE(map.IsBound());
  EXPECT_TRUE(map.IsChanged());
  EXPECT_FALSE(map.Uid() == before);
}

TEST_P(cls_Map2Obj_, AMapInMemoryBelongsToNoStore) {
  EXPECT_TRUE(Map().BelongsTo(nullptr));
  EXPECT_FALSE(Map().BelongsTo(&store));
  EXPECT_TRUE(bound().BelongsTo(&store));
  EXPECT_FALSE(bound().BelongsTo(nullptr));
}

TEST_P(cls_Map2Obj_, AssignedToItselfKeepsWhatItHolds) {
  Map map = bound();
  map.Get("b").text = "B2";
  Map const& same = map;
  map = same;
  EXPECT_EQ(contents(map), "a b=B2 c ");
  EXPECT_TRUE(map.IsBound());
}

TEST_P(cls_Map2Obj_, ClearingInMemoryAsksNobody) {
  Map map;
  map.Insert("a", Record("A"));
  map.Clear();
  EXPECT_EQ(map.Size(), 0);
  EXPECT_TRUE(map.IsChanged());
}

TEST_P(cls_Map2Obj_, LettingGoInMemoryTakesANewIdentityToo) {
  Map map;
  map.Insert("a", Record("A"));
  cls_Uid const before = map.Uid();
  map.LetGoOfStore();
  EXPECT_EQ(contents(map), "a=A ");
  EXPECT_FALSE(map.Uid() == before);
}

TEST_P(cls_Map2Obj_, NothingIsLostWhereTheOrderOfKeysWasChanged) {
  int const before = atr_getNaturalOrder();
  atr_setNaturalOrder(0);
  Map map;
  for (char const* key : {"x1", "x10", "x2", "x20"}) {
    map.Insert(key, Record(key));
  }
  atr_setNaturalOrder(1);
  map.LetGoOfStore();
  EXPECT_EQ(contents(map), "x1=x1 x2=x2 x10=x10 x20=x20 ");
  atr_setNaturalOrder(before);
}

TEST_P(cls_Map2Obj_, ARecordThatIsGoneFromTheStoreIsAnAccessError) {
  Map const map = bound();
  store.rows.clear();
  EXPECT_THROW(map.ConstGet("a"), omu_AccessErrorException);
  EXPECT_EQ(contents(map), "a b c ");
}

TEST_P(cls_Map2Obj_, AnAdjustedRecordIsWrittenWhereItWasChangedBefore) {
  Map map = bound();
  map.Get("a").text = "A2";
  map.AdjustUnstored(
      [](Record const&) { return true; },
      [](Record& record) { record.text = cow_String((record.text.Text() + std::string("!")).c_str()); });
  EXPECT_EQ(contents(map), "a=A2! b=B! c=C! ");
  map.Flush();
  EXPECT_EQ(*store.Find("a"), "A2!");
  EXPECT_EQ(*store.Find("b"), "B");
}

TEST_P(cls_Map2Obj_, IteratorWalksBothWaysAndLoadsOnValue) {
  Map const map = bound();
  cls_Map2ObjIter walk(map);
  walk.Last();
  EXPECT_EQ(walk.Key(), cow_String("c"));
  EXPECT_FALSE(walk.IsLoaded());
  EXPECT_EQ(walk.Value().text, cow_String("C"));
  EXPECT_TRUE(walk.IsLoaded());
  walk.Prev();
  cls_Map2ObjIter const copy(walk);
  walk.Next();
  EXPECT_EQ(walk.Key(), cow_String("c"));
  EXPECT_EQ(copy.Key(), cow_String("b"));
  walk.Next();
  EXPECT_TRUE(walk.AtEnd());
  walk.First();
  EXPECT_EQ(walk.Key(), cow_String("a"));
}

} // namespace
