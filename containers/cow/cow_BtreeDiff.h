// The entries in which two balanced trees differ.
#pragma once

#include "cow_Btree.h"

#include <utility>
#include <vector>

/// The part of a tree that cow_btreeDiff() has still to look at, in key order.
template <class K, class V>
class cow_BtreeFront {
public:
  using Node = cow_BtreeNode<K, V>;

  explicit cow_BtreeFront(Node const* root) { Push(root, true); }

  bool IsEmpty() const noexcept { return parts.empty(); }
  /// The node on top.
  Node const* Top() const noexcept { return parts.back().first; }
  /// Whether the whole subtree of the node on top is pending, not its entry alone.
  bool IsSubtree() const noexcept { return parts.back().second; }
  /// The height of what is on top; -1 for an entry alone.
  int Height() const noexcept { return IsSubtree() ? Top()->Height() : -1; }
  void Pop() noexcept { parts.pop_back(); }
  /// Replaces the subtree on top by its left subtree, its entry and its right subtree.
  void Expand() {
    Node const* const node = Top();
    Pop();
    Push(node->Right().Peek(), true);
    Push(node, false);
    Push(node->Left().Peek(), true);
  }

private:
  void Push(Node const* node, bool subtree) {
    if (node) {
      parts.emplace_back(node, subtree);
    }
  }

  std::vector<std::pair<Node const*, bool>> parts;
};

/// Calls \p visit for every key whose node is not shared by both trees, in key order.
///
/// Shared subtrees are skipped whole, so the cost grows with the number of nodes that differ times the
/// height, not with the size of the trees. An entry whose node was copied but whose value is equal is visited
/// too.
/// \param before a tree; unchanged meanwhile.
/// \param after a tree with the same key order; unchanged meanwhile.
/// \param visit called as visit(K const& key, V const* before, V const* after); the value is null on the side
/// that lacks the key.
/// \throws std::bad_alloc and what \p visit throws.
template <class K, class V, class Visit>
void cow_btreeDiff(cow_Btree<K, V> const& before, cow_Btree<K, V> const& after, Visit&& visit) {
  using Node = cow_BtreeNode<K, V>;
  cow_BtreeFront<K, V> old(before.RootNode());
  cow_BtreeFront<K, V> now(after.RootNode());
  while (!old.IsEmpty() || !now.IsEmpty()) {
    if (!old.IsEmpty() && !now.IsEmpty() && old.Top() == now.Top() && old.IsSubtree() == now.IsSubtree()) {
      old.Pop();
      now.Pop();
      continue;
    }
    // The higher part is opened first, so that both sides meet at the subtrees that they share.
    int const oldHeight = old.IsEmpty() ? -1 : old.Height();
    int const nowHeight = now.IsEmpty() ? -1 : now.Height();
    if (oldHeight >= 0 || nowHeight >= 0) {
      (oldHeight >= nowHeight ? old : now).Expand();
      continue;
    }
    Node const* const left = old.IsEmpty() ? nullptr : old.Top();
    Node const* const right = now.IsEmpty() ? nullptr : now.Top();
    int const order = !left ? 1 : !right ? -1 : cow_KeyOrder<K>::Compare(left->Key(), right->Key());
    if (order <= 0) {
      old.Pop();
    }
    if (order >= 0) {
      now.Pop();
    }
    visit(order <= 0 ? left->Key() : right->Key(), order <= 0 ? &left->Value() : nullptr,
          order >= 0 ? &right->Value() : nullptr);
  }
}
