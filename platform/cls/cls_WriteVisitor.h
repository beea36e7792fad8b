// cls_WriteVisitor: what DBWrite writes to.
#pragma once

#include "cls_RowSink.h"

#include <string>

/// The place of one record inside a keyed collection that is being written back.
class DDR_API cls_WriteRequestMapObj {
public:
  cls_WriteRequestMapObj(cls_CollectionAgent& agent, cow_String const& key);
  ~cls_WriteRequestMapObj();
  cls_WriteRequestMapObj(cls_WriteRequestMapObj const&) = delete;
  cls_WriteRequestMapObj& operator=(cls_WriteRequestMapObj const&) = delete;

private:
  friend class cls_WriteVisitor;
  std::unique_ptr<cls_RowSink> place;
};

/// The place of one element inside a list that is being written.
class DDR_API cls_WriteRequestListObj {
public:
  explicit cls_WriteRequestListObj(cls_ListSink& list);
  ~cls_WriteRequestListObj();
  cls_WriteRequestListObj(cls_WriteRequestListObj const&) = delete;
  cls_WriteRequestListObj& operator=(cls_WriteRequestListObj const&) = delete;

private:
  friend class cls_WriteVisitor;
  std::unique_ptr<cls_RowSink> place;
};

/// Writes the attributes of one object.
///
/// Call StartWrite first; when it answers false the object is stored already and the rest may be skipped.
/// Fields may be written in any order; a field that the file's layout of the class lacks throws. The
/// outermost visitor is ended with End, which makes the whole write permanent; a visitor destroyed without it
/// leaves the file as it was.
class DDR_API cls_WriteVisitor {
public:
  /// Over the place of the outermost object, which must outlive the visitor.
  explicit cls_WriteVisitor(cls_RowSink& place) noexcept;
  /// Over the object that `field` will name.
  cls_WriteVisitor(cls_WriteVisitor const& parent, cls_FieldHandle const& field);
  /// Over the base part of the parent's object.
  cls_WriteVisitor(cls_WriteVisitor const& parent, unsigned baseTypeId);
  explicit cls_WriteVisitor(cls_WriteRequestMapObj& request) noexcept;
  explicit cls_WriteVisitor(cls_WriteRequestListObj& request) noexcept;
  ~cls_WriteVisitor();
  cls_WriteVisitor(cls_WriteVisitor const&) = delete;
  cls_WriteVisitor& operator=(cls_WriteVisitor const&) = delete;

  /// Begins the object. False: an object of that identity was already written in this pass.
  bool StartWrite(unsigned typeId, cls_Uid const& uid) const { return sink->Start(typeId, uid); }
  /// Whether the file's layout of the class has the field.
  bool FieldIsPresent(cls_FieldHandle const& field) const { return sink->FieldIsPresent(field); }

  void WriteInt(cls_FieldHandle const& field, int value) const { sink->WriteInt(field, value); }
  void WriteDouble(cls_FieldHandle const& field, double value) const { sink->WriteDouble(field, value); }
  void WriteBool(cls_FieldHandle const& field, bool value) const { sink->WriteBool(field, value); }
  void WriteString(cls_FieldHandle const& field, cow_String const& value) const {
    sink->WriteString(field, value);
  }
  void WriteNullObject(cls_FieldHandle const& field) const { sink->WriteNullObject(field); }
  /// The text of the list element that this visitor stands on.
  void WriteElementText(cow_String const& text) const { sink->WriteElementText(text); }

  /// Checks the kind of a collection that is about to write itself, as the catalogue codes it (0, 1, 2).
  /// Throws a nex_AssertException for a code that no collection has.
  void CheckCollectionType(int collectionType) const;
  /// The same for a collection that loads on demand.
  void CheckCollectionType(cls_CollectionTypeFix const& collectionType) const;

  /// The stored side of the keyed collection that this visitor writes; empty after a refused StartWrite.
  cls_AgentHandle TakeCollectionAgent() const { return sink->Collection(); }
  /// The elements of the list that this visitor writes; null after a refused StartWrite.
  std::unique_ptr<cls_ListSink> GetListWriter() const { return sink->List(); }
  /// Identity of the store, to be compared only.
  void const* Store() const { return sink->Store(); }

  /// Ends the outermost write and makes it permanent. Throws when that fails; the file is then as before.
  void End() { sink->End(); }

private:
  std::unique_ptr<cls_RowSink> owned;
  cls_RowSink* sink;
};
