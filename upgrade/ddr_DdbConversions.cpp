#include "ddr_DdbConversions.h"

#include "dbc_DatabaseConverter.h"
#include "dbc_DatabaseConverterHolder.h"
#include "dbc_InputDatabase.h"
#include "dbc_Row.h"
#include "dbc_Utils.h"
#include "ddr_OldNames.h"

#include <string>

namespace {

// Frozen: what a record of release 203 gets. It is stored in files of many releases, character for character.
constexpr char const* sequenceBeforeIdentifiers = "prior to 2000_04_25-21.21.10 17429";

constexpr int wholeField = -1;

dbc_DatabaseConverter& converter() {
  return omi_Singleton<dbc_DatabaseConverterHolder>::Instance().GetDatabaseConverter();
}

dbc_Utils& utils() {
  return omi_Singleton<dbc_Utils>::Instance();
}

rfm_FieldHandle fieldOf(std::string const& name) {
  return rfm_FieldHandle(cow_String(name), wholeField);
}

void wantMap(dbc_Row const& input, dbc_Row& output, char const* attribute) {
  if (!input.IsPresent(fieldOf(std::string(attribute) + "#OID"))) {
    utils().SetNewAttributeMapInOutputDatabase(output, attribute).reset();
    converter().Supplied(attribute, "an empty map");
  }
}

void copyInt(dbc_Row const& input, dbc_Row& output, char const* name) {
  rfm_FieldHandle const field(name, wholeField);
  if (input.IsPresent(field)) {
    output.WriteFieldInt(field, input.ReadFieldInt(field));
  }
}

void copyString(dbc_Row const& input, dbc_Row& output, char const* name) {
  rfm_FieldHandle const field(name, wholeField);
  if (input.IsPresent(field)) {
    output.WriteFieldString(field, input.ReadFieldString(field));
  }
}

void copyReference(dbc_Row const& input, dbc_Row& output, char const* attribute) {
  rfm_FieldHandle const classField = fieldOf(std::string(attribute) + "#ClassID");
  rfm_FieldHandle const oidField = fieldOf(std::string(attribute) + "#OID");
  if (!input.IsPresent(classField) || !input.IsPresent(oidField)) {
    return;
  }
  int const classId = input.ReadFieldInt(classField);
  int const oid = input.ReadFieldInt(oidField);
  output.WriteFieldInt(classField, classId);
  output.WriteFieldInt(oidField, oid);
}

/// Tells that diagnostics are dropped, unless they are the empty list that the step before this one made.
void dropDiagnostics(dbc_Row const& input) {
  rfm_FieldHandle const classField("diagnosticData#ClassID", wholeField);
  rfm_FieldHandle const oidField("diagnosticData#OID", wholeField);
  if (!input.IsPresent(classField) || !input.IsPresent(oidField)) {
    return;
  }
  unsigned const typeId = input.ReadFieldUnsigned(classField);
  if (typeId != ddr_oldDiagnosticListTypeId ||
      converter().InputDatabase().IsOfOldFile(typeId, input.ReadFieldInt(oidField))) {
    converter().Dropped("diagnosticData", "the record starts with an empty list of diagnostics");
  }
}

void startDiagnostics(dbc_Row& output) {
  utils().SetNewAttributeMapListInOutputDatabase(output, "diagnosticData").reset();
  converter().Supplied("diagnosticData", "an empty list");
}

} // namespace

void* ddr_convertDdb203(dbc_Row const& input, dbc_Row& output, int) {
  rfm_FieldHandle const sequenceData("sequenceData", wholeField);
  rfm_FieldHandle const onlyHasUserDefinedData("onlyHasUserDefinedData", wholeField);
  rfm_FieldHandle const description("description", wholeField);
  rfm_FieldHandle const ddbVersion("ddbVersion", wholeField);
  if (!input.IsPresent(sequenceData)) {
    output.WriteFieldString(sequenceData, sequenceBeforeIdentifiers);
    converter().Supplied("sequenceData",
                         "'prior to 2000_04_25-21.21.10 17429', the mark of records older than the field");
  }
  if (!input.IsPresent(onlyHasUserDefinedData)) {
    output.WriteFieldInt(onlyHasUserDefinedData, 0);
    converter().Supplied("onlyHasUserDefinedData", "false");
  }
  if (!input.IsPresent(description)) {
    output.WriteFieldString(description, cow_String());
    converter().Supplied("description", "the empty text");
  }
  // Kept on purpose: a version that is stored is overwritten. Records of this layout carry numbers of another
  // count, and what they hold is current when the steps have ended.
  output.WriteFieldInt(ddbVersion, ddr_oldSchemaVersion);
  converter().Supplied("ddbVersion", "891, whatever was stored");
  wantMap(input, output, "models");
  wantMap(input, output, "results");
  wantMap(input, output, "userData");
  return nullptr;
}

void* ddr_convertDdb204(dbc_Row const&, dbc_Row& output, int) {
  startDiagnostics(output);
  return nullptr;
}

void* ddr_convertDdb309(dbc_Row const& input, dbc_Row& output, int) {
  for (char const* const field : {"ddbVersion", "creationTime", "onlyHasUserDefinedData"}) {
    copyInt(input, output, field);
  }
  copyString(input, output, "description");
  copyInt(input, output, "modifyTime");
  for (char const* const field : {"analysisVersion", "name", "sequenceData"}) {
    copyString(input, output, field);
  }
  copyReference(input, output, "models");
  // Kept on purpose: the layout of 309 has no add-ons, yet some of its files do: their reference is taken
  // over.
  copyReference(input, output, "productAddOns");
  copyReference(input, output, "results");
  copyReference(input, output, "userData");
  dropDiagnostics(input);
  startDiagnostics(output);
  return nullptr;
}
