// keyed_Record: building and comparing the records of keyed collections.
#pragma once

#include "cls_ReadVisitor.h"
#include "cls_WriteVisitor.h"
#include "nex_Exception.h"

/// Builds the record that a stored object holds: through the catalogue where that builds the class, else as a
/// T. The object must be a T or derived from it; throws otherwise. The caller owns the result.
template <class T>
T* keyed_readRecord(cls_RowSource const& stored) {
  cls_ReadVisitor const reader(stored);
  void* const built = reader.Construct(T::TypeId());
  return built != nullptr ? static_cast<T*>(built) : new T(reader);
}

/// Refuses a stored collection that another kind of collection has read already: a damaged file can name one
/// header twice. Throws, naming file, class and row.
/// @param state what the agent holds; may be null
/// @param own the same, when it is of the reading collection's own kind
inline void keyed_requireOwnState(cls_ReadVisitor const& reader, cls_StoredState const* state,
                                  cls_StoredState const* own) {
  if (state != own) {
    nex_Exception::Throw(
        nex_TextException(reader.Where() + ": two collections share this row; the file is damaged."),
        "containers/keyed/keyed_Record", __LINE__);
  }
}

/// Marks a key as handed out for change, and takes the mark back unless the change was made.
class keyed_ChangeMark {
public:
  /// @param marked borrowed; null for a collection in memory, which keeps no marks
  /// @param changedKey borrowed
  keyed_ChangeMark(cls_CollectionAgent* marked, cow_String const& changedKey)
      : agent(marked != nullptr && !marked->IsChanged(changedKey) ? marked : nullptr), key(changedKey) {
    if (agent != nullptr) {
      agent->MarkChanged(key);
    }
  }
  ~keyed_ChangeMark() {
    if (agent != nullptr) {
      agent->ForgetChanged(key);
    }
  }
  keyed_ChangeMark(keyed_ChangeMark const&) = delete;
  keyed_ChangeMark& operator=(keyed_ChangeMark const&) = delete;
  /// The change was made.
  void Keep() noexcept { agent = nullptr; }

private:
  cls_CollectionAgent* agent;
  cow_String const& key;
};

/// Abandons a write of a collection unless it was ended.
class keyed_WriteGuard {
public:
  explicit keyed_WriteGuard(cls_CollectionAgent& written) : agent(written) { agent.BeginWrite(); }
  ~keyed_WriteGuard() {
    if (!ended) {
      agent.AbandonWrite();
    }
  }
  keyed_WriteGuard(keyed_WriteGuard const&) = delete;
  keyed_WriteGuard& operator=(keyed_WriteGuard const&) = delete;
  void End(std::unique_ptr<cls_StoredState> state) {
    agent.EndWrite(std::move(state));
    ended = true;
  }

private:
  cls_CollectionAgent& agent;
  bool ended = false;
};
