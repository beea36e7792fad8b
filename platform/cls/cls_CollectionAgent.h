// cls_CollectionAgent: the stored side of a keyed collection that loads and writes back on demand.
#pragma once

#include "cls_Uid.h"
#include "cow_String.h"
#include "os_Export.h"

#include <memory>
#include <set>
#include <utility>
#include <vector>

class cls_PC;
class cls_RowSink;
class cls_RowSource;

/// What a collection remembers about the stored state it last saw; kept by the agent, defined by the
/// collection.
class DDR_API cls_StoredState {
public:
  virtual ~cls_StoredState();
};

/// What one entry of a stored collection refers to: a row of a class.
struct cls_StoredReference {
  unsigned classId = 0;
  int row = -1;
  friend bool operator==(cls_StoredReference const&, cls_StoredReference const&) = default;
};

/// One stored keyed collection: its keys, its records, and what a writer wants done to them.
///
/// Collections and their copies share one agent; it is counted and lives until the last of them is gone. When
/// its store goes first the agent is detached: every call that would need the store then throws a
/// nex_TextException naming the file. One thread at a time.
class DDR_API cls_CollectionAgent {
public:
  virtual ~cls_CollectionAgent();
  cls_CollectionAgent(cls_CollectionAgent const&) = delete;
  cls_CollectionAgent& operator=(cls_CollectionAgent const&) = delete;

  /// Makes the stored keys ready to be walked with First, AtEnd, Key, Next, in the order in which they are
  /// stored.
  virtual void Begin() = 0;
  virtual void First() = 0;
  virtual bool AtEnd() const = 0;
  /// The current key. Valid until Next.
  virtual cow_String const& Key() const = 0;
  virtual void Next() = 0;
  /// What the current key refers to.
  virtual cls_StoredReference Reference() const = 0;
  /// Opens the record of the current key; cheaper than by key when walking. Valid until the next record is
  /// opened in this way, or the walk goes on.
  virtual std::unique_ptr<cls_RowSource> OpenCurrent() = 0;
  /// Lets go of what a walk holds in the store, such as its lock. Never throws.
  virtual void EndWalk() noexcept {}

  /// Told once when a collection starts to work with this agent. The collection is not called back: it is
  /// copied on write, and the address would go stale.
  virtual void Bind(cls_PC const* collection) = 0;

  /// Opens the stored record of a key; null when the key is not stored.
  virtual std::unique_ptr<cls_RowSource> OpenRecord(cow_String const& key) = 0;
  /// Whether a key is stored now.
  virtual bool IsStored(cow_String const& key) = 0;
  /// Whether the store was opened for reading only.
  virtual bool IsReadOnly() const = 0;

  /// Opens a write of several requests: part of the write under way, or one of its own.
  virtual void BeginWrite() = 0;
  /// The place of the record of `key`.
  virtual std::unique_ptr<cls_RowSink> WriteRequest(cow_String const& key) = 0;
  /// Stores the reference that an unread entry of this same store carries.
  virtual void WriteReference(cow_String const& key, cls_StoredReference const& reference) = 0;
  /// Takes a key out of the stored collection.
  virtual void RemoveStored(cow_String const& key) = 0;
  /// Stores a key again that was taken out since the store was opened, with the record it had: an older copy
  /// of the collection is saved that has not read it. False when nothing is known of such a key.
  virtual bool RestoreRemoved(cow_String const&) { return false; }
  /// Ends what BeginWrite opened. `stored` is the state that holds once the write has become permanent; may
  /// be null.
  virtual void EndWrite(std::unique_ptr<cls_StoredState> stored) = 0;
  /// Gives up what BeginWrite opened. Never throws.
  virtual void AbandonWrite() noexcept = 0;
  /// The store may forget what it keeps to give out the record of `key` again.
  virtual void DropCached(cow_String const& key) = 0;
  virtual void DropCached() = 0;

  /// Identity of the store, to be compared only.
  virtual void const* Store() const = 0;

  /// Marks a key as handed out for change; kept until the key is written.
  void MarkChanged(cow_String const& key) { changedKeys.insert(key); }
  bool IsChanged(cow_String const& key) const { return changedKeys.contains(key); }
  /// Takes the mark of a key back; nothing for one that is not marked.
  void ForgetChanged(cow_String const& key) noexcept { changedKeys.erase(key); }
  /// Takes the marks of keys back once what was just written of them is permanent; a write that is taken back
  /// leaves them marked.
  virtual void ForgetChangedWhenStored(std::vector<cow_String> const& keys);

  /// The state that was set last and is permanent or about to be; null when the stored state is not known.
  virtual cls_StoredState* StoredState() = 0;
  /// Sets the state as the collection has just read it.
  virtual void SetStoredState(std::unique_ptr<cls_StoredState> state) = 0;

protected:
  cls_CollectionAgent() = default;

private:
  friend class cls_AgentHandle;
  unsigned holders = 0;
  std::set<cow_String> changedKeys;
};

/// A counted handle of an agent; may be empty. Counts are plain integers: one thread at a time.
class DDR_API cls_AgentHandle {
public:
  cls_AgentHandle() noexcept = default;
  explicit cls_AgentHandle(cls_CollectionAgent* adopt) noexcept : agent(adopt) { Hold(); }
  cls_AgentHandle(cls_AgentHandle const& other) noexcept : agent(other.agent) { Hold(); }
  cls_AgentHandle(cls_AgentHandle&& other) noexcept : agent(std::exchange(other.agent, nullptr)) {}
  cls_AgentHandle& operator=(cls_AgentHandle other) noexcept {
    std::swap(agent, other.agent);
    return *this;
  }
  ~cls_AgentHandle() {
    if (agent != nullptr && --agent->holders == 0) {
      delete agent;
    }
  }

  cls_CollectionAgent* operator->() const noexcept { return agent; }
  cls_CollectionAgent& operator*() const noexcept { return *agent; }
  cls_CollectionAgent* Get() const noexcept { return agent; }
  explicit operator bool() const noexcept { return agent != nullptr; }
  /// Whether no other handle holds the agent. Needs a handle that is not empty.
  bool IsSoleHolder() const noexcept { return agent->holders == 1; }

private:
  void Hold() noexcept {
    if (agent != nullptr) {
      ++agent->holders;
    }
  }
  cls_CollectionAgent* agent = nullptr;
};

/// A walk over the stored keys of a collection, in the order in which they are stored. However it is left, at
/// its end or by an exception, it lets go of the store.
class cls_AgentWalk {
public:
  explicit cls_AgentWalk(cls_CollectionAgent& walked) : agent(walked) {
    agent.Begin();
    agent.First();
  }
  ~cls_AgentWalk() { agent.EndWalk(); }
  cls_AgentWalk(cls_AgentWalk const&) = delete;
  cls_AgentWalk& operator=(cls_AgentWalk const&) = delete;

  bool AtEnd() const { return agent.AtEnd(); }
  void Next() { agent.Next(); }
  cow_String const& Key() const { return agent.Key(); }

private:
  cls_CollectionAgent& agent;
};
