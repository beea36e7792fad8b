// ddr_Shortcut: persistent references to a database, to one of its collections or to one model.
#pragma once

#include "cls_Map2Obj.h"
#include "cls_ReadVisitor.h"
#include "cls_WriteVisitor.h"
#include "cow_Erasure.h"
#include "ddr_Forward.h"
#include "mdl_Container.h"
#include "mdl_MapString2Obj.h"
#include "nex_Exception.h"
#include "omu_Exceptions.h"
#include "omu_Shortcut.h"
#include "os_Export.h"

#include <new>
#include <string>
#include <utility>
#include <vector>

/// The open databases of a thread by persistent name.
using ddr_DdbContainer = mdl_Container<cow_String, ddr_Ddb>;
using ddr_ModelContainer =
    cls_Map2Obj<cow_String, ddr_Model, cow_ArrayCOW<ddr_Model, cow_Virtual<ddr_Model>>>;
using ddr_ResultContainer = mdl_MapString2Obj<ddr_Result>;
using ddr_UserDataContainer = mdl_MapString2Obj<ddr_UserData>;

/// Stored type ids of the shortcuts that lead to a T: `base` of the implementations, `handle`, and `concrete`
/// of the one implementation that the module stores.
template <class T>
struct ddr_ShortcutIds;
template <>
struct ddr_ShortcutIds<ddr_ResultContainer> {
  static constexpr unsigned base = 0x220003, concrete = 0x220004, handle = 0x220005;
};
template <>
struct ddr_ShortcutIds<ddr_ModelContainer> {
  static constexpr unsigned base = 0x220009, concrete = 0x22000a, handle = 0x22000b;
};
template <>
struct ddr_ShortcutIds<ddr_Ddb> {
  static constexpr unsigned base = 0x22000c, concrete = 0x22000d, handle = 0x22000e;
};
template <>
struct ddr_ShortcutIds<ddr_UserDataContainer> {
  static constexpr unsigned base = 0x220012, concrete = 0x220013, handle = 0x220014;
};
template <>
struct ddr_ShortcutIds<ddr_Model> {
  static constexpr unsigned base = 0x220015, concrete = 0x220017, handle = 0x220016;
};

/// What all shortcut implementations of this module share: the database they lie in, and the scripting path.
class DDR_API ddr_ShortcutBaseImpl : public omu_ShortcutImpl {
public:
  ~ddr_ShortcutBaseImpl() override;
  /// The expression that opens the database's file and leads to the target in the scripting language. Throws
  /// nex_TextException, after reporting it on the error stream, when the calling thread has not opened the
  /// database.
  cow_String PythonPath() const override;
  /// The persistent name of the database that the shortcut lies in.
  virtual cow_String DdbName() const = 0;
  bool HoldsTarget() const override { return false; }
  bool ResolvesByName() const override { return true; }
  bool CanBeRedirected() const override { return false; }

protected:
  ddr_ShortcutBaseImpl() = default;
  ddr_ShortcutBaseImpl(ddr_ShortcutBaseImpl const&) = default;
  ddr_ShortcutBaseImpl& operator=(ddr_ShortcutBaseImpl const&) = default;
};

/// An implementation that leads to a T. Immutable.
template <class T>
class DDR_API ddr_ShortcutImpl : public ddr_ShortcutBaseImpl {
public:
  ddr_ShortcutImpl() = default;
  /// Reads nothing: the base part stores no field.
  explicit ddr_ShortcutImpl(cls_ReadVisitor const&) {}
  ~ddr_ShortcutImpl() override;

  /// The target, for reading, in a thread's container of databases. Nothing is unshared.
  virtual T const& ConstGet(ddr_DdbContainer const& container) const = 0;
  /// The target, for writing; unshares the way to it.
  virtual T& Get(ddr_DdbContainer& container) const = 0;
  /// Writes the base part, which is empty.
  virtual void DBWrite(cls_WriteVisitor const&) const {}
  virtual unsigned DynTypeId() const { return TypeId(); }
  ddr_ShortcutImpl* Copy() const override = 0;

  static unsigned TypeId() noexcept { return ddr_ShortcutIds<T>::base; }
  /// Releases an erased handle of an implementation and frees the handle.
  static void CowDtor(cow_ErasedHandle* handle) { cow_releaseErased<ddr_ShortcutImpl>(handle); }
};

/// A shortcut: a small value that leads to a T without holding it.
///
/// A shortcut names its target; it finds it anew each time in the container of databases that it is given, so
/// it outlives databases being closed and opened again. It can be stored as an attribute of any object.
/// Copying costs one increment; copies share the implementation, which never changes. An unset shortcut leads
/// nowhere: asking it for a name, a path or a target throws nex_TextException. One thread at a time.
template <class T>
class DDR_API ddr_Shortcut : public omu_ShortcutBase {
public:
  using Impl = ddr_ShortcutImpl<T>;

  /// Unset.
  ddr_Shortcut() : impl(static_cast<Impl*>(nullptr)), uid(cls_Uid::Allocate()) {}
  /// Adopts the implementation; null gives an unset shortcut.
  explicit ddr_Shortcut(Impl* adopted) : impl(adopted), uid(cls_Uid::Allocate()) {}
  /// Reads a stored handle; a missing one, and one without an implementation, read as unset. Throws, naming
  /// file, class and row, when what is stored there is of another class.
  explicit ddr_Shortcut(cls_ReadVisitor const& reader)
      : impl(ReadImplementation(reader)), uid(reader.GetUid()) {}
  ddr_Shortcut(ddr_Shortcut const&) = default;
  ddr_Shortcut& operator=(ddr_Shortcut const&) = default;
  ~ddr_Shortcut() override;

  bool IsSet() const override { return !impl.IsEmpty(); }
  cow_String Name() const override { return Implementation().Name(); }
  cow_String Path() const override { return Implementation().Path(); }
  cow_String PythonPath() const override { return Implementation().PythonPath(); }
  cow_String DdbName() const { return Implementation().DdbName(); }
  /// The target, for reading. Throws omu_AccessErrorException when a name on the way is not there.
  T const& ConstGet(ddr_DdbContainer const& container) const { return Implementation().ConstGet(container); }
  /// The target, for writing.
  T& Get(ddr_DdbContainer& container) const { return Implementation().Get(container); }
  /// The implementation; throws when unset.
  Impl const& Implementation() const;
  cls_Uid const& Uid() const noexcept { return uid; }

  static unsigned TypeId() noexcept { return ddr_ShortcutIds<T>::handle; }
  unsigned DynTypeId() const { return TypeId(); }
  void DBWrite(cls_WriteVisitor const& writer) const;
  /// Releases an erased handle of a shortcut and frees the handle.
  static void CowDtor(cow_ErasedHandle* handle) {
    cow_Erasure<cow_COW<ddr_Shortcut, cow_Direct<ddr_Shortcut>>>::Release(handle);
  }

private:
  using ImplHandle = cow_COW<Impl, cow_Virtual<Impl>>;

  static ImplHandle ReadImplementation(cls_ReadVisitor const& reader);
  static void LetGo(ImplHandle last) noexcept;

  ImplHandle impl;
  cls_Uid uid;
};

/// Leads to a database by its persistent name.
class DDR_API ddr_DdbShortcutImpl : public ddr_ShortcutImpl<ddr_Ddb> {
public:
  explicit ddr_DdbShortcutImpl(cow_String databaseName);
  explicit ddr_DdbShortcutImpl(cls_ReadVisitor const& reader);
  ~ddr_DdbShortcutImpl() override;

  cow_String Name() const override { return name; }
  cow_String Path() const override;
  cow_String DdbName() const override { return name; }
  ddr_Ddb const& ConstGet(ddr_DdbContainer const& container) const override;
  ddr_Ddb& Get(ddr_DdbContainer& container) const override;
  ddr_DdbShortcutImpl* Copy() const override { return new ddr_DdbShortcutImpl(*this); }
  void DBWrite(cls_WriteVisitor const& writer) const override;
  unsigned DynTypeId() const override { return TypeId(); }
  static unsigned TypeId() noexcept { return ddr_ShortcutIds<ddr_Ddb>::concrete; }

private:
  cow_String name;
  cls_Uid uid;
};

/// How a collection of a database is reached and called.
template <class Coll>
struct ddr_MemberOf {
  static char const* Name() noexcept;
  static Coll const& ConstGet(ddr_Ddb const& database) noexcept;
  static Coll& Get(ddr_Ddb& database) noexcept;
};

/// Leads to one collection of a database. Which one is given by the class.
template <class Owner, class Coll, int Kind>
class DDR_API ddr_MemberShortcut : public ddr_ShortcutImpl<Coll> {
public:
  explicit ddr_MemberShortcut(ddr_Shortcut<Owner> const& parentShortcut)
      : parent(parentShortcut), uid(cls_Uid::Allocate()) {}
  explicit ddr_MemberShortcut(cls_ReadVisitor const& reader)
      : parent(cls_ReadVisitor(reader, "parent")), uid(reader.GetUid()) {}
  ~ddr_MemberShortcut() override;

  cow_String Name() const override { return cow_String(ddr_MemberOf<Coll>::Name()); }
  cow_String Path() const override {
    return cow_String((std::string(parent.Path().View()) + "." + Name().Text()).c_str());
  }
  cow_String DdbName() const override { return parent.DdbName(); }
  Coll const& ConstGet(ddr_DdbContainer const& container) const override {
    return ddr_MemberOf<Coll>::ConstGet(parent.ConstGet(container));
  }
  Coll& Get(ddr_DdbContainer& container) const override {
    return ddr_MemberOf<Coll>::Get(parent.Get(container));
  }
  ddr_MemberShortcut* Copy() const override { return new ddr_MemberShortcut(*this); }
  void DBWrite(cls_WriteVisitor const& writer) const override;
  unsigned DynTypeId() const override { return TypeId(); }
  static unsigned TypeId() noexcept { return ddr_ShortcutIds<Coll>::concrete; }

private:
  ddr_Shortcut<Owner> parent;
  cls_Uid uid;
};

/// Leads to one model by its key in a model collection.
template <class Coll, class T, int Kind>
class DDR_API ddr_DictionaryShortcut : public ddr_ShortcutImpl<T> {
public:
  ddr_DictionaryShortcut(cow_String modelKey, ddr_Shortcut<Coll> const& parentShortcut)
      : key(std::move(modelKey)), parent(parentShortcut), uid(cls_Uid::Allocate()) {}
  explicit ddr_DictionaryShortcut(cls_ReadVisitor const& reader)
      : key(reader.ReadString("name")), parent(cls_ReadVisitor(reader, "parent")), uid(reader.GetUid()) {}
  ~ddr_DictionaryShortcut() override;

  cow_String Name() const override { return key; }
  cow_String Path() const override {
    return cow_String((std::string(parent.Path().View()) + "['" + key.Text() + "']").c_str());
  }
  cow_String DdbName() const override { return parent.DdbName(); }
  T const& ConstGet(ddr_DdbContainer const& container) const override;
  T& Get(ddr_DdbContainer& container) const override;
  ddr_DictionaryShortcut* Copy() const override { return new ddr_DictionaryShortcut(*this); }
  void DBWrite(cls_WriteVisitor const& writer) const override;
  unsigned DynTypeId() const override { return TypeId(); }
  static unsigned TypeId() noexcept { return ddr_ShortcutIds<T>::concrete; }

private:
  [[noreturn]] void Refuse(int line) const {
    nex_Exception::Throw(omu_AccessErrorException(key, cls_Uid::Allocate()), "generated/include/ddr_Shortcut",
                         line);
  }

  cow_String key;
  ddr_Shortcut<Coll> parent;
  cls_Uid uid;
};

using ddr_DdbShortcut = ddr_Shortcut<ddr_Ddb>;
using ddr_ModelContainerShortcut = ddr_Shortcut<ddr_ModelContainer>;
using ddr_ResultContainerShortcut = ddr_Shortcut<ddr_ResultContainer>;
using ddr_UserDataContainerShortcut = ddr_Shortcut<ddr_UserDataContainer>;
using ddr_ModelShortcut = ddr_Shortcut<ddr_Model>;
using ddr_ModelContainerInDdbShortcut = ddr_MemberShortcut<ddr_Ddb, ddr_ModelContainer, 1>;
using ddr_ResultContainerInDdbShortcut = ddr_MemberShortcut<ddr_Ddb, ddr_ResultContainer, 1>;
using ddr_UserDataContainerInDdbShortcut = ddr_MemberShortcut<ddr_Ddb, ddr_UserDataContainer, 1>;
using ddr_ModelInModelContainerShortcut = ddr_DictionaryShortcut<ddr_ModelContainer, ddr_Model, 1>;

// ---- template bodies ----

// What is defaulted inside its class, every host would define anew.
template <class T>
ddr_ShortcutImpl<T>::~ddr_ShortcutImpl() = default;

template <class T>
ddr_Shortcut<T>::~ddr_Shortcut() {
  if (impl.Count() == 1 && !impl.IsEmpty()) {
    LetGo(std::move(impl));
  }
}

// An implementation may hold the last shortcut to another one, and so on: a chain of any length goes link by
// link without the stack growing with it.
template <class T>
void ddr_Shortcut<T>::LetGo(ImplHandle last) noexcept {
  static thread_local std::vector<ImplHandle>* waiting = nullptr; // of the call that is at work
  if (waiting != nullptr) {
    try {
      waiting->push_back(std::move(last));
    } catch (std::bad_alloc const&) { // `last` is as it was, and goes now
    }
    return;
  }
  std::vector<ImplHandle> links;
  waiting = &links;
  { ImplHandle const first(std::move(last)); }
  while (!links.empty()) {
    ImplHandle const next(std::move(links.back()));
    links.pop_back();
  }
  waiting = nullptr;
}

template <class Owner, class Coll, int Kind>
ddr_MemberShortcut<Owner, Coll, Kind>::~ddr_MemberShortcut() = default;

template <class Coll, class T, int Kind>
ddr_DictionaryShortcut<Coll, T, Kind>::~ddr_DictionaryShortcut() = default;

template <class T>
auto ddr_Shortcut<T>::Implementation() const -> Impl const& {
  if (impl.IsEmpty()) {
    nex_Exception::Throw(nex_TextException("The shortcut is not set, so it leads to no object."),
                         "generated/include/ddr_Shortcut", __LINE__);
  }
  return impl.ConstGet();
}

template <class T>
auto ddr_Shortcut<T>::ReadImplementation(cls_ReadVisitor const& reader) -> ImplHandle {
  if (reader.IsPresent()) {
    reader.RequireClass(TypeId());
  }
  return reader.ReadShared<ImplHandle>("impl", Impl::TypeId());
}

template <class T>
void ddr_Shortcut<T>::DBWrite(cls_WriteVisitor const& writer) const {
  if (!writer.StartWrite(TypeId(), uid)) {
    return;
  }
  if (impl.IsEmpty()) {
    writer.WriteNullObject("impl");
    return;
  }
  cls_WriteVisitor const field(writer, "impl");
  impl.ConstGet().DBWrite(field);
}

template <class Owner, class Coll, int Kind>
void ddr_MemberShortcut<Owner, Coll, Kind>::DBWrite(cls_WriteVisitor const& writer) const {
  if (!writer.StartWrite(TypeId(), uid)) {
    return;
  }
  cls_WriteVisitor const field(writer, "parent");
  parent.DBWrite(field);
}

template <class Coll, class T, int Kind>
void ddr_DictionaryShortcut<Coll, T, Kind>::DBWrite(cls_WriteVisitor const& writer) const {
  if (!writer.StartWrite(TypeId(), uid)) {
    return;
  }
  writer.WriteString("name", key);
  cls_WriteVisitor const field(writer, "parent");
  parent.DBWrite(field);
}

template <class Coll, class T, int Kind>
T const& ddr_DictionaryShortcut<Coll, T, Kind>::ConstGet(ddr_DdbContainer const& container) const {
  T const* const found = parent.ConstGet(container).ConstFind(key);
  if (found == nullptr) {
    Refuse(109);
  }
  return *found;
}

template <class Coll, class T, int Kind>
T& ddr_DictionaryShortcut<Coll, T, Kind>::Get(ddr_DdbContainer& container) const {
  T* const found = parent.Get(container).Find(key);
  if (found == nullptr) {
    Refuse(121);
  }
  return *found;
}

template <>
DDR_API char const* ddr_MemberOf<ddr_ModelContainer>::Name() noexcept;
template <>
DDR_API ddr_ModelContainer const&
ddr_MemberOf<ddr_ModelContainer>::ConstGet(ddr_Ddb const& database) noexcept;
template <>
DDR_API ddr_ModelContainer& ddr_MemberOf<ddr_ModelContainer>::Get(ddr_Ddb& database) noexcept;
template <>
DDR_API char const* ddr_MemberOf<ddr_ResultContainer>::Name() noexcept;
template <>
DDR_API ddr_ResultContainer const&
ddr_MemberOf<ddr_ResultContainer>::ConstGet(ddr_Ddb const& database) noexcept;
template <>
DDR_API ddr_ResultContainer& ddr_MemberOf<ddr_ResultContainer>::Get(ddr_Ddb& database) noexcept;
template <>
DDR_API char const* ddr_MemberOf<ddr_UserDataContainer>::Name() noexcept;
template <>
DDR_API ddr_UserDataContainer const&
ddr_MemberOf<ddr_UserDataContainer>::ConstGet(ddr_Ddb const& database) noexcept;
template <>
DDR_API ddr_UserDataContainer& ddr_MemberOf<ddr_UserDataContainer>::Get(ddr_Ddb& database) noexcept;

extern template class ddr_ShortcutImpl<ddr_Ddb>;
extern template class ddr_ShortcutImpl<ddr_Model>;
extern template class ddr_ShortcutImpl<ddr_ModelContainer>;
extern template class ddr_ShortcutImpl<ddr_ResultContainer>;
extern template class ddr_ShortcutImpl<ddr_UserDataContainer>;
extern template class ddr_Shortcut<ddr_Ddb>;
extern template class ddr_Shortcut<ddr_Model>;
extern template class ddr_Shortcut<ddr_ModelContainer>;
extern template class ddr_Shortcut<ddr_ResultContainer>;
extern template class ddr_Shortcut<ddr_UserDataContainer>;
extern template class ddr_MemberShortcut<ddr_Ddb, ddr_ModelContainer, 1>;
extern template class ddr_MemberShortcut<ddr_Ddb, ddr_ResultContainer, 1>;
extern template class ddr_MemberShortcut<ddr_Ddb, ddr_UserDataContainer, 1>;
extern template class ddr_DictionaryShortcut<ddr_ModelContainer, ddr_Model, 1>;
