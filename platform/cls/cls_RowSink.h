// cls_RowSink: the place of one object that is being written. The way objects reach rows without knowing a
// file.
#pragma once

#include "cls_Attribute.h"
#include "cls_CollectionAgent.h"
#include "cls_Uid.h"

#include <memory>

class cls_ListSink;

/// The place of one object that is being written.
///
/// Implementations are given by whatever stores objects; classes write through cls_WriteVisitor. The object
/// is complete when its sink is destroyed; what was written becomes permanent, as a whole, when the outermost
/// write ends. After Start answered false every further call is accepted and dropped.
class DDR_API cls_RowSink {
public:
  virtual ~cls_RowSink();

  /// Begins the object and points the owner's reference at it.
  /// @return false when an object of that identity was already written in this pass: the reference is set all
  /// the
  ///         same, and nothing more need be written
  virtual bool Start(unsigned typeId, cls_Uid const& uid) = 0;
  /// Whether the stored layout of the class has the field.
  virtual bool FieldIsPresent(cls_FieldHandle const& field) const = 0;
  virtual void WriteInt(cls_FieldHandle const& field, int value) = 0;
  virtual void WriteDouble(cls_FieldHandle const& field, double value) = 0;
  virtual void WriteBool(cls_FieldHandle const& field, bool value) = 0;
  virtual void WriteString(cls_FieldHandle const& field, cow_String const& value) = 0;
  /// Stores "no object" in a reference field.
  virtual void WriteNullObject(cls_FieldHandle const& field) = 0;
  /// The place of the object that a reference field will name.
  virtual std::unique_ptr<cls_RowSink> Object(cls_FieldHandle const& field) = 0;
  /// The place of the base part, for a class that stores one.
  virtual std::unique_ptr<cls_RowSink> BasePart(unsigned baseTypeId) = 0;
  /// The keyed collection whose header this object is. What was stored under it before is replaced by what
  /// the agent is given. Null after a refused Start.
  virtual cls_AgentHandle Collection() = 0;
  /// The elements of the list whose header this object is; they replace those stored before. Null after a
  /// refused Start.
  virtual std::unique_ptr<cls_ListSink> List() = 0;
  /// Stores the text of the list element that this object is.
  virtual void WriteElementText(cow_String const& text) = 0;
  /// Ends the outermost write and makes it permanent. May throw; then nothing was written.
  virtual void End() = 0;
  /// The store written to, to be compared with cls_CollectionAgent::Store.
  virtual void const* Store() const = 0;
};

/// The elements of one list that is being written, in order.
class DDR_API cls_ListSink {
public:
  virtual ~cls_ListSink();
  /// The place of the next element.
  virtual std::unique_ptr<cls_RowSink> Append() = 0;
  /// Whether the writer of the list should let it go when it is done. Always true.
  virtual bool ReleaseWhenDone() const { return true; }
};
