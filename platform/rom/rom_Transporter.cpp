#include "rom_Transporter.h"

#include "rfm_Table.h"
#include "rfm_Transaction.h"
#include "rom_Store.h"
#include "rom_WritePass.h"

namespace {

rfm_Database openDatabase(rfm_File const& file, cow_String const& format) {
  rfm_Database database = rfm_Database::Open(file, format);
  database.Bind();
  return database;
}

rfm_Database createDatabase(cls_ClassRegistrar const* registrar, rfm_File const& file,
                            cow_String const& format, cow_String const& description,
                            std::int64_t creationTime, rom_Publishing publishing) {
  rfm_Database database = rfm_Database::Create(file, format, description, creationTime);
  {
    rfm_Transaction transaction(database);
    for (unsigned typeId : registrar == nullptr ? std::vector<unsigned>() : registrar->TypeIds()) {
      database.AddClass(rom_storedClass(*registrar->Find(typeId)));
    }
    transaction.Commit();
  }
  if (publishing == rom_Publishing::AtOnce) {
    database.Publish();
  }
  return database;
}

} // namespace

rom_TransporterBase::~rom_TransporterBase() = default;

rom_Transporter::rom_Transporter(cls_ClassRegistrar const* registrar, rfm_File const& file,
                                 cow_String const& format, int)
    : store(std::make_unique<rom_Store>(registrar, file, openDatabase(file, format))) {}

rom_Transporter::rom_Transporter(cls_ClassRegistrar const* registrar, rfm_File const& file,
                                 cow_String const& format, cow_String const& description,
                                 std::int64_t creationTime, int, rom_Publishing publishing)
    : store(std::make_unique<rom_Store>(
          registrar, file, createDatabase(registrar, file, format, description, creationTime, publishing))) {}

rom_Transporter::~rom_Transporter() = default;

int rom_Transporter::GetTableSize(unsigned typeId) const {
  return store->database.Table(typeId).Length();
}

rom_CowBarn& rom_Transporter::ObjectCache() noexcept {
  return store->cache;
}

rfm_Database& rom_Transporter::Database() noexcept {
  return store->database;
}

rfm_File const& rom_Transporter::File() const noexcept {
  return store->file;
}

cls_ClassRegistrar const& rom_Transporter::Registrar() const noexcept {
  return store->registrar;
}

void const* rom_Transporter::StoreIdentity() const noexcept {
  return store.get();
}
