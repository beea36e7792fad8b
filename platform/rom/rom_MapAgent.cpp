#include "rom_MapAgent.h"

#include "nex_Exception.h"
#include "rom_ObjectSink.h"
#include "rom_ObjectSource.h"
#include "utl_Utf8.h"

rom_MapAgent::rom_MapAgent(rom_Store& ofStore, rom_RowId headerRow, cls_Uid const& identity,
                           std::int64_t entryHandle)
    : store(&ofStore), fileName(ofStore.file.FileName()), header(headerRow), uid(identity),
      handle(entryHandle) {
  store->AddAgent(*this);
}

rom_MapAgent::~rom_MapAgent() {
  if (store != nullptr) {
    store->DropAgent(*this);
  }
}

rom_Store& rom_MapAgent::Need() const {
  if (store == nullptr) {
    nex_Exception::Throw(nex_TextException(("The database file '" + utl_Printable(fileName.View()) +
                                            "' of this collection has been closed; open it again to read or"
                                            " save what was not loaded.")),
                         "platform/rom/rom_MapAgent", __LINE__);
  }
  return *store;
}

void rom_MapAgent::Detach() noexcept {
  store = nullptr;
  EndWalk();
  state.reset();
  pendingState.reset();
  hasPending = false;
  self = cls_AgentHandle(); // may delete this
}

void rom_MapAgent::Begin() {
  Need();
  EndWalk();
}

void rom_MapAgent::First() {
  rom_Store& from = Need();
  EndWalk();
  if (std::exchange(walkNothing, false) || !born) {
    return;
  }
  cursor = std::make_unique<rfm_EntryCursor>(from.database.Entries().Scan(handle));
  ReadCursor();
}

void rom_MapAgent::Next() {
  ReadCursor();
}

void rom_MapAgent::ReadCursor() {
  if (cursor->Next()) {
    currentKey = cow_String(cursor->Key());
  } else {
    EndWalk();
    currentKey = cow_String();
  }
}

void rom_MapAgent::EndWalk() noexcept {
  walkTables.clear();
  cursor.reset();
}

cls_StoredReference rom_MapAgent::Reference() const {
  return {cursor->ClassId(), cursor->Oid()};
}

std::unique_ptr<cls_RowSource> rom_MapAgent::OpenCurrent() {
  rom_Store& from = Need();
  auto table = walkTables.find(cursor->ClassId());
  if (table == walkTables.end()) {
    table = walkTables.emplace(cursor->ClassId(), from.database.Table(cursor->ClassId())).first;
  }
  return std::make_unique<rom_ObjectSource>(from, rom_RowId{cursor->ClassId(), cursor->Oid()}, table->second);
}

void rom_MapAgent::Bind(cls_PC const*) {}

std::unique_ptr<cls_RowSource> rom_MapAgent::OpenRecord(cow_String const& key) {
  rom_Store& from = Need();
  if (!born) {
    return nullptr;
  }
  rfm_ReadScope const scope(from.database);
  std::optional<rfm_Entry> const entry = from.database.Entries().FindListed(handle, key.View());
  if (!entry) {
    auto const removed = removedEntries.find(key);
    return removed == removedEntries.end() ? nullptr
                                           : std::make_unique<rom_ObjectSource>(from, removed->second);
  }
  return std::make_unique<rom_ObjectSource>(from, rom_RowId{entry->classId, entry->oid});
}

bool rom_MapAgent::IsStored(cow_String const& key) {
  return born && Need().database.Entries().Find(handle, key.View()).has_value();
}

bool rom_MapAgent::IsReadOnly() const {
  return Need().file.ReadOnly();
}

void rom_MapAgent::BeginWrite() {
  rom_Store& into = Need();
  if (!born) {
    nex_Exception::Throw(nex_TextException("The database file '" + utl_Printable(fileName.View()) +
                                           "' does not hold this collection yet; save the database first."),
                         "platform/rom/rom_MapAgent", __LINE__);
  }
  if (into.Pass() == nullptr) {
    into.BeginPass();
    ownPass = true;
  }
  try {
    into.Pass()->Enlist(*this);
  } catch (...) {
    AbandonWrite();
    throw;
  }
}

std::unique_ptr<cls_RowSink> rom_MapAgent::WriteRequest(cow_String const& key) {
  rom_Store& into = Need();
  if (into.Pass() == nullptr) {
    nex_Exception::Throw(nex_AssertException("a write is under way"), "platform/rom/rom_MapAgent", __LINE__);
  }
  if (replacing) {
    writtenKeys.insert(key);
  }
  return rom_ObjectSink::Entry(*into.Pass(), *this, key, fork);
}

void rom_MapAgent::WriteReference(cow_String const& key, cls_StoredReference const& reference) {
  Need();
  if (replacing) {
    writtenKeys.insert(key);
  }
  SetEntry(key, {reference.classId, reference.row});
}

void rom_MapAgent::RemoveStored(cow_String const& key) {
  rfm_Entries& entries = Need().database.Entries();
  if (std::optional<rfm_Entry> const entry = entries.Find(handle, key.View())) {
    removedInPass[key] = {entry->classId, entry->oid};
    entries.Remove(handle, key.View());
  }
}

bool rom_MapAgent::RestoreRemoved(cow_String const& key) {
  auto const removed = removedEntries.find(key);
  if (removed == removedEntries.end()) {
    return false;
  }
  WriteReference(key, {removed->second.classId, removed->second.row});
  return true;
}

void rom_MapAgent::EndWrite(std::unique_ptr<cls_StoredState> stored) {
  rom_Store& into = Need();
  if (replacing && !headerIsNew) {
    std::vector<cow_String> left;
    for (rfm_EntryCursor walk = into.database.Entries().Scan(handle); walk.Next();) {
      cow_String const key(walk.Key());
      if (!writtenKeys.contains(key)) {
        left.push_back(key);
      }
    }
    for (cow_String const& key : left) {
      RemoveStored(key);
    }
  }
  replacing = false;
  writtenKeys.clear();
  pendingState = std::move(stored);
  hasPending = true;
  if (std::exchange(ownPass, false)) {
    try {
      into.Pass()->Commit();
    } catch (...) {
      into.EndPass();
      throw;
    }
    into.EndPass();
  }
}

void rom_MapAgent::AbandonWrite() noexcept {
  if (store == nullptr || store->Pass() == nullptr) {
    return;
  }
  if (std::exchange(ownPass, false)) {
    store->EndPass();
  } else {
    store->Pass()->MarkFailed();
  }
}

void rom_MapAgent::ForgetChangedWhenStored(std::vector<cow_String> const& keys) {
  if (store != nullptr && store->Pass() != nullptr) {
    keysToForget.insert(keysToForget.end(), keys.begin(), keys.end());
  } else {
    cls_CollectionAgent::ForgetChangedWhenStored(keys);
  }
}

void rom_MapAgent::SetStoredState(std::unique_ptr<cls_StoredState> newState) noexcept {
  if (hasPending) {
    pendingState = std::move(newState);
    return;
  }
  state = std::move(newState);
  if (state != nullptr && store != nullptr) {
    self = cls_AgentHandle(this);
  }
}

void rom_MapAgent::Bear(rom_RowId headerRow, std::int64_t newHandle) {
  store->BearAgent(*this, headerRow);
  header = headerRow;
  handle = newHandle;
  born = true;
  bornInPass = true;
  headerIsNew = true;
}

void rom_MapAgent::BeginReplacing(bool newHeader, std::shared_ptr<rom_Fork> ofFork) {
  walkNothing = true;
  headerIsNew = newHeader;
  bornInPass = bornInPass || newHeader;
  replacing = StoredState() == nullptr;
  writtenKeys.clear();
  fork = std::move(ofFork);
}

void rom_MapAgent::ForgetPass() noexcept {
  headerIsNew = false;
  replacing = false;
  walkNothing = false;
  ownPass = false;
  writtenKeys.clear();
  nothingStoredBefore.reset();
  appendedKeys.clear();
  keysToForget.clear();
  removedInPass.clear();
  fork.reset();
}

void rom_MapAgent::PrepareCommit() {
  removedEntries.reserve(removedEntries.size() + removedInPass.size());
}

void rom_MapAgent::Committed() noexcept {
  bornInPass = false;
  while (!removedInPass.empty()) {
    auto const put = removedEntries.insert(removedInPass.extract(removedInPass.begin()));
    if (!put.inserted) {
      put.position->second = put.node.mapped();
    }
  }
  cls_CollectionAgent::ForgetChangedWhenStored(keysToForget);
  ForgetPass();
  if (std::exchange(hasPending, false)) {
    SetStoredState(std::move(pendingState));
    pendingState.reset();
  }
}

void rom_MapAgent::TakenBack() noexcept {
  ForgetPass();
  hasPending = false;
  pendingState.reset();
  if (std::exchange(bornInPass, false)) {
    store->TakeBackAgent(*this);
    born = false;
    header = rom_RowId();
  }
}

std::optional<rfm_Entry> rom_MapAgent::StoredEntry(cow_String const& key) {
  rfm_Entries const& entries = Need().database.Entries();
  if (!nothingStoredBefore) {
    nothingStoredBefore = headerIsNew || !entries.Scan(handle).Next();
  }
  if (*nothingStoredBefore && !appendedKeys.contains(key)) {
    return std::nullopt;
  }
  return entries.Find(handle, key.View());
}

void rom_MapAgent::SetEntry(cow_String const& key, rom_RowId id) {
  rfm_Entries& entries = Need().database.Entries();
  std::optional<rfm_Entry> const stored = StoredEntry(key);
  if (!stored) {
    entries.Append(handle, key.View(), id.classId, id.row);
    if (*nothingStoredBefore) {
      appendedKeys.insert(key);
    }
  } else if (stored->classId != id.classId || stored->oid != id.row) {
    entries.Update(handle, key.View(), id.classId, id.row);
  }
}
