// shortcut_host: a host that keeps shortcuts of every kind in its own records; needs the installed headers
// only.
#pragma once

#include "ddr_Ddb.h"
#include "ddr_Root.h"

#include <string>

/// Bookmarks of a model: shortcuts as attributes of an extension. Copies keep the identity.
class host_Bookmarks : public mdl_Extension {
public:
  using Shared = cow_COW<ddr_ModelShortcut, cow_Direct<ddr_ModelShortcut>>;

  host_Bookmarks() : shared(static_cast<ddr_ModelShortcut*>(nullptr)), uid(cls_Uid::Allocate()) {}
  explicit host_Bookmarks(cls_ReadVisitor const& reader)
      : database(cls_ReadVisitor(reader, "database")), models(cls_ReadVisitor(reader, "models")),
        results(cls_ReadVisitor(reader, "results")), userData(cls_ReadVisitor(reader, "userData")),
        model(cls_ReadVisitor(reader, "model")),
        shared(reader.ReadShared<Shared>("shared", ddr_ModelShortcut::TypeId())), uid(reader.GetUid()) {}
  static unsigned TypeId() noexcept { return 0x2f0011; }
  unsigned DynTypeId() const override { return TypeId(); }
  host_Bookmarks* Copy() const override { return new host_Bookmarks(*this); }
  void DBWrite(cls_WriteVisitor const& writer) const override {
    if (!writer.StartWrite(TypeId(), uid)) {
      return;
    }
    database.DBWrite(cls_WriteVisitor(writer, "database"));
    models.DBWrite(cls_WriteVisitor(writer, "models"));
    results.DBWrite(cls_WriteVisitor(writer, "results"));
    userData.DBWrite(cls_WriteVisitor(writer, "userData"));
    model.DBWrite(cls_WriteVisitor(writer, "model"));
    if (shared.IsEmpty()) {
      writer.WriteNullObject("shared");
    } else {
      shared.ConstGet().DBWrite(cls_WriteVisitor(writer, "shared"));
    }
  }

  ddr_DdbShortcut database;
  ddr_ModelContainerShortcut models;
  ddr_ResultContainerShortcut results;
  ddr_UserDataContainerShortcut userData;
  ddr_ModelShortcut model;
  Shared shared; // held by several bookmarks at once

private:
  cls_Uid uid;
};

/// A shortcut that leads where another one leads: chains of them can have any length.
class host_Alias : public ddr_ShortcutImpl<ddr_Ddb> {
public:
  explicit host_Alias(ddr_DdbShortcut const& aliased) : parent(aliased), uid(cls_Uid::Allocate()) {}
  explicit host_Alias(cls_ReadVisitor const& reader)
      : parent(cls_ReadVisitor(reader, "parent")), uid(reader.GetUid()) {}
  static unsigned TypeId() noexcept { return 0x2f0012; }
  unsigned DynTypeId() const override { return TypeId(); }
  cow_String Name() const override { return parent.Name(); }
  cow_String Path() const override { return parent.Path(); }
  cow_String DdbName() const override { return parent.DdbName(); }
  ddr_Ddb const& ConstGet(ddr_DdbContainer const& container) const override {
    return parent.ConstGet(container);
  }
  ddr_Ddb& Get(ddr_DdbContainer& container) const override { return parent.Get(container); }
  host_Alias* Copy() const override { return new host_Alias(*this); }
  void DBWrite(cls_WriteVisitor const& writer) const override {
    if (writer.StartWrite(TypeId(), uid)) {
      parent.DBWrite(cls_WriteVisitor(writer, "parent"));
    }
  }

private:
  ddr_DdbShortcut parent;
  cls_Uid uid;
};

/// The classes of the host.
inline void host_registerClasses(cls_ClassRegistrar& registrar) {
  auto const attribute = [](cls_ClassMetadata& entry, char const* name, unsigned element) {
    entry.AddAttribute(name, cls_AttributeType::Object, element, cls_CollectionType::Single);
  };
  cls_ClassMetadata& bookmarks = registrar.CreateClassMD(
      "host_Bookmarks", host_Bookmarks::TypeId(), 1,
      [](cls_ReadVisitor& reader) -> void* {
        return static_cast<mdl_Extension*>(new host_Bookmarks(reader));
      },
      mdl_Extension::TypeId());
  attribute(bookmarks, "database", ddr_DdbShortcut::TypeId());
  attribute(bookmarks, "models", ddr_ModelContainerShortcut::TypeId());
  attribute(bookmarks, "results", ddr_ResultContainerShortcut::TypeId());
  attribute(bookmarks, "userData", ddr_UserDataContainerShortcut::TypeId());
  attribute(bookmarks, "model", ddr_ModelShortcut::TypeId());
  attribute(bookmarks, "shared", ddr_ModelShortcut::TypeId());
  cls_ClassMetadata& alias = registrar.CreateClassMD(
      "host_Alias", host_Alias::TypeId(), 1,
      [](cls_ReadVisitor& reader) -> void* {
        return static_cast<ddr_ShortcutImpl<ddr_Ddb>*>(new host_Alias(reader));
      },
      ddr_ShortcutImpl<ddr_Ddb>::TypeId());
  alias.AddDtor(host_Alias::CowDtor);
  attribute(alias, "parent", ddr_DdbShortcut::TypeId());
}

inline std::string host_identity(ddr_Ddb const& database) {
  return std::string(database.GetName().Text()) + std::to_string(database.GetCreationTime());
}
inline std::string host_identity(ddr_Model const& model) {
  return std::string(model.GetName().Text()) + " " + model.GetUid().Text();
}
template <class Collection>
std::string host_identity(Collection const& collection) {
  return std::to_string(collection.Size()) + " " + collection.Uid().Text();
}

/// Both paths of a shortcut and what it leads to in this thread's databases.
template <class T>
std::string host_describe(ddr_Shortcut<T> const& shortcut) {
  if (!shortcut.IsSet()) {
    return "unset\n";
  }
  return std::string(shortcut.Path().Text()) + "\n" + shortcut.PythonPath().Text() + "\n" +
         host_identity(shortcut.ConstGet(ddr_Root::Instance().Fetch())) + "\n";
}

inline std::string host_describe(host_Bookmarks const& bookmarks) {
  return host_describe(bookmarks.database) + host_describe(bookmarks.models) +
         host_describe(bookmarks.results) + host_describe(bookmarks.userData) +
         host_describe(bookmarks.model) +
         (bookmarks.shared.IsEmpty() ? std::string("empty\n") : host_describe(bookmarks.shared.ConstGet()));
}
