// Walks a copy-on-write map in ascending byte order.
#pragma once

#include "cow_Map.h"

/// Position in a cow_Map, moving in ascending or descending byte order of the keys.
///
/// It walks the map as it was when the iterator was made: it shares the nodes, so that the map may change or
/// die meanwhile, and its entries do not move under the iterator. While an iterator lives, writes to the map
/// copy the nodes that they touch.
template <class K, class V>
class cow_MapIterator {
public:
  /// At the end until First() or Last() is called. Sorts the entries: N log N. \throws std::bad_alloc.
  explicit cow_MapIterator(cow_Map<K, V> const& map)
      : root(map.RootLink()), nodes(cow_sortedNodes(root.Peek())), position(nodes.size()) {}

  /// Goes to the smallest key; at the end when the map is empty.
  void First() noexcept { position = 0; }
  /// Goes to the next greater key, or to the end. Does nothing at the end.
  void Next() noexcept {
    if (!AtEnd()) {
      ++position;
    }
  }
  /// Goes to the greatest key; at the end when the map is empty.
  void Last() noexcept { position = nodes.empty() ? 0 : nodes.size() - 1; }
  /// Goes to the next smaller key, or to the end. Does nothing at the end.
  void Prev() noexcept {
    if (!AtEnd()) {
      position = position == 0 ? nodes.size() : position - 1;
    }
  }

  /// Whether there is no current entry.
  bool AtEnd() const noexcept { return position == nodes.size(); }
  /// The current key. Not at the end. Lives as long as the iterator.
  K const& Key() const noexcept { return nodes[position]->Key(); }
  /// The current value. Not at the end. Lives as long as the iterator.
  V const& Value() const noexcept { return nodes[position]->Value(); }

private:
  typename cow_Map<K, V>::Link root;
  std::vector<cow_MapNode<K, V> const*> nodes;
  std::size_t position;
};
