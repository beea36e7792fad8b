// One entry of a balanced copy-on-write tree.
#pragma once

#include "cow_KeyOrder.h"
#include "cow_NodeLink.h"

#include <cstddef>

template <class K, class V>
class cow_Btree;
template <class K, class V>
class cow_BtreeBuilder;

/// One entry of a cow_Btree: key, value and the links to the entries before and after it.
///
/// Trees that are copies of each other share nodes; a shared node is never changed, except in place where a
/// member says so. A node lives as long as a tree, or an iterator's tree, holds it.
/// \tparam K the key, ordered by cow_KeyOrder<K>.
/// \tparam V the value, copyable.
template <class K, class V>
class cow_BtreeNode {
public:
  using Link = cow_NodeLink<cow_BtreeNode>;

  /// A leaf. \throws what copying key and value throws.
  cow_BtreeNode(K const& theKey, V const& theValue) : key(theKey), value(theValue) {}
  /// A node beside \p other that shares its children. \throws what copying key and value throws.
  cow_BtreeNode(cow_BtreeNode const& other) = default;
  cow_BtreeNode& operator=(cow_BtreeNode const&) = delete;
  ~cow_BtreeNode() = default;

  static void* operator new(std::size_t size) { return cow_NodeMemory<cow_BtreeNode>::Allocate(size); }
  static void operator delete(void* node) noexcept { cow_NodeMemory<cow_BtreeNode>::Free(node); }

  K const& Key() const noexcept { return key; }
  V const& Value() const noexcept { return value; }
  V& Value() noexcept { return value; }
  /// The link to the entries with smaller keys.
  Link const& Left() const noexcept { return left; }
  /// The link to the entries with greater keys.
  Link const& Right() const noexcept { return right; }
  /// 0 for a leaf, else one more than the greater height of its children. The nodes that a removal passes on
  /// its way down to the successor keep their height until they are touched again, so it may be too great
  /// there.
  int Height() const noexcept { return height; }

private:
  friend class cow_Btree<K, V>;
  friend class cow_BtreeBuilder<K, V>;
  friend class cow_NodeLink<cow_BtreeNode>;

  // What a search reads stands first and fits into one cache line.
  K key;
  Link left;
  Link right;
  V value;
  int height = 0;
  cow_NodeCount links;
};
