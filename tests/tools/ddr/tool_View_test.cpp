// Tests of the verbs "info" and "ls".
#include "tool_Test.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

struct ViewTest : tool_Test {
  void SetUp() override {
    done({"create", "a.ddr", "--description", "Wing"});
    done({"model", "add", "a.ddr", "Model-10", "Model-2", "Model-1"});
    done({"result", "add", "a.ddr", "Step-10", "Step-9"});
    done({"userdata", "add", "a.ddr", "Notes"});
  }
  void change(std::function<void(ddr_Ddb&)> const& work) {
    withLibrary([&](ddr_Root& root) {
      cow_String const name = root.OpenDdb(rfm_File::Open("a.ddr", utl_FileAccess::Write, true), "");
      ddr_DdbContainer databases = root.Fetch();
      work(databases.Get(name));
      root.Replace(databases);
      root.SaveDdb(name, true);
    });
  }
  // The value beside a label.
  std::string row(std::string const& label) {
    std::string const text = fmt::format("\n{}", done({"info", "a.ddr"}));
    std::size_t const begin = text.find(fmt::format("\n{} ", label)) + 1;
    std::size_t const value = text.find_first_not_of(' ', begin + label.size());
    return begin == 0 ? "no such row" : text.substr(value, text.find('\n', begin) - value);
  }
};

TEST_F(ViewTest, InfoShowsEveryRow) {
  EXPECT_THAT(done({"info", "a.ddr"}),
              MatchesRegex("Name                    [0-9/]{10} [0-9:]{8} a\\.ddr\n"
                           "File                    a\\.ddr\n"
                           "Description             Wing\n"
                           "Created                 [^\n]+ [0-9]{4}\n"
                           "Modified                [^\n]+ [0-9]{4}\n"
                           "Analysis version        Unknown Version\n"
                           "Database version        891\n"
                           "Class versions          ddr_Ddb [0-9]+, ddr_Model [0-9]+\n"
                           "Layout                  current\n"
                           "Models                  3\n"
                           "Results                 2\n"
                           "User data               1\n"
                           "Add-ons                 \\(none\\)\n"
                           "Only user-defined data  no\n"
                           "Readable here           yes\n"
                           "Writable here           yes\n"));
}

TEST_F(ViewTest, InfoJsonHasEveryField) {
  nlohmann::json const answer = json({"info", "a.ddr"});
  EXPECT_EQ(answer["file"], "a.ddr");
  EXPECT_THAT(answer["name"].get<std::string>(), MatchesRegex("[0-9/]{10} [0-9:]{8} a\\.ddr"));
  EXPECT_EQ(answer["description"], "Wing");
  EXPECT_EQ(answer["created"], row("Created"));
  EXPECT_EQ(answer["modified"], row("Modified"));
  EXPECT_EQ(answer["analysisVersion"], "Unknown Version");
  EXPECT_EQ(answer["ddbVersion"], 891);
  EXPECT_EQ(answer["counts"], nlohmann::json({{"models", 3}, {"results", 2}, {"userData", 1}}));
  EXPECT_EQ(answer["addOns"], nlohmann::json::array());
  EXPECT_EQ(answer["onlyUserDefinedData"], false);
  EXPECT_EQ(answer["upwardsCompatible"], true);
  EXPECT_EQ(answer["writeCompatible"], true);
  EXPECT_EQ(answer["olderLayout"], false);
  EXPECT_EQ(answer.size(), 14U);
}

TEST_F(ViewTest, InfoShowsTheClassVersionsOfTheFile) {
  runSql(folder.path("a.ddr"),
         R"(UPDATE ddr_class SET "Class Version" = 7 WHERE "Class Name" = 'ddr_Model')");
  EXPECT_EQ(json({"info", "a.ddr"})["classVersions"]["ddr_Model"], 7);
  EXPECT_THAT(row("Class versions"), HasSubstr("ddr_Model 7"));
}

TEST_F(ViewTest, InfoShowsWhatHostsSet) {
  change([](ddr_Ddb& record) {
    record.AddProductAddOn(ddr_ProductAddOn("KORU"));
    record.AddProductAddOn(ddr_ProductAddOn("FENTAL"));
    record.SetOnlyHasUserDefinedData(true);
    record.SetAnalysisVersion("Release 9");
  });
  EXPECT_EQ(row("Add-ons"), "KORU, FENTAL");
  EXPECT_EQ(row("Only user-defined data"), "yes");
  EXPECT_EQ(row("Analysis version"), "Release 9");
  nlohmann::json const answer = json({"info", "a.ddr"});
  EXPECT_EQ(answer["addOns"], nlohmann::json({"KORU", "FENTAL"}));
  EXPECT_EQ(answer["onlyUserDefinedData"], true);
  EXPECT_EQ(answer["analysisVersion"], "Release 9");
}

TEST_F(ViewTest, ADatabaseOfANewerSchemaIsNotReadableHere) {
  runSql(folder.path("a.ddr"), "UPDATE class_ddr_Ddb SET ddbVersion = 892");
  EXPECT_EQ(row("Readable here"), "no");
  EXPECT_EQ(json({"info", "a.ddr"})["upwardsCompatible"], false);
  EXPECT_EQ(json({"info", "a.ddr"})["ddbVersion"], 892);
}

TEST_F(ViewTest, AFileOfOlderClassesIsNotWritableHere) {
  runSql(folder.path("a.ddr"), R"(UPDATE ddr_class SET "Class Version" = 1 WHERE "Class Name" = 'ddr_Ddb')");
  EXPECT_EQ(row("Writable here"), "no");
  EXPECT_EQ(json({"info", "a.ddr"})["writeCompatible"], false);
}

TEST_F(ViewTest, ADamagedFileOfOlderClassesIsRefused) {
  runSql(folder.path("a.ddr"),
         R"(UPDATE ddr_class SET "Class Version" = 309 WHERE "Class Name" = 'ddr_Ddb')");
  runSql(folder.path("a.ddr"), "UPDATE class_ddr_Ddb SET modifyTime = 5000000000");
  EXPECT_THAT(refused({"info", "a.ddr"}), HasSubstr("field 'modifyTime': it is damaged"));
}

TEST_F(ViewTest, AnUnknownAddOnIsToldWithTheFileAndWhatToDo) {
  runSql(folder.path("a.ddr"),
         R"(INSERT INTO ddr_entry SELECT max("Target#Handle"), 0, 'OTHER', 0, -1 FROM class_cls_ListHeader)");
  EXPECT_EQ(refused({"info", "a.ddr"}),
            "ddr: Database file 'a.ddr': it cannot be read (omu_PrimEnum(const cls_ReadVisitor&) - str not "
            "allowed: OTHER  Permissible: KORU, FENTAL). Restore it from a backup; 'ddr check --deep' shows "
            "what is damaged.");
}

TEST_F(ViewTest, AnEmptyDescriptionIsSaid) {
  done({"create", "a.ddr", "--force"});
  EXPECT_EQ(row("Description"), "(none)");
  EXPECT_EQ(json({"info", "a.ddr"})["description"], "");
}

TEST_F(ViewTest, ListShowsTheNamesInNaturalOrder) {
  EXPECT_EQ(done({"ls", "a.ddr"}), "Models (3)\n  Model-1\n  Model-2\n  Model-10\n"
                                   "Results (2)\n  Step-9\n  Step-10\n"
                                   "User data (1)\n  Notes\n");
}

TEST_F(ViewTest, ListJsonHasTheNamesInNaturalOrder) {
  EXPECT_EQ(json({"ls", "a.ddr"}), nlohmann::json({{"file", "a.ddr"},
                                                   {"models", {"Model-1", "Model-2", "Model-10"}},
                                                   {"results", {"Step-9", "Step-10"}},
                                                   {"userData", {"Notes"}}}));
}

TEST_F(ViewTest, NamesAreEscapedInTextAndExactInJson) {
  std::string const name = "a\x1b[31m\n\xe2\x80\xae\xc3\xa9";
  done({"create", "b.ddr", "--description", name});
  done({"model", "add", "b.ddr", name});
  EXPECT_THAT(done({"ls", "b.ddr"}), HasSubstr("\n  a\\x1b[31m\\n\\u202e\xc3\xa9\n"));
  EXPECT_THAT(done({"info", "b.ddr"}), HasSubstr("Description             a\\x1b[31m\\n\\u202e\xc3\xa9\n"));
  EXPECT_EQ(json({"ls", "b.ddr"})["models"], nlohmann::json({name}));
  EXPECT_EQ(json({"info", "b.ddr"})["description"], name);
}

TEST_F(ViewTest, InfoShowsDiagnosticsWhenAsked) {
  change([](ddr_Ddb& record) {
    record.GetDiagnosticData().Append(86400, dia_Severity::Information, "begun");
    record.GetDiagnosticData().Append(-5, dia_Severity::Warning, "a\nb");
    record.GetDiagnosticData().Append(0x7fffffff, dia_Severity::Error, "");
  });
  std::string const text = done({"info", "a.ddr", "--diagnostics"});
  EXPECT_THAT(text.substr(text.find("Diagnostics")),
              MatchesRegex("Diagnostics \\(3\\)\n"
                           "  [A-Za-z]{3} Jan [^\n]+ 1970  information  begun\n"
                           "  [^\n]+ 19(69|70)  warning      a\\\\nb\n"
                           "  [^\n]+ 2038  error        \n"));
  nlohmann::json const messages = json({"info", "a.ddr", "--diagnostics"})["diagnostics"];
  ASSERT_EQ(messages.size(), 3U);
  EXPECT_EQ(messages[1]["seconds"], -5);
  EXPECT_EQ(messages[1]["severity"], "warning");
  EXPECT_EQ(messages[1]["text"], "a\nb");
  EXPECT_THAT(messages[2]["time"].get<std::string>(), HasSubstr("2038"));
  EXPECT_FALSE(json({"info", "a.ddr"}).contains("diagnostics"));
}

TEST_F(ViewTest, NoMessagesAndNoDiagnosticDataAreToldApart) {
  EXPECT_THAT(done({"info", "a.ddr", "--diagnostics"}), HasSubstr("\nDiagnostics (0)\n"));
  EXPECT_EQ(json({"info", "a.ddr", "--diagnostics"})["diagnostics"], nlohmann::json::array());
  runSql(folder.path("a.ddr"),
         R"(UPDATE class_ddr_Ddb SET "diagnosticData#ClassID" = NULL, "diagnosticData#OID" = NULL)");
  EXPECT_THAT(done({"info", "a.ddr", "--diagnostics"}),
              HasSubstr("\nDiagnostics             (the database has no diagnostic data)\n"));
  EXPECT_EQ(json({"info", "a.ddr", "--diagnostics"})["diagnostics"], nlohmann::json());
}

TEST_F(ViewTest, MalformedDiagnosticsAreAnsweredWithASentence) {
  change([](ddr_Ddb& record) { record.GetDiagnosticData().Append(1, dia_Severity::Error, "x"); });
  runSql(folder.path("a.ddr"), "UPDATE class_dia_Message SET severity = 7");
  EXPECT_THAT(refused({"info", "a.ddr", "--diagnostics"}),
              HasSubstr("severity 7 is none that this release knows"));
}

TEST_F(ViewTest, TimesBefore1970AreShownAndTimesBeyond2038Refused) {
  runSql(folder.path("a.ddr"), "UPDATE class_ddr_Ddb SET modifyTime = -100000000");
  EXPECT_THAT(row("Modified"), HasSubstr("1966"));
  runSql(folder.path("a.ddr"), "UPDATE class_ddr_Ddb SET modifyTime = 5000000000");
  EXPECT_THAT(refused({"info", "a.ddr"}),
              HasSubstr("class 'ddr_Ddb', row 3, field 'modifyTime': it is damaged"));
}

TEST_F(ViewTest, ViewingWritesNothing) {
  auto const before = everything();
  for (char const* verb : {"info", "ls", "path"}) {
    done({verb, "a.ddr"});
    json({verb, "a.ddr"});
    EXPECT_EQ(everything(), before);
  }
  done({"info", "--diagnostics", "a.ddr"});
  EXPECT_EQ(everything(), before);
}

TEST_F(ViewTest, ViewingWorksWhereNothingCanBeWritten) {
  program_settings settings;
  settings.withoutPrivileges = true;
  ASSERT_EQ(chmod(folder.path("a.ddr").c_str(), 0444), 0);
  ASSERT_EQ(chmod(folder.path().c_str(), 0555), 0);
  auto const before = everything();
  EXPECT_EQ(run({"info", "a.ddr"}, settings).status, 0);
  EXPECT_EQ(run({"ls", "a.ddr", "--json"}, settings).status, 0);
  EXPECT_EQ(run({"path", "a.ddr"}, settings).status, 0);
  EXPECT_THAT(refused({"model", "add", "a.ddr", "X"}, settings),
              HasSubstr("there is no permission to use it"));
  EXPECT_THAT(refused({"create", "b.ddr"}, settings), HasSubstr("there is no permission to use its folder"));
  EXPECT_EQ(everything(), before);
  chmod(folder.path().c_str(), 0755);
}

} // namespace
