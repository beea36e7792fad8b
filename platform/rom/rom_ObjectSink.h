// rom_ObjectSink: the place of one object in a write under way.
#pragma once

#include "cls_RowSink.h"
#include "rom_WritePass.h"

#include <memory>
#include <optional>

/// Which rows an object that got a row of its own, beside another of the same identity, shares with nobody
/// else.
struct rom_Fork {
  rom_WrittenObjects written;
};

class rom_ObjectSink : public cls_RowSink {
public:
  /// The place of an outermost object. @param row -1 for a new row at the end
  static std::unique_ptr<rom_ObjectSink> Top(rom_WritePass& pass, unsigned typeId, int row);
  /// The place of a record of a keyed collection.
  static std::unique_ptr<rom_ObjectSink> Entry(rom_WritePass& pass, rom_MapAgent& agent,
                                               cow_String const& key, std::shared_ptr<rom_Fork> fork);
  ~rom_ObjectSink() override;

  bool Start(unsigned typeId, cls_Uid const& uid) override;
  bool FieldIsPresent(cls_FieldHandle const& field) const override;
  void WriteInt(cls_FieldHandle const& field, int value) override;
  void WriteDouble(cls_FieldHandle const& field, double value) override;
  void WriteBool(cls_FieldHandle const& field, bool value) override;
  void WriteString(cls_FieldHandle const& field, cow_String const& value) override;
  void WriteNullObject(cls_FieldHandle const& field) override;
  std::unique_ptr<cls_RowSink> Object(cls_FieldHandle const& field) override;
  std::unique_ptr<cls_RowSink> BasePart(unsigned baseTypeId) override;
  cls_AgentHandle Collection() override;
  std::unique_ptr<cls_ListSink> List() override;
  void WriteElementText(cow_String const& text) override;
  void End() override;
  void const* Store() const override;

private:
  friend class rom_ListSink;
  enum class Target { Top, Field, Entry, Element, BasePart };

  rom_ObjectSink(rom_WritePass& writePass, Target what) noexcept;
  void SetReference(rom_RowId id);
  void Begin(unsigned typeId, cls_Uid const& uid, rom_RowId id, bool isNew);
  bool StartEntry(unsigned typeId, cls_Uid const& uid);
  bool StartTop(unsigned typeId, cls_Uid const& uid);
  bool StartNested(unsigned typeId, cls_Uid const& uid);
  /// The row that the owner's stored reference leads to, when it holds this identity.
  std::optional<rom_RowId> StoredTarget(unsigned typeId, cls_Uid const& uid) const;
  /// The number of the collection whose header this object is.
  std::int64_t HeaderHandle();

  rom_WritePass& pass;
  rom_Store& store;
  Target target;
  unsigned topTypeId = 0;
  int topRow = -1;
  rom_PendingRow* owner = nullptr; // of a field
  cow_String ownerField;
  rom_MapAgent* agent = nullptr; // of an entry
  cow_String key;
  rom_PendingList* list = nullptr; // of an element
  std::size_t element = 0;
  std::shared_ptr<rom_Fork> fork;
  int exceptionsAtStart;
  rom_PendingRow* row = nullptr;      // null before Start, after a refused one, and of a base part
  std::optional<std::int64_t> handle; // of the collection whose header this is, once it was asked for
};
