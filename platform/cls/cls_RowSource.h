// cls_RowSource: one stored object, opened for reading. The way rows reach objects without knowing a file.
#pragma once

#include "cls_Attribute.h"
#include "cls_ClassRegistrar.h"
#include "cls_CollectionAgent.h"
#include "cls_Uid.h"

#include <memory>

class cls_ListSource;

/// One stored object, or the place where one is missing.
///
/// Implementations are given by whatever stores objects; classes read through cls_ReadVisitor. A source is
/// used by one thread and must not outlive the store it came from. Damage met on the way is reported as an
/// exception that names the file, the class and the row.
class DDR_API cls_RowSource {
public:
  virtual ~cls_RowSource();

  /// False for a missing or null object; every value of such an object is absent.
  virtual bool IsPresent() const = 0;
  /// The stored class, or 0 for a missing object.
  virtual unsigned ClassId() const = 0;
  /// The stored identity; a fresh one for a missing object or one stored without.
  virtual cls_Uid Uid() const = 0;
  /// The name under which the store is known; objects remember it as the database they belong to.
  virtual cow_String const& DbId() const = 0;
  /// Where the object stands, for messages: file, class and row.
  virtual std::string Where() const = 0;
  virtual cls_ClassRegistrar const& Registrar() const = 0;
  /// Whether the stored class is `baseTypeId` or derived from it, by the registrar or by the store's own
  /// class list.
  virtual bool IsA(unsigned baseTypeId) const = 0;

  /// Whether the stored layout of the class has the field.
  virtual bool FieldIsPresent(cls_FieldHandle const& field) const = 0;
  /// Whether the layout has the field and its value is set.
  virtual bool DataIsPresent(cls_FieldHandle const& field) const = 0;
  virtual int ReadInt(cls_FieldHandle const& field, int absent) const = 0;
  virtual double ReadDouble(cls_FieldHandle const& field, double absent) const = 0;
  virtual bool ReadBool(cls_FieldHandle const& field, bool absent) const = 0;
  virtual cow_String ReadString(cls_FieldHandle const& field, cow_String const& absent) const = 0;

  /// The object that a reference field names; never null, but IsPresent may be false.
  virtual std::unique_ptr<cls_RowSource> Object(cls_FieldHandle const& field) const = 0;
  /// The object that a reference field names, built once for all who refer to it: an erased handle to share.
  /// Null when the reference is not set. The class must be `baseTypeId` or derived from it, and have a handle
  /// destructor.
  virtual cow_COW<int, cow_Direct<int>> const* SharedObject(cls_FieldHandle const& field,
                                                            unsigned baseTypeId) const = 0;
  /// The keyed collection whose header this object is; null for a missing object.
  virtual cls_AgentHandle Collection() const = 0;
  /// The elements of the list whose header this object is; an empty list for a missing object.
  virtual std::unique_ptr<cls_ListSource> List() const = 0;
  /// The text of the list element that this object is; empty where there is none.
  virtual cow_String ElementText() const = 0;
};

/// The elements of one stored list, in order.
class DDR_API cls_ListSource {
public:
  virtual ~cls_ListSource();
  /// How many elements the list has.
  virtual int Size() const = 0;
  /// Whether Next will give a further element.
  virtual bool HasNext() const = 0;
  /// The next element. Valid until the next call.
  virtual std::unique_ptr<cls_RowSource> Next() = 0;
};
