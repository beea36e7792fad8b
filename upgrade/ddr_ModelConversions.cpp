#include "ddr_ModelConversions.h"

#include "dbc_ClassView.h"
#include "dbc_DatabaseConverter.h"
#include "dbc_DatabaseConverterHolder.h"
#include "dbc_InputDatabase.h"
#include "dbc_OutputDatabase.h"
#include "dbc_Utils.h"
#include "ddr_ModelContainers.h"
#include "ddr_OldNames.h"
#include "rom_Transporter.h"

#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace {

// Frozen: type ids, versions and texts of files of older releases.
constexpr unsigned oldModelTypeId = 0x2a50001;
constexpr char const* oldModelName = "odiK_Model";
constexpr int oldModelVersion = 304;
constexpr unsigned stepsWrapperTypeId = 0x23c004a;
constexpr char const* stepsWrapperName = "kprC_SCWrapper";
constexpr int stepsWrapperVersion = 401;
constexpr int stepsWrapperViewVersion = 891;
constexpr char const* extensionReference = "extension";
constexpr char const* connectorProperties = "connPropCont";
constexpr unsigned connectorPropertyTypeId = 0x2ac0003;
constexpr unsigned connectorSectionTypeId = 0x2600045;
constexpr char const* unspecified = "UNSPECIFIED";
constexpr double oldUnset = std::numeric_limits<double>::lowest();
constexpr double newUnset = std::numeric_limits<double>::max();
constexpr char const* referenceLengths[] = {"u1ReferenceLength", "u2ReferenceLength", "u3ReferenceLength",
                                            "ur1ReferenceAngle", "ur2ReferenceAngle", "ur3ReferenceAngle"};

constexpr int wholeField = -1;
constexpr int noBasePart = -1;

rfm_FieldHandle const& baseField() {
  static rfm_FieldHandle const field("##BaseClassOID", wholeField);
  return field;
}

dbc_DatabaseConverter& converter() {
  return omi_Singleton<dbc_DatabaseConverterHolder>::Instance().GetDatabaseConverter();
}

dbc_Utils& utils() {
  return omi_Singleton<dbc_Utils>::Instance();
}

rfm_FieldHandle fieldOf(std::string const& name) {
  return rfm_FieldHandle(cow_String(name), wholeField);
}

/// The contents of old models, seen under their class name. Made at the first row of the step from 203, kept
/// until its end.
class OldModels {
public:
  OldModels()
      : table(converter().InputDatabase().GetInputTable(oldModelTypeId)),
        view(converter().ClassView(oldModelName, *table, oldModelVersion, 0, -1)) {}
  virtual ~OldModels() = default;
  OldModels(OldModels const&) = delete;
  OldModels& operator=(OldModels const&) = delete;

  dbc_ClassView& View() const { return *view; }

private:
  std::unique_ptr<dbc_Table> table;
  std::unique_ptr<dbc_ClassView> view;
};

std::unique_ptr<OldModels>& oldModels() {
  static std::unique_ptr<OldModels> kept;
  return kept;
}

void addEntry(dbc_Table& map, char const* key, unsigned classId, int oid) {
  static rfm_FieldHandle const keyField("Key", wholeField);
  static rfm_FieldHandle const classField("ClassID", wholeField);
  static rfm_FieldHandle const oidField("OID", wholeField);
  dbc_Row& entry = map.AppendRow();
  entry.WriteFieldString(keyField, key);
  entry.WriteFieldUnsigned(classField, classId);
  entry.WriteFieldInt(oidField, oid);
  map.FinishRow(entry);
}

/// The two fields of a reference.
struct ReferenceFields {
  explicit ReferenceFields(std::string const& attribute)
      : classField(fieldOf(attribute + "#ClassID")), oidField(fieldOf(attribute + "#OID")) {}

  bool AreSet(dbc_Row const& row) const { return row.IsPresent(classField) && row.IsPresent(oidField); }
  bool IsHalfSet(dbc_Row const& row) const { return row.IsPresent(classField) != row.IsPresent(oidField); }
  void WriteNull(dbc_Row& row) const {
    row.WriteFieldNull(classField);
    row.WriteFieldNull(oidField);
  }

  rfm_FieldHandle classField;
  rfm_FieldHandle oidField;
};

/// Takes over a reference of the old model. One of which not both fields are set becomes null, for a number
/// that is not there must not read as row 0.
void takeReference(dbc_Row const& oldModel, std::string const& attribute, dbc_Row& to,
                   std::string const& newAttribute) {
  ReferenceFields const from(attribute);
  ReferenceFields const now(newAttribute);
  if (from.AreSet(oldModel)) {
    to.WriteFieldInt(now.classField, oldModel.ReadFieldInt(from.classField));
    to.WriteFieldInt(now.oidField, oldModel.ReadFieldInt(from.oidField));
    return;
  }
  now.WriteNull(to);
  if (from.IsHalfSet(oldModel)) {
    converter().Dropped(attribute, "only one half of the reference was set");
  }
}

/// Gives the model its steps.
void moveSteps(dbc_Table& map, dbc_Row const& oldModel) {
  static rfm_FieldHandle const stepsClass("steps#ClassID", wholeField);
  if (!oldModel.IsPresent(stepsClass)) {
    return;
  }
  std::unique_ptr<dbc_Table> const wrappers =
      utils().CreateTempClassInOutputDatabase(stepsWrapperTypeId, stepsWrapperVersion);
  dbc_Row& wrapper = wrappers->AppendRow();
  int const wrapperRow = wrappers->Length() - 1;
  for (char const* const attribute : {"steps", "stepsorder"}) {
    takeReference(oldModel, attribute, wrapper, attribute);
  }
  wrapper.WriteFieldInt(baseField(), noBasePart);
  wrappers->FinishRow(wrapper);
  addEntry(map, ddr_oldStepCommand, stepsWrapperTypeId, wrapperRow);
  converter().ClassView(stepsWrapperName, *wrappers, stepsWrapperViewVersion, 0, -1).reset();
}

/// Makes an extension around an old container, if the old model has it.
void moveContainer(rom_Transporter& transporter, dbc_Table& map, dbc_Row const& oldModel,
                   ddr_ModelContainerKind const& kind) {
  if (!oldModel.IsPresent(fieldOf(std::string(kind.container) + "#ClassID"))) {
    return;
  }
  std::unique_ptr<dbc_Table> const extensions = utils().CreateClassInOutputDatabase(kind.typeId, transporter);
  dbc_Row& extension = extensions->AppendRow();
  int const extensionRow = extension.Index();
  takeReference(oldModel, kind.container, extension, extensionReference);
  extension.WriteFieldInt(baseField(), noBasePart);
  extensions->FinishRow(extension);
  addEntry(map, kind.command, kind.typeId, extensionRow);
}

/// The handle of the collection that a header names; nothing when it names none. A header that is not there
/// throws.
std::optional<std::int64_t> handleOf(dbc_Table& headers, int row) {
  static rfm_FieldHandle const target("Target#Handle", wholeField);
  dbc_Row const& header = headers.Row(row);
  return header.IsPresent(target) ? std::optional(header.ReadFieldHandle(target)) : std::nullopt;
}

/// The collection of a model's extensions; nothing for a model without.
/// @param tables gives the rows of a class
template <class Tables>
std::optional<std::int64_t> extensionsOf(dbc_Row const& model, Tables const& tables) {
  static rfm_FieldHandle const instanceTable("instanceTable#OID", wholeField);
  static rfm_FieldHandle const map("map#OID", wholeField);
  if (!model.IsPresent(instanceTable)) {
    return std::nullopt;
  }
  std::unique_ptr<dbc_Table> const instanceTables = tables(ddr_oldExtensionTableTypeId);
  dbc_Row const& instances = instanceTables->Row(model.ReadFieldInt(instanceTable));
  if (!instances.IsPresent(map)) {
    return std::nullopt;
  }
  return handleOf(*tables(ddr_oldMapTypeId), instances.ReadFieldInt(map));
}

/// What the step from 401 knows of the collections that it has looked into, for many models may name one that
/// is long. Made at the first row of the step, kept until its end.
class OldConnectors {
public:
  /// The collection of a model's old connector properties: the first of its extensions that names one has it.
  std::optional<std::int64_t> PropertiesOf(dbc_Row const& model);
  /// Sees to it that the model has a "section" extension.
  void WantSection(dbc_Row const& model);
  /// Counts connector properties that are about to be converted. No two models have the same ones, so there
  /// are no more than there are entries.
  void Count(dbc_Row const& model, int properties);

private:
  // So many are known at most; then, all are forgotten.
  static constexpr std::size_t mostKnown = 65536;

  std::optional<std::int64_t> PropertiesAmong(dbc_Table& extensions) const;

  dbc_InputDatabase& input = converter().InputDatabase();
  std::set<unsigned> const classes = input.ClassesWith(connectorProperties);
  // Ordered, for a file may choose handles that all have one place in a hashed table.
  std::map<std::int64_t, std::optional<std::int64_t>> propertiesByExtensions;
  std::set<std::int64_t> withSection;
  std::int64_t converted = 0;
};

std::optional<std::int64_t> OldConnectors::PropertiesOf(dbc_Row const& model) {
  if (classes.empty()) { // no need to look at every model
    return std::nullopt;
  }
  auto const tables = [&](unsigned typeId) { return input.GetInputTable(typeId); };
  std::optional<std::int64_t> const extensions = extensionsOf(model, tables);
  if (!extensions) {
    return std::nullopt;
  }
  if (auto const known = propertiesByExtensions.find(*extensions); known != propertiesByExtensions.end()) {
    return known->second;
  }
  if (propertiesByExtensions.size() >= mostKnown) {
    propertiesByExtensions.clear();
  }
  std::unique_ptr<dbc_Table> const entries = input.GetInputEntries(*extensions);
  return propertiesByExtensions.emplace(*extensions, PropertiesAmong(*entries)).first->second;
}

std::optional<std::int64_t> OldConnectors::PropertiesAmong(dbc_Table& extensions) const {
  static rfm_FieldHandle const classField("ClassID", wholeField);
  static rfm_FieldHandle const oidField("OID", wholeField);
  static rfm_FieldHandle const container("connPropCont#OID", wholeField);
  for (int index = 0; index < extensions.Length(); ++index) {
    dbc_Row const& entry = extensions.Row(index);
    unsigned const classId = entry.ReadFieldUnsigned(classField);
    int const oid = entry.ReadFieldInt(oidField);
    if (!classes.contains(classId)) {
      continue;
    }
    std::unique_ptr<dbc_Table> const extensionRows = input.GetInputTable(classId);
    dbc_Row const& extension = extensionRows->Row(oid);
    if (extension.IsPresent(container)) {
      return handleOf(*input.GetInputTable(ddr_oldMapTypeId), extension.ReadFieldInt(container));
    }
  }
  return std::nullopt;
}

void OldConnectors::WantSection(dbc_Row const& model) {
  dbc_OutputDatabase& output = converter().OutputDatabase();
  auto const tables = [&](unsigned typeId) { return output.GetOutputTable(typeId); };
  std::optional<std::int64_t> const extensions = extensionsOf(model, tables);
  if (!extensions || withSection.contains(*extensions)) {
    return;
  }
  if (!output.FindEntry(*extensions, ddr_oldSectionCommand)) {
    std::unique_ptr<dbc_Table> const sections =
        utils().CreateClassInOutputDatabase(ddr_oldSectionTypeId, output.Transporter());
    dbc_Row& added = sections->AppendRow();
    int const sectionRow = added.Index();
    added.WriteFieldInt(baseField(), noBasePart);
    sections->FinishRow(added);
    addEntry(*output.GetOutputEntries(*extensions), ddr_oldSectionCommand, ddr_oldSectionTypeId, sectionRow);
    converter().Supplied("instanceTable", "a section extension");
  }
  if (withSection.size() >= mostKnown) {
    withSection.clear();
  }
  withSection.insert(*extensions);
}

void OldConnectors::Count(dbc_Row const& model, int properties) {
  converted += properties;
  if (converted > input.EntriesOfOldFile()) {
    input.Refuse(ddr_oldModelTypeId, model.Index(),
                 "it has the connector properties of other models, which take more entries than there are");
  }
}

OldConnectors& oldConnectors() {
  std::shared_ptr<void>& kept = converter().Kept();
  if (!kept) {
    kept = std::make_shared<OldConnectors>();
  }
  return *static_cast<OldConnectors*>(kept.get());
}

/// A text that has another name now.
struct Renamed {
  char const* before;
  char const* now;
};

/// Takes a text of an old connector property over; one that is not set stays so.
void takeText(dbc_Row const& property, char const* oldField, dbc_Row& section, char const* newField,
              Renamed const& renamed) {
  rfm_FieldHandle const field(oldField, wholeField);
  if (!property.IsPresent(field)) {
    return;
  }
  cow_String const text = property.ReadFieldString(field);
  utils().SetEnum(
      newField, section,
      utils().CreateEnum(newField, text == cow_String(renamed.before) ? cow_String(renamed.now) : text));
}

void convertConnectorProperty(dbc_Row const& property, dbc_Row& section) {
  static rfm_FieldHandle const integration("integrationMethod", wholeField);
  section.WriteFieldInt(baseField(), noBasePart);
  takeText(property, "assmType", section, "assembledType", {"", ""});
  takeText(property, "rotType", section, "rotationalType", {"PROJ_FLEX_TORS", "PROJECTION_FLEXION_TORSION"});
  takeText(property, "transType", section, "translationalType", {"PROJ_CARTESIAN", "PROJECTION_CARTESIAN"});
  if (property.IsPresent(integration)) {
    takeText(property, "integrationMethod", section, "integration", {"UNSET", unspecified});
  } else {
    utils().SetEnum("integration", section, utils().CreateEnum("integration", unspecified));
  }
  for (char const* const name : referenceLengths) {
    rfm_FieldHandle const field(name, wholeField);
    double const value = property.IsPresent(field) ? property.ReadFieldDouble(field) : oldUnset;
    section.WriteFieldDouble(field, value == oldUnset ? newUnset : value);
  }
}

} // namespace

void* ddr_convertModel203(dbc_Row const& input, dbc_Row& output, int) {
  static ReferenceFields const instances("instanceTable");
  dbc_OutputDatabase& outputDatabase = converter().OutputDatabase();
  rom_Transporter& transporter = outputDatabase.Transporter();
  if (!oldModels()) {
    oldModels() = std::make_unique<OldModels>();
  }
  if (input.IsPresent(instances.classField)) {
    // The layout of this release has no instance table, so the library does not copy one.
    if (instances.AreSet(input)) {
      output.WriteFieldUnsigned(instances.classField, input.ReadFieldUnsigned(instances.classField));
      output.WriteFieldInt(instances.oidField, input.ReadFieldInt(instances.oidField));
    }
    return nullptr;
  }
  std::unique_ptr<dbc_Table> const instanceTables =
      utils().CreateClassInOutputDatabase(ddr_oldExtensionTableTypeId, transporter);
  dbc_Row& instanceTable = instanceTables->AppendRow();
  output.WriteFieldUnsigned(instances.classField, ddr_oldExtensionTableTypeId);
  output.WriteFieldInt(instances.oidField, instanceTables->Length() - 1);
  std::unique_ptr<dbc_Table> map = utils().SetNewAttributeMapInOutputDatabase(instanceTable, "map");
  converter().Supplied("instanceTable", "a new instance table");
  dbc_ClassView& models = oldModels()->View();
  if (int const count = models.RowCount(); count > 0) {
    // Kept on purpose: the last row serves every model. Files of this release hold one such object in use.
    dbc_Row& oldModel = models.Row(count - 1);
    moveSteps(*map, oldModel);
    for (ddr_ModelContainerKind const* kind = ddr_modelContainers; kind->container; ++kind) {
      moveContainer(transporter, *map, oldModel, *kind);
    }
    instanceTables->FinishRow(instanceTable);
    models.FinishRow(oldModel);
  } else {
    instanceTables->FinishRow(instanceTable);
  }
  map.reset();
  return nullptr;
}

void* ddr_finalizeModel203(dbc_Table const&, dbc_Table&) {
  oldModels().reset();
  return nullptr;
}

void* ddr_convertModel401(dbc_Row const& input, dbc_Row& output, int) {
  static rfm_FieldHandle const oidField("OID", wholeField);
  OldConnectors& connectors = oldConnectors();
  std::optional<std::int64_t> const properties = connectors.PropertiesOf(input);
  if (!properties) {
    return nullptr;
  }
  connectors.WantSection(output);
  dbc_InputDatabase& inputDatabase = converter().InputDatabase();
  std::unique_ptr<dbc_Table> const entries = inputDatabase.GetInputEntries(*properties);
  connectors.Count(input, entries->Length());
  std::unique_ptr<dbc_Table> oldProperties;
  std::unique_ptr<dbc_Table> const sections =
      utils().CreateClassInOutputDatabase(connectorSectionTypeId, converter().OutputDatabase().Transporter());
  for (int index = 0; index < entries->Length(); ++index) {
    if (!oldProperties) {
      oldProperties = inputDatabase.GetInputTable(connectorPropertyTypeId);
    }
    dbc_Row const& property = oldProperties->Row(entries->Row(index).ReadFieldInt(oidField));
    dbc_Row& section = sections->AppendRow();
    convertConnectorProperty(property, section);
    sections->FinishRow(section);
    converter().Carried("instanceTable", "a connector property, as a connector section");
  }
  return nullptr;
}

void* ddr_convertModel857(dbc_Row const&, dbc_Row&, int) {
  converter().Carried("", "connectors are carried as they are");
  return nullptr;
}
