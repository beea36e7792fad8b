// Saves that fail: the file keeps what it held, and the save can be repeated.
#include "database_test.h"

#include "child_process.h"
#include "ddr_Result.h"
#include "ddr_UserData.h"
#include "fault_device.h"
#include "fault_vfs.h"
#include "rom_Memento.h"

#include <cerrno>
#include <string>

namespace {

class rom_FailedSave : public database_test {
protected:
  void fill(ddr_Ddb& record) {
    for (char const* const key : {"A", "B", "C"}) {
      record.models.Insert(key, ddr_Model(record.GetDbId(), key));
      setNote(record.models.Get(key), key);
      record.results.Insert(key, ddr_Result());
      record.userData.Insert(key, ddr_UserData());
    }
    record.GetDiagnosticData().Append(1, dia_Severity::Warning, "first");
  }
  void change(ddr_Ddb& record) {
    setNote(record.models.Get("B"), "changed");
    record.models.Remove("A");
    record.models.Insert("D", ddr_Model(record.GetDbId(), "D"));
    setNote(record.models.Get("D"), "new");
    record.results.Remove("C");
    record.results.Insert("B", ddr_Result());
    record.userData.Insert("E", ddr_UserData());
    record.GetDiagnosticData().Append(2, dia_Severity::Error, "second");
    record.SetDescription("changed");
  }
};

// Fails the n-th request to the device, for every n until a save needs fewer.
TEST_F(rom_FailedSave, LeavesTheFileAsItWasAndCanBeRepeatedWhateverFails) {
  fault_vfs device;
  int failed = 0;
  for (bool const lasting : {false, true}) {
    for (int const error : {lasting ? ENOSPC : EIO}) {
      for (int request = 1;; ++request) {
        SCOPED_TRACE(numbered("request ", request) + (lasting ? " and all later ones" : ""));
        std::string const file = numbered("f", error) + numbered(lasting ? "l" : "o", request);
        device.reset();
        cow_String const name = create(file);
        edit(name, [&](ddr_Ddb& record) { fill(record); });
        save(name);
        std::string const before = stored(file);
        edit(name, [&](ddr_Ddb& record) { change(record); });
        std::string const after = contents(name);

        device.reset();
        device.fail_at(request, error, lasting);
        std::string const failure = failureOf([&] { save(name); });
        int const failures = device.failures();
        device.reset();
        if (failure == "nothing") {
          ASSERT_EQ(stored(file), after);
          if (failures == 0) {
            close(name);
            break;
          }
        } else {
          ++failed;
          ASSERT_GT(failures, 0);
          ASSERT_NE(failure.find(folder.path(file)), std::string::npos) << failure;
          ASSERT_EQ(contents(name), after);
          // The writer itself clears up after a failure that met the clearing up.
          record(name).GetTransporter()->GetTableSize(ddr_Ddb::TypeId());
          ASSERT_EQ(stored(file), before);
          ASSERT_TRUE(record(name).models.IsChanged());
          save(name);
          ASSERT_EQ(stored(file), after);
          ASSERT_FALSE(record(name).models.IsChanged());
        }
        close(name);
        ASSERT_EQ(contents(open(file)), after);
        close(root().GetPersistentName(pathOf(file)));
        ASSERT_LT(request, 400);
      }
    }
  }
  EXPECT_GT(failed, 20);
}

TEST_F(rom_FailedSave, FirstSaveCanBeRepeatedWhateverFails) {
  fault_vfs device;
  int failed = 0;
  for (int request = 1;; ++request) {
    SCOPED_TRACE(numbered("request ", request));
    std::string const file = numbered("f", request);
    device.reset();
    cow_String const name = create(file);
    edit(name, [&](ddr_Ddb& record) { fill(record); });
    std::string const whole = contents(name);
    ddr_DdbContainer const copy = root().Fetch();
    device.reset();
    device.fail_at(request, ENOSPC, true);
    std::string const failure = failureOf([&] { save(name); });
    int const failures = device.failures();
    device.reset();
    if (failure != "nothing") {
      ++failed;
      ASSERT_NE(failureOf([&] { stored(file); }), "nothing");
      if (request % 2 == 0) {
        root().Replace(copy); // the copy never saw the failed save
      }
      if (request % 3 == 0) {
        edit(name, [](ddr_Ddb& record) { setNote(record.models.Get("C"), "later"); });
      }
      std::string const retried = contents(name);
      save(name);
      ASSERT_EQ(stored(file), retried);
      edit(name, [](ddr_Ddb& record) { setNote(record.models.Get("A"), "last"); });
      save(name);
      ASSERT_EQ(stored(file), contents(name));
    } else {
      ASSERT_EQ(stored(file), whole);
    }
    close(name);
    if (failures == 0) {
      break;
    }
    ASSERT_LT(request, 400);
  }
  EXPECT_GT(failed, 5);
}

TEST_F(rom_FailedSave, ExceptionOfARecordTakesEverythingBack) {
  cow_String const name = create("a");
  edit(name, [&](ddr_Ddb& record) { fill(record); });
  save(name);
  std::string const before = stored("a");
  edit(name, [&](ddr_Ddb& record) {
    change(record);
    setNote(record.models.Get("C"), note_Extension::poison);
  });
  EXPECT_EQ(failureOf([&] { save(name); }), "the note cannot be written");
  EXPECT_EQ(stored("a"), before);
  EXPECT_TRUE(record(name).models.IsChanged());
  edit(name, [](ddr_Ddb& record) { setNote(record.models.Get("C"), "mended"); });
  save(name);
  EXPECT_EQ(stored("a"), contents(name));
}

TEST_F(rom_FailedSave, ExceptionOfARecordInTheFirstSaveTakesEverythingBack) {
  cow_String const name = create("a");
  edit(name, [&](ddr_Ddb& record) {
    fill(record);
    setNote(record.models.Get("B"), note_Extension::poison);
  });
  EXPECT_EQ(failureOf([&] { save(name); }), "the note cannot be written");
  EXPECT_NE(failureOf([&] { stored("a"); }), "nothing");
  edit(name, [](ddr_Ddb& record) { setNote(record.models.Get("B"), "mended"); });
  save(name);
  EXPECT_EQ(stored("a"), contents(name));
}

// A record that cannot be written, met by a flush outside a save.
TEST_F(rom_FailedSave, ExceptionInAFlushOfItsOwnTakesItBack) {
  cow_String const name = create("a");
  edit(name, [&](ddr_Ddb& record) { fill(record); });
  save(name);
  std::string const before = stored("a");
  ddr_DdbContainer copy = root().Fetch();
  ddr_ModelContainer& models = copy.Get(name).models;
  setNote(models.Get("A"), "changed");
  setNote(models.Get("B"), note_Extension::poison);
  EXPECT_EQ(failureOf([&] { models.Flush(); }), "the note cannot be written");
  EXPECT_EQ(stored("a"), before);
  setNote(models.Get("B"), "mended");
  models.Flush();
  EXPECT_EQ(stored("a"), contentsOf(copy.ConstGet(name)));
}

TEST_F(rom_FailedSave, FileChangedByAnotherProcessIsNotOverwritten) {
  cow_String const name = create("a");
  edit(name, [&](ddr_Ddb& record) { fill(record); });
  save(name);
  std::string const path = folder.path("a");
  ASSERT_EQ(in_child([&] {
              rfm_File const file = rfm_File::Open(pathOf("a"), utl_FileAccess::Write, true);
              std::unique_ptr<cls_ClassRegistrar> const classes = registrar();
              rom_Transporter transporter(classes.get(), file, "D0", -1);
              rom_MementoWrite memento(transporter, ddr_Ddb::TypeId(), 0);
              memento.NeuterString("description", "by another");
              memento.End();
              return std::string("done");
            }),
            "done");
  edit(name, [&](ddr_Ddb& record) { change(record); });
  std::string const mine = contents(name);
  std::string const theirs = stored("a");
  EXPECT_EQ(
      failureOf([&] { save(name); }),
      "The database file '" + path +
          "' was changed by another user since it was opened here, so nothing was saved; close it, open "
          "it again and repeat the change.");
  EXPECT_EQ(stored("a"), theirs);
  EXPECT_EQ(contents(name), mine);
  EXPECT_NE(theirs.find("by another"), std::string::npos);
}

TEST_F(rom_FailedSave, DatabaseOpenedForReadingIsNotStamped) {
  cow_String const name = create("a");
  edit(name, [&](ddr_Ddb& record) { fill(record); });
  save(name);
  std::string const before = stored("a");
  close(name);
  cow_String const again = open("a", utl_FileAccess::Read);
  int const time = record(again).GetModifyTime();
  edit(again, [](ddr_Ddb& record) { setNote(record.models.Get("A"), "changed"); });
  EXPECT_NE(failureOf([&] { save(again); }).find("a"), std::string::npos);
  EXPECT_EQ(record(again).GetModifyTime(), time);
  EXPECT_EQ(stored("a"), before);
}

TEST_F(rom_FailedSave, WriteThatIsNeverEndedLeavesTheFile) {
  cow_String const name = create("a");
  edit(name, [&](ddr_Ddb& record) { fill(record); });
  save(name);
  std::string const before = stored("a");
  edit(name, [&](ddr_Ddb& record) { change(record); });
  {
    ddr_Ddb const& changed = record(name);
    rom_MementoWrite memento(*changed.GetTransporter(), ddr_Ddb::TypeId(), -1);
    cls_WriteVisitor const visitor(memento);
    changed.DBWrite(visitor);
  }
  EXPECT_EQ(stored("a"), before);
  save(name);
  EXPECT_EQ(stored("a"), contents(name));
}

TEST_F(rom_FailedSave, SecondWriteBesideOneUnderWayIsRefused) {
  cow_String const name = create("a");
  save(name);
  rom_MementoWrite memento(*record(name).GetTransporter(), ddr_Ddb::TypeId(), -1);
  EXPECT_THROW(save(name), nex_AssertException);
}

// The last sync of a save fails, when the file has changed already.
TEST_F(rom_FailedSave, ThatChangedTheFileLeavesMemoryLikeASaveThatSucceeded) {
  fault_device device(folder.path());
  cow_String name = create("a");
  edit(name, [&](ddr_Ddb& record) { fill(record); });
  name = reopen(name, "a");
  ddr_DdbContainer const unread = root().Fetch();
  edit(name, [](ddr_Ddb& record) { record.models.Remove("A"); });
  std::string failure;
  for (int sync = 1; failure.find("the changes are in the file") == std::string::npos; ++sync) {
    device.start({device_call::Sync, sync, device_fault::Effect::Error, EIO, false});
    failure = failureOf([&] { save(name); });
    device.stop();
    ASSERT_EQ(device.faults(), 1);
  }
  EXPECT_EQ(stored("a"), contents(name));
  EXPECT_EQ(noteOf(unread.ConstGet(name).models.ConstGet("A")), "A/A")
      << "removed, but known to older copies";
  save(name);
  EXPECT_EQ(stored("a"), contents(name));
}

} // namespace
