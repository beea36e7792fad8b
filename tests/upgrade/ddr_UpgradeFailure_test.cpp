// Conversions that cannot be completed: the old file and the new name are as they were before.
#include "upgrade_test.h"

#include "child_process.h"
#include "cls_MetadataRegistrar.h"
#include "dbc_DatabaseConverter.h"
#include "dbc_OldClassRegistrar.h"
#include "fault_vfs.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <optional>
#include <stdexcept>

namespace {

using Texts = std::vector<std::string>;

constexpr char const* layout = "database_203";

/// Once with nothing under the new name, once with a database there.
class DdrUpgradeFailure : public upgrade_test, public testing::WithParamInterface<bool> {
protected:
  DdrUpgradeFailure() {
    make(layout);
    oldBytes = readFile(oldPath);
    if (GetParam()) {
      make_layout_file(newPath, "model_857");
      newBytes = readFile(newPath);
    }
  }

  /// Empty when both names are as they were and no other file is there.
  std::string whatChanged() const {
    if (readFile(oldPath) != oldBytes) {
      return "the old file";
    }
    Texts const expected = newBytes ? Texts{"new.ddr", "old.ddr"} : Texts{"old.ddr"};
    if (folder.names() != expected) {
      return "the folder: " + testing::PrintToString(folder.names());
    }
    return newBytes && readFile(newPath) != *newBytes ? "the new name" : "";
  }
  /// Whether the new name has the complete new file.
  bool isComplete() const {
    return std::filesystem::exists(newPath) && after().version("ddr_Ddb") == 848 &&
           after().version("ddr_Model") == 874 && after().integrity() == "ok" &&
           after().value("SELECT description FROM ddr_header") == "'Header of database_203'";
  }
  int progressCalls() {
    int calls = 0;
    dbc_Conversion::Run(cow_String(oldPath), cow_String(folder.path("whole.ddr")), [&](dbc_Progress const&) {
      ++calls;
      return true;
    });
    std::filesystem::remove(folder.path("whole.ddr"));
    return calls;
  }
  /// What a conversion in a process of its own answers; "killed" for one that is killed.
  std::string inChild(std::function<void()> const& prepare, dbc_ProgressCallback const& progress) {
    return in_child([&] {
      prepare();
      convert(progress);
      return std::string("done");
    });
  }
  /// How many files of unfinished conversions are there.
  std::size_t leftovers() const {
    std::size_t count = 0;
    for (std::string const& name : folder.names()) {
      count += name.starts_with("new.ddr.new-") ? 1U : 0U;
    }
    return count;
  }

  std::string oldBytes;
  std::optional<std::string> newBytes;
};

INSTANTIATE_TEST_SUITE_P(Name, DdrUpgradeFailure, testing::Values(false, true),
                         [](auto const& instance) { return instance.param ? "Taken" : "Free"; });

TEST_P(DdrUpgradeFailure, CancelledAtAnyCallLeavesNothing) {
  int const calls = progressCalls();
  ASSERT_GT(calls, 20);
  for (int stopAt = 1; stopAt <= calls; ++stopAt) {
    int call = 0;
    EXPECT_THROW(convert([&](dbc_Progress const&) { return ++call != stopAt; }), dbc_CancelledException);
    EXPECT_EQ(call, stopAt);
    ASSERT_EQ(whatChanged(), "") << "call " << stopAt << " of " << calls;
  }
}

TEST_P(DdrUpgradeFailure, AnExceptionOfTheCallbackLeavesNothing) {
  int const calls = progressCalls();
  for (int stopAt = 1; stopAt <= calls; ++stopAt) {
    int call = 0;
    EXPECT_EQ(failure([&](dbc_Progress const&) -> bool {
                return ++call == stopAt ? throw std::runtime_error("no more") : true;
              }),
              "no more");
    ASSERT_EQ(whatChanged(), "") << "call " << stopAt << " of " << calls;
  }
}

TEST_P(DdrUpgradeFailure, AFullDiskAtAnyRequestLeavesNothing) {
  fault_vfs faults;
  int failed = 0;
  for (int request = 1;; ++request) {
    faults.fail_at(request, ENOSPC, true);
    std::string const said = failure();
    int const failures = faults.failures();
    faults.reset();
    if (failures == 0) {
      EXPECT_EQ(said, "nothing");
      break;
    }
    ++failed;
    EXPECT_NE(said.find("new.ddr'"), std::string::npos) << said;
    EXPECT_NE(said.find("space"), std::string::npos) << said;
    ASSERT_EQ(whatChanged(), "") << "request " << request << ": " << said;
  }
  EXPECT_GT(failed, 0);
  EXPECT_TRUE(isComplete());
}

TEST_P(DdrUpgradeFailure, AFailingDeviceAtAnyRequestLeavesNothing) {
  fault_vfs faults;
  int failed = 0;
  for (int request = 1;; ++request) {
    faults.fail_at(request, EIO, false);
    std::string const said = failure();
    int const failures = faults.failures();
    faults.reset();
    if (failures == 0) {
      break;
    }
    ++failed;
    EXPECT_NE(said, "nothing");
    ASSERT_EQ(whatChanged(), "") << "request " << request << ": " << said;
  }
  EXPECT_GT(failed, 0);
  EXPECT_TRUE(isComplete());
}

TEST_P(DdrUpgradeFailure, KilledAtAnyCallLeavesATemporaryFileThatTheNextRunRemoves) {
  int const calls = progressCalls();
  for (int killAt = 1; killAt <= calls; ++killAt) {
    int call = 0;
    EXPECT_EQ(
        inChild([] {}, [&](dbc_Progress const&) { return ++call == killAt ? raise(SIGKILL) == 0 : true; }),
        "killed");
    EXPECT_EQ(readFile(oldPath), oldBytes);
    EXPECT_EQ(std::filesystem::exists(newPath), newBytes.has_value());
    if (newBytes) {
      EXPECT_EQ(readFile(newPath), *newBytes);
    }
    EXPECT_EQ(leftovers(), 1U) << "call " << killAt;
  }
  convert();
  EXPECT_TRUE(isComplete());
  EXPECT_EQ(folder.names(), (Texts{"new.ddr", "old.ddr"}));
}

TEST_P(DdrUpgradeFailure, KilledAtAnyRequestOfTheDeviceChangesNothing) {
  int killed = 0;
  for (int request = 1;; ++request) {
    std::optional<fault_vfs> faults;
    std::string const answer = inChild(
        [&] {
          faults.emplace();
          faults->kill_at(request);
        },
        {});
    if (answer != "killed") {
      EXPECT_EQ(answer, "done");
      break;
    }
    ++killed;
    EXPECT_EQ(readFile(oldPath), oldBytes);
    ASSERT_EQ(std::filesystem::exists(newPath), newBytes.has_value()) << request;
    if (newBytes) {
      ASSERT_EQ(readFile(newPath), *newBytes) << request;
    }
  }
  EXPECT_GT(killed, 0);
  EXPECT_TRUE(isComplete());
  EXPECT_EQ(folder.names(), (Texts{"new.ddr", "old.ddr"}));
}

// ---- damaged input ----

/// What a damaged file is made of, and what the refusal must name.
struct Damage {
  char const* name;
  char const* layout;
  char const* sql;
  Texts named;
};

class DdrUpgradeDamage : public upgrade_test, public testing::WithParamInterface<Damage> {};

TEST_P(DdrUpgradeDamage, IsRefusedByFileClassAndRow) {
  make(GetParam().layout, GetParam().sql);
  std::string const bytes = readFile(oldPath);
  std::string const said = failure();
  for (std::string const& part : GetParam().named) {
    EXPECT_NE(said.find(part), std::string::npos) << part << " in: " << said;
  }
  EXPECT_NE(said.find("old.ddr'"), std::string::npos) << said;
  EXPECT_EQ(readFile(oldPath), bytes);
  EXPECT_EQ(folder.names(), Texts{"old.ddr"});
}

INSTANTIATE_TEST_SUITE_P(
    Each, DdrUpgradeDamage,
    testing::Values(Damage{"TextForANumber",
                           "database_204",
                           R"(UPDATE class_ddr_Ddb SET modifyTime = 'soon' WHERE "row" = 1)",
                           {"ddr_Ddb", "row 1", "modifyTime"}},
                    Damage{"NumberOf33Bits",
                           "database_309",
                           R"(UPDATE class_ddr_Ddb SET creationTime = 2147483648 WHERE "row" = 0)",
                           {"ddr_Ddb", "row 0", "creationTime"}},
                    Damage{"NumberForAText",
                           "database_818",
                           R"(UPDATE class_ddr_Ddb SET description = 7 WHERE "row" = 1)",
                           {"ddr_Ddb", "row 1", "description"}},
                    Damage{"BytesForAName",
                           "model_401",
                           R"(UPDATE class_ddr_Model SET modelName = x'ff00' WHERE "row" = 3)",
                           {"ddr_Model", "row 3", "modelName"}},
                    Damage{"TextThatIsNotUtf8",
                           "model_857",
                           R"(UPDATE class_ddr_Model SET modelName = CAST(x'ff41' AS TEXT) WHERE "row" = 1)",
                           {"ddr_Model", "row 1", "modelName"}},
                    Damage{"ReferenceOfText",
                           "database_309",
                           R"(UPDATE class_ddr_Ddb SET "results#OID" = 'here' WHERE "row" = 1)",
                           {"ddr_Ddb", "row 1", "results#OID"}},
                    Damage{"ContainerOfText",
                           "model_203",
                           R"(UPDATE class_odiK_Model SET "bcCont#OID" = 'here' WHERE "row" = 1)",
                           {"odiK_Model", "row 1", "bcCont#OID"}},
                    Damage{"NoTableOfOldModels",
                           "model_203",
                           R"(DELETE FROM ddr_attribute WHERE class = 4;
                  UPDATE ddr_class SET "Class Name" = 'odiK_Other', "Type Id" = 77 WHERE "row" = 4)",
                           {"0x2a50001"}},
                    Damage{"InstanceTableThatIsNotThere",
                           "model_401",
                           R"(UPDATE class_ddr_Model SET "instanceTable#OID" = 99 WHERE "row" = 3)",
                           {"ddr_ExtensionTable", "row 99"}},
                    Damage{"MapOfExtensionsThatIsNotThere",
                           "model_401",
                           R"(UPDATE class_ddr_ExtensionTable SET "map#OID" = 99 WHERE "row" = 0)",
                           {"cls_MapHeader", "row 99"}},
                    Damage{"ExtensionThatIsNotThere",
                           "model_401",
                           "UPDATE ddr_entry SET OID = 99 WHERE handle = 12 AND position = 0",
                           {"kprC_Connectors", "row 99"}},
                    Damage{"ConnectorPropertiesThatAreNotThere",
                           "model_401",
                           R"(UPDATE class_kprC_Connectors SET "connPropCont#OID" = 99 WHERE "row" = 0)",
                           {"cls_MapHeader", "row 99"}},
                    Damage{"ConnectorPropertyThatIsNotThere",
                           "model_401",
                           "UPDATE ddr_entry SET OID = 99 WHERE handle = 15 AND position = 1",
                           {"kprC_ConnectorProperty", "row 99"}},
                    Damage{"TableIsMissing", "database_204", "DROP TABLE class_ddr_Ddb", {"ddr_Ddb"}},
                    Damage{
                        "CarriedTableIsMissing", "database_204", "DROP TABLE class_odiK_Note", {"odiK_Note"}},
                    Damage{"NoHeader", "database_204", "DELETE FROM ddr_header", {}},
                    Damage{"NegativeRow",
                           "database_204",
                           R"(UPDATE class_ddr_Ddb SET "row" = -1 WHERE "row" = 0)",
                           {"ddr_Ddb"}}),
    [](auto const& instance) { return instance.param.name; });

TEST_P(DdrUpgradeFailure, APageThatIsTornIsRefused) {
  std::string bytes = oldBytes;
  long long const page =
      std::stoll(before().value("SELECT rootpage FROM sqlite_schema WHERE name = 'class_odiK_Container'"));
  bytes.replace(static_cast<std::size_t>(page - 1) * 4096, 100, std::string(100, '\x5a'));
  writeFile(oldPath, bytes);
  oldBytes = bytes;
  std::string const said = failure();
  EXPECT_NE(said.find("old.ddr'"), std::string::npos) << said;
  EXPECT_NE(said.find("damaged"), std::string::npos) << said;
  EXPECT_EQ(whatChanged(), "");
}

TEST_P(DdrUpgradeFailure, AFileThatIsCutOffIsRefused) {
  std::filesystem::resize_file(oldPath, oldBytes.size() / 2);
  oldBytes = readFile(oldPath);
  EXPECT_NE(failure(), "nothing");
  EXPECT_EQ(whatChanged(), "");
}

TEST_P(DdrUpgradeFailure, ANewNameInAFolderThatIsNotThereIsRefused) {
  newPath = folder.path("nowhere/new.ddr");
  EXPECT_NE(failure().find("folder"), std::string::npos);
}

TEST_P(DdrUpgradeFailure, TheOldFileIsNotReplacedByItself) {
  newPath = oldPath;
  EXPECT_NE(failure().find("old.ddr'"), std::string::npos);
  EXPECT_EQ(readFile(oldPath), oldBytes);
}

TEST_P(DdrUpgradeFailure, ALinkToTheOldFileIsNotTakenForANewOne) {
  std::filesystem::create_symlink(oldPath, folder.path("link.ddr"));
  newPath = folder.path("link.ddr");
  EXPECT_NE(failure(), "nothing");
  EXPECT_EQ(readFile(oldPath), oldBytes);
}

TEST_P(DdrUpgradeFailure, AFileOfAnotherProgramIsNotReplaced) {
  newPath = folder.path("letter.txt");
  writeFile(newPath, "Dear reader");
  EXPECT_NE(failure(), "nothing");
  EXPECT_EQ(readFile(newPath), "Dear reader");
}

// ---- a conversion function that throws ----

constexpr unsigned noteType = 0x2a50010;
constexpr int noteVersion = 77;

void describeNotes(cls_ClassRegistrar& registrar, int version) {
  registrar.CreateClassMD("odiK_Note", noteType, version, nullptr, 0x2a50011)
      .AddAttribute("title", cls_AttributeType::String, 1, cls_CollectionType::Single);
}

void* refuseRowFive(dbc_Row const& input, dbc_Row&, int) {
  if (input.Index() == 5) {
    throw std::runtime_error("row five is too much");
  }
  return nullptr;
}

int finalized = 0;

void* countEnd(dbc_Table const&, dbc_Table&) {
  ++finalized;
  return nullptr;
}

class OldNotes : public dbc_OldClassVersion {
  void DefineClassMetadata(cls_ClassRegistrar& registrar) const override {
    describeNotes(registrar, noteVersion);
  }
  void SchemaChanges(dbc_DatabaseConverter& converter) const override {
    converter.GetConverter(500)
        .Upgrade("odiK_Note", noteType, noteVersion)
        .BindConversionFunction(refuseRowFive)
        .BindFinalizeFunction(countEnd);
  }
};

TEST_P(DdrUpgradeFailure, AnExceptionOfAConversionFunctionLeavesNothing) {
  omi_Singleton<cls_MetadataRegistrar>::Instance().initClassMetadata(
      [](cls_ClassRegistrar& registrar) { describeNotes(registrar, noteVersion + 1); }, 4);
  omi_Singleton<dbc_OldClassRegistrar>::Instance().Register(
      new dbc_OldClassRegistrar::Holder(static_cast<dbc_OldClassVersion*>(new OldNotes)), 4);
  finalized = 0;
  EXPECT_EQ(failure(), "row five is too much");
  EXPECT_EQ(whatChanged(), "");
  EXPECT_EQ(finalized, 1);
  EXPECT_EQ(failure(), "row five is too much") << "another one can be tried";
}

} // namespace
