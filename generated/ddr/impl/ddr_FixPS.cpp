#include "ddr_FixPS.h"

#include "ddr_Ddb.h"
#include "ddr_Shortcut.h"
#include "rfm_Row.h"
#include "rfm_Transaction.h"

#include <limits>
#include <vector>

namespace {

rfm_FieldHandle const nameField("name");

/// Gives rows the name, from the first on and before `end`. All of them are read before any is written: what
/// they take is measured on the way, and what a save has written would count as room for more.
void rename(rfm_Table& table, int end, cow_String const& name) {
  std::vector<int> rows;
  table.Seek(0);
  for (int row = table.NextRow(); row >= 0 && row < end; row = table.NextRow()) {
    table.ReadRow(-1);
    rows.push_back(row);
  }
  for (int const row : rows) {
    table.ReadRow(row);
    table.Row().WriteFieldString(nameField, name);
    table.UpdateRow(row);
  }
}

} // namespace

void ddr_FixPS::FixPersistentString(rom_UtlDatabase& database) {
  rfm_Table records = database.GetTable(ddr_Ddb::TypeId());
  if (records.Length() == 0) {
    return;
  }
  rfm_Transaction transaction(database.Database());
  int const last = records.Length() - 1; // asked again, now that nobody else can save
  cow_String const newest = records.ReadRow(last).ReadFieldString(nameField);
  rename(records, last, newest);
  rfm_Table shortcuts = database.GetTable(ddr_DdbShortcutImpl::TypeId());
  rename(shortcuts, std::numeric_limits<int>::max(), newest);
  transaction.Commit();
}
