// ddr_Root: the databases that a thread has open.
#pragma once

#include "cls_ClassRegistrar.h"
#include "cow_Map.h"
#include "cow_String.h"
#include "ddr_Ddb.h"
#include "os_Export.h"
#include "rfm_File.h"
#include "thr_ThreadSingleton.h"

#include <memory>

/// The registry of the databases that one thread has open.
///
/// Each thread has its own, made on first use and destroyed with the thread or when the module stops;
/// databases are not saved then. Before anything is created or opened the host installs a class registrar. A
/// database is known by its persistent name, and is found by the name of the file from which it was opened or
/// created.
///
/// To change a database: copy the container that Fetch gives, change the copy, give it back with Replace, and
/// call SaveDdb. References that the members hand out live until the registry, or the record they come from,
/// next changes. A failed call leaves the registry as it was. One thread at a time: the one it belongs to.
class DDR_API ddr_Root : public thr_ThreadSingletonBase<ddr_Root> {
public:
  /// The length of a persistent name [byte]. Stored.
  static constexpr std::size_t PERS_STRING_PAD = 2048;

  /// The calling thread's registry; made when it has none.
  static ddr_Root& Instance();

  /// For thr_ThreadSingleton, which makes one a thread.
  ddr_Root();
  ~ddr_Root();
  ddr_Root(ddr_Root const&) = delete;
  ddr_Root& operator=(ddr_Root const&) = delete;

  /// The open databases by persistent name.
  ddr_DdbContainer const& Fetch() const noexcept { return databases; }
  /// Whether the file is open here.
  bool IsMember(cow_String const& fileName) const;
  /// The persistent name of an open file. Throws nex_TextException for a file that is not open here.
  cow_String const& GetPersistentName(cow_String const& fileName) const;
  /// The file of an open database; the first in byte order where several lead to it, empty where none does.
  /// Throws nex_TextException for an unknown name. O(number of files).
  cow_String const& GetFileName(cow_String const& persistentName) const;
  /// The classes that files are read and written with, or null.
  cls_ClassRegistrar const* GetClassRegistrar() const noexcept { return registrar.get(); }
  /// How often a database was opened and not closed; 0 for an unknown one.
  int GetOpenCount(cow_String const& persistentName) const;
  /// Whether any opening of the database was read-only; false for an unknown one.
  bool WasOpenedReadOnly(cow_String const& persistentName) const;

  /// Installs the classes that files are read and written with; adopts them.
  void SetClassRegistrar(cls_ClassRegistrar* classes);
  /// Makes the container a copy of another, normally a changed copy of Fetch().
  void Replace(ddr_DdbContainer const& other);

  /// Makes a new, empty database file and registers its record. A database of ours under that name is
  /// replaced; anything else that stands there is refused. The record itself reaches the file with the first
  /// save.
  void CreateDdb(cow_String const& fileName, cow_String const& description);
  /// The same with a choice.
  /// @param access utl_FileAccess::Create, or utl_FileAccess::CreateNew, which replaces nothing
  void CreateDdb(cow_String const& fileName, cow_String const& description, utl_FileAccess access);
  /// The same, and saves it: the record is in the file when that takes its name. Whoever is stopped leaves
  /// what stood there before, or the new database.
  void CreateSavedDdb(cow_String const& fileName, cow_String const& description, utl_FileAccess access);
  /// Makes a database file available under its persistent name. Opening a file that is open already counts
  /// one more opening.
  /// @param persistentName written into the file first; empty: the stored name is used
  /// @return the persistent name under which the database is known
  cow_String const& OpenDdb(rfm_File const& file, cow_String const& persistentName);
  /// Writes a database to its file, as one transaction: afterwards the file holds all of it, and after a
  /// failure it holds what it held before. When the device fails at the very end, after the file has changed,
  /// the exception says that the changes are there but may not survive a power cut; the next save that
  /// succeeds makes them durable.
  /// @param updateModifyTime false leaves the stored time of modification alone, now and in all later saves
  void SaveDdb(cow_String const& persistentName, bool updateModifyTime);
  /// Drops a database without saving, however often it was opened. Throws nex_TextException for an unknown
  /// name.
  void CloseDdb(cow_String const& persistentName);

  /// Whether an open file is still the file that was opened: compares creation times. Throws
  /// nex_TextException for a file that is not open here.
  bool VerifyCreationDate(rfm_File const& file) const;

private:
  struct OpenRecord {
    int openCount = 0;
    bool readOnly = false;
  };
  using FileNames = cow_Map<cow_String, cow_String>;
  using OpenRecords = cow_Map<cow_String, OpenRecord>;

  cow_String const& OpenAgain(rfm_File const& file);
  std::unique_ptr<ddr_Ddb> MakeFile(cow_String const& fileName, cow_String const& description,
                                    utl_FileAccess access) const;
  static void Write(ddr_Ddb& record, bool updateModifyTime);
  /// @param publishes whether the file is new, and takes its name with this
  void Register(std::unique_ptr<ddr_Ddb> record, cow_String const& fileName, bool readOnly, bool publishes);

  // Destroyed from the bottom up; the destructor empties them in the order that records depend on.
  ddr_DdbContainer databases;
  std::unique_ptr<cls_ClassRegistrar> registrar;
  FileNames fileNames;
  OpenRecords openRecords;
};

extern template class thr_ThreadSingletonBase<ddr_Root>;
extern template class thr_ThreadSingleton<ddr_Root>;
