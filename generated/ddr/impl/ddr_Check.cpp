#include "ddr_Check.h"

#include "ddr_CheckNesting.h"
#include "ddr_Ddb.h"
#include "rfm_Database.h"
#include "rfm_Entries.h"
#include "rfm_Exception.h"
#include "rfm_File.h"
#include "rfm_ReadScope.h"
#include "rfm_Table.h"
#include "utl_Utf8.h"

#include <algorithm>
#include <map>
#include <optional>
#include <unordered_map>
#include <unordered_set>

namespace {

constexpr char const* restoreRemedy =
    "Restore the file from a backup, or save the database again from the application.";
constexpr char const* objectIsLost = "The object cannot be read.";
constexpr char const* handleField = "Target#Handle";
constexpr char const* baseField = "##BaseClassOID";
// What the reader of objects takes before it says that they hold each other in a circle.
constexpr int mostLevels = 1000;

using Place = ddr_CheckPlace;
constexpr Place wholeFile{};

/// What is wrong when an exception says so; the others say that the file cannot be looked at.
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

std::string fileText(cow_String const& fileName) {
  return "Database file '" + utl_Printable(fileName.View()) + "'";
}

/// One attribute of a class, and where its values are.
struct Field {
  explicit Field(rfm_AttributeEntry const& described)
      : attribute(described), plain(described.name), classId(Suffixed("#ClassID")), oid(Suffixed("#OID")) {}
  cow_String Suffixed(char const* suffix) const {
    return cow_String(std::string(attribute.name.View()).append(suffix));
  }
  bool IsReference() const { return attribute.kind == rfm_AttributeKind_Object; }

  rfm_AttributeEntry attribute;
  rfm_FieldHandle plain;   ///< of a plain value
  rfm_FieldHandle classId; ///< of a reference
  rfm_FieldHandle oid;     ///< of a reference
};

/// A class of the file.
struct Class {
  explicit Class(rfm_ClassEntry const& described) : entry(described) {
    for (rfm_AttributeEntry const& attribute : entry.attributes) {
      fields.emplace_back(attribute);
      isCollection |= attribute.kind == rfm_AttributeKind_Handle && attribute.name == cow_String(handleField);
    }
  }
  bool HasBase() const { return entry.baseTypeId != rfm_NoBaseTypeId; }

  rfm_ClassEntry entry;
  std::vector<Field> fields;
  bool isCollection = false; ///< whether its rows are the headers of collections
};

class Checker {
public:
  Checker(rfm_Database const& checked, ddr_CheckResult& checkResult)
      : database(checked), result(checkResult) {
    for (rfm_ClassEntry const& entry : database.Classes()) {
      classes.emplace(entry.typeId, Class(entry));
    }
  }

  /// The class list, the tables that it names, and that there is a record.
  void Outline() {
    for (auto const& [typeId, checked] : classes) {
      Try({typeId, -1}, "Its objects cannot be read.", [&, &described = checked] { CheckClass(described); });
    }
    if (RecordCount() == 0) {
      Add(wholeFile, "it holds no database record", "It cannot be opened.",
          "Save the database once from the application that created the file, or create it anew.");
    }
  }

  /// The last record, and the objects that it names itself.
  void LastRecord() {
    Place const record{ddr_Ddb::TypeId(), RecordCount() - 1};
    if (record.row < 0) {
      return;
    }
    CheckRow(record);
    for (ddr_CheckEdge const& edge : std::vector<ddr_CheckEdge>(edges)) {
      CheckRow(edge.held);
    }
    CheckNameAndTimes(record);
  }

  /// Everything.
  void AllRows() {
    Try(wholeFile, "Parts of it may be unreadable.", [&] {
      for (std::string const& fault : database.CheckPages()) {
        Add(wholeFile, "its pages are damaged: " + utl_Printable(fault), "Parts of it may be unreadable.",
            restoreRemedy);
      }
    });
    for (auto const& [typeId, checked] : classes) {
      Try({typeId, -1}, "Its objects cannot be read.", [&, &walked = checked] { CheckTable(walked); });
    }
    for (auto const& [handle, header] : headers) {
      Try(header, "The collection cannot be read.",
          [&, number = handle, &owner = header] { CheckEntries(owner, number); });
    }
    CheckEntriesWithoutHeader();
    CheckIdentities();
    CheckNesting();
    Place const record{ddr_Ddb::TypeId(), RecordCount() - 1};
    if (record.row >= 0) {
      CheckNameAndTimes(record);
    }
  }

private:
  Class const* Find(unsigned typeId) const {
    auto const found = classes.find(typeId);
    return found == classes.end() ? nullptr : &found->second;
  }

  std::string NameOf(unsigned typeId) const {
    Class const* const found = Find(typeId);
    return "class '" + (found ? utl_Printable(found->entry.name.View()) : std::to_string(typeId)) + "'";
  }
  /// "class 'ddr_Model', row 3"
  std::string Text(Place const& place) const {
    return NameOf(place.typeId) + (place.row < 0 ? "" : ", row " + std::to_string(place.row));
  }
  std::string Where(Place const& place) const {
    return fileText(database.FileName()) + (place.typeId == 0 ? "" : ", " + Text(place));
  }

  void Add(Place const& place, std::string what, std::string consequence, std::string remedy) {
    Add(Where(place), std::move(what), std::move(consequence), std::move(remedy));
  }
  void Add(std::string where, std::string what, std::string consequence, std::string remedy) {
    result.status = ddr_CheckStatus::Damaged;
    if (result.findings.size() == ddr_CheckResult::mostFindings) {
      result.moreFindings = true;
      return;
    }
    result.findings.push_back({std::move(where), std::move(what), std::move(consequence), std::move(remedy)});
  }

  /// Does a step. Damage that it meets is a finding; a file that cannot be looked at any more ends the check.
  template <class Step>
  void Try(Place const& place, char const* consequence, Step step) {
    try {
      step();
    } catch (rfm_Exception const& error) {
      if (statusOf(error.Kind()) == ddr_CheckStatus::CannotTell) {
        throw;
      }
      Add(error.Where(), error.What(), consequence, error.Advice() + ".");
    } catch (nex_Exception const& error) {
      Add(place, error.what(), consequence, restoreRemedy);
    }
  }

  /// How many records there are; 0 also when that cannot be told, which is a finding of the class's table.
  int RecordCount() {
    try {
      return Find(ddr_Ddb::TypeId()) == nullptr ? 0 : TableOf(ddr_Ddb::TypeId()).Length();
    } catch (rfm_Exception const& error) {
      if (statusOf(error.Kind()) == ddr_CheckStatus::CannotTell) {
        throw;
      }
      return 0;
    }
  }

  void CheckClass(Class const& described) {
    Place const place{described.entry.typeId, -1};
    if (described.HasBase() && IsA(described.entry.baseTypeId, described.entry.typeId)) {
      Add(place, "it is among its own base classes", "Its objects cannot be read.", restoreRemedy);
    }
    rfm_Table const table = database.Table(described.entry.typeId);
    if (table.Length() == 0) {
      return;
    }
    for (Field const& field : described.fields) {
      bool const isThere = field.IsReference() ? table.HasField(field.classId) && table.HasField(field.oid)
                                               : table.HasField(field.plain);
      if (!isThere) {
        Add(place, "its table has no column for '" + utl_Printable(field.attribute.name.View()) + "'",
            "The values read as empty.", restoreRemedy);
      }
    }
  }

  /// Whether objects of a class are objects of another one, by what the file says of its classes.
  bool IsA(unsigned typeId, unsigned wanted) const {
    for (std::size_t steps = 0; steps <= classes.size(); ++steps) { // a longer chain runs in a circle
      if (typeId == wanted) {
        return true;
      }
      Class const* const found = Find(typeId);
      if (found == nullptr || !found->HasBase()) {
        return false;
      }
      typeId = found->entry.baseTypeId;
    }
    return false;
  }

  /// Every row of a class.
  void CheckTable(Class const& walked) {
    rfm_Table table = database.Table(walked.entry.typeId);
    for (int row = NextRow(table, 0); row >= 0; row = NextRow(table, row + 1)) {
      Place const place{walked.entry.typeId, row};
      Try(place, objectIsLost, [&] {
        rfm_Row const& read = table.ReadRow(row);
        CheckValues(walked, read);
        if (std::optional<rfm_Uid> const uid = read.Uid()) {
          identities.emplace_back(*uid, place);
        }
      });
    }
  }

  /// Rows of one class may share an identity: versions of a record, and copies of an object. Objects of two
  /// classes never do.
  void CheckIdentities() {
    std::sort(identities.begin(), identities.end());
    for (std::size_t index = 1; index < identities.size(); ++index) {
      auto const& [uid, place] = identities[index];
      auto const& [uidBefore, placeBefore] = identities[index - 1];
      if (uid == uidBefore && place.typeId != placeBefore.typeId) {
        Add(place, "it has the identity of an object of another class, " + Text(placeBefore),
            "A save of one of the two may be taken for one of the other.", restoreRemedy);
      }
    }
  }

  static int NextRow(rfm_Table& table, int from) {
    table.Seek(from);
    return table.NextRow();
  }

  void CheckRow(Place const& place) {
    Class const* const found = Find(place.typeId);
    if (found != nullptr) {
      Try(place, objectIsLost, [&] { CheckValues(*found, TableOf(place.typeId).ReadRow(place.row)); });
    }
  }

  void CheckValues(Class const& read, rfm_Row const& row) {
    ++result.rowsChecked;
    Place const place{read.entry.typeId, row.RowNumber()};
    if (!row.Uid()) {
      Add(place, "it has no identity", "It cannot be rewritten in place.", "Save the database again.");
    }
    if (read.HasBase()) {
      Try(place, objectIsLost, [&] { CheckBase(place, read, row); });
    }
    for (Field const& field : read.fields) {
      Try(place, objectIsLost, [&] { CheckValue(place, row, field); });
    }
    if (read.isCollection) {
      CheckHeader(place, row);
    }
    if (place.typeId == dia_Message::TypeId()) {
      CheckMessage(place, row);
    }
  }

  void CheckBase(Place const& place, Class const& read, rfm_Row const& row) {
    if (row.FieldIsSet(baseField) && row.ReadFieldInt(baseField) >= 0) {
      CheckTarget(place, "its base part", {read.entry.baseTypeId, row.ReadFieldInt(baseField)});
    }
  }

  void CheckValue(Place const& place, rfm_Row const& row, Field const& field) {
    if (field.IsReference()) {
      CheckReference(place, row, field);
      return;
    }
    if (!row.FieldIsSet(field.plain)) {
      return; // reads as empty
    }
    switch (field.attribute.kind) {
    case rfm_AttributeKind_Integer:
      row.ReadFieldInt(field.plain);
      break;
    case rfm_AttributeKind_Real:
      row.ReadFieldDouble(field.plain);
      break;
    case rfm_AttributeKind_String:
      row.ReadFieldString(field.plain);
      break;
    case rfm_AttributeKind_Boolean:
      row.ReadFieldBool(field.plain);
      break;
    default:
      break; // kept as it is
    }
  }

  void CheckReference(Place const& place, rfm_Row const& row, Field const& field) {
    std::string const what = "the reference '" + utl_Printable(field.attribute.name.View()) + "'";
    if (row.FieldIsSet(field.classId) != row.FieldIsSet(field.oid)) {
      Add(place, what + " is only half set", "It reads as empty.", restoreRemedy);
      return;
    }
    if (!row.FieldIsSet(field.oid) || row.ReadFieldInt(field.oid) < 0) {
      return; // not set
    }
    Place const target{row.ReadFieldUnsigned(field.classId), row.ReadFieldInt(field.oid)};
    if (!CheckTarget(place, what, target)) {
      return;
    }
    bool const isRight = field.attribute.collection == 0
                             ? field.attribute.elementTypeId <= rfm_NoBaseTypeId ||
                                   IsA(target.typeId, field.attribute.elementTypeId)
                             : Find(target.typeId)->isCollection;
    if (!isRight) {
      Add(place, what + " leads to an object of the wrong class, " + Text(target),
          "What it leads to cannot be read.", restoreRemedy);
    } else if (field.attribute.collection != 0) {
      entryClasses.emplace(target, EntryClass(place.typeId, field.attribute));
    }
  }

  /// The class of the objects in a collection; 0 when any may be.
  unsigned EntryClass(unsigned ownerTypeId, rfm_AttributeEntry const& attribute) const {
    auto const is = [&](unsigned typeId, char const* name) {
      return ownerTypeId == typeId && attribute.name == cow_String(name);
    };
    if (is(ddr_Ddb::TypeId(), "results")) {
      return ddr_Result::TypeId();
    }
    if (is(ddr_Ddb::TypeId(), "userData")) {
      return ddr_UserData::TypeId();
    }
    if (is(ddr_Ddb::TypeId(), "diagnosticData")) {
      return dia_DiagnosticData::TypeId();
    }
    if (is(dia_DiagnosticData::TypeId(), "messages")) {
      return dia_Message::TypeId();
    }
    Class const* const element = Find(attribute.elementTypeId);
    return element == nullptr || element->isCollection ? 0 : attribute.elementTypeId;
  }

  /// Checks that there is an object, and notes who holds it.
  bool CheckTarget(Place const& holder, std::string const& what, Place const& target) {
    if (Find(target.typeId) == nullptr) {
      Add(holder, what + " names class " + std::to_string(target.typeId) + ", which the file does not list",
          "What it leads to cannot be read.", restoreRemedy);
      return false;
    }
    if (!TableOf(target.typeId).RowExists(target.row)) {
      Add(holder,
          what + " leads to row " + std::to_string(target.row) + " of " + NameOf(target.typeId) +
              ", which is not there",
          "What it leads to cannot be read.", restoreRemedy);
      return false;
    }
    edges.push_back({holder, target});
    return true;
  }

  /// The header of a collection.
  void CheckHeader(Place const& place, rfm_Row const& row) {
    if (!row.FieldIsSet(handleField)) {
      Add(place, "the collection has no entries of its own", "It cannot be read.", restoreRemedy);
      return;
    }
    Try(place, "The collection cannot be read.", [&] {
      auto const [owner, isFirst] = headers.emplace(row.ReadFieldHandle(handleField), place);
      if (!isFirst && owner->second != place) {
        Add(place, "it shares its entries with another collection (" + Text(owner->second) + ")",
            "A change of one changes the other.", restoreRemedy);
      }
    });
  }

  void CheckEntries(Place const& header, std::int64_t handle) {
    auto const expected = entryClasses.find(header);
    unsigned const entryClass = expected == entryClasses.end() ? 0 : expected->second;
    bool const isMap = header.typeId == cls_MapHeaderTypeId;
    std::unordered_set<std::string> keys;
    rfm_EntryCursor walk = database.Entries().Scan(handle);
    while (walk.Next()) {
      ++result.rowsChecked;
      std::string const entryText = isMap ? "the entry '" + utl_Printable(walk.Key()) + "'"
                                          : "the entry at place " + std::to_string(walk.Position());
      Place const target{walk.ClassId(), walk.Oid()};
      bool const isSet = target.typeId != 0 && target.row >= 0;
      bool const mustBeSet = isMap || entryClass != 0;
      bool const isNew = !isMap || keys.emplace(walk.Key()).second;
      if (!isNew) {
        Add(header, entryText + " is there twice", "Only one of the two can be reached.", restoreRemedy);
      }
      if (!isSet && mustBeSet) {
        Add(header, entryText + " leads to no object", "It cannot be read.", restoreRemedy);
      } else if (isSet && CheckTarget(header, entryText, target) && entryClass != 0 &&
                 !IsA(target.typeId, entryClass)) {
        Add(header, entryText + " leads to an object of the wrong class, " + Text(target),
            "It cannot be read.", restoreRemedy);
      }
    }
  }

  void CheckEntriesWithoutHeader() {
    Try(wholeFile, "Collections cannot be read.", [&] {
      for (std::int64_t const handle : database.EntryHandles()) {
        if (!headers.contains(handle)) {
          Add(wholeFile, "the entries of collection " + std::to_string(handle) + " belong to no collection",
              "What they lead to cannot be reached.", restoreRemedy);
        }
      }
    });
  }

  /// That no object holds itself, and none holds others deeper than a reader goes.
  void CheckNesting() {
    ddr_CheckNesting const nesting = ddr_checkNesting(edges, mostLevels, ddr_CheckResult::mostFindings);
    for (ddr_CheckEdge const& closing : nesting.circles) {
      Add(closing.holder, "it leads back to an object that holds it, " + Text(closing.held),
          "None of the objects in this circle can be read.", restoreRemedy);
    }
    if (nesting.tooDeep) {
      Add(*nesting.tooDeep, "it holds objects on more than " + std::to_string(mostLevels) + " levels",
          "The innermost ones cannot be read.", restoreRemedy);
    }
  }

  void CheckMessage(Place const& place, rfm_Row const& row) {
    std::optional<int> const severity = Number(row, "severity");
    if (severity && (*severity < static_cast<int>(dia_Severity::Information) ||
                     *severity > static_cast<int>(dia_Severity::Error))) {
      Add(place, "its severity " + std::to_string(*severity) + " is none that this release knows",
          "The database cannot be opened.", "Use the newer program that wrote it, or restore a backup.");
    }
  }

  /// A number, where there is one that can be read; others are a finding of their own.
  static std::optional<int> Number(rfm_Row const& row, char const* field) {
    try {
      return row.FieldIsSet(field) ? std::optional<int>(row.ReadFieldInt(field)) : std::nullopt;
    } catch (rfm_Exception const&) {
      return std::nullopt;
    }
  }

  /// Name and times of the last record.
  void CheckNameAndTimes(Place const& place) {
    try {
      rfm_Row const& row = TableOf(place.typeId).ReadRow(place.row);
      result.persistentName = row.FieldIsSet("name") ? row.ReadFieldString("name") : cow_String();
      if (result.persistentName.IsEmpty()) {
        Add(place, "it has no persistent name", "No shortcut can lead into the database.", restoreRemedy);
      }
      for (char const* const field : {"creationTime", "modifyTime"}) {
        std::optional<int> const time = Number(row, field);
        if (time && *time < 0) {
          Add(place, std::string("its ") + field + ", " + std::to_string(*time) + ", lies before 1970",
              "A wrong time is shown.", "Check the clock of the computer, then save the database again.");
        }
      }
      std::optional<int> const created = Number(row, "creationTime");
      std::int64_t const inHeader = database.CreationTime();
      if (created && inHeader != 0 && inHeader != *created) {
        Add(place,
            "its creationTime, " + std::to_string(*created) + ", is not that of the file's header, " +
                std::to_string(inHeader),
            "The file is taken for another one when it is opened a second time.", restoreRemedy);
      }
    } catch (rfm_Exception const& error) {
      if (statusOf(error.Kind()) == ddr_CheckStatus::CannotTell) {
        throw;
      } // otherwise it is a finding already
    }
  }

  rfm_Table& TableOf(unsigned typeId) {
    auto found = tables.find(typeId);
    if (found == tables.end()) {
      found = tables.emplace(typeId, database.Table(typeId)).first;
    }
    return found->second;
  }

  rfm_Database const& database;
  ddr_CheckResult& result;
  std::map<unsigned, Class> classes;
  std::map<unsigned, rfm_Table> tables;
  std::map<std::int64_t, Place> headers;  // which collection owns which entries
  std::map<Place, unsigned> entryClasses; // what a collection may hold, by its header
  std::vector<ddr_CheckEdge> edges;
  std::vector<std::pair<rfm_Uid, Place>> identities;
};

void look(cow_String const& fileName, ddr_CheckDepth depth, ddr_CheckResult& result) {
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
}

} // namespace

ddr_CheckResult ddr_check(cow_String const& fileName, ddr_CheckDepth depth) {
  ddr_CheckResult result;
  auto const add = [&result](ddr_CheckStatus status, ddr_Finding const& finding) {
    if (result.status == ddr_CheckStatus::Sound) { // damage that was found stays found
      result.status = status;
    }
    result.findings.push_back(finding);
  };
  try {
    look(fileName, depth, result);
  } catch (rfm_Exception const& error) {
    ddr_CheckStatus const status = statusOf(error.Kind());
    add(status, {error.Where(), error.What(),
                 status == ddr_CheckStatus::Damaged ? "It cannot be opened." : "It cannot be looked at.",
                 error.Advice() + "."});
  } catch (nex_Exception const& error) {
    add(ddr_CheckStatus::Damaged, {fileText(fileName), error.what(), "It cannot be opened.", restoreRemedy});
  }
  return result;
}
