// The lines that users of the scripting language run to reach what a shortcut leads to.
#include "ddr_Shortcut.h"

#include "database_test.h"
#include "shortcut_set.h"
#include "utl_Version.h"

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

/// Fixes the running edition while it lives.
class Edition {
public:
  explicit Edition(utl_Product product) { Set(product); }
  ~Edition() { Set(utl_Product::Other); }
  Edition(Edition const&) = delete;
  Edition& operator=(Edition const&) = delete;
  static void Set(utl_Product product) { omi_Singleton<utl_Version>::Instance().SetProduct(product); }
};

/// A shortcut of a host whose path is what the test says.
class host_Shortcut : public ddr_ShortcutImpl<ddr_Ddb> {
public:
  using Answer = std::function<cow_String()>;
  host_Shortcut(Answer givenPath, Answer givenName)
      : path(std::move(givenPath)), database(std::move(givenName)) {}
  cow_String Name() const override { return "host"; }
  cow_String Path() const override { return path(); }
  cow_String DdbName() const override { return database(); }
  ddr_Ddb const& ConstGet(ddr_DdbContainer const& container) const override {
    return container.ConstGet(database());
  }
  ddr_Ddb& Get(ddr_DdbContainer& container) const override { return container.Get(database()); }
  host_Shortcut* Copy() const override { return new host_Shortcut(*this); }

private:
  Answer path;
  Answer database;
};

/// What the user of the host finds wrong.
class host_Exception : public nex_TextException {
public:
  host_Exception() : nex_TextException("the host's own text") {}
};

class PythonPath : public database_test {
protected:
  PythonPath() : name(create("job-1.odb")), file(pathOf("job-1.odb").Text()) {}

  /// The expression for a model of the database.
  std::string ofModel(std::string const& key) const {
    return shortcut_set(name, cow_String(key)).model.PythonPath().Text();
  }
  /// The expression for a shortcut with that path.
  std::string ofPath(std::string const& path) const {
    return host_Shortcut([&] { return cow_String(path); }, [&] { return name; }).PythonPath().Text();
  }
  /// The path of the database, with something behind it.
  std::string inDatabase(std::string const& rest) const {
    return "ddbCont['" + std::string(name.Text()) + "']" + rest;
  }
  std::string opened(std::string const& rest) const { return "openOdb(r'" + file + "')." + rest; }

  cow_String name;
  std::string file;
};

TEST_F(PythonPath, OpensTheFileAndGoesOn) {
  shortcut_set const set(name, "Model-1");
  EXPECT_EQ(set.model.PythonPath().View(), opened("models['Model-1']"));
  EXPECT_EQ(set.models.PythonPath().View(), opened("models"));
  EXPECT_EQ(set.results.PythonPath().View(), opened("result"));
  EXPECT_EQ(set.userData.PythonPath().View(), opened("userData"));
}

TEST_F(PythonPath, BelongsToTheSessionInTheTwoEditionsWithAWindow) {
  {
    Edition const studio(utl_Product::Studio);
    EXPECT_EQ(ofModel("m"), "session." + opened("models['m']"));
  }
  {
    Edition const lens(utl_Product::Lens);
    EXPECT_EQ(ofModel("m"), "session." + opened("models['m']"));
  }
  Edition const other(utl_Product::Other);
  EXPECT_EQ(ofModel("m"), opened("models['m']"));
}

TEST_F(PythonPath, AsksForTheEditionWhenPathAndFileAreKnown) {
  Edition const restored(utl_Product::Other);
  host_Shortcut const changesInPath(
      [&] {
        Edition::Set(utl_Product::Studio);
        return cow_String(inDatabase(".x"));
      },
      [&] { return name; });
  EXPECT_EQ(changesInPath.PythonPath().View(), "session." + opened("x"));
  host_Shortcut const changesInName([&] { return cow_String(inDatabase(".x")); },
                                    [&] {
                                      Edition::Set(utl_Product::Other);
                                      return name;
                                    });
  EXPECT_EQ(changesInName.PythonPath().View(), opened("x"));
}

TEST_F(PythonPath, AsksForThePathOnceAndThenForTheDatabase) {
  std::vector<std::string> asked;
  host_Shortcut const recording(
      [&] {
        asked.emplace_back("Path");
        return cow_String(inDatabase(".x"));
      },
      [&] {
        asked.emplace_back("DdbName");
        return name;
      });
  static_cast<void>(recording.PythonPath());
  EXPECT_EQ(asked, (std::vector<std::string>{"Path", "DdbName"}));
}

TEST_F(PythonPath, OfADatabaseIsTheOpeningAloneWithItsDot) {
  EXPECT_EQ(shortcut_set(name, "m").database.PythonPath().View(), opened(""));
}

TEST_F(PythonPath, WritesKeysAsTheyAre) {
  std::string const longKey(2048, 'k');
  for (std::string const& key : {std::string(), std::string("it's"), std::string("a'].b"),
                                 std::string("a\\b"), std::string("\xff"), longKey}) {
    EXPECT_EQ(ofModel(key), opened("models['" + key + "']"));
  }
}

TEST_F(PythonPath, AKeyWithALineBreakLeavesTheOpeningAlone) {
  EXPECT_EQ(ofModel("two\nlines"), opened(""));
  EXPECT_EQ(ofModel("end\n"), opened(""));
}

TEST_F(PythonPath, APathAfterALineBreakIsFoundThere) {
  EXPECT_EQ(ofModel("\nddbCont['x'].y"), opened("y']"));
}

TEST_F(PythonPath, ANameThatHoldsAClosingEndsThere) {
  cow_String const odd = create("a'].b.odb");
  std::string const text(odd.Text());
  std::string const behind = text.substr(text.find("'].") + 3);
  EXPECT_EQ(shortcut_set(odd, "m").model.PythonPath().View(),
            "openOdb(r'" + std::string(pathOf("a'].b.odb").Text()) + "')." + behind + "'].models['m']");
}

TEST_F(PythonPath, AFileNameWithAQuoteStandsAsItIs) {
  cow_String const odd = create("it's.odb");
  EXPECT_EQ(shortcut_set(odd, "m").models.PythonPath().View(),
            "openOdb(r'" + std::string(pathOf("it's.odb").Text()) + "').models");
}

TEST_F(PythonPath, ANameWithALineBreakLeavesTheOpeningAlone) {
  cow_String const odd = create("two\nlines.odb");
  EXPECT_EQ(shortcut_set(odd, "m").model.PythonPath().View(),
            "openOdb(r'" + std::string(pathOf("two\nlines.odb").Text()) + "').");
}

TEST_F(PythonPath, TheDefaultUserDataIsReachedThroughItsCollection) {
  EXPECT_EQ(ofPath(inDatabase(".userData['default userData']")), opened("userData"));
  EXPECT_EQ(ofPath(inDatabase(".userData['default userData'].x")), opened("userData.x"));
  EXPECT_EQ(ofPath(inDatabase(".userData['other userData']")), opened("userData['other userData']"));
}

TEST_F(PythonPath, TheDefaultUserDataIsShortenedInAModelKeyToo) {
  EXPECT_EQ(ofModel("userData['default userData']"), opened("models['userData']"));
}

TEST_F(PythonPath, OnlyTheFirstDefaultUserDataIsShortened) {
  std::string const twice = "userData['default userData'].userData['default userData']";
  EXPECT_EQ(ofPath(inDatabase("." + twice)), opened("userData.userData['default userData']"));
  EXPECT_EQ(ofModel(twice), opened("models['userData.userData['default userData']']"));
}

TEST_F(PythonPath, AnotherPathStaysAsItIsInEveryEdition) {
  Edition const studio(utl_Product::Studio);
  for (std::string const path : {"", "other['x'].y", " ddbCont['x'].y", "ddbCont", "ddbCon['x'].y"}) {
    EXPECT_EQ(ofPath(path), path);
  }
}

TEST_F(PythonPath, OnlyTheBeginningTellsAContainerPath) {
  EXPECT_EQ(ofPath("ddbCont["), opened(""));
  EXPECT_EQ(ofPath("ddbCont[0].ddbCont['a'].b"), opened("b"));
}

TEST_F(PythonPath, AnUnknownDatabaseIsReportedAndRefused) {
  shortcut_set const missing("job-2", "m");
  std::string const text = "No ddb file by specified persistent name in container: 'job-2'";
  testing::internal::CaptureStderr();
  std::string failure;
  std::string place;
  try {
    static_cast<void>(missing.model.PythonPath());
  } catch (nex_TextException const& exception) {
    failure = exception.what();
    place = exception.SourcePath();
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ERROR ddr_ShortcutBaseImpl::PythonPath() " + text + "\n");
  EXPECT_EQ(failure, text);
  EXPECT_EQ(place, "generated/ddr/impl/ddr_Root"); // where it was raised first
}

TEST_F(PythonPath, AnUnknownDatabaseIsRefusedWhateverThePath) {
  host_Shortcut const elsewhere([] { return cow_String("x"); }, [] { return cow_String("job-2"); });
  EXPECT_THROW(static_cast<void>(elsewhere.PythonPath()), nex_TextException);
}

TEST_F(PythonPath, AnUnsetParentIsReported) {
  ddr_ModelContainerShortcut const models(new ddr_ModelContainerInDdbShortcut(ddr_DdbShortcut()));
  testing::internal::CaptureStderr();
  EXPECT_THROW(static_cast<void>(models.PythonPath()), nex_TextException);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ERROR ddr_ShortcutBaseImpl::PythonPath() The shortcut is not set, so it leads to no object.\n");
}

TEST_F(PythonPath, ADerivedTextExceptionKeepsItsClass) {
  host_Shortcut const failing([]() -> cow_String { throw host_Exception(); }, [&] { return name; });
  testing::internal::CaptureStderr();
  EXPECT_THROW(static_cast<void>(failing.PythonPath()), host_Exception);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ERROR ddr_ShortcutBaseImpl::PythonPath() the host's own text\n");
}

TEST_F(PythonPath, OtherExceptionsPassUnreported) {
  host_Shortcut const broken([]() -> cow_String { throw nex_AssertException("broken"); },
                             [&] { return name; });
  host_Shortcut const foreign([]() -> cow_String { throw std::runtime_error("foreign"); },
                              [&] { return name; });
  testing::internal::CaptureStderr();
  EXPECT_THROW(static_cast<void>(broken.PythonPath()), nex_AssertException);
  EXPECT_THROW(static_cast<void>(foreign.PythonPath()), std::runtime_error);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

} // namespace
