// Database files, row by row, in small memory.
#include "memory_World.h"

#include "layout_files.h"

#include "dbc_Conversion.h"
#include "ddr_FixPS.h"
#include "rfm_Check.h"
#include "rfm_Database.h"
#include "rfm_Exception.h"
#include "rfm_ReadScope.h"
#include "rfm_Rebuild.h"
#include "rfm_Transaction.h"
#include "rom_Memento.h"
#include "rom_ODBHeaderParser.h"

#include <filesystem>
#include <optional>

namespace {

constexpr char const* longText = "a text that is too long to be held in the object itself";
constexpr char const* longField = "instanceTable#ClassID";
constexpr unsigned newType = 0x2f0077;

std::string show(rfm_Row const& row, std::vector<cow_String> const& fields) {
  std::string all = std::to_string(row.RowNumber()) + (row.Uid() ? "#:" : ":");
  for (cow_String const& field : fields) {
    if (row.FieldIsSet(field)) {
      try {
        all.append(row.ReadFieldString(field).View()).append(",");
      } catch (rfm_Exception const&) {
        all.append(std::to_string(row.ReadFieldDouble(field))).append(",");
      }
    }
  }
  return all;
}

/// All that a database says of itself.
std::string show(rfm_Database const& database) {
  std::string all;
  for (rfm_ClassEntry const& entry : database.Classes()) {
    all.append("\n").append(entry.name.View()).append(std::to_string(entry.attributes.size())).append(":");
    rfm_Table table = database.Table(entry.typeId);
    for (int row = 0; row < table.Length(); ++row) {
      if (table.RowExists(row)) {
        all.append(show(table.ReadRow(row), table.FieldNames())).append(";");
      }
    }
  }
  for (std::int64_t const handle : database.EntryHandles()) {
    all.append("\n").append(std::to_string(handle));
    for (rfm_EntryCursor each = database.Entries().Scan(handle); each.Next();) {
      all.append(" ").append(each.Key()).append(std::to_string(each.Oid()));
    }
  }
  return all;
}

rfm_ClassEntry newClass() {
  rfm_ClassEntry entry;
  entry.name = cow_String("memory_AClassWithALongName");
  entry.typeId = newType;
  entry.version = 1;
  entry.attributes.push_back({"an attribute with a long name", rfm_AttributeKind_String, 1, 0});
  entry.attributes.push_back({"number", rfm_AttributeKind_Integer, 1, 0});
  return entry;
}

/// A file opened for writing.
struct OpenFile : memory_subject {
  rfm_File file = rfm_File::Open(world.pathOf("a"), utl_FileAccess::Write, true);
  rfm_Database database = rfm_Database::Open(file, "D0");
  std::optional<rfm_Table> table; // of the models, at its first row
  std::string told;

  OpenFile() {
    database.Bind();
    table = database.Table(ddr_Model::TypeId());
    table->ReadRow(0);
  }
  void change(void (*work)(rfm_Database&)) {
    rfm_Transaction transaction(database);
    work(database);
    transaction.Commit();
  }
  std::string look() const {
    std::string all = show(database); // first: reading may open the file
    all.append(show(table->Row(), table->FieldNames())).append(std::to_string(table->NextRow())).append(told);
    return all + std::to_string(database.ForeignCommits()) + " " + world.traces();
  }
};

std::int64_t firstHandle(rfm_Database const& database) {
  return database.EntryHandles().front();
}

std::vector<memory_call> const fileCalls = memory_calls<OpenFile>({
    {"rfm_File::Open for reading",
     [](OpenFile& on) {
       on.told = rfm_File::Open(on.world.pathOf("b"), utl_FileAccess::Read, true).FileName().IsEmpty() ? "" : "b";
     }},
    {"rfm_File::Open for writing",
     [](OpenFile& on) { rfm_File::Open(on.world.pathOf("b"), utl_FileAccess::Write, true); }},
    {"rfm_File::Open to create",
     [](OpenFile& on) { rfm_File::Open(on.world.pathOf("new"), utl_FileAccess::Create, true); }},
    {"rfm_Database::Create, unpublished",
     [](OpenFile& on) {
       rfm_File const made = rfm_File::Open(on.world.pathOf("new"), utl_FileAccess::Create, true);
       rfm_Database::Create(made, "D0", longText, 7);
     }},
    {"rfm_Database::Open and Bind",
     [](OpenFile& on) {
       rfm_Database other = rfm_Database::Open(rfm_File::Open(on.world.pathOf("b"), utl_FileAccess::Read, true), "D0");
       other.Bind();
       on.told = other.Description().Text();
     }},
    {"rfm_Database::Bind", [](OpenFile& on) { on.database.Bind(); }},
    {"rfm_Database::GetCreationTime",
     [](OpenFile& on) { on.told = std::to_string(rfm_Database::GetCreationTime(on.file)); }},
    {"rfm_Database::ClassList",
     [](OpenFile& on) {
       rfm_Table list = on.database.ClassList();
       on.told = list.ReadRow(1).ReadFieldString("Class Name").Text();
     }},
    {"rfm_Database::Table", [](OpenFile& on) { on.told = std::to_string(on.database.Table(0x220006).Length()); }},
    {"rfm_Database::TableOfHandle",
     [](OpenFile& on) { on.told = std::to_string(on.database.TableOfHandle(0x220006).Length()); }},
    {"rfm_Database::CheckPages", [](OpenFile& on) { on.told = std::to_string(on.database.CheckPages().size()); }},
    {"rfm_Database::WantSoundPages", [](OpenFile& on) { on.database.WantSoundPages(); }},
    {"rfm_Database::EntryHandles",
     [](OpenFile& on) { on.told = std::to_string(on.database.EntryHandles().size()); }},
    {"rfm_Database::ChangeCount and CommitCount",
     [](OpenFile& on) {
       on.database.ChangeCount();
       on.told = std::to_string(on.database.CommitCount());
     }, memory_need::None},
    {"rfm_Rebuild::CountRows and CountEntries",
     [](OpenFile& on) {
       on.told = std::to_string(rfm_Rebuild::CountRows(on.database, ddr_Model::TypeId())) + " " +
                 std::to_string(rfm_Rebuild::CountEntries(on.database));
     }},
    {"rfm_nextHandle", [](OpenFile& on) { on.told = std::to_string(rfm_nextHandle(on.file)); }},
    {"rfm_ReadScope",
     [](OpenFile& on) {
       rfm_ReadScope const scope(on.database);
       on.told = on.database.Table(ddr_Model::TypeId()).ReadRow(2).ReadFieldString("modelName").Text();
     }},
    {"rom_ODBHeaderParser",
     [](OpenFile& on) {
       on.told = std::to_string(rom_ODBHeaderParser(on.database).GetUpToDateStatus(
           *on.world.root().GetClassRegistrar(), nullptr));
     }},
    {"rom_ODBHeaderParser::ClassTable",
     [](OpenFile& on) {
       rom_ODBHeaderParser const parser(on.database);
       rfm_Table list = parser.ClassList();
       on.told = std::to_string(parser.ClassTable(list.ReadRow(1)).Length());
     }},
    {"rom_UtlDatabase::GetTable",
     [](OpenFile& on) {
       on.told = std::to_string(rom_UtlDatabase(on.database).GetTable(ddr_Model::TypeId()).Length());
     }},
    {"rom_Transporter and rom_MementoRead",
     [](OpenFile& on) {
       rom_Transporter transporter(on.world.root().GetClassRegistrar(), on.file, "D0", -1);
       rom_MementoRead const memento(transporter, ddr_Model::TypeId(), 1, cls_Uid());
       on.told = ddr_Model((cls_ReadVisitor(memento))).GetName().Text();
     }},
    {"rfm_Table::Length", [](OpenFile& on) { on.told = std::to_string(on.table->Length()); }},
    {"rfm_Table::RowExists", [](OpenFile& on) { on.told = on.table->RowExists(1) ? "yes" : "no"; }},
    {"rfm_Table::NextRow", [](OpenFile& on) { on.told = std::to_string(on.table->NextRow()); }},
    {"rfm_Table::ReadRow", [](OpenFile& on) { on.table->ReadRow(3); }},
    {"rfm_Table::ReadRow of the next row", [](OpenFile& on) { on.table->ReadRow(-1); }},
    {"rfm_Table::ReadRow of a row that is not there",
     [](OpenFile& on) {
       on.told = memory_refusal<rfm_Exception>([&] { on.table->ReadRow(77); });
     }},
    {"rfm_Table::FieldNames", [](OpenFile& on) { on.told = on.table->FieldNames().at(0).Text(); }},
    {"rfm_Table::FindUid",
     [](OpenFile& on) {
       int row = -1;
       on.told = std::to_string(on.table->FindUid(*on.table->Row().Uid(), &row, 1));
     }},
    {"rfm_Table::ClearRow", [](OpenFile& on) { on.table->ClearRow(); }, memory_need::None},
    {"rfm_Row::WriteFieldString", [](OpenFile& on) { on.table->Row().WriteFieldString("modelName", longText); }},
    {"rfm_Row::WriteFieldString of an unknown field",
     [](OpenFile& on) {
       on.told = memory_refusal<rfm_Exception>([&] { on.table->Row().WriteFieldString("none", longText); });
     }},
    {"rfm_Row::WriteFieldInt", [](OpenFile& on) { on.table->Row().WriteFieldInt(longField, 7); }},
    {"rfm_Row::WriteFieldInt64", [](OpenFile& on) { on.table->Row().WriteFieldInt64(longField, 1LL << 40); }},
    {"rfm_Row::WriteFieldUnsigned", [](OpenFile& on) { on.table->Row().WriteFieldUnsigned(longField, 7); }},
    {"rfm_Row::WriteFieldHandle", [](OpenFile& on) { on.table->Row().WriteFieldHandle(longField, 7); }},
    {"rfm_Row::WriteFieldDouble", [](OpenFile& on) { on.table->Row().WriteFieldDouble(longField, 0.5); }},
    {"rfm_Row::WriteFieldBool", [](OpenFile& on) { on.table->Row().WriteFieldBool(longField, true); }},
    {"rfm_Row::WriteFieldNull", [](OpenFile& on) { on.table->Row().WriteFieldNull(longField); }},
    {"rfm_Row::ReadField of numbers",
     [](OpenFile& on) {
       rfm_Table records = on.database.Table(ddr_Ddb::TypeId());
       rfm_Row const& record = records.ReadRow(0);
       std::string all = std::to_string(record.ReadFieldInt("models#OID"));
       all += std::to_string(record.ReadFieldInt64("creationTime"));
       all += std::to_string(record.ReadFieldUnsigned("diagnosticData#ClassID"));
       all += std::to_string(record.ReadFieldDouble("creationTime"));
       all += record.ReadFieldBool("onlyHasUserDefinedData") ? "yes" : "no";
       rfm_Table list = on.database.ClassList();
       on.told = all + std::to_string(list.ReadRow(0).ReadFieldHandle("Class Table"));
     }},
    {"rfm_Row::CopyFieldsFrom",
     [](OpenFile& on) {
       rfm_Table other = on.database.Table(ddr_Model::TypeId());
       on.table->Row().CopyFieldsFrom(other.ReadRow(2));
     }},
    {"rfm_Row::CopyFieldFrom",
     [](OpenFile& on) {
       rfm_Table other = on.database.Table(ddr_Model::TypeId());
       on.table->Row().CopyFieldFrom(other.ReadRow(2), "modelName");
     }},
    {"rfm_Entries::Scan",
     [](OpenFile& on) {
       std::string all;
       for (rfm_EntryCursor each = on.database.Entries().Scan(firstHandle(on.database)); each.Next();) {
         all += each.Key();
       }
       on.told = all;
     }},
    {"rfm_Entries::Find",
     [](OpenFile& on) {
       on.told = on.database.Entries().Find(firstHandle(on.database), "B") ? "found" : "not found";
     }},
    {"rfm_Entries::FindListed",
     [](OpenFile& on) {
       on.told = on.database.Entries().FindListed(firstHandle(on.database), "none") ? "found" : "not found";
     }},
    {"rfm_Entries::Count",
     [](OpenFile& on) { on.told = std::to_string(on.database.Entries().Count(firstHandle(on.database))); }},
    {"rfm_Transaction without a change", [](OpenFile& on) { on.change([](rfm_Database&) {}); }},
    {"rfm_Transaction: AddClass", [](OpenFile& on) {
       on.change([](rfm_Database& database) { database.AddClass(newClass()); });
     }},
    {"rfm_Transaction: AddClass and AppendRow",
     [](OpenFile& on) {
       on.change([](rfm_Database& database) {
         database.AddClass(newClass());
         rfm_Table rows = database.TableForWriting(newType);
         rows.Row().WriteFieldString("an attribute with a long name", longText);
         rows.Row().SetUid(rfm_Uid{7});
         rows.AppendRow();
         rows.AppendRow();
       });
     }},
    {"rfm_Transaction: UpdateRow",
     [](OpenFile& on) {
       on.change([](rfm_Database& database) {
         rfm_Table rows = database.TableForWriting(ddr_Model::TypeId());
         rows.ReadRow(1);
         rows.Row().WriteFieldString("modelName", longText);
         rows.UpdateRow(1);
       });
     }},
    {"rfm_Transaction: InsertRow",
     [](OpenFile& on) {
       on.change([](rfm_Database& database) {
         rfm_Table rows = database.TableForWriting(ddr_Model::TypeId());
         rows.ReadRow(1);
         rows.InsertRow(9);
       });
     }},
    {"rfm_Transaction: NewHandle and Entries::Append",
     [](OpenFile& on) {
       on.change([](rfm_Database& database) {
         std::int64_t const handle = database.NewHandle();
         database.Entries().Append(handle, longText, newType, 1);
         database.Entries().Append(handle, "second", newType, 2);
       });
     }},
    {"rfm_Transaction: Entries::Update, Remove and Clear",
     [](OpenFile& on) {
       on.change([](rfm_Database& database) {
         std::vector<std::int64_t> const handles = database.EntryHandles();
         database.Entries().Update(handles.front(), "B", newType, 1);
         database.Entries().Remove(handles.front(), "A");
         database.Entries().Clear(handles.back());
       });
     }},
});

// ---- conversion ----

/// A file of an older release.
struct OldFile : memory_subject {
  std::string input = world.folder.path("old");
  std::string output = world.folder.path("new");
  std::string told;

  OldFile() { writeFile(input, layout()); }
  void cancel(dbc_Progress::Phase phase) {
    told = memory_refusal<dbc_CancelledException>([&] {
      dbc_Conversion::Run(input.c_str(), output.c_str(),
                          [phase](dbc_Progress const& progress) { return progress.phase != phase; });
    });
  }
  /// The bytes of the file, which SQLite makes once.
  std::string const& layout() {
    static std::string const bytes = [this] {
      make_layout_file(input, "database_309");
      return readFile(input);
    }();
    return bytes;
  }
  std::string look() const {
    return (readFile(input) == const_cast<OldFile*>(this)->layout() ? "old file untouched "
                                                                    : "old file changed ") +
           told + (std::filesystem::exists(output) ? contentOf(output) : "") + world.traces();
  }
};

std::vector<memory_call> const conversionCalls = memory_calls<OldFile>({
    {"dbc_Conversion::Plan",
     [](OldFile& on) { on.told = std::to_string(dbc_Conversion::Plan(on.input.c_str()).classes.size()); }},
    {"dbc_Conversion::Run",
     [](OldFile& on) {
       int asked = 0;
       auto const report = dbc_Conversion::Run(on.input.c_str(), on.output.c_str(), [&](dbc_Progress const&) {
         ++asked;
         return true;
       });
       on.told = std::to_string(report.classes.size()) + " " + std::to_string(asked);
     }},
    {"dbc_Conversion::Run cancelled at its beginning",
     [](OldFile& on) { on.cancel(dbc_Progress::Phase::Copying); }},
    {"dbc_Conversion::Run cancelled in a step",
     [](OldFile& on) { on.cancel(dbc_Progress::Phase::Converting); }},
    {"dbc_Conversion::Run cancelled at its end",
     [](OldFile& on) { on.cancel(dbc_Progress::Phase::Finishing); }},
    {"dbc_Conversion::Run of a current file",
     [](OldFile& on) {
       bool const isCurrent = dbc_Conversion::Run(on.world.pathOf("a"), on.output.c_str()).alreadyCurrent;
       on.told = isCurrent ? "current" : "not current";
     }},
    {"dbc_Conversion::Run onto its input",
     [](OldFile& on) {
       on.told =
           memory_refusal<rfm_Exception>([&] { dbc_Conversion::Run(on.input.c_str(), on.input.c_str()); });
     }},
    {"dbc_Conversion::Run onto a name that is taken",
     [](OldFile& on) {
       on.told = memory_refusal<rfm_Exception>([&] {
         dbc_Conversion::Run(on.input.c_str(), on.world.pathOf("a"), {}, utl_FileAccess::CreateNew);
       });
     }},
    {"dbc_Conversion::Run of a missing file",
     [](OldFile& on) {
       on.told = memory_refusal<rfm_Exception>(
           [&] { dbc_Conversion::Run(on.world.pathOf("none"), on.output.c_str()); });
     }},
});

class Memory_Files : public memory_world_test {};

TEST_P(Memory_Files, AreWhatTheyWereAfterAnyFailedAllocation) {
  constexpr std::uint64_t affordable = 8;
  failEach(affordable);
}

INSTANTIATE_TEST_SUITE_P(Files, Memory_Files, testing::ValuesIn(fileCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Conversions, Memory_Files, testing::ValuesIn(conversionCalls), memory_testName);

} // namespace
