// rom_Transporter: moves objects between memory and one database file.
#pragma once

#include "cls_ClassRegistrar.h"
#include "cow_String.h"
#include "os_Export.h"
#include "rfm_Database.h"
#include "rfm_File.h"
#include "rom_CowBarn.h"
#include "rom_TransporterBase.h"

#include <cstdint>
#include <memory>

class rom_Store;

/// When a new file takes its name.
enum class rom_Publishing {
  AtOnce, ///< with header and class list
  Later,  ///< with rfm_Database::Publish; a file that is not published goes away with its last handle
};

/// Moves objects between memory and one database file.
///
/// It shares the catalogue of the registrar it is given and so may outlive that registrar. Collections that
/// load on demand go on reading through it; when it is destroyed they are detached, and asking them for an
/// unread record throws. One thread at a time.
class DDR_API rom_Transporter : public rom_TransporterBase {
public:
  /// Opens the database inside an existing file.
  /// @param registrar the classes to read and write with; its catalogue is shared
  /// @param format name of the database inside the file: "D0"
  /// @param reserved -1
  rom_Transporter(cls_ClassRegistrar const* registrar, rfm_File const& file, cow_String const& format,
                  int reserved);
  /// Makes the database inside a file that was opened for creation: header and class list are in the file,
  /// and if so wanted under its name, before this returns.
  /// @param creationTime [seconds since 1970]
  rom_Transporter(cls_ClassRegistrar const* registrar, rfm_File const& file, cow_String const& format,
                  cow_String const& description, std::int64_t creationTime, int reserved,
                  rom_Publishing publishing = rom_Publishing::AtOnce);
  ~rom_Transporter() override;

  /// How many rows the table of a class has; 0 for a class that the file does not list.
  int GetTableSize(unsigned typeId) const;
  rom_CowBarn& ObjectCache() noexcept;
  rfm_Database& Database() noexcept;
  rfm_File const& File() const noexcept;
  cls_ClassRegistrar const& Registrar() const noexcept;
  /// Identity to compare with cls_CollectionAgent::Store.
  void const* StoreIdentity() const noexcept;

  /// The inner store, for the mementos.
  rom_Store& Store() noexcept { return *store; }

private:
  std::unique_ptr<rom_Store> store;
};
