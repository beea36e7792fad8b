#include "dbc_Tables.h"

#include "dbc_OutputDatabase.h"
#include "nex_Exception.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace {

rfm_FieldHandle const& keyField() {
  static rfm_FieldHandle const field("Key");
  return field;
}

rfm_FieldHandle const& classField() {
  static rfm_FieldHandle const field("ClassID");
  return field;
}

rfm_FieldHandle const& oidField() {
  static rfm_FieldHandle const field("OID");
  return field;
}

std::unique_ptr<dbc_Row> takeOut(std::vector<std::unique_ptr<dbc_Row>>& open, dbc_Row const& row) {
  auto const found =
      std::find_if(open.begin(), open.end(), [&](auto const& candidate) { return candidate.get() == &row; });
  if (found == open.end()) {
    nex_Exception::Throw(nex_AssertException("row is open"), "platform/dbc/dbc_Tables", __LINE__);
  }
  std::unique_ptr<dbc_Row> taken = std::move(*found);
  open.erase(found);
  return taken;
}

[[noreturn]] void refuseToAppend(int line) {
  nex_Exception::Throw(nex_TextException("A table of the input of a conversion cannot be written."),
                       "platform/dbc/dbc_Tables", line);
}

} // namespace

dbc_Table::~dbc_Table() = default;

dbc_ReadTable::dbc_ReadTable(rfm_Table rows, bool fixed) : table(std::move(rows)), isFixed(fixed) {}

int dbc_ReadTable::Length() const {
  return table.Length();
}

dbc_Row& dbc_ReadTable::Row(int index) {
  if (!isFixed || !row || row->index != index) {
    table.ReadRow(index < 0 ? std::numeric_limits<int>::max() : index);
    row = std::unique_ptr<dbc_Row>(new dbc_Row(index, table));
  }
  return *row;
}

dbc_Row& dbc_ReadTable::AppendRow() {
  refuseToAppend(__LINE__);
}

int dbc_StoredTable::Length() const {
  return database.Length(typeId);
}

dbc_Row& dbc_StoredTable::Row(int index) {
  return *open.emplace_back(database.ExistingRow(typeId, index));
}

dbc_Row& dbc_StoredTable::AppendRow() {
  return *open.emplace_back(database.NewRow(typeId));
}

void dbc_StoredTable::FinishRow(dbc_Row& row) {
  std::unique_ptr<dbc_Row> const finished = takeOut(open, row);
  database.Store(typeId, *finished);
}

dbc_EntryTable::dbc_EntryTable(rfm_Database const& owner, std::int64_t ofHandle, dbc_OutputDatabase* writer)
    : database(owner), handle(ofHandle), output(writer) {}

int dbc_EntryTable::Length() const {
  if (length < 0) {
    length = database.Entries().Count(handle);
  }
  return length;
}

dbc_Row& dbc_EntryTable::Row(int index) {
  if (!cursor || index < nextOfCursor) {
    cursor.emplace(database.Entries().Scan(handle));
    nextOfCursor = 0;
  }
  bool there = index >= 0;
  while (there && nextOfCursor <= index) {
    there = cursor->Next();
    ++nextOfCursor;
  }
  if (!there) {
    cursor.reset();
    nex_Exception::Throw(nex_AssertException("0 <= index && index < Length()"), "platform/dbc/dbc_Tables",
                         __LINE__);
  }
  read = std::unique_ptr<dbc_Row>(new dbc_Row(index));
  read->WriteFieldString(keyField(), cow_String(cursor->Key()));
  read->WriteFieldUnsigned(classField(), cursor->ClassId());
  read->WriteFieldInt(oidField(), cursor->Oid());
  return *read;
}

dbc_Row& dbc_EntryTable::AppendRow() {
  if (!output) {
    refuseToAppend(__LINE__);
  }
  int const index = Length();
  dbc_Row& added = *open.emplace_back(std::unique_ptr<dbc_Row>(new dbc_Row(index)));
  added.isNew = true;
  ++length;
  return added;
}

void dbc_EntryTable::FinishRow(dbc_Row& row) {
  if (&row == read.get()) {
    return;
  }
  std::unique_ptr<dbc_Row> const finished = takeOut(open, row);
  cow_String const key =
      finished->IsPresent(keyField()) ? finished->ReadFieldString(keyField()) : cow_String();
  unsigned const classId = finished->IsPresent(classField()) ? finished->ReadFieldUnsigned(classField()) : 0U;
  int const oid = finished->IsPresent(oidField()) ? finished->ReadFieldInt(oidField()) : -1;
  database.Entries().Append(handle, key.View(), classId, oid);
  ++output->entriesAdded;
}
