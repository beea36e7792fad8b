// ddr_Model: one model of a database.
#pragma once

#include "cls_ReadVisitor.h"
#include "cow_Erasure.h"
#include "ddr_Forward.h"
#include "mdl_ExtensionSubject.h"
#include "omn_FixedString.h"
#include "os_Export.h"

using ddr_ExtensionTable = mdl_OdbExtensionTable<mdl_Extension>;
using ddr_ModelExtension = mdl_ExtensionSubject<ddr_Model, ddr_ExtensionTable>;

template <>
DDR_API std::unique_ptr<ddr_ExtensionTable>& ddr_ModelExtension::ModuleTable() noexcept;

/// A model: a name, and the extensions in which other modules keep what the model contains.
///
/// Models live in the `models` collection of their database. The record is small; what it contains is reached
/// through GetExtension and ConstGetExtension under the command names below. Copying shares the extensions.
/// One thread at a time.
class DDR_API ddr_Model : public ddr_ModelExtension {
public:
  /// No name, no extensions, a new identity.
  ddr_Model();
  /// @param database the dbId of the database that the model belongs to; not stored
  ddr_Model(cow_String const& database, cow_String const& modelName);
  explicit ddr_Model(cls_ReadVisitor const& reader);
  ddr_Model(ddr_Model const&) = default;
  ddr_Model& operator=(ddr_Model const&) = default;

  void DBWrite(cls_WriteVisitor const& writer) const override;
  ~ddr_Model() override;
  ddr_Model* Copy() const override { return new ddr_Model(*this); }
  unsigned DynTypeId() const override { return TypeId(); }

  static unsigned TypeId() noexcept { return 0x220007; }
  /// Releases an erased handle of a model and frees the handle.
  static void CowDtor(cow_ErasedHandle* handle);

  cow_String const& GetName() const noexcept { return modelName; }
  /// The dbId of the database that the model belongs to.
  cow_String const& GetDatabase() const noexcept { return owningDatabase; }
  void SetDatabase(cow_String const& dbId) { owningDatabase = dbId; }
  cls_Uid const& GetUid() const noexcept { return uid; }

  /// Command names: the keys under which the kinds of extensions stand.
  static omn_FixedString materialCmd() noexcept;
  static omn_FixedString sectionCmd() noexcept;
  static omn_FixedString fieldCmd() noexcept;
  static omn_FixedString fieldOutputRequestCmd() noexcept;
  static omn_FixedString historyOutputRequestCmd() noexcept;
  static omn_FixedString profileCmd() noexcept;
  static omn_FixedString interactionCmd() noexcept;
  static omn_FixedString interactionPropertyCmd() noexcept;
  static omn_FixedString stepCmd() noexcept;
  static omn_FixedString adaptiveMeshControlCmd() noexcept;
  static omn_FixedString timePointCmd() noexcept;
  static omn_FixedString adaptiveMeshConstraintCmd() noexcept;
  static omn_FixedString integratedOutputSectionCmd() noexcept;
  static omn_FixedString amplitudeCmd() noexcept;
  static omn_FixedString filterCmd() noexcept;
  static omn_FixedString contactControlCmd() noexcept;
  static omn_FixedString bcCmd() noexcept;
  static omn_FixedString loadCmd() noexcept;
  static omn_FixedString constraintCmd() noexcept;
  static omn_FixedString connectorCmd() noexcept;

private:
  cow_String owningDatabase;
  cow_String modelName;
  cls_Uid uid;
};

extern template class mdl_OdbExtensionTable<mdl_Extension>;
extern template class mdl_ExtensionSubject<ddr_Model, mdl_OdbExtensionTable<mdl_Extension>>;
