#include "ddr_Catalogue.h"

#include "ddr_Ddb.h"
#include "typ_ArchCompTable.h"

namespace {

constexpr cls_AttributeType integer = cls_AttributeType::Integer;
constexpr cls_AttributeType string = cls_AttributeType::String;
constexpr cls_AttributeType boolean = cls_AttributeType::Boolean;
constexpr cls_AttributeType object = cls_AttributeType::Object;
constexpr cls_CollectionType single = cls_CollectionType::Single;
constexpr cls_CollectionType list = cls_CollectionType::List;
constexpr cls_CollectionType stringMap = cls_CollectionType::StringMap;

// Class versions and type ids of other components. Stored.
constexpr int ddbVersion = 848;
constexpr int modelVersion = 874;
constexpr int firstVersion = 203;
constexpr int extensionTableVersion = 401;
constexpr unsigned plain = 1;
constexpr unsigned mapHeader = 0x230002;
constexpr unsigned listHeader = 0x230001;

cow_String typeName(unsigned typeId) {
  return cow_String(typ_ArchCompTable::GetName(typeId));
}

/// Builds an object for the catalogue: the address is that of its root persistent base.
template <class Root, class T>
void* construct(cls_ReadVisitor& reader) {
  return static_cast<Root*>(new T(reader));
}

/// The constructor of a class of which there are no objects, only objects of derived classes.
void* constructNone(cls_ReadVisitor&) {
  return nullptr;
}

void registerDdb(cls_ClassRegistrar& registrar) {
  unsigned const quantum = cls_ExtQuant::ExtentQuantumConstSmall();
  registrar
      .CreateClassMD("ddr_Ddb", ddr_Ddb::TypeId(), ddbVersion, construct<ddr_Ddb, ddr_Ddb>, cls_NoBaseTypeId)
      .AddDtor(ddr_Ddb::CowDtor)
      .AddAttribute("models", object, ddr_Model::TypeId(), stringMap)
      .AddAttribute("results", object, mapHeader, stringMap)
      .AddAttribute("userData", object, mapHeader, stringMap)
      .AddAttribute("diagnosticData", object, cls_ListObj<dia_DiagnosticData>::TypeId(), list)
      .AddAttribute("name", string, plain, single)
      .AddAttribute("modifyTime", integer, plain, single)
      .AddAttribute("creationTime", integer, plain, single)
      .AddAttribute("analysisVersion", string, plain, single)
      .AddAttribute("sequenceData", string, plain, single)
      .AddAttribute("onlyHasUserDefinedData", boolean, plain, single)
      .AddAttribute("description", string, plain, single)
      .AddAttribute("ddbVersion", integer, plain, single)
      .AddTableExtentQuantum(quantum)
      .AddAttribute("productAddOns", object, listHeader, list);
}

void registerResult(cls_ClassRegistrar& registrar) {
  registrar
      .CreateClassMD("ddr_Result", ddr_Result::TypeId(), firstVersion, ddr_Result::Ctor, cls_NoBaseTypeId)
      .AddDtor(ddr_Result::CowDtor);
}

// Kept on purpose: unlike results, user data registers no handle destructor and so is never shared through
// the object cache; the catalogue is compared entry by entry with those of other programs.
void registerUserData(cls_ClassRegistrar& registrar) {
  registrar.CreateClassMD("ddr_UserData", ddr_UserData::TypeId(), firstVersion, ddr_UserData::Ctor,
                          cls_NoBaseTypeId);
}

void registerModel(cls_ClassRegistrar& registrar) {
  registrar
      .CreateClassMD("ddr_Model", ddr_Model::TypeId(), modelVersion, construct<ddr_Model, ddr_Model>,
                     cls_NoBaseTypeId)
      .AddDtor(ddr_Model::CowDtor)
      .AddAttribute("modelName", string, plain, single)
      .AddAttribute("instanceTable", object, ddr_ExtensionTable::TypeId(), single);
}

/// The handle of a family: it holds the implementation.
template <class T>
void registerHandle(cls_ClassRegistrar& registrar) {
  using Handle = ddr_Shortcut<T>;
  unsigned const quantum = cls_ExtQuant::ExtentQuantumConstSmall();
  registrar
      .CreateClassMD(typeName(Handle::TypeId()), Handle::TypeId(), firstVersion, construct<Handle, Handle>,
                     cls_NoBaseTypeId)
      .AddDtor(Handle::CowDtor)
      .AddTableExtentQuantum(quantum)
      .AddAttribute("impl", object, ddr_ShortcutImpl<T>::TypeId(), single);
}

/// The implementation base of a family.
template <class T>
void registerBase(cls_ClassRegistrar& registrar) {
  using Base = ddr_ShortcutImpl<T>;
  unsigned const quantum = cls_ExtQuant::ExtentQuantumConstSmall();
  registrar
      .CreateClassMD(typeName(Base::TypeId()), Base::TypeId(), firstVersion, constructNone, cls_NoBaseTypeId)
      .AddDtor(Base::CowDtor)
      .AddTableExtentQuantum(quantum);
}

/// The shortcut to a collection of a database.
template <class Coll>
void registerMember(cls_ClassRegistrar& registrar) {
  using Member = ddr_MemberShortcut<ddr_Ddb, Coll, 1>;
  using Base = ddr_ShortcutImpl<Coll>;
  unsigned const quantum = cls_ExtQuant::ExtentQuantumConstMedium();
  registrar
      .CreateClassMD(typeName(Member::TypeId()), Member::TypeId(), firstVersion, construct<Base, Member>,
                     Base::TypeId())
      .AddDtor(Member::CowDtor)
      .AddTableExtentQuantum(quantum)
      .AddAttribute("parent", object, ddr_DdbShortcut::TypeId(), single);
}

void registerModelInContainer(cls_ClassRegistrar& registrar) {
  using Dictionary = ddr_ModelInModelContainerShortcut;
  using Base = ddr_ShortcutImpl<ddr_Model>;
  unsigned const quantum = cls_ExtQuant::ExtentQuantumConstSmall();
  registrar
      .CreateClassMD(typeName(Dictionary::TypeId()), Dictionary::TypeId(), firstVersion,
                     construct<Base, Dictionary>, Base::TypeId())
      .AddDtor(Dictionary::CowDtor)
      .AddTableExtentQuantum(quantum)
      .AddAttribute("name", string, plain, single)
      .AddAttribute("parent", object, ddr_ModelContainerShortcut::TypeId(), single);
}

void registerDdbShortcutImpl(cls_ClassRegistrar& registrar) {
  using Base = ddr_ShortcutImpl<ddr_Ddb>;
  registrar
      .CreateClassMD(typeName(ddr_DdbShortcutImpl::TypeId()), ddr_DdbShortcutImpl::TypeId(), firstVersion,
                     construct<Base, ddr_DdbShortcutImpl>, Base::TypeId())
      .AddDtor(ddr_DdbShortcutImpl::CowDtor)
      .AddAttribute("name", string, plain, single);
}

void registerExtensionTable(cls_ClassRegistrar& registrar) {
  registrar
      .CreateClassMD(typeName(ddr_ExtensionTable::TypeId()), ddr_ExtensionTable::TypeId(),
                     extensionTableVersion, construct<ddr_ExtensionTable, ddr_ExtensionTable>,
                     cls_NoBaseTypeId)
      .AddAttribute("map", object, mapHeader, stringMap);
}

} // namespace

std::array<ddr_ClassRoutine, 20> const& ddr_classRoutines() noexcept {
  static constexpr std::array<ddr_ClassRoutine, 20> routines = {
      registerDdb,
      registerResult,
      registerUserData,
      registerModel,
      registerHandle<ddr_ResultContainer>,
      registerMember<ddr_ResultContainer>,
      registerBase<ddr_ResultContainer>,
      registerHandle<ddr_UserDataContainer>,
      registerMember<ddr_UserDataContainer>,
      registerBase<ddr_UserDataContainer>,
      registerHandle<ddr_ModelContainer>,
      registerMember<ddr_ModelContainer>,
      registerBase<ddr_ModelContainer>,
      registerBase<ddr_Model>,
      registerHandle<ddr_Model>,
      registerModelInContainer,
      registerHandle<ddr_Ddb>,
      registerDdbShortcutImpl,
      registerBase<ddr_Ddb>,
      registerExtensionTable,
  };
  return routines;
}
