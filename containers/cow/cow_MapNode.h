// One entry of the copy-on-write map.
#pragma once

#include "cow_NodeLink.h"
#include "cow_String.h"

#include <new>

template <class K, class V>
class cow_Map;

/// One entry of a cow_Map: key, value and the links to the entries below. Maps that are copies of each other
/// share nodes; a shared node is never changed.
template <class K, class V>
class cow_MapNode {
public:
  using Link = cow_NodeLink<cow_MapNode>;

  /// A leaf. \throws what copying key and value throws.
  cow_MapNode(K const& theKey, V const& theValue) : key(theKey), value(theValue) {}
  /// A node beside \p other that shares its children. \throws what copying key and value throws.
  cow_MapNode(cow_MapNode const& other) = default;
  cow_MapNode& operator=(cow_MapNode const&) = delete;
  ~cow_MapNode() = default;

  static void* operator new(std::size_t size) { return cow_NodeMemory<cow_MapNode>::Allocate(size); }
  static void operator delete(void* node) noexcept { cow_NodeMemory<cow_MapNode>::Free(node); }

  K const& Key() const noexcept { return key; }
  V const& Value() const noexcept { return value; }
  /// The link to the entries whose bit at this depth is 0.
  Link const& Left() const noexcept { return left; }
  /// The link to the entries whose bit at this depth is 1.
  Link const& Right() const noexcept { return right; }

private:
  friend class cow_Map<K, V>;
  friend class cow_NodeLink<cow_MapNode>;

  K key;
  Link left;
  Link right;
  V value;
  cow_NodeCount links;
};
