// The visitors, cls_ListObj and agent handles, over rows that exist in this file only.
#include "cls_ListObj.h"
#include "cls_ReadVisitor.h"
#include "cls_WriteVisitor.h"

#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

/// An object in memory: values, and objects and elements inside.
struct Node {
  unsigned classId = 0;
  std::map<std::string, int> ints;
  std::map<std::string, std::shared_ptr<Node>> objects;
  std::vector<std::shared_ptr<Node>> elements;
  std::string elementText;
  std::vector<std::string> log;
};

class Source : public cls_RowSource {
public:
  Source(std::shared_ptr<Node const> ofNode, cls_ClassRegistrar& given)
      : node(std::move(ofNode)), registrar(given) {}

  bool IsPresent() const override { return node != nullptr; }
  unsigned ClassId() const override { return node ? node->classId : 0; }
  cls_Uid Uid() const override { return cls_Uid::Allocate(); }
  cow_String const& DbId() const override { return dbId; }
  std::string Where() const override { return "File 'f', class 'c', row 3"; }
  cls_ClassRegistrar const& Registrar() const override { return registrar; }
  bool IsA(unsigned baseTypeId) const override {
    return node && registrar.IsDerivedFrom(node->classId, baseTypeId);
  }
  bool FieldIsPresent(cls_FieldHandle const& field) const override {
    return node && node->ints.contains(field.Name().Text());
  }
  bool DataIsPresent(cls_FieldHandle const& field) const override { return FieldIsPresent(field); }
  int ReadInt(cls_FieldHandle const& field, int absent) const override {
    return FieldIsPresent(field) ? node->ints.at(field.Name().Text()) : absent;
  }
  double ReadDouble(cls_FieldHandle const&, double absent) const override { return absent; }
  bool ReadBool(cls_FieldHandle const&, bool absent) const override { return absent; }
  cow_String ReadString(cls_FieldHandle const&, cow_String const& absent) const override { return absent; }
  std::unique_ptr<cls_RowSource> Object(cls_FieldHandle const& field) const override {
    auto const found = node ? node->objects.find(field.Name().Text()) : node->objects.end();
    return std::make_unique<Source>(found == node->objects.end() ? nullptr : found->second, registrar);
  }
  cow_COW<int, cow_Direct<int>> const* SharedObject(cls_FieldHandle const&, unsigned) const override {
    return nullptr;
  }
  cls_AgentHandle Collection() const override { return cls_AgentHandle(); }
  std::unique_ptr<cls_ListSource> List() const override;
  cow_String ElementText() const override { return cow_String(node->elementText.c_str()); }

private:
  std::shared_ptr<Node const> node;
  cls_ClassRegistrar& registrar;
  cow_String dbId;
};

class Elements : public cls_ListSource {
public:
  Elements(std::vector<std::shared_ptr<Node>> given, cls_ClassRegistrar& classes)
      : nodes(std::move(given)), registrar(classes) {}
  int Size() const override { return static_cast<int>(nodes.size()); }
  bool HasNext() const override { return next < nodes.size(); }
  std::unique_ptr<cls_RowSource> Next() override {
    return std::make_unique<Source>(nodes.at(next++), registrar);
  }

private:
  std::vector<std::shared_ptr<Node>> nodes;
  cls_ClassRegistrar& registrar;
  std::size_t next = 0;
};

std::unique_ptr<cls_ListSource> Source::List() const {
  return std::make_unique<Elements>(node ? node->elements : std::vector<std::shared_ptr<Node>>(), registrar);
}

class Sink : public cls_RowSink {
public:
  explicit Sink(std::shared_ptr<Node> ofNode) : node(std::move(ofNode)) {}
  bool Start(unsigned typeId, cls_Uid const&) override {
    node->classId = typeId;
    return accepts;
  }
  bool FieldIsPresent(cls_FieldHandle const& field) const override { return field.Name() == cow_String("n"); }
  void WriteInt(cls_FieldHandle const& field, int value) override { node->ints[field.Name().Text()] = value; }
  void WriteDouble(cls_FieldHandle const&, double) override { node->log.emplace_back("double"); }
  void WriteBool(cls_FieldHandle const&, bool) override { node->log.emplace_back("bool"); }
  void WriteString(cls_FieldHandle const&, cow_String const&) override { node->log.emplace_back("string"); }
  void WriteNullObject(cls_FieldHandle const&) override { node->log.emplace_back("null"); }
  std::unique_ptr<cls_RowSink> Object(cls_FieldHandle const& field) override {
    return std::make_unique<Sink>(node->objects[field.Name().Text()] = std::make_shared<Node>());
  }
  std::unique_ptr<cls_RowSink> BasePart(unsigned baseTypeId) override {
    node->log.push_back("base " + std::to_string(baseTypeId));
    return std::make_unique<Sink>(std::make_shared<Node>());
  }
  cls_AgentHandle Collection() override { return cls_AgentHandle(); }
  std::unique_ptr<cls_ListSink> List() override;
  void WriteElementText(cow_String const& text) override { node->elementText = text.Text(); }
  void End() override { node->log.emplace_back("end"); }
  void const* Store() const override { return node.get(); }

  bool accepts = true;

private:
  std::shared_ptr<Node> node;
};

class ElementSink : public cls_ListSink {
public:
  explicit ElementSink(std::shared_ptr<Node> ofNode) : node(std::move(ofNode)) {}
  std::unique_ptr<cls_RowSink> Append() override {
    return std::make_unique<Sink>(node->elements.emplace_back(std::make_shared<Node>()));
  }

private:
  std::shared_ptr<Node> node;
};

std::unique_ptr<cls_ListSink> Sink::List() {
  return std::make_unique<ElementSink>(node);
}

class Item {
public:
  explicit Item(int given) : number(given) {}
  explicit Item(cls_ReadVisitor const& reader) : number(reader.ReadInt("n")) {}
  static unsigned TypeId() { return 100; }
  void DBWrite(cls_WriteVisitor const& writer) const {
    if (writer.StartWrite(TypeId(), cls_Uid::Allocate())) {
      writer.WriteInt("n", number);
    }
  }
  int number;
};

void* readItem(cls_ReadVisitor& reader) {
  return new Item(reader);
}

class cls_Visitors : public testing::Test {
protected:
  cls_Visitors() {
    registrar.CreateClassMD("Item", 100, 1, readItem, cls_NoBaseTypeId);
    registrar.CreateClassMD("Special", 101, 1, readItem, 100);
    registrar.CreateClassMD("Other", 102, 1, nullptr, cls_NoBaseTypeId);
  }
  std::shared_ptr<Node> item(unsigned classId, int number) {
    auto made = std::make_shared<Node>();
    made->classId = classId;
    made->ints["n"] = number;
    return made;
  }
  cls_ClassRegistrar registrar;
};

std::string failureOf(auto const& work) {
  try {
    work();
  } catch (std::exception const& error) {
    return error.what();
  }
  return "nothing";
}

TEST_F(cls_Visitors, ReadingAnObjectInsideOpensIt) {
  auto const owner = item(102, 0);
  owner->objects["inner"] = item(100, 7);
  Source const source(owner, registrar);
  cls_ReadVisitor const reader(source);
  cls_ReadVisitor const inner(reader, "inner");
  EXPECT_TRUE(inner.IsPresent());
  EXPECT_EQ(inner.ReadInt("n"), 7);
  cls_ReadVisitor const missing(reader, "missing");
  EXPECT_FALSE(missing.IsPresent());
  EXPECT_EQ(missing.ReadInt("n", 5), 5);
}

TEST_F(cls_Visitors, ConstructBuildsTheClassOrOneDerivedFromIt) {
  for (unsigned const classId : {100U, 101U}) {
    Source const source(item(classId, 9), registrar);
    std::unique_ptr<Item> const built(static_cast<Item*>(cls_ReadVisitor(source).Construct(100)));
    ASSERT_NE(built, nullptr);
    EXPECT_EQ(built->number, 9);
  }
}

TEST_F(cls_Visitors, ConstructOfAnotherClassNamesItAndTheRow) {
  Source const source(item(102, 9), registrar);
  EXPECT_EQ(
      failureOf([&] { cls_ReadVisitor(source).Construct(100); }),
      "File 'f', class 'c', row 3: class 0x66 found where class 0x64 belongs; the file is damaged or needs "
      "the module that defines the class.");
}

TEST_F(cls_Visitors, ConstructOfAClassWithoutConstructorIsNull) {
  Source const source(item(102, 9), registrar);
  EXPECT_EQ(cls_ReadVisitor(source).Construct(102), nullptr);
}

TEST_F(cls_Visitors, WritingReachesTheObjectsInside) {
  auto const top = std::make_shared<Node>();
  Sink sink(top);
  cls_WriteVisitor writer(sink);
  EXPECT_TRUE(writer.StartWrite(102, cls_Uid::Allocate()));
  EXPECT_TRUE(writer.FieldIsPresent("n"));
  EXPECT_FALSE(writer.FieldIsPresent("x"));
  Item(4).DBWrite(cls_WriteVisitor(writer, "inner"));
  cls_WriteVisitor const base(writer, 300U);
  writer.WriteNullObject("nothing");
  writer.End();
  EXPECT_EQ(top->objects["inner"]->ints["n"], 4);
  EXPECT_EQ(top->log, (std::vector<std::string>{"base 300", "null", "end"}));
  EXPECT_EQ(writer.Store(), top.get());
}

TEST_F(cls_Visitors, CollectionCodesOfTheTwoSetsAreChecked) {
  Sink sink(std::make_shared<Node>());
  cls_WriteVisitor const writer(sink);
  for (int const code : {0, 1, 2}) {
    EXPECT_NO_THROW(writer.CheckCollectionType(code));
  }
  EXPECT_THROW(writer.CheckCollectionType(-1), nex_AssertException);
  EXPECT_THROW(writer.CheckCollectionType(3), nex_AssertException);
  EXPECT_NO_THROW(writer.CheckCollectionType(cls_CollectionTypeFix(5, nullptr)));
  EXPECT_THROW(writer.CheckCollectionType(cls_CollectionTypeFix(2, nullptr)), nex_AssertException);
}

TEST_F(cls_Visitors, ListComesBackInItsOrder) {
  cls_ListObj<Item> list;
  for (int i = 0; i < 5; ++i) {
    list.Append(Item(10 + i));
  }
  auto const stored = std::make_shared<Node>();
  Sink sink(stored);
  list.DBWrite(cls_WriteVisitor(sink));
  EXPECT_EQ(stored->classId, cls_ListObjTypeId);
  Source const source(stored, registrar);
  cls_ListObj<Item> const read((cls_ReadVisitor(source)));
  ASSERT_EQ(read.Size(), 5);
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(read.ConstGet(i).number, 10 + i);
  }
}

TEST_F(cls_Visitors, RefusedListWritesNoElement) {
  cls_ListObj<Item> list;
  list.Append(Item(1));
  auto const stored = std::make_shared<Node>();
  Sink sink(stored);
  sink.accepts = false;
  list.DBWrite(cls_WriteVisitor(sink));
  EXPECT_TRUE(stored->elements.empty());
}

TEST_F(cls_Visitors, ListElementOfAnotherClassNamesTheRow) {
  auto const stored = std::make_shared<Node>();
  stored->elements = {item(100, 1), item(102, 2)};
  Source const source(stored, registrar);
  EXPECT_EQ(
      failureOf([&] { cls_ListObj<Item> const read((cls_ReadVisitor(source))); }),
      "File 'f', class 'c', row 3: class 0x66 found where class 0x64 belongs; the file is damaged or needs "
      "the module that defines the class.");
}

TEST_F(cls_Visitors, ListElementOfADerivedClassIsRead) {
  auto const stored = std::make_shared<Node>();
  stored->elements = {item(101, 3)};
  Source const source(stored, registrar);
  EXPECT_EQ(cls_ListObj<Item>(cls_ReadVisitor(source)).ConstGet(0).number, 3);
}

TEST_F(cls_Visitors, ListElementThatIsMissingThrows) {
  auto const stored = std::make_shared<Node>();
  stored->elements = {nullptr};
  Source const source(stored, registrar);
  EXPECT_THROW(cls_ListObj<Item>((cls_ReadVisitor(source))), nex_TextException);
}

TEST(cls_ListObj, CopiesShareUntilOneWrites) {
  cls_ListObj<Item> first;
  first.Append(Item(1));
  cls_ListObj<Item> second = first;
  EXPECT_EQ(&first.ConstGet(0), &second.ConstGet(0));
  second.Get(0).number = 2;
  second.Append(Item(3));
  EXPECT_EQ(first.ConstGet(0).number, 1);
  EXPECT_EQ(first.Size(), 1);
  EXPECT_EQ(second.Size(), 2);
  EXPECT_EQ(first.Uid(), second.Uid());
}

TEST(cls_ListObj, IndexOutsideThrows) {
  cls_ListObj<Item> list;
  list.Append(Item(1));
  EXPECT_THROW(list.ConstGet(1), nex_AssertException);
  EXPECT_THROW(list.Get(-1), nex_AssertException);
  list.Clear();
  EXPECT_EQ(list.Size(), 0);
}

} // namespace
