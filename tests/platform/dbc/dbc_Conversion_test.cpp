// dbc_Conversion: what becomes of rows, steps, collections and everything else of an old file.
#include "thing_module.h"

#include "rfm_Exception.h"

#include <algorithm>

namespace {

using dbc_Conversion_ = thing_test;

std::string field(stored_file const& file, long long row, char const* name) {
  return file.field("Thing", row, name);
}

TEST_F(dbc_Conversion_, CopiesWhatBothLayoutsHaveWhereItIsSet) {
  convert();
  EXPECT_EQ(field(converted(), 0, "name"), "'one'");
  EXPECT_EQ(field(converted(), 0, "size"), "2147483647");
  EXPECT_EQ(field(converted(), 0, "weight"), "-1.5000000000000000");
  EXPECT_EQ(field(converted(), 0, "box#ClassID") + " " + field(converted(), 0, "box#OID"),
            std::to_string(boxTypeId) + " 2");
  EXPECT_EQ(field(converted(), 1, "name") + field(converted(), 1, "size") + field(converted(), 1, "weight"),
            "NULLNULLNULL");
  EXPECT_EQ(field(converted(), 4, "size"), "-2147483648");
}

TEST_F(dbc_Conversion_, CopiesNothingWhoseKindOrClassChanges) {
  convert();
  EXPECT_EQ(field(converted(), 0, "shape"), "NULL");
  EXPECT_EQ(field(converted(), 0, "part#OID") + field(converted(), 0, "part#ClassID"), "NULLNULL");
}

TEST_F(dbc_Conversion_, CopiesAReferenceOnlyWhole) {
  convert();
  EXPECT_EQ(field(converted(), 1, "box#ClassID") + field(converted(), 1, "box#OID"), "NULLNULL");
}

TEST_F(dbc_Conversion_, CopiesAReferenceOnlyWholeInALayoutThatStays) {
  make("UPDATE ddr_class SET \"Class Version\" = 20 WHERE \"Type Id\" = 0x500001;"
       "UPDATE class_Thing SET \"part#OID\" = NULL, shape = NULL;");
  convert();
  EXPECT_EQ(field(converted(), 0, "part#ClassID"), "NULL");
  EXPECT_EQ(field(converted(), 0, "name"), "'one'");
}

TEST_F(dbc_Conversion_, KeepsRowNumbersAndIdentities) {
  convert();
  EXPECT_EQ(converted().rows("Thing").size(), 3U);
  EXPECT_EQ(field(converted(), 1, "#uid"), "x'000000000000000000000000000000a1'");
  EXPECT_EQ(field(converted(), 4, "#uid"), "NULL");
}

TEST_F(dbc_Conversion_, GivesTheClassItsCurrentLayout) {
  convert();
  EXPECT_EQ(converted().version("Thing"), 40);
  EXPECT_EQ(converted().attributes("Thing"),
            (std::vector<std::string>{"name 11 0x1 0", "size 5 0x1 0", "weight 7 0x1 0", "box 15 0x500002 0",
                                      "shape 5 0x1 0", "part 15 0x500001 0", "map 15 0x230002 2",
                                      "added 11 0x1 0"}));
}

TEST_F(dbc_Conversion_, CarriesClassesThatNobodyKnowsWithEverythingInTheirRows) {
  auto const before = stored_file(oldPath).rows("Box");
  convert();
  EXPECT_EQ(converted().rows("Box"), before);
  EXPECT_EQ(converted().field("Box", 2, "beside"), "0.50000000000000000");
  EXPECT_EQ(converted().version("Box"), 3);
  EXPECT_EQ(converted().classes(), (std::vector<std::string>{"Box", "Thing", "Empty"}));
}

TEST_F(dbc_Conversion_, CarriesCollectionsHeaderAndTheNextHandle) {
  convert();
  EXPECT_EQ(converted().lines("SELECT * FROM ddr_entry"),
            stored_file(oldPath).lines("SELECT * FROM ddr_entry"));
  EXPECT_EQ(converted().lines("SELECT * FROM ddr_header"),
            stored_file(oldPath).lines("SELECT * FROM ddr_header"));
  EXPECT_EQ(converted().integrity(), "ok");
}

TEST_F(dbc_Conversion_, RunsStepsByNumberEachOverTheWholeClass) {
  std::string calls;
  thing_Steps::current().first = [&](dbc_Row const& row, dbc_Row&) {
    calls += "7:" + std::to_string(row.Index()) + " ";
  };
  thing_Steps::current().finalizeFirst = [&](dbc_Table const& input, dbc_Table& output) {
    calls += "end of " + std::to_string(input.Length()) + "," + std::to_string(output.Length()) + " ";
  };
  thing_Steps::current().second = [&](dbc_Row const& row, dbc_Row&) {
    calls += "30:" + std::to_string(row.Index()) + " ";
  };
  convert();
  EXPECT_EQ(calls, "7:0 7:1 7:4 end of 5,5 30:0 30:1 30:4 ");
}

TEST_F(dbc_Conversion_, AStepLeavesOtherVersionsAlone) {
  make("UPDATE ddr_class SET \"Class Version\" = 20 WHERE \"Type Id\" = 0x500001;"
       "UPDATE class_Thing SET shape = 3;");
  int firstCalls = 0;
  int secondCalls = 0;
  thing_Steps::current().first = [&](dbc_Row const&, dbc_Row&) { ++firstCalls; };
  thing_Steps::current().second = [&](dbc_Row const&, dbc_Row&) { ++secondCalls; };
  convert();
  EXPECT_EQ(firstCalls, 0);
  EXPECT_EQ(secondCalls, 3);
  EXPECT_EQ(field(converted(), 0, "shape"), "3");
}

TEST_F(dbc_Conversion_, TheOutputRowHasTheLayoutOfTheNextVersion) {
  bool firstHas = true;
  bool secondHas = false;
  thing_Steps::current().first = [&](dbc_Row const&, dbc_Row& row) { firstHas = row.HasField("added"); };
  thing_Steps::current().second = [&](dbc_Row const& input, dbc_Row& row) {
    secondHas = row.HasField("added") && !input.HasField("added");
    row.WriteFieldString("added", "new");
  };
  convert();
  EXPECT_FALSE(firstHas);
  EXPECT_TRUE(secondHas);
  EXPECT_EQ(field(converted(), 4, "added"), "'new'");
}

TEST_F(dbc_Conversion_, TheInputRowKeepsWhatTheOutputRowGets) {
  std::string seen;
  thing_Steps::current().first = [&](dbc_Row const& input, dbc_Row& output) {
    output.WriteFieldString("name", "changed");
    seen += input.ReadFieldString("name").Text();
  };
  thing_Steps::current().second = [&](dbc_Row const& input, dbc_Row& output) {
    output.WriteFieldString("name", "again");
    seen += input.ReadFieldString("name").Text();
  };
  convert();
  EXPECT_EQ(seen, "onefourchangedchangedchanged");
  EXPECT_EQ(field(converted(), 1, "name"), "'again'");
}

TEST_F(dbc_Conversion_, ReportsStepsRowsAndLosses) {
  thing_Steps::current().first = [](dbc_Row const&, dbc_Row& row) {
    row.WriteFieldInt("size", 1);
    omi_Singleton<dbc_DatabaseConverterHolder>::Instance().GetDatabaseConverter().Supplied("size", "one");
  };
  dbc_ConversionReport const report = convert();
  dbc_ClassReport const thing = thingReport(report);
  EXPECT_EQ(thing.versionIn, 10);
  EXPECT_EQ(thing.versionOut, 40);
  EXPECT_EQ(thing.rowsIn, 3);
  EXPECT_EQ(thing.rowsOut, 3);
  ASSERT_EQ(thing.steps.size(), 2U);
  EXPECT_EQ(thing.steps[1].step, 30);
  EXPECT_EQ(thing.steps[1].rows, 3);
  EXPECT_EQ(notes(thing), "7 Supplied size: one x3; "
                          "7 Dropped gone: the new layout has no such field x1; "
                          "7 Dropped shape: the new layout keeps something else under this name x1; "
                          "7 Dropped part: the new layout keeps something else under this name x1; "
                          "7 Dropped box: only one half of the reference was set x1; ");
  EXPECT_EQ(report.entriesIn, 3);
  EXPECT_EQ(report.entriesOut, 3);
}

TEST_F(dbc_Conversion_, ALossThatAFunctionExplainsIsReportedOnce) {
  thing_Steps::current().first = [](dbc_Row const& row, dbc_Row&) {
    if (row.IsPresent("gone")) {
      omi_Singleton<dbc_DatabaseConverterHolder>::Instance().GetDatabaseConverter().Dropped("gone",
                                                                                            "by rule");
    }
  };
  std::string const said = notes(thingReport(convert()));
  EXPECT_NE(said.find("7 Dropped gone: by rule x1; "), std::string::npos) << said;
  EXPECT_EQ(said.find("no such field"), std::string::npos) << said;
}

// As one attribute, though they are of two kinds.
TEST_F(dbc_Conversion_, LossesUnderOneNameAreReportedOnceForARow) {
  make(R"(ALTER TABLE class_Thing ADD COLUMN "gone#ClassID" INTEGER;
      UPDATE class_Thing SET "gone#ClassID" = 0x500002)");
  std::string const said = notes(thingReport(convert()));
  EXPECT_NE(said.find("7 Dropped gone: the new layout has no such field x1; "), std::string::npos) << said;
  EXPECT_NE(said.find("7 Dropped gone: only one half of the reference was set x2; "), std::string::npos)
      << said;
}

TEST_F(dbc_Conversion_, AReferenceToAnotherClassIsALoss) {
  thing_Steps::current().first = [](dbc_Row const&, dbc_Row& row) {
    if (row.IsPresent("box#OID")) {
      row.WriteFieldInt("box#ClassID", static_cast<int>(thingTypeId));
    }
  };
  std::string const said = notes(thingReport(convert()));
  EXPECT_NE(said.find("7 Dropped box: the reference leads to something new x1; "), std::string::npos) << said;
}

TEST_F(dbc_Conversion_, CarriesTablesThatTheFormatDoesNotKnow) {
  make("CREATE TABLE plain(a, b); INSERT INTO plain(rowid, a, b) VALUES(7, 'x', NULL), (9, 2.5, x'00');"
       "CREATE UNIQUE INDEX plain_a ON plain(a);"
       "CREATE TABLE \"odd \"\"name\"(rowid TEXT, c INTEGER PRIMARY KEY, twice AS (c * 2));"
       "INSERT INTO \"odd \"\"name\"(rowid, c) VALUES('r', 40);"
       "CREATE TABLE bare(k PRIMARY KEY, v) WITHOUT ROWID; INSERT INTO bare VALUES('k', 1);");
  EXPECT_EQ(convert().leftBehind, std::vector<std::string>());
  EXPECT_EQ(converted().lines("SELECT rowid, a, b FROM plain ORDER BY 1"),
            (std::vector<std::string>{"7 'x' NULL", "9 2.5000000000000000 x'00'"}));
  EXPECT_EQ(converted().value("SELECT count(*) FROM sqlite_schema WHERE name = 'plain_a'"), "1");
  EXPECT_EQ(converted().lines("SELECT rowid, c, twice FROM \"odd \"\"name\""),
            std::vector<std::string>{"'r' 40 80"});
  EXPECT_EQ(converted().lines("SELECT k, v FROM bare"), std::vector<std::string>{"'k' 1"});
  EXPECT_EQ(converted().integrity(), "ok");
}

TEST_F(dbc_Conversion_, CarriesNoTableThatMakesLongValues) {
  make("CREATE TABLE a(v, long AS (printf('%.*c', 100000000, v)) STORED);"
       "CREATE TABLE b(v CHECK(length(hex(zeroblob(50000000))) > 0));"
       "CREATE TABLE c(v); INSERT INTO c VALUES(1); CREATE INDEX c_v ON c(v) WHERE quote(zeroblob(3)) <> v;"
       "CREATE TABLE d(v CHECK(length(v) < 3), w DEFAULT (datetime('now'))); INSERT INTO d(v) VALUES('ab');");
  EXPECT_EQ(convert().leftBehind, (std::vector<std::string>{"table 'a'", "table 'b'", "index 'c_v'"}));
  EXPECT_EQ(converted().value("SELECT v FROM c"), "1");
  EXPECT_EQ(converted().value("SELECT v FROM d"), "'ab'");
  EXPECT_EQ(converted().integrity(), "ok");
}

TEST_F(dbc_Conversion_, NamesWhatIsLeftBehind) {
  make("CREATE TABLE class_of_nobody(a); CREATE VIEW seen AS SELECT 1;"
       "CREATE TRIGGER t AFTER INSERT ON class_of_nobody BEGIN SELECT 1; END;");
  std::vector<std::string> const left{"table 'class_of_nobody'", "view 'seen'", "trigger 't'"};
  EXPECT_EQ(dbc_Conversion::Plan(cow_String(oldPath)).leftBehind, left);
  EXPECT_EQ(convert().leftBehind, left);
  EXPECT_EQ(converted().integrity(), "ok");
}

TEST_F(dbc_Conversion_, PlansWithoutDoing) {
  std::string const before = readFile(oldPath);
  dbc_ConversionReport const plan = dbc_Conversion::Plan(cow_String(oldPath));
  EXPECT_FALSE(plan.alreadyCurrent);
  EXPECT_EQ(plan.classes.at(0).rowsIn, 2);
  EXPECT_TRUE(plan.classes.at(0).steps.empty());
  EXPECT_FALSE(plan.classes.at(0).known);
  ASSERT_EQ(plan.classes.at(1).steps.size(), 2U);
  EXPECT_EQ(plan.classes.at(1).steps[0].versionAfter, 20);
  EXPECT_EQ(plan.classes.at(1).steps[1].versionAfter, 40);
  EXPECT_EQ(readFile(oldPath), before);
  EXPECT_EQ(folder.names(), std::vector<std::string>{"old.ddr"});
}

TEST_F(dbc_Conversion_, ACurrentFileIsNotCopied) {
  make("UPDATE ddr_class SET \"Class Version\" = 40 WHERE \"Type Id\" = 0x500001;");
  dbc_ConversionReport const report = convert();
  EXPECT_TRUE(report.alreadyCurrent);
  EXPECT_EQ(folder.names(), std::vector<std::string>{"old.ddr"});
}

TEST_F(dbc_Conversion_, AClassWithoutRowsChangesItsLayoutOnly) {
  make("UPDATE ddr_class SET \"Class Table\" = NULL WHERE \"Type Id\" = 0x500001; DROP TABLE class_Thing;");
  thing_Steps::current().first = [](dbc_Row const&, dbc_Row&) { ADD_FAILURE() << "there is no row"; };
  thing_Steps::current().finalizeFirst = [](dbc_Table const&, dbc_Table&) { ADD_FAILURE() << "no table"; };
  EXPECT_EQ(thingReport(convert()).rowsOut, 0);
  EXPECT_EQ(converted().version("Thing"), 40);
}

TEST_F(dbc_Conversion_, RefusesAVersionThatNoStepStartsFrom) {
  make("UPDATE ddr_class SET \"Class Version\" = 15 WHERE \"Type Id\" = 0x500001;");
  EXPECT_EQ(failure(), "Database file '" + oldPath +
                           "', class 'Thing': it has the version 15, this program converts 10, 20, and knows "
                           "40. Convert it first with a release that knows this version.");
  make("UPDATE ddr_class SET \"Class Version\" = 41 WHERE \"Type Id\" = 0x500001;");
  EXPECT_EQ(failure(), "Database file '" + oldPath +
                           "', class 'Thing': it has the version 41, this program knows those up to 40. Use "
                           "the newer program that wrote it.");
}

TEST_F(dbc_Conversion_, SharesNothingWithTheOldFileAfterwards) {
  std::string const before = readFile(oldPath);
  convert();
  change_stored_file(newPath, "DELETE FROM class_Box");
  EXPECT_EQ(readFile(oldPath), before);
}

// ---- progress ----

TEST_F(dbc_Conversion_, TellsItsProgressPhaseByPhase) {
  std::vector<dbc_Progress> told;
  convert([&](dbc_Progress const& now) {
    told.push_back(now);
    return true;
  });
  ASSERT_FALSE(told.empty());
  EXPECT_TRUE(std::is_sorted(told.begin(), told.end(), [](dbc_Progress const& one, dbc_Progress const& two) {
    return one.phase != two.phase ? one.phase < two.phase : one.done < two.done;
  }));
  for (dbc_Progress const& now : told) {
    EXPECT_LE(now.done, now.total);
  }
  auto const lastOf = [&](dbc_Progress::Phase phase) {
    return *std::find_if(told.rbegin(), told.rend(),
                         [&](dbc_Progress const& now) { return now.phase == phase; });
  };
  EXPECT_EQ(lastOf(dbc_Progress::Phase::Copying).done, 2 + 3);
  EXPECT_EQ(lastOf(dbc_Progress::Phase::Copying).total, 2 + 3);
  EXPECT_EQ(lastOf(dbc_Progress::Phase::Converting).done, 2 * 3);
  EXPECT_EQ(lastOf(dbc_Progress::Phase::Converting).total, 2 * 3);
  EXPECT_EQ(lastOf(dbc_Progress::Phase::Finishing).done, lastOf(dbc_Progress::Phase::Finishing).total);
}

TEST_F(dbc_Conversion_, AsksWithinLongTables) {
  make("WITH RECURSIVE n(i) AS (SELECT 10 UNION ALL SELECT i + 1 FROM n WHERE i < 50000) "
       "INSERT INTO class_Thing(\"row\", name) SELECT i, 't' || i FROM n;"
       "WITH RECURSIVE n(i) AS (SELECT 10 UNION ALL SELECT i + 1 FROM n WHERE i < 50000) "
       "INSERT INTO class_Box(\"row\", label) SELECT i, 't' || i FROM n;");
  int copying = 0;
  int converting = 0;
  convert([&](dbc_Progress const& now) {
    copying += now.phase == dbc_Progress::Phase::Copying;
    converting += now.phase == dbc_Progress::Phase::Converting;
    return true;
  });
  EXPECT_GT(copying, 5);
  EXPECT_GT(converting, 40);
  EXPECT_EQ(converted().value("SELECT count(*) || ' ' || min(name) FROM class_Thing"), "'49994 four'");
  EXPECT_EQ(converted().value("SELECT count(*) FROM class_Box"), "49993");
}

// ---- what conversion functions are given ----

TEST_F(dbc_Conversion_, UtilitiesMakeCollectionsOfTheirKinds) {
  std::string made;
  thing_Steps::current().first = [&](dbc_Row const& input, dbc_Row& row) {
    if (input.Index() != 0) {
      return;
    }
    dbc_Utils& utils = omi_Singleton<dbc_Utils>::Instance();
    using Call = std::unique_ptr<dbc_Table> (dbc_Utils::*)(dbc_Row&, cow_String const&);
    for (Call const call :
         {&dbc_Utils::SetNewAttributeMapInOutputDatabase, &dbc_Utils::SetNewAttributeMapListInOutputDatabase,
          &dbc_Utils::SetNewAttributeListInOutputDatabase,
          &dbc_Utils::SetNewAttributeMapInt2ObjInOutputDatabase,
          &dbc_Utils::SetNewAttributeArrayIntInOutputDatabase,
          &dbc_Utils::NEWSetNewAttributeArrayStringInOutputDatabase}) {
      std::unique_ptr<dbc_Table> const table = (utils.*call)(row, "map");
      char text[40];
      std::snprintf(text, sizeof text, "%#x %d, ", row.ReadFieldUnsigned("map#ClassID"),
                    row.ReadFieldInt("map#OID"));
      made += text;
      EXPECT_EQ(table->Length(), 0);
    }
  };
  convert();
  EXPECT_EQ(made, "0x230002 0, 0x210001 0, 0x230001 0, 0x230002 1, 0x230001 1, 0x230001 2, ");
  EXPECT_EQ(field(converted(), 0, "map#ClassID") + " " + field(converted(), 0, "map#OID"),
            std::to_string(0x230001) + " 2");
  EXPECT_EQ(converted().field("cls_ListHeader", 2, "Target#Handle"), "75");
}

TEST_F(dbc_Conversion_, EntriesAreAddedInOrderAndReadBack) {
  thing_Steps::current().first = [&](dbc_Row const& input, dbc_Row& row) {
    if (input.Index() != 0) {
      return;
    }
    auto const map = omi_Singleton<dbc_Utils>::Instance().SetNewAttributeMapInOutputDatabase(row, "map");
    for (char const* const key : {"z", "a"}) {
      dbc_Row& entry = map->AppendRow();
      entry.WriteFieldString("Key", key);
      entry.WriteFieldUnsigned("ClassID", boxTypeId);
      entry.WriteFieldInt("OID", entry.Index() * 2);
      map->FinishRow(entry);
    }
    EXPECT_EQ(map->Length(), 2);
    EXPECT_EQ(map->Row(1).ReadFieldString("Key"), cow_String("a"));
    EXPECT_EQ(map->Row(0).ReadFieldString("Key"), cow_String("z"));
    EXPECT_EQ(map->Row(1).ReadFieldInt("OID"), 2);
  };
  EXPECT_EQ(convert().entriesOut, 5);
  EXPECT_EQ(converted().collection("Thing", 0, "map"),
            (std::vector<std::string>{"z 0x500002 0", "a 0x500002 2"}));
}

TEST_F(dbc_Conversion_, ARowThatIsNeverFinishedIsDropped) {
  thing_Steps::current().first = [](dbc_Row const&, dbc_Row&) {
    auto const boxes = omi_Singleton<dbc_DatabaseConverterHolder>::Instance()
                           .GetDatabaseConverter()
                           .OutputDatabase()
                           .GetOutputTable(boxTypeId);
    boxes->AppendRow().WriteFieldString("label", "lost");
  };
  convert();
  EXPECT_EQ(converted().rows("Box").size(), 2U);
}

TEST_F(dbc_Conversion_, AnUnknownClassGetsTheLayoutOfWhatIsWrittenAndTheNumberOfTheStep) {
  thing_Steps::current().first = [](dbc_Row const& input, dbc_Row&) {
    dbc_OutputDatabase& output =
        omi_Singleton<dbc_DatabaseConverterHolder>::Instance().GetDatabaseConverter().OutputDatabase();
    auto const made =
        omi_Singleton<dbc_Utils>::Instance().CreateClassInOutputDatabase(0x500009, output.Transporter());
    dbc_Row& row = made->AppendRow();
    EXPECT_EQ(made->Length(), row.Index() + 1);
    row.WriteFieldInt("##BaseClassOID", -1);
    row.WriteFieldUnsigned("to#ClassID", boxTypeId);
    row.WriteFieldInt("to#OID", 2);
    row.WriteFieldDouble("real", 0.5);
    if (input.Index() == 4) {
      row.WriteFieldString("late", "x");
    }
    made->FinishRow(row);
  };
  dbc_ConversionReport const report = convert();
  EXPECT_EQ(report.classes.back().rowsOut, 3);
  EXPECT_EQ(report.classes.back().versionIn, 0);
  EXPECT_EQ(report.classes.back().versionOut, 7);
  EXPECT_EQ(converted().attributes("0x500009"),
            (std::vector<std::string>{"to 15 0x500002 0", "real 7 0x1 0", "late 11 0x1 0"}));
  EXPECT_EQ(converted().field("0x500009", 0, "##BaseClassOID"), "-1");
  EXPECT_EQ(converted().field("0x500009", 0, "late"), "NULL");
  EXPECT_EQ(converted().field("0x500009", 2, "late"), "'x'");
}

TEST_F(dbc_Conversion_, ATemporaryClassStaysUnderItsVersionAndGetsTheNameOfItsView) {
  thing_Steps::current().first = [](dbc_Row const&, dbc_Row&) {
    auto const made = omi_Singleton<dbc_Utils>::Instance().CreateTempClassInOutputDatabase(0x500008, 401);
    dbc_Row& row = made->AppendRow();
    row.WriteFieldInt("number", 1);
    made->FinishRow(row);
    auto const view = omi_Singleton<dbc_DatabaseConverterHolder>::Instance().GetDatabaseConverter().ClassView(
        "Wrapper", *made, 891, 0, -1);
    EXPECT_EQ(view->RowCount(), made->Length());
    EXPECT_EQ(view->Version(), 891);
    EXPECT_EQ(view->First(), 0);
    EXPECT_EQ(view->Last(), -1);
  };
  convert();
  EXPECT_EQ(converted().version("Wrapper"), 401);
  EXPECT_EQ(converted().rows("Wrapper").size(), 3U);
}

TEST_F(dbc_Conversion_, InputTablesAreThoseBeforeTheStep) {
  thing_Steps::current().first = [](dbc_Row const& row, dbc_Row& output) {
    dbc_InputDatabase const& input =
        omi_Singleton<dbc_DatabaseConverterHolder>::Instance().GetDatabaseConverter().InputDatabase();
    output.WriteFieldString("name", "changed");
    EXPECT_TRUE(input.HasInputTable(boxTypeId));
    EXPECT_FALSE(input.HasInputTable(0x777));
    EXPECT_EQ(input.GetInputTable(thingTypeId)->Row(0).ReadFieldString("name"), cow_String("one"));
    EXPECT_EQ(input.GetInputEntries(5)->Row(1).ReadFieldString("Key"), cow_String("a"));
    EXPECT_EQ(input.GetInputEntries(5)->Length(), 2);
    if (row.Index() == 0) {
      EXPECT_THROW(input.GetInputTable(boxTypeId)->AppendRow(), nex_TextException);
    }
  };
  thing_Steps::current().second = [](dbc_Row const&, dbc_Row&) {
    dbc_InputDatabase const& input =
        omi_Singleton<dbc_DatabaseConverterHolder>::Instance().GetDatabaseConverter().InputDatabase();
    EXPECT_EQ(input.GetInputTable(thingTypeId)->Row(0).ReadFieldString("name"), cow_String("changed"));
  };
  convert();
}

TEST_F(dbc_Conversion_, AMissingClassIsNamed) {
  thing_Steps::current().first = [](dbc_Row const&, dbc_Row&) {
    omi_Singleton<dbc_DatabaseConverterHolder>::Instance()
        .GetDatabaseConverter()
        .InputDatabase()
        .GetInputTable(0x777);
  };
  EXPECT_EQ(failure(), "Database file '" + oldPath +
                           "': class 0x777, which others refer to, is not in its class list. Restore it from "
                           "a backup.");
}

TEST_F(dbc_Conversion_, EnumerationsAreStoredAsTheirText) {
  thing_Steps::current().first = [](dbc_Row const&, dbc_Row& row) {
    dbc_Utils& utils = omi_Singleton<dbc_Utils>::Instance();
    dbc_Enum const value = utils.CreateEnum("colour", "RED");
    EXPECT_EQ(value.Name(), cow_String("colour"));
    utils.SetEnum("name", row, value);
  };
  convert();
  EXPECT_EQ(field(converted(), 4, "name"), "'RED'");
}

TEST_F(dbc_Conversion_, ThereIsAConverterOnlyWhileOneRuns) {
  auto const ask = [] { omi_Singleton<dbc_DatabaseConverterHolder>::Instance().GetDatabaseConverter(); };
  EXPECT_THROW(ask(), nex_AssertException);
  thing_Steps::current().first = [&](dbc_Row const&, dbc_Row&) { EXPECT_NO_THROW(ask()); };
  convert();
  EXPECT_THROW(ask(), nex_AssertException);
}

TEST_F(dbc_Conversion_, ASecondConversionMeanwhileIsRefused) {
  std::string said;
  thing_Steps::current().first = [&](dbc_Row const&, dbc_Row&) {
    try {
      dbc_Conversion::Run(cow_String(oldPath), cow_String(folder.path("other.ddr")));
    } catch (nex_TextException const& error) {
      said = error.what();
    }
  };
  convert();
  EXPECT_EQ(said,
            "Another database is being converted in this process; wait until that conversion has ended.");
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"new.ddr", "old.ddr"}));
}

TEST_F(dbc_Conversion_, ConvertingTwiceGivesTheSame) {
  thing_Steps::current().first = [](dbc_Row const& input, dbc_Row& row) {
    if (input.Index() != 4) { // a row without identity cannot give one
      omi_Singleton<dbc_Utils>::Instance().SetNewAttributeMapInOutputDatabase(row, "map").reset();
    }
  };
  convert();
  std::string const once = converted().everything();
  convert();
  EXPECT_EQ(converted().everything(), once);
  EXPECT_NE(converted().field("cls_MapHeader", 0, "#uid"), converted().field("cls_MapHeader", 1, "#uid"));
  EXPECT_NE(converted().field("cls_MapHeader", 0, "#uid"), "NULL");
}

} // namespace
