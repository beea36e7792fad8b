// What conversion functions call, in small memory.
#include "memory_Call.h"

#include "../../platform/dbc/thing_module.h"

#include <filesystem>
#include <new>
#include <optional>

namespace {

constexpr char const* longText = "a text that is too long to be held in the object itself";
constexpr unsigned tempTypeId = 0x500009;

/// A module with the class "Thing", and an old file of it.
class Things : public thing_test {
public:
  Things() { current = this; }
  ~Things() override { current = nullptr; }
  using thing_test::convert;
  using thing_test::converted;
  using thing_test::folder;
  using thing_test::newPath;
  using thing_test::notes;
  using thing_test::thingReport;

  static Things& Instance() { return *current; }

private:
  void TestBody() override {}
  static inline Things* current = nullptr;
};

/// What the function that converts the first row calls. Allocations count within that function alone; a
/// failure ends the conversion, unless the function answers it.
struct InStep {
  void play(void (*work)(InStep&)) {
    bool const isCounting = failing_memory::pause();
    std::filesystem::remove(things.newPath);
    report.reset();
    thing_Steps::current().first = [&](dbc_Row const& input, dbc_Row& made) {
      if (input.Index() == 0) {
        output = &made;
        failing_memory::resume(isCounting);
        work(*this);
        failing_memory::pause();
      }
    };
    report = things.convert();
  }

  std::string look() const {
    std::string all;
    for (std::string const& name : things.folder.names()) {
      all.append(name).append(" ");
    }
    if (report) {
      all += things.converted().everything() + things.converted().integrity();
      all += Things::notes(things.thingReport(*report));
    }
    return all + told;
  }

  InStep() { std::filesystem::remove(things.newPath); }

  static dbc_DatabaseConverter& converter() {
    return omi_Singleton<dbc_DatabaseConverterHolder>::Instance().GetDatabaseConverter();
  }
  static dbc_Utils& utils() { return omi_Singleton<dbc_Utils>::Instance(); }
  static std::unique_ptr<dbc_Table> temporary() {
    return utils().CreateTempClassInOutputDatabase(tempTypeId, 3);
  }
  dbc_Row& row() const { return *output; }

  Things& things = Things::Instance();
  dbc_Row* output = nullptr;
  std::optional<dbc_ConversionReport> report; // of a conversion that has come to its end
  std::string told;
};

/// A function that does a failed call again, and goes on.
void again(auto const& work) {
  try {
    work();
  } catch (std::bad_alloc const&) {
    work();
  }
}

/// Adds an entry to a collection.
void addEntry(std::unique_ptr<dbc_Table> const& entries) {
  dbc_Row& entry = entries->AppendRow();
  entry.WriteFieldString("Key", longText);
  entry.WriteFieldUnsigned("ClassID", boxTypeId);
  entry.WriteFieldInt("OID", 2);
  entries->FinishRow(entry);
}

/// Writes a value of each type, a failed one again.
void writeAll(dbc_Row& row) {
  again([&] { row.WriteFieldString("name", longText); });
  again([&] { row.WriteFieldInt("size", -7); });
  again([&] { row.WriteFieldDouble("weight", 0.25); });
  again([&] { row.WriteFieldUnsigned("box#ClassID", boxTypeId); });
  again([&] { row.WriteFieldHandle("box#OID", 2); });
  again([&] { row.WriteFieldBool("shape", true); });
  again([&] { row.WriteFieldNull("size"); });
  again([&] { row.WriteFieldString("name", "in place of a longer text, which is gone"); });
}

std::vector<memory_call> callsOfSteps(std::initializer_list<memory_row<InStep>> rows) {
  std::vector<memory_call> calls;
  for (memory_row<InStep> const& row : rows) {
    calls.push_back({row.name, [] { return std::make_shared<InStep>(); },
                     [work = row.call](void* subject) { static_cast<InStep*>(subject)->play(work); },
                     [](void* subject) { return static_cast<InStep*>(subject)->look(); }, row.need});
  }
  return calls;
}

std::vector<memory_call> const stepCalls = callsOfSteps({
    {"dbc_DatabaseConverter::Supplied",
     [](InStep& on) { again([&] { on.converter().Supplied("a field with a long name", longText); }); }},
    {"dbc_DatabaseConverter::Dropped",
     [](InStep& on) { again([&] { on.converter().Dropped("a field with a long name", longText); }); }},
    {"dbc_DatabaseConverter::Carried",
     [](InStep& on) { again([&] { on.converter().Carried("a field with a long name", longText); }); }},
    {"dbc_DatabaseConverter::ClassView",
     [](InStep& on) {
       std::unique_ptr<dbc_Table> const table = on.temporary();
       dbc_Row& row = table->AppendRow();
       row.WriteFieldString("name", longText);
       table->FinishRow(row);
       std::unique_ptr<dbc_ClassView> view;
       view = on.converter().ClassView("a class with a long name", *table, 3, 0, -1);
       on.told = std::to_string(view->RowCount());
     }},
    {"dbc_DatabaseConverter::InputDatabase",
     [](InStep& on) {
       dbc_InputDatabase const& input = on.converter().InputDatabase();
       std::unique_ptr<dbc_Table> const things = input.GetInputTable(thingTypeId);
       std::unique_ptr<dbc_Table> const entries = input.GetInputEntries(5);
       on.told = std::to_string(things->Length()) + things->Row(4).ReadFieldString("name").Text() +
                 entries->Row(1).ReadFieldString("Key").Text() +
                 (input.ClassesWith("gone").empty() ? "" : "gone");
     }},
    {"dbc_DatabaseConverter::OutputDatabase",
     [](InStep& on) {
       dbc_OutputDatabase& output = on.converter().OutputDatabase();
       std::unique_ptr<dbc_Table> const boxes = output.GetOutputTable(boxTypeId);
       dbc_Row& box = boxes->Row(0);
       box.WriteFieldString("label", longText);
       boxes->FinishRow(box);
       on.told = std::to_string(output.FindEntry(5, "a")->oid);
     }},
    {"dbc_Utils::CreateClassInOutputDatabase",
     [](InStep& on) {
       rom_Transporter& transporter = on.converter().OutputDatabase().Transporter();
       on.told =
           std::to_string(on.utils().CreateClassInOutputDatabase(cls_ListObjTypeId, transporter)->Length());
     }},
    {"dbc_Utils::CreateTempClassInOutputDatabase and its rows",
     [](InStep& on) {
       std::unique_ptr<dbc_Table> const table = on.temporary();
       dbc_Row& row = table->AppendRow();
       writeAll(row);
       table->FinishRow(row);
       on.told = std::to_string(table->Length());
     }},
    {"dbc_Utils::SetNewAttributeMapInOutputDatabase",
     [](InStep& on) { addEntry(on.utils().SetNewAttributeMapInOutputDatabase(on.row(), "map")); }},
    {"dbc_Utils::SetNewAttributeMapListInOutputDatabase",
     [](InStep& on) { addEntry(on.utils().SetNewAttributeMapListInOutputDatabase(on.row(), "map")); }},
    {"dbc_Utils::SetNewAttributeListInOutputDatabase",
     [](InStep& on) { addEntry(on.utils().SetNewAttributeListInOutputDatabase(on.row(), "map")); }},
    {"dbc_Utils: maps of numbers, arrays of numbers and of texts",
     [](InStep& on) {
       on.utils().SetNewAttributeMapInt2ObjInOutputDatabase(on.row(), "map");
       on.utils().SetNewAttributeArrayIntInOutputDatabase(on.row(), "part");
       addEntry(on.utils().NEWSetNewAttributeArrayStringInOutputDatabase(on.row(), "box"));
     }},
    {"dbc_Table::AppendRow of a collection",
     [](InStep& on) {
       bool const isCounting = failing_memory::pause();
       std::unique_ptr<dbc_Table> const entries =
           on.utils().SetNewAttributeMapInOutputDatabase(on.row(), "map");
       int const length = entries->Length();
       failing_memory::resume(isCounting);
       entries->AppendRow();
       on.told = std::to_string(entries->Length() - length);
     }},
    {"dbc_Utils::CreateEnum and SetEnum",
     [](InStep& on) {
       again([&] {
         on.utils().SetEnum("name", on.row(), on.utils().CreateEnum("an enumeration of ours", longText));
       });
     }},
    {"dbc_Row::WriteField of every type", [](InStep& on) { writeAll(on.row()); }},
});

class Memory_Conversion : public memory_test {
public:
  static void SetUpTestSuite() { things = std::make_unique<Things>(); }
  static void TearDownTestSuite() { things.reset(); }

private:
  static inline std::unique_ptr<Things> things;
};

TEST_P(Memory_Conversion, EndsOrGoesOnAsIfNothingHadFailed) {
  constexpr std::uint64_t affordable = 5;
  failEach(affordable);
}

INSTANTIATE_TEST_SUITE_P(Steps, Memory_Conversion, testing::ValuesIn(stepCalls), memory_testName);

} // namespace
