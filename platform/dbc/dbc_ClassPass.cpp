#include "dbc_ClassPass.h"

#include "dbc_InputDatabase.h"
#include "dbc_OutputDatabase.h"
#include "dbc_Tables.h"
#include "rfm_Row.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace {

constexpr std::int64_t rowsBetweenReports = 2048;

constexpr std::string_view baseField = "##BaseClassOID";
constexpr std::string_view classSuffix = "#ClassID";
constexpr std::string_view oidSuffix = "#OID";

// By dbc_ClassPass::Loss.
constexpr std::array<std::string_view, 4> lossTexts{
    "only one half of the reference was set", "the new layout has no such field",
    "the new layout keeps something else under this name", "the reference leads to something new"};

rfm_FieldHandle withSuffix(std::string const& attribute, std::string_view suffix) {
  return cow_String(std::string(attribute).append(suffix));
}

std::vector<rfm_FieldHandle> fieldsOf(std::string const& attribute, int kind) {
  if (kind == rfm_AttributeKind_Object) {
    return {withSuffix(attribute, classSuffix), withSuffix(attribute, oidSuffix)};
  }
  return {rfm_FieldHandle(cow_String(attribute))};
}

bool isSet(rfm_Row const& row, std::vector<rfm_FieldHandle> const& fields) {
  return std::all_of(fields.begin(), fields.end(),
                     [&](rfm_FieldHandle const& field) { return row.FieldIsSet(field); });
}

bool isPartlySet(rfm_Row const& row, std::vector<rfm_FieldHandle> const& fields) {
  return std::any_of(fields.begin(), fields.end(),
                     [&](rfm_FieldHandle const& field) { return row.FieldIsSet(field); });
}

} // namespace

dbc_ClassPass::dbc_ClassPass(dbc_DatabaseConverter& runningConverter, rfm_Database& sourceFile,
                             rfm_Database& madeFile, rfm_Rebuild& rebuilding, dbc_Task const& toDo,
                             bool isFirst)
    : converter(runningConverter), source(sourceFile), made(madeFile), rebuild(rebuilding), task(toDo),
      first(isFirst) {}

void dbc_ClassPass::Run(std::int64_t rows, Watch const& watch) {
  Prepare();
  if (!hasRows) {
    return;
  }
  try {
    ConvertRows(rows, watch);
  } catch (...) {
    try {
      Finalize(); // lets go of what the function keeps of this conversion
    } catch (...) {
      // The first failure is the one to tell.
    }
    throw;
  }
  Finalize();
  converter.InputDatabase().ReadDuringMove(task.before.typeId, {});
  input.reset();
  output.reset();
  rebuild.DropRetired();
}

// Gives the class its next layout, and finds where its rows are and where they go.
void dbc_ClassPass::Prepare() {
  unsigned const typeId = task.before.typeId;
  rfm_ClassEntry const& listed = *(first ? source : made).FindClass(typeId); // or there were no task
  hasRows = !listed.table.IsEmpty();
  rfm_ClassEntry after = task.after;
  after.name = listed.name; // the name is the file's, as its table's is
  if (!hasRows) {
    rebuild.ChangeClass(after);
    return;
  }
  inPlace = !first && task.KeepsFields();
  if (first) {
    input.emplace(source.Table(typeId));
  } else if (inPlace) {
    input.emplace(made.Table(typeId));
  } else {
    input.emplace(rebuild.RetireTable(typeId));
    converter.InputDatabase().ReadDuringMove(typeId, [this, typeId] { return rebuild.RetiredTable(typeId); });
  }
  rebuild.ChangeClass(after);
  bool const isInterim = !inPlace && task.isMovedOn;
  output.emplace(isInterim ? rebuild.MakeInterimTable(typeId) : made.TableForWriting(typeId));
  int const nextRow = input->Length();
  converter.OutputDatabase().BeginPass(typeId, nextRow);
  FindShared();
  FindWatched(input->FieldNames());
}

void dbc_ClassPass::FindShared() {
  for (rfm_AttributeEntry const& attribute : task.before.attributes) {
    if (std::find(task.after.attributes.begin(), task.after.attributes.end(), attribute) !=
        task.after.attributes.end()) {
      std::string const name(attribute.name.View());
      shared.push_back({name, attribute.kind, fieldsOf(name, attribute.kind)});
    }
  }
  if (task.before.baseTypeId == task.after.baseTypeId && task.before.baseTypeId != rfm_NoBaseTypeId) {
    shared.push_back(
        {std::string(baseField), rfm_AttributeKind_Integer, {rfm_FieldHandle(baseField.data())}});
  }
}

// The columns are those that the rows really have, whatever the layout says.
void dbc_ClassPass::FindWatched(std::vector<cow_String> const& columns) {
  std::unordered_map<std::string, std::size_t> names;
  std::unordered_map<std::string, std::size_t> references;
  for (cow_String const& column : columns) {
    std::string_view name = column.View();
    if (name == baseField) {
      continue;
    }
    bool const isClass = name.ends_with(classSuffix);
    bool const isReference = isClass || name.ends_with(oidSuffix);
    if (isReference) {
      name.remove_suffix(isClass ? classSuffix.size() : oidSuffix.size());
      auto const [known, isFirst] = references.emplace(name, watched.size());
      if (!isFirst) {
        std::vector<rfm_FieldHandle>& fields = watched[known->second].attribute.fields;
        fields.insert(isClass ? fields.begin() : fields.end(), rfm_FieldHandle(column));
        watched[known->second].isWhole = true;
        continue;
      }
    }
    Watched found;
    found.attribute = {std::string(name),
                       isReference ? rfm_AttributeKind_Object : rfm_AttributeKind_String,
                       {rfm_FieldHandle(column)}};
    found.isWhole = !isReference;
    found.namesake = names.emplace(name, watched.size()).first->second;
    watched.push_back(std::move(found));
  }
  for (Watched& one : watched) {
    one.hasPlace = output->HasField(one.attribute.fields.front());
  }
}

void dbc_ClassPass::ConvertRows(std::int64_t rows, Watch const& watch) {
  input->Seek(0);
  for (std::int64_t done = 0; done < rows; ++done) {
    input->ReadRow(-1);
    ConvertRow();
    if ((done + 1) % rowsBetweenReports == 0) {
      watch(done + 1);
    }
  }
}

void dbc_ClassPass::ConvertRow() {
  rfm_Row const& from = input->Row();
  rfm_Row& to = output->Row();
  int const number = from.RowNumber();
  dbc_Row const inputRow(number, *input);
  dbc_Row outputRow(number, *output);
  converter.dropped.clear();
  converter.OutputDatabase().SetOwner(from.Uid());
  output->ClearRow();
  if (inPlace) {
    to.CopyFieldsFrom(from);
    DropHalves(from, outputRow);
  } else {
    CopyShared(from, to);
  }
  if (task.bound->ConversionFunction()) {
    task.bound->ConversionFunction()(inputRow, outputRow, 0);
  }
  if (inPlace && !outputRow.changed) {
    return;
  }
  NoteLosses(from, to);
  if (inPlace) {
    output->UpdateRow(number);
  } else {
    output->InsertRow(number);
  }
}

// Reads each value as what the layout says it is, so that a damaged one is found here.
void dbc_ClassPass::CopyShared(rfm_Row const& from, rfm_Row& to) const {
  if (auto const uid = from.Uid()) {
    to.SetUid(*uid);
  }
  for (Attribute const& attribute : shared) {
    if (!isSet(from, attribute.fields)) {
      continue;
    }
    rfm_FieldHandle const& field = attribute.fields.front();
    switch (attribute.kind) {
    case rfm_AttributeKind_Integer:
      to.WriteFieldInt(field, from.ReadFieldInt(field));
      break;
    case rfm_AttributeKind_Real:
      to.WriteFieldDouble(field, from.ReadFieldDouble(field));
      break;
    case rfm_AttributeKind_Handle:
      to.WriteFieldHandle(field, from.ReadFieldHandle(field));
      break;
    case rfm_AttributeKind_String:
      to.WriteFieldString(field, from.ReadFieldString(field));
      break;
    case rfm_AttributeKind_Boolean:
      to.WriteFieldBool(field, from.ReadFieldBool(field));
      break;
    case rfm_AttributeKind_Object:
      to.WriteFieldUnsigned(field, from.ReadFieldUnsigned(field));
      to.WriteFieldInt(attribute.fields.back(), from.ReadFieldInt(attribute.fields.back()));
      break;
    default:
      to.CopyFieldFrom(from, field);
      break;
    }
  }
}

void dbc_ClassPass::DropHalves(rfm_Row const& from, dbc_Row& to) {
  for (Watched const& one : watched) {
    Attribute const& attribute = one.attribute;
    if (attribute.kind == rfm_AttributeKind_Object && isPartlySet(from, attribute.fields) &&
        !(one.isWhole && isSet(from, attribute.fields))) {
      for (rfm_FieldHandle const& field : attribute.fields) {
        to.WriteFieldNull(field);
      }
    }
  }
}

void dbc_ClassPass::NoteLosses(rfm_Row const& from, rfm_Row const& to) {
  int const row = from.RowNumber();
  for (Watched& one : watched) {
    std::string const& name = one.attribute.name;
    int& lostIn = watched[one.namesake].lostIn;
    bool const isTold = lostIn == row || (!converter.dropped.empty() && converter.dropped.contains(name));
    std::optional<Loss> const loss = isTold ? std::nullopt : LossOf(one, from, to);
    if (!loss) {
      continue;
    }
    lostIn = row;
    std::optional<std::size_t>& note = one.notes[static_cast<std::size_t>(*loss)];
    if (!note) {
      note = converter.PlaceOfNote(dbc_Note::Kind::Dropped, name, lossTexts[static_cast<std::size_t>(*loss)]);
    }
    ++converter.report->notes[*note].rows;
  }
}

std::optional<dbc_ClassPass::Loss> dbc_ClassPass::LossOf(Watched const& one, rfm_Row const& from,
                                                         rfm_Row const& to) const {
  std::vector<rfm_FieldHandle> const& fields = one.attribute.fields;
  if (!isPartlySet(from, fields)) {
    return std::nullopt;
  }
  if (!one.isWhole || !isSet(from, fields)) { // whatever was put in its place
    return Loss::Half;
  }
  if (!one.hasPlace) {
    return Loss::NoPlace;
  }
  if (!isSet(to, fields)) {
    return Loss::OtherValue;
  }
  bool const losesTarget =
      one.attribute.kind == rfm_AttributeKind_Object && LosesTarget(from, to, one.attribute);
  return losesTarget ? std::optional(Loss::OtherTarget) : std::nullopt;
}

// Whether a reference led to an object of the old file and leads to another one now. What an earlier step has
// put in is no loss.
bool dbc_ClassPass::LosesTarget(rfm_Row const& from, rfm_Row const& to, Attribute const& reference) const {
  rfm_FieldHandle const& classField = reference.fields.front();
  rfm_FieldHandle const& oidField = reference.fields.back();
  unsigned const typeId = from.ReadFieldUnsigned(classField);
  int const row = from.ReadFieldInt(oidField);
  bool const isKept = typeId == to.ReadFieldUnsigned(classField) && row == to.ReadFieldInt(oidField);
  return !isKept && converter.InputDatabase().IsOfOldFile(typeId, row);
}

void dbc_ClassPass::Finalize() {
  if (task.bound->FinalizeFunction()) {
    dbc_ReadTable const inputTable(*input, false);
    dbc_StoredTable outputTable(converter.OutputDatabase(), task.before.typeId);
    task.bound->FinalizeFunction()(inputTable, outputTable);
  }
}
