// The texts from which old files are made: that they are what releases wrote.
#include "layout_files.h"

#include "cls_ClassRegistrar.h"
#include "dbc_OldClassRegistrar.h"
#include "ddr_Library.h"
#include "ddr_Root.h"
#include "rfm_Database.h"
#include "stored_file.h"
#include "temporary_folder.h"

#include <gtest/gtest.h>

namespace {

class LayoutFiles : public testing::TestWithParam<std::string> {
protected:
  LayoutFiles() { ddr_initialize(libraries); }
  ~LayoutFiles() override { ddr_finalize(libraries); }

  static std::string className() { return GetParam().starts_with("database") ? "ddr_Ddb" : "ddr_Model"; }
  static int version() { return std::stoi(GetParam().substr(GetParam().size() - 3)); }

  /// The attributes of the old layout as the module registers it.
  static std::vector<std::string> registered() {
    for (auto const& old : omi_Singleton<dbc_OldClassRegistrar>::Instance().Versions()) {
      cls_ClassRegistrar registrar;
      old.holder->Peek()->DefineClassMetadata(registrar);
      for (unsigned const typeId : registrar.TypeIds()) {
        cls_ClassMetadata const& metadata = *registrar.Find(typeId);
        if (metadata.Name().Text() == className() && metadata.Version() == version()) {
          return attributesOf(metadata);
        }
      }
    }
    return {"not registered"};
  }

  static std::vector<std::string> attributesOf(cls_ClassMetadata const& metadata) {
    std::vector<std::string> found;
    for (cls_AttributeMetadata const& attribute : metadata.Attributes()) {
      char text[120];
      std::snprintf(text, sizeof text, "%s %d %#x %d", attribute.name.Text(),
                    static_cast<int>(attribute.kind), attribute.elementTypeId,
                    static_cast<int>(attribute.collection));
      found.emplace_back(text);
    }
    return found;
  }

  temporary_folder folder;
  std::string path = folder.path("old.ddr");
  int libraries = 0;
};

TEST_P(LayoutFiles, HoldTheClassInTheLayoutOfTheirRelease) {
  make_layout_file(path, GetParam());
  stored_file const file(path);
  EXPECT_EQ(file.version(className()), version());
  EXPECT_EQ(file.attributes(className()), registered());
}

TEST_P(LayoutFiles, AreSoundFilesOfOurs) {
  make_layout_file(path, GetParam());
  EXPECT_EQ(stored_file(path).integrity(), "ok");
  rfm_Database database =
      rfm_Database::Open(rfm_File::Open(cow_String(path.c_str()), utl_FileAccess::Read, true), "D0");
  database.Bind();
  EXPECT_EQ(database.Classes().size(), stored_file(path).classes().size());
}

TEST_P(LayoutFiles, HaveEveryFieldSetInTheRowsThatAreConverted) {
  make_layout_file(path, GetParam());
  stored_file const file(path);
  ASSERT_GE(file.rows(className()).size(), 2U);
  for (auto const& [row, fields] : file.rows(className())) {
    for (auto const& [field, value] : fields) {
      EXPECT_NE(value, "NULL") << className() << " " << row << " " << field;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Each, LayoutFiles, testing::ValuesIn(layout_names()),
                         [](auto const& instance) { return instance.param; });

} // namespace
