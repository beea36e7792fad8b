#include "rom_ODBHeaderParser.h"

#include "rfm_Row.h"

rom_ODBHeaderParser::rom_ODBHeaderParser(rfm_Database const& opened) : database(opened) {
  database.Bind();
}

rfm_Table rom_ODBHeaderParser::ClassList() const {
  return database.ClassList();
}

rfm_Table rom_ODBHeaderParser::ClassTable(rfm_Row const& classListRow) const {
  return database.TableOfHandle(classListRow.ReadFieldHandle("Class Table"));
}

rom_ODBHeaderParser::UpToDateStatus
rom_ODBHeaderParser::GetUpToDateStatus(cls_ClassRegistrar const& registrar,
                                       cow_String* firstDifferent) const {
  UpToDateStatus status = UpToDate;
  for (rfm_ClassEntry const& stored : database.Classes()) {
    cls_ClassMetadata const* known = registrar.Find(stored.typeId);
    UpToDateStatus of = UpToDate;
    if (known == nullptr || stored.version > known->Version()) {
      of = NewerOrUnknown;
    } else if (stored.version < known->Version()) {
      of = Older;
    }
    if (of > status) {
      status = of;
      if (firstDifferent != nullptr) {
        *firstDifferent = stored.name;
      }
    }
  }
  return status;
}

rfm_Table rom_UtlDatabase::GetTable(unsigned typeId) const {
  return database.Table(typeId);
}
