// The counted link between the nodes of the copy-on-write trees.
#pragma once

#include "mem_BlockPool.h"

#include <cstddef>
#include <new>
#include <utility>

/// The counter that a tree node carries for the links that share it.
///
/// It lies in the node, so that following a link and learning whether the node is shared is one memory
/// access.
class cow_NodeCount {
public:
  /// A node begins with the one link that is made for it.
  cow_NodeCount() noexcept = default;
  /// The copy of a node is a node of its own.
  cow_NodeCount(cow_NodeCount const&) noexcept {}
  cow_NodeCount& operator=(cow_NodeCount const&) = delete;

private:
  template <class Node>
  friend class cow_NodeLink;
  unsigned value = 1;
};

/// Memory for the nodes of trees: from the pools, nodes that nearly fill a cache line in a line of their own.
/// \tparam Node a complete type when one of the functions is called.
template <class Node>
class cow_NodeMemory {
public:
  /// Memory for a node. \throws std::bad_alloc.
  static void* Allocate(std::size_t size) {
    return FitsPool() ? mem_poolAllocate(BlockSize()) : ::operator new(size, std::align_val_t(alignof(Node)));
  }
  /// Frees memory of Allocate(); null is allowed.
  static void Free(void* node) noexcept {
    if (FitsPool()) {
      mem_poolFree(node, BlockSize());
    } else {
      ::operator delete(node, std::align_val_t(alignof(Node)));
    }
  }

private:
  static constexpr std::size_t BlockSize() noexcept {
    return sizeof(Node) > 40 && sizeof(Node) <= 64 ? 64 : sizeof(Node);
  }
  static constexpr bool FitsPool() noexcept {
    return alignof(Node) <= 8 && BlockSize() <= mem_poolLargestBlock;
  }
};

/// Handle of a tree node that is shared for reading and private for writing, like cow_COW with cow_Direct,
/// but a single pointer: the count lies in the node, and no node means no counter either.
///
/// Releasing a tree needs neither recursion nor memory, however deep the tree is.
/// \tparam Node has members `cow_NodeCount links` and `cow_NodeLink<Node> left, right`, a copy constructor
/// that shares both children, and befriends this class.
template <class Node>
class cow_NodeLink {
public:
  /// A link to no node.
  constexpr cow_NodeLink() noexcept = default;
  /// \param adopted adopts it: a node that no link holds yet; may be null.
  explicit cow_NodeLink(Node* adopted) noexcept : node(adopted) {}
  /// Shares the node: one increment.
  cow_NodeLink(cow_NodeLink const& other) noexcept : node(other.node) {
    if (node) {
      ++node->links.value;
    }
  }
  /// Takes the node.
  cow_NodeLink(cow_NodeLink&& other) noexcept : node(std::exchange(other.node, nullptr)) {}
  /// Shares the node of \p other; lets go of the own one.
  cow_NodeLink& operator=(cow_NodeLink const& other) noexcept {
    cow_NodeLink(other).Swap(*this);
    return *this;
  }
  /// Takes the node of \p other; lets go of the own one.
  cow_NodeLink& operator=(cow_NodeLink&& other) noexcept {
    cow_NodeLink(std::move(other)).Swap(*this);
    return *this;
  }
  /// Lets go of the node; the last link destroys it and what only it holds.
  ~cow_NodeLink() {
    if (node && --node->links.value == 0) {
      Destroy(node);
    }
  }

  /// The node, or null. Lives until the last link lets go.
  Node const* Peek() const noexcept { return node; }
  /// Whether there is no node.
  bool IsEmpty() const noexcept { return node == nullptr; }
  /// Whether other links share the node.
  bool IsShared() const noexcept { return node && node->links.value > 1; }
  /// The number of links that share the node, this one included; 0 without a node.
  unsigned Count() const noexcept { return node ? node->links.value : 0; }

  /// The node for reading. Needs a node.
  Node const& ConstGet() const noexcept { return *node; }
  /// The node for writing: copied first when others share it. Needs a node.
  /// \throws what copying the node throws; then the link is unchanged.
  Node& Get() {
    if (node->links.value != 1) {
      Unshare();
    }
    return *node;
  }
  /// The node as it is, to be changed for all that share it. May be null.
  Node* InPlace() const noexcept { return node; }

  /// Gives the node away: the caller now stands for this link. May be null.
  [[nodiscard]] Node* Take() noexcept { return std::exchange(node, nullptr); }
  /// Puts a node that was given away by Take() into this link, which must be empty; may be null.
  void Put(Node* taken) noexcept { node = taken; }
  /// Exchanges the nodes of two links.
  void Swap(cow_NodeLink& other) noexcept { std::swap(node, other.node); }

private:
  [[gnu::noinline]] void Unshare() {
    auto* const copy = new Node(*node);
    --node->links.value;
    node = copy;
  }
  [[gnu::noinline]] static void Destroy(Node* dead) noexcept;

  Node* node = nullptr;
};

// ---- Implementation ----

template <class Node>
void cow_NodeLink<Node>::Destroy(Node* dead) noexcept {
  // Nodes whose left subtree is being destroyed first wait in a list: the left link holds the next one that
  // waits, the right link the subtree to destroy then.
  Node* waiting = nullptr;
  auto const letGo = [](cow_NodeLink& link) {
    Node* const child = link.Take();
    return child && --child->links.value == 0 ? child : nullptr;
  };
  while (dead) {
    Node* const left = letGo(dead->left);
    Node* const right = letGo(dead->right);
    if (left && right) {
      dead->left.Put(waiting);
      dead->right.Put(right);
      waiting = dead;
      dead = left;
      continue;
    }
    delete dead;
    dead = left ? left : right;
    if (!dead && waiting) {
      Node* const done = waiting;
      waiting = done->left.Take();
      dead = done->right.Take();
      delete done;
    }
  }
}
