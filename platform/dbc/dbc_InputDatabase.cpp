#include "dbc_InputDatabase.h"

#include "dbc_Schedule.h"
#include "dbc_Tables.h"

dbc_InputDatabase::dbc_InputDatabase(rfm_Database const& oldFile, rfm_Database const& newFile)
    : source(oldFile), working(newFile) {}

bool dbc_InputDatabase::HasInputTable(unsigned typeId) const {
  return source.FindClass(typeId) || working.FindClass(typeId);
}

std::unique_ptr<dbc_Table> dbc_InputDatabase::GetInputTable(unsigned typeId) const {
  if (!HasInputTable(typeId)) {
    dbc_throwNoClass(source, typeId);
  }
  bool const inSource = source.FindClass(typeId) && moved.count(typeId) == 0;
  return std::make_unique<dbc_ReadTable>((inSource ? source : working).Table(typeId), inSource);
}

std::unique_ptr<dbc_Table> dbc_InputDatabase::GetInputEntries(std::int64_t handle) const {
  return std::make_unique<dbc_EntryTable>(working, handle, nullptr);
}
