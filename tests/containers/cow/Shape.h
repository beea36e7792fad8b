// Trees as texts.
#pragma once

#include "cow_BtreeIterator.h"
#include "cow_MapIterator.h"

#include <set>
#include <string>

template <class K, class V>
std::string shapeOf(cow_BtreeNode<K, V> const* node);
template <class K, class V>
std::string shapeOf(cow_MapNode<K, V> const* node);

/// The shapes of the children, in parentheses; nothing for a leaf.
template <class Node>
std::string childrenOf(Node const& node) {
  std::string text;
  if (!node.Left().IsEmpty() || !node.Right().IsEmpty()) {
    text.append("(").append(shapeOf(node.Left().Peek())).append(" ");
    text.append(shapeOf(node.Right().Peek())).append(")");
  }
  return text;
}

/// A tree as one text: "key:height(left right)", "-" for no child, leaves without parentheses.
template <class K, class V>
std::string shapeOf(cow_BtreeNode<K, V> const* node) {
  if (!node) {
    return "-";
  }
  std::string text(node->Key().View());
  text.append(":").append(std::to_string(node->Height()));
  return text.append(childrenOf(*node));
}

template <class K, class V>
std::string shapeOf(cow_Btree<K, V> const& tree) {
  return shapeOf(tree.RootNode());
}

/// A map as one text: "key(left right)".
template <class K, class V>
std::string shapeOf(cow_MapNode<K, V> const* node) {
  if (!node) {
    return "-";
  }
  return std::string(node->Key().View()).append(childrenOf(*node));
}

template <class K, class V>
std::string shapeOf(cow_Map<K, V> const& map) {
  return shapeOf(map.RootNode());
}

/// All nodes below one.
template <class Node>
void collectNodes(Node const* node, std::set<Node const*>& nodes) {
  if (node) {
    nodes.insert(node);
    collectNodes(node->Left().Peek(), nodes);
    collectNodes(node->Right().Peek(), nodes);
  }
}

template <class Tree>
auto nodesOf(Tree const& tree) {
  std::set<typename Tree::Node const*> nodes;
  collectNodes(tree.RootNode(), nodes);
  return nodes;
}

/// The keys in the order of the tree, with blanks between.
template <class K, class V>
std::string keysOf(cow_Btree<K, V> const& tree) {
  std::string keys;
  cow_BtreeIterator<K, V> entry(tree);
  for (entry.First(); !entry.AtEnd(); entry.Next()) {
    keys.append(keys.empty() ? "" : " ").append(entry.Key().View());
  }
  return keys;
}
