// The entries in which two copy-on-write maps differ.
#pragma once

#include "cow_Map.h"

#include <utility>
#include <vector>

/// Calls \p visit for every key whose node is not shared by both maps at the same place, in ascending byte
/// order.
///
/// Shared branches are skipped whole, so the cost grows with the number of nodes that differ, not with the
/// size of the maps. An entry whose node was copied but whose value is equal is visited too, and so is one
/// that only moved to another place, for its node was copied on the way.
/// \param before unchanged meanwhile.
/// \param after unchanged meanwhile.
/// \param visit called as visit(K const& key, V const* before, V const* after); the value is null on the side
/// that lacks the key.
/// \throws std::bad_alloc and what \p visit throws.
template <class K, class V, class Visit>
void cow_mapDiff(cow_Map<K, V> const& before, cow_Map<K, V> const& after, Visit&& visit) {
  using Node = cow_MapNode<K, V>;
  std::vector<Node const*> old;
  std::vector<Node const*> now;
  std::vector<std::pair<Node const*, Node const*>> pending{{before.RootNode(), after.RootNode()}};
  while (!pending.empty()) {
    auto const [left, right] = pending.back();
    pending.pop_back();
    if (left == right) {
      continue;
    }
    if (left) {
      old.push_back(left);
    }
    if (right) {
      now.push_back(right);
    }
    pending.emplace_back(left ? left->Left().Peek() : nullptr, right ? right->Left().Peek() : nullptr);
    pending.emplace_back(left ? left->Right().Peek() : nullptr, right ? right->Right().Peek() : nullptr);
  }
  auto const byKey = [](Node const* left, Node const* right) { return left->Key() < right->Key(); };
  std::sort(old.begin(), old.end(), byKey);
  std::sort(now.begin(), now.end(), byKey);
  auto left = old.begin();
  auto right = now.begin();
  while (left != old.end() || right != now.end()) {
    int const order = left == old.end()    ? 1
                      : right == now.end() ? -1
                                           : cow_String::Compare((*left)->Key(), (*right)->Key());
    Node const* const removed = order <= 0 ? *left++ : nullptr;
    Node const* const added = order >= 0 ? *right++ : nullptr;
    visit((removed ? removed : added)->Key(), removed ? &removed->Value() : nullptr,
          added ? &added->Value() : nullptr);
  }
}
