// rom_MapAgent: one stored keyed collection.
#pragma once

#include "cls_CollectionAgent.h"
#include "rfm_Entries.h"
#include "rfm_Table.h"
#include "rom_Store.h"

#include <map>
#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

struct rom_Fork;

class rom_MapAgent : public cls_CollectionAgent {
public:
  rom_MapAgent(rom_Store& store, rom_RowId header, cls_Uid const& uid, std::int64_t handle);
  ~rom_MapAgent() override;

  void Begin() override;
  void First() override;
  bool AtEnd() const override { return cursor == nullptr; }
  cow_String const& Key() const override { return currentKey; }
  void Next() override;
  cls_StoredReference Reference() const override;
  std::unique_ptr<cls_RowSource> OpenCurrent() override;
  void EndWalk() noexcept override;
  void Bind(cls_PC const* collection) override;
  std::unique_ptr<cls_RowSource> OpenRecord(cow_String const& key) override;
  bool IsStored(cow_String const& key) override;
  bool IsReadOnly() const override;
  void BeginWrite() override;
  std::unique_ptr<cls_RowSink> WriteRequest(cow_String const& key) override;
  void WriteReference(cow_String const& key, cls_StoredReference const& reference) override;
  void RemoveStored(cow_String const& key) override;
  bool RestoreRemoved(cow_String const& key) override;
  void EndWrite(std::unique_ptr<cls_StoredState> stored) override;
  void AbandonWrite() noexcept override;
  void ForgetChangedWhenStored(std::vector<cow_String> const& keys) override;
  void DropCached(cow_String const&) override {}
  void DropCached() override {}
  void const* Store() const override { return store; }
  cls_StoredState* StoredState() override { return hasPending ? pendingState.get() : state.get(); }
  void SetStoredState(std::unique_ptr<cls_StoredState> newState) noexcept override;

  cls_Uid const& Uid() const noexcept { return uid; }
  rom_RowId Header() const noexcept { return header; }
  /// False after the save that made its header row was taken back.
  bool IsBorn() const noexcept { return born; }
  /// Gives the collection its place in the file.
  void Bear(rom_RowId headerRow, std::int64_t newHandle);
  /// A writer takes the agent: what is stored is replaced by what will be written.
  /// @param ofFork set when the collection belongs to an object that got a row beside another of its identity
  void BeginReplacing(bool newHeader, std::shared_ptr<rom_Fork> ofFork);

  // The pass that the agent takes part in ends; the store lives longer. What can fail is done before the
  // commit.
  void PrepareCommit();
  void Committed() noexcept;
  void TakenBack() noexcept;
  /// The store dies.
  void Detach() noexcept;
  /// Whether a state waits for the end of the pass.
  bool HasPendingState() const noexcept { return pendingState != nullptr; }

  // What a sink needs to know to write a record.
  std::optional<rfm_Entry> StoredEntry(cow_String const& key);
  void SetEntry(cow_String const& key, rom_RowId id);

private:
  rom_Store& Need() const;
  void ReadCursor();
  void ForgetPass() noexcept;

  rom_Store* store;
  cow_String fileName;
  rom_RowId header;
  cls_Uid uid;
  std::int64_t handle;
  bool born = true;
  bool bornInPass = false;
  bool headerIsNew = false;
  bool replacing = false;
  bool walkNothing = false;
  bool ownPass = false;
  std::shared_ptr<rom_Fork> fork;

  std::unique_ptr<rfm_EntryCursor> cursor;
  std::map<unsigned, rfm_Table> walkTables; // by class; each reads on from row to row
  cow_String currentKey;

  std::unique_ptr<cls_StoredState> state;
  std::unique_ptr<cls_StoredState> pendingState;
  bool hasPending = false;
  cls_AgentHandle self; // keeps an agent with a known state as long as its store

  // What was taken out since the store was opened; the rows stay, for a row is never used anew.
  std::unordered_map<cow_String, rom_RowId> removedEntries;
  std::unordered_map<cow_String, rom_RowId> removedInPass;

  std::unordered_set<cow_String> writtenKeys; // of a replacing write
  // Of the write under way:
  std::vector<cow_String> keysToForget;
  std::optional<bool> nothingStoredBefore;
  std::unordered_set<cow_String> appendedKeys; // when nothing was stored before
};
