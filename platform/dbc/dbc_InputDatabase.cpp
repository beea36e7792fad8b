#include "dbc_InputDatabase.h"

#include "dbc_Schedule.h"
#include "dbc_Tables.h"

#include <algorithm>
#include <utility>

namespace {

bool hasAttribute(rfm_ClassEntry const& listed, std::string_view wanted) {
  return std::any_of(listed.attributes.begin(), listed.attributes.end(),
                     [&](rfm_AttributeEntry const& attribute) { return attribute.name.View() == wanted; });
}

} // namespace

dbc_InputDatabase::dbc_InputDatabase(rfm_Database const& oldFile, rfm_Database const& newFile)
    : source(oldFile), working(newFile) {}

bool dbc_InputDatabase::HasInputTable(unsigned typeId) const {
  return source.FindClass(typeId) || working.FindClass(typeId);
}

bool dbc_InputDatabase::HasAttribute(unsigned typeId, std::string_view attribute) const {
  rfm_ClassEntry const* const listed = working.FindClass(typeId);
  return listed && hasAttribute(*listed, attribute);
}

bool dbc_InputDatabase::HasAttribute(std::string_view attribute) const {
  return std::any_of(working.Classes().begin(), working.Classes().end(),
                     [&](rfm_ClassEntry const& listed) { return hasAttribute(listed, attribute); });
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

void dbc_InputDatabase::ReadDuringMove(unsigned typeId, std::function<rfm_Table()> rows) {
  movingTypeId = typeId;
  moving = std::move(rows);
}

std::unique_ptr<dbc_Table> dbc_InputDatabase::GetInputEntries(std::int64_t handle) const {
  return std::make_unique<dbc_EntryTable>(working, handle, nullptr);
}
