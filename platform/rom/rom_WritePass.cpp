#include "rom_WritePass.h"

#include "nex_Exception.h"
#include "rom_MapAgent.h"
#include "utl_Utf8.h"

#include <algorithm>

namespace {

constexpr char const* sourcePath = "platform/rom/rom_WritePass";

/// Whether the row holds the value already.
bool holds(rfm_Row const& row, rfm_FieldHandle const& field, rom_PendingRow::Value const& value) {
  if (!row.FieldIsSet(field)) {
    return std::holds_alternative<std::monostate>(value) && row.HasField(field);
  }
  if (auto const* number = std::get_if<std::int64_t>(&value)) {
    return row.ReadFieldInt64(field) == *number;
  }
  if (auto const* text = std::get_if<cow_String>(&value)) {
    return row.ReadFieldString(field) == *text;
  }
  if (auto const* real = std::get_if<double>(&value)) {
    return row.ReadFieldDouble(field) == *real;
  }
  return false;
}

void put(rfm_Row& row, rfm_FieldHandle const& field, rom_PendingRow::Value const& value) {
  if (auto const* number = std::get_if<std::int64_t>(&value)) {
    row.WriteFieldInt64(field, *number);
  } else if (auto const* text = std::get_if<cow_String>(&value)) {
    row.WriteFieldString(field, *text);
  } else if (auto const* real = std::get_if<double>(&value)) {
    row.WriteFieldDouble(field, *real);
  } else {
    row.WriteFieldNull(field);
  }
}

/// The fields in which an attribute is stored.
std::vector<std::string> storedFields(rfm_AttributeEntry const& attribute) {
  std::string const name(attribute.name.View());
  return attribute.kind == rfm_AttributeKind_Object
             ? std::vector<std::string>{name + "#ClassID", name + "#OID"}
             : std::vector<std::string>{name};
}

/// A value as it stands, whatever its class means by it.
rom_PendingRow::Value carried(rfm_Row const& row, rfm_FieldHandle const& field, int kind) {
  if (!row.FieldIsSet(field)) {
    return {};
  }
  switch (kind) {
  case rfm_AttributeKind_String:
    return row.ReadFieldString(field);
  case rfm_AttributeKind_Real:
    return row.ReadFieldDouble(field);
  default:
    return row.ReadFieldInt64(field);
  }
}

/// Gives a new row what the last row of its table holds in the fields that the registrar does not know, so
/// that a class stored with more attributes than this process knows loses none of them.
void carryUnknownFields(rom_Store& store, rfm_Table& table, rom_PendingRow& row) {
  rfm_ClassEntry const& stored = store.StoredClass(row.id.classId);
  cls_ClassMetadata const* known = store.registrar.Find(row.id.classId);
  if (known == nullptr || table.Length() == 0) {
    return;
  }
  std::vector<std::pair<cow_String, rom_PendingRow::Value>> unknown;
  rfm_Row const* last = nullptr;
  for (rfm_AttributeEntry const& attribute : stored.attributes) {
    auto const& attributes = known->Attributes();
    bool const isKnown =
        std::any_of(attributes.begin(), attributes.end(),
                    [&](cls_AttributeMetadata const& one) { return one.name == attribute.name; });
    if (isKnown) {
      continue;
    }
    last = last == nullptr ? &table.ReadRow(table.Length() - 1) : last;
    for (std::string const& field : storedFields(attribute)) {
      unknown.emplace_back(field.c_str(), carried(*last, rfm_FieldHandle(field.c_str()), attribute.kind));
    }
  }
  row.fields.insert(row.fields.begin(), unknown.begin(), unknown.end());
}

} // namespace

rom_WritePass::rom_WritePass(rom_Store& ofStore)
    : store(ofStore), transaction(ofStore.database), writtenGeneration(ofStore.cache.Generation()) {
  if (store.database.ForeignCommits() != store.foreignCommits) {
    nex_Exception::Throw(
        nex_TextException(("The database file '" + utl_Printable(store.file.FileName().View()) +
                           "' was changed by another user since it was opened here, so nothing was saved;"
                           " close it, open it again and repeat the change.")),
        sourcePath, __LINE__);
  }
}

rom_WritePass::~rom_WritePass() {
  if (!committed) {
    for (cls_AgentHandle const& agent : enlisted) {
      static_cast<rom_MapAgent&>(*agent).TakenBack();
    }
  }
}

rom_PendingRow& rom_WritePass::AddRow() {
  return *rows.emplace_back(std::make_unique<rom_PendingRow>());
}

rom_PendingList& rom_WritePass::AddList() {
  return *lists.emplace_back(std::make_unique<rom_PendingList>());
}

void rom_WritePass::Enlist(rom_MapAgent& agent) {
  // A collection that nobody holds any more and that left no state need not hear how the pass ends: a first
  // save meets one for every model.
  while (!enlisted.empty() && enlisted.back().IsSoleHolder() &&
         !static_cast<rom_MapAgent&>(*enlisted.back()).HasPendingState()) {
    enlistedSet.erase(static_cast<rom_MapAgent*>(enlisted.back().Get()));
    enlisted.pop_back();
  }
  if (enlistedSet.contains(&agent)) {
    return;
  }
  enlisted.emplace_back(&agent);
  try {
    enlistedSet.insert(&agent);
  } catch (...) {
    enlisted.pop_back();
    throw;
  }
}

rom_WrittenObjects& rom_WritePass::Written() {
  if (writtenGeneration != store.cache.Generation()) {
    writtenGeneration = store.cache.Generation();
    written.clear();
  }
  return written;
}

rom_WritePass::ClassState& rom_WritePass::Class(unsigned classId) {
  auto found = classes.find(classId);
  if (found != classes.end()) {
    return found->second;
  }
  if (store.database.FindClass(classId) == nullptr) {
    cls_ClassMetadata const* known = store.registrar.Find(classId);
    if (known == nullptr) {
      char id[32];
      std::snprintf(id, sizeof id, "0x%x", classId);
      nex_Exception::Throw(
          nex_TextException((std::string("Class ") + id +
                             " is not registered, so its object cannot be stored in '" +
                             utl_Printable(store.file.FileName().View()) + "'; register the class first.")),
          sourcePath, __LINE__);
    }
    store.database.AddClass(rom_storedClass(*known));
  }
  rfm_Table table = store.database.TableForWriting(classId);
  int const length = table.Length();
  return classes.emplace(classId, ClassState{table, length, length == 0}).first->second;
}

int rom_WritePass::ReserveRow(unsigned classId) {
  ClassState& state = Class(classId);
  state.table.WantRoomFor(state.nextRow);
  return state.nextRow++;
}

std::vector<int> rom_WritePass::RowsOf(unsigned classId, cls_Uid const& uid) {
  ClassState& state = Class(classId);
  if (uid.IsNone() || state.emptyAtStart) {
    return {};
  }
  int found[2] = {-1, -1};
  int const count = state.table.FindUid(uid.Stored(), found, 2);
  return std::vector<int>(found, found + count);
}

void rom_WritePass::Drain() {
  while (!lists.empty() && lists.back()->complete) {
    StoreList(*lists.back());
    lists.pop_back();
  }
  while (!rows.empty() && rows.back()->complete) {
    StoreRow(*rows.back());
    rows.pop_back();
  }
}

void rom_WritePass::Commit() {
  if (!failed) {
    Drain();
  }
  if (failed || !rows.empty() || !lists.empty()) {
    nex_Exception::Throw(
        nex_TextException(("Saving to '" + utl_Printable(store.file.FileName().View()) +
                           "' met an error before, so nothing was saved; the file is as it was.")),
        sourcePath, __LINE__);
  }
  for (cls_AgentHandle const& agent : enlisted) {
    static_cast<rom_MapAgent&>(*agent).PrepareCommit();
  }
  try {
    transaction.Commit();
  } catch (...) {
    if (transaction.IsStored()) {
      TellCommitted(); // what is in the file is in the file, durable or not
    }
    throw;
  }
  TellCommitted();
}

void rom_WritePass::TellCommitted() noexcept {
  committed = true;
  for (cls_AgentHandle const& agent : enlisted) {
    static_cast<rom_MapAgent&>(*agent).Committed();
  }
}

void rom_WritePass::StoreRow(rom_PendingRow& row) {
  rfm_Table& table = Class(row.id.classId).table;
  bool changed = row.isNew;
  if (row.isNew) {
    if (row.carryUnknown) {
      carryUnknownFields(store, table, row);
    }
    table.ClearRow();
  } else {
    table.ReadRow(row.id.row);
  }
  rfm_Row& stored = table.Row();
  for (auto const& [name, value] : row.fields) {
    rfm_FieldHandle const field(name);
    if (row.isNew || !holds(stored, field, value)) {
      put(stored, field, value);
      changed = true;
    }
  }
  cls_Uid::Bytes const uid = row.uid.Stored();
  if (!row.uid.IsNone() && stored.Uid() != std::optional<rfm_Uid>(uid)) {
    stored.SetUid(uid);
    changed = true;
  }
  if (row.isNew) {
    table.InsertRow(row.id.row);
  } else if (changed) {
    table.UpdateRow(row.id.row);
  }
}

void rom_WritePass::StoreList(rom_PendingList& list) {
  rfm_Entries& entries = store.database.Entries();
  auto sameAsStored = [&] {
    rfm_EntryCursor cursor = entries.Scan(list.handle);
    for (rom_PendingList::Element const& element : list.elements) {
      if (!cursor.Next() || cursor.Key() != element.text.View() || cursor.ClassId() != element.id.classId ||
          cursor.Oid() != element.id.row) {
        return false;
      }
    }
    return !cursor.Next();
  };
  if (!list.isNew) {
    if (sameAsStored()) {
      return;
    }
    entries.Clear(list.handle);
  }
  for (rom_PendingList::Element const& element : list.elements) {
    entries.Append(list.handle, element.text.View(), element.id.classId, element.id.row);
  }
}

rfm_ClassEntry rom_storedClass(cls_ClassMetadata const& metadata) {
  rfm_ClassEntry entry;
  entry.name = metadata.Name();
  entry.typeId = metadata.TypeId();
  entry.version = metadata.Version();
  entry.baseTypeId = metadata.BaseTypeId();
  for (cls_AttributeMetadata const& attribute : metadata.Attributes()) {
    entry.attributes.push_back({attribute.name, static_cast<int>(attribute.kind), attribute.elementTypeId,
                                static_cast<int>(attribute.collection)});
  }
  return entry;
}
