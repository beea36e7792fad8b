// rfm_EntryMap.cpp: the entries of collections by their keys.
#include "rfm_EntryMap.h"

#include <algorithm>
#include <tuple>

namespace {

// To walk over this many again costs next to nothing.
constexpr std::size_t smallCollection = 64;
// What the keys of all collections may take together [byte], and so often what the file holds: many of them
// may lead to the same pages.
constexpr std::size_t smallestLimit = 4U * 1024U * 1024U;
constexpr std::size_t mostOfFile = 4;

} // namespace

rfm_EntryMap::Collection::Collection(rfm_EntryCursor walk) {
  try {
    while (walk.Next()) {
      listed.push_back({keys.size(), walk.Key().size(), walk.Position(), walk.ClassId(), walk.Oid()});
      keys += walk.Key();
    }
  } catch (rfm_Exception const& failure) {
    if (failure.Kind() != rfm_ErrorKind::Damaged) {
      throw;
    }
    damage = std::current_exception();
  }
  std::sort(listed.begin(), listed.end(), [this](Listed const& left, Listed const& right) {
    return std::make_tuple(KeyOf(left), left.position) < std::make_tuple(KeyOf(right), right.position);
  });
}

std::optional<rfm_Entry> rfm_EntryMap::Collection::Find(std::string_view key) const {
  auto const found = std::lower_bound(
      listed.begin(), listed.end(), key,
      [this](Listed const& entry, std::string_view wanted) { return KeyOf(entry) < wanted; });
  if (found != listed.end() && KeyOf(*found) == key) {
    return rfm_Entry{cow_String(key), found->classId, found->oid, found->position};
  }
  if (damage) {
    std::rethrow_exception(damage);
  }
  return std::nullopt;
}

std::optional<rfm_Entry> rfm_EntryMap::Find(rfm_Connection const& connection, rfm_Entries const& entries,
                                            std::int64_t handle, std::string_view key) {
  if (state != connection.State()) {
    collections.clear();
    kept = 0;
    state = connection.State();
  }
  if (auto const known = collections.find(handle); known != collections.end()) {
    return known->second.Find(key);
  }
  Collection walked(entries.Scan(handle));
  std::optional<rfm_Entry> found = walked.Find(key);
  if (walked.Size() > smallCollection) {
    if (kept + walked.Bytes() >
        smallestLimit + mostOfFile * static_cast<std::size_t>(connection.HeldBytes())) {
      collections.clear();
      kept = 0;
    }
    std::size_t const bytes = walked.Bytes();
    collections.emplace(handle, std::move(walked));
    kept += bytes;
  }
  return found;
}
