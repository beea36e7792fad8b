// The diagnostic data of a database: kept in order, stored, and read back by this process and by others.
#include "ddr_ModuleTest.h"

#include "child_process.h"
#include "database_test.h"
#include "run_program.h"

namespace {

class DdrDiagnostics : public ddr_ModuleTest {
protected:
  using Append = std::function<void(dia_DiagnosticData&)>;

  static void append(cow_String const& database, Append const& work) {
    change(database, [&](ddr_Ddb& changed) { work(changed.GetDiagnosticData()); });
  }
  /// "time severity text", a message each.
  static Texts messages(dia_DiagnosticData const& data) {
    Texts found;
    for (int index = 0; index < data.Size(); ++index) {
      dia_Message const& message = data.Message(index);
      found.push_back(std::to_string(message.Time()) + " " +
                      std::to_string(static_cast<int>(message.Severity())) + " " + message.Text().Text());
    }
    return found;
  }
  static Texts messages(cow_String const& database) {
    return messages(record(database).ConstGetDiagnosticData());
  }
  static void appendThree(dia_DiagnosticData& data) {
    data.Append(300, dia_Severity::Error, "the job \xe2\x82\xac stopped");
    data.Append(100, dia_Severity::Information, "");
    data.Append(-1, dia_Severity::Warning, "a line\nand another");
  }
  Texts const three = {"300 2 the job \xe2\x82\xac stopped", "100 0 ", "-1 1 a line\nand another"};

  /// A saved database with three messages that is not open; SQL then changes it.
  void make(std::string const& sql = "") {
    cow_String const database = create("a.odb");
    append(database, appendThree);
    save(database);
    close(database);
    if (!sql.empty()) {
      runSql(file(), sql);
    }
  }
  std::string table(unsigned typeId) { return tableOf(file(), typeId); }
  /// SQL that changes the entries of the list with elements of a class.
  static std::string entriesOf(unsigned typeId, std::string const& assignment) {
    return "UPDATE ddr_entry SET " + assignment + " WHERE ClassID = " + std::to_string(typeId);
  }
  std::string refusal() {
    return caught<nex_TextException>([&] { open("a.odb", utl_FileAccess::Read); }).what();
  }
  std::string file() const { return folder.path("a.odb"); }
};

TEST_F(DdrDiagnostics, ANewDatabaseHasAnEmptyRecordOfThem) {
  cow_String const database = create("a.odb");
  EXPECT_EQ(messages(database), Texts());
  save(database);
  EXPECT_EQ(messages(reopen(database, "a.odb")), Texts());
}

TEST_F(DdrDiagnostics, MessagesAreReadBackInTheirOrder) {
  cow_String const database = create("a.odb");
  append(database, appendThree);
  EXPECT_EQ(messages(database), three);
  save(database);
  EXPECT_EQ(messages(reopen(database, "a.odb")), three);
}

TEST_F(DdrDiagnostics, AnotherProcessReadsThemInTheirOrder) {
  make();
  program_result const described = run_program(DDR_DESCRIBE_DATABASE, {file()});
  EXPECT_THAT(described.out, testing::HasSubstr("\nmessage 300 2 the job \xe2\x82\xac stopped\n"
                                                "message 100 0 \n"
                                                "message -1 1 a line\nand another\n"));
}

TEST_F(DdrDiagnostics, WhatAnotherProcessAppendsComesLast) {
  make();
  EXPECT_EQ(in_child([&] {
              cow_String const database = open("a.odb");
              append(database,
                     [](dia_DiagnosticData& data) { data.Append(7, dia_Severity::Error, "theirs"); });
              save(database);
              return std::string("saved");
            }),
            "saved");
  Texts wanted = three;
  wanted.emplace_back("7 2 theirs");
  EXPECT_EQ(messages(open("a.odb", utl_FileAccess::Read)), wanted);
}

TEST_F(DdrDiagnostics, MessagesOfSeveralSavesAddUp) {
  cow_String database = create("a.odb");
  Texts wanted;
  for (int number = 0; number < 5; ++number) {
    append(database, [&](dia_DiagnosticData& data) {
      data.Append(number, dia_Severity::Warning, cow_String("m" + std::to_string(number)));
    });
    wanted.push_back(std::to_string(number) + " 1 m" + std::to_string(number));
    save(database);
    database = reopen(database, "a.odb");
  }
  EXPECT_EQ(messages(database), wanted);
}

TEST_F(DdrDiagnostics, ACopyOfTheRecordKeepsItsMessages) {
  cow_String const database = create("a.odb");
  ddr_DdbContainer const before = root().Fetch();
  append(database, appendThree);
  EXPECT_EQ(messages(before.ConstGet(database).ConstGetDiagnosticData()), Texts());
  EXPECT_EQ(messages(database), three);
}

TEST_F(DdrDiagnostics, AStoredRecordWithoutThemOpensAndSaysThatThereAreNone) {
  make();
  runSql(file(), "UPDATE " + table(ddr_Ddb::TypeId()) +
                     " SET \"diagnosticData#ClassID\" = NULL, \"diagnosticData#OID\" = NULL");
  cow_String const database = open("a.odb");
  EXPECT_STREQ(caught<nex_TextException>([&] { messages(database); }).what(), "No diagnostic data available");
  save(database);
  cow_String const again = reopen(database, "a.odb");
  EXPECT_STREQ(caught<nex_TextException>([&] { messages(again); }).what(), "No diagnostic data available");
}

TEST_F(DdrDiagnostics, AStoredListWithoutElementsSaysThatThereAreNone) {
  make("DELETE FROM ddr_entry WHERE ClassID = " + std::to_string(dia_DiagnosticData::TypeId()));
  cow_String const database = open("a.odb");
  EXPECT_STREQ(caught<nex_TextException>([&] { messages(database); }).what(), "No diagnostic data available");
}

TEST_F(DdrDiagnostics, TheFirstOfSeveralStoredElementsIsGiven) {
  make();
  runSql(file(), "INSERT INTO ddr_entry SELECT handle, position + 1, Key, ClassID, OID FROM ddr_entry "
                 "WHERE ClassID = " +
                     std::to_string(dia_DiagnosticData::TypeId()));
  EXPECT_EQ(messages(open("a.odb")), three);
}

TEST_F(DdrDiagnostics, AnUnknownSeverityNamesFileClassAndRow) {
  make();
  runSql(file(), "UPDATE " + table(dia_Message::TypeId()) + " SET severity = 3 WHERE time = 100");
  EXPECT_EQ(refusal(), "File '" + file() +
                           "', class 'dia_Message', row 1: severity 3 is none that this release knows; the "
                           "file is damaged or newer.");
}

TEST_F(DdrDiagnostics, AMessageWithoutSeverityTimeOrTextIsRead) {
  make();
  runSql(file(), "UPDATE " + table(dia_Message::TypeId()) + " SET severity = NULL, time = NULL, text = NULL");
  EXPECT_EQ(messages(open("a.odb")), (Texts{"0 0 ", "0 0 ", "0 0 "}));
}

TEST_F(DdrDiagnostics, ATimeThatIsNoNumberIsNamed) {
  make();
  runSql(file(), "UPDATE " + table(dia_Message::TypeId()) + " SET time = 'noon' WHERE time = -1");
  EXPECT_THAT(refusal(), testing::HasSubstr("class 'dia_Message', row 2, field 'time'"));
}

TEST_F(DdrDiagnostics, ATimeBeyond32BitsIsNamed) {
  make();
  runSql(file(), "UPDATE " + table(dia_Message::TypeId()) + " SET time = 1 << 31 WHERE time = 300");
  EXPECT_THAT(refusal(), testing::HasSubstr("class 'dia_Message', row 0, field 'time'"));
}

TEST_F(DdrDiagnostics, ATextThatIsNoTextIsNamed) {
  make();
  runSql(file(), "UPDATE " + table(dia_Message::TypeId()) + " SET text = CAST(x'ff' AS TEXT)");
  EXPECT_THAT(refusal(), testing::HasSubstr("class 'dia_Message', row 0, field 'text'"));
}

TEST_F(DdrDiagnostics, AnElementThatIsNotThereIsNamed) {
  make(entriesOf(dia_Message::TypeId(), "OID = 77"));
  EXPECT_THAT(refusal(), testing::HasSubstr("class 'dia_Message', row 77"));
  EXPECT_THAT(refusal(), testing::HasSubstr(file()));
}

TEST_F(DdrDiagnostics, AnElementOfAnotherClassIsNamed) {
  make(entriesOf(dia_Message::TypeId(), "ClassID = " + std::to_string(ddr_Ddb::TypeId()) + ", OID = 0"));
  EXPECT_THAT(refusal(), testing::HasSubstr(file()));
  EXPECT_THAT(refusal(), testing::HasSubstr("class 'ddr_Ddb', row 0"));
}

TEST_F(DdrDiagnostics, ARecordOfThemOfAnotherClassIsNamed) {
  make(entriesOf(dia_DiagnosticData::TypeId(),
                 "ClassID = " + std::to_string(dia_Message::TypeId()) + ", OID = 0"));
  EXPECT_THAT(refusal(), testing::HasSubstr(file()));
  EXPECT_THAT(refusal(), testing::HasSubstr("class 'dia_Message', row 0"));
}

TEST_F(DdrDiagnostics, AListThatIsNoListIsNamed) {
  make();
  runSql(file(), "UPDATE " + table(ddr_Ddb::TypeId()) + " SET \"diagnosticData#ClassID\" = " +
                     std::to_string(dia_Message::TypeId()) + ", \"diagnosticData#OID\" = 0");
  EXPECT_THAT(refusal(), testing::HasSubstr(file()));
  EXPECT_THAT(refusal(), testing::HasSubstr("class 'dia_Message', row 0"));
}

TEST_F(DdrDiagnostics, AMissingTableOfMessagesIsNamed) {
  make();
  runSql(file(), "DROP TABLE " + table(dia_Message::TypeId()));
  EXPECT_THAT(refusal(), testing::HasSubstr("class 'dia_Message'"));
  EXPECT_THAT(refusal(), testing::HasSubstr("its table is missing"));
}

} // namespace
