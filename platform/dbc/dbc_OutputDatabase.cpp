#include "dbc_OutputDatabase.h"

#include "cls_Uid.h"
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

// Spreads the bits of a number over all others; no two numbers give the same.
std::uint64_t mix(std::uint64_t number) {
  number = (number ^ (number >> 30U)) * 0xbf58476d1ce4e5b9U;
  number = (number ^ (number >> 27U)) * 0x94d049bb133111ebU;
  return number ^ (number >> 31U);
}

// An identity for a row that is added on behalf of an object: another one for each object, class and row.
rfm_Uid identityOf(rfm_Uid const& owner, unsigned typeId, int row) {
  std::uint64_t high = 0;
  std::uint64_t low = 0;
  for (std::size_t place = 0; place < owner.size() / 2; ++place) {
    high = high << 8U | owner[place];
    low = low << 8U | owner[place + owner.size() / 2];
  }
  std::uint64_t const added = std::uint64_t{typeId} << 32U | static_cast<std::uint32_t>(row);
  high = mix(high + mix(low + mix(added)));
  low = mix(low ^ mix(high ^ added));
  rfm_Uid uid{};
  for (std::size_t place = uid.size() / 2; place-- > 0;) {
    uid[place] = static_cast<std::uint8_t>(high);
    uid[place + uid.size() / 2] = static_cast<std::uint8_t>(low);
    high >>= 8U;
    low >>= 8U;
  }
  return uid;
}

// Adds the attribute that a stored field belongs to.
void addField(rfm_ClassEntry& entry, cow_String const& field, int kind, std::int64_t const* number) {
  std::string_view name = field.View();
  if (name == baseField) {
    entry.baseTypeId = entry.baseTypeId == rfm_NoBaseTypeId ? unknownBaseTypeId : entry.baseTypeId;
    return;
  }
  unsigned element = rfm_NoBaseTypeId;
  bool const isClass = name.ends_with(classSuffix);
  if (isClass || name.ends_with(oidSuffix)) {
    name.remove_suffix(isClass ? classSuffix.size() : oidSuffix.size());
    kind = rfm_AttributeKind_Object;
    element = isClass && number ? static_cast<unsigned>(*number) : element;
  }
  bool const isListed =
      std::any_of(entry.attributes.begin(), entry.attributes.end(),
                  [&](rfm_AttributeEntry const& attribute) { return attribute.name.View() == name; });
  if (!isListed) {
    entry.attributes.push_back({cow_String(name), kind, element, 0});
  }
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
  static rfm_FieldHandle const handleField("Target#Handle");
  if (Length(headerTypeId) > 0 && !database.Table(headerTypeId).HasField(handleField)) {
    rfm_ClassEntry const promised = *database.FindClass(headerTypeId);
    changeClass(promised); // a damaged table was carried without the column
  }
  dbc_Row& header = headers->AppendRow();
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
    table.WantRoomFor(index);
    table.ClearRow();
    row.reset(new dbc_Row(index, std::move(table)));
  }
  row->isNew = true;
  row->takesFields = transporter.Registrar().Find(typeId) == nullptr;
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
  if (!row.stored || !row.loose.empty()) {
    WantFieldsOf(typeId, row);
    rfm_Table table = database.TableForWriting(typeId);
    table.ClearRow();
    if (row.stored) {
      table.Row().CopyFieldsFrom(row.stored->Row());
    }
    for (dbc_Row::Loose const& field : row.loose) {
      if (auto const* const number = std::get_if<std::int64_t>(&field.value)) {
        table.Row().WriteFieldInt64(field.name, *number);
      } else if (auto const* const real = std::get_if<double>(&field.value)) {
        table.Row().WriteFieldDouble(field.name, *real);
      } else if (auto const* const text = std::get_if<cow_String>(&field.value)) {
        table.Row().WriteFieldString(field.name, *text);
      } else {
        table.Row().WriteFieldNull(field.name);
      }
    }
    row.stored = std::move(table);
    row.loose.clear();
  }
  if (!row.isNew) {
    row.stored->UpdateRow(row.index);
    return;
  }
  row.stored->Row().SetUid(owner ? identityOf(*owner, typeId, row.index) : cls_Uid::Allocate().Stored());
  row.stored->InsertRow(row.index);
  row.isNew = false;
  ClassState& state = StateOf(typeId);
  ++state.added;
  if (state.idle.size() < mostIdle) {
    state.idle.push_back(std::move(*row.stored));
  }
}

// Sees to it that a class that no module describes has the fields that were written into a row.
void dbc_OutputDatabase::WantFieldsOf(unsigned typeId, dbc_Row const& row) {
  rfm_ClassEntry const* const listed = database.FindClass(typeId);
  rfm_ClassEntry entry = listed ? *listed : rfm_ClassEntry();
  if (!listed) {
    entry.typeId = typeId;
    entry.version = StateOf(typeId).versionOfUnknown;
    entry.name = cow_String(typ_ArchCompTable::GetName(typeId));
    if (entry.name.IsEmpty() || database.FindClassByName(entry.name.View())) {
      entry.name = cow_String(madeUpName(typeId));
      nameless.insert(typeId);
    }
  }
  for (dbc_Row::Loose const& field : row.loose) {
    addField(entry, field.name, field.kind, std::get_if<std::int64_t>(&field.value));
  }
  if (listed) {
    changeClass(entry);
  } else {
    database.AddClass(entry);
  }
}
