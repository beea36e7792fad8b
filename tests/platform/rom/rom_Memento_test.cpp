// rom_MementoRead and rom_MementoWrite.
#include "database_test.h"

#include "rom_Memento.h"

#include <stdexcept>
#include <string>

namespace {

class rom_Memento : public database_test {
protected:
  /// A saved database, opened by a transporter of its own.
  std::unique_ptr<rom_Transporter> saved() {
    cow_String const name = create("a");
    save(name);
    close(name);
    std::unique_ptr<cls_ClassRegistrar> const classes = registrar();
    return std::make_unique<rom_Transporter>(
        classes.get(), rfm_File::Open(pathOf("a"), utl_FileAccess::Write, true), "D0", -1);
  }
  std::string description() const {
    std::string const path = folder.path("a");
    return runSql(path, "SELECT description FROM " + tableOf(path, ddr_Ddb::TypeId()));
  }
};

TEST_F(rom_Memento, ReadingARowThatIsNotThereNamesFileClassAndRow) {
  auto const file = saved();
  std::string const failure =
      failureOf([&] { rom_MementoRead const memento(*file, ddr_Ddb::TypeId(), 5, cls_Uid::Allocate()); });
  EXPECT_NE(failure.find(folder.path("a")), std::string::npos) << failure;
  EXPECT_NE(failure.find("ddr_Ddb"), std::string::npos) << failure;
  EXPECT_NE(failure.find('5'), std::string::npos) << failure;
}

TEST_F(rom_Memento, RowZeroOfAnEmptyTableThrows) {
  cow_String const name = create("a");
  rom_Transporter& file = *record(name).GetTransporter();
  std::string const failure =
      failureOf([&] { rom_MementoRead const memento(file, ddr_Ddb::TypeId(), 0, cls_Uid::Allocate()); });
  EXPECT_NE(failure.find(folder.path("a")), std::string::npos) << failure;
  EXPECT_NE(failure.find("ddr_Ddb"), std::string::npos) << failure;
}

TEST_F(rom_Memento, ClassThatTheFileDoesNotListIsNamed) {
  auto const file = saved();
  EXPECT_EQ(failureOf([&] { rom_MementoRead const memento(*file, 0x777777, 0, cls_Uid::Allocate()); }),
            "The database file '" + folder.path("a") +
                "' refers to class 0x777777, which its class list does not have; the file is damaged.");
}

TEST_F(rom_Memento, NeuteredStringIsStoredAtTheEnd) {
  auto const file = saved();
  rom_MementoWrite memento(*file, ddr_Ddb::TypeId(), 0);
  memento.NeuterString("description", "neutered");
  memento.End();
  EXPECT_EQ(description(), "neutered");
}

TEST_F(rom_Memento, NeuteredStringIsStoredOnDestruction) {
  auto const file = saved();
  {
    rom_MementoWrite memento(*file, ddr_Ddb::TypeId(), 0);
    memento.NeuterString("description", "neutered");
  }
  EXPECT_EQ(description(), "neutered");
}

TEST_F(rom_Memento, NeuteredStringIsStoredByTheEndOfAVisitorToo) {
  auto const file = saved();
  {
    rom_MementoWrite memento(*file, ddr_Ddb::TypeId(), 0);
    memento.NeuterString("description", "neutered");
    cls_WriteVisitor(memento).End();
    EXPECT_EQ(description(), "neutered");
  }
  EXPECT_EQ(description(), "neutered");
}

TEST_F(rom_Memento, EndingTwiceIsTheSameAsOnce) {
  auto const file = saved();
  rom_MementoWrite memento(*file, ddr_Ddb::TypeId(), 0);
  memento.NeuterString("description", "neutered");
  memento.End();
  memento.End();
  EXPECT_EQ(description(), "neutered");
}

TEST_F(rom_Memento, NeuteredStringIsTakenBackByAnException) {
  auto const file = saved();
  try {
    rom_MementoWrite memento(*file, ddr_Ddb::TypeId(), 0);
    memento.NeuterString("description", "neutered");
    throw std::runtime_error("on the way");
  } catch (std::runtime_error const&) {
  }
  EXPECT_EQ(description(), "made by a test");
}

TEST_F(rom_Memento, NeuteringAFieldThatIsNotThereThrowsAndChangesNothing) {
  auto const file = saved();
  EXPECT_NE(failureOf([&] {
              rom_MementoWrite memento(*file, ddr_Ddb::TypeId(), 0);
              memento.NeuterString("nothing", "x");
            }).find("nothing"),
            std::string::npos);
  EXPECT_EQ(description(), "made by a test");
}

TEST_F(rom_Memento, NeuteringAfterTheEndThrows) {
  auto const file = saved();
  rom_MementoWrite memento(*file, ddr_Ddb::TypeId(), 0);
  memento.NeuterString("description", "neutered");
  memento.End();
  EXPECT_THROW(memento.NeuterString("description", "more"), nex_AssertException);
}

TEST_F(rom_Memento, MementoWithoutAnyWriteChangesNothing) {
  auto const file = saved();
  std::string const before = readFile(folder.path("a"));
  { rom_MementoWrite const memento(*file, ddr_Ddb::TypeId(), -1); }
  EXPECT_EQ(readFile(folder.path("a")), before);
}

TEST_F(rom_Memento, StartOfAnotherClassAtTheTopIsRefused) {
  auto const file = saved();
  rom_MementoWrite memento(*file, ddr_Ddb::TypeId(), -1);
  cls_WriteVisitor const visitor(memento);
  EXPECT_THROW(visitor.StartWrite(ddr_Model::TypeId(), cls_Uid::Allocate()), nex_AssertException);
}

} // namespace
