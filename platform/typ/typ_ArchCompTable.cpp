// typ_ArchCompTable.cpp: the process-wide table of type names.
#include "typ_ArchCompTable.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <unordered_set>
#include <vector>

namespace {

constexpr unsigned maximalCount = 0x10000; // the index has 16 bits

struct Table {
  std::shared_mutex mutex;
  std::map<unsigned, std::vector<typ_Entry>> blocks;
  std::unordered_set<std::string> names; // only grows: names are handed out for good
};

// Never destroyed, since names are read until the process has ended.
Table& table() {
  static Table* const one = new Table;
  return *one;
}

typ_Entry entryOf(unsigned typeId) {
  Table& all = table();
  std::shared_lock const guard(all.mutex);
  auto const block = all.blocks.find(typeId >> 16);
  unsigned const index = typeId & 0xffffU;
  if (block == all.blocks.end() || index >= block->second.size()) {
    return {0, 0, ""};
  }
  return block->second[index];
}

} // namespace

void typ_ArchCompTable::InsertEntry(unsigned short component, typ_ArchCompEntry entry) {
  unsigned const count = std::min(entry.Count(), maximalCount);
  Table& all = table();
  std::unique_lock const guard(all.mutex);
  std::vector<typ_Entry> block;
  block.reserve(count);
  for (unsigned index = 0; index < count; ++index) {
    typ_Entry const& given = entry.First()[index];
    char const* const name = given.name == nullptr ? "" : all.names.emplace(given.name).first->c_str();
    block.push_back({given.kind, given.baseTypeId, name});
  }
  all.blocks[component] = std::move(block);
}

char const* typ_ArchCompTable::GetName(unsigned typeId) {
  return entryOf(typeId).name;
}

unsigned typ_ArchCompTable::GetBase(unsigned typeId) {
  return entryOf(typeId).baseTypeId;
}

unsigned typ_ArchCompTable::GetKind(unsigned typeId) {
  return entryOf(typeId).kind;
}

void typ_ArchCompTable::Clear() {
  Table& all = table();
  std::unique_lock const guard(all.mutex);
  all.blocks.clear();
}
