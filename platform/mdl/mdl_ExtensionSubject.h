// mdl_ExtensionSubject: base of records that other modules extend.
#pragma once

#include "cls_WriteVisitor.h"
#include "mdl_OdbExtensionTable.h"
#include "omu_Exceptions.h"

#include <memory>

/// A record that other modules extend under command names.
///
/// One table for the process holds a prototype of each registered kind; each record holds its own extensions.
/// The process table is made and deleted when the module starts and stops and is only read in between, by any
/// thread.
/// @tparam S the record, derived from this class
/// @tparam Table the extension table
template <class S, class Table>
class DDR_API mdl_ExtensionSubject {
public:
  /// Begins with DBWrite: files of records are written through it.
  virtual void DBWrite(cls_WriteVisitor const& writer) const = 0;
  virtual ~mdl_ExtensionSubject() = default;
  virtual mdl_ExtensionSubject* Copy() const = 0;
  virtual unsigned DynTypeId() const { return TypeId(); }

  static unsigned TypeId() noexcept { return 0x220019; }

  /// Registers a kind of extension: a copy of the prototype is what a record without one starts from.
  /// Replaces an earlier registration of the name. Throws nex_TextException while the module is down.
  static void RegisterExtension(cow_String const& name, mdl_Extension const& prototype);
  /// Forgets a kind; an unknown name changes nothing.
  static void UnRegisterExtension(cow_String const& name);

  /// This record's extension for reading. A registered kind that the record does not have reads as the
  /// prototype, and nothing is changed; an unknown one throws omu_AccessErrorException.
  mdl_Extension const& ConstGetExtension(cow_String const& name) const;
  /// This record's extension for writing; made from the registered prototype when the record has none. An
  /// unknown one throws omu_AccessErrorException and changes nothing.
  mdl_Extension& GetExtension(cow_String const& name);
  Table const& InstanceTable() const noexcept { return instanceTable; }

  /// The process table; null while the module is down.
  static std::unique_ptr<Table>& ModuleTable() noexcept;

protected:
  mdl_ExtensionSubject() : subjectUid(cls_Uid::Allocate()) {}
  mdl_ExtensionSubject(mdl_ExtensionSubject const&) = default;
  mdl_ExtensionSubject& operator=(mdl_ExtensionSubject const&) = default;

  Table instanceTable;
  cls_Uid subjectUid;

private:
  static mdl_Extension const& Prototype(cow_String const& name, int line);
};

// ---- template bodies ----

template <class S, class Table>
void mdl_ExtensionSubject<S, Table>::RegisterExtension(cow_String const& name,
                                                       mdl_Extension const& prototype) {
  if (ModuleTable() == nullptr) {
    nex_Exception::Throw(nex_TextException("The module has not been initialized; call ddr_initialize first."),
                         "platform/mdl/mdl_ExtensionSubject", __LINE__);
  }
  mdl_addExtensionType(prototype.DynTypeId());
  ModuleTable()->Insert(name, prototype);
}

template <class S, class Table>
void mdl_ExtensionSubject<S, Table>::UnRegisterExtension(cow_String const& name) {
  if (ModuleTable() != nullptr) {
    ModuleTable()->Remove(name);
  }
}

template <class S, class Table>
mdl_Extension const& mdl_ExtensionSubject<S, Table>::Prototype(cow_String const& name, int line) {
  Table const* table = ModuleTable().get();
  mdl_Extension const* prototype = table == nullptr ? nullptr : table->ConstFind(name);
  if (prototype == nullptr) {
    nex_Exception::Throw(omu_AccessErrorException(name), "platform/mdl/mdl_ExtensionSubject", line);
  }
  return *prototype;
}

template <class S, class Table>
mdl_Extension const& mdl_ExtensionSubject<S, Table>::ConstGetExtension(cow_String const& name) const {
  mdl_Extension const* own = instanceTable.ConstFind(name);
  return own != nullptr ? *own : Prototype(name, __LINE__);
}

template <class S, class Table>
mdl_Extension& mdl_ExtensionSubject<S, Table>::GetExtension(cow_String const& name) {
  if (!instanceTable.IsMember(name)) {
    instanceTable.Insert(name, Prototype(name, __LINE__));
  }
  return *instanceTable.Find(name);
}
