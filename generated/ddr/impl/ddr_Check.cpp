#include "ddr_Check.h"

#include "ddr_Ddb.h"
#include "rfm_Database.h"
#include "rfm_Entries.h"
#include "rfm_Exception.h"
#include "rfm_File.h"
#include "rfm_ReadScope.h"
#include "rfm_Table.h"

#include <map>
#include <optional>
#include <unordered_set>

namespace {

constexpr char const* restoreRemedy =
    "Restore the file from a backup, or save the database again from the application.";
constexpr char const* handleField = "Target#Handle";

bool isCollectionHeader(rfm_ClassEntry const& entry) {
  for (rfm_AttributeEntry const& attribute : entry.attributes) {
    if (attribute.kind == rfm_AttributeKind_Handle && attribute.name == cow_String(handleField)) {
      return true;
    }
  }
  return false;
}

class Checker {
public:
  Checker(rfm_Database const& checked, ddr_CheckResult& checkResult)
      : database(checked), result(checkResult),
        file("file '" + std::string(checked.FileName().View()) + "'") {}

  /// The class list, the tables that it names, and that there is a record.
  void Outline() {
    for (rfm_ClassEntry const& entry : database.Classes()) {
      Try(Where(entry), "its objects cannot be read", [&] { database.Table(entry.typeId).Length(); });
    }
    int const records = RecordCount();
    if (records == 0) {
      Add(file, "it holds no database record", "it cannot be opened",
          "Save the database once from the application that created the file, or create it anew.");
    }
  }

  /// The last record and what it refers to.
  void LastRecord() {
    int const records = RecordCount();
    if (records > 0) {
      CheckRow(*database.FindClass(ddr_Ddb::TypeId()), records - 1);
    }
  }

  /// Everything.
  void AllRows() {
    for (std::string const& fault : database.CheckPages()) {
      Add(file, "its pages are damaged: " + fault, "parts of it may be unreadable", restoreRemedy);
    }
    for (rfm_ClassEntry const& entry : database.Classes()) {
      Try(Where(entry), "its objects cannot be read", [&] {
        rfm_Table table = database.Table(entry.typeId);
        table.Seek(0);
        for (int row = 0; table.RowExists(-1); row = table.Row().RowNumber() + 1) {
          Try(Where(entry, row), "the object cannot be read", [&] { table.ReadRow(-1); });
          if (table.Row().RowNumber() < row) {
            table.Seek(row + 1); // the row could not be read
            continue;
          }
          Try(Where(entry, table.Row().RowNumber()), "the object cannot be read",
              [&] { CheckValues(entry, table); });
        }
      });
    }
    for (std::int64_t handle : database.EntryHandles()) {
      if (!headers.contains(handle)) {
        Add(file, "the entries of collection " + std::to_string(handle) + " belong to no collection",
            "they are not used", "None needed; the entries only take room.");
      }
    }
  }

private:
  std::string Where(rfm_ClassEntry const& entry) const {
    return file + ", class '" + entry.name.Text() + "'";
  }
  std::string Where(rfm_ClassEntry const& entry, int row) const {
    return Where(entry) + ", row " + std::to_string(row);
  }

  void Add(std::string where, std::string what, std::string consequence, std::string remedy) {
    result.status = ddr_CheckStatus::Damaged;
    if (result.findings.size() == ddr_CheckResult::mostFindings) {
      result.moreFindings = true;
      return;
    }
    result.findings.push_back({std::move(where), std::move(what), std::move(consequence), std::move(remedy)});
  }

  template <class Step>
  void Try(std::string const& where, char const* consequence, Step step) {
    try {
      step();
    } catch (nex_Exception const& error) {
      Add(where, error.what(), consequence, restoreRemedy);
    }
  }

  int RecordCount() {
    int count = -1;
    if (database.FindClass(ddr_Ddb::TypeId()) == nullptr) {
      return 0;
    }
    Try(file, "it cannot be opened", [&] { count = database.Table(ddr_Ddb::TypeId()).Length(); });
    return count;
  }

  void CheckRow(rfm_ClassEntry const& entry, int row) {
    Try(Where(entry, row), "the object cannot be read", [&] {
      rfm_Table table = database.Table(entry.typeId);
      table.ReadRow(row);
      CheckValues(entry, table);
    });
  }

  /// Checks the row in the table's buffer.
  void CheckValues(rfm_ClassEntry const& entry, rfm_Table& table) {
    ++result.rowsChecked;
    rfm_Row const& row = std::as_const(table).Row();
    std::string const where = Where(entry, row.RowNumber());
    if (!row.Uid()) {
      Add(where, "it has no identity", "it cannot be rewritten in place", "Save the database again.");
    }
    for (rfm_AttributeEntry const& attribute : entry.attributes) {
      Try(where, "the object cannot be read", [&] { CheckValue(where, row, attribute); });
    }
    if (isCollectionHeader(entry)) {
      CheckCollection(where, entry, row);
    }
  }

  void CheckValue(std::string const& where, rfm_Row const& row, rfm_AttributeEntry const& attribute) {
    rfm_FieldHandle const field(attribute.name);
    switch (attribute.kind) {
    case rfm_AttributeKind_Object:
      CheckReference(where, row, attribute.name);
      break;
    case rfm_AttributeKind_Integer:
      row.ReadFieldInt(field);
      break;
    case rfm_AttributeKind_Real:
      row.ReadFieldDouble(field);
      break;
    case rfm_AttributeKind_String:
      row.ReadFieldString(field);
      break;
    case rfm_AttributeKind_Boolean:
      row.ReadFieldBool(field);
      break;
    default:
      break;
    }
  }

  void CheckReference(std::string const& where, rfm_Row const& row, cow_String const& name) {
    std::string const attribute(name.View());
    rfm_FieldHandle const classField((attribute + "#ClassID").c_str());
    rfm_FieldHandle const rowField((attribute + "#OID").c_str());
    bool const hasClass = row.FieldIsSet(classField);
    bool const hasRow = row.FieldIsSet(rowField);
    if (hasClass != hasRow) {
      Add(where, "the reference '" + attribute + "' is only half set", "it reads as empty", restoreRemedy);
    } else if (hasClass && row.ReadFieldInt(rowField) >= 0) {
      CheckTarget(where, "the reference '" + attribute + "'", row.ReadFieldUnsigned(classField),
                  row.ReadFieldInt(rowField));
    }
  }

  void CheckTarget(std::string const& where, std::string const& what, unsigned classId, int row) {
    rfm_ClassEntry const* target = database.FindClass(classId);
    if (target == nullptr) {
      Add(where, what + " names a class that the file does not list", "what it leads to cannot be read",
          restoreRemedy);
    } else if (!TableOf(classId).RowExists(row)) {
      Add(where,
          what + " leads to row " + std::to_string(row) + " of class '" + target->name.Text() +
              "', which is not there",
          "what it leads to cannot be read", restoreRemedy);
    }
  }

  void CheckCollection(std::string const& where, rfm_ClassEntry const& entry, rfm_Row const& row) {
    rfm_FieldHandle const field(handleField);
    if (!row.FieldIsSet(field)) {
      Add(where, "the collection has no entries of its own", "it cannot be read", restoreRemedy);
      return;
    }
    std::int64_t const handle = row.ReadFieldHandle(field);
    auto const [owner, isFirst] = headers.emplace(handle, where);
    if (!isFirst && owner->second != where) {
      Add(where, "it shares its entries with another collection (" + owner->second + ")",
          "a change of one changes the other", restoreRemedy);
    }
    bool const isMap = entry.typeId == cls_MapHeaderTypeId;
    std::unordered_set<std::string> keys;
    Try(where, "the collection cannot be read", [&] {
      rfm_EntryCursor walk = database.Entries().Scan(handle);
      while (walk.Next()) {
        ++result.rowsChecked;
        std::string const entryText = "the entry '" + std::string(walk.Key()) + "'";
        if (walk.ClassId() != 0 && walk.Oid() >= 0) {
          CheckTarget(where, entryText, walk.ClassId(), walk.Oid());
        } else if (isMap) {
          Add(where, entryText + " leads to no object", "it cannot be read", restoreRemedy);
        }
        if (isMap && !keys.emplace(walk.Key()).second) {
          Add(where, entryText + " is there twice", "only one of them can be reached", restoreRemedy);
        }
      }
    });
  }

  rfm_Table& TableOf(unsigned classId) {
    auto found = tables.find(classId);
    if (found == tables.end()) {
      found = tables.emplace(classId, database.Table(classId)).first;
    }
    return found->second;
  }

  rfm_Database const& database;
  ddr_CheckResult& result;
  std::string file;
  std::map<std::int64_t, std::string> headers; // which collection owns which entries
  std::map<unsigned, rfm_Table> tables;
};

ddr_CheckStatus statusOf(rfm_ErrorKind kind) {
  switch (kind) {
  case rfm_ErrorKind::Damaged:
  case rfm_ErrorKind::NotADatabase:
  case rfm_ErrorKind::Empty:
    return ddr_CheckStatus::Damaged;
  default:
    return ddr_CheckStatus::CannotTell;
  }
}

} // namespace

ddr_CheckResult ddr_check(cow_String const& fileName, ddr_CheckDepth depth) {
  ddr_CheckResult result;
  try {
    rfm_File const file = rfm_File::Open(fileName, utl_FileAccess::Read, true);
    rfm_Database database = rfm_Database::Open(file, "D0");
    rfm_ReadScope const scope(database);
    database.Bind();
    Checker checker(database, result);
    checker.Outline();
    if (depth == ddr_CheckDepth::Deep) {
      checker.AllRows();
    } else {
      checker.LastRecord();
    }
  } catch (rfm_Exception const& error) {
    result.status = statusOf(error.Kind());
    result.findings.push_back(
        {"file '" + std::string(fileName.View()) + "'", error.what(), "it cannot be used", ""});
  } catch (nex_Exception const& error) {
    result.status = ddr_CheckStatus::Damaged;
    result.findings.push_back(
        {"file '" + std::string(fileName.View()) + "'", error.what(), "it cannot be used", restoreRemedy});
  }
  return result;
}
