// rfm_DatabaseNode.cpp: header, class list and tables of one database.
#include "rfm_DatabaseNode.h"

#include "rfm_Schema.h"
#include "rfm_SystemError.h"
#include "utl_Utf8.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <limits>
#include <set>
#include <system_error>

namespace {

// More than any program registers; a larger number in a file is damage.
constexpr std::size_t mostClasses = 65536;
constexpr std::size_t fewClasses = 16;    // for which there is room at first
constexpr std::size_t mostColumns = 1990; // SQLite's own limit is 2000
constexpr std::size_t longestName = 1024; // of a class or an attribute [byte]
constexpr std::size_t longestTablePart = 64;
constexpr std::int64_t largestSuffix = std::int64_t{1} << 62; // so large is none that we make
constexpr std::int64_t largestHandle = std::int64_t{1} << 62;

constexpr char const* makeTables = R"(
CREATE TABLE ddr_header(name TEXT NOT NULL, description TEXT NOT NULL, creation_time INTEGER,
  next_handle INTEGER NOT NULL);
CREATE TABLE ddr_class("row" INTEGER PRIMARY KEY, "Class Name" TEXT NOT NULL, "Class Table" TEXT,
  "Type Id" INTEGER NOT NULL, "Class Version" INTEGER NOT NULL, "Base Type Id" INTEGER NOT NULL);
CREATE TABLE ddr_attribute(class INTEGER NOT NULL, position INTEGER NOT NULL, name TEXT NOT NULL,
  kind INTEGER NOT NULL, element INTEGER NOT NULL, collection INTEGER NOT NULL,
  PRIMARY KEY(class, position)) WITHOUT ROWID;
CREATE TABLE ddr_entry(handle INTEGER NOT NULL, position INTEGER NOT NULL, Key TEXT, ClassID INTEGER NOT NULL,
  OID INTEGER NOT NULL, PRIMARY KEY(handle, position)) WITHOUT ROWID;
)";

// The first name that two columns of a table would share; empty when there is none.
cow_String repeatedColumn(std::vector<cow_String> const& columns) {
  std::set<cow_String, rfm_LessIgnoringCase> seen{cow_String(rfm_RowColumn), cow_String(rfm_UidColumn)};
  for (cow_String const& column : columns) {
    if (!seen.insert(column).second) {
      return column;
    }
  }
  return {};
}

bool isReference(std::string_view column) {
  return column == rfm_BaseColumn || column.ends_with(rfm_ClassSuffix) || column.ends_with(rfm_OidSuffix);
}

// The highest number behind a name in the schema, as in "NAME_2"; 1 when there is none. To ask for one number
// after the other would take as many walks as there are such names.
std::int64_t highestSuffix(rfm_Connection& connection, std::string const& name) {
  std::string const begin = name + "_";
  rfm_Statement statement;
  rfm_Run run(connection, statement,
              std::string_view("SELECT substr(name, length(?1) + 1) FROM sqlite_schema "
                               "WHERE substr(name, 1, length(?1)) = ?1 COLLATE NOCASE"));
  run.Bind(1, std::string_view(begin));
  std::int64_t highest = 1;
  while (run.Step()) {
    std::string_view const suffix = rfm_columnText(run.Get(), 0);
    char const* const end = suffix.data() + suffix.size();
    std::int64_t number = 0;
    auto const [rest, error] = std::from_chars(suffix.data(), end, number);
    if (error == std::errc() && rest == end && number < largestSuffix) {
      highest = std::max(highest, number);
    }
  }
  return highest;
}

} // namespace

rfm_DatabaseNode::rfm_DatabaseNode(rfm_File const& databaseFile)
    : file(databaseFile), connection(rfm_FileNode::Of(databaseFile).Connection()), entries(*this) {}

void rfm_DatabaseNode::ThrowDamaged(std::string_view what, rfm_Subject const& subject) const {
  rfm_throw(rfm_ErrorKind::Damaged, OriginName(), subject, std::string("it is damaged: ").append(what),
            "Restore it from a backup");
}

void rfm_DatabaseNode::ThrowDamagedEntry(std::int64_t handle, std::int64_t position, std::string_view what) {
  rfm_Subject header;
  try {
    header = HeaderOf(handle);
  } catch (rfm_Exception const&) { // the words about the entry are more important
  }
  ThrowDamaged("entry " + std::to_string(position) + " of collection " + std::to_string(handle) +
                   std::string(what),
               header);
}

rfm_Subject rfm_DatabaseNode::HeaderOf(std::int64_t handle) {
  rfm_ScopeGuard const scope(connection);
  if (headersState != connection.State()) {
    ReadHeaders();
  }
  auto const found =
      std::lower_bound(headers.begin(), headers.end(), handle,
                       [](Header const& header, std::int64_t wanted) { return header.handle < wanted; });
  if (found == headers.end() || found->handle != handle) {
    return {};
  }
  rfm_ClassEntry const* const entry = FindClass(found->typeId);
  return entry == nullptr ? rfm_Subject() : rfm_Subject{&entry->name, found->row};
}

// What is wrong with the rows of headers is another matter, so those that cannot be read are left out.
void rfm_DatabaseNode::ReadHeaders() {
  headersState.reset();
  headers.clear();
  for (rfm_ClassEntry const& entry : classes) {
    for (rfm_AttributeEntry const& attribute : entry.attributes) {
      rfm_TableShape& shape = *ShapeOf(entry.typeId);
      if (attribute.kind != rfm_AttributeKind_Handle || !shape.Exists()) {
        continue;
      }
      try {
        shape.WantColumns();
        std::string const handle = rfm_quote(attribute.name.View());
        std::string const row = rfm_quote(rfm_RowColumn);
        rfm_Statement statement;
        // In order, so that all rows are read in one step, whose work is limited.
        rfm_Run run(connection, statement,
                    "SELECT " + handle + ", " + row + " FROM " + rfm_quote(shape.table.View()) +
                        " WHERE typeof(" + handle + ") = 'integer' ORDER BY " + handle + ", " + row,
                    {&entry.name});
        while (run.Step()) {
          headers.push_back(
              {sqlite3_column_int64(run.Get(), 0), entry.typeId, sqlite3_column_int64(run.Get(), 1)});
        }
      } catch (rfm_Exception const&) {
      }
    }
  }
  std::stable_sort(headers.begin(), headers.end(),
                   [](Header const& left, Header const& right) { return left.handle < right.handle; });
  headersState = connection.State();
}

cow_String rfm_DatabaseNode::CheckedText(sqlite3_stmt* statement, int column, std::string_view what) const {
  if (sqlite3_column_type(statement, column) != SQLITE_TEXT) {
    ThrowDamaged(what);
  }
  std::string_view const text = rfm_columnText(statement, column);
  if (!utl_IsUtf8(text) || text.find('\0') != std::string_view::npos) {
    ThrowDamaged(what);
  }
  return cow_String(text);
}

std::int64_t rfm_DatabaseNode::CheckedInteger(sqlite3_stmt* statement, int column, std::int64_t least,
                                              std::int64_t most, std::string_view what) const {
  std::int64_t const number = sqlite3_column_int64(statement, column);
  if (sqlite3_column_type(statement, column) != SQLITE_INTEGER || number < least || number > most) {
    ThrowDamaged(what);
  }
  return number;
}

// Of what the file defines, SQLite may use plain tables and plain indexes only. Views and triggers are
// switched off on the connection; what else there is must not stand where our names are.
void rfm_DatabaseNode::CheckSchema() {
  for (std::string_view const table : rfm_FixedTables) {
    if (!PlainTable(table)) {
      ThrowDamaged("it has no table '" + std::string(table) + "'");
    }
  }
}

void rfm_DatabaseNode::ReadHeader(cow_String const& wanted) {
  rfm_ScopeGuard const scope(connection);
  CheckSchema();
  rfm_Statement statement;
  rfm_Run run(connection, statement,
              std::string_view("SELECT name, description, creation_time FROM ddr_header LIMIT 2"));
  std::string const missing = "it has no database record '" + utl_PrintableStart(wanted.View()) + "'";
  if (!run.Step() || CheckedText(run.Get(), 0, missing) != wanted) {
    ThrowDamaged(missing);
  }
  name = wanted;
  description = CheckedText(run.Get(), 1, "the description in its header is not a text");
  if (sqlite3_column_type(run.Get(), 2) != SQLITE_NULL) {
    creationTime = CheckedInteger(run.Get(), 2, std::numeric_limits<std::int64_t>::min(),
                                  std::numeric_limits<std::int64_t>::max(),
                                  "the creation time in its header is not a number");
  }
  if (run.Step()) {
    ThrowDamaged("it has several database records");
  }
}

void rfm_DatabaseNode::MakeTables(cow_String const& wanted, cow_String const& text, std::int64_t time) {
  if (!rfm_FileNode::Of(file).IsUnpublished()) {
    nex_Exception::Throw(nex_AssertException("IsUnpublished()"), "platform/rfm/rfm_DatabaseNode", __LINE__);
  }
  if (!utl_IsUtf8(wanted.View()) || !utl_IsUtf8(text.View())) {
    rfm_throw(rfm_ErrorKind::Other, FileName(), {}, "the description to store is not UTF-8",
              "Give the text in UTF-8");
  }
  Begin();
  try {
    connection.Execute(makeTables);
    connection.Execute(("PRAGMA application_id = " + std::to_string(rfm_ApplicationId)).c_str());
    connection.Execute(("PRAGMA user_version = " + std::to_string(rfm_FormatVersion)).c_str());
    {
      rfm_Statement statement;
      rfm_Run run(connection, statement, std::string_view("INSERT INTO ddr_header VALUES(?1, ?2, ?3, 1)"));
      run.Bind(1, wanted.View());
      run.Bind(2, text.View());
      run.Bind(3, time);
      run.Change();
    }
    Commit();
  } catch (...) {
    RollBack();
    throw;
  }
  name = wanted;
  description = text;
  creationTime = time;
  Bind();
}

void rfm_DatabaseNode::Publish() {
  if (connection.InTransaction() || !rfm_FileNode::Of(file).IsUnpublished()) {
    nex_Exception::Throw(nex_AssertException("!InTransaction() && IsUnpublished()"),
                         "platform/rfm/rfm_DatabaseNode", __LINE__);
  }
  rfm_FileNode::Of(file).Publish();
}

void rfm_DatabaseNode::Bind() {
  rfm_ScopeGuard const scope(connection);
  CheckSchema();
  TakeClasses(ReadClasses());
  bound = true;
  boundData = connection.DataVersion();
  boundClassList = connection.classListVersion;
}

std::vector<rfm_ClassEntry> rfm_DatabaseNode::ReadClasses() {
  std::vector<rfm_ClassEntry> read;
  constexpr std::int64_t mostId = std::numeric_limits<unsigned>::max();
  constexpr std::int64_t leastInt = std::numeric_limits<int>::min();
  constexpr std::int64_t mostInt = std::numeric_limits<int>::max();
  rfm_Measure measure(connection);
  measure.Begin();
  auto const wantName = [&](sqlite3_stmt* listed, int column, std::string_view tooLong) {
    auto const size = static_cast<std::size_t>(sqlite3_column_bytes(listed, column));
    if (size > longestName) {
      ThrowDamaged(tooLong);
    }
    if (measure.IsExceededBy(size)) {
      ThrowDamaged(rfm_sharedPages);
    }
  };
  {
    rfm_Statement statement;
    rfm_Run run(
        connection, statement,
        std::string_view("SELECT \"row\", \"Class Name\", \"Class Table\", \"Type Id\", \"Class Version\", "
                         "\"Base Type Id\" FROM ddr_class ORDER BY \"row\""));
    while (run.Step()) {
      auto const row = static_cast<std::int64_t>(read.size());
      if (read.size() >= mostClasses) {
        ThrowDamaged("its class list is too long");
      }
      CheckedInteger(run.Get(), 0, row, row, "a row of its class list is missing");
      rfm_ClassEntry entry;
      entry.row = static_cast<int>(row);
      wantName(run.Get(), 1, "a class name is empty or too long");
      entry.name = CheckedText(run.Get(), 1, "a class name in its class list is not a text");
      if (sqlite3_column_type(run.Get(), 2) != SQLITE_NULL) {
        wantName(run.Get(), 2, "a table name in its class list is too long");
        entry.table = CheckedText(run.Get(), 2, "a table name in its class list is not a text");
      }
      entry.typeId = static_cast<unsigned>(
          CheckedInteger(run.Get(), 3, 0, mostId, "a type id in its class list is not valid"));
      entry.version = static_cast<int>(
          CheckedInteger(run.Get(), 4, leastInt, mostInt, "a class version in its class list is not valid"));
      entry.baseTypeId = static_cast<unsigned>(
          CheckedInteger(run.Get(), 5, 0, mostId, "a base type id in its class list is not valid"));
      read.push_back(std::move(entry));
    }
  }
  rfm_Statement statement;
  rfm_Run run(connection, statement,
              std::string_view("SELECT class, position, name, kind, element, collection FROM ddr_attribute "
                               "ORDER BY class, position"));
  while (run.Step()) {
    auto const row =
        static_cast<std::size_t>(CheckedInteger(run.Get(), 0, 0, static_cast<std::int64_t>(read.size()) - 1,
                                                "its attribute list names a class that is not listed"));
    std::vector<rfm_AttributeEntry>& attributes = read[row].attributes;
    auto const position = static_cast<std::int64_t>(attributes.size());
    CheckedInteger(run.Get(), 1, position, std::min<std::int64_t>(position, mostColumns),
                   "its attribute list is not in order");
    rfm_AttributeEntry attribute;
    wantName(run.Get(), 2, "an attribute name is empty or too long");
    attribute.name = CheckedText(run.Get(), 2, "an attribute name in its class list is not a text");
    attribute.kind = static_cast<int>(
        CheckedInteger(run.Get(), 3, leastInt, mostInt, "an attribute kind in its class list is not valid"));
    attribute.elementTypeId = static_cast<unsigned>(
        CheckedInteger(run.Get(), 4, 0, mostId, "an element type id in its class list is not valid"));
    attribute.collection = static_cast<int>(
        CheckedInteger(run.Get(), 5, leastInt, mostInt, "a collection code in its class list is not valid"));
    attributes.push_back(std::move(attribute));
  }
  std::set<unsigned> typeIds;
  std::set<cow_String> names;
  std::set<cow_String, rfm_LessIgnoringCase> tables;
  for (rfm_ClassEntry const& entry : read) {
    CheckClass(entry);
    rfm_Subject const subject{&entry.name};
    if (!typeIds.insert(entry.typeId).second) {
      ThrowDamaged("its class list has a type id twice", subject);
    }
    if (!names.insert(entry.name).second) {
      ThrowDamaged("its class list has a class twice", subject);
    }
    if (!entry.table.IsEmpty() &&
        (!entry.table.View().starts_with(rfm_ClassTablePrefix) || !tables.insert(entry.table).second)) {
      ThrowDamaged("its class list names a table that cannot be the class's", subject);
    }
  }
  return read;
}

void rfm_DatabaseNode::CheckClass(rfm_ClassEntry const& entry) const {
  rfm_Subject const subject{&entry.name};
  if (entry.name.IsEmpty() || entry.name.Length() > longestName) {
    ThrowDamaged("a class name is empty or too long", subject);
  }
  for (rfm_AttributeEntry const& attribute : entry.attributes) {
    if (attribute.name.IsEmpty() || attribute.name.Length() > longestName) {
      ThrowDamaged("an attribute name is empty or too long", subject);
    }
  }
  std::vector<cow_String> const columns = rfm_columnsOf(entry);
  if (columns.size() > mostColumns) {
    ThrowDamaged("a class has too many attributes", subject);
  }
  cow_String const repeated = repeatedColumn(columns);
  if (!repeated.IsEmpty()) {
    ThrowDamaged("two fields of a class have one name", {&entry.name, -1, repeated.View()});
  }
}

void rfm_DatabaseNode::TakeClasses(std::vector<rfm_ClassEntry> read) {
  if (read != classes) { // what others borrowed stays valid otherwise
    std::map<unsigned, std::size_t> typeIds;
    std::map<cow_String, std::size_t, rfm_NameOrder> names;
    for (rfm_ClassEntry const& entry : read) {
      typeIds.emplace(entry.typeId, static_cast<std::size_t>(entry.row));
      names.emplace(entry.name, static_cast<std::size_t>(entry.row));
    }
    tablesDescribed = false;
    classes = std::move(read);
    byTypeId = std::move(typeIds);
    byName = std::move(names);
    ++classesVersion;
  }
  if (!tablesDescribed) {
    for (auto const& [typeId, shape] : shapes) {
      shape->Describe(FindClass(typeId));
    }
    tablesDescribed = true;
  }
}

// Takes over what other connections, or other databases on this one, did to the class list.
void rfm_DatabaseNode::Refresh() {
  if (!bound || !tablesDescribed || boundData != connection.DataVersion() ||
      boundClassList != connection.classListVersion) {
    Bind();
  }
}

rfm_ClassEntry const* rfm_DatabaseNode::FindClass(unsigned typeId) const noexcept {
  auto const found = byTypeId.find(typeId);
  return found == byTypeId.end() ? nullptr : &classes[found->second];
}

rfm_ClassEntry const* rfm_DatabaseNode::FindClassByName(std::string_view className) const noexcept {
  auto const found = byName.find(className);
  return found == byName.end() ? nullptr : &classes[found->second];
}

void rfm_DatabaseNode::Begin() {
  connection.Begin();
  try {
    if (bound) {
      Refresh();
    }
    commitsBefore = CommitCount();
  } catch (...) {
    connection.RollBack();
    throw;
  }
  classesBefore = classes.size();
  commitStands = false;
  tablesMade.clear();
  classesChanged = false;
  descriptionsChanged = false;
  entriesAppended = false;
  entryIndexMade = false;
}

void rfm_DatabaseNode::Commit() {
  connection.WantTransaction();
  for (unsigned const typeId : tablesMade) {
    std::shared_ptr<rfm_TableShape> const shape = ShapeOf(typeId);
    if (shape->isFresh) {
      MakeUidIndex(*shape);
    }
  }
  if (entriesAppended) {
    WantEntryIndex();
  }
  StoreNextHandle();
  if (connection.owesSync) {
    // Written though it is the same, so that there is something to sync.
    connection.Execute(("PRAGMA application_id = " + std::to_string(rfm_ApplicationId)).c_str());
  }
  try {
    connection.Commit();
  } catch (...) {
    if (connection.CommitEnd().fate == rfm_CommitEnd::Fate::TakenBack) {
      throw;
    }
    EndDoubtfulCommit();
  }
  commitStands = true;
  NoteOwnCommit();
  tablesMade.clear();
}

// SQLite failed at the end of a commit, when it had removed the journal of the changes, or could not. If they
// are in the file, they are ours, and what memory knows of them stays.
void rfm_DatabaseNode::EndDoubtfulCommit() {
  rfm_CommitEnd const end = connection.CommitEnd();
  rfm_SystemError const error = rfm_errorOfDone(end.number);
  std::string const trouble = end.trouble + (end.number == 0 ? "" : " (" + error.words + ")");
  bool const lasts = end.fate == rfm_CommitEnd::Fate::Lasts;
  commitStands = end.fate != rfm_CommitEnd::Fate::JournalStays;
  connection.RollBack();
  std::string what = trouble + "; nothing was changed";
  if (!commitStands) {
    try {
      static_cast<void>(CommitCount()); // which takes the changes back
    } catch (...) {
      what = trouble + ", and it cannot be read now; the changes are taken back when it can";
    }
  }
  if (commitStands) {
    what = "the changes are in the file, but " + trouble +
           (lasts ? "" : ", so a power cut may still take them back");
    connection.owesSync = !lasts;
    ++ownCommits;
    tablesMade.clear();
  } else {
    ForgetChanges();
  }
  rfm_throw(lasts ? rfm_ErrorKind::Other : rfm_ErrorKind::Full, FileName(), {}, what,
            lasts ? "Close the database if others cannot use the file"
                  : rfm_advice(error, "Check the device", "then save again"));
}

// What is committed is committed: nothing here may fail. A transaction that changed nothing does not count in
// the file either.
void rfm_DatabaseNode::NoteOwnCommit() noexcept {
  std::uint32_t count = commitsBefore + 1;
  static_cast<void>(ReadCommitCount(count)); // without a lock, which could take memory to get
  if (count != commitsBefore) {
    ++ownCommits;
  }
}

void rfm_DatabaseNode::RollBack() noexcept {
  if (!connection.InTransaction()) {
    return;
  }
  connection.RollBack();
  ForgetChanges();
}

// Memory goes back to what it knew as the transaction began.
void rfm_DatabaseNode::ForgetChanges() noexcept {
  if (entryIndexMade) {
    entryIndexExists.reset();
  }
  for (unsigned const typeId : tablesMade) {
    if (auto const made = byTypeId.find(typeId); made != byTypeId.end()) {
      classes[made->second].table = cow_String();
    }
    if (auto const made = shapes.find(typeId); made != shapes.end()) {
      made->second->Forget();
      made->second->table = cow_String();
    }
  }
  tablesMade.clear();
  while (classes.size() > classesBefore) {
    byTypeId.erase(classes.back().typeId);
    byName.erase(classes.back().name);
    classes.pop_back();
  }
  ++classesVersion;
  if (classesChanged) {
    boundClassList = ++connection.classListVersion;
  }
  if (descriptionsChanged) {
    bound = false; // read anew when next asked for
  }
}

rfm_ClassEntry const& rfm_DatabaseNode::AddClass(rfm_ClassEntry const& added) {
  connection.WantTransaction();
  Refresh();
  rfm_ClassEntry entry = added;
  entry.row = static_cast<int>(classes.size());
  entry.table = cow_String();
  rfm_Subject const subject{&entry.name};
  auto const refuse = [&](std::string_view what) {
    rfm_throw(rfm_ErrorKind::Other, OriginName(), subject, what, "Register the class under other names");
  };
  std::vector<cow_String> const columns = rfm_columnsOf(entry);
  bool const namesAreTexts = utl_IsUtf8(entry.name.View()) &&
                             std::all_of(columns.begin(), columns.end(), [](cow_String const& column) {
                               return utl_IsUtf8(column.View()) && column.Length() <= longestName;
                             });
  bool const namesAreThere =
      !entry.name.IsEmpty() && std::none_of(entry.attributes.begin(), entry.attributes.end(),
                                            [](auto const& attribute) { return attribute.name.IsEmpty(); });
  if (!namesAreTexts || !namesAreThere || entry.name.Length() > longestName) {
    refuse("a name of the class or of an attribute is empty, too long or not UTF-8");
  }
  if (FindClass(entry.typeId) || FindClassByName(entry.name.View())) {
    refuse("the class list has a class of that name or type id already");
  }
  if (classes.size() >= mostClasses || columns.size() > mostColumns) {
    refuse("there are too many classes or attributes");
  }
  if (!repeatedColumn(columns).IsEmpty()) {
    refuse("two fields would have one name, '" + utl_PrintableStart(repeatedColumn(columns).View()) + "'");
  }
  classesChanged = true;
  rfm_Whole whole(connection);
  {
    rfm_Run run(connection, insertClass,
                std::string_view("INSERT INTO ddr_class VALUES(?1, ?2, NULL, ?3, ?4, ?5)"), subject);
    run.Bind(1, entry.row);
    run.Bind(2, entry.name.View());
    run.Bind(3, entry.typeId);
    run.Bind(4, entry.version);
    run.Bind(5, entry.baseTypeId);
    run.Change();
  }
  InsertAttributes(entry);
  Take(std::move(entry));
  ++classesVersion;
  boundClassList = ++connection.classListVersion;
  if (auto const shape = shapes.find(classes.back().typeId); shape != shapes.end()) {
    shape->second->Describe(&classes.back());
  }
  whole.Done();
  return classes.back();
}

// A failure leaves everything as it was.
void rfm_DatabaseNode::Take(rfm_ClassEntry entry) {
  std::size_t const place = classes.size();
  if (place == classes.capacity()) {
    classes.reserve(std::max(fewClasses, 2 * place));
  }
  auto const listed = byTypeId.emplace(entry.typeId, place).first;
  try {
    byName.emplace(entry.name, place);
  } catch (...) {
    byTypeId.erase(listed);
    throw;
  }
  classes.push_back(std::move(entry));
}

void rfm_DatabaseNode::InsertAttributes(rfm_ClassEntry const& entry) {
  rfm_Subject const subject{&entry.name};
  int position = 0;
  for (rfm_AttributeEntry const& attribute : entry.attributes) {
    rfm_Run run(connection, insertAttribute,
                std::string_view("INSERT INTO ddr_attribute VALUES(?1, ?2, ?3, ?4, ?5, ?6)"), subject);
    run.Bind(1, entry.row);
    run.Bind(2, position++);
    run.Bind(3, attribute.name.View());
    run.Bind(4, attribute.kind);
    run.Bind(5, attribute.elementTypeId);
    run.Bind(6, attribute.collection);
    run.Change();
  }
}

std::shared_ptr<rfm_TableShape> rfm_DatabaseNode::ShapeOf(unsigned typeId) {
  if (auto const known = shapes.find(typeId); known != shapes.end()) {
    return known->second;
  }
  auto shape = std::make_shared<rfm_TableShape>(*this, typeId);
  shape->Describe(FindClass(typeId));
  return shapes.emplace(typeId, std::move(shape)).first->second;
}

rfm_Table rfm_DatabaseNode::ClassList() {
  rfm_ScopeGuard const scope(connection);
  if (!classListShape) {
    auto made = std::make_shared<rfm_TableShape>(*this, 0U);
    made->className = cow_String("class list");
    made->isClassList = true;
    made->table = cow_String(rfm_ClassListTable);
    classListShape = std::move(made);
  }
  return rfm_Table(std::make_shared<rfm_TableNode>(shared_from_this(), classListShape));
}

rfm_Table rfm_DatabaseNode::Table(unsigned typeId) {
  rfm_ScopeGuard const scope(connection);
  Refresh();
  return rfm_Table(std::make_shared<rfm_TableNode>(shared_from_this(), ShapeOf(typeId)));
}

rfm_Table rfm_DatabaseNode::TableForWriting(unsigned typeId) {
  connection.WantTransaction();
  Refresh();
  auto const found = byTypeId.find(typeId);
  if (found == byTypeId.end()) {
    rfm_throw(rfm_ErrorKind::Other, OriginName(), {},
              "class " + std::to_string(typeId) + " is not in its class list",
              "Register the class before storing its objects");
  }
  if (!ShapeOf(typeId)->Exists()) {
    MakeTable(typeId, rfm_columnsOf(classes[found->second]));
  }
  return rfm_Table(std::make_shared<rfm_TableNode>(shared_from_this(), ShapeOf(typeId)));
}

void rfm_DatabaseNode::MakeTable(unsigned typeId, std::vector<cow_String> const& columns,
                                 cow_String const& tableName) {
  rfm_ClassEntry& entry = classes[byTypeId.at(typeId)];
  cow_String const table = tableName.IsEmpty() ? MakeTableName(entry.name.View()) : tableName;
  std::string sql = "CREATE TABLE " + rfm_quote(table.View()) + "(" + rfm_quote(rfm_RowColumn) +
                    " INTEGER PRIMARY KEY, " + rfm_quote(rfm_UidColumn) + " BLOB";
  for (cow_String const& column : columns) {
    sql += ", " + rfm_quote(column.View()) + (isReference(column.View()) ? " INTEGER" : "");
  }
  classesChanged = true;
  rfm_Whole whole(connection);
  connection.Execute((sql + ")").c_str());
  {
    rfm_Run run(connection, setTable,
                std::string_view("UPDATE ddr_class SET \"Class Table\" = ?2 WHERE \"row\" = ?1"),
                {&entry.name});
    run.Bind(1, entry.row);
    run.Bind(2, table.View());
    run.Change();
  }
  tablesMade.push_back(typeId);
  entry.table = table;
  ++classesVersion;
  boundClassList = ++connection.classListVersion;
  std::shared_ptr<rfm_TableShape> const shape = ShapeOf(typeId);
  shape->Describe(&entry);
  shape->KnowColumns(columns);
  shape->isFresh = true;
  whole.Done();
}

void rfm_DatabaseNode::ChangeClass(rfm_ClassEntry const& changed) {
  connection.WantTransaction();
  Refresh();
  rfm_ClassEntry& entry = classes[byTypeId.at(changed.typeId)];
  rfm_ClassEntry const* const namesake = FindClassByName(changed.name.View());
  if (namesake && namesake != &entry) {
    rfm_throw(rfm_ErrorKind::Other, OriginName(), {&changed.name},
              "the class list has two classes of that name", "Register the class under another name");
  }
  classesChanged = descriptionsChanged = true;
  rfm_Whole whole(connection);
  ++classesVersion;
  if (entry.name != changed.name) {
    auto moved = byName.extract(entry.name);
    moved.key() = changed.name;
    byName.insert(std::move(moved));
  }
  entry.name = changed.name;
  entry.version = changed.version;
  entry.baseTypeId = changed.baseTypeId;
  entry.attributes = changed.attributes;
  CheckClass(entry);
  rfm_Subject const subject{&entry.name};
  {
    rfm_Statement statement;
    rfm_Run run(connection, statement,
                std::string_view("UPDATE ddr_class SET \"Class Name\" = ?2, \"Class Version\" = ?3, "
                                 "\"Base Type Id\" = ?4 WHERE \"row\" = ?1"),
                subject);
    run.Bind(1, entry.row);
    run.Bind(2, entry.name.View());
    run.Bind(3, entry.version);
    run.Bind(4, entry.baseTypeId);
    run.Change();
  }
  {
    rfm_Statement statement;
    rfm_Run run(connection, statement, std::string_view("DELETE FROM ddr_attribute WHERE class = ?1"),
                subject);
    run.Bind(1, entry.row);
    run.Change();
  }
  InsertAttributes(entry);
  boundClassList = ++connection.classListVersion;
  std::shared_ptr<rfm_TableShape> const shape = ShapeOf(entry.typeId);
  if (shape->Exists()) {
    AddColumns(*shape, rfm_columnsOf(entry));
  }
  shape->Describe(&entry);
  whole.Done();
}

void rfm_DatabaseNode::AddColumns(rfm_TableShape& shape, std::vector<cow_String> const& columns) {
  shape.WantColumns();
  std::vector<cow_String> const present = shape.layout->columns;
  bool const wasFresh = shape.isFresh;
  for (cow_String const& column : columns) {
    if (std::find(present.begin(), present.end(), column) == present.end()) {
      std::string const sql = "ALTER TABLE " + rfm_quote(shape.table.View()) + " ADD COLUMN " +
                              rfm_quote(column.View()) + (isReference(column.View()) ? " INTEGER" : "");
      shape.Forget();
      connection.Execute(sql.c_str());
    }
  }
  shape.isFresh = wasFresh;
}

std::shared_ptr<rfm_TableShape> rfm_DatabaseNode::RetireTable(unsigned typeId, cow_String const& newName) {
  connection.WantTransaction();
  Refresh();
  rfm_ClassEntry& entry = classes[byTypeId.at(typeId)];
  std::shared_ptr<rfm_TableShape> const shape = ShapeOf(typeId);
  if (!shape->Exists() || !shape->isFresh) { // the index of identities would keep its name
    nex_Exception::Throw(nex_AssertException("shape->Exists() && shape->isFresh"),
                         "platform/rfm/rfm_DatabaseNode", __LINE__);
  }
  classesChanged = descriptionsChanged = true;
  rfm_Whole whole(connection);
  if (shape->table != newName) {
    std::string const sql =
        "ALTER TABLE " + rfm_quote(shape->table.View()) + " RENAME TO " + rfm_quote(newName.View());
    shape->Forget();
    connection.Execute(sql.c_str());
  }
  {
    rfm_Statement statement;
    rfm_Run run(connection, statement,
                std::string_view("UPDATE ddr_class SET \"Class Table\" = NULL WHERE \"row\" = ?1"),
                {&entry.name});
    run.Bind(1, entry.row);
    run.Change();
  }
  entry.table = cow_String();
  ++classesVersion;
  boundClassList = ++connection.classListVersion;
  shapes.erase(typeId);
  shape->table = newName;
  whole.Done();
  return shape;
}

std::string rfm_makeUidIndex(std::string_view table) {
  return "CREATE INDEX " + rfm_quote(std::string(table).append(rfm_UidColumn)) + " ON " + rfm_quote(table) +
         "(" + rfm_quote(rfm_UidColumn) + ")";
}

void rfm_DatabaseNode::MakeUidIndex(rfm_TableShape& shape) {
  connection.Execute(rfm_makeUidIndex(shape.table.View()).c_str());
  shape.isFresh = false;
}

bool rfm_DatabaseNode::HasEntryIndex() {
  if (!entryIndexExists || entryIndexData != connection.DataVersion()) {
    entryIndexExists = SqlNameIsTaken(rfm_EntryKeyIndex);
    entryIndexData = connection.DataVersion();
  }
  return *entryIndexExists;
}

void rfm_DatabaseNode::WantEntryIndex() {
  if (!HasEntryIndex()) {
    if (!rfm_FileNode::Of(file).IsUnpublished()) {
      MeasureKeys(); // SQLite sorts them in memory
    }
    entryIndexMade = true;
    connection.Execute(rfm_makeEntryIndex);
    entryIndexExists = true;
  }
}

// Throws when the keys of all entries take more than the file can hold.
void rfm_DatabaseNode::MeasureKeys() {
  rfm_Measure measure(connection);
  measure.Begin();
  rfm_Statement statement;
  rfm_Run run(connection, statement,
              std::string_view("SELECT handle, position, Key FROM ddr_entry ORDER BY handle, position"));
  while (run.Step()) {
    if (measure.IsExceededBy(rfm_columnBytes(run.Get(), 2).size())) {
      ThrowDamaged(
          "the names of its entries take more than the file holds, so many of them lead to the same pages");
    }
  }
}

bool rfm_DatabaseNode::SqlNameIsTaken(std::string_view sqlName) {
  rfm_Run run(connection, findSchema,
              std::string_view("SELECT type, rootpage FROM sqlite_schema WHERE name = ?1 COLLATE NOCASE"));
  run.Bind(1, sqlName);
  return run.Step();
}

std::optional<std::string> rfm_DatabaseNode::PlainTable(std::string_view table, rfm_Subject const& subject) {
  Definition looked;
  Definition const* const found = DefinitionOf(table, looked);
  if (found && !found->fault.empty()) {
    ThrowDamaged(found->fault, subject);
  }
  return found ? found->table : std::nullopt;
}

bool rfm_DatabaseNode::HasIndex(std::string_view table, std::string_view sql) {
  ReadDefinitions();
  auto const known = definitions.find(cow_String(table));
  if (known == definitions.end()) {
    return false;
  }
  std::vector<std::string> const& indexes = known->second.indexes;
  return std::find(indexes.begin(), indexes.end(), sql) != indexes.end();
}

std::vector<cow_String> rfm_DatabaseNode::PlainTables() {
  ReadDefinitions();
  std::vector<cow_String> plain;
  for (auto const& [table, definition] : definitions) {
    if (definition.table && definition.fault.empty()) {
      plain.push_back(table);
    }
  }
  return plain;
}

bool rfm_DatabaseNode::AllTablesArePlain() {
  ReadDefinitions();
  return std::all_of(definitions.begin(), definitions.end(),
                     [](auto const& listed) { return listed.second.fault.empty(); });
}

// A schema that may change under us is asked for the one table; any other is read once.
rfm_DatabaseNode::Definition const* rfm_DatabaseNode::DefinitionOf(std::string_view table,
                                                                   Definition& found) {
  if (connection.InTransaction()) {
    rfm_Run run(connection, findDefinitions,
                std::string_view("SELECT type, name, rootpage, sql FROM sqlite_schema "
                                 "WHERE tbl_name = ?1 COLLATE NOCASE AND type <> 'trigger'"));
    run.Bind(1, table);
    while (run.Step()) {
      Add(found, run.Get());
    }
    return &found;
  }
  ReadDefinitions();
  auto const known = definitions.find(cow_String(table));
  return known == definitions.end() ? nullptr : &known->second;
}

void rfm_DatabaseNode::ReadDefinitions() {
  rfm_ScopeGuard const scope(connection);
  if (definitionsData == connection.DataVersion() && definitionsChanges == connection.schemaChanges) {
    return;
  }
  definitionsData.reset();
  definitions.clear();
  rfm_Run run(connection, readDefinitions,
              std::string_view("SELECT type, name, rootpage, sql, tbl_name FROM sqlite_schema "
                               "WHERE typeof(tbl_name) = 'text' AND type <> 'trigger'"));
  while (run.Step()) {
    std::string_view const table(reinterpret_cast<char const*>(sqlite3_column_text(run.Get(), 4)),
                                 static_cast<std::size_t>(sqlite3_column_bytes(run.Get(), 4)));
    if (table.find('\0') == std::string_view::npos) {
      Add(definitions[cow_String(table)], run.Get());
    }
  }
  definitionsData = connection.DataVersion();
  definitionsChanges = connection.schemaChanges;
}

// Type, name, root page and SQL text of one thing in the schema.
void rfm_DatabaseNode::Add(Definition& definition, sqlite3_stmt* schemaRow) const {
  if (!definition.fault.empty()) {
    return;
  }
  auto const textOf = [&](int column) {
    bool const isText = sqlite3_column_type(schemaRow, column) == SQLITE_TEXT;
    return isText ? std::string_view(reinterpret_cast<char const*>(sqlite3_column_text(schemaRow, column)),
                                     static_cast<std::size_t>(sqlite3_column_bytes(schemaRow, column)))
                  : std::string_view();
  };
  std::string_view const type = textOf(0);
  std::string_view const sql = textOf(3);
  bool const isTable = type == "table";
  bool const isOfAKey = type == "index" && sqlite3_column_type(schemaRow, 3) == SQLITE_NULL;
  bool const isPlain = sqlite3_column_int64(schemaRow, 2) > 0 && (isTable || type == "index") &&
                       (isOfAKey || (!sql.empty() && rfm_isPlainDefinition(sql, isTable ? 2 : 1)));
  if (!isPlain) {
    definition.fault = "'" + utl_PrintableStart(textOf(1)) + "' is no plain table or index";
  }
  if (isTable) {
    definition.table = sql;
  } else if (isPlain && !isOfAKey) {
    definition.indexes.emplace_back(sql);
  }
}

cow_String rfm_DatabaseNode::MakeTableName(std::string_view className) {
  std::string base(rfm_ClassTablePrefix);
  for (char const letter : className.substr(0, longestTablePart)) {
    bool const isPlain = (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
                         (letter >= '0' && letter <= '9') || letter == '_';
    base += isPlain ? letter : '_';
  }
  return SqlNameIsTaken(base) ? cow_String(base + "_" + std::to_string(highestSuffix(connection, base) + 1))
                              : cow_String(base);
}

std::int64_t rfm_DatabaseNode::HighestHandle(char const* rows) {
  std::int64_t highest = 0;
  for (rfm_ClassEntry const& entry : classes) {
    for (rfm_AttributeEntry const& attribute : entry.attributes) {
      rfm_TableShape& shape = *ShapeOf(entry.typeId);
      if (attribute.kind != rfm_AttributeKind_Handle || !shape.Exists()) {
        continue;
      }
      shape.WantColumns();
      std::vector<cow_String> const& columns = shape.layout->columns;
      if (std::find(columns.begin(), columns.end(), attribute.name) == columns.end()) {
        continue; // a damaged table holds no handles
      }
      rfm_Statement statement;
      rfm_Run run(connection, statement,
                  "SELECT max(used) FROM (SELECT rows." + rfm_quote(attribute.name.View()) +
                      " AS used FROM " + rfm_quote(shape.table.View()) + " AS rows " + rows +
                      ") WHERE typeof(used) = 'integer'",
                  {&entry.name});
      if (run.Step()) {
        highest = std::max(highest, static_cast<std::int64_t>(sqlite3_column_int64(run.Get(), 0)));
      }
    }
  }
  return highest;
}

// The counter is read with the first handle of a transaction and written back at its end. Handles grow with
// the rows that hold them, so a counter that the last rows contradict is wrong, and all rows are asked.
std::int64_t rfm_DatabaseNode::NewHandle() {
  connection.WantTransaction();
  if (connection.nextHandle == 0) {
    // In the order of the table: a damaged index of keys may end with a lower handle.
    rfm_Run run(connection, readNextHandle,
                std::string_view("SELECT max(next_handle, coalesce((SELECT handle + 1 FROM ddr_entry "
                                 "ORDER BY handle DESC, position DESC LIMIT 1), 1)) FROM ddr_header"));
    if (!run.Step()) {
      ThrowDamaged("its header is missing");
    }
    connection.nextHandle = CheckedInteger(run.Get(), 0, 1, largestHandle,
                                           "the next collection handle in its header is not valid");
    if (HighestHandle("ORDER BY \"row\" DESC LIMIT 1") >= connection.nextHandle) {
      connection.nextHandle = std::min(HighestHandle(""), largestHandle) + 1;
    }
  }
  if (connection.nextHandle > largestHandle) {
    ThrowDamaged("the next collection handle in its header is not valid");
  }
  return connection.nextHandle++;
}

void rfm_DatabaseNode::StoreNextHandle() {
  if (connection.nextHandle == 0) {
    return;
  }
  rfm_Run run(connection, writeNextHandle, std::string_view("UPDATE ddr_header SET next_handle = ?1"));
  run.Bind(1, connection.nextHandle);
  run.Change();
}

// PRAGMA data_version also changes when SQLite drops its cache after an error of the device, so the counter
// in the file itself is asked: four bytes at offset 24, most significant first.
std::uint32_t rfm_DatabaseNode::CommitCount() {
  rfm_ScopeGuard const scope(connection);
  std::uint32_t count = 0;
  int const result = ReadCommitCount(count);
  if (result != SQLITE_OK && result != SQLITE_IOERR_SHORT_READ) { // a new file is empty
    connection.Fail(result);
  }
  return count;
}

// Leaves `count` as it is when the file cannot be read.
int rfm_DatabaseNode::ReadCommitCount(std::uint32_t& count) const noexcept {
  sqlite3_file* opened = nullptr;
  std::array<unsigned char, 4> bytes{};
  sqlite3_file_control(connection.Database(), "main", SQLITE_FCNTL_FILE_POINTER, &opened);
  int const result = opened->pMethods->xRead(opened, bytes.data(), static_cast<int>(bytes.size()), 24);
  if (result == SQLITE_OK || result == SQLITE_IOERR_SHORT_READ) {
    count = 0;
    for (unsigned char const byte : bytes) {
      count = count << 8U | byte;
    }
  }
  return result;
}

std::uint64_t rfm_DatabaseNode::ChangeCount() {
  rfm_ScopeGuard const scope(connection);
  return connection.DataVersion();
}
