// rfm_EntryMap: the entries of collections by their keys, for a file that has no index of them.
#pragma once

#include "rfm_Connection.h"
#include "rfm_Entries.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Finds entries by walking over their collection once. What was met is kept as long as the file stays as it
/// is, so that finding all entries of a collection one by one is not quadratic in their number. It takes
/// about as much memory as the file does.
class rfm_EntryMap {
public:
  /// The first entry with a key, as a walk finds it. Inside a read scope or a transaction.
  /// @throws rfm_Exception Damaged when a damaged entry stands before it, or no such entry does
  std::optional<rfm_Entry> Find(rfm_Connection const& connection, rfm_Entries const& entries,
                                std::int64_t handle, std::string_view key);

private:
  /// One entry.
  struct Listed {
    std::size_t keyBegin;
    std::size_t keySize;
    int position;
    unsigned classId;
    int oid;
  };
  /// One collection.
  class Collection {
  public:
    explicit Collection(rfm_EntryCursor walk);
    std::optional<rfm_Entry> Find(std::string_view key) const;
    std::size_t Size() const noexcept { return listed.size(); }
    std::size_t Bytes() const noexcept { return keys.capacity() + listed.capacity() * sizeof(Listed); }

  private:
    std::string_view KeyOf(Listed const& entry) const noexcept {
      return std::string_view(keys).substr(entry.keyBegin, entry.keySize);
    }

    std::string keys; // of all, one behind the other
    std::vector<Listed> listed;
    std::exception_ptr damage; // that ended the walk
  };

  std::map<std::int64_t, Collection> collections;
  std::size_t kept = 0; // of them [byte]
  rfm_State state;      // that they are from
};
