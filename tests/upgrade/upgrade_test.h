// upgrade_test: files of older releases, converted and compared by short verbs.
#pragma once

#include "dbc_Conversion.h"
#include "layout_files.h"
#include "stored_file.h"
#include "temporary_folder.h"

#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

/// Converts files of older releases in a folder of its own. The old file is old.ddr, the new one new.ddr.
class upgrade_test : public testing::Test {
protected:
  upgrade_test();
  ~upgrade_test() override;

  /// Makes the old file.
  /// @param changes SQL that is run on it afterwards
  void make(std::string const& layout, std::string const& changes = "");
  /// Converts the old file into the new one.
  dbc_ConversionReport convert(dbc_ProgressCallback const& progress = {});
  /// Makes and converts.
  dbc_ConversionReport upgrade(std::string const& layout, std::string const& changes = "");
  /// What a conversion that must fail says.
  std::string failure(dbc_ProgressCallback const& progress = {});

  stored_file before() const { return stored_file(oldPath); }
  stored_file after() const { return stored_file(newPath); }

  /// What a report says of a class; empty for a class that it does not name.
  static dbc_ClassReport reportOf(dbc_ConversionReport const& report, std::string const& className);
  /// What a report says was dropped of a class: "field: reason, rows".
  static std::vector<std::string> dropsOf(dbc_ConversionReport const& report, std::string const& className);
  /// The steps of a class: {203, 309}.
  static std::vector<int> stepsOf(dbc_ConversionReport const& report, std::string const& className);

  temporary_folder folder;
  std::string oldPath = folder.path("old.ddr");
  std::string newPath = folder.path("new.ddr");

private:
  int libraries = 0;
};

/// The same for each of the layouts.
class each_layout_test : public upgrade_test, public testing::WithParamInterface<std::string> {};
