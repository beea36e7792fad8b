// ddr_checkNesting: finds objects of a file that hold themselves, or each other too deep.
#pragma once

#include <compare>
#include <cstddef>
#include <optional>
#include <vector>

/// One stored object.
struct ddr_CheckPlace {
  unsigned typeId = 0; ///< its class; 0 means the file as a whole
  int row = -1;        ///< its row [from 0]; -1 means the class as a whole

  friend auto operator<=>(ddr_CheckPlace const&, ddr_CheckPlace const&) = default;
};

/// One stored object holds another.
struct ddr_CheckEdge {
  ddr_CheckPlace holder;
  ddr_CheckPlace held;

  friend auto operator<=>(ddr_CheckEdge const&, ddr_CheckEdge const&) = default;
};

/// What is wrong with how objects hold each other.
struct ddr_CheckNesting {
  std::vector<ddr_CheckEdge> circles;    ///< of each circle the one step that closes it
  std::optional<ddr_CheckPlace> tooDeep; ///< the first object that holds others on too many levels
};

/// Looks at all objects that hold others. O(edges * log(edges)), without recursion.
/// @param edges who holds whom; sorted by this call
/// @param mostLevels how deep objects may hold objects
/// @param mostCircles where looking for circles stops
ddr_CheckNesting ddr_checkNesting(std::vector<ddr_CheckEdge>& edges, int mostLevels, std::size_t mostCircles);
