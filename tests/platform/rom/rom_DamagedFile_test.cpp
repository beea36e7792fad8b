// Files whose rows are not what they should be: every answer names file, class and row.
#include "database_test.h"

#include "ddr_Result.h"
#include "ddr_Shortcut.h"
#include "rom_Memento.h"

#include <string>

namespace {

class rom_DamagedFile : public database_test {
protected:
  rom_DamagedFile() {
    cow_String const name = create("a");
    edit(name, [](ddr_Ddb& record) {
      record.models.Insert("M", ddr_Model(record.GetDbId(), "M"));
      setNote(record.models.Get("M"), "note");
      record.results.Insert("R", ddr_Result());
      record.GetDiagnosticData().Append(1, dia_Severity::Warning, "message");
    });
    save(name);
    close(name);
  }
  std::string path() const { return folder.path("a"); }
  /// Changes the class of all references in a field of a class.
  void refer(unsigned typeId, std::string const& field, unsigned toClass, int toRow) const {
    runSql(path(), "UPDATE " + tableOf(path(), typeId) + " SET \"" + field + "#ClassID\" = " +
                       std::to_string(toClass) + ", \"" + field + "#OID\" = " + std::to_string(toRow));
  }
  /// What opening the file and reading its model says.
  std::string failure() {
    return failureOf([&] {
      cow_String const name = open("a");
      contents(name);
    });
  }
  void expectNames(std::string const& className, std::string const& row) {
    std::string const text = failure();
    EXPECT_NE(text.find(path()), std::string::npos) << text;
    EXPECT_NE(text.find(className), std::string::npos) << text;
    EXPECT_NE(text.find(row), std::string::npos) << text;
  }
};

TEST_F(rom_DamagedFile, SoundFileOpens) {
  EXPECT_EQ(failure(), "nothing");
}

TEST_F(rom_DamagedFile, MissingRowOfACollection) {
  refer(ddr_Ddb::TypeId(), "models", cls_MapHeaderTypeId, 4711);
  expectNames("cls_MapHeader", "4711");
}

TEST_F(rom_DamagedFile, CollectionThatIsAnotherObject) {
  refer(ddr_Ddb::TypeId(), "results", ddr_Model::TypeId(), 0);
  expectNames("ddr_Model", "row 0");
}

TEST_F(rom_DamagedFile, ListThatIsAnotherObject) {
  refer(ddr_Ddb::TypeId(), "diagnosticData", ddr_Model::TypeId(), 0);
  expectNames("ddr_Model", "row 0");
}

TEST_F(rom_DamagedFile, MissingRowOfAModel) {
  runSql(path(), "DELETE FROM " + tableOf(path(), ddr_Model::TypeId()));
  expectNames("ddr_Model", "row 0");
}

TEST_F(rom_DamagedFile, ModelThatIsAnotherObject) {
  runSql(path(),
         "UPDATE ddr_entry SET ClassID = " + std::to_string(ddr_Result::TypeId()) + " WHERE Key = 'M'");
  expectNames("ddr_Result", "row 0");
}

TEST_F(rom_DamagedFile, ResultThatIsAnotherObject) {
  runSql(path(),
         "UPDATE ddr_entry SET ClassID = " + std::to_string(ddr_Model::TypeId()) + " WHERE Key = 'R'");
  expectNames("ddr_Model", "row 0");
}

TEST_F(rom_DamagedFile, ElementOfAListThatIsAnotherObject) {
  runSql(path(), "UPDATE ddr_entry SET ClassID = " + std::to_string(ddr_Model::TypeId()) +
                     " WHERE ClassID = " + std::to_string(dia_Message::TypeId()));
  expectNames("ddr_Model", "row 0");
}

TEST_F(rom_DamagedFile, ElementOfAListThatIsMissing) {
  runSql(path(), "UPDATE ddr_entry SET ClassID = 0, OID = -1 WHERE ClassID = " +
                     std::to_string(dia_Message::TypeId()));
  EXPECT_NE(failure().find(path()), std::string::npos);
}

TEST_F(rom_DamagedFile, ExtensionTableThatIsAnotherObject) {
  refer(ddr_Model::TypeId(), "instanceTable", ddr_Model::TypeId(), 0);
  expectNames("ddr_Model", "row 0");
}

TEST_F(rom_DamagedFile, ClassThatTheFileDoesNotList) {
  refer(ddr_Model::TypeId(), "instanceTable", 0x777777, 0);
  std::string const text = failure();
  EXPECT_NE(text.find(path()), std::string::npos) << text;
  EXPECT_NE(text.find("0x777777"), std::string::npos) << text;
}

// Their bases lead from each to the other.
TEST_F(rom_DamagedFile, ClassesThatThisProcessDoesNotKnowInACircle) {
  runSql(path(),
         "INSERT INTO ddr_class SELECT max(row) + 1, 'one', 'class_one', 7829367, 0, 7829368 FROM ddr_class;"
         "INSERT INTO ddr_class SELECT max(row) + 1, 'other', NULL, 7829368, 0, 7829367 FROM ddr_class;"
         "CREATE TABLE class_one(\"row\" INTEGER PRIMARY KEY, \"#uid\" BLOB);"
         "INSERT INTO class_one VALUES(0, NULL)");
  refer(ddr_Model::TypeId(), "instanceTable", 7829367, 0);
  expectNames("class 'one', row 0", "class 0x777777 found where");
}

TEST_F(rom_DamagedFile, TextWhereANumberBelongs) {
  runSql(path(), "UPDATE " + tableOf(path(), ddr_Ddb::TypeId()) + " SET modifyTime = 'soon'");
  expectNames("ddr_Ddb", "modifyTime");
}

TEST_F(rom_DamagedFile, NumberBeyondItsRange) {
  runSql(path(), "UPDATE " + tableOf(path(), ddr_Ddb::TypeId()) + " SET ddbVersion = 99999999999");
  expectNames("ddr_Ddb", "ddbVersion");
}

TEST_F(rom_DamagedFile, UnknownSeverity) {
  runSql(path(), "UPDATE " + tableOf(path(), dia_Message::TypeId()) + " SET severity = 3");
  expectNames("dia_Message", "severity 3 is none that this release knows");
}

TEST_F(rom_DamagedFile, NegativeSeverity) {
  runSql(path(), "UPDATE " + tableOf(path(), dia_Message::TypeId()) + " SET severity = -1");
  expectNames("dia_Message", "row 0");
}

// The number behind the last one would overflow.
TEST_F(rom_DamagedFile, ATableWithoutRoomTakesNoModel) {
  runSql(path(), "UPDATE " + tableOf(path(), ddr_Model::TypeId()) + " SET \"row\" = 2147483646;" +
                     "UPDATE ddr_entry SET OID = 2147483646 WHERE Key = 'M'");
  cow_String const name = open("a");
  edit(name, [](ddr_Ddb& record) { record.models.Insert("N", ddr_Model(record.GetDbId(), "N")); });
  std::string const text = failureOf([&] { save(name); });
  EXPECT_NE(text.find("class 'ddr_Model': the table has no room for more rows"), std::string::npos) << text;
}

TEST_F(rom_DamagedFile, RefusedFileLeavesTheRegistryAsItWas) {
  refer(ddr_Ddb::TypeId(), "models", cls_MapHeaderTypeId, 4711);
  int const before = openDescriptors();
  EXPECT_NE(failure(), "nothing");
  EXPECT_EQ(root().Fetch().Size(), 0);
  EXPECT_FALSE(root().IsMember(pathOf("a")));
  EXPECT_EQ(openDescriptors(), before);
}

// A walk that an exception ends leaves no lock, though its agent lives on: others can save.
TEST_F(rom_DamagedFile, BrokenOffWalkLetsGoOfTheFile) {
  std::unique_ptr<cls_ClassRegistrar> const classes = registrar();
  rom_Transporter file(classes.get(), rfm_File::Open(pathOf("a"), utl_FileAccess::Read, true), "D0", -1);
  cls_AgentHandle const agent = [&] {
    rom_MementoRead const memento(file, ddr_Ddb::TypeId(), 0, cls_Uid::Allocate());
    cls_ReadVisitor const record(memento);
    return cls_ReadVisitor(record, "results").GetCollectionAgent();
  }();
  std::string const breakOff = failureOf([&] {
    for (cls_AgentWalk walk(*agent); !walk.AtEnd(); walk.Next()) {
      agent->OpenCurrent();
      throw std::runtime_error("broken off");
    }
  });
  ASSERT_EQ(breakOff, "broken off");
  runSql(path(), "BEGIN EXCLUSIVE; DELETE FROM ddr_entry WHERE Key = 'R'; COMMIT");
  EXPECT_TRUE(cls_AgentWalk(*agent).AtEnd());
}

/// A model shortcut, written to a file of its own.
class rom_Shortcuts : public database_test {
protected:
  rom_Shortcuts() {
    std::unique_ptr<cls_ClassRegistrar> const classes = registrar();
    file = std::make_unique<rom_Transporter>(classes.get(),
                                             rfm_File::Open(pathOf("s"), utl_FileAccess::Create, true), "D0",
                                             "shortcuts", 1700000000, -1);
  }
  static ddr_ModelShortcut shortcut() {
    return ddr_ModelShortcut(new ddr_ModelInModelContainerShortcut(
        "M", ddr_ModelContainerShortcut(new ddr_ModelContainerInDdbShortcut(
                 ddr_DdbShortcut(new ddr_DdbShortcutImpl(cow_String("D")))))));
  }
  void write(ddr_ModelShortcut const& given) {
    rom_MementoWrite memento(*file, ddr_ModelShortcut::TypeId(), -1);
    file->ObjectCache().Clear();
    cls_WriteVisitor visitor(memento);
    given.DBWrite(visitor);
    visitor.End();
  }
  ddr_ModelShortcut read(int row) {
    rom_MementoRead const memento(*file, ddr_ModelShortcut::TypeId(), row, cls_Uid::Allocate());
    return ddr_ModelShortcut(cls_ReadVisitor(memento));
  }
  std::unique_ptr<rom_Transporter> file;
};

TEST_F(rom_Shortcuts, ComeBack) {
  write(shortcut());
  EXPECT_EQ(read(0).Path(), shortcut().Path());
}

TEST_F(rom_Shortcuts, ShareTheObjectsThatTheyLeadTo) {
  write(shortcut());
  read(0);
  int const kept = file->ObjectCache().Size();
  EXPECT_GT(kept, 0);
  std::uint64_t const before = file->File().Statistics().rowsRead;
  read(0);
  EXPECT_EQ(file->ObjectCache().Size(), kept);
  EXPECT_EQ(file->File().Statistics().rowsRead - before, 1U); // the handle's own row
  file->ObjectCache().Clear();
  EXPECT_EQ(file->ObjectCache().Size(), 0);
}

TEST_F(rom_Shortcuts, OutliveTheCache) {
  write(shortcut());
  ddr_ModelShortcut const kept = read(0);
  file->ObjectCache().Clear();
  file.reset();
  EXPECT_EQ(kept.Path(), shortcut().Path());
}

TEST_F(rom_Shortcuts, ObjectOfTheWrongClassIsNamed) {
  write(shortcut());
  std::string const path = folder.path("s");
  std::string const table = tableOf(path, ddr_ModelShortcut::TypeId());
  runSql(path, "UPDATE " + table + " SET \"impl#ClassID\" = " +
                   std::to_string(ddr_DdbShortcutImpl::TypeId()) + ", \"impl#OID\" = 0");
  std::string const failure = failureOf([&] { read(0); });
  EXPECT_NE(failure.find(path), std::string::npos) << failure;
  EXPECT_NE(failure.find("row 0"), std::string::npos) << failure;
  EXPECT_NE(failure.find("class"), std::string::npos) << failure;
}

// A model container whose database is a model container, and so on.
TEST_F(rom_Shortcuts, CircleOfReferencesIsRefused) {
  write(shortcut());
  std::string const path = folder.path("s");
  std::string const handles = tableOf(path, ddr_ModelContainerShortcut::TypeId());
  std::string const models = tableOf(path, ddr_ModelShortcut::TypeId());
  std::string const inner = tableOf(path, ddr_ModelInModelContainerShortcut::TypeId());
  runSql(path, "UPDATE " + inner + " SET \"parent#ClassID\" = " +
                   std::to_string(ddr_ModelShortcut::TypeId()) + ", \"parent#OID\" = 0");
  std::string const failure = failureOf([&] { read(0); });
  EXPECT_NE(failure.find(path), std::string::npos) << failure;
  EXPECT_NE(failure.find("row 0"), std::string::npos) << failure;
}

} // namespace
