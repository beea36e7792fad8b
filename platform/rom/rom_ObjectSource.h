// rom_ObjectSource: one stored row as a source of attributes.
#pragma once

#include "cls_RowSource.h"
#include "rfm_ReadScope.h"
#include "rfm_Row.h"
#include "rfm_Table.h"
#include "rom_Store.h"

#include <optional>
#include <utility>

class rom_ObjectSource : public cls_RowSource {
public:
  /// A stored row; throws when it is not there.
  rom_ObjectSource(rom_Store& store, rom_RowId id);
  /// The same through a table whose buffer nobody else uses while this object lives.
  rom_ObjectSource(rom_Store& store, rom_RowId id, rfm_Table const& table);
  ~rom_ObjectSource() override;
  /// A missing object, or a list element that is a text alone.
  explicit rom_ObjectSource(rom_Store& store);

  void SetElementText(cow_String text) { elementText = std::move(text); }
  void SetUid(cls_Uid const& given) { uid = given; }

  bool IsPresent() const override { return present; }
  unsigned ClassId() const override { return present ? id.classId : 0; }
  cls_Uid Uid() const override { return uid; }
  cow_String const& DbId() const override { return store.file.FileName(); }
  std::string Where() const override { return store.Where(id.classId, id.row); }
  cls_ClassRegistrar const& Registrar() const override { return store.registrar; }
  bool IsA(unsigned baseTypeId) const override { return present && store.IsA(id.classId, baseTypeId); }
  bool FieldIsPresent(cls_FieldHandle const& field) const override;
  bool DataIsPresent(cls_FieldHandle const& field) const override;
  int ReadInt(cls_FieldHandle const& field, int absent) const override;
  double ReadDouble(cls_FieldHandle const& field, double absent) const override;
  bool ReadBool(cls_FieldHandle const& field, bool absent) const override;
  cow_String ReadString(cls_FieldHandle const& field, cow_String const& absent) const override;
  std::unique_ptr<cls_RowSource> Object(cls_FieldHandle const& field) const override;
  cow_COW<int, cow_Direct<int>> const* SharedObject(cls_FieldHandle const& field,
                                                    unsigned baseTypeId) const override;
  cls_AgentHandle Collection() const override;
  std::unique_ptr<cls_ListSource> List() const override;
  cow_String ElementText() const override { return elementText; }

  /// The reference stored in a field, or nothing when its row is not set. Throws, naming the field, when the
  /// file knows no such class.
  std::optional<rom_RowId> Reference(cls_FieldHandle const& field) const;

private:
  rfm_Row const& Row() const noexcept { return std::as_const(*table).Row(); }
  std::int64_t StoredHandle() const;
  void RequireMeasure() const;
  /// Refuses what a field of this row refers to.
  [[noreturn]] void RefuseReference(cls_FieldHandle const& field, std::string const& what, int line) const;

  rom_Store& store;
  rfm_ReadScope scope;
  rom_RowId id;
  bool present;
  std::optional<rfm_Table> table; // its buffer holds the row
  cls_Uid uid;
  cow_String elementText;
};
