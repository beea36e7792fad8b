// Shortcuts in real files: saved by a host, read back here and elsewhere, and met in damaged files.
#include "shortcut_host.h"

#include "cls_MetadataRegistrar.h"
#include "database_test.h"
#include "run_program.h"
#include "shortcut_set.h"

#include <pthread.h>
#include <string>
#include <utility>
#include <vector>

namespace {

/// A host with databases; models carry bookmarks.
class StoredShortcuts : public database_test {
protected:
  StoredShortcuts() {
    std::unique_ptr<cls_ClassRegistrar> classes = registrar();
    host_registerClasses(*classes);
    root().SetClassRegistrar(classes.release());
    ddr_Model::RegisterExtension("bookmarks", host_Bookmarks());
    name = create(fileName);
    for (char const* const model : {"Model-1", "Model-2"}) {
      edit(name, [&](ddr_Ddb& made) { made.models.Insert(model, ddr_Model(made.GetDbId(), model)); });
    }
    edit(name, [](ddr_Ddb& made) {
      made.results.Insert("Step-1", ddr_Result());
      made.userData.Insert("Notes", ddr_UserData());
    });
  }

  /// Changes the bookmarks of a model.
  void bookmark(char const* model, std::function<void(host_Bookmarks&)> const& change) {
    edit(name, [&](ddr_Ddb& made) {
      ddr_Model& changed = made.models.Get(model);
      bool const isNew = !changed.InstanceTable().IsMember("bookmarks");
      auto& extension = static_cast<host_Bookmarks&>(changed.GetExtension("bookmarks"));
      if (isNew) {
        extension = host_Bookmarks(); // with an identity of its own
      }
      change(extension);
    });
  }
  /// One bookmark of each kind, leading to Model-2.
  void bookmarkAll(char const* model) {
    bookmark(model, [&](host_Bookmarks& made) {
      shortcut_set const set(name, "Model-2");
      made.database = set.database;
      made.models = set.models;
      made.results = set.results;
      made.userData = set.userData;
      made.model = set.model;
      made.shared = host_Bookmarks::Shared(set.model);
    });
  }
  host_Bookmarks const& bookmarks(char const* model = "Model-1") {
    return static_cast<host_Bookmarks const&>(
        record(name).models.ConstGet(model).ConstGetExtension("bookmarks"));
  }
  /// Model-1 leads to its database over that many aliases.
  void chain(int length) {
    bookmark("Model-1", [&](host_Bookmarks& made) {
      made.database = ddr_DdbShortcut(new ddr_DdbShortcutImpl(name));
      for (int link = 0; link < length; ++link) {
        made.database = ddr_DdbShortcut(new host_Alias(made.database));
      }
    });
  }
  void again() { name = reopen(name, fileName); }
  /// Saves, closes, changes the file by SQL, and opens it again. $ID stands for the table of class ID.
  void damage(std::string sql) {
    save(name);
    close(name);
    std::string const path = folder.path(fileName);
    for (std::size_t at = sql.find('$'); at != std::string::npos; at = sql.find('$')) {
      unsigned const typeId = static_cast<unsigned>(std::stoul(sql.substr(at + 1, 8), nullptr, 16));
      sql.replace(at, 9, tableOf(path, typeId));
    }
    runSql(path, sql);
    name = open(fileName);
  }
  std::string rowsOf(unsigned typeId) {
    std::string const path = folder.path(fileName);
    return runSql(path, "SELECT count(*) FROM " + tableOf(path, typeId));
  }
  /// What reading the bookmarks says.
  std::string failure() {
    return failureOf([&] { bookmarks(); });
  }
  /// What is said of the implementation of the one shortcut to a model.
  std::string inModelShortcut(std::string const& what) const {
    return "File '" + folder.path(fileName) + "', class 'ddr_ModelShortcut', row 0: field 'impl' " + what +
           "; the file is damaged.";
  }
  /// Expects an exception that names file, class and row.
  void expectRefusal(std::string const& where) {
    std::string const text = failure();
    EXPECT_NE(text.find(folder.path(fileName)), std::string::npos) << text;
    EXPECT_NE(text.find(where), std::string::npos) << text;
  }

  static constexpr char const* fileName = "job-1.odb";
  cow_String name;
};

// ---- saved and read back ----

TEST_F(StoredShortcuts, ComeBackAsTheyWere) {
  bookmarkAll("Model-1");
  std::string const before = host_describe(bookmarks());
  EXPECT_NE(before.find("ddbCont['" + std::string(name.Text()) + "'].models['Model-2']\n"),
            std::string::npos);
  again();
  EXPECT_EQ(host_describe(bookmarks()), before);
  EXPECT_EQ(&bookmarks().model.ConstGet(root().Fetch()), &record(name).models.ConstGet("Model-2"));
}

TEST_F(StoredShortcuts, ComeBackAsTheyWereInAnotherProcess) {
  bookmarkAll("Model-1");
  save(name);
  std::string const wanted = host_describe(bookmarks());
  program_result const read = run_program(DDR_DESCRIBE_SHORTCUTS, {folder.path(fileName), "Model-1"});
  EXPECT_EQ(read.out, wanted);
  EXPECT_EQ(read.err, "");
  EXPECT_EQ(read.status, 0);
}

TEST_F(StoredShortcuts, KeepTheirIdentities) {
  bookmarkAll("Model-1");
  cls_Uid const model = bookmarks().model.Uid();
  cls_Uid const database = bookmarks().database.Uid();
  again();
  EXPECT_EQ(bookmarks().model.Uid(), model);
  EXPECT_EQ(bookmarks().database.Uid(), database);
}

TEST_F(StoredShortcuts, ASecondSaveAddsNoRows) {
  bookmarkAll("Model-1");
  again();
  bookmark("Model-1", [](host_Bookmarks&) {});
  save(name);
  for (unsigned typeId : {0x22000eU, 0x22000bU, 0x220005U, 0x220014U, 0x220016U, 0x22000dU, 0x22000aU,
                          0x220004U, 0x220013U, 0x220017U}) {
    EXPECT_EQ(rowsOf(typeId), "1") << typeId;
  }
}

// Base parts are empty: the rows of derived classes say that they have none.
TEST_F(StoredShortcuts, RowsOfImplementationsHaveNoBasePart) {
  bookmarkAll("Model-1");
  save(name);
  std::string const path = folder.path(fileName);
  for (unsigned typeId : {0x22000dU, 0x22000aU, 0x220004U, 0x220013U, 0x220017U}) {
    EXPECT_EQ(runSql(path, "SELECT \"##BaseClassOID\" FROM " + tableOf(path, typeId)), "-1") << typeId;
  }
}

TEST_F(StoredShortcuts, KeysOfAnyTextComeBack) {
  for (std::string const& key : {std::string("it's"), std::string("a'].b"), std::string("two\nlines"),
                                 std::string("\xc3\xbc"), std::string(2048, 'k'), std::string()}) {
    bookmark("Model-1",
             [&](host_Bookmarks& made) { made.model = shortcut_set(name, cow_String(key)).model; });
    again();
    EXPECT_EQ(bookmarks().model.Name().View(), key);
    EXPECT_EQ(bookmarks().model.Path().View(),
              "ddbCont['" + std::string(name.Text()) + "'].models['" + key + "']");
  }
}

TEST_F(StoredShortcuts, AKeyThatIsNoTextForFilesIsRefusedBeforeItIsSaved) {
  bookmarkAll("Model-1");
  again();
  std::string const before = readFile(folder.path(fileName));
  bookmark("Model-1", [&](host_Bookmarks& made) { made.model = shortcut_set(name, "\xff").model; });
  EXPECT_NE(failureOf([&] { save(name); }).find(folder.path(fileName)), std::string::npos);
  EXPECT_EQ(readFile(folder.path(fileName)), before);
}

TEST_F(StoredShortcuts, UnsetOnesComeBackUnset) {
  bookmark("Model-1", [](host_Bookmarks&) {});
  save(name);
  std::string const path = folder.path(fileName);
  EXPECT_EQ(runSql(path, "SELECT \"impl#ClassID\", \"impl#OID\" FROM " + tableOf(path, 0x220016)),
            "NULL NULL");
  EXPECT_EQ(run_program(DDR_DESCRIBE_SHORTCUTS, {path, "Model-1"}).out,
            "unset\nunset\nunset\nunset\nunset\nempty\n");
  again();
  EXPECT_FALSE(bookmarks().model.IsSet());
  EXPECT_EQ(failureOf([&] { bookmarks().model.ConstGet(root().Fetch()); }),
            "The shortcut is not set, so it leads to no object.");
}

TEST_F(StoredShortcuts, OneThatTwoRecordsHoldIsStoredOnce) {
  ddr_ModelShortcut const held = shortcut_set(name, "Model-2").model;
  for (char const* const model : {"Model-1", "Model-2"}) {
    bookmark(model, [&](host_Bookmarks& made) { made.model = held; });
  }
  again();
  EXPECT_EQ(rowsOf(0x220016), "1");
  EXPECT_EQ(rowsOf(0x220017), "1");
  EXPECT_EQ(bookmarks("Model-1").model.Uid(), held.Uid());
  EXPECT_EQ(bookmarks("Model-2").model.Uid(), held.Uid());
  EXPECT_EQ(&bookmarks("Model-1").model.Implementation(), &bookmarks("Model-2").model.Implementation());
}

TEST_F(StoredShortcuts, OneThatTwoRecordsShareIsSharedAfterwards) {
  host_Bookmarks::Shared const held(shortcut_set(name, "Model-2").model);
  for (char const* const model : {"Model-1", "Model-2"}) {
    bookmark(model, [&](host_Bookmarks& made) { made.shared = held; });
  }
  again();
  EXPECT_EQ(&bookmarks("Model-1").shared.ConstGet(), &bookmarks("Model-2").shared.ConstGet());
  EXPECT_EQ(&bookmarks("Model-1").shared.ConstGet().ConstGet(root().Fetch()),
            &record(name).models.ConstGet("Model-2"));
}

TEST_F(StoredShortcuts, ChangingOneHolderLeavesTheOther) {
  ddr_ModelShortcut const held = shortcut_set(name, "Model-2").model;
  for (char const* const model : {"Model-1", "Model-2"}) {
    bookmark(model, [&](host_Bookmarks& made) { made.model = held; });
  }
  again();
  bookmark("Model-1", [&](host_Bookmarks& made) { made.model = shortcut_set(name, "Model-1").model; });
  again();
  EXPECT_STREQ(bookmarks("Model-1").model.Name().Text(), "Model-1");
  EXPECT_STREQ(bookmarks("Model-2").model.Name().Text(), "Model-2");
}

// ---- incomplete and damaged files ----

TEST_F(StoredShortcuts, AModelWithoutItsNameHasAnEmptyKey) {
  bookmarkAll("Model-1");
  damage("UPDATE $0x220017 SET name = NULL");
  EXPECT_TRUE(bookmarks().model.Name().IsEmpty());
  EXPECT_EQ(failureOf([&] { bookmarks().model.ConstGet(root().Fetch()); }), "No entry with key ''");
  EXPECT_THROW(bookmarks().model.ConstGet(root().Fetch()), omu_AccessErrorException);
}

TEST_F(StoredShortcuts, ADatabaseWithoutItsNameHasAnEmptyKey) {
  bookmarkAll("Model-1");
  damage("UPDATE $0x22000d SET name = NULL");
  EXPECT_STREQ(bookmarks().model.Path().Text(), "ddbCont[''].models['Model-2']");
  EXPECT_THROW(bookmarks().database.ConstGet(root().Fetch()), omu_AccessErrorException);
}

TEST_F(StoredShortcuts, ALayoutWithoutTheNameReadsAsAnEmptyKey) {
  bookmarkAll("Model-1");
  damage("ALTER TABLE $0x220017 DROP COLUMN name; "
         "DELETE FROM ddr_attribute WHERE name = 'name' AND class IN "
         "(SELECT row FROM ddr_class WHERE \"Type Id\" = 0x220017); "
         "UPDATE ddr_attribute SET position = 0 WHERE name = 'parent' AND class IN "
         "(SELECT row FROM ddr_class WHERE \"Type Id\" = 0x220017)");
  EXPECT_TRUE(bookmarks().model.Name().IsEmpty());
}

TEST_F(StoredShortcuts, AMissingParentReadsAsUnset) {
  bookmarkAll("Model-1");
  damage("UPDATE $0x220017 SET \"parent#OID\" = NULL");
  EXPECT_STREQ(bookmarks().model.Name().Text(), "Model-2");
  EXPECT_EQ(failureOf([&] { static_cast<void>(bookmarks().model.Path()); }),
            "The shortcut is not set, so it leads to no object.");
}

TEST_F(StoredShortcuts, AnImplementationOfTheWrongClassIsRefused) {
  bookmarkAll("Model-1");
  // In memory already, stored, without a row, and without a table.
  for (char const* const wrong : {"0x220004", "0x22000d", "0x220016", "0x220007", "0x220010", "0x220001"}) {
    SCOPED_TRACE(wrong);
    damage("UPDATE $0x220016 SET \"impl#ClassID\" = " + std::string(wrong) + ", \"impl#OID\" = 0");
    EXPECT_EQ(failure(), inModelShortcut("refers to an object of the wrong class"));
  }
}

// The base of all implementations has no rows.
TEST_F(StoredShortcuts, AnImplementationOfTheBaseClassIsRefused) {
  bookmarkAll("Model-1");
  damage("UPDATE $0x220016 SET \"impl#ClassID\" = 0x220015");
  expectRefusal("class 'ddr_ModelIMPLSC', row 0: there is no such row.");
}

TEST_F(StoredShortcuts, AnImplementationOfAnUnknownClassIsRefused) {
  bookmarkAll("Model-1");
  for (auto const& [stored, written] : {std::pair("0x770001", "0x770001"), std::pair("0", "0x0"),
                                        std::pair("1", "0x1"), std::pair("-5", "0xfffffffb")}) {
    SCOPED_TRACE(stored);
    damage("UPDATE $0x220016 SET \"impl#ClassID\" = " + std::string(stored));
    EXPECT_EQ(failure(), inModelShortcut("refers to class " + std::string(written) +
                                         ", which the class list of the file does not have"));
  }
}

TEST_F(StoredShortcuts, AnAttributeOfAnUnknownClassIsRefused) {
  bookmarkAll("Model-1");
  damage("UPDATE $0x2f0011 SET \"model#ClassID\" = 0x770001");
  expectRefusal(
      "class 'host_Bookmarks', row 0: field 'model' refers to class 0x770001, which the class list");
}

// Presence is a matter of the row; a row of no class is damage and no unset shortcut.
TEST_F(StoredShortcuts, AReferenceWithoutItsClassIsRefused) {
  bookmarkAll("Model-1");
  damage("UPDATE $0x220016 SET \"impl#ClassID\" = NULL");
  EXPECT_EQ(failure(), inModelShortcut("leads to row 0 of no class"));
  damage("UPDATE $0x2f0011 SET \"model#ClassID\" = NULL");
  expectRefusal("class 'host_Bookmarks', row 0: field 'model' leads to row 0 of no class");
}

TEST_F(StoredShortcuts, AnImplementationInAMissingRowIsRefused) {
  bookmarkAll("Model-1");
  damage("UPDATE $0x220016 SET \"impl#OID\" = 77");
  expectRefusal("class 'ddr_ModelInModelContainerShortcut', row 77");
}

TEST_F(StoredShortcuts, AParentOfTheWrongClassIsRefused) {
  bookmarkAll("Model-1");
  damage("UPDATE $0x220017 SET \"parent#ClassID\" = 0x22000e");
  expectRefusal("class 'ddr_DdbShortcut', row 0");
}

TEST_F(StoredShortcuts, AnAttributeOfTheWrongClassIsRefused) {
  bookmarkAll("Model-1");
  damage("UPDATE $0x2f0011 SET \"model#ClassID\" = 0x22000e");
  expectRefusal("class 'ddr_DdbShortcut', row 0");
}

// A file that calls a class derived from another cannot make objects of the one pass for objects of the
// other.
TEST_F(StoredShortcuts, AFileCannotClaimAnotherBaseForAKnownClass) {
  bookmarkAll("Model-1");
  damage("UPDATE ddr_class SET \"Base Type Id\" = 0x220015 WHERE \"Type Id\" = 0x22000d; "
         "UPDATE $0x220016 SET \"impl#ClassID\" = 0x22000d, \"impl#OID\" = 0");
  expectRefusal("class 'ddr_ModelShortcut', row 0");
  expectRefusal("wrong class");
}

TEST_F(StoredShortcuts, AChainLeadsToItsEnd) {
  chain(300);
  again();
  EXPECT_EQ(&bookmarks().database.ConstGet(root().Fetch()), &record(name));
  EXPECT_EQ(bookmarks().database.Path().View(), "ddbCont['" + std::string(name.Text()) + "']");
}

TEST_F(StoredShortcuts, AChainThatLoopsIsRefused) {
  chain(2);
  damage("UPDATE $0x2f0012 SET \"parent#OID\" = (SELECT \"database#OID\" FROM $0x2f0011)");
  expectRefusal("class 'ddr_DdbShortcut', row ");
  expectRefusal("circle");
}

TEST_F(StoredShortcuts, AChainOfAHundredThousandIsRefused) {
  chain(1);
  damage(
      "WITH RECURSIVE link(n) AS (SELECT 100 UNION ALL SELECT n + 1 FROM link WHERE n < 100100) "
      "INSERT INTO $0x2f0012 (row, \"parent#ClassID\", \"parent#OID\") SELECT n, 0x22000e, n + 1 FROM link; "
      "WITH RECURSIVE link(n) AS (SELECT 100 UNION ALL SELECT n + 1 FROM link WHERE n < 100100) "
      "INSERT INTO $0x22000e (row, \"impl#ClassID\", \"impl#OID\") SELECT n, 0x2f0012, n FROM link; "
      "UPDATE $0x2f0011 SET \"database#OID\" = 100");
  expectRefusal("class 'ddr_DdbShortcut', row ");
  expectRefusal("objects nest deeper than 1000 levels; the file holds a circle of references, or a chain of "
                "objects too long to be read.");
}

// What could not be read back must not be saved.
TEST_F(StoredShortcuts, AChainTooLongToBeReadIsNotSaved) {
  bookmarkAll("Model-1");
  again();
  std::string const before = readFile(folder.path(fileName));
  chain(3000);
  std::string const refused = failureOf([&] { save(name); });
  EXPECT_NE(refused.find(folder.path(fileName)), std::string::npos) << refused;
  EXPECT_NE(refused.find("nest deeper"), std::string::npos) << refused;
  EXPECT_NE(refused.find("'host_Alias'"), std::string::npos) << refused;
  EXPECT_EQ(readFile(folder.path(fileName)), before);
}

// A chain that no file can hold must not cost the process either, when it is given up.
TEST_F(StoredShortcuts, AChainOfAHundredThousandIsLetGoOnASmallStack) {
  auto work = [] {
    ddr_DdbShortcut end(new ddr_DdbShortcutImpl("job-1"));
    ddr_DdbShortcut chained = end;
    for (int link = 0; link < 100000; ++link) {
      chained = ddr_DdbShortcut(new host_Alias(chained));
    }
    ddr_DdbShortcut::Impl const* const last = &end.Implementation();
    chained = ddr_DdbShortcut(); // lets go of all links but the end
    EXPECT_EQ(&end.Implementation(), last);
    EXPECT_STREQ(end.Name().Text(), "job-1");
  };
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, std::size_t{256} << 10), 0);
  pthread_t thread;
  ASSERT_EQ(pthread_create(
                &thread, &attributes,
                [](void* argument) -> void* {
                  (*static_cast<decltype(work)*>(argument))();
                  return nullptr;
                },
                &work),
            0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attributes);
}

TEST_F(StoredShortcuts, AChainTooLongToBeSavedIsGivenUp) {
  chain(100000);
  EXPECT_NE(failureOf([&] { save(name); }).find("nest deeper"), std::string::npos);
  chain(1);
  save(name);
  again();
  EXPECT_EQ(&bookmarks().database.ConstGet(root().Fetch()), &record(name));
}

TEST_F(StoredShortcuts, TheLongestChainThatIsSavedIsReadBack) {
  int longest = 0;
  std::string refused = "nothing";
  for (int length = 400; refused == "nothing" && length < 600; length += 5) {
    chain(length);
    refused = failureOf([&] { save(name); });
    longest = refused == "nothing" ? length : longest;
  }
  EXPECT_NE(refused, "nothing");
  chain(longest);
  again();
  EXPECT_EQ(&bookmarks().database.ConstGet(root().Fetch()), &record(name));
}

} // namespace
