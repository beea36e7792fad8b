// The older layouts of the database record and of the model record, which files of older releases hold.
#include "cls_ClassRegistrar.h"
#include "dbc_OldClassRegistrar.h"
#include "ddr_Ddb.h"
#include "ddr_Library.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace {

struct Attribute {
  std::string name;
  int kind;
  unsigned element;
  int collection;
  friend bool operator==(Attribute const&, Attribute const&) = default;
  friend std::ostream& operator<<(std::ostream& stream, Attribute const& attribute) {
    return stream << attribute.name << " " << attribute.kind << " " << std::hex << attribute.element << " "
                  << attribute.collection;
  }
};

using Attributes = std::vector<Attribute>;

class DdrOldVersions : public ::testing::Test {
protected:
  DdrOldVersions() { ddr_initialize(libraries); }
  ~DdrOldVersions() override { ddr_finalize(libraries); }

  static auto const& versions() { return omi_Singleton<dbc_OldClassRegistrar>::Instance().Versions(); }

  /// The one class that a version describes, in a registrar that knew nothing.
  static cls_ClassMetadata describedBy(std::size_t index) {
    cls_ClassRegistrar registrar;
    auto const before = registrar.TypeIds();
    versions().at(index).holder->Peek()->DefineClassMetadata(registrar);
    for (unsigned typeId : registrar.TypeIds()) {
      if (typeId >> 16U == 34) {
        EXPECT_EQ(registrar.TypeIds().size(), before.size() + 1);
        return *registrar.Find(typeId);
      }
    }
    throw std::logic_error("nothing was described");
  }

  static Attributes attributesOf(std::size_t index) {
    cls_ClassMetadata const metadata = describedBy(index);
    Attributes found;
    for (cls_AttributeMetadata const& attribute : metadata.Attributes()) {
      found.push_back({attribute.name.Text(), static_cast<int>(attribute.kind), attribute.elementTypeId,
                       static_cast<int>(attribute.collection)});
    }
    return found;
  }

  static Attributes joined(Attributes left, Attributes const& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
  }

  static Attributes collections(unsigned modelsId) {
    return {{"models", 15, modelsId, 2}, {"results", 15, 0x230002, 2}, {"userData", 15, 0x230002, 2}};
  }
  static Attributes scalars() {
    return {{"name", 11, 1, 0},         {"modifyTime", 5, 1, 0},
            {"creationTime", 5, 1, 0},  {"analysisVersion", 11, 1, 0},
            {"sequenceData", 11, 1, 0}, {"onlyHasUserDefinedData", 13, 1, 0},
            {"description", 11, 1, 0},  {"ddbVersion", 5, 1, 0}};
  }

  int libraries = 0;
};

TEST_F(DdrOldVersions, AreRegisteredInOneOrder) {
  struct Described {
    std::string name;
    unsigned typeId;
    int version;
    bool operator==(Described const&) const = default;
  };
  std::vector<Described> found;
  for (std::size_t index = 0; index < versions().size(); ++index) {
    cls_ClassMetadata const metadata = describedBy(index);
    found.push_back({metadata.Name().Text(), metadata.TypeId(), metadata.Version()});
  }
  std::vector<Described> const wanted = {{"ddr_Model", 0x220007, 203}, {"ddr_Model", 0x220007, 401},
                                         {"ddr_Model", 0x220007, 857}, {"ddr_Ddb", 0x220006, 203},
                                         {"ddr_Ddb", 0x220006, 204},   {"ddr_Ddb", 0x220006, 309},
                                         {"ddr_Ddb", 0x220006, 321},   {"ddr_Ddb", 0x220006, 818}};
  EXPECT_TRUE(found == wanted);
}

TEST_F(DdrOldVersions, HaveNoReadingConstructorNoBaseAndNoDestructor) {
  for (std::size_t index = 0; index < versions().size(); ++index) {
    cls_ClassMetadata const metadata = describedBy(index);
    EXPECT_EQ(metadata.Constructor(), nullptr) << index;
    EXPECT_EQ(metadata.BaseTypeId(), 1U) << index;
    EXPECT_EQ(metadata.Destructor(), nullptr) << index;
    EXPECT_EQ(metadata.ExtentQuantum(), 0U) << index;
  }
}

TEST_F(DdrOldVersions, Model203HasANameOnly) {
  EXPECT_EQ(attributesOf(0), (Attributes{{"modelName", 11, 1, 0}}));
}

TEST_F(DdrOldVersions, Models401And857HaveAnInstanceTableToo) {
  Attributes const wanted = {{"modelName", 11, 1, 0}, {"instanceTable", 15, 0x220018, 0}};
  EXPECT_EQ(attributesOf(1), wanted);
  EXPECT_EQ(attributesOf(2), wanted);
}

TEST_F(DdrOldVersions, Databases203And204HaveElevenAttributes) {
  Attributes const wanted = joined(collections(0x230002), scalars());
  EXPECT_EQ(wanted.size(), 11U);
  EXPECT_EQ(attributesOf(3), wanted);
  EXPECT_EQ(attributesOf(4), wanted);
}

TEST_F(DdrOldVersions, Database309HasOneDiagnosticObject) {
  Attributes const wanted = joined(
      joined(collections(0x230002), {{"diagnosticData", 15, dia_DiagnosticData::TypeId(), 0}}), scalars());
  EXPECT_EQ(wanted.size(), 12U);
  EXPECT_EQ(attributesOf(5), wanted);
}

TEST_F(DdrOldVersions, Databases321And818HaveAListOfDiagnosticsAndOfAddOns) {
  Attributes const wanted =
      joined(joined(joined(collections(ddr_Model::TypeId()),
                           {{"diagnosticData", 15, cls_ListObj<dia_DiagnosticData>::TypeId(), 1}}),
                    scalars()),
             {{"productAddOns", 15, ddr_ProductAddOnList::TypeId(), 1}});
  EXPECT_EQ(wanted.size(), 13U);
  EXPECT_EQ(attributesOf(6), wanted);
  EXPECT_EQ(attributesOf(7), wanted);
}

TEST_F(DdrOldVersions, TheFrozenIdsAreStillThoseOfTheLiveClasses) {
  EXPECT_EQ(ddr_Ddb::TypeId(), 0x220006U);
  EXPECT_EQ(ddr_Model::TypeId(), 0x220007U);
  EXPECT_EQ(ddr_ExtensionTable::TypeId(), 0x220018U);
  EXPECT_EQ(cls_MapHeaderTypeId, 0x230002U);
  EXPECT_EQ(ddr_ProductAddOnList::TypeId(), 0x230001U);
  EXPECT_EQ(dia_DiagnosticData::TypeId(), 0x240001U);
  EXPECT_EQ(cls_ListObj<dia_DiagnosticData>::TypeId(), 0x210001U);
}

} // namespace
