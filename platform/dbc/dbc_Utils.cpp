#include "dbc_Utils.h"

#include "cls_Attribute.h"
#include "dbc_DatabaseConverter.h"
#include "dbc_DatabaseConverterHolder.h"
#include "dbc_OutputDatabase.h"

namespace {

dbc_DatabaseConverter& converter() {
  return omi_Singleton<dbc_DatabaseConverterHolder>::Instance().GetDatabaseConverter();
}

} // namespace

template <>
dbc_Utils& omi_Singleton<dbc_Utils>::Instance() {
  static dbc_Utils theUtils;
  return theUtils;
}

std::unique_ptr<dbc_Table> dbc_Utils::CreateClassInOutputDatabase(unsigned typeId,
                                                                  rom_Transporter& transporter) {
  dbc_OutputDatabase& output = converter().OutputDatabase();
  if (&transporter != &output.Transporter()) {
    nex_Exception::Throw(nex_AssertException("&transporter == &output.Transporter()"),
                         "platform/dbc/dbc_Utils", __LINE__);
  }
  return output.CreateClass(typeId, converter().Step());
}

std::unique_ptr<dbc_Table> dbc_Utils::CreateTempClassInOutputDatabase(unsigned typeId, int version) {
  return converter().OutputDatabase().CreateClass(typeId, version);
}

std::unique_ptr<dbc_Table> dbc_Utils::SetNewAttributeMapInOutputDatabase(dbc_Row& row,
                                                                         cow_String const& attribute) {
  return converter().OutputDatabase().CreateCollection(cls_MapHeaderTypeId, row, attribute);
}

std::unique_ptr<dbc_Table> dbc_Utils::SetNewAttributeMapListInOutputDatabase(dbc_Row& row,
                                                                             cow_String const& attribute) {
  return converter().OutputDatabase().CreateCollection(cls_ListObjTypeId, row, attribute);
}

std::unique_ptr<dbc_Table> dbc_Utils::SetNewAttributeListInOutputDatabase(dbc_Row& row,
                                                                          cow_String const& attribute) {
  return converter().OutputDatabase().CreateCollection(cls_ListHeaderTypeId, row, attribute);
}

std::unique_ptr<dbc_Table> dbc_Utils::SetNewAttributeMapInt2ObjInOutputDatabase(dbc_Row& row,
                                                                                cow_String const& attribute) {
  return converter().OutputDatabase().CreateCollection(cls_MapHeaderTypeId, row, attribute);
}

std::unique_ptr<dbc_Table> dbc_Utils::SetNewAttributeArrayIntInOutputDatabase(dbc_Row& row,
                                                                              cow_String const& attribute) {
  return converter().OutputDatabase().CreateCollection(cls_ListHeaderTypeId, row, attribute);
}

std::unique_ptr<dbc_Table>
dbc_Utils::NEWSetNewAttributeArrayStringInOutputDatabase(dbc_Row& row, cow_String const& attribute) {
  return converter().OutputDatabase().CreateCollection(cls_ListHeaderTypeId, row, attribute);
}

dbc_Enum dbc_Utils::CreateEnum(cow_String const& enumeration, cow_String const& value) {
  return dbc_Enum(enumeration, value);
}

void dbc_Utils::SetEnum(cow_String const& field, dbc_Row& row, dbc_Enum const& value) {
  row.WriteFieldString(rfm_FieldHandle(field), value.Value());
}
