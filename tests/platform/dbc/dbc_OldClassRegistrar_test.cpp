// dbc_OldClassRegistrar: the older layouts of all modules.
#include "dbc_OldClassRegistrar.h"

#include "dbc_DatabaseConverter.h"

#include <gtest/gtest.h>
#include <string>

namespace {

int& alive() {
  static int count = 0;
  return count;
}

template <int version>
class OldThing : public dbc_OldClassVersion {
public:
  OldThing() { ++alive(); }
  ~OldThing() override { --alive(); }
  void DefineClassMetadata(cls_ClassRegistrar& registrar) const override {
    registrar.CreateClassMD("Thing", 500, version, nullptr, cls_NoBaseTypeId)
        .AddAttribute("number", cls_AttributeType::Integer, 1, cls_CollectionType::Single);
  }
};

template <int version>
dbc_OldClassRegistrar::Holder* holder() {
  return new dbc_OldClassRegistrar::Holder(new OldThing<version>());
}

TEST(dbc_OldClassRegistrar, KeepsVersionsInTheOrderOfTheirRegistration) {
  dbc_OldClassRegistrar registrar;
  registrar.Register(holder<203>(), 34);
  registrar.Register(holder<100>(), 35);
  ASSERT_EQ(registrar.Versions().size(), 2U);
  std::string versions;
  for (dbc_OldClassRegistrar::Registered const& registered : registrar.Versions()) {
    cls_ClassRegistrar classes;
    registered.holder->Peek()->DefineClassMetadata(classes);
    versions += std::to_string(classes.Find(500)->Version()) + " of " + std::to_string(registered.tag) + ", ";
  }
  EXPECT_EQ(versions, "203 of 34, 100 of 35, ");
}

TEST(dbc_OldClassRegistrar, AdoptsHoldersAndDropsThemWhenCleared) {
  int const before = alive();
  dbc_OldClassRegistrar registrar;
  registrar.Register(holder<1>(), 34);
  registrar.Register(holder<2>(), 34);
  EXPECT_EQ(alive(), before + 2);
  registrar.Clear();
  EXPECT_EQ(alive(), before);
  EXPECT_TRUE(registrar.Versions().empty());
}

TEST(dbc_OldClassRegistrar, KeepsWhatCouldNotBeMadeAsItStands) {
  dbc_OldClassRegistrar registrar;
  registrar.Register(nullptr, 34);
  registrar.Register(new dbc_OldClassRegistrar::Holder(), 34);
  registrar.Register(holder<1>(), 34);
  registrar.Register(nullptr, 34);
  EXPECT_EQ(registrar.Versions().size(), 4U);
}

TEST(dbc_OldClassRegistrar, ALayoutThatIsRegisteredAgainTakesThePlaceOfTheFirst) {
  int const before = alive();
  dbc_OldClassRegistrar registrar;
  registrar.Register(holder<1>(), 34);
  registrar.Register(holder<2>(), 34);
  registrar.Register(holder<1>(), 35);
  EXPECT_EQ(alive(), before + 2);
  ASSERT_EQ(registrar.Versions().size(), 2U);
  EXPECT_EQ(registrar.Versions().back().tag, 35U);
}

TEST(dbc_OldClassRegistrar, SharedHolderOutlivesTheRegistrar) {
  int const before = alive();
  {
    dbc_OldClassRegistrar::Holder kept;
    {
      dbc_OldClassRegistrar registrar;
      registrar.Register(holder<1>(), 34);
      kept = *registrar.Versions().front().holder;
    }
    EXPECT_EQ(alive(), before + 1);
  }
  EXPECT_EQ(alive(), before);
}

TEST(dbc_OldClassRegistrar, AVersionDeclaresNothingByItself) {
  dbc_DatabaseConverter converter;
  OldThing<1> const version;
  version.SchemaChanges(converter);
  version.ClassesToDelete(converter);
  version.ClassesToRename(converter);
  version.TablesToRename(converter);
  EXPECT_TRUE(converter.Converters().empty());
}

TEST(dbc_OldClassRegistrar, AStepKnowsAClassAndVersionOnce) {
  dbc_DatabaseConverter converter;
  dbc_ClassConverter& first = converter.GetConverter(7).Upgrade("Thing", 500, 1);
  EXPECT_EQ(&converter.GetConverter(7).Upgrade("Thing", 500, 1), &first);
  EXPECT_NE(&converter.GetConverter(7).Upgrade("Thing", 500, 2), &first);
  EXPECT_NE(&converter.GetConverter(7).Upgrade("Other", 501, 1), &first);
  EXPECT_NE(&converter.GetConverter(8).Upgrade("Thing", 500, 1), &first);
  EXPECT_EQ(first.ConversionFunction(), nullptr);
  EXPECT_EQ(first.FinalizeFunction(), nullptr);
}

TEST(dbc_OldClassRegistrar, IsOneObjectPerProcess) {
  EXPECT_EQ(&omi_Singleton<dbc_OldClassRegistrar>::Instance(),
            &omi_Singleton<dbc_OldClassRegistrar>::Instance());
}

} // namespace
