#include "dbc_InputDatabase.h"

#include "dbc_Schedule.h"
#include "dbc_Tables.h"
#include "rfm_Exception.h"
#include "utl_Utf8.h"

#include <algorithm>
#include <string>
#include <utility>

dbc_InputDatabase::dbc_InputDatabase(rfm_Database const& oldFile, rfm_Database const& newFile,
                                     std::int64_t entries)
    : source(oldFile), working(newFile), entriesOfOldFile(entries) {}

bool dbc_InputDatabase::HasInputTable(unsigned typeId) const {
  return source.FindClass(typeId) || working.FindClass(typeId);
}

std::set<unsigned> dbc_InputDatabase::ClassesWith(std::string_view attribute) const {
  std::set<unsigned> found;
  for (rfm_ClassEntry const& listed : working.Classes()) {
    bool const isOne =
        std::any_of(listed.attributes.begin(), listed.attributes.end(),
                    [&](rfm_AttributeEntry const& one) { return one.name.View() == attribute; });
    if (isOne) {
      found.insert(listed.typeId);
    }
  }
  return found;
}

bool dbc_InputDatabase::IsOfOldFile(unsigned typeId, int row) const {
  return row >= 0 && source.FindClass(typeId) && source.Table(typeId).RowExists(row);
}

std::unique_ptr<dbc_Table> dbc_InputDatabase::GetInputTable(unsigned typeId) const {
  if (!HasInputTable(typeId)) {
    dbc_throwNoClass(source, typeId);
  }
  if (moving && typeId == movingTypeId) {
    return std::make_unique<dbc_ReadTable>(moving(), true);
  }
  bool const inSource = source.FindClass(typeId) && moved.count(typeId) == 0;
  return std::make_unique<dbc_ReadTable>((inSource ? source : working).Table(typeId), inSource);
}

void dbc_InputDatabase::Refuse(unsigned typeId, int row, std::string_view what) const {
  rfm_ClassEntry const* const listed = source.FindClass(typeId);
  std::string const className = listed ? utl_PrintableStart(listed->name.View()) : std::to_string(typeId);
  nex_Exception::Throw(rfm_Exception(rfm_ErrorKind::Damaged,
                                     "Database file '" + utl_Printable(source.FileName().View()) +
                                         "', class '" + className + "', row " + std::to_string(row),
                                     std::string("it is damaged: ").append(what), "Restore it from a backup"),
                       "platform/dbc/dbc_InputDatabase", __LINE__);
}

void dbc_InputDatabase::ReadDuringMove(unsigned typeId, std::function<rfm_Table()> rows) {
  movingTypeId = typeId;
  moving = std::move(rows);
}

std::unique_ptr<dbc_Table> dbc_InputDatabase::GetInputEntries(std::int64_t handle) const {
  return std::make_unique<dbc_EntryTable>(working, handle, nullptr);
}
