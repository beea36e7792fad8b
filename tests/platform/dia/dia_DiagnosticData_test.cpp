// dia_DiagnosticData: messages kept with a database.
#include "database_test.h"

#include "dia_DiagnosticData.h"
#include "nex_Exception.h"

#include <string>

namespace {

std::string textOf(dia_DiagnosticData const& data) {
  std::string all;
  for (int index = 0; index < data.Size(); ++index) {
    dia_Message const& message = data.Message(index);
    all += numbered("", message.Time()) + numbered(" ", static_cast<int>(message.Severity())) + " " +
           message.Text().Text() + "; ";
  }
  return all;
}

TEST(dia_DiagnosticData, StoredNumbersStayAsTheyAre) {
  EXPECT_EQ(dia_DiagnosticData::TypeId(), 0x240001U);
  EXPECT_EQ(dia_Message::TypeId(), 0x240002U);
  EXPECT_EQ(static_cast<int>(dia_Severity::Information), 0);
  EXPECT_EQ(static_cast<int>(dia_Severity::Warning), 1);
  EXPECT_EQ(static_cast<int>(dia_Severity::Error), 2);
}

TEST(dia_DiagnosticData, MessagesKeepTheirOrder) {
  dia_DiagnosticData data;
  data.Append(9, dia_Severity::Error, "first");
  data.Append(5, dia_Severity::Information, "second");
  EXPECT_EQ(textOf(data), "9 2 first; 5 0 second; ");
}

TEST(dia_DiagnosticData, CopiesShareUntilOneWrites) {
  dia_DiagnosticData first;
  first.Append(1, dia_Severity::Warning, "a");
  dia_DiagnosticData second = first;
  second.Append(2, dia_Severity::Warning, "b");
  EXPECT_EQ(textOf(first), "1 1 a; ");
  EXPECT_EQ(textOf(second), "1 1 a; 2 1 b; ");
  second.Clear();
  EXPECT_EQ(second.Size(), 0);
  EXPECT_EQ(first.Size(), 1);
}

TEST(dia_DiagnosticData, MessageThatIsNotThereThrows) {
  EXPECT_THROW(dia_DiagnosticData().Message(0), nex_AssertException);
}

TEST(dia_DiagnosticData, ClassesAreRegistered) {
  cls_ClassRegistrar registrar;
  dia_registerClasses(registrar);
  EXPECT_EQ(registrar.Find(dia_DiagnosticData::TypeId())->Attributes().size(), 1U);
  cls_ClassMetadata const& message = *registrar.Find(dia_Message::TypeId());
  std::string names;
  for (cls_AttributeMetadata const& attribute : message.Attributes()) {
    names += std::string(attribute.name.Text()) + " ";
  }
  EXPECT_EQ(names, "time severity text ");
}

class dia_Stored : public database_test {};

TEST_F(dia_Stored, MessagesComeBackInTheirOrder) {
  cow_String name = create("a");
  edit(name, [](ddr_Ddb& record) {
    for (int i = 0; i < 30; ++i) {
      record.GetDiagnosticData().Append(100 - i, static_cast<dia_Severity>(i % 3),
                                        cow_String(numbered("m", i).c_str()));
    }
  });
  std::string const before = textOf(record(name).ConstGetDiagnosticData());
  name = reopen(name, "a");
  EXPECT_EQ(textOf(record(name).ConstGetDiagnosticData()), before);
  edit(name, [](ddr_Ddb& record) {
    record.GetDiagnosticData().Clear();
    record.GetDiagnosticData().Append(-1, dia_Severity::Error, "");
  });
  name = reopen(name, "a");
  EXPECT_EQ(textOf(record(name).ConstGetDiagnosticData()), "-1 2 ; ");
}

TEST_F(dia_Stored, BadSeverityNamesFileClassAndRow) {
  cow_String const name = create("a");
  edit(name, [](ddr_Ddb& record) {
    record.GetDiagnosticData().Append(1, dia_Severity::Error, "a");
    record.GetDiagnosticData().Append(2, dia_Severity::Error, "b");
  });
  save(name);
  close(name);
  std::string const path = folder.path("a");
  runSql(path, "UPDATE " + tableOf(path, dia_Message::TypeId()) + " SET severity = 9 WHERE time = 2");
  EXPECT_EQ(
      failureOf([&] { open("a"); }),
      "File '" + path +
          "', class 'dia_Message', row 1: severity 9 is none that this release knows; the file is damaged "
          "or newer.");
}

} // namespace
