// Everything that is written to a file is read back equal, by this process and by another.
#include "ddr_ModuleTest.h"
#include "describe_database.h"

#include <array>
#include <cstdio>
#include <memory>
#include <random>

namespace {

/// What the program describe_database says of a file.
std::string describedElsewhere(std::string const& file) {
  std::string const command = std::string(DDR_DESCRIBE_DATABASE) + " '" + file + "' 2>&1";
  FILE* const pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) {
    return "no process";
  }
  std::string text;
  std::array<char, 4096> buffer{};
  std::size_t count = 0;
  while ((count = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0) {
    text.append(buffer.data(), count);
  }
  int const status = pclose(pipe);
  return status == 0 ? text : "status " + std::to_string(status) + ": " + text;
}

class DdrRoundTrip : public ddr_ModuleTest {
protected:
  static void fill(ddr_Ddb& database) {
    database.SetDescription("a beam, \xc3\xbc"
                            "berpr\xc3\xbc"
                            "ft");
    database.SetAnalysisVersion("Release 7");
    database.SetSequenceData("sequence 12");
    database.SetOnlyHasUserDefinedData(true);
    for (std::string const name : {"Model-1", "Model-10", "Model-2", "a name with blanks", "\xe2\x82\xac"}) {
      database.models.Insert(cow_String(name), ddr_Model("somewhere", cow_String("name of " + name)));
    }
    database.results.Insert("Step-1", ddr_Result());
    database.results.Insert("", ddr_Result());
    database.userData.Insert("xy data", ddr_UserData());
    database.AddProductAddOn(ddr_ProductAddOn(ddr_ProductAddOn_Fental));
    database.AddProductAddOn(ddr_ProductAddOn(ddr_ProductAddOn_Koru));
    database.GetDiagnosticData().Append(-5, dia_Severity::Error, "an error");
    database.GetDiagnosticData().Append(1700000000, dia_Severity::Information, "");
  }

  /// What the file must hold after a save: the record, with its models belonging to the file.
  std::string expected(cow_String const& database) {
    ddr_Ddb copy(record(database));
    copy.models.AdjustUnstored([](ddr_Model const&) { return true; },
                               [&](ddr_Model& model) { model.SetDatabase(copy.GetDbId()); });
    return describe_database(copy);
  }
};

TEST_F(DdrRoundTrip, ADatabaseIsReadBackEqual) {
  cow_String const database = create("a.odb");
  change(database, fill);
  save(database);
  std::string const wanted = expected(database);
  EXPECT_EQ(describe_database(record(reopen(database, "a.odb"))), wanted);
}

TEST_F(DdrRoundTrip, ADatabaseIsReadBackEqualByAnotherProcess) {
  cow_String const database = create("a.odb");
  change(database, fill);
  save(database);
  EXPECT_EQ(describedElsewhere(folder.path("a.odb")), expected(database));
}

TEST_F(DdrRoundTrip, AnEmptyDatabaseIsReadBackEqualButForItsVersionText) {
  cow_String const database = createSaved("a.odb");
  std::string wanted = expected(database);
  std::string const line = "analysisVersion \n";
  wanted.replace(wanted.find(line), line.size(), "analysisVersion Unknown Version\n");
  EXPECT_EQ(describedElsewhere(folder.path("a.odb")), wanted);
}

TEST_F(DdrRoundTrip, ASecondSaveOfAReadDatabaseChangesNothingThatIsRead) {
  cow_String database = create("a.odb");
  change(database, fill);
  save(database);
  database = reopen(database, "a.odb");
  save(database, false);
  std::string const wanted = describe_database(record(database));
  EXPECT_EQ(describedElsewhere(folder.path("a.odb")), wanted);
}

TEST_F(DdrRoundTrip, EachSavedVersionIsTheOneThatIsReadBack) {
  cow_String const database = create("a.odb");
  std::mt19937 random(20240305);
  Texts const names = {"a", "b", "c", "d", "e", "f", "g", "h"};
  for (int version = 0; version < 25; ++version) {
    change(database, [&](ddr_Ddb& changed) {
      changed.SetAnalysisVersion(cow_String("version " + std::to_string(version)));
      for (int step = 0; step < 4; ++step) {
        cow_String const name(names[random() % names.size()]);
        switch (random() % 6) {
        case 0:
          changed.models.Insert(name, ddr_Model("", name));
          break;
        case 1:
          changed.models.Remove(name);
          break;
        case 2:
          changed.results.Insert(name, ddr_Result());
          break;
        case 3:
          changed.results.Remove(name);
          break;
        case 4:
          changed.userData.Insert(name, ddr_UserData());
          break;
        default:
          changed.userData.Remove(name);
          break;
        }
      }
    });
    save(database);
    ASSERT_EQ(describedElsewhere(folder.path("a.odb")), expected(database))
        << "version " << version << " of seed 20240305";
  }
}

TEST_F(DdrRoundTrip, DatabasesReadFromAFileAndChangedInTurnKeepEverything) {
  cow_String database = create("a.odb");
  change(database, fill);
  for (int version = 0; version < 5; ++version) {
    change(database, [&](ddr_Ddb& changed) {
      cow_String const name("added " + std::to_string(version));
      changed.models.Insert(name, ddr_Model(changed.GetDbId(), name));
      changed.results.Insert(name, ddr_Result());
    });
    save(database);
    std::string const wanted = expected(database);
    database = reopen(database, "a.odb");
    ASSERT_EQ(describe_database(record(database)), wanted) << version;
  }
}

TEST_F(DdrRoundTrip, CopiesOfTheContainerSavedInTurnLeaveWhatWasSavedLast) {
  cow_String const database = createSaved("a.odb");
  addModels(database, {"common"});
  ddr_DdbContainer first = root().Fetch();
  ddr_DdbContainer second = root().Fetch();
  first.Get(database).models.Insert("first", ddr_Model("", "first"));
  second.Get(database).models.Insert("second", ddr_Model("", "second"));
  root().Replace(first);
  save(database);
  root().Replace(second);
  save(database);
  EXPECT_EQ(modelNames(record(reopen(database, "a.odb"))), (Texts{"common", "second"}));
}

TEST_F(DdrRoundTrip, AnEarlierCopyBroughtBackIsSavedAsItWas) {
  cow_String const database = createSaved("a.odb");
  addModels(database, {"kept"});
  save(database);
  ddr_DdbContainer const earlier = root().Fetch();
  change(database, [](ddr_Ddb& changed) {
    changed.models.Remove("kept");
    changed.models.Insert("other", ddr_Model("", "other"));
    changed.results.Insert("r", ddr_Result());
  });
  save(database);
  root().Replace(earlier);
  save(database);
  ddr_Ddb const& stored = record(reopen(database, "a.odb"));
  EXPECT_EQ(modelNames(stored), Texts{"kept"});
  EXPECT_EQ(stored.results.Size(), 0);
}

TEST_F(DdrRoundTrip, ALongNameAndManyModelsAreReadBack) {
  cow_String const database = create("a.odb");
  std::string const longName(5000, 'x');
  change(database, [&](ddr_Ddb& changed) {
    changed.SetDescription(cow_String(std::string(100000, 'd')));
    changed.SetAnalysisVersion("Release 7");
    changed.models.Insert(cow_String(longName), ddr_Model("", cow_String(longName)));
    for (int number = 0; number < 3000; ++number) {
      cow_String const name("Model-" + std::to_string(number));
      changed.models.Insert(name, ddr_Model("", name));
    }
  });
  save(database);
  EXPECT_EQ(describedElsewhere(folder.path("a.odb")), expected(database));
}

} // namespace
