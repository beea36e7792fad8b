#include "ddr_Check.h"

#include "cls_ClassRegistrar.h"
#include "ddr_Catalogue.h"
#include "ddr_CheckNesting.h"
#include "ddr_Ddb.h"
#include "rfm_BaseClasses.h"
#include "rfm_Check.h"
#include "rfm_Database.h"
#include "rfm_Entries.h"
#include "rfm_Exception.h"
#include "rfm_File.h"
#include "rfm_ReadScope.h"
#include "rfm_Rebuild.h"
#include "rfm_Table.h"
#include "utl_Utf8.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <unordered_set>

namespace {

constexpr char const* restoreRemedy =
    "Restore the file from a backup, or save the database again from the application.";
constexpr char const* newerRemedy = "Use the newer program that wrote it, or restore a backup.";
constexpr char const* objectIsLost = "The object cannot be read.";
constexpr char const* handleField = "Target#Handle";
constexpr char const* baseField = "##BaseClassOID";
constexpr char const* addOnsField = "productAddOns";
// What the reader of objects takes before it says that they hold each other in a circle.
constexpr int mostLevels = 1000;
// A check reads each row and each entry once or twice. It may take this much, and so often what the file
// holds [byte]: the smallest row counts five times its size.
constexpr std::uint64_t smallestReading = 4U * 1024U * 1024U;
constexpr std::uint64_t mostReadings = 16;

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

/// Adds a finding unless it is there already. Damage that was found stays found.
void note(ddr_CheckResult& result, ddr_CheckStatus status, ddr_Finding finding) {
  if (result.status == ddr_CheckStatus::Sound && !finding.isWarning) {
    result.status = status;
  }
  bool const isKnown =
      std::any_of(result.findings.begin(), result.findings.end(), [&finding](ddr_Finding const& known) {
        return known.where == finding.where && known.what == finding.what;
      });
  if (isKnown) {
    return;
  }
  if (result.findings.size() >= ddr_CheckResult::mostFindings) {
    result.moreFindings = true;
    return;
  }
  result.findings.push_back(std::move(finding));
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

/// What a collection holds, as those say that refer to it.
struct Use {
  unsigned entryClass = 0; ///< class of the objects in it; 0 when any may be
  bool isAddOns = false;   ///< whether its texts are names of add-on products

  friend auto operator<=>(Use const&, Use const&) = default;
};

/// The classes that this release writes.
cls_ClassRegistrar knownClasses() {
  cls_ClassRegistrar known;
  for (ddr_ClassRoutine const routine : ddr_classRoutines()) {
    routine(known);
  }
  dia_registerClasses(known);
  return known;
}

bool isAddOn(std::string_view text) {
  omu_PrimEnumEntry const* entry = ddr_ProductAddOn::EnumTable();
  while (entry->text != nullptr && text != entry->text) {
    ++entry;
  }
  return entry->text != nullptr;
}

class Checker {
public:
  Checker(rfm_Database const& checked, ddr_CheckResult& checkResult)
      : database(checked), result(checkResult) {
    std::vector<std::pair<unsigned, unsigned>> derivations;
    for (rfm_ClassEntry const& entry : database.Classes()) {
      classes.emplace(entry.typeId, Class(entry));
      derivations.emplace_back(entry.typeId, entry.baseTypeId);
    }
    bases = rfm_BaseClasses(derivations);
  }

  /// The class list, the tables that it names, and that there is a record.
  void Outline() {
    for (auto const& [typeId, checked] : classes) {
      Try({typeId, -1}, "Its objects cannot be read.", [&, &described = checked] { CheckClass(described); });
    }
    if (RecordCount() > 0) {
      return;
    }
    if (HoldsRows()) { // every save writes a record, so there was one
      Add(wholeFile, "its database records cannot be found", "It cannot be opened.", restoreRemedy);
    } else {
      Add(wholeFile, "it holds no database record", "It cannot be opened.",
          "Save the database once from the application that created the file, or create it anew.");
    }
  }

  /// The last record, and all that opening it reads: not the models, they are read when they are asked for.
  void LastRecord() {
    Place const record{ddr_Ddb::TypeId(), RecordCount() - 1};
    if (record.row < 0) {
      return;
    }
    CheckRow(record);
    CheckRecord(record);
    std::set<Place> seen{record};
    for (std::size_t index = 0; index < edges.size() && IsWithinMeasure();
         ++index) { // what is checked adds more
      auto const [holder, held] = edges[index];
      if (IsReadWithItsHolder(holder) && seen.insert(held).second) {
        CheckRow(held);
        CheckEntriesUnlessModels(held);
      }
    }
  }

  /// Everything.
  void AllRows() {
    Try(wholeFile, "Parts of it may be unreadable.", [&] {
      for (std::string const& fault : database.CheckPages()) {
        Add(wholeFile, "its pages are damaged: " + utl_PrintableStart(fault),
            "Parts of it may be unreadable.", restoreRemedy);
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
    CheckNextHandle();
    CheckIdentities();
    CheckNesting();
    CheckIndexes();
    CheckFurtherThings();
    Place const record{ddr_Ddb::TypeId(), RecordCount() - 1};
    if (record.row >= 0) {
      CheckRecord(record);
    }
  }

private:
  Class const* Find(unsigned typeId) const {
    auto const found = classes.find(typeId);
    return found == classes.end() ? nullptr : &found->second;
  }

  /// @param typeId of a class in the file
  std::string NameOf(unsigned typeId) const {
    return "class '" + utl_PrintableStart(classes.at(typeId).entry.name.View()) + "'";
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
    note(result, ddr_CheckStatus::Damaged,
         {std::move(where), std::move(what), std::move(consequence), std::move(remedy)});
  }
  /// Adds what the user should know of a file that is sound.
  void Warn(Place const& place, std::string what, std::string consequence, std::string remedy) {
    note(result, ddr_CheckStatus::Damaged,
         {Where(place), std::move(what), std::move(consequence), std::move(remedy), true});
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

  /// Whether what was read is no more than the file can hold; it is a finding otherwise.
  bool IsWithinMeasure() {
    std::uint64_t const taken = database.File().Statistics().bytesRead;
    if (taken <= allowed) {
      return true;
    }
    allowed = smallestReading + mostReadings * database.File().Size();
    if (taken > allowed) {
      Add(wholeFile, "checking it takes more than the file holds, so many rows lead to the same pages",
          "The rest of it was not checked.", restoreRemedy);
    }
    return taken <= allowed;
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

  /// Whether any class has rows; also when that cannot be told.
  bool HoldsRows() {
    return std::any_of(classes.begin(), classes.end(), [this](auto const& listed) {
      try {
        return TableOf(listed.first).Length() > 0;
      } catch (rfm_Exception const&) {
        return true; // it is a finding already
      }
    });
  }

  void CheckClass(Class const& described) {
    Place const place{described.entry.typeId, -1};
    CheckDescription(place, described.entry);
    if (described.HasBase() && bases.IsA(described.entry.baseTypeId, described.entry.typeId)) {
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
        Add(place, "its table has no column for '" + utl_PrintableStart(field.attribute.name.View()) + "'",
            "The values read as empty.", restoreRemedy);
      }
    }
  }

  /// Compares a class of ours with what this release writes.
  void CheckDescription(Place const& place, rfm_ClassEntry const& entry) {
    cls_ClassMetadata const* const ours = known.Find(entry.typeId);
    if (ours == nullptr ||
        entry.version < ours->Version()) { // an older layout is converted before it is read
      return;
    }
    if (entry.version > ours->Version()) {
      Warn(place,
           "its version, " + std::to_string(entry.version) + ", is newer than this release knows, " +
               std::to_string(ours->Version()),
           "This release cannot read its objects.", newerRemedy);
      return;
    }
    if (entry.baseTypeId != ours->BaseTypeId()) {
      Add(place,
          "its base class, " + std::to_string(entry.baseTypeId) + ", is not that of version " +
              std::to_string(entry.version),
          "Its objects cannot be read.", restoreRemedy);
    }
    for (cls_AttributeMetadata const& attribute : ours->Attributes()) {
      rfm_AttributeEntry const wanted{attribute.name, static_cast<int>(attribute.kind),
                                      attribute.elementTypeId, static_cast<int>(attribute.collection)};
      if (std::find(entry.attributes.begin(), entry.attributes.end(), wanted) == entry.attributes.end()) {
        Add(place,
            "its attribute '" + utl_PrintableStart(attribute.name.View()) +
                "' is missing in the class list or differs from version " + std::to_string(entry.version),
            "The database cannot be opened.", restoreRemedy);
      }
    }
  }

  /// Every row of a class.
  void CheckTable(Class const& walked) {
    rfm_Table table = database.Table(walked.entry.typeId);
    for (int row = NextRow(table, 0); row >= 0 && IsWithinMeasure(); row = NextRow(table, row + 1)) {
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

  void CheckIndexes() {
    Try(wholeFile, "Look-ups may take longer.", [&] {
      for (rfm_MissingIndex const& missing : database.MissingIndexes()) {
        Warn({missing.typeId, -1},
             missing.typeId == 0 ? "its index of the names of entries is missing"
                                 : "its index of identities is missing",
             missing.typeId == 0 ? "Finding an object by its name takes longer." : "Saves take longer.",
             "Make it anew with an SQLite tool: " + utl_Printable(missing.remedy) + ".");
      }
    });
  }

  /// Views and triggers are never run. Tables of others are nobody's business but theirs.
  void CheckFurtherThings() {
    Try(wholeFile, "Parts of it may be unreadable.", [&] {
      for (std::string const& thing : rfm_Rebuild::FurtherThings(database)) {
        Warn(wholeFile, "it holds " + thing + ", which no database has from this application",
             "It is never run, and an upgrade leaves it out.",
             "Nothing needs to be done, unless you do not know who has put it there.");
      }
    });
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

  /// @param place a row of a class in the file
  void CheckRow(Place const& place) {
    Try(place, objectIsLost,
        [&] { CheckValues(classes.at(place.typeId), TableOf(place.typeId).ReadRow(place.row)); });
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
      CheckTarget(place, [] { return std::string("its base part"); },
                  {read.entry.baseTypeId, row.ReadFieldInt(baseField)});
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
    auto const what = [&field] {
      return "the reference '" + utl_PrintableStart(field.attribute.name.View()) + "'";
    };
    if (row.FieldIsSet(field.classId) != row.FieldIsSet(field.oid)) {
      Add(place, what() + " is only half set",
          row.FieldIsSet(field.oid) ? "What it leads to cannot be read." : "It reads as empty.",
          restoreRemedy);
      return;
    }
    if (IsUnset(row, field)) {
      return;
    }
    Place const target{row.ReadFieldUnsigned(field.classId), row.ReadFieldInt(field.oid)};
    if (!CheckTarget(place, what, target)) {
      return;
    }
    bool const isRight = field.attribute.collection == 0
                             ? field.attribute.elementTypeId <= rfm_NoBaseTypeId ||
                                   bases.IsA(target.typeId, field.attribute.elementTypeId)
                             : IsHeaderFor(field.attribute, *Find(target.typeId));
    if (!isRight) {
      Add(place, what() + " leads to an object of the wrong class, " + Text(target),
          "What it leads to cannot be read.", restoreRemedy);
    } else if (field.attribute.collection != 0) {
      NoteUse(place, what, target,
              {EntryClass(place.typeId, field.attribute),
               place.typeId == ddr_Ddb::TypeId() && field.attribute.name == cow_String(addOnsField)});
    }
  }

  /// Whether a reference says that there is nothing. It is unset, or names row -1.
  static bool IsUnset(rfm_Row const& row, Field const& field) {
    return !row.FieldIsSet(field.oid) || row.ReadFieldInt(field.oid) == -1;
  }

  /// Whether the rows of a class are headers of the kind of collection that an attribute is.
  bool IsHeaderFor(rfm_AttributeEntry const& attribute, Class const& header) const {
    Class const* const element = Find(attribute.elementTypeId);
    if (element != nullptr && element->isCollection) {
      return header.entry.typeId == attribute.elementTypeId;
    }
    bool const wantsMap = attribute.collection == static_cast<int>(cls_CollectionType::StringMap);
    return header.isCollection && wantsMap == (header.entry.typeId == cls_MapHeaderTypeId);
  }

  /// Notes what a collection is used for. Two uses do not go together, not even while it is empty.
  template <class Description>
  void NoteUse(Place const& holder, Description const& what, Place const& header, Use const& use) {
    std::set<Use>& found = uses[header];
    if (found.insert(use).second && found.size() > 1) {
      Add(holder, what() + " leads to a collection that serves another purpose, " + Text(header),
          "What one of the two puts into it, the other cannot read.", restoreRemedy);
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
  /// @param what gives the words for what leads there; asked only when they are needed
  template <class Description>
  bool CheckTarget(Place const& holder, Description const& what, Place const& target) {
    if (Find(target.typeId) == nullptr) {
      Add(holder, what() + " names class " + std::to_string(target.typeId) + ", which the file does not list",
          "What it leads to cannot be read.", restoreRemedy);
      return false;
    }
    if (!TableOf(target.typeId).RowExists(target.row)) {
      Add(holder,
          what() + " leads to row " + std::to_string(target.row) + " of " + NameOf(target.typeId) +
              ", which is not there",
          "What it leads to cannot be read.", restoreRemedy);
      return false;
    }
    edges.push_back({holder, target});
    return true;
  }

  /// The header of a collection. No header is checked twice.
  void CheckHeader(Place const& place, rfm_Row const& row) {
    if (!row.FieldIsSet(handleField)) {
      Add(place, "the collection has no entries of its own", "It cannot be read.", restoreRemedy);
      return;
    }
    Try(place, "The collection cannot be read.", [&] {
      std::int64_t const handle = row.ReadFieldHandle(handleField);
      auto const [owner, isFirst] = headers.emplace(handle, place);
      if (isFirst) {
        handles.emplace(place, handle);
      } else {
        Add(place, "it shares its entries with another collection (" + Text(owner->second) + ")",
            "A change of one changes the other.", restoreRemedy);
      }
    });
  }

  void CheckEntries(Place const& header, std::int64_t handle) {
    std::set<Use> const& expected = uses[header];
    bool const isTyped =
        std::any_of(expected.begin(), expected.end(), [](Use const& use) { return use.entryClass != 0; });
    bool const isAddOns =
        std::any_of(expected.begin(), expected.end(), [](Use const& use) { return use.isAddOns; });
    bool const isMap = header.typeId == cls_MapHeaderTypeId;
    std::unordered_set<std::string> keys;
    std::set<Place> targets;
    std::map<unsigned, bool> rightClasses; // as of the targets before
    auto const isRight = [&](unsigned typeId) {
      auto const [answer, isNew] = rightClasses.emplace(typeId, false);
      if (isNew) {
        answer->second = IsOfAll(expected, typeId);
      }
      return answer->second;
    };
    rfm_EntryCursor walk = database.Entries().Scan(handle);
    while (IsWithinMeasure() && walk.Next()) {
      ++result.rowsChecked;
      auto const entryText = [&walk, isMap] {
        return isMap ? "the entry '" + utl_PrintableStart(walk.Key()) + "'"
                     : "the entry at place " + std::to_string(walk.Position());
      };
      Place const target{walk.ClassId(), walk.Oid()};
      bool const isSet = target.typeId != 0 && target.row >= 0;
      bool const mustBeSet = isMap || isTyped;
      bool const isNew = !isMap || keys.emplace(walk.Key()).second;
      if (!isNew) {
        Add(header, entryText() + " is there twice", "Only one of the two can be reached.", restoreRemedy);
      }
      if (isMap && isTyped && isSet && !targets.insert(target).second) {
        Add(header, entryText() + " leads to the object of another entry, " + Text(target),
            "A change of one changes the other.", restoreRemedy);
      }
      if (isMap && walk.Key().empty()) {
        CheckNameless(header, handle, walk.Position());
      }
      if (isAddOns && !isAddOn(walk.Key())) {
        Add(header,
            entryText() + ", '" + utl_PrintableStart(walk.Key()) + "', is no add-on product of this release",
            "The database cannot be opened.", newerRemedy);
      }
      if (!isSet && mustBeSet) {
        Add(header, entryText() + " leads to no object", "It cannot be read.", restoreRemedy);
      } else if (isSet && CheckTarget(header, entryText, target) && !isRight(target.typeId)) {
        Add(header, entryText() + " leads to an object of the wrong class, " + Text(target),
            "It cannot be read.", restoreRemedy);
      }
    }
  }

  /// An entry whose name is the empty text can be reached. One that has no name cannot.
  void CheckNameless(Place const& header, std::int64_t handle, int position) {
    std::string const what = "the entry at place " + std::to_string(position) + " has no name";
    if (database.Entries().Find(handle, "")) {
      Warn(header, what, "It is hard to reach: few programs take an empty name.",
           "Give the object a name in the application.");
    } else {
      Add(header, what, "It cannot be read.", restoreRemedy);
    }
  }

  bool IsOfAll(std::set<Use> const& expected, unsigned typeId) const {
    return std::all_of(expected.begin(), expected.end(), [&](Use const& use) {
      return use.entryClass == 0 || bases.IsA(typeId, use.entryClass);
    });
  }

  /// Whether opening a database goes on from an object to those that it holds.
  bool IsReadWithItsHolder(Place const& holder) const {
    return holder.typeId == ddr_Ddb::TypeId() || Find(holder.typeId)->isCollection ||
           bases.IsA(holder.typeId, dia_DiagnosticData::TypeId());
  }

  void CheckEntriesUnlessModels(Place const& header) {
    auto const found = handles.find(header);
    if (found != handles.end() && !uses[header].contains({ddr_Model::TypeId()})) {
      Try(header, "The collection cannot be read.", [&] { CheckEntries(header, found->second); });
    }
  }

  /// That the file will not give a handle out that a collection has.
  void CheckNextHandle() {
    Try(wholeFile, "No collection can be added.", [&] {
      std::vector<std::int64_t> const used = database.EntryHandles();
      std::int64_t const highest =
          std::max(used.empty() ? 0 : used.back(), headers.empty() ? 0 : headers.rbegin()->first);
      std::int64_t const next = rfm_nextHandle(database.File());
      if (next <= highest) {
        Add(wholeFile,
            "its header gives collections handles from " + std::to_string(next) + ", and those up to " +
                std::to_string(highest) + " are in use",
            "A program that trusts the header mixes up the entries of two collections.", restoreRemedy);
      }
    });
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
          "The database cannot be opened.", newerRemedy);
    }
  }

  /// A number, 0 when it is not set; nothing when it cannot be read, which is a finding of its own.
  static std::optional<int> Number(rfm_Row const& row, char const* field) {
    try {
      return row.FieldIsSet(field) ? row.ReadFieldInt(field) : 0;
    } catch (rfm_Exception const&) {
      return std::nullopt;
    }
  }

  /// What is asked of the last record beside what is asked of every row.
  void CheckRecord(Place const& place) {
    try {
      rfm_Row const& row = TableOf(place.typeId).ReadRow(place.row);
      CheckNameAndTimes(place, row);
      CheckVersion(place, row);
      CheckCollections(place, row);
    } catch (rfm_Exception const& error) {
      if (statusOf(error.Kind()) == ddr_CheckStatus::CannotTell) {
        throw;
      } // otherwise it is a finding already
    }
  }

  void CheckCollections(Place const& place, rfm_Row const& row) {
    for (Field const& field : Find(place.typeId)->fields) {
      // A record without add-ons of its own is read as one that has none.
      bool const isWanted = field.IsReference() && field.attribute.collection != 0 &&
                            field.attribute.name != cow_String(addOnsField);
      bool const isHalfSet = row.FieldIsSet(field.classId) != row.FieldIsSet(field.oid);
      if (isWanted && row.HasField(field.oid) && !isHalfSet && IsUnset(row, field)) {
        std::string const name = utl_PrintableStart(field.attribute.name.View());
        Add(place, "the reference '" + name + "' is not set", "Its " + name + " cannot be reached.",
            restoreRemedy);
      }
    }
  }

  void CheckVersion(Place const& place, rfm_Row const& row) {
    std::optional<int> const version = Number(row, "ddbVersion");
    if (version && *version > ddr_currentSchema) {
      Warn(place,
           "its ddbVersion, " + std::to_string(*version) + ", is newer than this release knows, " +
               std::to_string(ddr_currentSchema),
           "This release may misread it.", newerRemedy);
    }
  }

  void CheckNameAndTimes(Place const& place, rfm_Row const& row) {
    result.persistentName = row.FieldIsSet("name") ? row.ReadFieldString("name") : cow_String();
    if (result.persistentName.IsEmpty()) {
      Add(place, "it has no persistent name", "No shortcut can lead into the database.", restoreRemedy);
    }
    for (char const* const field : {"creationTime", "modifyTime"}) {
      std::optional<int> const time = Number(row, field);
      if (time && *time < 0) {
        Warn(place,
             std::string("its ") + field + ", " + std::to_string(*time) +
                 ", lies before 1970 or after January 2038",
             "A wrong time is shown.", "Nothing needs to be done if the computer's clock was right.");
      }
    }
    std::optional<int> const created = Number(row, "creationTime");
    std::int64_t const inHeader = database.CreationTime();
    if (created && inHeader != 0 && static_cast<int>(inHeader) != *created) { // as opening compares them
      Add(place,
          "its creationTime, " + std::to_string(*created) + ", is not that of the file's header, " +
              std::to_string(inHeader),
          "The file is taken for another one when it is opened a second time.", restoreRemedy);
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
  std::uint64_t allowed = smallestReading; // what may be read [byte]
  std::map<unsigned, Class> classes;
  rfm_BaseClasses bases;
  std::map<unsigned, rfm_Table> tables;
  cls_ClassRegistrar const known = knownClasses();
  std::map<std::int64_t, Place> headers; // which collection owns which entries
  std::map<Place, std::int64_t> handles; // and which of them each has, unless another one had them before
  std::map<Place, std::set<Use>> uses;   // what collections are used for, by their headers
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
  try {
    look(fileName, depth, result);
  } catch (rfm_Exception const& error) {
    ddr_CheckStatus const status = statusOf(error.Kind());
    note(result, status,
         {error.Where(), error.What(),
          status == ddr_CheckStatus::Damaged ? "It cannot be opened." : "It cannot be looked at.",
          error.Advice() + "."});
  } catch (nex_Exception const& error) {
    note(result, ddr_CheckStatus::Damaged,
         {fileText(fileName), error.what(), "It cannot be opened.", restoreRemedy});
  }
  return result;
}
