// Names of files and classes in messages: they may hold anything, and stand there fit to print.
#include "child_process.h"
#include "database_test.h"

#include "rom_Memento.h"
#include "utl_Utf8.h"

#include <gmock/gmock.h>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

class rom_Names : public database_test {
protected:
  rom_Names() {
    database = create(file);
    writeModel(database, "M", "note");
    database_test::save(database);
  }
  /// What it says names the file on one line.
  void expectNamed(std::string const& text, std::string const& words) const {
    EXPECT_THAT(text, AllOf(HasSubstr("'" + utl_Printable(path) + "'"), HasSubstr(words),
                            Not(HasSubstr("\n")), Not(HasSubstr("\033"))));
  }
  rom_Transporter& transporter() { return *record(database).GetTransporter(); }

  std::string const file = "a\n\033[31mb";
  std::string const path = folder.path(file);
  cow_String database;
};

TEST_F(rom_Names, OfAClassWithControlCharacters) {
  std::string const name = "one\n\033[31m" + std::string(900, 'x');
  close(database);
  runSql(path, "INSERT INTO ddr_class SELECT max(row) + 1, '" + name +
                   "', 'class_one', 7829367, 0, 1 FROM ddr_class;"
                   "CREATE TABLE class_one(\"row\" INTEGER PRIMARY KEY, \"#uid\" BLOB);"
                   "INSERT INTO class_one VALUES(0, NULL);"
                   "UPDATE ddr_entry SET ClassID = 7829367, OID = 0 WHERE Key = 'M'");
  open(file);
  std::string const text = failureOf([&] { contents(database); });
  expectNamed(text, "class 'one\\n\\x1b[31mxxx");
  EXPECT_THAT(text, HasSubstr("xxx...', row 0"));
}

TEST_F(rom_Names, OfAFileThatRefersToAnUnknownClass) {
  expectNamed(failureOf([&] { rom_MementoRead const memento(transporter(), 0x777777, 0, cls_Uid()); }),
              "refers to class 0x777777");
}

TEST_F(rom_Names, OfAFileThatAnotherProcessHasChanged) {
  ASSERT_EQ(in_child([&] {
              return runSql(path, "UPDATE " + tableOf(path, ddr_Ddb::TypeId()) + " SET description = 'x'");
            }),
            "");
  expectNamed(failureOf([&] { database_test::save(database); }), "was changed by another user");
}

TEST_F(rom_Names, OfAFileThatWasClosed) {
  reopen(database, file);
  ddr_ModelContainer const kept = record(database).models;
  close(database);
  expectNamed(failureOf([&] { kept.ConstGet("M"); }), "has been closed");
}

TEST_F(rom_Names, OfAFileThatDoesNotHoldACollectionYet) {
  std::string const other = "b\n\033c";
  cow_String const unsaved = create(other);
  edit(unsaved, [&](ddr_Ddb& changed) {
    changed.models.Insert("M", ddr_Model(changed.GetDbId(), "M"));
    changed.SetDescription("\xff");
  });
  EXPECT_NE(failureOf([&] { database_test::save(unsaved); }), "nothing");
  edit(unsaved, [&](ddr_Ddb& changed) {
    EXPECT_THAT(failureOf([&] { changed.models.Flush(); }),
                AllOf(HasSubstr("b\\n\\x1bc' does not hold this collection yet"), Not(HasSubstr("\n"))));
  });
}

TEST_F(rom_Names, OfAFileForAnObjectOfAnUnregisteredClass) {
  rom_MementoWrite memento(transporter(), ddr_Ddb::TypeId(), -1);
  cls_WriteVisitor const visitor(memento);
  visitor.StartWrite(ddr_Ddb::TypeId(), cls_Uid::Allocate());
  expectNamed(failureOf([&] {
                cls_WriteVisitor const inner(visitor, "models");
                inner.StartWrite(0x2f7777, cls_Uid::Allocate());
              }),
              "register the class first");
}

TEST_F(rom_Names, OfAFileForObjectsThatNestTooDeep) {
  rom_MementoWrite memento(transporter(), ddr_Ddb::TypeId(), -1);
  cls_WriteVisitor const visitor(memento);
  visitor.StartWrite(ddr_Ddb::TypeId(), cls_Uid::Allocate());
  std::function<void(cls_WriteVisitor const&)> const nest = [&](cls_WriteVisitor const& outer) {
    cls_WriteVisitor const inner(outer, "models");
    inner.StartWrite(ddr_Ddb::TypeId(), cls_Uid::Allocate());
    nest(inner);
  };
  expectNamed(failureOf([&] { nest(visitor); }), "nest deeper than 900");
}

TEST_F(rom_Names, OfAFileWhoseSaveMetAnErrorBefore) {
  rom_MementoWrite memento(transporter(), ddr_Ddb::TypeId(), -1);
  cls_WriteVisitor visitor(memento);
  visitor.StartWrite(ddr_Ddb::TypeId(), cls_Uid::Allocate());
  cls_WriteVisitor const half(visitor, "models");
  half.StartWrite(ddr_Ddb::TypeId(), cls_Uid::Allocate());
  expectNamed(failureOf([&] { visitor.End(); }), "met an error before");
}

} // namespace
