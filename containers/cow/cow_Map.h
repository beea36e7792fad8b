// Map from text to anything whose copies share their entries.
#pragma once

#include "cow_MapNode.h"
#include "cow_PathStack.h"

#include <algorithm>
#include <vector>

/// The bit of \p key that chooses the way down at \p depth [from 0 at the root]: the lowest bit of a
/// character, taken in turn from the front and from the back of the text; 0 below the depth of its length.
inline unsigned cow_branchBit(cow_String const& key, unsigned depth) noexcept {
  unsigned const length = key.Length();
  if (depth > length) {
    return 0;
  }
  unsigned const index = depth % 2 == 0 ? depth / 2 : length - (depth - 1) / 2 - 1;
  return static_cast<unsigned char>(key.Text()[index]) & 1U;
}

/// Map from cow_String to V: a digital search tree, whose shape depends on the keys' bits.
///
/// Copying a map shares all nodes: one increment, no allocation. A write first copies the shared nodes on the
/// way to the entry that it touches, so maps that share nodes never see it. There is no balancing: keys that
/// differ in few low bits, like numbered names, make long branches. Use cow_Btree for many entries and for
/// walking in key order. References to keys and values live until the map next changes or dies;
/// cow_MapIterator keeps what it walks. A map and all maps that share nodes with it belong to one thread at a
/// time. Every operation that throws leaves the map valid and with the entries that it had.
/// \tparam K cow_String.
/// \tparam V the value; copyable. A value that is replaced is assigned.
template <class K, class V>
class DDR_API cow_Map {
public:
  using Node = cow_MapNode<K, V>;
  using Link = cow_NodeLink<Node>;

  /// Adds an entry, or gives the entry of \p key the new value.
  /// \return true, always.
  /// \throws what copying key and value, assigning the value and copying the nodes on the way throws.
  bool Insert(K const& key, V const& value);
  /// Removes an entry; a leaf from below it takes its place.
  /// \return false, and nothing is changed, when the key is absent.
  /// \throws what copying the nodes on the way throws.
  bool Remove(K const& key);
  /// Removes all entries and releases what no other map shares.
  void Clear() noexcept {
    root = Link();
    count = 0;
  }

  /// The number of entries.
  int Size() const noexcept { return count; }
  /// Whether there are no entries.
  bool IsEmpty() const noexcept { return count == 0; }
  /// Whether there is an entry of \p key.
  bool IsMember(K const& key) const noexcept { return ConstFind(key) != nullptr; }
  /// The value of \p key for reading, or null when there is none. Copies nothing.
  V const* ConstFind(K const& key) const noexcept {
    Node const* const node = Search(key);
    return node ? &node->value : nullptr;
  }
  /// The value of \p key for writing, or null when there is none. Copies the shared nodes on the way; what
  /// the value itself shares is its own affair.
  /// \throws what copying a node throws.
  V* Find(K const& key);
  /// The value of \p key, to be filled or emptied in place for every map that shares the node; null when
  /// there is none. Copies nothing.
  V* FindInPlace(K const& key) const noexcept {
    Node* const node = Search(key);
    return node ? &node->value : nullptr;
  }
  /// All keys, in ascending byte order.
  std::vector<K> Keys() const;

  /// The node at the top, or null when the map is empty.
  Node const* RootNode() const noexcept { return root.Peek(); }
  /// The link to the node at the top.
  Link const& RootLink() const noexcept { return root; }

private:
  Node* Search(K const& key) const noexcept {
    Node* node = root.InPlace();
    for (unsigned depth = 0; node && !(node->key == key); ++depth) {
      node = cow_branchBit(key, depth) == 0 ? node->left.InPlace() : node->right.InPlace();
    }
    return node;
  }

  Link root;
  int count = 0;
};

/// The nodes below \p root [may be null], sorted by the bytes of their keys. Needs no deep stack.
/// \throws std::bad_alloc.
template <class K, class V>
std::vector<cow_MapNode<K, V> const*> cow_sortedNodes(cow_MapNode<K, V> const* root) {
  using Node = cow_MapNode<K, V>;
  std::vector<Node const*> nodes;
  if (root) {
    nodes.push_back(root);
  }
  // The list itself is the queue of the nodes whose children are not in it yet.
  for (std::size_t next = 0; next != nodes.size(); ++next) {
    for (auto const* child : {nodes[next]->Left().Peek(), nodes[next]->Right().Peek()}) {
      if (child) {
        nodes.push_back(child);
      }
    }
  }
  std::sort(nodes.begin(), nodes.end(),
            [](Node const* left, Node const* right) { return left->Key() < right->Key(); });
  return nodes;
}

// ---- Implementation ----

template <class K, class V>
bool cow_Map<K, V>::Insert(K const& key, V const& value) {
  Link* link = &root;
  for (unsigned depth = 0; !link->IsEmpty(); ++depth) {
    Node& node = link->Get();
    if (node.key == key) {
      if (&node.value != &value) {
        node.value = value;
      }
      return true;
    }
    link = cow_branchBit(key, depth) == 0 ? &node.left : &node.right;
  }
  *link = Link(new Node(key, value));
  ++count;
  return true;
}

template <class K, class V>
V* cow_Map<K, V>::Find(K const& key) {
  Link* link = &root;
  for (unsigned depth = 0; !link->IsEmpty(); ++depth) {
    Node& node = link->Get();
    if (node.key == key) {
      return &node.value;
    }
    link = cow_branchBit(key, depth) == 0 ? &node.left : &node.right;
  }
  return nullptr;
}

template <class K, class V>
bool cow_Map<K, V>::Remove(K const& key) {
  if (!Search(key)) {
    return false;
  }
  Link* place = &root;
  for (unsigned depth = 0; !(place->Get().key == key); ++depth) {
    Node& node = place->Get();
    place = cow_branchBit(key, depth) == 0 ? &node.left : &node.right;
  }
  // Any leaf below may take the place: the ways to both begin with the same bits.
  Link* leaf = place;
  while (!leaf->Peek()->left.IsEmpty() || !leaf->Peek()->right.IsEmpty()) {
    Node& node = leaf->Get();
    leaf = node.left.IsEmpty() ? &node.right : &node.left;
  }
  if (leaf == place) {
    *place = Link();
  } else {
    leaf->Get();
    Link replacement(leaf->Take());
    Node& removed = place->Get();
    Node& moved = replacement.Get();
    moved.left.Swap(removed.left);
    moved.right.Swap(removed.right);
    place->Swap(replacement);
  }
  --count;
  return true;
}

template <class K, class V>
std::vector<K> cow_Map<K, V>::Keys() const {
  std::vector<K> keys;
  keys.reserve(static_cast<std::size_t>(count));
  for (auto const* node : cow_sortedNodes(RootNode())) {
    keys.push_back(node->Key());
  }
  return keys;
}
