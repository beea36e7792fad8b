// rom_MementoRead and rom_MementoWrite: one stored row, opened to read an object from or to write one to.
#pragma once

#include "cls_RowSink.h"
#include "cls_RowSource.h"
#include "cls_Uid.h"
#include "rom_Transporter.h"

#include <memory>

/// One row, opened for reading. Everything read through it, nested objects too, belongs to one state of the
/// file: it holds one read transaction as long as it lives.
class DDR_API rom_MementoRead {
public:
  /// @param row [index from 0] throws, naming file, class and row, when there is no such row
  /// @param uid the identity that the object read from this row will have
  rom_MementoRead(rom_Transporter& transporter, unsigned typeId, int row, cls_Uid const& uid);
  ~rom_MementoRead();
  rom_MementoRead(rom_MementoRead const&) = delete;
  rom_MementoRead& operator=(rom_MementoRead const&) = delete;

  operator cls_RowSource const&() const noexcept { return *source; }

private:
  std::unique_ptr<cls_RowSource> source;
};

/// One row, opened for writing, and the transaction in which it and all it leads to are written.
///
/// With a visitor the write becomes permanent when the visitor is ended. With NeuterString alone it becomes
/// permanent when the memento is ended or destroyed. Destroyed earlier, or while an exception passes, it
/// leaves the file as it was.
class DDR_API rom_MementoWrite {
public:
  /// Begins the transaction. Throws when the file was opened for reading, is locked by another user, or was
  /// changed by another user since this transporter last read it.
  /// @param row [index from 0] the row to write; -1 for a new row at the end of the table
  rom_MementoWrite(rom_Transporter& transporter, unsigned typeId, int row);
  ~rom_MementoWrite();
  rom_MementoWrite(rom_MementoWrite const&) = delete;
  rom_MementoWrite& operator=(rom_MementoWrite const&) = delete;

  operator cls_RowSink&() noexcept { return *sink; }

  /// Writes one text field of the row and leaves the rest as stored.
  void NeuterString(cls_FieldHandle const& field, cow_String const& text);
  /// Makes what NeuterString wrote permanent. May throw; then nothing was written.
  void End();

private:
  rom_Store& store;
  unsigned typeId;
  int row;
  int exceptionsAtStart;
  bool neutered = false;
  std::unique_ptr<cls_RowSink> sink;
};
