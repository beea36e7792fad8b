// Walks a balanced tree in key order.
#pragma once

#include "cow_Btree.h"

/// Position in a cow_Btree, moving in ascending or descending key order.
///
/// Reads the nodes directly and never copies one. It must not outlive a change of its tree, except of values
/// in place. A step costs constant time on average and no allocation while the tree is as shallow as usual.
template <class K, class V>
class cow_BtreeIterator {
public:
  /// At the end until First() or Last() is called. \param walked borrowed.
  explicit cow_BtreeIterator(cow_Btree<K, V> const& walked) noexcept : tree(&walked) {}

  /// Goes to the smallest key; at the end when the tree is empty.
  /// \throws std::bad_alloc for a very deep tree.
  void First() {
    path.Clear();
    DescendLeft(tree->RootNode());
  }
  /// Goes to the next greater key, or to the end. Does nothing at the end. \throws like First().
  void Next() {
    if (path.IsEmpty()) {
      return;
    }
    Node const* const right = path.Top()->Right().Peek();
    if (right) {
      DescendLeft(right);
      return;
    }
    Node const* done = nullptr;
    do {
      done = path.Pop();
    } while (!path.IsEmpty() && path.Top()->Right().Peek() == done);
  }
  /// Goes to the greatest key; at the end when the tree is empty. \throws like First().
  void Last() {
    path.Clear();
    DescendRight(tree->RootNode());
  }
  /// Goes to the next smaller key, or to the end. Does nothing at the end. \throws like First().
  void Prev() {
    if (path.IsEmpty()) {
      return;
    }
    Node const* const left = path.Top()->Left().Peek();
    if (left) {
      DescendRight(left);
      return;
    }
    Node const* done = nullptr;
    do {
      done = path.Pop();
    } while (!path.IsEmpty() && path.Top()->Left().Peek() == done);
  }

  /// Whether there is no current entry.
  bool AtEnd() const noexcept { return path.IsEmpty(); }
  /// The current entry. Not at the end.
  cow_BtreeNode<K, V> const& Entry() const noexcept { return *path.Top(); }
  /// The current key. Not at the end.
  K const& Key() const noexcept { return path.Top()->Key(); }
  /// The current value. Not at the end.
  V const& Value() const noexcept { return path.Top()->Value(); }

private:
  using Node = cow_BtreeNode<K, V>;

  void DescendLeft(Node const* node) {
    for (; node; node = node->Left().Peek()) {
      path.Push(node);
    }
  }
  void DescendRight(Node const* node) {
    for (; node; node = node->Right().Peek()) {
      path.Push(node);
    }
  }

  cow_Btree<K, V> const* tree;
  // From the root to the current entry.
  cow_PathStack<Node const*, 48> path;
};
