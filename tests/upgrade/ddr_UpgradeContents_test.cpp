// What is in a converted file, field by field, seen through SQLite alone.
#include "upgrade_test.h"

#include "ddr_Check.h"
#include "rfm_Format.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <set>

namespace {

using Texts = std::vector<std::string>;

/// Fields of a row that are set, of those that belong to an attribute.
stored_fields without(stored_fields fields, Texts const& names) {
  for (std::string const& name : names) {
    fields.erase(name);
  }
  return fields;
}

Texts const addedToDatabases = {"diagnosticData#ClassID", "diagnosticData#OID", "productAddOns#ClassID",
                                "productAddOns#OID"};

std::string setting(std::string const& table, std::string const& columns) {
  return "UPDATE \"class_" + table + "\" SET " + columns + ";";
}

class DdrUpgradeContents : public each_layout_test {
protected:
  static bool isModelLayout() { return GetParam().starts_with("model"); }
  static int version() { return std::stoi(GetParam().substr(GetParam().size() - 3)); }
};

INSTANTIATE_TEST_SUITE_P(Each, DdrUpgradeContents, testing::ValuesIn(layout_names()),
                         [](auto const& instance) { return instance.param; });

TEST_P(DdrUpgradeContents, IsASoundFileOfOurs) {
  upgrade(GetParam());
  EXPECT_EQ(after().integrity(), "ok");
  EXPECT_EQ(after().value("PRAGMA application_id"), std::to_string(rfm_ApplicationId));
  EXPECT_EQ(after().value("PRAGMA user_version"), std::to_string(rfm_FormatVersion));
  EXPECT_EQ(after().value("PRAGMA journal_mode"), "'delete'");
}

TEST_P(DdrUpgradeContents, KeepsDescriptionAndCreationTimeOfTheHeader) {
  upgrade(GetParam());
  auto const header = after().lines("SELECT name, description, creation_time FROM ddr_header");
  EXPECT_EQ(header, before().lines("SELECT name, description, creation_time FROM ddr_header"));
  EXPECT_EQ(header, Texts{"'D0' 'Header of " + GetParam() + "' 951782400"});
}

TEST_P(DdrUpgradeContents, GivesNoHandleTwice) {
  upgrade(GetParam());
  auto const number = [](stored_file const& file, char const* sql) { return std::stoll(file.value(sql)); };
  long long const next = number(after(), "SELECT next_handle FROM ddr_header");
  EXPECT_GE(next, number(before(), "SELECT next_handle FROM ddr_header"));
  EXPECT_GT(next, number(after(), "SELECT max(handle) FROM ddr_entry"));
}

TEST_P(DdrUpgradeContents, LeavesTheOldFileAsItWas) {
  make(GetParam());
  std::string const bytes = readFile(oldPath);
  convert();
  EXPECT_EQ(readFile(oldPath), bytes);
  EXPECT_EQ(folder.names(), (Texts{"new.ddr", "old.ddr"}));
}

TEST_P(DdrUpgradeContents, HasTheCurrentVersionsOfOurClasses) {
  upgrade(GetParam());
  EXPECT_EQ(after().version("ddr_Ddb"), 848);
  EXPECT_EQ(after().version("ddr_Model"), 874);
}

TEST_P(DdrUpgradeContents, CarriesEveryOtherClassWithItsRowNumbers) {
  upgrade(GetParam());
  std::set<std::string> const converted = {"ddr_Ddb", "ddr_Model"};
  int carried = 0;
  for (std::string const& name : before().classes()) {
    if (converted.count(name) != 0) {
      continue;
    }
    EXPECT_EQ(after().attributes(name), before().attributes(name)) << name;
    EXPECT_EQ(after().version(name), before().version(name)) << name;
    stored_rows const now = after().rows(name);
    for (auto const& [row, fields] : before().rows(name)) {
      ASSERT_EQ(now.count(row), 1U) << name << " " << row;
      EXPECT_EQ(now.at(row), fields) << name << " " << row;
      ++carried;
    }
  }
  EXPECT_GT(carried, 10);
}

TEST_P(DdrUpgradeContents, AddsNoRowsToClassesThatNobodyKnows) {
  upgrade(GetParam());
  for (char const* const name : {"odiK_Thing", "odiK_Note", "odiK_Unused"}) {
    EXPECT_EQ(after().rows(name), before().rows(name)) << name;
  }
  EXPECT_EQ(after().row("odiK_Note", 5).at("amount"), "0.10000000000000001");
}

TEST_P(DdrUpgradeContents, KeepsTheOrderOfClasses) {
  upgrade(GetParam());
  Texts const old = before().classes();
  Texts now = after().classes();
  ASSERT_GE(now.size(), old.size());
  now.resize(old.size());
  EXPECT_EQ(now, old);
}

TEST_P(DdrUpgradeContents, CarriesEveryCollectionWithItsPositions) {
  upgrade(GetParam());
  std::string const sql = "SELECT handle, position, Key, ClassID, OID FROM ddr_entry ORDER BY 1, 2";
  Texts const now = after().lines(sql);
  Texts const old = before().lines(sql);
  ASSERT_GT(old.size(), 8U);
  EXPECT_TRUE(std::includes(now.begin(), now.end(), old.begin(), old.end(),
                            [&](std::string const& left, std::string const& right) {
                              auto const key = [](std::string const& line) {
                                auto const blank = line.find(' ');
                                auto const second = line.find(' ', blank + 1);
                                return std::pair(std::stoll(line), std::stoll(line.substr(blank, second)));
                              };
                              return key(left) != key(right) ? key(left) < key(right) : left < right;
                            }));
}

TEST_P(DdrUpgradeContents, KeepsIdentitiesNamesAndRowNumbersOfModels) {
  upgrade(GetParam());
  stored_rows const now = after().rows("ddr_Model");
  stored_rows const old = before().rows("ddr_Model");
  ASSERT_EQ(now.size(), old.size());
  for (auto const& [row, fields] : old) {
    EXPECT_EQ(now.at(row).at("#uid"), fields.at("#uid"));
    EXPECT_EQ(now.at(row).at("modelName"), fields.at("modelName"));
  }
}

TEST_P(DdrUpgradeContents, KeepsEveryFieldOfDatabasesButWhatStepsReplace) {
  upgrade(GetParam());
  stored_rows const now = after().rows("ddr_Ddb");
  stored_rows const old = before().rows("ddr_Ddb");
  ASSERT_EQ(old.size(), 2U);
  ASSERT_EQ(now.size(), 2U);
  for (auto [row, fields] : old) {
    Texts replaced;
    if (!isModelLayout() && version() == 203) {
      fields["ddbVersion"] = "891";
    }
    if (!isModelLayout() && version() <= 309) {
      replaced = addedToDatabases;
    }
    EXPECT_EQ(without(now.at(row), replaced), without(fields, replaced)) << row;
  }
}

TEST_P(DdrUpgradeContents, GivesOldDatabasesAnEmptyListOfDiagnosticsAndNoAddOns) {
  upgrade(GetParam());
  for (auto const& [row, fields] : after().rows("ddr_Ddb")) {
    if (isModelLayout() || version() > 309) {
      EXPECT_EQ(after().collection("ddr_Ddb", row, "diagnosticData"), Texts{" 0x240001 0"});
    } else {
      EXPECT_EQ(after().collection("ddr_Ddb", row, "diagnosticData"), Texts{});
      EXPECT_EQ(fields.at("diagnosticData#ClassID"), std::to_string(0x210001));
      EXPECT_EQ(fields.at("productAddOns#ClassID"), "NULL");
      EXPECT_EQ(fields.at("productAddOns#OID"), "NULL");
    }
  }
}

TEST_P(DdrUpgradeContents, GivesEachDatabaseItsOwnList) {
  upgrade(GetParam());
  stored_rows const now = after().rows("ddr_Ddb");
  EXPECT_NE(now.at(0).at("diagnosticData#OID"), now.at(1).at("diagnosticData#OID"));
}

TEST_P(DdrUpgradeContents, IsTheSameWhenConvertedTwice) {
  upgrade(GetParam());
  std::string const once = after().everything();
  dbc_Conversion::Run(cow_String(oldPath), cow_String(folder.path("again.ddr")));
  EXPECT_EQ(stored_file(folder.path("again.ddr")).everything(), once);
}

TEST_P(DdrUpgradeContents, IsCurrentAndNotConvertedAgain) {
  upgrade(GetParam());
  auto const report = dbc_Conversion::Run(cow_String(newPath), cow_String(folder.path("again.ddr")));
  EXPECT_TRUE(report.alreadyCurrent);
  EXPECT_EQ(folder.names(), (Texts{"new.ddr", "old.ddr"}));
}

TEST_P(DdrUpgradeContents, ReportsEveryClassAndItsRows) {
  auto const report = upgrade(GetParam());
  Texts names;
  for (dbc_ClassReport const& of : report.classes) {
    std::string const name(of.name.View());
    names.push_back(name);
    EXPECT_EQ(of.rowsIn, static_cast<long long>(before().rows(name).size())) << name;
    EXPECT_EQ(of.rowsOut, static_cast<long long>(after().rows(name).size())) << name;
    EXPECT_EQ(of.versionIn, std::max(before().version(name), 0)) << name;
    EXPECT_EQ(of.versionOut, after().version(name)) << name;
  }
  EXPECT_EQ(names, after().classes());
  EXPECT_EQ(report.entriesIn, std::stoll(before().value("SELECT count(*) FROM ddr_entry")));
  EXPECT_EQ(report.entriesOut, std::stoll(after().value("SELECT count(*) FROM ddr_entry")));
  EXPECT_EQ(report.leftBehind, Texts{});
  EXPECT_FALSE(report.alreadyCurrent);
}

TEST_P(DdrUpgradeContents, IsPlannedAsItIsDone) {
  make(GetParam());
  auto const plan = dbc_Conversion::Plan(cow_String(oldPath));
  EXPECT_EQ(folder.names(), Texts{"old.ddr"});
  auto const report = convert();
  for (dbc_ClassReport const& planned : plan.classes) {
    dbc_ClassReport const done = reportOf(report, std::string(planned.name.View()));
    EXPECT_EQ(planned.rowsIn, done.rowsIn);
    EXPECT_EQ(planned.versionIn, done.versionIn);
    EXPECT_EQ(planned.versionOut, done.versionOut);
    ASSERT_EQ(planned.steps.size(), done.steps.size());
    for (std::size_t index = 0; index < done.steps.size(); ++index) {
      EXPECT_EQ(planned.steps[index].step, done.steps[index].step);
      EXPECT_EQ(planned.steps[index].rows, done.steps[index].rows);
    }
  }
  EXPECT_EQ(plan.entriesIn, report.entriesIn);
  EXPECT_FALSE(plan.alreadyCurrent);
}

// ---- which steps ----

class DdrUpgradeSteps : public upgrade_test {};

TEST_F(DdrUpgradeSteps, ADatabaseOf203PassesFive) {
  auto const report = upgrade("database_203");
  EXPECT_EQ(stepsOf(report, "ddr_Ddb"), (std::vector<int>{203, 309, 321, 818, 848}));
  EXPECT_EQ(stepsOf(report, "ddr_Model"), (std::vector<int>{401, 857, 874}));
}

TEST_F(DdrUpgradeSteps, OlderLayoutsPassThoseThatRemain) {
  EXPECT_EQ(stepsOf(upgrade("database_204"), "ddr_Ddb"), (std::vector<int>{309, 321, 818, 848}));
  EXPECT_EQ(stepsOf(upgrade("database_309"), "ddr_Ddb"), (std::vector<int>{321, 818, 848}));
  EXPECT_EQ(stepsOf(upgrade("database_321"), "ddr_Ddb"), (std::vector<int>{818, 848}));
  EXPECT_EQ(stepsOf(upgrade("database_818"), "ddr_Ddb"), (std::vector<int>{848}));
}

TEST_F(DdrUpgradeSteps, AModelOf203PassesThree) {
  auto const report = upgrade("model_203");
  EXPECT_EQ(stepsOf(report, "ddr_Model"), (std::vector<int>{401, 857, 874}));
  EXPECT_EQ(stepsOf(report, "ddr_Ddb"), (std::vector<int>{}));
  EXPECT_EQ(stepsOf(upgrade("model_401"), "ddr_Model"), (std::vector<int>{857, 874}));
  EXPECT_EQ(stepsOf(upgrade("model_857"), "ddr_Model"), (std::vector<int>{874}));
}

TEST_F(DdrUpgradeSteps, EachNamesItsVersionsAndRows) {
  auto const steps = reportOf(upgrade("database_203"), "ddr_Ddb").steps;
  ASSERT_EQ(steps.size(), 5U);
  int const versions[] = {203, 204, 309, 321, 818, 848};
  for (std::size_t index = 0; index < steps.size(); ++index) {
    EXPECT_EQ(steps[index].versionBefore, versions[index]);
    EXPECT_EQ(steps[index].versionAfter, versions[index + 1]);
    EXPECT_EQ(steps[index].rows, 2);
  }
}

TEST_F(DdrUpgradeSteps, AnUnknownVersionIsRefusedByClassAndVersion) {
  make("database_204", R"(UPDATE ddr_class SET "Class Version" = 205 WHERE "Class Name" = 'ddr_Ddb')");
  std::string const said = failure();
  EXPECT_NE(said.find("ddr_Ddb"), std::string::npos) << said;
  EXPECT_NE(said.find("205"), std::string::npos) << said;
  EXPECT_EQ(folder.names(), Texts{"old.ddr"});
}

TEST_F(DdrUpgradeSteps, ANewerVersionIsRefusedByClassAndVersion) {
  make("database_204", R"(UPDATE ddr_class SET "Class Version" = 875 WHERE "Class Name" = 'ddr_Model')");
  std::string const said = failure();
  EXPECT_NE(said.find("ddr_Model"), std::string::npos) << said;
  EXPECT_NE(said.find("875"), std::string::npos) << said;
}

// ---- databases with little in them ----

class DdrUpgradeDatabase : public upgrade_test {
protected:
  /// One field of the last record in the new file.
  std::string field(std::string const& name) { return after().field("ddr_Ddb", 1, name); }
  /// The entries of a collection of the last record in the new file.
  Texts collection(std::string const& name) { return after().collection("ddr_Ddb", 1, name); }
  static Texts dropsOf(dbc_ConversionReport const& report) {
    return upgrade_test::dropsOf(report, "ddr_Ddb");
  }
  static std::string nothingSet(stored_file const& file) {
    std::string columns;
    for (auto const& [name, value] : file.row("ddr_Ddb", 1)) {
      if (name != "#uid") {
        columns += std::string(columns.empty() ? "" : ", ") + '"' + name + "\" = NULL";
      }
    }
    return setting("ddr_Ddb", columns);
  }
};

TEST_F(DdrUpgradeDatabase, Of203GetsItsDefaultsWhereNothingIsSet) {
  make("database_203");
  change_stored_file(oldPath, nothingSet(before()));
  convert();
  EXPECT_EQ(field("sequenceData"), "'prior to 2000_04_25-21.21.10 17429'");
  EXPECT_EQ(field("onlyHasUserDefinedData"), "0");
  EXPECT_EQ(field("description"), "''");
  EXPECT_EQ(field("ddbVersion"), "891");
  for (char const* const name : {"models", "results", "userData", "diagnosticData"}) {
    EXPECT_EQ(collection(name), Texts{}) << name;
  }
  for (char const* const name : {"models#ClassID", "results#ClassID", "userData#ClassID"}) {
    EXPECT_EQ(field(name), std::to_string(0x230002)) << name;
  }
  for (char const* const name :
       {"name", "modifyTime", "creationTime", "analysisVersion", "productAddOns#OID"}) {
    EXPECT_EQ(field(name), "NULL") << name;
  }
}

TEST_F(DdrUpgradeDatabase, Of203GetsItsDefaultsWhereTheFieldsAreMissing) {
  std::string changes;
  for (char const* const name : {"sequenceData", "onlyHasUserDefinedData", "description", "ddbVersion"}) {
    changes += std::string("ALTER TABLE class_ddr_Ddb DROP COLUMN \"") + name + "\";";
  }
  for (char const* const name : {"models", "results", "userData"}) {
    changes += std::string("ALTER TABLE class_ddr_Ddb DROP COLUMN \"") + name + "#ClassID\";";
    changes += std::string("ALTER TABLE class_ddr_Ddb DROP COLUMN \"") + name + "#OID\";";
  }
  upgrade("database_203", changes);
  EXPECT_EQ(field("sequenceData"), "'prior to 2000_04_25-21.21.10 17429'");
  EXPECT_EQ(field("onlyHasUserDefinedData"), "0");
  EXPECT_EQ(field("description"), "''");
  EXPECT_EQ(field("ddbVersion"), "891");
  EXPECT_EQ(collection("models"), Texts{});
  EXPECT_EQ(field("analysisVersion"), "'Release 203-2'");
}

TEST_F(DdrUpgradeDatabase, Of203GetsEachDefaultAlone) {
  std::map<std::string, std::string> const defaults = {
      {"sequenceData", "'prior to 2000_04_25-21.21.10 17429'"},
      {"onlyHasUserDefinedData", "0"},
      {"description", "''"}};
  for (auto const& [missing, value] : defaults) {
    upgrade("database_203", setting("ddr_Ddb", "\"" + missing + "\" = NULL"));
    for (auto const& [name, other] : defaults) {
      std::string const expected = name == missing ? value : before().field("ddr_Ddb", 1, name);
      EXPECT_EQ(field(name), expected) << name << " without " << missing;
    }
    std::filesystem::remove(newPath);
  }
}

TEST_F(DdrUpgradeDatabase, ReportsWhatASupplyReplaces) {
  auto const report = upgrade("database_203", setting("ddr_Ddb", "sequenceData = NULL"));
  bool told = false;
  for (dbc_Note const& note : reportOf(report, "ddr_Ddb").notes) {
    if (note.field == "sequenceData") {
      EXPECT_EQ(note.kind, dbc_Note::Kind::Supplied);
      EXPECT_EQ(note.step, 203);
      EXPECT_EQ(note.rows, 2);
      EXPECT_NE(note.text.find("'prior to 2000_04_25-21.21.10 17429'"), std::string::npos) << note.text;
      told = true;
    }
  }
  EXPECT_TRUE(told);
}

TEST_F(DdrUpgradeDatabase, ReportsTheDiagnosticsThatAreDropped) {
  auto const report = upgrade("database_309");
  bool told = false;
  for (dbc_Note const& note : reportOf(report, "ddr_Ddb").notes) {
    if (note.kind == dbc_Note::Kind::Dropped && note.field == "diagnosticData") {
      EXPECT_EQ(note.step, 321);
      EXPECT_EQ(note.rows, 2);
      EXPECT_FALSE(note.text.empty());
      told = true;
    }
  }
  EXPECT_TRUE(told);
}

TEST_F(DdrUpgradeDatabase, Of203WithHalfAReferenceGetsAMapOnlyWhereItsRowIsNotSet) {
  // The row number decides what is there; a reference is copied only when both its numbers are.
  upgrade("database_203", setting("ddr_Ddb", R"("models#OID" = NULL, "results#ClassID" = NULL)"));
  EXPECT_EQ(collection("models"), Texts{});
  EXPECT_EQ(field("models#ClassID"), std::to_string(0x230002));
  EXPECT_EQ(field("results#ClassID"), "NULL");
  EXPECT_EQ(field("results#OID"), "NULL");
  EXPECT_EQ(collection("userData"), Texts{"Notes 0x220010 0"});
}

TEST_F(DdrUpgradeDatabase, TellsTheHalfReferenceThatADefaultReplaces) {
  EXPECT_EQ(dropsOf(upgrade("database_203",
                            setting("ddr_Ddb", R"("models#OID" = NULL, "results#ClassID" = NULL)"))),
            (Texts{"models: only one half of the reference was set, 2",
                   "results: only one half of the reference was set, 2"}));
}

TEST_F(DdrUpgradeDatabase, TellsHalfAReferenceToDiagnosticsWhicheverHalfItIs) {
  for (char const* const half : {"#ClassID", "#OID"}) {
    std::string const none = setting("ddr_Ddb", std::string("\"diagnosticData") + half + "\" = NULL");
    EXPECT_EQ(dropsOf(upgrade("database_309", none)),
              Texts{"diagnosticData: only one half of the reference was set, 2"})
        << half;
    std::filesystem::remove(newPath);
  }
}

TEST_F(DdrUpgradeDatabase, TellsTheDiagnosticsThatAreDroppedThoughTheyAreAListAlready) {
  EXPECT_EQ(dropsOf(upgrade("database_309", setting("ddr_Ddb", "\"diagnosticData#ClassID\" = 0x210001"))),
            Texts{"diagnosticData: the record starts with an empty list of diagnostics, 2"});
  EXPECT_EQ(collection("diagnosticData"), Texts{});
}

TEST_F(DdrUpgradeDatabase, TellsADiagnosticsReferenceThatOlderLayoutsDoNotHave) {
  auto const report =
      upgrade("database_204", "ALTER TABLE class_ddr_Ddb ADD COLUMN \"diagnosticData#ClassID\";"
                              "ALTER TABLE class_ddr_Ddb ADD COLUMN \"diagnosticData#OID\";"
                              "UPDATE class_ddr_Ddb SET \"diagnosticData#ClassID\" = 0x220007, "
                              "\"diagnosticData#OID\" = 0;");
  EXPECT_EQ(dropsOf(report), Texts{"diagnosticData: the reference leads to something new, 2"});
}

TEST_F(DdrUpgradeDatabase, TellsNoLossOfTheListThatAnEarlierStepMade) {
  for (char const* const whole : {"database_203", "database_204"}) {
    EXPECT_EQ(dropsOf(upgrade(whole)), Texts{}) << whole;
    std::filesystem::remove(newPath);
  }
}

TEST_F(DdrUpgradeDatabase, Of309WithHalfAReferenceLosesIt) {
  for (char const* const half : {"#ClassID", "#OID"}) {
    std::string columns;
    for (char const* const name : {"models", "results", "userData"}) {
      columns += std::string(columns.empty() ? "\"" : ", \"") + name + half + "\" = NULL";
    }
    upgrade("database_309", setting("ddr_Ddb", columns));
    for (char const* const name : {"models", "results", "userData"}) {
      EXPECT_EQ(field(std::string(name) + "#ClassID"), "NULL") << name << half;
      EXPECT_EQ(field(std::string(name) + "#OID"), "NULL") << name << half;
    }
    EXPECT_EQ(collection("diagnosticData"), Texts{});
    std::filesystem::remove(newPath);
  }
}

TEST_F(DdrUpgradeDatabase, Of309And321And818KeepsNothingWhereNothingIsSet) {
  for (char const* const layout : {"database_309", "database_321", "database_818"}) {
    make(layout);
    change_stored_file(oldPath, nothingSet(before()));
    convert();
    for (auto const& [name, value] : after().row("ddr_Ddb", 1)) {
      bool const isNew = std::string(layout) == "database_309" && name.starts_with("diagnosticData");
      EXPECT_EQ(value == "NULL", name != "#uid" && !isNew) << layout << " " << name;
    }
    std::filesystem::remove(newPath);
  }
}

TEST_F(DdrUpgradeDatabase, Of321And818WithHalfAReferenceLosesIt) {
  for (char const* const layout : {"database_321", "database_818"}) {
    upgrade(layout, setting("ddr_Ddb", R"("models#ClassID" = NULL, "productAddOns#OID" = NULL)"));
    for (char const* const name :
         {"models#ClassID", "models#OID", "productAddOns#ClassID", "productAddOns#OID"}) {
      EXPECT_EQ(field(name), "NULL") << layout << " " << name;
    }
    EXPECT_EQ(collection("results"), (Texts{"Static 0x220001 0", "Modal 0x220001 1"}));
    std::filesystem::remove(newPath);
  }
}

TEST_F(DdrUpgradeDatabase, KeepsTheLargestAndSmallestNumbersAndTexts) {
  std::string const text(100000, 'x');
  for (char const* const layout :
       {"database_203", "database_204", "database_309", "database_321", "database_818"}) {
    upgrade(layout, setting("ddr_Ddb", "modifyTime = 2147483647, creationTime = -2147483648, name = '', "
                                       "analysisVersion = '" +
                                           text + "', description = 'it''s \u7ffc'"));
    EXPECT_EQ(field("modifyTime"), "2147483647") << layout;
    EXPECT_EQ(field("creationTime"), "-2147483648") << layout;
    EXPECT_EQ(field("name"), "''") << layout;
    EXPECT_EQ(field("analysisVersion"), "'" + text + "'") << layout;
    EXPECT_EQ(field("description"), "'it's \u7ffc'") << layout;
    std::filesystem::remove(newPath);
  }
}

TEST_F(DdrUpgradeDatabase, KeepsTheVersionOfItsContentsUnlessItIsOf203) {
  for (char const* const layout : {"database_204", "database_309", "database_321", "database_818"}) {
    upgrade(layout, setting("ddr_Ddb", "ddbVersion = -2147483648"));
    EXPECT_EQ(field("ddbVersion"), "-2147483648") << layout;
    std::filesystem::remove(newPath);
  }
  upgrade("database_203", setting("ddr_Ddb", "ddbVersion = 2147483647"));
  EXPECT_EQ(field("ddbVersion"), "891");
}

// ---- models ----

class DdrUpgradeModel : public upgrade_test {
protected:
  static constexpr unsigned instanceTable = 0x220018;
  static constexpr unsigned stepsWrapper = 0x23c004a;

  std::string nameOf(unsigned typeId) {
    std::string const name =
        after().value("SELECT \"Class Name\" FROM ddr_class WHERE \"Type Id\" = " + std::to_string(typeId));
    return name.substr(1, name.size() - 2);
  }
  /// The entries of a model's instance table in the new file.
  Texts tableOf(long long model) {
    EXPECT_EQ(after().field("ddr_Model", model, "instanceTable#ClassID"), std::to_string(instanceTable));
    return after().collection(nameOf(instanceTable),
                              std::stoll(after().field("ddr_Model", model, "instanceTable#OID")), "map");
  }
  static Texts dropsOf(dbc_ConversionReport const& report) {
    return upgrade_test::dropsOf(report, "ddr_Model");
  }
  /// What the checker finds in the new file.
  /// @param carried a class whose rows are carried with what is wrong with them
  std::string findings(std::string const& carried = "no class") const {
    std::string said;
    for (ddr_Finding const& finding : ddr_check(cow_String(newPath), ddr_CheckDepth::Deep).findings) {
      if (finding.where.find("'" + carried + "'") == std::string::npos) {
        said += finding.where + ": " + finding.what + "\n";
      }
    }
    return said;
  }
  /// The keys of a model's instance table.
  Texts keysOf(long long model) {
    Texts keys;
    for (std::string const& entry : tableOf(model)) {
      keys.push_back(entry.substr(0, entry.find(' ')));
    }
    return keys;
  }
  Texts const commands = {"material",
                          "section",
                          "amplitude",
                          "constraint",
                          "profile",
                          "adaptiveMeshControl",
                          "load",
                          "bc",
                          "interactionProperty",
                          "interaction",
                          "field",
                          "fieldOutputRequest",
                          "historyOutputRequest"};
  Texts const containers = {"matCont", "sectCont", "ampCont", "constraintCont", "bpCont",
                            "amcCont", "loadCont", "bcCont",  "ipCont",         "intCont",
                            "fCont",   "foCont",   "hoCont"};
  std::vector<unsigned> const kinds = {0x238007d, 0x260003b, 0x2440017, 0x2d00012, 0x2640014,
                                       0x2680010, 0x2880052, 0x2980030, 0x2a00062, 0x2a00061,
                                       0x2ec002c, 0x2400032, 0x2400033};
};

TEST_F(DdrUpgradeModel, Of203GetsAnInstanceTableWithStepsAndContainersInOrder) {
  upgrade("model_203");
  Texts expected = commands;
  expected.insert(expected.begin(), "step");
  for (long long const model : {0, 1, 3}) {
    EXPECT_EQ(keysOf(model), expected) << model;
  }
}

TEST_F(DdrUpgradeModel, Of203GivesEachModelItsOwnTable) {
  upgrade("model_203");
  EXPECT_EQ(after().field("ddr_Model", 0, "instanceTable#OID"), "0");
  EXPECT_EQ(after().field("ddr_Model", 1, "instanceTable#OID"), "1");
  EXPECT_EQ(after().field("ddr_Model", 3, "instanceTable#OID"), "2");
  EXPECT_EQ(after().version(nameOf(instanceTable)), 401);
}

TEST_F(DdrUpgradeModel, Of203PointsAtTheOldContainersOfTheLastRow) {
  upgrade("model_203");
  auto const old = before().row("odiK_Model", 1);
  Texts const entries = tableOf(3);
  ASSERT_EQ(entries.size(), 14U);
  for (std::size_t index = 0; index < commands.size(); ++index) {
    char expected[100];
    std::snprintf(expected, sizeof expected, "%s %#x 2", commands[index].c_str(), kinds[index]);
    EXPECT_EQ(entries[index + 1], expected);
    auto const extension = after().row(nameOf(kinds[index]), 2);
    EXPECT_EQ(extension.at("extension#ClassID"), old.at(containers[index] + "#ClassID")) << commands[index];
    EXPECT_EQ(extension.at("extension#OID"), old.at(containers[index] + "#OID")) << commands[index];
    EXPECT_EQ(extension.at("##BaseClassOID"), "-1") << commands[index];
  }
}

TEST_F(DdrUpgradeModel, Of203GetsAWrapperOfItsSteps) {
  upgrade("model_203");
  auto const old = before().row("odiK_Model", 1);
  for (int const wrapper : {0, 1, 2}) {
    auto const now = after().row(nameOf(stepsWrapper), wrapper);
    for (char const* const name : {"steps#ClassID", "steps#OID", "stepsorder#ClassID", "stepsorder#OID"}) {
      EXPECT_EQ(now.at(name), old.at(name)) << name;
    }
    EXPECT_EQ(now.at("##BaseClassOID"), "-1");
  }
  EXPECT_EQ(tableOf(1).front(), "step 0x23c004a 1");
  EXPECT_EQ(after().version(nameOf(stepsWrapper)), 401);
}

TEST_F(DdrUpgradeModel, Of203WithoutStepsAndContainersGetsAnEmptyTable) {
  make("model_203");
  std::string columns;
  for (auto const& [name, value] : before().row("odiK_Model", 1)) {
    if (name != "#uid") {
      columns += std::string(columns.empty() ? "\"" : ", \"") + name + "\" = NULL";
    }
  }
  change_stored_file(oldPath, setting("odiK_Model", columns));
  convert();
  EXPECT_EQ(keysOf(0), Texts{});
  EXPECT_EQ(keysOf(3), Texts{});
}

TEST_F(DdrUpgradeModel, Of203TakesWhatHasAClassAndNothingElse) {
  upgrade("model_203", setting("odiK_Model", R"("matCont#ClassID" = NULL, "steps#ClassID" = NULL)"));
  Texts expected = commands;
  expected.erase(expected.begin());
  EXPECT_EQ(keysOf(0), expected);
}

TEST_F(DdrUpgradeModel, Of203LeavesOutEachContainerAlone) {
  for (std::size_t index = 0; index < containers.size(); ++index) {
    upgrade("model_203", setting("odiK_Model", "\"" + containers[index] + "#ClassID\" = NULL"));
    Texts expected = commands;
    expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(index));
    expected.insert(expected.begin(), "step");
    EXPECT_EQ(keysOf(1), expected) << containers[index];
    std::filesystem::remove(newPath);
  }
}

TEST_F(DdrUpgradeModel, Of203KeepsAnInstanceTableThatItHasAlready) {
  auto const report =
      upgrade("model_203",
              "ALTER TABLE class_ddr_Model ADD COLUMN \"instanceTable#ClassID\" INTEGER;"
              "ALTER TABLE class_ddr_Model ADD COLUMN \"instanceTable#OID\" INTEGER;"
              "UPDATE class_ddr_Model SET \"instanceTable#ClassID\" = 0x220018, \"instanceTable#OID\" = 7 "
              "WHERE \"row\" = 1;");
  EXPECT_EQ(keysOf(0).size(), 14U);
  EXPECT_EQ(keysOf(3).size(), 14U);
  EXPECT_EQ(after().rows(nameOf(instanceTable)).size(), 2U);
  EXPECT_EQ(after().field("ddr_Model", 1, "instanceTable#ClassID"), std::to_string(instanceTable));
  EXPECT_EQ(after().field("ddr_Model", 1, "instanceTable#OID"), "7");
  EXPECT_EQ(dropsOf(report), Texts{});
}

TEST_F(DdrUpgradeModel, Of203WithHalfAnInstanceTableHasNoneAndThatIsTold) {
  auto const report =
      upgrade("model_203", "ALTER TABLE class_ddr_Model ADD COLUMN \"instanceTable#ClassID\" INTEGER;"
                           "ALTER TABLE class_ddr_Model ADD COLUMN \"instanceTable#OID\" INTEGER;"
                           "UPDATE class_ddr_Model SET \"instanceTable#ClassID\" = 0x220018 "
                           "WHERE \"row\" = 1;");
  EXPECT_EQ(after().field("ddr_Model", 1, "instanceTable#ClassID"), "NULL");
  EXPECT_EQ(after().field("ddr_Model", 1, "instanceTable#OID"), "NULL");
  EXPECT_EQ(dropsOf(report), Texts{"instanceTable: only one half of the reference was set, 1"});
  EXPECT_EQ(findings(), "");
}

TEST_F(DdrUpgradeModel, Of203LeavesTheOrderOfStepsNullWhereItIsNotSet) {
  auto const report =
      upgrade("model_203", setting("odiK_Model", R"("stepsorder#ClassID" = NULL, "stepsorder#OID" = NULL)"));
  auto const wrapper = after().row(nameOf(stepsWrapper), 1);
  EXPECT_EQ(wrapper.at("steps#OID"), "1");
  EXPECT_EQ(wrapper.at("stepsorder#ClassID"), "NULL");
  EXPECT_EQ(wrapper.at("stepsorder#OID"), "NULL");
  EXPECT_EQ(dropsOf(report), Texts{});
  EXPECT_EQ(findings(), "");
}

TEST_F(DdrUpgradeModel, Of203LeavesHalfAReferenceOfStepsNullAndTellsIt) {
  for (std::string const half : {"steps#OID", "stepsorder#ClassID", "stepsorder#OID"}) {
    auto const report = upgrade("model_203", setting("odiK_Model", "\"" + half + "\" = NULL"));
    std::string const attribute = half.substr(0, half.find('#'));
    auto const wrapper = after().row(nameOf(stepsWrapper), 1);
    for (std::string const name : {"steps", "stepsorder"}) {
      EXPECT_EQ(wrapper.at(name + "#ClassID") == "NULL", name == attribute) << half;
      EXPECT_EQ(wrapper.at(name + "#OID") == "NULL", name == attribute) << half;
    }
    EXPECT_EQ(keysOf(1).front(), "step") << half;
    EXPECT_EQ(dropsOf(report), Texts{attribute + ": only one half of the reference was set, 3"});
    EXPECT_EQ(findings("odiK_Model"), "") << half;
    std::filesystem::remove(newPath);
  }
}

TEST_F(DdrUpgradeModel, Of203TakesStepsWithoutColumnsForTheirOrder) {
  auto const report = upgrade("model_203", R"(ALTER TABLE class_odiK_Model DROP COLUMN "stepsorder#ClassID";
      ALTER TABLE class_odiK_Model DROP COLUMN "stepsorder#OID";
      DELETE FROM ddr_attribute WHERE class = 4 AND name = 'stepsorder';)");
  auto const wrapper = after().row(nameOf(stepsWrapper), 2);
  EXPECT_EQ(wrapper.at("steps#OID"), "1");
  EXPECT_EQ(wrapper.at("stepsorder#ClassID"), "NULL");
  EXPECT_EQ(wrapper.at("stepsorder#OID"), "NULL");
  EXPECT_EQ(dropsOf(report), Texts{});
  EXPECT_EQ(findings(), "");
}

TEST_F(DdrUpgradeModel, Of203KeepsTheExtensionOfAContainerThatIsHalfSetWithoutAReference) {
  for (std::size_t index = 0; index < containers.size(); ++index) {
    auto const report =
        upgrade("model_203", setting("odiK_Model", "\"" + containers[index] + "#OID\" = NULL"));
    EXPECT_EQ(keysOf(1).size(), 14U) << containers[index];
    EXPECT_EQ(keysOf(1)[index + 1], commands[index]);
    auto const extension = after().row(nameOf(kinds[index]), 1);
    EXPECT_EQ(extension.at("extension#ClassID"), "NULL") << containers[index];
    EXPECT_EQ(extension.at("extension#OID"), "NULL") << containers[index];
    EXPECT_EQ(dropsOf(report), Texts{containers[index] + ": only one half of the reference was set, 3"});
    EXPECT_EQ(findings("odiK_Model"), "") << containers[index];
    std::filesystem::remove(newPath);
  }
}

TEST_F(DdrUpgradeModel, Of203TakesNoContainerWithoutAClass) {
  auto const report = upgrade("model_203", setting("odiK_Model", R"("matCont#ClassID" = NULL)"));
  EXPECT_EQ(after().classes().size(), before().classes().size() + 14);
  EXPECT_EQ(nameOf(kinds[1]), "0x260003b");
  EXPECT_EQ(dropsOf(report), Texts{});
}

TEST_F(DdrUpgradeModel, Of203GetsAWrapperUnderItsName) {
  upgrade("model_203");
  EXPECT_EQ(nameOf(stepsWrapper), "kprC_SCWrapper");
}

TEST_F(DdrUpgradeModel, Of203NeedsOldModelsEvenWhereAllHaveInstanceTables) {
  make("model_203",
       "ALTER TABLE class_ddr_Model ADD COLUMN \"instanceTable#ClassID\" INTEGER;"
       "ALTER TABLE class_ddr_Model ADD COLUMN \"instanceTable#OID\" INTEGER;"
       "UPDATE class_ddr_Model SET \"instanceTable#ClassID\" = 0x220018, "
       "\"instanceTable#OID\" = \"row\";"
       "DELETE FROM ddr_attribute WHERE class = 4;"
       "UPDATE ddr_class SET \"Class Name\" = 'odiK_Other', \"Type Id\" = 77 WHERE \"row\" = 4;");
  std::string const said = failure();
  EXPECT_NE(said.find("0x2a50001"), std::string::npos) << said;
  EXPECT_EQ(folder.names(), Texts{"old.ddr"});
}

TEST_F(DdrUpgradeModel, Of401And857WithHalfAnInstanceTableHasNone) {
  for (char const* const layout : {"model_401", "model_857"}) {
    for (char const* const half : {"instanceTable#ClassID", "instanceTable#OID"}) {
      auto const report = upgrade(layout, "UPDATE class_ddr_Model SET \"" + std::string(half) +
                                              "\" = NULL WHERE \"row\" = 3;");
      EXPECT_EQ(after().field("ddr_Model", 3, "instanceTable#ClassID"), "NULL") << layout << half;
      EXPECT_EQ(after().field("ddr_Model", 3, "instanceTable#OID"), "NULL") << layout << half;
      EXPECT_EQ(dropsOf(report), Texts{"instanceTable: only one half of the reference was set, 1"});
      std::filesystem::remove(newPath);
    }
  }
}

TEST_F(DdrUpgradeModel, Of203WithoutAnOlderAnalysisModelGetsAnEmptyTable) {
  upgrade("model_203", "DELETE FROM class_odiK_Model;");
  EXPECT_EQ(keysOf(0), Texts{});
  EXPECT_EQ(keysOf(3), Texts{});
  EXPECT_EQ(after().field("ddr_Model", 0, "modelName"), "'Beam'");
}

TEST_F(DdrUpgradeModel, Of401GetsASectionExtensionWhereItHasConnectorsAndNone) {
  upgrade("model_401");
  EXPECT_EQ(keysOf(0), (Texts{"connector", "material", "section"}));
  EXPECT_EQ(tableOf(0).back(), "section 0x260003b 1");
  EXPECT_EQ(tableOf(1), (Texts{"section 0x260003b 0", "connector 0x2ac0001 1"}));
  EXPECT_EQ(tableOf(3), Texts{"material 0x238007d 1"});
  EXPECT_EQ(after().rows("sec_Extension").size(), 2U);
}

TEST_F(DdrUpgradeModel, Of401GetsASectionForEachConnectorPropertyInTheirOrder) {
  upgrade("model_401");
  constexpr unsigned connectorSection = 0x2600045;
  std::string const unset = "1.7976931348623157e+308";
  Texts const names = {"assembledType",     "rotationalType",    "translationalType", "integration",
                       "u1ReferenceLength", "u2ReferenceLength", "u3ReferenceLength", "ur1ReferenceAngle",
                       "ur2ReferenceAngle", "ur3ReferenceAngle", "##BaseClassOID"};
  std::vector<Texts> const expected = {
      {"'HINGE'", "'PROJECTION'", "'CARTESIAN'", "'UNSPECIFIED'", unset, "0.0000000000000000", unset,
       "1.0000000000000000", unset, "2.0000000000000000", "-1"},
      {"'BEAM'", "'ROTATION'", "'LINK'", "'IMPLICIT'", "0.50000000000000000", "-0.25000000000000000",
       "1.0000000000000001e+300", "4.9406564584124654e-324", "-1.0000000000000000e-300", "3.1415926535897931",
       "-1"},
      {"'NONE'", "'PROJECTION_FLEXION_TORSION'", "'PROJECTION_CARTESIAN'", "'UNSPECIFIED'", unset, unset,
       unset, unset, unset, unset, "-1"},
      {"'WELD'", "'ALIGN'", "'JOIN'", "'EXPLICIT'", unset, unset, "2.5000000000000000", "3.5000000000000000",
       "4.5000000000000000", "5.5000000000000000", "-1"}};
  stored_rows const rows = after().rows(nameOf(connectorSection));
  ASSERT_EQ(rows.size(), expected.size());
  for (auto const& [row, fields] : rows) {
    for (std::size_t index = 0; index < names.size(); ++index) {
      EXPECT_EQ(fields.at(names[index]), expected[static_cast<std::size_t>(row)][index])
          << row << " " << names[index];
    }
  }
}

TEST_F(DdrUpgradeModel, Of401WithoutConnectorPropertiesIsCarriedAsItIs) {
  upgrade("model_401",
          setting("kprC_Connectors", R"("connPropCont#ClassID" = NULL, "connPropCont#OID" = NULL)"));
  EXPECT_EQ(after().rows("ddr_Model"), before().rows("ddr_Model"));
  EXPECT_EQ(after().lines("SELECT * FROM ddr_entry"), before().lines("SELECT * FROM ddr_entry"));
  EXPECT_EQ(after().classes(), before().classes());
}

TEST_F(DdrUpgradeModel, Of401WhoseInstanceTableHasNoMapHasNoConnectors) {
  auto const report =
      upgrade("model_401", setting("ddr_ExtensionTable", R"("map#ClassID" = NULL, "map#OID" = NULL)"));
  EXPECT_EQ(after().rows("0x2600045").size(), 0U);
  EXPECT_EQ(dropsOf(report), Texts{});
}

TEST_F(DdrUpgradeModel, Of401WithHalfAnInstanceTableGetsNoSectionExtension) {
  auto const entriesOf = [](stored_file const& file) { return file.value("SELECT count(*) FROM ddr_entry"); };
  upgrade("model_401", setting("ddr_Model", R"("instanceTable#ClassID" = NULL)"));
  EXPECT_EQ(entriesOf(after()), entriesOf(before()));
  EXPECT_EQ(after().field("ddr_Model", 0, "instanceTable#OID"), "NULL");
}

TEST_F(DdrUpgradeModel, Of857IsCarriedAsItIs) {
  auto const report = upgrade("model_857");
  EXPECT_EQ(after().rows("ddr_Model"), before().rows("ddr_Model"));
  bool told = false;
  for (dbc_Note const& note : reportOf(report, "ddr_Model").notes) {
    if (note.kind == dbc_Note::Kind::Carried && note.step == 874) {
      EXPECT_EQ(note.rows, 3);
      told = true;
    }
  }
  EXPECT_TRUE(told);
}

// ---- databases with nothing in them ----

class DdrUpgradeEmpty : public each_layout_test {};

INSTANTIATE_TEST_SUITE_P(Each, DdrUpgradeEmpty, testing::ValuesIn(layout_names()),
                         [](auto const& instance) { return instance.param; });

TEST_P(DdrUpgradeEmpty, HasNoRowsAfterwards) {
  make(GetParam());
  std::string changes = "DELETE FROM ddr_entry;";
  for (std::string const& name : before().classes()) {
    if (!before().rows(name).empty()) {
      changes += "DELETE FROM \"class_" + name + "\";";
    }
  }
  change_stored_file(oldPath, changes);
  convert();
  for (std::string const& name : after().classes()) {
    EXPECT_EQ(after().rows(name).size(), 0U) << name;
  }
  EXPECT_EQ(after().version("ddr_Ddb"), 848);
  EXPECT_EQ(after().version("ddr_Model"), 874);
}

TEST_P(DdrUpgradeEmpty, NeedsNoTables) {
  make(GetParam());
  std::string changes = "DELETE FROM ddr_entry; UPDATE ddr_class SET \"Class Table\" = NULL;";
  for (std::string const& name : before().classes()) {
    changes += "DROP TABLE IF EXISTS \"class_" + name + "\";";
  }
  change_stored_file(oldPath, changes);
  convert();
  EXPECT_EQ(after().classes(), before().classes());
  EXPECT_EQ(after().version("ddr_Ddb"), 848);
  EXPECT_EQ(after().version("ddr_Model"), 874);
}

TEST_F(DdrUpgradeSteps, AFileWithoutClassesIsCurrent) {
  auto const report = upgrade("database_203", "DELETE FROM ddr_class; DELETE FROM ddr_attribute;");
  EXPECT_TRUE(report.alreadyCurrent);
  EXPECT_EQ(folder.names(), Texts{"old.ddr"});
}

} // namespace
