#include "dbc_OutputDatabase.h"

#include "dbc_Schedule.h"
#include "dbc_Tables.h"
#include "rom_Transporter.h"
#include "typ_ArchCompTable.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <utility>

namespace {

// Rows that a conversion writes side by side into one class.
constexpr std::size_t mostIdle = 4;

constexpr std::string_view baseField = "##BaseClassOID";
constexpr std::string_view classSuffix = "#ClassID";
constexpr std::string_view oidSuffix = "#OID";

// "A base class that nobody here knows": see docs/file-format.md. Stored.
constexpr unsigned unknownBaseTypeId = 0;

std::string madeUpName(unsigned typeId) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%#x", typeId);
  return text.data();
}

cow_String withSuffix(cow_String const& attribute, std::string_view suffix) {
  return cow_String(std::string(attribute.View()).append(suffix));
}

} // namespace

dbc_OutputDatabase::dbc_OutputDatabase(rfm_Database const& made, rom_Transporter& wayToMade,
                                       std::function<void(rfm_ClassEntry const&)> rename)
    : database(made), transporter(wayToMade), changeClass(std::move(rename)) {}

dbc_OutputDatabase::~dbc_OutputDatabase() = default;

std::unique_ptr<dbc_Table> dbc_OutputDatabase::GetOutputTable(unsigned typeId) {
  if (!database.FindClass(typeId)) {
    dbc_throwNoClass(database, typeId);
  }
  return std::make_unique<dbc_StoredTable>(*this, typeId);
}

std::unique_ptr<dbc_Table> dbc_OutputDatabase::CreateClass(unsigned typeId, int versionOfUnknown) {
  if (!database.FindClass(typeId)) {
    if (cls_ClassMetadata const* const known = transporter.Registrar().Find(typeId)) {
      database.AddClass(dbc_storedClass(*known));
    } else {
      StateOf(typeId).versionOfUnknown = versionOfUnknown;
    }
  }
  return std::make_unique<dbc_StoredTable>(*this, typeId);
}

std::unique_ptr<dbc_Table> dbc_OutputDatabase::CreateCollection(unsigned headerTypeId, dbc_Row& row,
                                                                cow_String const& attribute) {
  std::int64_t const handle = database.NewHandle();
  std::unique_ptr<dbc_Table> const headers = CreateClass(headerTypeId, 1);
  dbc_Row& header = headers->AppendRow();
  static rfm_FieldHandle const handleField("Target#Handle");
  header.WriteFieldHandle(handleField, handle);
  row.WriteFieldUnsigned(withSuffix(attribute, classSuffix), headerTypeId);
  row.WriteFieldInt(withSuffix(attribute, oidSuffix), header.Index());
  headers->FinishRow(header);
  return GetOutputEntries(handle);
}

std::unique_ptr<dbc_Table> dbc_OutputDatabase::GetOutputEntries(std::int64_t handle) {
  return std::make_unique<dbc_EntryTable>(database, handle, this);
}

std::optional<rfm_Entry> dbc_OutputDatabase::FindEntry(std::int64_t handle, cow_String const& key) const {
  rfm_EntryCursor cursor = database.Entries().Scan(handle);
  while (cursor.Next()) {
    if (cursor.Key() == key.View()) {
      return rfm_Entry{key, cursor.ClassId(), cursor.Oid(), cursor.Position()};
    }
  }
  return std::nullopt;
}

void dbc_OutputDatabase::NameClassOf(dbc_Table const& table, cow_String const& name) {
  auto const* const stored = dynamic_cast<dbc_StoredTable const*>(&table);
  if (!stored || nameless.count(stored->TypeId()) == 0 || database.FindClassByName(name.View())) {
    return;
  }
  rfm_ClassEntry entry = *database.FindClass(stored->TypeId());
  entry.name = name;
  changeClass(entry);
  nameless.erase(stored->TypeId());
}

std::int64_t dbc_OutputDatabase::RowsAdded(unsigned typeId) const {
  auto const found = states.find(typeId);
  return found == states.end() ? 0 : found->second.added;
}

dbc_OutputDatabase::ClassState& dbc_OutputDatabase::StateOf(unsigned typeId) {
  return states[typeId];
}

int dbc_OutputDatabase::Length(unsigned typeId) {
  ClassState& state = StateOf(typeId);
  if (state.nextRow < 0) {
    state.nextRow = database.FindClass(typeId) ? database.Table(typeId).Length() : 0;
  }
  return state.nextRow;
}

void dbc_OutputDatabase::BeginPass(unsigned typeId, int nextRow) {
  ClassState& state = StateOf(typeId);
  state.nextRow = nextRow;
  state.idle.clear();
}

std::unique_ptr<dbc_Row> dbc_OutputDatabase::NewRow(unsigned typeId) {
  int const index = Length(typeId);
  ClassState& state = StateOf(typeId);
  std::unique_ptr<dbc_Row> row;
  if (!database.FindClass(typeId)) {
    row.reset(new dbc_Row(index));
  } else {
    rfm_Table table = state.idle.empty() ? database.TableForWriting(typeId) : state.idle.back();
    if (!state.idle.empty()) {
      state.idle.pop_back();
    }
    table.ClearRow();
    row.reset(new dbc_Row(index, std::move(table)));
  }
  row->isNew = true;
  ++state.nextRow;
  return row;
}

std::unique_ptr<dbc_Row> dbc_OutputDatabase::ExistingRow(unsigned typeId, int index) {
  rfm_Table table = database.Table(typeId);
  table.ReadRow(index < 0 ? Length(typeId) : index);
  return std::unique_ptr<dbc_Row>(new dbc_Row(index, std::move(table)));
}

void dbc_OutputDatabase::Store(unsigned typeId, dbc_Row& row) {
  if (!row.isNew && !row.changed) {
    return;
  }
  touched.insert(typeId);
  if (!row.stored) {
    ListByRow(typeId, row);
    row.stored = database.TableForWriting(typeId);
    row.stored->ClearRow();
    std::vector<dbc_Row::Loose> const written = std::move(row.loose);
    for (dbc_Row::Loose const& field : written) {
      if (auto const* const number = std::get_if<std::int64_t>(&field.value)) {
        row.stored->Row().WriteFieldInt64(field.name, *number);
      } else if (auto const* const real = std::get_if<double>(&field.value)) {
        row.stored->Row().WriteFieldDouble(field.name, *real);
      } else {
        row.stored->Row().WriteFieldString(field.name, std::get<cow_String>(field.value));
      }
    }
  }
  if (!row.isNew) {
    row.stored->UpdateRow(row.index);
    return;
  }
  row.stored->InsertRow(row.index);
  row.isNew = false;
  ClassState& state = StateOf(typeId);
  ++state.added;
  if (state.idle.size() < mostIdle) {
    state.idle.push_back(std::move(*row.stored));
  }
}

// Lists a class that no module describes, by what was written into its first row.
void dbc_OutputDatabase::ListByRow(unsigned typeId, dbc_Row const& row) {
  if (database.FindClass(typeId)) {
    return;
  }
  rfm_ClassEntry entry;
  entry.typeId = typeId;
  entry.version = StateOf(typeId).versionOfUnknown;
  entry.name = cow_String(typ_ArchCompTable::GetName(typeId));
  if (entry.name.IsEmpty() || database.FindClassByName(entry.name.View())) {
    entry.name = cow_String(madeUpName(typeId));
    nameless.insert(typeId);
  }
  for (dbc_Row::Loose const& field : row.loose) {
    std::string_view const name = field.name.View();
    if (name == baseField) {
      entry.baseTypeId = unknownBaseTypeId;
    } else if (name.ends_with(classSuffix)) {
      auto const* const classId = std::get_if<std::int64_t>(&field.value);
      entry.attributes.push_back({cow_String(name.substr(0, name.size() - classSuffix.size())),
                                  rfm_AttributeKind_Object,
                                  classId ? static_cast<unsigned>(*classId) : rfm_NoBaseTypeId, 0});
    } else if (!name.ends_with(oidSuffix)) {
      entry.attributes.push_back({field.name, field.kind, rfm_NoBaseTypeId, 0});
    }
  }
  database.AddClass(entry);
}
