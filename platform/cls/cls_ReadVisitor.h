// cls_ReadVisitor: what a reading constructor reads from.
#pragma once

#include "cls_RowSource.h"
#include "cow_Erasure.h"

/// Reads the attributes of one stored object.
///
/// Fields are found by name, in any order. A visitor is made over a stored object, or over the object that a
/// field of another visitor names; it must not outlive what it was made from. A missing scalar reads as the
/// default given.
class DDR_API cls_ReadVisitor {
public:
  /// Over a stored object, which must outlive the visitor.
  explicit cls_ReadVisitor(cls_RowSource const& stored) noexcept;
  /// Over the object that `field` names; where it is missing or null every field of this visitor is absent.
  cls_ReadVisitor(cls_ReadVisitor const& parent, cls_FieldHandle const& field);
  /// Over the next element of a list.
  explicit cls_ReadVisitor(cls_ListSource& list);
  ~cls_ReadVisitor();
  cls_ReadVisitor(cls_ReadVisitor const&) = delete;
  cls_ReadVisitor& operator=(cls_ReadVisitor const&) = delete;

  /// False when this visitor stands for a missing or null object.
  bool IsPresent() const { return source->IsPresent(); }
  /// The stored class of the object; 0 when it is missing.
  unsigned ClassId() const { return source->ClassId(); }
  /// The stored identity of the object; a fresh one when it is missing.
  cls_Uid GetUid() const { return source->Uid(); }
  /// The name under which the database is known.
  cow_String const& DbId() const { return source->DbId(); }
  /// File, class and row, for messages.
  std::string Where() const { return source->Where(); }
  cls_ClassRegistrar const& Registrar() const { return source->Registrar(); }

  /// Whether the file's layout of the class has the field.
  bool FieldIsPresent(cls_FieldHandle const& field) const { return source->FieldIsPresent(field); }
  /// Whether the file's layout has the field and its value is set.
  bool DataIsPresent(cls_FieldHandle const& field) const { return source->DataIsPresent(field); }

  int ReadInt(cls_FieldHandle const& field, int absent = 0) const { return source->ReadInt(field, absent); }
  double ReadDouble(cls_FieldHandle const& field, double absent = 0) const {
    return source->ReadDouble(field, absent);
  }
  bool ReadBool(cls_FieldHandle const& field, bool absent = false) const {
    return source->ReadBool(field, absent);
  }
  cow_String ReadString(cls_FieldHandle const& field, cow_String const& absent = cow_String()) const {
    return source->ReadString(field, absent);
  }
  /// The text of the list element that this visitor stands on.
  cow_String ReadElementText() const { return source->ElementText(); }

  /// The object that `field` names, as a handle shared by all who refer to it; empty when the reference is
  /// not set.
  /// @tparam Handle the typed handle, made from the erased one
  template <class Handle>
  Handle ReadShared(cls_FieldHandle const& field, unsigned baseTypeId) const;

  /// The stored collection whose header this object is; empty for a missing object.
  cls_AgentHandle GetCollectionAgent() const { return source->Collection(); }
  /// The elements of the list whose header this object is.
  std::unique_ptr<cls_ListSource> GetListReader() const { return source->List(); }

  /// Throws, naming file, class and row, unless the object is there and of class `baseTypeId` or of a class
  /// derived from it.
  void RequireClass(unsigned baseTypeId) const;
  /// Builds the object of this visitor, of class `baseTypeId` or a class derived from it, through the
  /// registrar.
  /// @return an object that the caller owns, or null when the registrar does not build the class; throws when
  /// the
  ///         stored class is another one
  void* Construct(unsigned baseTypeId) const;

private:
  std::unique_ptr<cls_RowSource> owned;
  cls_RowSource const* source;
};

// ---- template bodies ----

template <class Handle>
Handle cls_ReadVisitor::ReadShared(cls_FieldHandle const& field, unsigned baseTypeId) const {
  auto const* erased = source->SharedObject(field, baseTypeId);
  return erased == nullptr ? Handle(static_cast<decltype(Handle(nullptr).Peek())>(nullptr))
                           : cow_Erasure<Handle>::Restore(*erased);
}
