#include "ddr_Model.h"

template <>
std::unique_ptr<ddr_ExtensionTable>& ddr_ModelExtension::ModuleTable() noexcept {
  static std::unique_ptr<ddr_ExtensionTable> theTable;
  return theTable;
}

template class mdl_OdbExtensionTable<mdl_Extension>;
template class mdl_ExtensionSubject<ddr_Model, mdl_OdbExtensionTable<mdl_Extension>>;

ddr_Model::ddr_Model() : uid(cls_Uid::Allocate()) {}

ddr_Model::ddr_Model(cow_String const& database, cow_String const& name)
    : owningDatabase(database), modelName(name), uid(cls_Uid::Allocate()) {}

ddr_Model::ddr_Model(cls_ReadVisitor const& reader)
    : modelName(reader.ReadString("modelName")), uid(reader.GetUid()) {
  owningDatabase = reader.DbId();
  cls_ReadVisitor const table(reader, "instanceTable");
  instanceTable = ddr_ExtensionTable(table);
}

ddr_Model::~ddr_Model() = default;

void ddr_Model::DBWrite(cls_WriteVisitor const& writer) const {
  if (!writer.StartWrite(TypeId(), uid)) {
    return;
  }
  writer.WriteString("modelName", modelName);
  cls_WriteVisitor const table(writer, "instanceTable");
  instanceTable.DBWrite(table);
}

void ddr_Model::CowDtor(cow_ErasedHandle* handle) {
  cow_releaseErased<ddr_Model>(handle);
}

omn_FixedString ddr_Model::materialCmd() noexcept {
  return omn_FixedString("material");
}

omn_FixedString ddr_Model::sectionCmd() noexcept {
  return omn_FixedString("section");
}

omn_FixedString ddr_Model::fieldCmd() noexcept {
  return omn_FixedString("field");
}

omn_FixedString ddr_Model::fieldOutputRequestCmd() noexcept {
  return omn_FixedString("fieldOutputRequest");
}

omn_FixedString ddr_Model::historyOutputRequestCmd() noexcept {
  return omn_FixedString("historyOutputRequest");
}

omn_FixedString ddr_Model::profileCmd() noexcept {
  return omn_FixedString("profile");
}

omn_FixedString ddr_Model::interactionCmd() noexcept {
  return omn_FixedString("interaction");
}

omn_FixedString ddr_Model::interactionPropertyCmd() noexcept {
  return omn_FixedString("interactionProperty");
}

omn_FixedString ddr_Model::stepCmd() noexcept {
  return omn_FixedString("step");
}

omn_FixedString ddr_Model::adaptiveMeshControlCmd() noexcept {
  return omn_FixedString("adaptiveMeshControl");
}

omn_FixedString ddr_Model::timePointCmd() noexcept {
  return omn_FixedString("timePoint");
}

omn_FixedString ddr_Model::adaptiveMeshConstraintCmd() noexcept {
  return omn_FixedString("adaptiveMeshConstraint");
}

omn_FixedString ddr_Model::integratedOutputSectionCmd() noexcept {
  return omn_FixedString("integratedOutputSection");
}

omn_FixedString ddr_Model::amplitudeCmd() noexcept {
  return omn_FixedString("amplitude");
}

omn_FixedString ddr_Model::filterCmd() noexcept {
  return omn_FixedString("filter");
}

// Kept on purpose: the text is a plural though the accessor's name is not; the text is the stored key.
omn_FixedString ddr_Model::contactControlCmd() noexcept {
  return omn_FixedString("contactControls");
}

omn_FixedString ddr_Model::bcCmd() noexcept {
  return omn_FixedString("bc");
}

omn_FixedString ddr_Model::loadCmd() noexcept {
  return omn_FixedString("load");
}

omn_FixedString ddr_Model::constraintCmd() noexcept {
  return omn_FixedString("constraint");
}

omn_FixedString ddr_Model::connectorCmd() noexcept {
  return omn_FixedString("connector");
}
