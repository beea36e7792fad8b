#include "rom_Memento.h"

#include "nex_Exception.h"
#include "rfm_Table.h"
#include "rom_ObjectSink.h"
#include "rom_ObjectSource.h"

#include <cstdio>
#include <exception>

rom_MementoRead::rom_MementoRead(rom_Transporter& transporter, unsigned typeId, int row, cls_Uid const& uid) {
  auto opened = std::make_unique<rom_ObjectSource>(transporter.Store(), rom_RowId{typeId, row});
  opened->SetUid(uid);
  source = std::move(opened);
}

rom_MementoRead::~rom_MementoRead() = default;

rom_MementoWrite::rom_MementoWrite(rom_Transporter& transporter, unsigned rowTypeId, int rowNumber)
    : store(transporter.Store()), typeId(rowTypeId), row(rowNumber),
      exceptionsAtStart(std::uncaught_exceptions()) {
  rom_WritePass& pass = store.BeginPass();
  try {
    sink = rom_ObjectSink::Top(pass, typeId, row);
  } catch (...) {
    store.EndPass();
    throw;
  }
}

rom_MementoWrite::~rom_MementoWrite() {
  if (neutered && store.Pass() != nullptr && std::uncaught_exceptions() == exceptionsAtStart) {
    try {
      End();
    } catch (std::exception const& error) {
      std::fprintf(stderr, "ERROR rom_MementoWrite::~rom_MementoWrite() %s\n", error.what());
    }
  }
  sink.reset();
  store.EndPass();
}

void rom_MementoWrite::NeuterString(cls_FieldHandle const& field, cow_String const& text) {
  if (store.Pass() == nullptr) {
    nex_Exception::Throw(nex_AssertException("the write has not ended"), "platform/rom/rom_Memento",
                         __LINE__);
  }
  rfm_Table table = store.database.TableForWriting(typeId);
  table.ReadRow(row);
  table.Row().WriteFieldString(rfm_FieldHandle(field.Name()), text);
  table.UpdateRow(row);
  neutered = true;
}

void rom_MementoWrite::End() {
  neutered = false;
  if (store.Pass() != nullptr) {
    store.Pass()->Commit();
    store.EndPass();
  }
}
