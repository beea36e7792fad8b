// rfm_Database: the database in a file: its header, its class list, its tables and its entries.
#pragma once

#include "cow_String.h"
#include "os_Export.h"
#include "rfm_ClassEntry.h"
#include "rfm_Entries.h"
#include "rfm_File.h"
#include "rfm_Table.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class rfm_DatabaseNode;

/// An index that a file should have.
struct rfm_MissingIndex {
  unsigned typeId = 0; ///< the class whose identities it tells; 0: that of the entries' keys
  std::string remedy;  ///< the SQL that makes it
};

/// A counted handle of the database of a file. Copies share it; it keeps its file open.
///
/// Made by Open on a file that has one, or by Create on a file that was opened to be created. Serves one
/// thread at a time. Everything read from the file is checked before use. Failures are rfm_Exception.
class DDR_API rfm_Database {
public:
  /// Opens the database of a file.
  /// @param file an open file
  /// @param name the database's name in the file; "D0" in every file of ours
  /// @throws rfm_Exception Damaged when the file has no database record of that name
  static rfm_Database Open(rfm_File const& file, cow_String const& name);
  /// Makes the database of a file that was opened to be created. Ready to be changed; it has no
  /// classes yet and needs no Bind.
  /// @param file a file not yet published
  /// @param name the database's name in the file
  /// @param description any text
  /// @param creationTime [seconds since 1970]; 0 says that there is none
  static rfm_Database Create(rfm_File const& file, cow_String const& name, cow_String const& description,
                             std::int64_t creationTime);
  /// Makes a created file appear under its name, whole and safe from a power cut; with utl_FileAccess::Create
  /// in place of a database of ours that stands there. From then on saves are as durable as those of an
  /// opened file. Until then the file is nobody's, and goes away with its last handle.
  /// @throws rfm_Exception when something else stands there by now, or cannot be replaced: still unpublished
  /// then; or when only its name could not be synced, which the next save makes up for
  void Publish();
  /// Reads the class list into memory and checks it.
  /// @throws rfm_Exception Damaged
  void Bind();
  /// The creation time in the header of a file [seconds since 1970]; 0 when it has none or it cannot be read.
  static std::int64_t GetCreationTime(rfm_File const& file);

  /// Name of the file as it was opened.
  cow_String const& FileName() const noexcept;
  /// Name of the file that the contents come from, for messages about what is wrong with them: the old file
  /// while an rfm_Rebuild fills this one, and this one otherwise.
  cow_String const& OriginName() const noexcept;
  /// The description given when the file was created.
  cow_String const& Description() const noexcept;
  /// [seconds since 1970]; 0: none.
  std::int64_t CreationTime() const noexcept;
  /// The file.
  rfm_File const& File() const noexcept;

  /// The class list in memory, in stored order: as of Bind, or of the last table or transaction asked for.
  /// References into it, and what FindClass gives, are valid until then.
  std::vector<rfm_ClassEntry> const& Classes() const noexcept;
  /// A number that changes whenever Classes() does.
  std::uint64_t ClassListVersion() const noexcept;
  /// The class with a type id, or null.
  rfm_ClassEntry const* FindClass(unsigned typeId) const noexcept;
  /// The class with a name (exact bytes), or null.
  rfm_ClassEntry const* FindClassByName(std::string_view name) const noexcept;
  /// Adds a class to the file's class list; its table is made with its first row. Inside a transaction, and
  /// taken back with it.
  /// @param description everything but row and table, which are given by the file
  /// @returns the entry in memory; valid until the class list next changes
  /// @throws rfm_Exception when the type id or the name is listed already, or two fields would have one name
  rfm_ClassEntry const& AddClass(rfm_ClassEntry const& description);

  /// The class list as a table: "Class Name", "Class Table", "Type Id", "Class Version", "Base Type Id". It
  /// cannot be written through.
  rfm_Table ClassList() const;
  /// The table of a class. A class that is not listed, or that has had no rows, has a table of Length 0 that
  /// cannot be appended to.
  rfm_Table Table(unsigned typeId) const;
  /// The table that a "Class Table" handle of the class list names; of Length 0 when there is none.
  rfm_Table TableOfHandle(std::int64_t classTable) const;
  /// The table of a listed class, made if it had no rows yet. Inside a transaction.
  /// @throws rfm_Exception for a class that is not listed
  rfm_Table TableForWriting(unsigned typeId);
  /// The entries of all collections. Lives as long as the database.
  rfm_Entries& Entries() const noexcept;
  /// A collection handle never used before in this file, from 1. Inside a transaction.
  std::int64_t NewHandle();
  /// A number that changes when another connection has changed the file. Costs about one look-up.
  std::uint64_t ChangeCount() const;
  /// A number that grows by one with every committed change of the file, whoever made it; a change that was
  /// taken back does not count, a failing device notwithstanding. Wraps after 2^32 changes.
  std::uint32_t CommitCount() const;
  /// CommitCount without the changes that transactions of this database and its copies have committed: it
  /// differs from an earlier value when anybody else has changed the file since.
  std::uint32_t ForeignCommits() const;

  /// What SQLite finds wrong with the pages and indexes of the file, a sentence each; empty for a sound file.
  /// O(file).
  std::vector<std::string> CheckPages() const;
  /// Throws (Damaged) when SQLite finds anything wrong with the pages of the file; indexes are not compared
  /// with their tables. Without it, rows that a damaged page does not show any more are not missed. O(file).
  void WantSoundPages() const;
  /// The indexes that the file should have and has not. Without them look-ups walk over whole tables.
  std::vector<rfm_MissingIndex> MissingIndexes() const;
  /// The handles that entries are stored under, ascending. O(number of handles) look-ups.
  std::vector<std::int64_t> EntryHandles() const;

private:
  friend class rfm_ReadScope;
  friend class rfm_Rebuild;
  friend class rfm_Transaction;
  explicit rfm_Database(std::shared_ptr<rfm_DatabaseNode> database) noexcept;

  std::shared_ptr<rfm_DatabaseNode> node;
};
