#include "ddr_Ddb.h"

#include "ddr_Catalogue.h"
#include "ddr_Root.h"
#include "nex_Exception.h"
#include "os_Time.h"
#include "rfm_Database.h"
#include "rfm_File.h"
#include "rom_ODBHeaderParser.h"

template class cls_Map2Obj<cow_String, ddr_Model, cow_ArrayCOW<ddr_Model, cow_Virtual<ddr_Model>>>;
template class mdl_MapString2Obj<ddr_Result>;
template class mdl_MapString2Obj<ddr_UserData>;
template class mdl_Container<cow_String, ddr_Ddb>;

namespace {

constexpr char const* sourcePath = "generated/ddr/impl/ddr_Ddb";

int now() {
  return static_cast<int>(_time64(nullptr));
}

} // namespace

ddr_Ddb::ddr_Ddb(cow_String const& persistentName, cow_String const& identity, cow_String const& text)
    : name(persistentName), dbId(identity), modifyTime(now()), creationTime(modifyTime), description(text),
      ddbVersion(ddr_currentSchema), updateModifyTime(true), onlyHasUserDefinedData(false),
      uid(cls_Uid::Allocate()) {
  diagnosticData.Append(dia_DiagnosticData());
}

ddr_Ddb::ddr_Ddb(cls_ReadVisitor const& reader)
    : diagnosticData(cls_ReadVisitor(reader, "diagnosticData")), name(reader.ReadString("name")),
      modifyTime(reader.ReadInt("modifyTime")), creationTime(reader.ReadInt("creationTime")),
      analysisVersion(reader.ReadString("analysisVersion")), ddbVersion(reader.ReadInt("ddbVersion")),
      updateModifyTime(true), onlyHasUserDefinedData(false), uid(reader.GetUid()) {
  sequenceData = reader.ReadString("sequenceData");
  onlyHasUserDefinedData = reader.ReadBool("onlyHasUserDefinedData");
  description = reader.ReadString("description");
  // Kept on purpose: the version is read a second time, and the second value counts; readers that answer each
  // request in turn are made for both.
  ddbVersion = reader.ReadInt("ddbVersion");
  dbId = reader.DbId();
  models = ddr_ModelContainer(cls_ReadVisitor(reader, "models"));
  results = ddr_ResultContainer(cls_ReadVisitor(reader, "results"));
  userData = ddr_UserDataContainer(cls_ReadVisitor(reader, "userData"));
  if (reader.DataIsPresent("productAddOns#OID")) {
    productAddOns = ddr_ProductAddOnList(cls_ReadVisitor(reader, "productAddOns"));
  }
  if (analysisVersion.IsEmpty()) {
    analysisVersion = cow_String("Unknown Version");
  }
}

ddr_Ddb::ddr_Ddb(ddr_Ddb const& other) = default;

ddr_Ddb::~ddr_Ddb() = default;

ddr_Ddb* ddr_Ddb::Copy() const {
  return new ddr_Ddb(*this);
}

unsigned ddr_Ddb::DynTypeId() const {
  return TypeId();
}

void ddr_Ddb::CowDtor(cow_ErasedHandle* handle) {
  cow_releaseErased<ddr_Ddb>(handle);
}

void ddr_Ddb::DBWrite(cls_WriteVisitor const& writer) const {
  if (updateModifyTime) {
    modifyTime = now();
  }
  if (!writer.StartWrite(TypeId(), uid)) {
    return;
  }
  // Kept on purpose: collections come first here and last on reading; both orders are what other readers and
  // writers of these records expect.
  models.DBWrite(cls_WriteVisitor(writer, "models"));
  results.DBWrite(cls_WriteVisitor(writer, "results"));
  userData.DBWrite(cls_WriteVisitor(writer, "userData"));
  diagnosticData.DBWrite(cls_WriteVisitor(writer, "diagnosticData"));
  writer.WriteString("name", name);
  writer.WriteInt("modifyTime", modifyTime);
  writer.WriteInt("creationTime", creationTime);
  writer.WriteString("analysisVersion", analysisVersion);
  writer.WriteString("sequenceData", sequenceData);
  writer.WriteBool("onlyHasUserDefinedData", onlyHasUserDefinedData);
  if (writer.FieldIsPresent("description")) {
    writer.WriteString("description", description);
  }
  if (writer.FieldIsPresent("ddbVersion")) {
    writer.WriteInt("ddbVersion", ddbVersion);
  }
  productAddOns.DBWrite(cls_WriteVisitor(writer, "productAddOns"));
}

bool ddr_Ddb::checkUpwardsCompatibility() const noexcept {
  return ddbVersion <= ddr_currentSchema;
}

bool ddr_Ddb::checkWriteCompatibility() const {
  rom_Transporter* const held = GetTransporter();
  cls_ClassRegistrar const* const registrar = ddr_Root::Instance().GetClassRegistrar();
  if (held == nullptr || registrar == nullptr) {
    nex_Exception::Throw(
        nex_TextException(held == nullptr ? "The database '" + std::string(dbId.Text()) + "' has no file yet."
                                          : std::string("Class registrar not initialized")),
        sourcePath, __LINE__);
  }
  rfm_File const file = rfm_File::Open(held->Database().FileName(), utl_FileAccess::Read, true);
  rom_ODBHeaderParser const parser(rfm_Database::Open(file, "D0"));
  return parser.GetUpToDateStatus(*registrar, nullptr) == rom_ODBHeaderParser::UpToDate;
}

dia_DiagnosticData& ddr_Ddb::GetDiagnosticData() {
  if (diagnosticData.Size() == 0) {
    nex_Exception::Throw(nex_TextException("No diagnostic data available"), sourcePath, 357);
  }
  return diagnosticData.Get(0);
}

dia_DiagnosticData const& ddr_Ddb::ConstGetDiagnosticData() const {
  if (diagnosticData.Size() == 0) {
    nex_Exception::Throw(nex_TextException("No diagnostic data available"), sourcePath, 369);
  }
  return diagnosticData.ConstGet(0);
}

rom_Transporter* ddr_Ddb::GetTransporter() const noexcept {
  return static_cast<rom_Transporter*>(transporter.Peek());
}

void ddr_Ddb::SetTransporter(rom_Transporter* made) {
  transporter = made;
}

void ddr_Ddb::SetModels(ddr_ModelContainer const& given) {
  ddr_ModelContainer taken(given);
  rom_Transporter const* const held = GetTransporter();
  if (taken.IsBound() && !taken.BelongsTo(held == nullptr ? nullptr : held->StoreIdentity())) {
    taken.LetGoOfStore();
  }
  taken.AdjustUnstored([this](ddr_Model const& model) { return model.GetDatabase() != dbId; },
                       [this](ddr_Model& model) { model.SetDatabase(dbId); });
  models = taken;
}
