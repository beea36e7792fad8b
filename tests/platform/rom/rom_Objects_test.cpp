// Objects to rows and back, through a transporter alone.
#include "database_test.h"

#include "cls_ListObj.h"
#include "mdl_MapString2Obj.h"
#include "nex_Exception.h"
#include "rom_Memento.h"
#include "rom_ODBHeaderParser.h"

#include <functional>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

/// An object of plain values.
class Leaf {
public:
  explicit Leaf(int given = 0) : number(given), uid(cls_Uid::Allocate()) {}
  Leaf(int given, cls_Uid const& identity) : number(given), uid(identity) {}
  explicit Leaf(cls_ReadVisitor const& reader) : number(reader.ReadInt("number", -7)), uid(reader.GetUid()) {}
  Leaf* Copy() const { return new Leaf(*this); }
  static unsigned TypeId() { return 0x2f0011; }
  void DBWrite(cls_WriteVisitor const& writer) const {
    if (writer.StartWrite(TypeId(), uid)) {
      writer.WriteInt("number", number);
    }
  }
  cls_Uid const& Uid() const { return uid; }

  int number;

private:
  cls_Uid uid;
};

/// An object with values of every kind, objects inside, a list and a map.
class Branch {
public:
  Branch() : uid(cls_Uid::Allocate()) {}
  explicit Branch(cls_ReadVisitor const& reader)
      : text(reader.ReadString("text", "absent")), real(reader.ReadDouble("real", -1)),
        flag(reader.ReadBool("flag", true)), number(reader.ReadInt("number", -7)),
        first(cls_ReadVisitor(reader, "first")), second(cls_ReadVisitor(reader, "second")),
        list(cls_ReadVisitor(reader, "list")), map(cls_ReadVisitor(reader, "map")), uid(reader.GetUid()) {}
  static unsigned TypeId() { return 0x2f0010; }
  void DBWrite(cls_WriteVisitor const& writer) const {
    if (!writer.StartWrite(TypeId(), uid)) {
      return;
    }
    writer.WriteString("text", text);
    if (writer.FieldIsPresent("real")) {
      writer.WriteDouble("real", real);
    }
    writer.WriteBool("flag", flag);
    writer.WriteInt("number", number);
    first.DBWrite(cls_WriteVisitor(writer, "first"));
    secondIsNull ? writer.WriteNullObject("second") : second.DBWrite(cls_WriteVisitor(writer, "second"));
    list.DBWrite(cls_WriteVisitor(writer, "list"));
    map.DBWrite(cls_WriteVisitor(writer, "map"));
  }
  std::string contents() const {
    std::string all = std::string(text.Text()) + " " + std::to_string(real) + (flag ? " yes " : " no ") +
                      std::to_string(number) + " " + std::to_string(first.number) + " " +
                      std::to_string(second.number) + " [";
    for (int index = 0; index < list.Size(); ++index) {
      all += numbered(" ", list.ConstGet(index).number);
    }
    all += " ] {";
    for (mdl_MapString2ObjIT<Leaf> walk(map); !walk.AtEnd(); walk.Next()) {
      all += std::string(" ") + walk.Key().Text() + numbered("=", walk.Value().number);
    }
    return all + " }";
  }

  cow_String text;
  double real = 0;
  bool flag = false;
  int number = 0;
  Leaf first;
  Leaf second;
  bool secondIsNull = false;
  cls_ListObj<Leaf> list;
  mdl_MapString2Obj<Leaf> map;
  cls_Uid uid;
};

void registerLeaf(cls_ClassRegistrar& classes) {
  classes.CreateClassMD("Leaf", Leaf::TypeId(), 1, nullptr, cls_NoBaseTypeId)
      .AddAttribute("number", cls_AttributeType::Integer, 1, cls_CollectionType::Single);
}

/// @param without name of an attribute to leave out, as an older layout lacks it
void registerBranch(cls_ClassRegistrar& classes, std::string const& without = {},
                    std::string const& extra = {}) {
  cls_ClassMetadata& branch = classes.CreateClassMD("Branch", Branch::TypeId(), 1, nullptr, cls_NoBaseTypeId);
  auto const add = [&](char const* name, cls_AttributeType kind, unsigned element,
                       cls_CollectionType collection) {
    if (without != name) {
      branch.AddAttribute(name, kind, element, collection);
    }
  };
  add("text", cls_AttributeType::String, 1, cls_CollectionType::Single);
  add("real", cls_AttributeType::Real, 1, cls_CollectionType::Single);
  add("flag", cls_AttributeType::Boolean, 1, cls_CollectionType::Single);
  add("number", cls_AttributeType::Integer, 1, cls_CollectionType::Single);
  add("first", cls_AttributeType::Object, Leaf::TypeId(), cls_CollectionType::Single);
  add("second", cls_AttributeType::Object, Leaf::TypeId(), cls_CollectionType::Single);
  add("list", cls_AttributeType::Object, cls_ListObjTypeId, cls_CollectionType::List);
  add("map", cls_AttributeType::Object, cls_MapHeaderTypeId, cls_CollectionType::StringMap);
  if (!extra.empty()) {
    branch.AddAttribute(extra.c_str(), cls_AttributeType::String, 1, cls_CollectionType::Single);
  }
}

class rom_Objects : public database_test {
protected:
  static cls_ClassRegistrar classes(std::string const& without = {}, std::string const& extra = {}) {
    cls_ClassRegistrar made;
    registerLeaf(made);
    registerBranch(made, without, extra);
    return made;
  }
  std::unique_ptr<rom_Transporter> createFile(cls_ClassRegistrar const& registrar) {
    return std::make_unique<rom_Transporter>(&registrar,
                                             rfm_File::Open(pathOf("o"), utl_FileAccess::Create, true), "D0",
                                             "objects", 1700000000, -1);
  }
  std::unique_ptr<rom_Transporter> openFile(cls_ClassRegistrar const& registrar) {
    return std::make_unique<rom_Transporter>(
        &registrar, rfm_File::Open(pathOf("o"), utl_FileAccess::Write, true), "D0", -1);
  }
  static void write(rom_Transporter& into, Branch const& branch, int row = -1) {
    rom_MementoWrite memento(into, Branch::TypeId(), row);
    into.ObjectCache().Clear();
    cls_WriteVisitor visitor(memento);
    branch.DBWrite(visitor);
    visitor.End();
  }
  static Branch read(rom_Transporter& from, int row) {
    rom_MementoRead const memento(from, Branch::TypeId(), row, cls_Uid::Allocate());
    return Branch(cls_ReadVisitor(memento));
  }
  static Branch sample() {
    Branch branch;
    branch.text = "text";
    branch.real = 2.5;
    branch.flag = true;
    branch.number = std::numeric_limits<int>::min();
    branch.first.number = 1;
    branch.second.number = 2;
    for (int i = 0; i < 3; ++i) {
      branch.list.Append(Leaf(i));
      branch.map.Insert(cow_String(numbered("k", i).c_str()), Leaf(10 + i));
    }
    return branch;
  }
};

TEST_F(rom_Objects, EveryKindOfValueComesBack) {
  cls_ClassRegistrar const registrar = classes();
  write(*createFile(registrar), sample());
  EXPECT_EQ(read(*openFile(registrar), 0).contents(),
            "text 2.500000 yes -2147483648 1 2 [ 0 1 2 ] { k0=10 k1=11 k2=12 }");
}

TEST_F(rom_Objects, RealsComeBackToTheLastBit) {
  cls_ClassRegistrar const registrar = classes();
  auto const file = createFile(registrar);
  for (double const value : {0.1, -0.0, 5e-324, 1.7976931348623157e308, 3.0, 9007199254740993.0}) {
    Branch branch;
    branch.real = value;
    write(*file, branch);
    EXPECT_EQ(read(*file, file->GetTableSize(Branch::TypeId()) - 1).real, value);
  }
}

TEST_F(rom_Objects, IdentitiesComeBack) {
  cls_ClassRegistrar const registrar = classes();
  auto const file = createFile(registrar);
  Branch const branch = sample();
  write(*file, branch);
  Branch const again = read(*file, 0);
  EXPECT_EQ(again.first.Uid(), branch.first.Uid());
  EXPECT_EQ(again.list.Uid(), branch.list.Uid());
  EXPECT_EQ(again.list.ConstGet(2).Uid(), branch.list.ConstGet(2).Uid());
  EXPECT_EQ(again.map.Uid(), branch.map.Uid());
  EXPECT_EQ(again.map.ConstGet("k1").Uid(), branch.map.ConstGet("k1").Uid());
}

TEST_F(rom_Objects, TopLevelIdentityIsTheOneGivenToTheMemento) {
  cls_ClassRegistrar const registrar = classes();
  auto const file = createFile(registrar);
  Branch const branch = sample();
  write(*file, branch);
  cls_Uid const given = cls_Uid::Allocate();
  rom_MementoRead const memento(*file, Branch::TypeId(), 0, given);
  EXPECT_EQ(Branch(cls_ReadVisitor(memento)).uid, given);
}

TEST_F(rom_Objects, NullObjectReadsAsAbsent) {
  cls_ClassRegistrar const registrar = classes();
  auto const file = createFile(registrar);
  Branch branch = sample();
  branch.secondIsNull = true;
  write(*file, branch);
  Branch const again = read(*file, 0);
  EXPECT_EQ(again.second.number, -7);
  EXPECT_FALSE(again.second.Uid().IsNone());
  EXPECT_EQ(again.first.number, 1);
}

TEST_F(rom_Objects, OnlyTheTopRecordAppends) {
  cls_ClassRegistrar const registrar = classes();
  auto const file = createFile(registrar);
  Branch branch = sample();
  write(*file, branch);
  branch.first.number = 99;
  branch.list.Get(1).number = 98;
  branch.map.Get("k2").number = 97;
  write(*file, branch);
  EXPECT_EQ(file->GetTableSize(Branch::TypeId()), 2);
  EXPECT_EQ(file->GetTableSize(Leaf::TypeId()), 8);
  EXPECT_EQ(read(*file, 1).contents(), "text 2.500000 yes -2147483648 99 2 [ 0 98 2 ] { k0=10 k1=11 k2=97 }");
}

TEST_F(rom_Objects, GivenRowIsRewritten) {
  cls_ClassRegistrar const registrar = classes();
  auto const file = createFile(registrar);
  Branch branch = sample();
  write(*file, branch);
  branch.text = "again";
  write(*file, branch, 0);
  EXPECT_EQ(file->GetTableSize(Branch::TypeId()), 1);
  EXPECT_EQ(read(*file, 0).text, cow_String("again"));
}

TEST_F(rom_Objects, ObjectOfOneIdentityIsWrittenOnceAndReferredToTwice) {
  cls_ClassRegistrar const registrar = classes();
  auto const file = createFile(registrar);
  Branch branch;
  branch.first = Leaf(5);
  branch.second = Leaf(6, branch.first.Uid());
  write(*file, branch);
  EXPECT_EQ(file->GetTableSize(Leaf::TypeId()), 1);
  EXPECT_EQ(read(*file, 0).first.number, 5);
  EXPECT_EQ(read(*file, 0).second.number, 5);
}

TEST_F(rom_Objects, CallsAfterARefusedStartAreDropped) {
  cls_ClassRegistrar const registrar = classes();
  auto const file = createFile(registrar);
  Leaf const leaf(1);
  {
    rom_MementoWrite memento(*file, Branch::TypeId(), -1);
    cls_WriteVisitor visitor(memento);
    ASSERT_TRUE(visitor.StartWrite(Branch::TypeId(), cls_Uid::Allocate()));
    leaf.DBWrite(cls_WriteVisitor(visitor, "first"));
    cls_WriteVisitor const again(visitor, "second");
    EXPECT_FALSE(again.StartWrite(Leaf::TypeId(), leaf.Uid()));
    again.WriteInt("number", 77);
    again.WriteString("nothing of that name", "x");
    again.WriteNullObject("y");
    cls_WriteVisitor const nested(again, "z");
    nested.StartWrite(Leaf::TypeId(), cls_Uid::Allocate());
    nested.WriteInt("number", 78);
    EXPECT_FALSE(again.TakeCollectionAgent());
    visitor.End();
  }
  EXPECT_EQ(read(*file, 0).first.number, 1);
  EXPECT_EQ(read(*file, 0).second.number, 1);
  EXPECT_EQ(file->GetTableSize(Leaf::TypeId()), 1);
}

TEST_F(rom_Objects, ExceptionThatSomebodyCatchesStopsTheSaveAllTheSame) {
  cls_ClassRegistrar const registrar = classes();
  auto const file = createFile(registrar);
  rom_MementoWrite memento(*file, Branch::TypeId(), -1);
  cls_WriteVisitor visitor(memento);
  visitor.StartWrite(Branch::TypeId(), cls_Uid::Allocate());
  try {
    cls_WriteVisitor const half(visitor, "first");
    half.StartWrite(Leaf::TypeId(), cls_Uid::Allocate());
    throw std::runtime_error("in the middle of an object");
  } catch (std::runtime_error const&) {
  }
  EXPECT_EQ(failureOf([&] { visitor.End(); }),
            "Saving to '" + folder.path("o") +
                "' met an error before, so nothing was saved; the file is as it was.");
}

TEST_F(rom_Objects, ObjectsWithoutIdentityDoNotMix) {
  cls_ClassRegistrar const registrar = classes();
  auto const file = createFile(registrar);
  Branch branch;
  branch.first = Leaf(1, cls_Uid());
  branch.second = Leaf(2, cls_Uid());
  branch.map.Insert("a", Leaf(3, cls_Uid()));
  branch.map.Insert("b", Leaf(4, cls_Uid()));
  write(*file, branch);
  EXPECT_EQ(read(*file, 0).contents(), " 0.000000 no 0 1 2 [ ] { a=3 b=4 }");
}

// The collection of a record is read once more after it was saved.
TEST_F(rom_Objects, CollectionsReadWholeAfterTheyWereWritten) {
  cls_ClassRegistrar const registrar = classes();
  write(*createFile(registrar), sample());
  auto const file = openFile(registrar);
  Branch const kept = read(*file, 0);
  write(*file, kept);
  write(*file, kept);
  EXPECT_EQ(read(*file, 2).contents(), kept.contents());
  EXPECT_EQ(read(*file, 0).contents(), kept.contents());
}

TEST_F(rom_Objects, UnchangedListIsNotWritten) {
  cls_ClassRegistrar const registrar = classes();
  auto const file = createFile(registrar);
  Branch branch = sample();
  write(*file, branch);
  std::uint64_t const before = file->File().Statistics().rowsWritten;
  write(*file, branch);
  EXPECT_EQ(file->File().Statistics().rowsWritten - before, 1U);
}

TEST_F(rom_Objects, ListMayShrinkAndGrow) {
  cls_ClassRegistrar const registrar = classes();
  auto const file = createFile(registrar);
  Branch branch = sample();
  write(*file, branch);
  branch.list.Clear();
  write(*file, branch);
  EXPECT_EQ(read(*file, 1).list.Size(), 0);
  branch.list.Append(Leaf(7));
  write(*file, branch);
  EXPECT_EQ(read(*file, 2).list.ConstGet(0).number, 7);
}

TEST_F(rom_Objects, FieldThatTheLayoutLacksThrowsAndIsTakenBack) {
  cls_ClassRegistrar const old = classes("text");
  createFile(old);
  cls_ClassRegistrar const registrar = classes();
  auto const file = openFile(registrar);
  std::string const failure = failureOf([&] { write(*file, sample()); });
  EXPECT_NE(failure.find(folder.path("o")), std::string::npos) << failure;
  EXPECT_NE(failure.find("Branch"), std::string::npos) << failure;
  EXPECT_NE(failure.find("text"), std::string::npos) << failure;
  EXPECT_EQ(file->GetTableSize(Branch::TypeId()), 0);
  EXPECT_EQ(file->GetTableSize(Leaf::TypeId()), 0);
}

TEST_F(rom_Objects, FieldIsPresentAsksTheLayoutOfTheFile) {
  cls_ClassRegistrar const old = classes("real");
  createFile(old);
  cls_ClassRegistrar const registrar = classes();
  auto const file = openFile(registrar);
  write(*file, sample());
  rom_MementoRead const memento(*file, Branch::TypeId(), 0, cls_Uid::Allocate());
  cls_ReadVisitor const reader(memento);
  EXPECT_FALSE(reader.FieldIsPresent("real"));
  EXPECT_TRUE(reader.FieldIsPresent("text"));
  EXPECT_EQ(Branch(reader).real, -1);
}

TEST_F(rom_Objects, DataIsPresentAsksForAValueToo) {
  cls_ClassRegistrar const registrar = classes();
  auto const file = createFile(registrar);
  Branch branch = sample();
  branch.secondIsNull = true;
  write(*file, branch);
  rom_MementoRead const memento(*file, Branch::TypeId(), 0, cls_Uid::Allocate());
  cls_ReadVisitor const reader(memento);
  EXPECT_TRUE(reader.FieldIsPresent("second#OID"));
  EXPECT_FALSE(reader.DataIsPresent("second#OID"));
  EXPECT_TRUE(reader.DataIsPresent("first#OID"));
  EXPECT_FALSE(reader.DataIsPresent("unknown"));
}

TEST_F(rom_Objects, AppendedRowTakesOverFieldsThatNobodyHereKnows) {
  cls_ClassRegistrar const newer = classes({}, "later");
  write(*createFile(newer), sample());
  std::string const path = folder.path("o");
  std::string const table = tableOf(path, Branch::TypeId());
  runSql(path, "UPDATE " + table + " SET later = 'kept'");
  cls_ClassRegistrar const registrar = classes();
  auto const file = openFile(registrar);
  write(*file, read(*file, 0));
  EXPECT_EQ(runSql(path, "SELECT later FROM " + table + " WHERE \"row\" = 1"), "kept");
}

TEST_F(rom_Objects, ClassOfALaterReleaseJoinsAnOldFile) {
  cls_ClassRegistrar old;
  registerBranch(old);
  createFile(old); // knows no leaves
  cls_ClassRegistrar const registrar = classes();
  {
    auto const file = openFile(registrar);
    ASSERT_EQ(file->Database().FindClass(Leaf::TypeId()), nullptr);
    write(*file, sample());
  }
  auto const file = openFile(registrar);
  ASSERT_NE(file->Database().FindClass(Leaf::TypeId()), nullptr);
  EXPECT_EQ(read(*file, 0).contents(), sample().contents());
}

TEST_F(rom_Objects, ObjectOfAnUnregisteredClassCannotBeStored) {
  cls_ClassRegistrar registrar;
  registerBranch(registrar);
  auto const file = createFile(registrar);
  std::string const failure = failureOf([&] { write(*file, sample()); });
  EXPECT_EQ(failure, "Class 0x2f0011 is not registered, so its object cannot be stored in '" +
                         folder.path("o") + "'; register the class first.");
  EXPECT_EQ(file->GetTableSize(Branch::TypeId()), 0);
}

TEST_F(rom_Objects, TableOfAnUnknownClassHasNoRows) {
  cls_ClassRegistrar const registrar = classes();
  EXPECT_EQ(createFile(registrar)->GetTableSize(0x123456), 0);
}

TEST_F(rom_Objects, TransporterOutlivesTheRegistrarItWasGiven) {
  std::unique_ptr<rom_Transporter> file;
  {
    cls_ClassRegistrar const registrar = classes();
    file = createFile(registrar);
  }
  write(*file, sample());
  EXPECT_EQ(read(*file, 0).contents(), sample().contents());
}

TEST_F(rom_Objects, VersionsInTheFileAreComparedWithTheRegistrar) {
  cls_ClassRegistrar const registrar = classes();
  auto const file = createFile(registrar);
  rom_ODBHeaderParser const parser(file->Database());
  cow_String different;
  EXPECT_EQ(parser.GetUpToDateStatus(registrar, &different), rom_ODBHeaderParser::UpToDate);
  cls_ClassRegistrar newer = classes();
  newer.CreateClassMD("Leaf", Leaf::TypeId(), 2, nullptr, cls_NoBaseTypeId);
  EXPECT_EQ(parser.GetUpToDateStatus(newer, &different), rom_ODBHeaderParser::Older);
  EXPECT_EQ(different, cow_String("Leaf"));
  cls_ClassRegistrar older = classes();
  older.CreateClassMD("Leaf", Leaf::TypeId(), 0, nullptr, cls_NoBaseTypeId);
  EXPECT_EQ(parser.GetUpToDateStatus(older, nullptr), rom_ODBHeaderParser::NewerOrUnknown);
  EXPECT_EQ(parser.GetUpToDateStatus(cls_ClassRegistrar(), nullptr), rom_ODBHeaderParser::NewerOrUnknown);
}

} // namespace
