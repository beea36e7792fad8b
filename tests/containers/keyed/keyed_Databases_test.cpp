// Keyed collections against real files: what is read, what is written, what copies see.
#include "database_test.h"

#include "ddr_Result.h"
#include "ddr_UserData.h"

#include <string>

namespace {

class keyed_Databases : public database_test {
protected:
  /// A database with that many models, results and user data each, saved.
  cow_String filled(std::string const& file, int count) {
    cow_String const name = create(file);
    edit(name, [&](ddr_Ddb& record) {
      for (int i = 0; i < count; ++i) {
        cow_String const key((numbered("X-", i)).c_str());
        record.models.Insert(key, ddr_Model(record.GetDbId(), key));
        setNote(record.models.Get(key), std::to_string(i));
        record.results.Insert(key, ddr_Result());
        record.userData.Insert(key, ddr_UserData());
      }
    });
    save(name);
    return name;
  }
  std::string models(cow_String const& name) {
    std::string const all = contents(name);
    return all.substr(0, all.find('|'));
  }
  std::string storedModels(std::string const& file) const {
    std::string const all = stored(file);
    return all.substr(0, all.find('|'));
  }
};

TEST_F(keyed_Databases, ContentsSurviveSaveAndReopen) {
  cow_String const name = filled("a", 12);
  std::string const before = contents(name);
  cow_String const again = reopen(name, "a");
  EXPECT_EQ(contents(again), before);
  EXPECT_EQ(stored("a"), before);
}

TEST_F(keyed_Databases, OpeningReadsNoModel) {
  std::uint64_t rows[2] = {};
  int place = 0;
  for (int count : {2, 200}) {
    std::string const file = numbered("n", count);
    cow_String const name = create(file);
    for (int i = 0; i < count; ++i) {
      edit(name, [&](ddr_Ddb& record) {
        cow_String const key((numbered("M", i)).c_str());
        record.models.Insert(key, ddr_Model(record.GetDbId(), key));
      });
    }
    cow_String const again = reopen(name, file);
    cls_Map2ObjIter walk(record(again).models);
    for (walk.First(); !walk.AtEnd(); walk.Next()) {
      ASSERT_FALSE(walk.IsLoaded());
    }
    rows[place++] = statistics(again).rowsRead - static_cast<std::uint64_t>(count); // one entry a key
  }
  EXPECT_EQ(rows[0], rows[1]);
}

TEST_F(keyed_Databases, ReadingOneModelCostsTheSameWhateverTheirNumber) {
  std::uint64_t rows[2] = {};
  int place = 0;
  for (int count : {3, 300}) {
    std::string const file = numbered("n", count);
    cow_String const name = reopen(filled(file, count), file);
    rows[place++] = rowsReadBy(name, [&] { record(name).models.ConstGet("X-2"); });
  }
  EXPECT_EQ(rows[0], rows[1]);
  EXPECT_GT(rows[0], 0U);
}

TEST_F(keyed_Databases, RowsWrittenByASaveDoNotDependOnTheNumberOfRecords) {
  std::uint64_t changed[2] = {};
  std::uint64_t nothing[2] = {};
  std::uint64_t models[2] = {};
  std::uint64_t results[2] = {};
  std::uint64_t userData[2] = {};
  int place = 0;
  for (int count : {3, 300}) {
    std::string const file = numbered("n", count);
    cow_String const name = reopen(filled(file, count), file);
    nothing[place] = rowsWrittenBy(name, [&] { save(name); });
    models[place] = rowsWrittenBy(name, [&] {
      writeModel(name, "X-1", "changed");
      save(name);
    });
    results[place] = rowsWrittenBy(name, [&] {
      edit(name, [](ddr_Ddb& record) { record.results.Insert("X-1", ddr_Result()); });
      save(name);
    });
    userData[place] = rowsWrittenBy(name, [&] {
      edit(name, [](ddr_Ddb& record) { record.userData.Insert("new", ddr_UserData()); });
      save(name);
    });
    changed[place] = rowsWrittenBy(name, [&] {
      edit(name, [](ddr_Ddb& record) {
        record.models.Remove("X-0");
        record.results.Remove("X-0");
        record.userData.Remove("X-0");
      });
      save(name);
    });
    ++place;
  }
  EXPECT_EQ(nothing[0], nothing[1]);
  EXPECT_LT(nothing[0], 4U);
  EXPECT_EQ(models[0], models[1]);
  EXPECT_GT(models[0], nothing[0]);
  EXPECT_EQ(results[0], results[1]);
  EXPECT_GT(results[0], nothing[0]);
  EXPECT_EQ(userData[0], userData[1]);
  EXPECT_GT(userData[0], nothing[0]);
  EXPECT_EQ(changed[0], changed[1]);
  EXPECT_GT(changed[0], nothing[0]);
}

TEST_F(keyed_Databases, ASecondSaveOfTheSameStateWritesOnlyTheRecordItself) {
  cow_String const name = filled("a", 5);
  EXPECT_EQ(rowsWrittenBy(name, [&] { save(name); }), rowsWrittenBy(name, [&] { save(name); }));
  EXPECT_LT(rowsWrittenBy(name, [&] { save(name); }), 4U);
}

TEST_F(keyed_Databases, OnlyTheChangedModelIsWritten) {
  cow_String const name = reopen(filled("a", 5), "a");
  std::string const table = tableOf(folder.path("a"), ddr_Model::TypeId());
  writeModel(name, "X-3", "other");
  save(name);
  EXPECT_EQ(storedModels("a"), "X-0=0/0 X-1=1/1 X-2=2/2 X-3=other/other X-4=4/4 ");
  EXPECT_EQ(runSql(folder.path("a"), "SELECT count(*) FROM " + table), "5");
}

TEST_F(keyed_Databases, RemovedModelIsGoneAfterReopening) {
  cow_String const name = filled("a", 3);
  edit(name, [](ddr_Ddb& record) { EXPECT_TRUE(record.models.Remove("X-1")); });
  EXPECT_EQ(models(reopen(name, "a")), "X-0=0/0 X-2=2/2 ");
}

TEST_F(keyed_Databases, RemovedAndInsertedAgainStays) {
  cow_String const name = reopen(filled("a", 3), "a");
  edit(name, [](ddr_Ddb& record) {
    ddr_Model const kept = record.models.ConstGet("X-1");
    record.models.Remove("X-1");
    record.models.Insert("X-1", kept);
  });
  EXPECT_EQ(models(reopen(name, "a")), "X-0=0/0 X-1=1/1 X-2=2/2 ");
}

TEST_F(keyed_Databases, RenamedModelKeepsItsContents) {
  cow_String name = reopen(filled("a", 3), "a");
  for (char const* const to : {"Y", "Z", "X-1"}) {
    edit(name, [&](ddr_Ddb& record) {
      for (char const* const from : {"X-1", "Y", "Z"}) {
        if (record.models.IsMember(from)) {
          ddr_Model const kept = record.models.ConstGet(from);
          record.models.Remove(from);
          record.models.Insert(to, kept);
          return;
        }
      }
    });
    name = reopen(name, "a");
    EXPECT_EQ(noteOf(record(name).models.ConstGet(to)), "1/1");
    EXPECT_EQ(record(name).models.Size(), 3);
  }
}

TEST_F(keyed_Databases, ReleaseDropsUnchangedModelsAndKeepsChangedOnes) {
  cow_String const name = reopen(filled("a", 3), "a");
  writeModel(name, "X-1", "changed");
  ddr_ModelContainer const& models = record(name).models;
  models.ConstGet("X-0");
  models.Release();
  std::string loaded;
  cls_Map2ObjIter walk(models);
  for (walk.First(); !walk.AtEnd(); walk.Next()) {
    loaded += walk.IsLoaded() ? std::string(walk.Key().Text()) + " " : "";
  }
  EXPECT_EQ(loaded, "X-1 ");
  EXPECT_EQ(contents(name).substr(0, 34), "X-0=0/0 X-1=changed/changed X-2=2/");
}

TEST_F(keyed_Databases, ReleaseInOneCopyDoesNotMakeAnotherCopyWriteMore) {
  cow_String const name = reopen(filled("a", 30), "a");
  contents(name);
  ddr_DdbContainer copy = root().Fetch();
  setNote(copy.Get(name).models.Get("X-7"), "changed"); // the copy has nodes of its own now
  record(name).models.Release();
  root().Replace(copy);
  std::uint64_t const written = rowsWrittenBy(name, [&] { save(name); });
  EXPECT_LT(written, 12U);
  EXPECT_EQ(noteOf(record(name).models.ConstGet("X-7")), "changed/changed");
}

// The file could not give it again.
TEST_F(keyed_Databases, ReleaseKeepsARecordThatTheFileHasNoMore) {
  cow_String const name = filled("a", 4);
  ddr_DdbContainer const older = root().Fetch();
  ddr_ModelContainer const& models = older.ConstGet(name).models;
  for (char const* key : {"X-1", "X-2"}) {
    models.ConstGet(key);
  }
  edit(name, [](ddr_Ddb& record) { record.models.Remove("X-1"); });
  save(name);
  for (char const* key : {"X-1", "X-2"}) {
    models.Release(key);
  }
  EXPECT_FALSE(models.ConstTree().ConstFind("X-1")->Value().IsEmpty());
  EXPECT_TRUE(models.ConstTree().ConstFind("X-2")->Value().IsEmpty());
}

TEST_F(keyed_Databases, RecordThatAnotherCopyKeepsIsNotReadAgain) {
  cow_String const name = filled("a", 4);
  contents(name);
  ddr_ModelContainer first = record(name).models;
  first.Insert("first", ddr_Model());
  ddr_ModelContainer second = first;
  second.Insert("second", ddr_Model());
  cow_String const key = first.ConstTree().RootNode()->Key(); // its node is each copy's own
  first.Release(key);
  ASSERT_TRUE(first.ConstTree().RootNode()->Value().IsEmpty());
  ddr_Model const* const kept = second.ConstFind(key);
  EXPECT_EQ(rowsReadBy(name, [&] { EXPECT_EQ(first.ConstFind(key), kept); }), 0U);
}

TEST_F(keyed_Databases, CopyFindsARecordThatAnotherCopySaved) {
  cow_String const name = filled("a", 2);
  ddr_DdbContainer const older = root().Fetch();
  writeModel(name, "new", "note");
  save(name);
  EXPECT_EQ(noteOf(older.ConstGet(name).models.ConstGet("new")), "note/note");
  EXPECT_THROW(older.ConstGet(name).models.ConstGet("unknown"), omu_AccessErrorException);
}

TEST_F(keyed_Databases, CopyMadeBeforeAChangeDoesNotSeeIt) {
  cow_String const name = filled("a", 2);
  ddr_DdbContainer const before = root().Fetch();
  writeModel(name, "X-0", "changed");
  EXPECT_EQ(noteOf(before.ConstGet(name).models.ConstGet("X-0")), "0/0");
  EXPECT_EQ(noteOf(record(name).models.ConstGet("X-0")), "changed/changed");
}

// Whichever of two copies is saved last: the file holds what that copy holds.
TEST_F(keyed_Databases, CopiesSavedInEveryOrderStoreWhatTheyHold) {
  for (bool const loadFirst : {false, true}) {
    for (int order = 0; order < 6; ++order) {
      std::string const file = numbered("a", order) + (loadFirst ? "l" : "");
      cow_String const name = reopen(filled(file, 4), file);
      if (loadFirst) {
        contents(name);
      }
      ddr_DdbContainer copies[3] = {root().Fetch(), root().Fetch(), root().Fetch()};
      contentsOf(copies[0].ConstGet(name));
      setNote(copies[1].Get(name).models.Get("X-1"), "one");
      copies[1].Get(name).results.Insert("X-1", ddr_Result());
      setNote(copies[2].Get(name).models.Get("X-2"), "two");
      copies[2].Get(name).models.Remove("X-3");
      copies[2].Get(name).userData.Remove("X-0");
      int const permutation[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
      std::string expected[3];
      for (int i = 0; i < 3; ++i) {
        expected[i] = contentsOf(copies[i].ConstGet(name));
      }
      for (int const which : permutation[order]) {
        root().Replace(copies[which]);
        save(name);
        ASSERT_EQ(stored(file), expected[which]) << "order " << order << ", copy " << which;
      }
      close(name);
    }
  }
}

TEST_F(keyed_Databases, OlderCopyBringsBackModelsThatItHasNotRead) {
  cow_String const name = reopen(filled("a", 4), "a");
  std::string const before = stored("a");
  ddr_DdbContainer const older = root().Fetch();
  edit(name, [](ddr_Ddb& record) {
    record.models.Remove("X-1");
    record.models.Remove("X-2");
  });
  save(name);
  EXPECT_EQ(storedModels("a"), "X-0=0/0 X-3=3/3 ");
  root().Replace(older);
  EXPECT_EQ(noteOf(record(name).models.ConstGet("X-1")), "1/1");
  save(name);
  EXPECT_EQ(stored("a"), before);
  EXPECT_EQ(contents(reopen(name, "a")), before);
}

TEST_F(keyed_Databases, CopiesOfAnUnsavedDatabaseAreSavedInTurn) {
  cow_String const name = create("a");
  writeModel(name, "M", "first");
  ddr_DdbContainer copy = root().Fetch();
  setNote(copy.Get(name).models.Get("M"), "second");
  copy.Get(name).models.Insert("N", ddr_Model(pathOf("a"), "N"));
  save(name);
  EXPECT_EQ(storedModels("a"), "M=first/first ");
  ddr_DdbContainer const first = root().Fetch();
  root().Replace(copy);
  save(name);
  EXPECT_EQ(storedModels("a"), "M=second/second N=- ");
  root().Replace(first);
  save(name);
  EXPECT_EQ(storedModels("a"), "M=first/first ");
}

TEST_F(keyed_Databases, CopyOutlivesTheClosedDatabase) {
  cow_String const name = reopen(filled("a", 3), "a");
  ddr_DdbContainer const copy = root().Fetch();
  close(name);
  EXPECT_EQ(contentsOf(copy.ConstGet(name)).substr(0, 24), "X-0=0/0 X-1=1/1 X-2=2/2 ");
}

TEST_F(keyed_Databases, CollectionOfAClosedFileThrowsForWhatWasNotLoaded) {
  cow_String const name = reopen(filled("a", 3), "a");
  ddr_ModelContainer const kept = record(name).models;
  kept.ConstGet("X-1");
  close(name);
  EXPECT_EQ(noteOf(kept.ConstGet("X-1")), "1/1");
  EXPECT_EQ(failureOf([&] { kept.ConstGet("X-2"); }),
            "The database file '" + folder.path("a") +
                "' of this collection has been closed; open it again to read or save what was not loaded.");
}

// One identity under two keys: a model copied under another name and then changed.
TEST_F(keyed_Databases, CopiedModelNeverMixesWithItsOriginal) {
  for (bool const savedBetween : {false, true}) {
    for (bool const reopened : {false, true}) {
      for (char const* const copyName : {"A", "Z"}) {
        std::string const file = std::string(copyName) + (savedBetween ? "s" : "") + (reopened ? "r" : "");
        cow_String name = create(file);
        writeModel(name, "M", "original");
        auto const step = [&] {
          if (savedBetween) {
            name = reopened ? reopen(name, file) : (save(name), name);
          }
        };
        step();
        edit(name, [&](ddr_Ddb& record) { record.models.Insert(copyName, record.models.ConstGet("M")); });
        step();
        writeModel(name, copyName, "copy");
        step();
        writeModel(name, "M", "changed");
        name = reopen(name, file);
        EXPECT_EQ(noteOf(record(name).models.ConstGet("M")), "changed/changed") << file;
        EXPECT_EQ(noteOf(record(name).models.ConstGet(copyName)), "copy/copy") << file;
        writeModel(name, copyName, "again");
        name = reopen(name, file);
        EXPECT_EQ(noteOf(record(name).models.ConstGet("M")), "changed/changed") << file;
        EXPECT_EQ(noteOf(record(name).models.ConstGet(copyName)), "again/again") << file;
        edit(name, [](ddr_Ddb& record) { record.models.Remove("M"); });
        name = reopen(name, file);
        writeModel(name, copyName, "alone");
        name = reopen(name, file);
        EXPECT_EQ(noteOf(record(name).models.ConstGet(copyName)), "alone/alone") << file;
      }
    }
  }
}

TEST_F(keyed_Databases, TwoCopiesOfAModelChangedInOneSaveStayApart) {
  cow_String name = create("a");
  writeModel(name, "M", "m");
  edit(name, [](ddr_Ddb& record) {
    record.models.Insert("N", record.models.ConstGet("M"));
    record.models.Insert("O", record.models.ConstGet("M"));
    setNote(record.models.Get("N"), "n");
    setNote(record.models.Get("O"), "o");
  });
  name = reopen(name, "a");
  EXPECT_EQ(models(name), "M=m/m N=n/n O=o/o ");
  edit(name, [](ddr_Ddb& record) {
    for (char const* const key : {"M", "N", "O"}) {
      setNote(record.models.Get(key), std::string(key) + "2");
    }
  });
  EXPECT_EQ(models(reopen(name, "a")), "M=M2/M2 N=N2/N2 O=O2/O2 ");
}

// Extensions made from one prototype have one identity in all models.
TEST_F(keyed_Databases, ExtensionsOfOnePrototypeStayApart) {
  cow_String name = create("a");
  for (char const* const model : {"A", "B", "C"}) {
    writeModel(name, model, model);
    name = reopen(name, "a");
  }
  EXPECT_EQ(models(name), "A=A/A B=B/B C=C/C ");
  writeModel(name, "A", "A2");
  writeModel(name, "C", "C2");
  EXPECT_EQ(models(reopen(name, "a")), "A=A2/A2 B=B/B C=C2/C2 ");
}

TEST_F(keyed_Databases, SwappedModelsStaySwapped) {
  cow_String name = reopen(filled("a", 2), "a");
  edit(name, [](ddr_Ddb& record) {
    ddr_Model const first = record.models.ConstGet("X-0");
    ddr_Model const second = record.models.ConstGet("X-1");
    record.models.Insert("X-0", second);
    record.models.Insert("X-1", first);
  });
  name = reopen(name, "a");
  EXPECT_EQ(models(name), "X-0=1/1 X-1=0/0 ");
  writeModel(name, "X-0", "new");
  EXPECT_EQ(models(reopen(name, "a")), "X-0=new/new X-1=0/0 ");
}

TEST_F(keyed_Databases, SetModelsOfAnotherFileWritesThemAllAndLeavesTheSource) {
  cow_String const from = reopen(filled("from", 4), "from");
  writeModel(from, "X-3", "unsaved");
  cow_String to = create("to");
  save(to);
  std::string const sourceBefore = stored("from");
  edit(to, [&](ddr_Ddb& record) { record.SetModels(root().Fetch().ConstGet(from).models); });
  cls_Map2ObjIter walk(record(to).models);
  for (walk.First(); !walk.AtEnd(); walk.Next()) {
    EXPECT_EQ(walk.Value().GetDatabase(), pathOf("to"));
  }
  save(to);
  EXPECT_EQ(storedModels("to"), "X-0=0/0 X-1=1/1 X-2=2/2 X-3=unsaved/unsaved ");
  EXPECT_EQ(stored("from"), sourceBefore);
  EXPECT_EQ(record(from).models.ConstGet("X-0").GetDatabase(), pathOf("from"));
  writeModel(to, "X-0", "target");
  save(to);
  save(from);
  EXPECT_EQ(noteOf(record(from).models.ConstGet("X-0")), "0/0");
  EXPECT_EQ(storedModels("from"), "X-0=0/0 X-1=1/1 X-2=2/2 X-3=unsaved/unsaved ");
  EXPECT_EQ(storedModels("to"), "X-0=target/target X-1=1/1 X-2=2/2 X-3=unsaved/unsaved ");
}

TEST_F(keyed_Databases, SetModelsOfTheOwnFileChangesNothingStored) {
  cow_String const name = reopen(filled("a", 4), "a");
  std::string const before = stored("a");
  std::uint64_t const nothing = rowsWrittenBy(name, [&] { save(name); });
  edit(name, [](ddr_Ddb& record) { record.SetModels(record.models); });
  EXPECT_EQ(rowsWrittenBy(name, [&] { save(name); }), nothing);
  EXPECT_EQ(stored("a"), before);
}

TEST_F(keyed_Databases, ModelsAssignedFromAnotherFileAreWrittenBySave) {
  cow_String const from = reopen(filled("from", 3), "from");
  cow_String const to = filled("to", 1);
  edit(to, [&](ddr_Ddb& record) {
    ddr_Ddb const& source = root().Fetch().ConstGet(from);
    record.models = source.models;
    record.results = source.results;
    record.userData = source.userData;
  });
  std::string const source = contents(from);
  save(to);
  EXPECT_EQ(stored("to"), source);
  EXPECT_EQ(stored("from"), source);
  edit(to, [](ddr_Ddb& record) {
    setNote(record.models.Get("X-2"), "target");
    record.results.Remove("X-2");
  });
  save(to);
  save(from);
  EXPECT_EQ(stored("from"), source);
  EXPECT_EQ(storedModels("to"), "X-0=0/0 X-1=1/1 X-2=target/target ");
}

TEST_F(keyed_Databases, ModelsMovedAwayAndBackDoNotMix) {
  cow_String const name = reopen(filled("a", 2), "a");
  ddr_DdbContainer const old = root().Fetch();
  contentsOf(old.ConstGet(name));
  cow_String const other = create("b");
  edit(other, [&](ddr_Ddb& record) { record.SetModels(old.ConstGet(name).models); });
  edit(other, [](ddr_Ddb& record) { setNote(record.models.Get("X-0"), "b"); });
  save(other);
  ddr_DdbContainer changed = root().Fetch();
  changed.Get(name).SetModels(changed.ConstGet(other).models);
  root().Replace(changed);
  save(name);
  EXPECT_EQ(storedModels("a"), "X-0=b/b X-1=1/1 ");
  root().Replace(old);
  save(name);
  EXPECT_EQ(storedModels("a"), "X-0=0/0 X-1=1/1 ");
  EXPECT_EQ(storedModels("b"), "X-0=b/b X-1=1/1 ");
}

TEST_F(keyed_Databases, UnchangedListsAreNotWritten) {
  cow_String const name = create("a");
  edit(name, [](ddr_Ddb& record) {
    for (int i = 0; i < 50; ++i) {
      record.GetDiagnosticData().Append(i, dia_Severity::Error, "message");
    }
  });
  save(name);
  EXPECT_LT(rowsWrittenBy(name, [&] { save(name); }), 4U);
  cow_String const again = reopen(name, "a");
  EXPECT_LT(rowsWrittenBy(again, [&] { save(again); }), 4U);
}

TEST_F(keyed_Databases, GetDoesNotMarkResultsAsChanged) {
  cow_String const name = reopen(filled("a", 2), "a");
  edit(name, [](ddr_Ddb& record) {
    record.results.Get("X-0");
    EXPECT_FALSE(record.results.IsChanged());
    record.results.Remove("X-1");
    EXPECT_TRUE(record.results.IsChanged());
  });
}

TEST_F(keyed_Databases, SavingALargeFirstStateKeepsNoCollectionPerModel) {
  cow_String const name = create("a");
  edit(name, [&](ddr_Ddb& record) {
    for (int i = 0; i < 3000; ++i) {
      cow_String const key((numbered("M", i)).c_str());
      record.models.Insert(key, ddr_Model(record.GetDbId(), key));
    }
  });
  save(name);
  EXPECT_EQ(runSql(folder.path("a"), "SELECT count(*) FROM " + tableOf(folder.path("a"), 0x220007)), "3000");
}

} // namespace
