// Objects to rows and back, through a transporter alone.
#include "branch_test.h"

#include "nex_Exception.h"
#include "rom_ODBHeaderParser.h"

#include <memory>
#include <stdexcept>
#include <string>

namespace {

class rom_Objects : public branch_test {};

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
