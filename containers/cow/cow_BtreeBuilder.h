// Builds a balanced tree from keys that come in ascending order.
#pragma once

#include "cow_Btree.h"

#include <utility>

/// Builds a tree from ascending keys, exactly as inserting them one by one would, in constant time a key.
///
/// It keeps the way to the last entry, compares a key with that entry only, and turns back upwards where
/// nothing changes any more. For keys in any order insert into a cow_Btree. One thread at a time.
/// \tparam K the key. \tparam V the value.
template <class K, class V>
class DDR_API cow_BtreeBuilder {
public:
  using Tree = cow_Btree<K, V>;

  cow_BtreeBuilder() = default;
  cow_BtreeBuilder(cow_BtreeBuilder const&) = delete;
  cow_BtreeBuilder& operator=(cow_BtreeBuilder const&) = delete;

  /// Adds an entry behind the last one.
  /// \return false, and nothing is changed, when \p key does not come after the last key.
  /// \throws what copying key and value throws; nothing is changed then.
  bool Append(K const& key, V const& value);
  /// The tree of all entries; the builder begins anew.
  Tree Take() noexcept;

private:
  using Node = typename Tree::Node;
  using Link = typename Tree::Link;

  Link& LinkTo(std::size_t index) noexcept { return index == 0 ? tree.root : way[index - 1]->right; }

  Tree tree;
  cow_PathStack<Node*, Tree::usualDepth> way; // from the root to the last entry
};

// ---- Implementation ----

template <class K, class V>
bool cow_BtreeBuilder<K, V>::Append(K const& key, V const& value) {
  if (!way.IsEmpty() && cow_KeyOrder<K>::Compare(key, way.Top()->key) <= 0) {
    return false;
  }
  way.Reserve(way.Size() + 1);
  auto* const leaf = new Node(key, value);
  LinkTo(way.Size()).Put(leaf);
  way.Push(leaf);
  ++tree.count;
  for (std::size_t index = way.Size() - 1; index-- != 0;) {
    Node* const upper = way[index];
    int const before = upper->height;
    Tree::SetHeight(*upper);
    if (Tree::HeightOf(upper->right) - Tree::HeightOf(upper->left) >= 2) {
      Node* const lower = way[index + 1];
      Tree::RotateLeft(LinkTo(index));
      Tree::SetHeight(*upper);
      Tree::SetHeight(*lower);
      for (std::size_t below = index; below + 1 != way.Size(); ++below) {
        way[below] = way[below + 1];
      }
      way.Pop();
    }
    if (way[index]->height == before) {
      break;
    }
  }
  return true;
}

template <class K, class V>
auto cow_BtreeBuilder<K, V>::Take() noexcept -> Tree {
  Tree built;
  built.root = std::move(tree.root);
  built.count = std::exchange(tree.count, 0);
  way.Clear();
  return built;
}
