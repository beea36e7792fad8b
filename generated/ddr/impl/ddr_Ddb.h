// ddr_Ddb: the record of one database.
#pragma once

#include "cls_ListObj.h"
#include "cls_Map2Obj.h"
#include "cow_CountedHld.h"
#include "ddr_Forward.h"
#include "ddr_Model.h"
#include "ddr_ProductAddOnList.h"
#include "ddr_Result.h"
#include "ddr_Shortcut.h"
#include "ddr_UserData.h"
#include "dia_DiagnosticData.h"
#include "mdl_Container.h"
#include "mdl_MapString2Obj.h"
#include "os_Export.h"
#include "rom_Transporter.h"

/// The top-level object of one database file: its models, results and user data, and what is known about it.
///
/// Records are made by ddr_Root, which keeps them by persistent name. To change one, copy the container that
/// ddr_Root::Fetch gives, change the copy, give it back with ddr_Root::Replace and save. Copies share their
/// collections and the way to the file; the last copy closes the file. One thread at a time.
class DDR_API ddr_Ddb final {
public:
  /// A new database: current times, schema 891, one empty diagnostic record, no file.
  /// @param name the persistent name
  /// @param dbId the identity under which models know their database: the file name
  ddr_Ddb(cow_String const& name, cow_String const& dbId, cow_String const& description);
  /// Reads the record; of the models only the keys, of the rest everything.
  explicit ddr_Ddb(cls_ReadVisitor const& reader);
  /// Shares the collections and the way to the file.
  ddr_Ddb(ddr_Ddb const& other);
  ddr_Ddb& operator=(ddr_Ddb const&) = delete;
  ~ddr_Ddb();

  virtual ddr_Ddb* Copy() const;
  virtual unsigned DynTypeId() const;
  static unsigned TypeId() noexcept { return 0x220006; }
  /// Releases an erased handle of a record and frees the handle.
  static void CowDtor(cow_ErasedHandle* handle);

  /// Writes the record as it is, stamping the time of modification unless that was switched off.
  void DBWrite(cls_WriteVisitor const& writer) const;

  cow_String const& GetName() const noexcept { return name; }
  cow_String const& GetDbId() const noexcept { return dbId; }
  cow_String const& GetDescription() const noexcept { return description; }
  void SetDescription(cow_String const& text) { description = text; }
  /// The release that wrote the database; "Unknown Version" when the file does not say.
  cow_String const& GetAnalysisVersion() const noexcept { return analysisVersion; }
  void SetAnalysisVersion(cow_String const& release) { analysisVersion = release; }
  cow_String const& GetSequenceData() const noexcept { return sequenceData; }
  void SetSequenceData(cow_String const& text) { sequenceData = text; }
  bool GetOnlyHasUserDefinedData() const noexcept { return onlyHasUserDefinedData; }
  void SetOnlyHasUserDefinedData(bool only) noexcept { onlyHasUserDefinedData = only; }
  /// [seconds since 1970]
  int GetCreationTime() const noexcept { return creationTime; }
  /// [seconds since 1970] the last write
  int GetModifyTime() const noexcept { return modifyTime; }
  /// The schema version of the contents.
  int GetDdbVersion() const noexcept { return ddbVersion; }
  ddr_ProductAddOnList const& GetProductAddOns() const noexcept { return productAddOns; }
  void AddProductAddOn(ddr_ProductAddOn const& addOn) { productAddOns.Append(addOn); }
  cls_Uid const& GetUid() const noexcept { return uid; }

  /// The creation time as text, "Tue Mar 05 07:08:09 GMT-00:00 2024" for example; formatted once.
  cow_String CreateTime() const;
  /// The time of the last write as text. Formatted once: within the life of one record the first answer
  /// stands.
  cow_String ModifyTime() const;
  /// Whether the contents are of a schema that this release reads.
  bool checkUpwardsCompatibility() const noexcept;
  /// Whether the file can be written back without conversion. Opens the file once more, for reading; passes
  /// on what that throws. Needs a record with a file.
  bool checkWriteCompatibility() const;
  /// The diagnostic data for writing. Throws nex_TextException when the record has none.
  dia_DiagnosticData& GetDiagnosticData();
  dia_DiagnosticData const& ConstGetDiagnosticData() const;

  /// The way to the file, or null before the record has one. The record keeps it.
  rom_Transporter* GetTransporter() const noexcept;
  /// Gives this record a way to a file; adopts it. Copies made before keep theirs.
  void SetTransporter(rom_Transporter* made);
  /// Takes over a whole model collection, and makes every model in it belong to this database. A collection
  /// of another file is loaded whole and let go of its file. O(N).
  void SetModels(ddr_ModelContainer const& given);
  /// Whether a write stamps the time of modification.
  /// Kept on purpose: a save that leaves the time alone switches this off for good, so that later saves of
  /// the same record leave it alone too.
  void SetUpdateModifyTime(bool stamp) noexcept { updateModifyTime = stamp; }
  bool GetUpdateModifyTime() const noexcept { return updateModifyTime; }
  /// Takes back what a write that failed has stamped.
  /// @param before [seconds since 1970] the time of modification before that write
  void RestoreModifyTime(int before) noexcept { modifyTime = before; }

private:
  cow_CountedHld<rom_TransporterBase> transporter;

public:
  ddr_ModelContainer models;
  ddr_ResultContainer results;
  ddr_UserDataContainer userData;

private:
  cls_ListObj<dia_DiagnosticData> diagnosticData;
  cow_String name;
  cow_String dbId;
  mutable int modifyTime;
  int creationTime;
  mutable cow_String modifyTimeText;
  mutable cow_String creationTimeText;
  cow_String analysisVersion;
  cow_String sequenceData;
  cow_String description;
  ddr_ProductAddOnList productAddOns;
  int ddbVersion;
  bool updateModifyTime;
  bool onlyHasUserDefinedData;
  cls_Uid uid;
};

extern template class cls_Map2Obj<cow_String, ddr_Model, cow_ArrayCOW<ddr_Model, cow_Virtual<ddr_Model>>>;
extern template class mdl_MapString2Obj<ddr_Result>;
extern template class mdl_MapString2Obj<ddr_UserData>;
extern template class mdl_Container<cow_String, ddr_Ddb>;
