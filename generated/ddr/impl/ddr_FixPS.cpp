#include "ddr_FixPS.h"

#include "ddr_Ddb.h"
#include "ddr_Shortcut.h"
#include "rfm_Row.h"
#include "rfm_Transaction.h"

void ddr_FixPS::FixPersistentString(rom_UtlDatabase& database) {
  rfm_FieldHandle const nameField("name");
  rfm_Table records = database.GetTable(ddr_Ddb::TypeId());
  if (records.Length() == 0) {
    return;
  }
  rfm_Transaction transaction(database.Database());
  int const last = records.Length() - 1; // asked again, now that nobody else can save
  cow_String const newest = records.ReadRow(last).ReadFieldString(nameField);
  for (int row = 0; row < last; ++row) {
    if (records.RowExists(row)) {
      records.ReadRow(row);
      records.Row().WriteFieldString(nameField, newest);
      records.UpdateRow(row);
    }
  }
  rfm_Table shortcuts = database.GetTable(ddr_DdbShortcutImpl::TypeId());
  shortcuts.Seek(0);
  while (shortcuts.RowExists(-1)) {
    shortcuts.ReadRow(-1);
    shortcuts.Row().WriteFieldString(nameField, newest);
    shortcuts.UpdateRow(-1);
  }
  transaction.Commit();
}
