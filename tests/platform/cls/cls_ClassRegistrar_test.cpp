// cls_ClassRegistrar, cls_MetadataRegistrar and the small vocabulary of class metadata.
#include "cls_ClassRegistrar.h"
#include "cls_MetadataRegistrar.h"
#include "cls_ReadVisitor.h"

#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace {

// These numbers stand in the class lists of all files.
TEST(cls_Attribute, StoredNumbersStayAsTheyAre) {
  EXPECT_EQ(static_cast<int>(cls_AttributeType::Integer), 5);
  EXPECT_EQ(static_cast<int>(cls_AttributeType::Real), 7);
  EXPECT_EQ(static_cast<int>(cls_AttributeType::Handle), 9);
  EXPECT_EQ(static_cast<int>(cls_AttributeType::String), 11);
  EXPECT_EQ(static_cast<int>(cls_AttributeType::Boolean), 13);
  EXPECT_EQ(static_cast<int>(cls_AttributeType::Object), 15);
  EXPECT_EQ(static_cast<int>(cls_CollectionType::Single), 0);
  EXPECT_EQ(static_cast<int>(cls_CollectionType::List), 1);
  EXPECT_EQ(static_cast<int>(cls_CollectionType::StringMap), 2);
  EXPECT_EQ(cls_ListHeaderTypeId, 0x230001U);
  EXPECT_EQ(cls_MapHeaderTypeId, 0x230002U);
  EXPECT_EQ(cls_ListObjTypeId, 0x210001U);
  EXPECT_EQ(cls_NoBaseTypeId, 1U);
}

TEST(cls_Attribute, LargerTablesGrowInLargerSteps) {
  EXPECT_GT(cls_ExtQuant::ExtentQuantumConstSmall(), 0U);
  EXPECT_GT(cls_ExtQuant::ExtentQuantumConstMedium(), cls_ExtQuant::ExtentQuantumConstSmall());
}

TEST(cls_ClassRegistrar, NewOneKnowsTheCollectionHeadersOnly) {
  cls_ClassRegistrar const registrar;
  EXPECT_EQ(registrar.TypeIds(),
            (std::vector<unsigned>{cls_ListObjTypeId, cls_ListHeaderTypeId, cls_MapHeaderTypeId}));
  for (unsigned const typeId : registrar.TypeIds()) {
    cls_ClassMetadata const& entry = *registrar.Find(typeId);
    ASSERT_EQ(entry.Attributes().size(), 1U);
    EXPECT_EQ(entry.Attributes()[0].name, cow_String("Target#Handle"));
    EXPECT_EQ(entry.Attributes()[0].kind, cls_AttributeType::Handle);
  }
}

void* readNothing(cls_ReadVisitor&) {
  return nullptr;
}

void release(cow_COW<int, cow_Direct<int>>*) {}

TEST(cls_ClassRegistrar, EntryHoldsWhatWasEntered) {
  cls_ClassRegistrar registrar;
  registrar.CreateClassMD("Thing", 100, 7, readNothing, 200)
      .AddDtor(release)
      .AddTableExtentQuantum(16)
      .AddAttribute("a", cls_AttributeType::Integer, 1, cls_CollectionType::Single)
      .AddAttribute("b", cls_AttributeType::Object, 300, cls_CollectionType::StringMap);
  cls_ClassMetadata const& entry = *registrar.Find(100);
  EXPECT_EQ(entry.Name(), cow_String("Thing"));
  EXPECT_EQ(entry.TypeId(), 100U);
  EXPECT_EQ(entry.Version(), 7);
  EXPECT_EQ(entry.BaseTypeId(), 200U);
  EXPECT_EQ(entry.Constructor(), readNothing);
  EXPECT_EQ(entry.Destructor(), release);
  EXPECT_EQ(entry.ExtentQuantum(), 16U);
  ASSERT_EQ(entry.Attributes().size(), 2U);
  EXPECT_EQ(entry.Attributes()[0].name, cow_String("a"));
  EXPECT_EQ(entry.Attributes()[1].elementTypeId, 300U);
  EXPECT_EQ(entry.Attributes()[1].collection, cls_CollectionType::StringMap);
}

TEST(cls_ClassRegistrar, UnknownClassIsNull) {
  EXPECT_EQ(cls_ClassRegistrar().Find(100), nullptr);
}

TEST(cls_ClassRegistrar, EnteringAgainReplaces) {
  cls_ClassRegistrar registrar;
  registrar.CreateClassMD("Old", 100, 1, nullptr, 1)
      .AddAttribute("a", cls_AttributeType::Integer, 1, cls_CollectionType::Single);
  registrar.CreateClassMD("New", 100, 2, nullptr, 1);
  EXPECT_EQ(registrar.Find(100)->Name(), cow_String("New"));
  EXPECT_TRUE(registrar.Find(100)->Attributes().empty());
}

TEST(cls_ClassRegistrar, CopiesShareOneCatalogue) {
  cls_ClassRegistrar registrar;
  cls_ClassRegistrar const copy = registrar;
  registrar.CreateClassMD("Later", 100, 1, nullptr, 1);
  EXPECT_NE(copy.Find(100), nullptr);
  EXPECT_EQ(cls_ClassRegistrar().Find(100), nullptr);
}

TEST(cls_ClassRegistrar, EntriesStayWhereTheyAre) {
  cls_ClassRegistrar registrar;
  cls_ClassMetadata const* const first = &registrar.CreateClassMD("First", 100, 1, nullptr, 1);
  for (unsigned typeId = 101; typeId < 300; ++typeId) {
    registrar.CreateClassMD("Other", typeId, 1, nullptr, 1);
  }
  EXPECT_EQ(registrar.Find(100), first);
}

TEST(cls_ClassRegistrar, DerivationFollowsBasesEnteredInAnyOrder) {
  cls_ClassRegistrar registrar;
  registrar.CreateClassMD("Leaf", 102, 1, nullptr, 101);
  registrar.CreateClassMD("Middle", 101, 1, nullptr, 100);
  registrar.CreateClassMD("Root", 100, 1, nullptr, cls_NoBaseTypeId);
  EXPECT_TRUE(registrar.IsDerivedFrom(102, 102));
  EXPECT_TRUE(registrar.IsDerivedFrom(102, 101));
  EXPECT_TRUE(registrar.IsDerivedFrom(102, 100));
  EXPECT_FALSE(registrar.IsDerivedFrom(100, 102));
  EXPECT_FALSE(registrar.IsDerivedFrom(102, cls_NoBaseTypeId));
  EXPECT_FALSE(registrar.IsDerivedFrom(555, 100));
}

TEST(cls_ClassRegistrar, BaseThatIsNotEnteredStillCounts) {
  cls_ClassRegistrar registrar;
  registrar.CreateClassMD("Leaf", 102, 1, nullptr, 77);
  EXPECT_TRUE(registrar.IsDerivedFrom(102, 77));
  EXPECT_FALSE(registrar.IsDerivedFrom(102, 78));
}

TEST(cls_ClassRegistrar, DerivationInACircleEnds) {
  cls_ClassRegistrar registrar;
  registrar.CreateClassMD("A", 101, 1, nullptr, 102);
  registrar.CreateClassMD("B", 102, 1, nullptr, 101);
  registrar.CreateClassMD("Self", 103, 1, nullptr, 103);
  EXPECT_FALSE(registrar.IsDerivedFrom(101, 999));
  EXPECT_TRUE(registrar.IsDerivedFrom(101, 102));
  EXPECT_FALSE(registrar.IsDerivedFrom(103, 999));
}

int& calls() {
  static int count = 0;
  return count;
}

void enterFirst(cls_ClassRegistrar& registrar) {
  ++calls();
  registrar.CreateClassMD("First", 100, 1, nullptr, 1);
}

void enterSecond(cls_ClassRegistrar& registrar) {
  registrar.CreateClassMD("Second", 100, 2, nullptr, 1);
}

class cls_MetadataRegistrar_ : public testing::Test {
protected:
  cls_MetadataRegistrar_() { calls() = 0; }
  cls_MetadataRegistrar registrar;
};

TEST_F(cls_MetadataRegistrar_, CallsARoutineAtOnceAndForEachRegistrar) {
  registrar.initClassMetadata(enterFirst, 1);
  EXPECT_EQ(calls(), 1);
  std::unique_ptr<cls_ClassRegistrar> const made(registrar.MakeClassRegistrar());
  EXPECT_EQ(calls(), 2);
  EXPECT_NE(made->Find(100), nullptr);
}

TEST_F(cls_MetadataRegistrar_, CallsRoutinesInTheirOrder) {
  registrar.initClassMetadata(enterFirst, 1);
  registrar.initClassMetadata(enterSecond, 2);
  std::unique_ptr<cls_ClassRegistrar> const made(registrar.MakeClassRegistrar());
  EXPECT_EQ(made->Find(100)->Name(), cow_String("Second"));
}

TEST_F(cls_MetadataRegistrar_, KeepsARoutineOnce) {
  registrar.initClassMetadata(enterFirst, 1);
  registrar.initClassMetadata(enterFirst, 1);
  EXPECT_EQ(calls(), 2);
  EXPECT_EQ(registrar.RoutineCount(), 1U);
}

TEST_F(cls_MetadataRegistrar_, RegistrarsAreIndependent) {
  registrar.initClassMetadata(enterFirst, 1);
  std::unique_ptr<cls_ClassRegistrar> const one(registrar.MakeClassRegistrar());
  std::unique_ptr<cls_ClassRegistrar> const other(registrar.MakeClassRegistrar());
  one->CreateClassMD("Own", 500, 1, nullptr, 1);
  EXPECT_EQ(other->Find(500), nullptr);
}

TEST_F(cls_MetadataRegistrar_, ForgetsEverything) {
  registrar.initClassMetadata(enterFirst, 1);
  registrar.Clear();
  EXPECT_EQ(registrar.RoutineCount(), 0U);
  std::unique_ptr<cls_ClassRegistrar> const made(registrar.MakeClassRegistrar());
  EXPECT_EQ(made->Find(100), nullptr);
}

TEST(cls_MetadataRegistrar, IsOneObjectPerProcess) {
  EXPECT_EQ(&omi_Singleton<cls_MetadataRegistrar>::Instance(),
            &omi_Singleton<cls_MetadataRegistrar>::Instance());
}

} // namespace
