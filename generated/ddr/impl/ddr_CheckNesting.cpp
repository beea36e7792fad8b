#include "ddr_CheckNesting.h"

#include <algorithm>

namespace {

using Edges = std::vector<ddr_CheckEdge>;

/// An object that holds others: its edges are [firstEdge, endEdge).
struct Holder {
  ddr_CheckPlace place;
  std::size_t firstEdge = 0;
  std::size_t endEdge = 0;
  std::size_t nextEdge = 0; // the first that was not followed yet
  int levels = 0;           // levels below and with it, of the edges that were followed
  bool isOnTheWay = false;  // whether it is an ancestor of the object that is looked at
};

std::vector<Holder> holdersOf(Edges const& edges) {
  std::vector<Holder> holders;
  for (std::size_t edge = 0; edge < edges.size(); ++edge) {
    if (holders.empty() || holders.back().place != edges[edge].holder) {
      holders.push_back({edges[edge].holder, edge, edge, edge});
    }
    holders.back().endEdge = edge + 1;
  }
  return holders;
}

/// The object as one that holds others, or null.
Holder* find(std::vector<Holder>& holders, ddr_CheckPlace const& place) {
  auto const found =
      std::lower_bound(holders.begin(), holders.end(), place,
                       [](Holder const& holder, ddr_CheckPlace const& key) { return holder.place < key; });
  return found == holders.end() || found->place != place ? nullptr : &*found;
}

} // namespace

ddr_CheckNesting ddr_checkNesting(Edges& edges, int mostLevels, std::size_t mostCircles) {
  ddr_CheckNesting nesting;
  std::sort(edges.begin(), edges.end());
  std::vector<Holder> holders = holdersOf(edges);
  std::vector<Holder*> way;
  auto const enter = [&way](Holder& holder) {
    holder.isOnTheWay = true;
    holder.levels = 1;
    way.push_back(&holder);
  };
  auto const raise = [&](Holder& holder, int levelsBelow) {
    holder.levels = std::max(holder.levels, levelsBelow + 1);
    if (holder.levels > mostLevels && !nesting.tooDeep) {
      nesting.tooDeep = holder.place;
    }
  };
  for (Holder& start : holders) {
    if (start.levels == 0) {
      enter(start);
    }
    while (!way.empty() && nesting.circles.size() < mostCircles) {
      Holder& current = *way.back();
      if (current.nextEdge == current.endEdge) {
        current.isOnTheWay = false;
        way.pop_back();
        if (!way.empty()) {
          raise(*way.back(), current.levels);
        }
        continue;
      }
      ddr_CheckEdge const& edge = edges[current.nextEdge++];
      Holder* const held = find(holders, edge.held);
      if (held == nullptr) {
        raise(current, 1);
      } else if (held->isOnTheWay) {
        nesting.circles.push_back(edge);
      } else if (held->levels == 0) {
        enter(*held);
      } else {
        raise(current, held->levels);
      }
    }
  }
  return nesting;
}
