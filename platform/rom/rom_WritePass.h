// rom_WritePass: one write under way, from the first object to the commit.
#pragma once

#include "cls_RowSink.h"
#include "rfm_Table.h"
#include "rfm_Transaction.h"
#include "rom_Store.h"

#include <deque>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <variant>
#include <vector>

class cls_ClassMetadata;
class rom_MapAgent;

/// How a registered class is described in the class list of a file.
rfm_ClassEntry rom_storedClass(cls_ClassMetadata const& metadata);

/// Objects written so far, by identity.
using rom_WrittenObjects = std::unordered_map<cls_Uid, rom_RowId>;

/// A row that is being filled. It is stored once its object is complete.
struct rom_PendingRow {
  using Value = std::variant<std::monostate, std::int64_t, double, cow_String>;

  rom_RowId id;
  cls_Uid uid;
  bool isNew = true;
  bool complete = false;
  bool carryUnknown =
      false; ///< a new row takes over what the last row holds in fields that nobody here knows
  std::vector<std::pair<cow_String, Value>> fields;

  void Set(cow_String const& field, Value value) { fields.emplace_back(field, std::move(value)); }
};

/// The elements of a list that is being filled.
struct rom_PendingList {
  struct Element {
    cow_String text;
    rom_RowId id;
  };
  std::int64_t handle = 0;
  bool isNew = true;
  bool complete = false;
  std::vector<Element> elements;
};

/// One write under way: the transaction, the rows being filled, the objects written.
///
/// Rows are stored when their object is complete, children before their owners; that happens at the next
/// Start or at the commit, never in a destructor, for storing may fail. A pass that is destroyed without a
/// commit takes everything back.
class rom_WritePass {
public:
  /// Begins the transaction; throws when the file cannot be written or another user has changed it.
  explicit rom_WritePass(rom_Store& store);
  ~rom_WritePass();
  rom_WritePass(rom_WritePass const&) = delete;
  rom_WritePass& operator=(rom_WritePass const&) = delete;

  rom_Store& Store() noexcept { return store; }
  /// Stores what is complete.
  void Drain();
  /// Stores everything and makes it permanent.
  void Commit();
  /// The write met an error: a commit will refuse.
  void MarkFailed() noexcept { failed = true; }

  /// How many objects are being written at this moment, nested in each other, once all complete ones are
  /// stored.
  int OpenRows() const noexcept { return static_cast<int>(rows.size()); }
  rom_PendingRow& AddRow();
  rom_PendingList& AddList();
  /// Takes part in what happens to this pass: told of its commit or of its end without one.
  void Enlist(rom_MapAgent& agent);

  /// The objects written since the object cache was last cleared.
  rom_WrittenObjects& Written();
  /// The number that a new row of the class gets; makes the class known to the file when it is not.
  int ReserveRow(unsigned classId);
  /// The rows of the class that hold an identity, at most two.
  std::vector<int> RowsOf(unsigned classId, cls_Uid const& uid);

private:
  void StoreRow(rom_PendingRow& row);
  void StoreList(rom_PendingList& list);
  void TellCommitted() noexcept;

  struct ClassState {
    rfm_Table table;
    int nextRow = 0;
    bool emptyAtStart = false;
  };
  ClassState& Class(unsigned classId);

  rom_Store& store;
  rfm_Transaction transaction;
  std::deque<std::unique_ptr<rom_PendingRow>> rows;
  std::deque<std::unique_ptr<rom_PendingList>> lists;
  std::vector<cls_AgentHandle> enlisted;
  std::unordered_set<rom_MapAgent*> enlistedSet;
  rom_WrittenObjects written;
  std::uint64_t writtenGeneration;
  std::unordered_map<unsigned, ClassState> classes;
  bool failed = false;
  bool committed = false;
};
