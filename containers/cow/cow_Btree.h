// Balanced ordered map whose copies share their entries.
#pragma once

#include "cow_BtreeNode.h"
#include "cow_PathStack.h"

#include <memory>

template <class K, class V>
class cow_BtreeBuilder;

/// Ordered map from K to V, one key a node, kept balanced by single rotations.
///
/// Copying a tree shares all nodes: one increment, no allocation. A write first copies the shared nodes on
/// the way to the entry that it touches, so trees that share nodes never see it. Use cow_Map where the order
/// is of no interest and the shape must depend on the keys alone. References to nodes, keys and values live
/// until the tree next changes or dies. An iterator must not outlive a change of its tree. A tree and all
/// trees that share nodes with it belong to one thread at a time. Every operation that throws leaves the tree
/// valid and with the entries that it had.
/// \tparam K the key, ordered by cow_KeyOrder<K>; copyable.
/// \tparam V the value; copyable, normally a copy-on-write handle.
template <class K, class V>
class DDR_API cow_Btree {
public:
  using Node = cow_BtreeNode<K, V>;
  using Link = cow_NodeLink<Node>;

  /// An empty tree.
  cow_Btree() noexcept = default;
  /// Shares all nodes of \p other; constant time.
  cow_Btree(cow_Btree const& other) noexcept = default;
  /// Shares all nodes of \p other; constant time. Assigning a tree to itself changes nothing. Assigning an
  /// empty tree does not release the nodes that this tree held, see DropRoot(); Clear() does.
  cow_Btree& operator=(cow_Btree const& other) noexcept;
  /// Releases the nodes that no other tree shares; needs no memory and no deep stack.
  ~cow_Btree() = default;

  /// A new tree that shares all nodes. For cow_Virtual.
  cow_Btree* Copy() const { return new cow_Btree(*this); }

  /// The number of entries.
  unsigned Count() const noexcept { return count; }
  /// Whether there are no entries.
  bool IsEmpty() const noexcept { return count == 0; }
  /// The node at the top, or null when the tree is empty.
  Node const* RootNode() const noexcept { return root.Peek(); }

  /// The entry of \p key for reading, or null when there is none. Copies nothing.
  Node const* ConstFind(K const& key) const;
  /// Whether there is an entry of \p key.
  bool IsMember(K const& key) const { return ConstFind(key) != nullptr; }
  /// The entry of \p key for writing, or null when there is none. Copies the shared nodes on the way.
  /// \throws what copying a node throws.
  Node* Find(K const& key);
  /// The value of \p key, to be filled or emptied in place for every tree that shares the node; null when
  /// there is none. Copies nothing. For values that are loaded when first asked for, where all sharers want
  /// them.
  V* FindInPlace(K const& key) const;

  /// Adds an entry.
  /// \return false, and nothing is changed, when the key is present; its value is not replaced.
  /// \throws what copying key, value and the nodes on the way throws.
  bool InsertUnlessMember(K const& key, V const& value);
  /// Removes an entry. One with two children is replaced by the smallest entry after it.
  /// \return false, and nothing is changed, when the key is absent.
  /// \throws what copying the nodes on the way throws.
  bool Remove(K const& key);
  /// Removes all entries and releases what no other tree shares.
  void Clear() noexcept;

private:
  friend class cow_BtreeBuilder<K, V>;

  // A step on the way down: the link that leads to a node and the height of that node before the write.
  struct Step {
    Link* link;
    int height;
  };
  struct Rotation {
    Link* link;
    bool left;
    int upperHeight;
    int lowerHeight;
  };
  // The child that a node with one child at most is replaced by.
  enum class Side { Left, Right };
  // Balanced trees of any size that fits into memory are less deep than this; deeper ones cost an allocation.
  static constexpr std::size_t usualDepth = 64;
  using Path = cow_PathStack<Step, usualDepth>;
  using Rotations = cow_PathStack<Rotation, usualDepth>;

  static int HeightAbove(Link const& child) noexcept {
    return child.IsEmpty() ? 0 : child.Peek()->height + 1;
  }
  static int HeightOf(Link const& child) noexcept { return child.IsEmpty() ? 0 : child.Peek()->height; }
  static void SetHeight(Node& node) noexcept {
    node.height = std::max(HeightAbove(node.left), HeightAbove(node.right));
  }
  static void RotateLeft(Link& link) noexcept;
  static void RotateRight(Link& link) noexcept;
  static void Balance(Link& link, Rotations& done);
  static void BalanceUpwards(Path const& path, std::size_t from, Rotations& done);
  static void UndoRotations(Rotations& done) noexcept;
  static void RestoreHeights(Path const& path) noexcept;
  static void MakePrivate(Path& path, Link*& last);
  static Side Unlink(Path const& path, std::size_t found) noexcept;
  static void Relink(Path const& path, std::size_t found, Node* removed, Side side) noexcept;
  [[gnu::noinline]] void DropRoot() noexcept;

  Link root;
  unsigned count = 0;
};

// ---- Implementation ----

template <class K, class V>
cow_Btree<K, V>& cow_Btree<K, V>::operator=(cow_Btree const& other) noexcept {
  if (this == &other) {
    return *this;
  }
  if (other.root.IsEmpty()) {
    DropRoot();
  } else {
    root = other.root;
  }
  count = other.count;
  return *this;
}

// Kept on purpose: assigning an empty tree lets go of the old nodes without releasing them. Hosts hold
// references into a tree that they have just emptied this way, and rely on them.
template <class K, class V>
void cow_Btree<K, V>::DropRoot() noexcept {
  mem_forget(root.Take());
}

template <class K, class V>
void cow_Btree<K, V>::Clear() noexcept {
  root = Link();
  count = 0;
}

template <class K, class V>
auto cow_Btree<K, V>::ConstFind(K const& key) const -> Node const* {
  typename cow_KeyOrder<K>::Probe const probe(key);
  Node const* node = root.Peek();
  while (node) {
    int const order = probe.Compare(node->key);
    if (order == 0) {
      return node;
    }
    node = order < 0 ? node->left.Peek() : node->right.Peek();
  }
  return nullptr;
}

template <class K, class V>
auto cow_Btree<K, V>::Find(K const& key) -> Node* {
  typename cow_KeyOrder<K>::Probe const probe(key);
  Link* link = &root;
  while (!link->IsEmpty()) {
    Node& node = link->Get();
    int const order = probe.Compare(node.key);
    if (order == 0) {
      return &node;
    }
    link = order < 0 ? &node.left : &node.right;
  }
  return nullptr;
}

template <class K, class V>
V* cow_Btree<K, V>::FindInPlace(K const& key) const {
  typename cow_KeyOrder<K>::Probe const probe(key);
  Node* node = root.InPlace();
  while (node) {
    int const order = probe.Compare(node->key);
    if (order == 0) {
      return &node->value;
    }
    node = order < 0 ? node->left.InPlace() : node->right.InPlace();
  }
  return nullptr;
}

template <class K, class V>
bool cow_Btree<K, V>::InsertUnlessMember(K const& key, V const& value) {
  typename cow_KeyOrder<K>::Probe const probe(key);
  Path path;
  bool shared = false;
  Link* link = &root;
  while (Node* const node = link->InPlace()) {
    int const order = probe.Compare(node->key);
    if (order == 0) {
      return false;
    }
    shared |= link->IsShared();
    path.Push({link, node->height});
    link = order < 0 ? &node->left : &node->right;
  }

  Rotations rotations;
  rotations.Reserve(path.Size());
  Link leaf(new Node(key, value));
  if (shared) {
    MakePrivate(path, link);
  }
  link->Swap(leaf);
  try {
    if (!path.IsEmpty()) {
      SetHeight(*path.Top().link->InPlace());
      BalanceUpwards(path, path.Size() - 1, rotations);
    }
  } catch (...) {
    UndoRotations(rotations);
    RestoreHeights(path);
    link->Swap(leaf);
    throw;
  }
  ++count;
  return true;
}

template <class K, class V>
bool cow_Btree<K, V>::Remove(K const& key) {
  typename cow_KeyOrder<K>::Probe const probe(key);
  Path path;
  bool shared = false;
  Link* link = &root;
  for (;;) {
    Node* const node = link->InPlace();
    if (!node) {
      return false;
    }
    int const order = probe.Compare(node->key);
    shared |= link->IsShared();
    path.Push({link, node->height});
    if (order == 0) {
      break;
    }
    link = order < 0 ? &node->left : &node->right;
  }
  std::size_t const found = path.Size() - 1;
  if (Node* const node = link->InPlace(); !node->left.IsEmpty() && !node->right.IsEmpty()) {
    for (link = &node->right; !link->IsEmpty(); link = &link->InPlace()->left) {
      shared |= link->IsShared();
      path.Push({link, link->InPlace()->height});
    }
  }

  Rotations rotations;
  rotations.Reserve(found + 1);
  if (shared) {
    Link* none = nullptr;
    MakePrivate(path, none);
  }
  Link removed(path[found].link->InPlace());
  Side const side = Unlink(path, found);
  try {
    BalanceUpwards(path, found, rotations);
  } catch (...) {
    UndoRotations(rotations);
    Relink(path, found, removed.Take(), side);
    RestoreHeights(path);
    throw;
  }
  --count;
  return true;
}

// The links of a path lead through nodes that other trees may share; afterwards they lead through private
// ones. `last` is the link below the last node of the path, or null when it is not needed.
template <class K, class V>
void cow_Btree<K, V>::MakePrivate(Path& path, Link*& last) {
  for (std::size_t index = 0; index != path.Size(); ++index) {
    Link& link = *path[index].link;
    Node const& old = link.ConstGet();
    Node& own = link.Get();
    if (&own == &old) {
      continue;
    }
    Link*& below = index + 1 == path.Size() ? last : path[index + 1].link;
    if (below) {
      below = below == &old.left ? &own.left : &own.right;
    }
  }
}

template <class K, class V>
void cow_Btree<K, V>::RotateLeft(Link& link) noexcept {
  Node* const upper = link.Take();
  Node* const lower = upper->right.Take();
  upper->right.Put(lower->left.Take());
  lower->left.Put(upper);
  link.Put(lower);
}

template <class K, class V>
void cow_Btree<K, V>::RotateRight(Link& link) noexcept {
  Node* const upper = link.Take();
  Node* const lower = upper->left.Take();
  upper->left.Put(lower->right.Take());
  lower->right.Put(upper);
  link.Put(lower);
}

// Kept on purpose: an absent child counts like a leaf, and the child that moves up is never looked at, so
// some trees stay more than one level apart. The shapes of trees in use depend on exactly this rule.
template <class K, class V>
void cow_Btree<K, V>::Balance(Link& link, Rotations& done) {
  int const difference = HeightOf(link.ConstGet().right) - HeightOf(link.ConstGet().left);
  if (difference >= 2) {
    Node& upper = link.Get();
    Node& lower = upper.right.Get();
    done.Push({&link, true, upper.height, lower.height});
    RotateLeft(link);
    SetHeight(upper);
    SetHeight(lower);
  } else if (difference <= -2) {
    Node& upper = link.Get();
    Node& lower = upper.left.Get();
    done.Push({&link, false, upper.height, lower.height});
    RotateRight(link);
    SetHeight(upper);
    SetHeight(lower);
  }
}

template <class K, class V>
void cow_Btree<K, V>::BalanceUpwards(Path const& path, std::size_t from, Rotations& done) {
  for (std::size_t index = from + 1; index-- != 0;) {
    Link& link = *path[index].link;
    if (!link.IsEmpty()) {
      Balance(link, done);
    }
    if (index != 0) {
      SetHeight(*path[index - 1].link->InPlace());
    }
  }
}

template <class K, class V>
void cow_Btree<K, V>::UndoRotations(Rotations& done) noexcept {
  while (!done.IsEmpty()) {
    Rotation const rotation = done.Pop();
    Link& link = *rotation.link;
    Node& lower = *link.InPlace();
    if (rotation.left) {
      RotateRight(link);
    } else {
      RotateLeft(link);
    }
    link.InPlace()->height = rotation.upperHeight;
    lower.height = rotation.lowerHeight;
  }
}

template <class K, class V>
void cow_Btree<K, V>::RestoreHeights(Path const& path) noexcept {
  for (std::size_t index = 0; index != path.Size(); ++index) {
    path[index].link->InPlace()->height = path[index].height;
  }
}

// Takes the node at path[found] out of the tree. The path goes on to the last node of the path, the one that
// replaces it, when it has two children. Returns which child came up. The caller holds the node that is taken
// out.
template <class K, class V>
auto cow_Btree<K, V>::Unlink(Path const& path, std::size_t found) noexcept -> Side {
  Link& place = *path[found].link;
  Node& node = *place.Take();
  if (node.right.IsEmpty()) {
    place.Put(node.left.Take());
    return Side::Left;
  }
  if (node.left.IsEmpty()) {
    place.Put(node.right.Take());
    return Side::Right;
  }
  std::size_t const last = path.Size() - 1;
  Node* const successor = path[last].link->Take();
  if (last - 1 != found) {
    // Kept on purpose: of the nodes between, only the successor's parent gets a new height; the others keep
    // theirs until a later write touches them, and rotations depend on it.
    Node& parent = *path[last - 1].link->InPlace();
    parent.left.Put(successor->right.Take());
    successor->right.Put(node.right.Take());
    SetHeight(parent);
  }
  successor->left.Put(node.left.Take());
  SetHeight(*successor);
  place.Put(successor);
  return Side::Right;
}

// The reverse of Unlink().
template <class K, class V>
void cow_Btree<K, V>::Relink(Path const& path, std::size_t found, Node* removed, Side side) noexcept {
  Link& place = *path[found].link;
  Node& node = *removed;
  std::size_t const last = path.Size() - 1;
  if (last == found) {
    (side == Side::Left ? node.left : node.right).Put(place.Take());
  } else {
    Node* const successor = place.Take();
    node.left.Put(successor->left.Take());
    if (last - 1 == found) {
      node.right.Put(successor);
    } else {
      node.right.Put(successor->right.Take());
      Node& parent = *path[last - 1].link->InPlace();
      successor->right.Put(parent.left.Take());
      parent.left.Put(successor);
    }
  }
  place.Put(&node);
}
