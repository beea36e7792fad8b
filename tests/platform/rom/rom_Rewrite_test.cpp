// Objects that are written over what a file holds, whatever that is.
#include "branch_test.h"

#include "nex_Exception.h"

#include <functional>
#include <memory>
#include <string>

namespace {

/// Holds branches in a map.
class Wood {
public:
  Wood() : uid(cls_Uid::Allocate()) {}
  explicit Wood(cls_ReadVisitor const& reader) : map(cls_ReadVisitor(reader, "map")), uid(reader.GetUid()) {}
  static unsigned TypeId() { return 0x2f0014; }
  void DBWrite(cls_WriteVisitor const& writer) const {
    if (writer.StartWrite(TypeId(), uid)) {
      map.DBWrite(cls_WriteVisitor(writer, "map"));
    }
  }

  mdl_MapString2Obj<Branch> map;

private:
  cls_Uid uid;
};

/// Leaves of a class that only some processes know.
constexpr unsigned twigTypeId = 0x2f0012;
/// A class that is no leaf.
constexpr unsigned stoneTypeId = 0x2f0013;
/// Twigs of a class that only some processes know.
constexpr unsigned budTypeId = 0x2f0015;

class rom_Rewrite : public branch_test {
protected:
  rom_Rewrite() : path(folder.path("o")), registrar(classes()), newer(classes()) {
    registerWood(registrar);
    registerWood(newer);
    newer.CreateClassMD("Twig", twigTypeId, 1, nullptr, Leaf::TypeId())
        .AddAttribute("number", cls_AttributeType::Integer, 1, cls_CollectionType::Single)
        .AddAttribute("colour", cls_AttributeType::String, 1, cls_CollectionType::Single);
    newer.CreateClassMD("Stone", stoneTypeId, 1, nullptr, cls_NoBaseTypeId)
        .AddAttribute("number", cls_AttributeType::Integer, 1, cls_CollectionType::Single);
  }
  static void registerWood(cls_ClassRegistrar& made) {
    made.CreateClassMD("Wood", Wood::TypeId(), 1, nullptr, cls_NoBaseTypeId)
        .AddAttribute("map", cls_AttributeType::Object, cls_MapHeaderTypeId, cls_CollectionType::StringMap);
  }
  std::string sql(std::string const& text) const { return runSql(path, text); }
  std::string rows(unsigned typeId) const { return sql("SELECT count(*) FROM " + tableOf(path, typeId)); }
  template <class Object>
  static void writeTop(rom_Transporter& into, Object const& object, int row = -1) {
    rom_MementoWrite memento(into, Object::TypeId(), row);
    into.ObjectCache().Clear();
    cls_WriteVisitor visitor(memento);
    object.DBWrite(visitor);
    visitor.End();
  }
  static Wood readWood(rom_Transporter& from, int row) {
    rom_MementoRead const memento(from, Wood::TypeId(), row, cls_Uid::Allocate());
    return Wood(cls_ReadVisitor(memento));
  }
  static Leaf twig(int number, cls_Uid const& uid = cls_Uid::Allocate()) {
    Leaf made(number, uid);
    made.writtenAs = twigTypeId;
    return made;
  }

  std::string const path;
  cls_ClassRegistrar registrar;
  cls_ClassRegistrar newer; ///< knows twigs and stones too
};

TEST_F(rom_Rewrite, EntryThatLeadsAnywhereElseIsLedToTheObject) {
  Branch const branch = sample();
  {
    auto const file = createFile(newer);
    writeTop(*file, branch);
    Branch other;
    other.map.Insert("twig", twig(77));
    writeTop(*file, other);
  }
  std::string const whole = readFile(path);
  std::string const toTwig = "ClassID = " + std::to_string(twigTypeId);
  std::string const toStone = "ClassID = " + std::to_string(stoneTypeId);
  for (std::string const& leads : {toTwig + ", OID = 0", toTwig + ", OID = 9", toStone + ", OID = 0",
                                   std::string("OID = 99"), std::string("ClassID = 0, OID = -1")}) {
    SCOPED_TRACE(leads);
    writeFile(path, whole);
    sql("UPDATE ddr_entry SET " + leads + " WHERE Key = 'k1'");
    auto const file = openFile(registrar);
    writeTop(*file, branch);
    EXPECT_EQ(read(*file, 2).contents(), branch.contents());
    EXPECT_EQ(read(*file, 1).map.ConstGet("twig").number, 77);
  }
}

TEST_F(rom_Rewrite, ListWhoseEntriesDifferIsWrittenAnew) {
  Branch const branch = sample();
  writeTop(*createFile(registrar), branch);
  std::string const whole = readFile(path);
  std::string const second =
      " WHERE position = (SELECT min(position) + 1 FROM ddr_entry WHERE Key = '') AND Key = ''";
  ASSERT_EQ(sql("SELECT count(*) FROM ddr_entry" + second), "1");
  for (std::string const differs : {"Key = 'text'", "ClassID = 0", "OID = OID + 1"}) {
    SCOPED_TRACE(differs);
    writeFile(path, whole);
    sql("UPDATE ddr_entry SET " + differs + second);
    auto const file = openFile(registrar);
    writeTop(*file, branch, 0);
    EXPECT_EQ(read(*file, 0).contents(), branch.contents());
    EXPECT_EQ(sql("SELECT count(*) FROM ddr_entry WHERE Key = 'text'"), "0");
  }
}

// Which of two rows of one identity is meant, the stored reference tells, where it leads to one of them.
TEST_F(rom_Rewrite, IdentityOfTwoRowsIsTheOneThatTheStoredReferenceLeadsTo) {
  Branch branch;
  branch.second = Leaf(2);
  Branch other;
  other.first = Leaf(7);
  {
    auto const file = createFile(registrar);
    writeTop(*file, branch);
    writeTop(*file, other);
  }
  std::string const leaves = tableOf(path, Leaf::TypeId());
  sql("UPDATE " + leaves + " SET \"#uid\" = (SELECT \"#uid\" FROM " + leaves +
      " WHERE number = 2) WHERE number = 7");
  std::string const whole = readFile(path);
  std::string const count = rows(Leaf::TypeId());
  branch.second.number = 9;

  for (std::string const leads :
       {"\"second#ClassID\" = NULL, \"second#OID\" = NULL", "\"second#ClassID\" = NULL",
        "\"second#OID\" = NULL", "\"second#ClassID\" = 3080208", "\"second#OID\" = 99",
        "\"second#OID\" = \"first#OID\""}) {
    SCOPED_TRACE(leads);
    writeFile(path, whole);
    sql("UPDATE " + tableOf(path, Branch::TypeId()) + " SET " + leads + " WHERE row = 0");
    auto const file = openFile(registrar);
    writeTop(*file, branch, 0);
    EXPECT_EQ(read(*file, 0).second.number, 9);
    EXPECT_EQ(read(*file, 1).first.number, 7);
    EXPECT_EQ(rows(Leaf::TypeId()), std::to_string(std::stoi(count) + 1));
  }

  writeFile(path, whole);
  auto const file = openFile(registrar);
  writeTop(*file, branch, 0);
  EXPECT_EQ(read(*file, 0).second.number, 9);
  EXPECT_EQ(read(*file, 1).first.number, 7);
  EXPECT_EQ(rows(Leaf::TypeId()), count);
}

// No field leads to an element of a list, so it is neither of the two.
TEST_F(rom_Rewrite, ElementWhoseIdentityHasTwoRowsGetsARowOfItsOwn) {
  Branch branch;
  branch.list.Append(Leaf(2));
  Branch other;
  other.first = Leaf(7);
  {
    auto const file = createFile(registrar);
    writeTop(*file, branch);
    writeTop(*file, other);
  }
  std::string const leaves = tableOf(path, Leaf::TypeId());
  sql("UPDATE " + leaves + " SET \"#uid\" = (SELECT \"#uid\" FROM " + leaves +
      " WHERE number = 2) WHERE number = 7");
  std::string const count = rows(Leaf::TypeId());
  branch.list.Get(0).number = 9;
  auto const file = openFile(registrar);
  writeTop(*file, branch, 0);
  EXPECT_EQ(read(*file, 0).list.ConstGet(0).number, 9);
  EXPECT_EQ(read(*file, 1).first.number, 7);
  EXPECT_EQ(rows(Leaf::TypeId()), std::to_string(std::stoi(count) + 1));
}

TEST_F(rom_Rewrite, ReferenceIsSetAndUnsetInPlace) {
  auto const file = createFile(registrar);
  Branch branch = sample();
  for (bool const isNull : {true, false, true, true}) {
    branch.secondIsNull = isNull;
    writeTop(*file, branch, file->GetTableSize(Branch::TypeId()) == 0 ? -1 : 0);
    EXPECT_EQ(read(*file, 0).second.number, isNull ? -7 : 2);
  }
  EXPECT_EQ(file->GetTableSize(Branch::TypeId()), 1);
}

// It takes the one derivation from the file, and the other from the registrar.
TEST_F(rom_Rewrite, ObjectOfAnUnknownClassIsReadByTheBaseOfAKnownOne) {
  newer.CreateClassMD("Bud", budTypeId, 1, nullptr, twigTypeId)
      .AddAttribute("number", cls_AttributeType::Integer, 1, cls_CollectionType::Single);
  Branch branch;
  branch.map.Insert("bud", Leaf(5));
  branch.map.Get("bud").writtenAs = budTypeId;
  writeTop(*createFile(newer), branch);
  registrar.CreateClassMD("Twig", twigTypeId, 1, nullptr, Leaf::TypeId())
      .AddAttribute("number", cls_AttributeType::Integer, 1, cls_CollectionType::Single);
  EXPECT_EQ(read(*openFile(registrar), 0).map.ConstGet("bud").number, 5);
}

TEST_F(rom_Rewrite, NullInAFieldThatTheLayoutLacksIsRefused) {
  auto const file = createFile(registrar);
  Branch const branch = sample();
  writeTop(*file, branch);
  std::string const failure = failureOf([&] {
    rom_MementoWrite memento(*file, Branch::TypeId(), 0);
    cls_WriteVisitor visitor(memento);
    visitor.StartWrite(Branch::TypeId(), branch.uid);
    visitor.WriteNullObject("third");
    visitor.End();
  });
  EXPECT_NE(failure.find("third#"), std::string::npos) << failure;
  EXPECT_NE(failure.find(path), std::string::npos) << failure;
  EXPECT_EQ(read(*file, 0).contents(), branch.contents());
}

TEST_F(rom_Rewrite, HeaderWithoutEntriesOfItsOwnGetsSome) {
  Branch const branch = sample();
  writeTop(*createFile(registrar), branch);
  for (unsigned const header : {cls_MapHeaderTypeId, cls_ListObjTypeId}) {
    sql("UPDATE " + tableOf(path, header) + " SET \"Target#Handle\" = NULL");
  }
  auto const file = openFile(registrar);
  ASSERT_NE(failureOf([&] { read(*file, 0); }), "nothing");
  writeTop(*file, branch);
  EXPECT_EQ(read(*file, 1).contents(), branch.contents());
}

TEST_F(rom_Rewrite, RowOfAClassThatOnlyTheFileKnowsIsAppended) {
  createFile(registrar);
  cls_ClassRegistrar leavesOnly;
  registerLeaf(leavesOnly);
  auto const file = openFile(leavesOnly);
  writeTop(*file, sample());
  writeTop(*file, sample());
  EXPECT_EQ(read(*file, 1).contents(), sample().contents());
}

TEST_F(rom_Rewrite, AppendedRowTakesOverUnknownFieldsOfEveryKind) {
  cls_ClassRegistrar knowing;
  registerLeaf(knowing);
  registerBranch(knowing)
      .AddAttribute("title", cls_AttributeType::String, 1, cls_CollectionType::Single)
      .AddAttribute("unset", cls_AttributeType::String, 1, cls_CollectionType::Single)
      .AddAttribute("length", cls_AttributeType::Real, 1, cls_CollectionType::Single)
      .AddAttribute("age", cls_AttributeType::Integer, 1, cls_CollectionType::Single)
      .AddAttribute("third", cls_AttributeType::Object, Leaf::TypeId(), cls_CollectionType::Single);
  writeTop(*createFile(knowing), sample());
  std::string const table = tableOf(path, Branch::TypeId());
  sql("UPDATE " + table +
      " SET title = 'oak', length = 2.5, age = 70, \"third#ClassID\" = \"first#ClassID\", " +
      "\"third#OID\" = \"first#OID\"");
  std::string const carried =
      "SELECT title, unset, length, age, \"third#ClassID\", \"third#OID\" FROM " + table;
  std::string const before = sql(carried);
  auto const file = openFile(registrar);
  writeTop(*file, read(*file, 0));
  EXPECT_EQ(sql(carried + " WHERE row = 1"), before);
  EXPECT_NE(before.find("oak"), std::string::npos);
}

// The rest of such a row, which this process does not know, must stay.
class rom_RewriteUnknown : public rom_Rewrite {
protected:
  /// A branch of two leaves, "a" with number 1 and "b" with number 2, both of one identity and twigs.
  Branch twins() {
    cls_Uid const uid = cls_Uid::Allocate();
    Branch branch;
    branch.map.Insert("a", twig(1, uid));
    branch.map.Insert("b", twig(2, uid));
    return branch;
  }
  void colour() { sql("UPDATE " + tableOf(path, twigTypeId) + " SET colour = 'colour' || number"); }
  /// "number colour number colour"
  std::string twigs() const {
    return sql("SELECT group_concat(number || ' ' || colour, ' ') FROM " + tableOf(path, twigTypeId));
  }
};

TEST_F(rom_RewriteUnknown, EachRowKeepsWhatNobodyHereKnows) {
  writeTop(*createFile(newer), twins());
  colour();
  auto const file = openFile(registrar);
  Branch branch = read(*file, 0);
  branch.map.Get("a").number = 5;
  branch.map.Get("b").number = 6;
  writeTop(*file, branch);
  EXPECT_EQ(twigs(), "5 colour1 6 colour2");
  EXPECT_EQ(read(*file, 1).contents(), branch.contents());
}

TEST_F(rom_RewriteUnknown, RowOfTwoEntriesIsWrittenOnce) {
  writeTop(*createFile(newer), twins());
  sql("UPDATE ddr_entry SET OID = 0 WHERE Key = 'b'");
  colour();
  auto const file = openFile(registrar);
  Branch branch = read(*file, 0);
  branch.map.Get("a").number = 5;
  branch.map.Get("b").number = 6;
  writeTop(*file, branch);
  EXPECT_EQ(twigs(), "5 colour1 2 colour2");
  EXPECT_EQ(read(*file, 1).map.ConstGet("b").number, 5);
}

TEST_F(rom_RewriteUnknown, CopiesOfAnObjectWriteThroughTheirOwnEntries) {
  {
    Wood wood;
    Branch branch;
    branch.map.Insert("k", twig(1));
    wood.map.Insert("a", branch);
    branch.map.Get("k").number = 2;
    wood.map.Insert("b", branch);
    writeTop(*createFile(newer), wood);
  }
  colour();
  auto const file = openFile(registrar);
  Wood wood = readWood(*file, 0);
  wood.map.Get("a").map.Get("k").number = 5;
  wood.map.Get("b").map.Get("k").number = 6;
  writeTop(*file, wood);
  EXPECT_EQ(twigs(), "5 colour1 6 colour2");
  EXPECT_EQ(readWood(*file, 1).map.ConstGet("a").map.ConstGet("k").number, 5);
  EXPECT_EQ(readWood(*file, 1).map.ConstGet("b").map.ConstGet("k").number, 6);
}

TEST_F(rom_RewriteUnknown, ObjectOfAnUnknownUnrelatedClassIsNotRead) {
  writeTop(*createFile(newer), twins());
  std::string const whole = readFile(path);
  std::string const ofTwig = " WHERE \"Class Name\" = 'Twig'";
  for (std::string const& base :
       {std::to_string(stoneTypeId), std::to_string(cls_NoBaseTypeId), std::string("4711")}) {
    SCOPED_TRACE(base);
    writeFile(path, whole);
    sql("UPDATE ddr_class SET \"Base Type Id\" = " + base + ofTwig);
    auto const file = openFile(registrar);
    std::string const failure = failureOf([&] { read(*file, 0); });
    EXPECT_NE(failure.find("class 0x2f0012 found where class 0x2f0011 belongs"), std::string::npos)
        << failure;
    EXPECT_NE(failure.find(path), std::string::npos) << failure;
  }
}

TEST_F(rom_Rewrite, RowOfTwoEntriesIsWrittenOnce) {
  Branch branch;
  cls_Uid const uid = cls_Uid::Allocate();
  branch.map.Insert("a", Leaf(1, uid));
  branch.map.Insert("b", Leaf(2, uid));
  writeTop(*createFile(registrar), branch);
  sql("UPDATE ddr_entry SET OID = (SELECT OID FROM ddr_entry WHERE Key = 'a') WHERE Key = 'b'");
  std::string const count = rows(Leaf::TypeId());
  auto const file = openFile(registrar);
  branch.map.Get("a").number = 5;
  branch.map.Get("b").number = 6;
  writeTop(*file, branch);
  EXPECT_EQ(read(*file, 1).map.ConstGet("a").number, 5);
  EXPECT_EQ(read(*file, 1).map.ConstGet("b").number, 5);
  EXPECT_EQ(rows(Leaf::TypeId()), count);
}

TEST_F(rom_Rewrite, BasePartStartsAndStoresNothing) {
  auto const file = createFile(newer);
  {
    rom_MementoWrite memento(*file, twigTypeId, -1);
    cls_WriteVisitor visitor(memento);
    cls_Uid const uid = cls_Uid::Allocate();
    ASSERT_TRUE(visitor.StartWrite(twigTypeId, uid));
    cls_WriteVisitor const base(visitor, Leaf::TypeId());
    EXPECT_TRUE(base.StartWrite(Leaf::TypeId(), uid));
    base.WriteInt("number", 77);
    visitor.WriteInt("number", 5);
    visitor.End();
  }
  EXPECT_EQ(sql("SELECT number FROM " + tableOf(path, twigTypeId)), "5");
  EXPECT_EQ(file->GetTableSize(Leaf::TypeId()), 0);
}

TEST_F(rom_Rewrite, EndInTheMiddleOfAnObjectOrAListIsRefused) {
  auto const file = createFile(registrar);
  std::string const refusal =
      "Saving to '" + path + "' met an error before, so nothing was saved; the file is as it was.";
  {
    rom_MementoWrite memento(*file, Branch::TypeId(), -1);
    cls_WriteVisitor visitor(memento);
    visitor.StartWrite(Branch::TypeId(), cls_Uid::Allocate());
    cls_WriteVisitor const half(visitor, "first");
    half.StartWrite(Leaf::TypeId(), cls_Uid::Allocate());
    EXPECT_EQ(failureOf([&] { visitor.End(); }), refusal);
  }
  {
    rom_MementoWrite memento(*file, Branch::TypeId(), -1);
    cls_WriteVisitor visitor(memento);
    visitor.StartWrite(Branch::TypeId(), cls_Uid::Allocate());
    std::unique_ptr<cls_ListSink> elements;
    {
      cls_WriteVisitor const list(visitor, "list");
      list.StartWrite(cls_ListObjTypeId, cls_Uid::Allocate());
      elements = list.GetListWriter();
    }
    EXPECT_EQ(failureOf([&] { visitor.End(); }), refusal);
  }
  EXPECT_EQ(file->GetTableSize(Branch::TypeId()), 0);
}

// It is refused before anybody looks for its class.
TEST_F(rom_Rewrite, ObjectOfAnUnknownClassThatIsNestedTooDeepIsRefused) {
  auto const file = createFile(registrar);
  rom_MementoWrite memento(*file, Branch::TypeId(), -1);
  cls_WriteVisitor const visitor(memento);
  visitor.StartWrite(Branch::TypeId(), cls_Uid::Allocate());
  std::function<void(cls_WriteVisitor const&, int)> const nest = [&](cls_WriteVisitor const& outer,
                                                                     int levels) {
    cls_WriteVisitor const inner(outer, "first");
    inner.StartWrite(levels == 1 ? 0x2f7777 : Leaf::TypeId(), cls_Uid::Allocate());
    nest(inner, levels - 1);
  };
  EXPECT_NE(
      failureOf([&] { nest(visitor, 900); }).find("objects of class 'another module' nest deeper than 900"),
      std::string::npos);
}

TEST_F(rom_Rewrite, FieldOfAnObjectIsPresentByItsOwnName) {
  auto const file = createFile(registrar);
  rom_MementoWrite memento(*file, Branch::TypeId(), -1);
  cls_WriteVisitor const visitor(memento);
  EXPECT_FALSE(visitor.FieldIsPresent("text")) << "before the start";
  visitor.StartWrite(Branch::TypeId(), cls_Uid::Allocate());
  EXPECT_TRUE(visitor.FieldIsPresent("text"));
  EXPECT_TRUE(visitor.FieldIsPresent("first"));
  EXPECT_FALSE(visitor.FieldIsPresent("third"));
}

TEST_F(rom_Rewrite, WhatIsWrittenBeforeTheStartIsDropped) {
  auto const file = createFile(registrar);
  {
    rom_MementoWrite memento(*file, Branch::TypeId(), -1);
    cls_WriteVisitor visitor(memento);
    visitor.WriteString("text", "early");
    visitor.WriteInt("number", 1);
    visitor.WriteDouble("real", 1);
    visitor.WriteBool("flag", false);
    visitor.WriteNullObject("first");
    visitor.WriteElementText("text of no element");
    EXPECT_FALSE(cls_WriteVisitor(visitor, Leaf::TypeId()).StartWrite(Leaf::TypeId(), cls_Uid::Allocate()));
    EXPECT_FALSE(cls_WriteVisitor(visitor, "second").StartWrite(Leaf::TypeId(), cls_Uid::Allocate()));
    std::unique_ptr<cls_ListSink> const list = visitor.GetListWriter();
    EXPECT_FALSE(list->Append()->Start(Leaf::TypeId(), cls_Uid::Allocate()));
    visitor.StartWrite(Branch::TypeId(), cls_Uid::Allocate());
    visitor.End();
  }
  EXPECT_EQ(read(*file, 0).contents(), "absent -1.000000 yes -7 -7 -7 [ ] { }");
  EXPECT_EQ(file->GetTableSize(Leaf::TypeId()), 0);
}

TEST_F(rom_Rewrite, FileMadeWithoutClassesTakesThemLater) {
  {
    rom_Transporter const made(nullptr, rfm_File::Open(pathOf("o"), utl_FileAccess::Create, true), "D0",
                               "empty", 1700000000, -1);
    EXPECT_TRUE(const_cast<rom_Transporter&>(made).Database().Classes().empty());
  }
  auto const file = openFile(registrar);
  writeTop(*file, sample());
  EXPECT_EQ(read(*file, 0).contents(), sample().contents());
}

TEST_F(rom_Rewrite, FieldsOfAMissingObjectAreAbsent) {
  auto const file = createFile(registrar);
  Branch branch = sample();
  branch.secondIsNull = true;
  writeTop(*file, branch);
  rom_MementoRead const memento(*file, Branch::TypeId(), 0, cls_Uid::Allocate());
  cls_ReadVisitor const reader(memento);
  EXPECT_TRUE(cls_ReadVisitor(reader, "first").FieldIsPresent("number"));
  EXPECT_FALSE(cls_ReadVisitor(reader, "second").FieldIsPresent("number"));
}

// Without its class's own code an object can neither be made for several holders nor be let go.
TEST_F(rom_Rewrite, ObjectThatItsClassDoesNotBuildCannotBeShared) {
  using Handle = cow_COW<Leaf, cow_Direct<Leaf>>;
  writeTop(*createFile(registrar), sample());
  cls_ClassRegistrar letGoOnly = classes();
  letGoOnly.CreateClassMD("Leaf", Leaf::TypeId(), 1, nullptr, cls_NoBaseTypeId)
      .AddAttribute("number", cls_AttributeType::Integer, 1, cls_CollectionType::Single)
      .AddDtor([](cow_COW<int, cow_Direct<int>>*) {});
  for (cls_ClassRegistrar const& known : {registrar, letGoOnly}) {
    auto const file = openFile(known);
    rom_MementoRead const memento(*file, Branch::TypeId(), 0, cls_Uid::Allocate());
    cls_ReadVisitor const reader(memento);
    EXPECT_EQ(
        failureOf([&] { reader.ReadShared<Handle>("first", Leaf::TypeId()); }),
        "File '" + path + "', class 'Leaf', row " +
            sql("SELECT \"first#OID\" FROM " + tableOf(path, Branch::TypeId())) +
            ": objects of this class cannot be shared; the module that defines it does not build them.");
  }
}

} // namespace
