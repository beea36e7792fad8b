// thing_module: a module with one class that has older layouts, and old files of it.
#pragma once

#include "cls_MetadataRegistrar.h"
#include "dbc_Conversion.h"
#include "dbc_DatabaseConverter.h"
#include "dbc_DatabaseConverterHolder.h"
#include "dbc_InputDatabase.h"
#include "dbc_OldClassRegistrar.h"
#include "dbc_OutputDatabase.h"
#include "dbc_Utils.h"
#include "stored_file.h"
#include "temporary_folder.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

inline constexpr unsigned thingTypeId = 0x500001;
inline constexpr unsigned boxTypeId = 0x500002;

/// What the row functions of the test's steps do; set by a test, called by the one bound function of a step.
struct thing_Steps {
  std::function<void(dbc_Row const&, dbc_Row&)> first;
  std::function<void(dbc_Row const&, dbc_Row&)> second;
  std::function<void(dbc_Table const&, dbc_Table&)> finalizeFirst;
  static thing_Steps& current() {
    static thing_Steps steps;
    return steps;
  }
};

/// The class "Thing": 10 -(step 7)-> 20 -(step 30)-> 40. In 10, "gone" has no later place, "shape" changes
/// its kind and "part" the class that it refers to; 40 has "added" more than 20.
class thing_Old : public dbc_OldClassVersion {
protected:
  static cls_ClassMetadata& describe(cls_ClassRegistrar& registrar, int version) {
    return registrar.CreateClassMD("Thing", thingTypeId, version, nullptr, cls_NoBaseTypeId)
        .AddAttribute("name", cls_AttributeType::String, 1, cls_CollectionType::Single)
        .AddAttribute("size", cls_AttributeType::Integer, 1, cls_CollectionType::Single)
        .AddAttribute("weight", cls_AttributeType::Real, 1, cls_CollectionType::Single)
        .AddAttribute("box", cls_AttributeType::Object, boxTypeId, cls_CollectionType::Single);
  }
};

class thing_Old10 : public thing_Old {
  void DefineClassMetadata(cls_ClassRegistrar& registrar) const override {
    describe(registrar, 10)
        .AddAttribute("gone", cls_AttributeType::String, 1, cls_CollectionType::Single)
        .AddAttribute("shape", cls_AttributeType::String, 1, cls_CollectionType::Single)
        .AddAttribute("part", cls_AttributeType::Object, boxTypeId, cls_CollectionType::Single);
  }
  void SchemaChanges(dbc_DatabaseConverter& converter) const override {
    converter.GetConverter(7)
        .Upgrade("Thing", thingTypeId, 10)
        .BindConversionFunction([](dbc_Row const& input, dbc_Row& output, int) -> void* {
          if (thing_Steps::current().first) {
            thing_Steps::current().first(input, output);
          }
          return nullptr;
        })
        .BindFinalizeFunction([](dbc_Table const& input, dbc_Table& output) -> void* {
          if (thing_Steps::current().finalizeFirst) {
            thing_Steps::current().finalizeFirst(input, output);
          }
          return nullptr;
        });
  }
};

class thing_Old20 : public thing_Old {
public:
  static cls_ClassMetadata& describeNewer(cls_ClassRegistrar& registrar, int version) {
    return describe(registrar, version)
        .AddAttribute("shape", cls_AttributeType::Integer, 1, cls_CollectionType::Single)
        .AddAttribute("part", cls_AttributeType::Object, thingTypeId, cls_CollectionType::Single)
        .AddAttribute("map", cls_AttributeType::Object, cls_MapHeaderTypeId, cls_CollectionType::StringMap);
  }

private:
  void DefineClassMetadata(cls_ClassRegistrar& registrar) const override { describeNewer(registrar, 20); }
  void SchemaChanges(dbc_DatabaseConverter& converter) const override {
    converter.GetConverter(30)
        .Upgrade("Thing", thingTypeId, 20)
        .BindConversionFunction([](dbc_Row const& input, dbc_Row& output, int) -> void* {
          if (thing_Steps::current().second) {
            thing_Steps::current().second(input, output);
          }
          return nullptr;
        });
  }
};

/// Registers the class and converts old files of it in a folder of its own.
class thing_test : public testing::Test {
protected:
  thing_test() {
    thing_Steps::current() = thing_Steps();
    // The younger layout is registered first: steps run by number all the same.
    registerOld(new thing_Old20());
    registerOld(new thing_Old10());
    omi_Singleton<cls_MetadataRegistrar>::Instance().initClassMetadata(
        [](cls_ClassRegistrar& registrar) {
          thing_Old20::describeNewer(registrar, 40)
              .AddAttribute("added", cls_AttributeType::String, 1, cls_CollectionType::Single);
        },
        4);
    make("");
  }
  ~thing_test() override {
    omi_Singleton<dbc_OldClassRegistrar>::Instance().Clear();
    omi_Singleton<cls_MetadataRegistrar>::Instance().Clear();
    thing_Steps::current() = thing_Steps();
  }

  static void registerOld(dbc_OldClassVersion* version) {
    omi_Singleton<dbc_OldClassRegistrar>::Instance().Register(new dbc_OldClassRegistrar::Holder(version), 4);
  }

  /// Makes the old file: things 0, 1 and 4; boxes 0 and 2 of a class that nobody knows; one collection.
  void make(std::string const& changes) {
    make_stored_file(oldPath, R"(
PRAGMA application_id = 0x44445230;
PRAGMA user_version = 1;
CREATE TABLE ddr_header(name TEXT NOT NULL, description TEXT NOT NULL, creation_time INTEGER,
  next_handle INTEGER NOT NULL);
INSERT INTO ddr_header VALUES('D0', 'Things', 951782400, 70);
CREATE TABLE ddr_class("row" INTEGER PRIMARY KEY, "Class Name" TEXT NOT NULL, "Class Table" TEXT,
  "Type Id" INTEGER NOT NULL, "Class Version" INTEGER NOT NULL, "Base Type Id" INTEGER NOT NULL);
INSERT INTO ddr_class VALUES(0, 'Box', 'class_Box', 0x500002, 3, 1), (1, 'Thing', 'class_Thing', 0x500001, 10, 1),
  (2, 'Empty', NULL, 0x500003, 1, 1);
CREATE TABLE ddr_attribute(class INTEGER NOT NULL, position INTEGER NOT NULL, name TEXT NOT NULL,
  kind INTEGER NOT NULL, element INTEGER NOT NULL, collection INTEGER NOT NULL,
  PRIMARY KEY(class, position)) WITHOUT ROWID;
INSERT INTO ddr_attribute VALUES(0, 0, 'label', 11, 1, 0), (1, 0, 'name', 11, 1, 0), (1, 1, 'size', 5, 1, 0),
  (1, 2, 'weight', 7, 1, 0), (1, 3, 'box', 15, 0x500002, 0), (1, 4, 'gone', 11, 1, 0),
  (1, 5, 'shape', 11, 1, 0), (1, 6, 'part', 15, 0x500002, 0);
CREATE TABLE ddr_entry(handle INTEGER NOT NULL, position INTEGER NOT NULL, Key TEXT, ClassID INTEGER NOT NULL,
  OID INTEGER NOT NULL, PRIMARY KEY(handle, position)) WITHOUT ROWID;
INSERT INTO ddr_entry VALUES(5, 0, 'b', 0x500002, 2), (5, 7, 'a', 0x500002, 0), (69, 1, '', 0, -1);
CREATE TABLE class_Box("row" INTEGER PRIMARY KEY, "#uid" BLOB, label, beside);
INSERT INTO class_Box VALUES(0, x'000102030405060708090a0b0c0d0e0f', 'red', 'x'), (2, NULL, NULL, 0.5);
CREATE TABLE class_Thing("row" INTEGER PRIMARY KEY, "#uid" BLOB, name, size, weight, "box#ClassID" INTEGER,
  "box#OID" INTEGER, gone, shape, "part#ClassID" INTEGER, "part#OID" INTEGER);
INSERT INTO class_Thing VALUES
  (0, x'000000000000000000000000000000a0', 'one', 2147483647, -1.5, 0x500002, 2, 'g', 's', 0x500002, 0),
  (1, x'000000000000000000000000000000a1', NULL, NULL, NULL, 0x500002, NULL, NULL, NULL, NULL, NULL),
  (4, NULL, 'four', -2147483648, 0.1, NULL, NULL, NULL, NULL, NULL, NULL);
)" + changes);
  }

  dbc_ConversionReport convert(dbc_ProgressCallback const& progress = {}) {
    return dbc_Conversion::Run(cow_String(oldPath), cow_String(newPath), progress);
  }
  std::string failure(dbc_ProgressCallback const& progress = {}) {
    try {
      convert(progress);
    } catch (std::exception const& error) {
      return error.what();
    }
    return "nothing";
  }
  dbc_ClassReport thingReport(dbc_ConversionReport const& report) { return report.classes.at(1); }
  /// "7 Dropped gone: why x1; ..."
  static std::string notes(dbc_ClassReport const& report) {
    std::string text;
    for (dbc_Note const& note : report.notes) {
      char const* const kinds[] = {"Supplied", "Dropped", "Carried"};
      text += std::to_string(note.step) + " " + kinds[static_cast<int>(note.kind)] + " " + note.field + ": " +
              note.text + " x" + std::to_string(note.rows) + "; ";
    }
    return text;
  }
  stored_file converted() const { return stored_file(newPath); }

  temporary_folder folder;
  std::string oldPath = folder.path("old.ddr");
  std::string newPath = folder.path("new.ddr");
};
