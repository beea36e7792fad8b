// rfm_Table.cpp: class tables: layout, position, reading and writing of rows.
#include "rfm_DatabaseNode.h"
#include "rfm_Schema.h"
#include "utl_Utf8.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <numeric>

namespace {

// Columns that are searched one by one: in most tables, all.
constexpr std::size_t mostSearched = 24;

bool holdsText(std::string_view bytes) {
  return utl_IsUtf8(bytes) && std::memchr(bytes.data(), 0, bytes.size()) == nullptr;
}

} // namespace

std::string rfm_quote(std::string_view name) {
  std::string quoted = "\"";
  for (std::size_t place = name.find('"'); place != std::string_view::npos; place = name.find('"')) {
    quoted.append(name.substr(0, place + 1)) += '"';
    name.remove_prefix(place + 1);
  }
  return quoted.append(name) += '"';
}

std::vector<cow_String> rfm_columnsOf(rfm_ClassEntry const& entry) {
  std::vector<cow_String> columns;
  if (entry.baseTypeId != rfm_NoBaseTypeId) {
    columns.emplace_back(rfm_BaseColumn);
  }
  for (rfm_AttributeEntry const& attribute : entry.attributes) {
    if (attribute.kind == rfm_AttributeKind_Object) {
      columns.emplace_back(std::string(attribute.name.View()).append(rfm_ClassSuffix));
      columns.emplace_back(std::string(attribute.name.View()).append(rfm_OidSuffix));
    } else {
      columns.push_back(attribute.name);
    }
  }
  return columns;
}

rfm_Layout::rfm_Layout(std::vector<cow_String> fields) : columns(std::move(fields)) {
  if (columns.size() > mostSearched) {
    byName.resize(columns.size());
    std::iota(byName.begin(), byName.end(), std::uint16_t{0});
    std::sort(byName.begin(), byName.end(),
              [this](std::uint16_t left, std::uint16_t right) { return columns[left] < columns[right]; });
  }
}

// Fields are mostly asked for in their order.
std::optional<std::size_t> rfm_Layout::PlaceOf(cow_String const& field, std::size_t likely) const noexcept {
  std::size_t const count = columns.size();
  std::size_t place = likely < count ? likely : 0;
  for (std::size_t tried = 0; tried < std::min(count, mostSearched); ++tried) {
    if (columns[place] == field) {
      return place;
    }
    place = place + 1 == count ? 0 : place + 1;
  }
  auto const found = std::lower_bound(
      byName.begin(), byName.end(), field,
      [this](std::uint16_t listed, cow_String const& wanted) { return columns[listed] < wanted; });
  return found != byName.end() && columns[*found] == field ? std::optional<std::size_t>(*found)
                                                           : std::nullopt;
}

rfm_TableShape::rfm_TableShape(rfm_DatabaseNode& owner, unsigned classTypeId)
    : database(owner), typeId(classTypeId), layout(std::make_shared<rfm_Layout>()) {}

void rfm_TableShape::Forget() noexcept {
  for (rfm_Statement* const statement :
       {&lookUp, &nextRowNumber, &lastRow, &findUid, &insert, &update, &updateUid}) {
    statement->Finalize();
  }
  idleScans.clear();
  columnsRead = false;
  isFresh = false;
  nextRowEpoch = 0;
}

void rfm_TableShape::Describe(rfm_ClassEntry const* entry) {
  cow_String const newTable = entry ? entry->table : cow_String();
  cow_String const newName = entry                 ? entry->name
                             : className.IsEmpty() ? cow_String(std::to_string(typeId))
                                                   : className;
  auto described = std::make_shared<rfm_Layout>(entry ? rfm_columnsOf(*entry) : std::vector<cow_String>());
  // Nothing fails from here on.
  className = newName;
  if (newTable != table) {
    Forget();
    table = newTable;
  }
  if (!columnsRead) {
    if (described->columns != layout->columns) {
      layout = std::move(described);
    }
    hasUid = true;
  }
}

void rfm_TableShape::WantColumns() {
  if (columnsRead || !Exists()) {
    return;
  }
  rfm_Subject const subject{&className};
  std::optional<std::string> const sql = database.PlainTable(table.View(), subject);
  if (!sql) {
    database.ThrowDamaged("its table is missing", subject);
  }
  if (auto const written = rfm_writtenColumns(*sql, table.View())) {
    KnowColumns({written->begin(), written->end()});
    return;
  }
  rfm_Statement probe;
  probe.Prepare(database.Connection(), "SELECT * FROM " + rfm_quote(table.View()) + " LIMIT 0");
  std::vector<cow_String> found;
  bool hasRow = false;
  bool foundUid = false;
  int const count = sqlite3_column_count(probe.Get());
  for (int column = 0; column < count; ++column) {
    char const* const given = sqlite3_column_name(probe.Get(), column);
    if (given == nullptr) {
      database.Connection().Fail(SQLITE_NOMEM, subject);
    }
    std::string_view const name = given;
    if (name == rfm_RowColumn) {
      hasRow = true;
    } else if (name == rfm_UidColumn) {
      foundUid = true;
    } else {
      found.emplace_back(name);
    }
  }
  if (!hasRow || (!isClassList && !foundUid)) {
    database.ThrowDamaged("its table lacks a column that every table has", subject);
  }
  char const* type = nullptr;
  int isPrimaryKey = 0;
  int const result = sqlite3_table_column_metadata(database.Connection().Database(), "main", table.Text(),
                                                   std::string(rfm_RowColumn).c_str(), &type, nullptr,
                                                   nullptr, &isPrimaryKey, nullptr);
  if ((result & 0xff) == SQLITE_NOMEM) {
    database.Connection().Fail(result, subject);
  }
  if (isPrimaryKey == 0 || !type || sqlite3_stricmp(type, "INTEGER") != 0) {
    database.ThrowDamaged("the column 'row' of its table is not an integer primary key", subject);
  }
  if (found != layout->columns) {
    layout = std::make_shared<rfm_Layout>(std::move(found));
  }
  hasUid = foundUid;
  columnsRead = true;
}

void rfm_TableShape::KnowColumns(std::vector<cow_String> const& columns) {
  if (columns != layout->columns) {
    layout = std::make_shared<rfm_Layout>(columns);
  }
  hasUid = true;
  columnsRead = true;
}

std::string rfm_TableShape::SelectSql(std::string_view condition) const {
  std::string sql = "SELECT " + rfm_quote(rfm_RowColumn) + ", ";
  sql += hasUid ? rfm_quote(rfm_UidColumn) : "NULL";
  for (cow_String const& column : layout->columns) {
    sql += ", " + rfm_quote(column.View());
  }
  return sql + " FROM " + rfm_quote(table.View()) + std::string(condition);
}

// Parameters: 1 the row, then the identity where it is written, then the fields.
std::string rfm_TableShape::UpdateSql(bool withUid) const {
  std::string sql = "UPDATE " + rfm_quote(table.View()) + " SET ";
  int parameter = 1;
  auto const set = [&](std::string_view column) {
    sql += (parameter > 1 ? ", " : "") + rfm_quote(column) + " = ?" + std::to_string(parameter + 1);
    ++parameter;
  };
  if (withUid) {
    set(rfm_UidColumn);
  }
  for (cow_String const& column : layout->columns) {
    set(column.View());
  }
  return sql + " WHERE " + rfm_quote(rfm_RowColumn) + " = ?1";
}

std::string rfm_TableShape::InsertSql() const {
  std::string columns = rfm_quote(rfm_RowColumn) + ", " + rfm_quote(rfm_UidColumn);
  std::string parameters = "?1, ?2";
  int parameter = 2;
  for (cow_String const& column : layout->columns) {
    columns += ", " + rfm_quote(column.View());
    parameters += ", ?" + std::to_string(++parameter);
  }
  return "INSERT INTO " + rfm_quote(table.View()) + "(" + columns + ") VALUES(" + parameters + ")";
}

rfm_TableNode::rfm_TableNode(std::shared_ptr<rfm_DatabaseNode> owner,
                             std::shared_ptr<rfm_TableShape> tableShape)
    : database(std::move(owner)), shape(std::move(tableShape)), measure(database->Connection()) {
  row.shape = shape;
  FitBuffer();
}

rfm_TableNode::~rfm_TableNode() {
  EndScan();
}

// Called by the connection, which forgets the scan itself.
void rfm_TableNode::Stop() noexcept {
  scanning = stepped = false;
  sqlite3_reset(scan.Get());
  if (shape->columnsRead && shape->idleScans.size() < shape->idleScans.capacity()) {
    shape->idleScans.push_back(std::move(scan));
  }
  scan.Finalize();
}

void rfm_TableNode::ThrowNoRow(int number) const {
  rfm_throw(rfm_ErrorKind::Other, database->OriginName(), {&shape->className, number}, "there is no such row",
            "Check the number of rows, or restore the file from a backup");
}

void rfm_TableNode::ThrowBadRowNumber(std::int64_t number) const {
  database->ThrowDamaged("a row number that cannot be is stored there, " + std::to_string(number),
                         {&shape->className, number});
}

int rfm_TableNode::CheckedRow(std::int64_t number) const {
  if (number < 0 || number >= std::numeric_limits<int>::max()) {
    ThrowBadRowNumber(number);
  }
  return static_cast<int>(number);
}

void rfm_TableNode::WantWritable() const {
  database->Connection().WantTransaction();
  if (shape->isClassList) {
    nex_Exception::Throw(nex_AssertException("!isClassList"), "platform/rfm/rfm_Table", __LINE__);
  }
  shape->WantColumns();
}

// The columns may become known, or change, after the handle was made.
void rfm_TableNode::FitBuffer() {
  shape->WantColumns();
  if (row.layout == shape->layout) {
    return;
  }
  std::vector<rfm_Row::Value> fitted(shape->layout->columns.size());
  for (std::size_t place = 0; place < fitted.size(); ++place) {
    if (rfm_Row::Value const* const kept = row.Find(rfm_FieldHandle(shape->layout->columns[place]))) {
      fitted[place] = *kept;
    }
  }
  row.values = std::move(fitted);
  row.layout = shape->layout;
  row.hint = 0;
}

int rfm_TableNode::Length() {
  rfm_Connection& connection = database->Connection();
  rfm_ScopeGuard const scope(connection);
  if (!shape->Exists()) {
    return 0;
  }
  if (shape->nextRowEpoch == connection.Epoch()) {
    return shape->nextRow;
  }
  shape->WantColumns();
  if (std::optional<std::int64_t> const first = FirstRowFrom(std::numeric_limits<std::int64_t>::min())) {
    CheckedRow(*first); // no walk would meet a negative one
    rfm_Run run(connection, shape->lastRow,
                [this] {
                  std::string const rowColumn = rfm_quote(rfm_RowColumn);
                  return "SELECT " + rowColumn + " FROM " + rfm_quote(shape->table.View()) + " ORDER BY " +
                         rowColumn + " DESC LIMIT 1";
                },
                {&shape->className});
    run.Step();
    shape->nextRow = CheckedRow(sqlite3_column_int64(run.Get(), 0)) + 1;
  } else {
    shape->nextRow = 0;
  }
  shape->nextRowEpoch = connection.Epoch();
  return shape->nextRow;
}

bool rfm_TableNode::RowExists(int number) {
  if (number != -1) {
    return number >= 0 && FirstRowFrom(number) == std::optional<std::int64_t>(number);
  }
  std::optional<int> const ahead = NextByScan();
  return ahead ? *ahead >= 0 : FirstRowFrom(next).has_value();
}

int rfm_TableNode::NextRow() {
  if (std::optional<int> const ahead = NextByScan()) {
    return *ahead;
  }
  std::optional<std::int64_t> const found = FirstRowFrom(next);
  return found ? CheckedRow(*found) : -1;
}

// Lets a scan that can go on afterwards find the next row. ReadRow takes it from there.
// @returns -1 when there is none; nothing when a scan cannot tell, for want of a state that lasts, or because
//          the row is damaged
std::optional<int> rfm_TableNode::NextByScan() {
  rfm_Connection& connection = database->Connection();
  rfm_ScopeGuard const scope(connection);
  if (!connection.HoldsState() || connection.InTransaction() || !shape->Exists()) {
    return std::nullopt;
  }
  FitBuffer();
  EndScanUnlessAt(next);
  try {
    if (!scanning) {
      StartScan(next);
    }
    int found = 0;
    if (!StepScan(found)) {
      return -1;
    }
    next = scanNext = found;
    stepped = true;
    return found;
  } catch (rfm_Exception const& failure) {
    EndScan();
    if (failure.Kind() != rfm_ErrorKind::Damaged) {
      throw;
    }
    return std::nullopt;
  }
}

void rfm_TableNode::EndScan() noexcept {
  if (scanning) {
    database->Connection().Drop(*this);
    Stop();
  }
}

void rfm_TableNode::EndScanUnlessAt(int place) noexcept {
  if (scanNext != place) {
    EndScan();
  }
}

// The number of the first row at or after a place.
std::optional<std::int64_t> rfm_TableNode::FirstRowFrom(std::int64_t place) {
  rfm_Connection& connection = database->Connection();
  rfm_ScopeGuard const scope(connection);
  if (!shape->Exists()) {
    return std::nullopt;
  }
  shape->WantColumns();
  rfm_Run run(connection, shape->nextRowNumber,
              [this] {
                std::string const rowColumn = rfm_quote(rfm_RowColumn);
                return "SELECT " + rowColumn + " FROM " + rfm_quote(shape->table.View()) + " WHERE " +
                       rowColumn + " >= ?1 ORDER BY " + rowColumn + " LIMIT 1";
              },
              {&shape->className});
  run.Bind(1, place);
  return run.Step() ? std::optional<std::int64_t>(sqlite3_column_int64(run.Get(), 0)) : std::nullopt;
}

void rfm_TableNode::Seek(int number) {
  next = std::max(number, 0);
}

void rfm_TableNode::StartScan(int from) {
  rfm_Connection& connection = database->Connection();
  if (!shape->idleScans.empty()) {
    scan = std::move(shape->idleScans.back());
    shape->idleScans.pop_back();
  }
  shape->idleScans.reserve(shape->idleScans.size() + 2); // room to give it back without a failure
  rfm_Run run(connection, scan, [this] {
    std::string const rowColumn = rfm_quote(rfm_RowColumn);
    return shape->SelectSql(" WHERE " + rowColumn + " >= ?1 ORDER BY " + rowColumn);
  });
  run.Bind(1, from);
  connection.Add(*this);
  run.Keep();
  scanning = true;
  scanNext = from;
}

bool rfm_TableNode::StepScan(int& number) {
  int const result = stepped ? SQLITE_ROW : database->Connection().Advance(scan.Get());
  stepped = false;
  if (result == SQLITE_ROW) {
    number = CheckedRow(sqlite3_column_int64(scan.Get(), 0));
    if (number < scanNext) { // pages that lead in circles
      database->ThrowDamaged("its rows are not in order", {&shape->className, number});
    }
    scanNext = number + 1;
    return true;
  }
  database->Connection().Drop(*this);
  if (result != SQLITE_DONE) {
    scan.Finalize();
    scanning = false;
    database->Connection().Fail(result, {&shape->className, scanNext});
  }
  Stop();
  return false;
}

rfm_Row const& rfm_TableNode::ReadRow(int number) {
  rfm_Connection& connection = database->Connection();
  rfm_ScopeGuard const scope(connection);
  int const target = number < 0 ? next : number;
  if (number < -1 || !shape->Exists()) {
    ThrowNoRow(number < -1 ? number : target);
  }
  FitBuffer();
  bool const follows = target == row.rowNumber + 1;
  EndScanUnlessAt(target);
  if (!scanning && (number < 0 || (follows && connection.HoldsState()))) {
    StartScan(target);
  }
  if (scanning) {
    int found = 0;
    if (!StepScan(found) || (number >= 0 && found != number)) {
      EndScan();
      ThrowNoRow(target);
    }
    Fill(scan.Get(), found);
    return row;
  }
  rfm_Run run(connection, shape->lookUp,
              [this] { return shape->SelectSql(" WHERE " + rfm_quote(rfm_RowColumn) + " = ?1"); },
              {&shape->className, target});
  run.Bind(1, target);
  if (!run.Step()) {
    ThrowNoRow(target);
  }
  Fill(run.Get(), target);
  return row;
}

void rfm_TableNode::Fill(sqlite3_stmt* statement, int number) {
  rfm_Statistics& statistics = database->Connection().statistics;
  ++statistics.rowsRead;
  statistics.bytesRead += rfm_RowBytes;
  std::uint64_t const bytesBefore = statistics.bytesRead;
  int const uidType = sqlite3_column_type(statement, 1);
  std::string_view const uidBytes =
      uidType == SQLITE_BLOB ? rfm_columnBytes(statement, 1) : std::string_view();
  if (uidType != SQLITE_NULL && uidBytes.size() != row.uid.size()) {
    statistics.bytesRead += static_cast<unsigned>(sqlite3_column_bytes(statement, 1));
    database->ThrowDamaged("an identity that is not one is stored there",
                           {&shape->className, number, rfm_UidColumn});
  }
  rfm_Uid uid = row.uid;
  if (uidType != SQLITE_NULL) {
    std::memcpy(uid.data(), uidBytes.data(), uid.size());
  }
  incoming.resize(row.values.size());
  int column = 2;
  for (rfm_Row::Value& value : incoming) {
    switch (sqlite3_column_type(statement, column)) {
    case SQLITE_INTEGER:
      value.type = rfm_Row::Value::Type::Integer;
      value.integer = sqlite3_column_int64(statement, column);
      break;
    case SQLITE_FLOAT:
      value.type = rfm_Row::Value::Type::Real;
      value.real = sqlite3_column_double(statement, column);
      break;
    case SQLITE_TEXT: {
      std::string_view const text = rfm_columnText(statement, column);
      statistics.bytesRead += text.size();
      if (holdsText(text)) {
        value.type = rfm_Row::Value::Type::Text;
        value.text = cow_String(text);
      } else {
        value.type = rfm_Row::Value::Type::BadText;
        value.bytes = text;
      }
      break;
    }
    case SQLITE_BLOB:
      value.type = rfm_Row::Value::Type::Blob;
      value.bytes = rfm_columnBytes(statement, column);
      statistics.bytesRead += value.bytes.size();
      break;
    default:
      value = rfm_Row::Value();
      break;
    }
    ++column;
  }
  if (number <= measuredRow) {
    measure.Begin();
  }
  measuredRow = number;
  if (measure.IsExceededBy(statistics.bytesRead - bytesBefore)) {
    database->ThrowDamaged(rfm_sharedPages, {&shape->className, number});
  }
  // The row is there as a whole, or as it was before.
  row.values.swap(incoming);
  row.uid = uid;
  row.hasUid = uidType != SQLITE_NULL;
  row.uidChanged = false;
  row.rowNumber = number;
  row.readRow = number;
  next = number + 1;
}

void rfm_TableNode::ClearRow() {
  FitBuffer();
  std::fill(row.values.begin(), row.values.end(), rfm_Row::Value());
  row.uidChanged = row.uidChanged || row.hasUid;
  row.hasUid = false;
}

void rfm_TableNode::BindRow(rfm_Run& run, int firstParameter, bool withUid) const {
  int parameter = firstParameter;
  if (withUid) {
    if (row.hasUid) {
      run.BindBlob(parameter, row.uid.data(), row.uid.size());
    } else {
      run.BindNull(parameter);
    }
    ++parameter;
  }
  for (rfm_Row::Value const& value : row.values) {
    switch (value.type) {
    case rfm_Row::Value::Type::Null:
      run.BindNull(parameter);
      break;
    case rfm_Row::Value::Type::Integer:
      run.Bind(parameter, value.integer);
      break;
    case rfm_Row::Value::Type::Real:
      run.Bind(parameter, value.real);
      break;
    case rfm_Row::Value::Type::Text:
      run.Bind(parameter, value.text.View());
      break;
    case rfm_Row::Value::Type::BadText:
      run.Bind(parameter, std::string_view(value.bytes));
      break;
    case rfm_Row::Value::Type::Blob:
      run.BindBlob(parameter, value.bytes.data(), value.bytes.size());
      break;
    }
    ++parameter;
  }
}

void rfm_TableNode::UpdateRow(int number) {
  WantWritable();
  int const target = number < 0 ? row.rowNumber : number;
  if (target < 0 || !shape->Exists()) {
    ThrowNoRow(target);
  }
  FitBuffer();
  bool const withUid = target != row.readRow || row.uidChanged;
  if (row.values.empty() && !withUid) {
    return; // read before, and nothing to write
  }
  rfm_Run run(database->Connection(), withUid ? shape->updateUid : shape->update,
              [this, withUid] { return shape->UpdateSql(withUid); }, {&shape->className, target});
  run.Bind(1, target);
  BindRow(run, 2, withUid);
  if (run.Change() == 0) {
    ThrowNoRow(target);
  }
  row.rowNumber = target;
  row.readRow = target;
  row.uidChanged = false;
}

int rfm_TableNode::AppendRow() {
  int const number = Length();
  InsertRow(number);
  return number;
}

void rfm_TableNode::InsertRow(int number) {
  WantWritable();
  if (!shape->Exists()) {
    rfm_throw(rfm_ErrorKind::Other, database->FileName(), {&shape->className},
              "the class has no table in this file yet", "Ask the database for a table to write");
  }
  FitBuffer();
  int const length = Length();
  WantRoomFor(number);
  rfm_Run run(database->Connection(), shape->insert, [this] { return shape->InsertSql(); },
              {&shape->className, number});
  run.Bind(1, number);
  BindRow(run, 2, true);
  run.Change();
  shape->nextRow = std::max(length, number + 1);
  row.rowNumber = number;
  row.readRow = number;
  row.uidChanged = false;
  next = number + 1;
}

void rfm_TableNode::WantRoomFor(int number) const {
  if (number < 0 || number >= std::numeric_limits<int>::max() - 1) {
    rfm_throw(rfm_ErrorKind::Full, database->FileName(), {&shape->className},
              "the table has no room for more rows", "Start a new file");
  }
}

int rfm_TableNode::FindUid(rfm_Uid const& uid, int* rows, int most) {
  rfm_Connection& connection = database->Connection();
  rfm_ScopeGuard const scope(connection);
  if (most <= 0 || !shape->Exists()) {
    return 0;
  }
  shape->WantColumns();
  if (!shape->hasUid || (shape->isFresh && Length() == 0)) {
    return 0;
  }
  if (shape->isFresh) {
    database->MakeUidIndex(*shape);
  }
  rfm_Run run(connection, shape->findUid,
              [this] {
                std::string const rowColumn = rfm_quote(rfm_RowColumn);
                return "SELECT " + rowColumn + " FROM " + rfm_quote(shape->table.View()) + " WHERE " +
                       rfm_quote(rfm_UidColumn) + " = ?1 ORDER BY " + rowColumn + " LIMIT ?2";
              },
              {&shape->className});
  run.BindBlob(1, uid.data(), uid.size());
  run.Bind(2, most);
  int count = 0;
  while (count < most && run.Step()) {
    rows[count++] = CheckedRow(sqlite3_column_int64(run.Get(), 0));
  }
  return count;
}

// ---- the public handle ----

rfm_Table::rfm_Table(std::shared_ptr<rfm_TableNode> table) noexcept : node(std::move(table)) {}

int rfm_Table::Length() const {
  return node->Length();
}

bool rfm_Table::RowExists(int row) const {
  return node->RowExists(row);
}

int rfm_Table::NextRow() const {
  return node->NextRow();
}

void rfm_Table::Seek(int row) {
  node->Seek(row);
}

rfm_Row const& rfm_Table::ReadRow(int row) {
  return node->ReadRow(row);
}

rfm_Row& rfm_Table::Row() noexcept {
  return node->Row();
}

rfm_Row const& rfm_Table::Row() const noexcept {
  return node->Row();
}

void rfm_Table::ClearRow() {
  node->ClearRow();
}

void rfm_Table::UpdateRow(int row) {
  node->UpdateRow(row);
}

int rfm_Table::AppendRow() {
  return node->AppendRow();
}

void rfm_Table::InsertRow(int row) {
  node->InsertRow(row);
}

void rfm_Table::WantRoomFor(int row) const {
  node->WantRoomFor(row);
}

int rfm_Table::FindUid(rfm_Uid const& uid, int* rows, int most) const {
  return node->FindUid(uid, rows, most);
}

bool rfm_Table::HasField(rfm_FieldHandle const& field) const noexcept {
  return node->Row().HasField(field);
}

std::vector<cow_String> rfm_Table::FieldNames() const {
  return node->Shape().layout->columns;
}
