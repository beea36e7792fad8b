#include "upgrade_test.h"

#include "ddr_Library.h"

upgrade_test::upgrade_test() {
  ddr_initialize(libraries);
}

upgrade_test::~upgrade_test() {
  ddr_finalize(libraries);
}

void upgrade_test::make(std::string const& layout, std::string const& changes) {
  make_layout_file(oldPath, layout, changes);
}

dbc_ConversionReport upgrade_test::convert(dbc_ProgressCallback const& progress) {
  return dbc_Conversion::Run(cow_String(oldPath), cow_String(newPath), progress);
}

dbc_ConversionReport upgrade_test::upgrade(std::string const& layout, std::string const& changes) {
  make(layout, changes);
  return convert();
}

std::string upgrade_test::failure(dbc_ProgressCallback const& progress) {
  try {
    convert(progress);
  } catch (std::exception const& error) {
    return error.what();
  }
  return "nothing";
}

dbc_ClassReport upgrade_test::reportOf(dbc_ConversionReport const& report, std::string const& className) {
  for (dbc_ClassReport const& of : report.classes) {
    if (of.name.View() == className) {
      return of;
    }
  }
  return {};
}

std::vector<std::string> upgrade_test::dropsOf(dbc_ConversionReport const& report,
                                               std::string const& className) {
  std::vector<std::string> drops;
  for (dbc_Note const& note : reportOf(report, className).notes) {
    if (note.kind == dbc_Note::Kind::Dropped) {
      drops.push_back(note.field + ": " + note.text + ", " + std::to_string(note.rows));
    }
  }
  return drops;
}

std::vector<int> upgrade_test::stepsOf(dbc_ConversionReport const& report, std::string const& className) {
  std::vector<int> steps;
  for (dbc_StepEntry const& entry : reportOf(report, className).steps) {
    steps.push_back(entry.step);
  }
  return steps;
}
