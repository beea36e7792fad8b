// rfm_Entries: the entries of all collections of a file.
#pragma once

#include "cow_String.h"
#include "os_Export.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

class rfm_DatabaseNode;
class rfm_EntryScan;

/// One entry of a collection.
struct rfm_Entry {
  cow_String key;       ///< name in a map; empty or any text in a list
  unsigned classId = 0; ///< class of the object, 0 for none
  int oid = -1;         ///< its row [from 0]
  int position = 0;     ///< place in the collection, ascending

  friend bool operator==(rfm_Entry const&, rfm_Entry const&) = default;
};

/// A walk over the entries of one collection, in ascending position.
///
/// Holds a read scope: others cannot finish a save while one lives. Reading or writing other tables meanwhile
/// is allowed; entries changed meanwhile may be seen before or after the change. It costs what SQLite's own
/// step costs, and at the end one look-up of the last entry; keys are delivered without a copy.
class DDR_API rfm_EntryCursor {
public:
  rfm_EntryCursor(rfm_EntryCursor&& other) noexcept;
  rfm_EntryCursor& operator=(rfm_EntryCursor&& other) noexcept;
  ~rfm_EntryCursor();

  /// Goes to the next entry.
  /// @returns false at the end; the accessors must not be used then
  /// @throws rfm_Exception for a damaged entry, naming file, handle and position
  bool Next();
  /// Key of the entry. Valid until the next call of anything of this file.
  std::string_view Key() const noexcept { return key; }
  /// Class of the entry's object.
  unsigned ClassId() const noexcept { return classId; }
  /// Row of the entry's object.
  int Oid() const noexcept { return oid; }
  /// Place of the entry.
  int Position() const noexcept { return position; }

private:
  friend class rfm_Entries;
  explicit rfm_EntryCursor(std::unique_ptr<rfm_EntryScan> walk) noexcept;

  std::unique_ptr<rfm_EntryScan> scan;
  std::string_view key;
  unsigned classId = 0;
  int oid = -1;
  int position = -1;
};

/// The one physical table in which all collections keep their entries, each under its handle.
///
/// Owned by its database. Changing needs a transaction. Keys are UTF-8; a file can hold several entries of
/// one key under one handle (lists do). Failures are rfm_Exception.
class DDR_API rfm_Entries {
public:
  rfm_Entries(rfm_Entries const&) = delete;
  rfm_Entries& operator=(rfm_Entries const&) = delete;
  ~rfm_Entries();

  /// Walks the entries of a collection; an unknown handle has none.
  rfm_EntryCursor Scan(std::int64_t handle) const;
  /// The first entry of a key, or nothing. Costs one look-up, independent of the number of entries; in a file
  /// without its index by key, also a walk over the collection for each state of the file.
  std::optional<rfm_Entry> Find(std::int64_t handle, std::string_view key) const;
  /// The same for a key that a walk has met. Throws when it is there but the index by key does not lead to
  /// it. O(entries of the collection) for the first key of a state of the file that is not found.
  std::optional<rfm_Entry> FindListed(std::int64_t handle, std::string_view key) const;
  /// How many entries the collection has. Costs a walk over it.
  int Count(std::int64_t handle) const;

  /// Adds an entry behind the last one.
  void Append(std::int64_t handle, std::string_view key, unsigned classId, int oid);
  /// Gives the entries of a key another object.
  /// @returns false when there is none; nothing is changed then
  bool Update(std::int64_t handle, std::string_view key, unsigned classId, int oid);
  /// Takes the entries of a key out.
  /// @returns false when there was none
  bool Remove(std::int64_t handle, std::string_view key);
  /// Takes all entries of a collection out.
  void Clear(std::int64_t handle);

private:
  friend class rfm_DatabaseNode;
  explicit rfm_Entries(rfm_DatabaseNode& owner) noexcept;
  bool WantIndex() const;

  rfm_DatabaseNode& database;
};
