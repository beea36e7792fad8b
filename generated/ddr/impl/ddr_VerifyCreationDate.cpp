// Whether an open file is still the file that was opened.
#include "ddr_Root.h"

#include "rfm_Database.h"
#include "rfm_Table.h"
#include "rom_ODBHeaderParser.h"

namespace {

/// The creation time of the last saved record, for files whose header has none; 0 when it cannot be read.
std::int64_t creationTimeOfLastRecord(rfm_File const& file) noexcept {
  std::int64_t time = 0;
  try {
    rfm_Database database = rfm_Database::Open(file, "D0");
    database.Bind();
    rom_ODBHeaderParser const parser(database);
    rfm_Table classes = parser.ClassList();
    classes.Seek(0);
    while (classes.RowExists(-1)) {
      rfm_Row const& entry = classes.ReadRow(-1);
      if (entry.ReadFieldString("Class Name") != cow_String("ddr_Ddb")) {
        continue;
      }
      rfm_Table records = parser.ClassTable(entry);
      records.Seek(0);
      while (records.RowExists(-1)) {
        time = records.ReadRow(-1).ReadFieldInt("creationTime");
      }
      break;
    }
  } catch (...) {
    // What was read so far is the answer: a file that cannot be read does not match.
  }
  return time;
}

std::int64_t creationTimeOf(rfm_File const& file) {
  std::int64_t const inHeader = rfm_Database::GetCreationTime(file);
  return inHeader != 0 ? inHeader : creationTimeOfLastRecord(file);
}

} // namespace

bool ddr_Root::VerifyCreationDate(rfm_File const& file) const {
  ddr_Ddb const& record = databases.ConstGet(GetPersistentName(file.FileName()));
  return record.GetCreationTime() == static_cast<int>(creationTimeOf(file));
}
