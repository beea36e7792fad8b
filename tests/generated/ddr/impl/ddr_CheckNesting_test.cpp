// How objects hold each other: circles and depth.
#include "ddr_CheckNesting.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

using Edges = std::vector<ddr_CheckEdge>;

/// Each of that many objects holds the next one, and the last one the first.
Edges circleOf(int count, unsigned typeId) {
  Edges edges;
  for (int row = 0; row < count; ++row) {
    edges.push_back({{typeId, row}, {typeId, (row + 1) % count}});
  }
  return edges;
}

TEST(DdrCheckNesting, AChainIsAsDeepAsItHasObjects) {
  Edges chain = circleOf(5, 1);
  chain.pop_back();
  EXPECT_FALSE(ddr_checkNesting(chain, 5, 10).tooDeep.has_value());
  EXPECT_EQ(ddr_checkNesting(chain, 4, 10).tooDeep, (ddr_CheckPlace{1, 0}));
  EXPECT_TRUE(ddr_checkNesting(chain, 4, 10).circles.empty());
}

TEST(DdrCheckNesting, ACircleIsToldByTheStepThatClosesIt) {
  Edges circle = circleOf(3, 1);
  std::vector<ddr_CheckEdge> const circles = ddr_checkNesting(circle, 100, 10).circles;
  EXPECT_EQ(circles, (Edges{{{1, 2}, {1, 0}}}));
}

TEST(DdrCheckNesting, AnObjectThatTwoOthersHoldIsNoCircle) {
  Edges edges{{{1, 0}, {1, 2}}, {{1, 1}, {1, 2}}, {{1, 0}, {1, 1}}, {{1, 2}, {1, 3}}};
  EXPECT_TRUE(ddr_checkNesting(edges, 4, 10).circles.empty());
  EXPECT_FALSE(ddr_checkNesting(edges, 4, 10).tooDeep.has_value());
  EXPECT_TRUE(ddr_checkNesting(edges, 3, 10).tooDeep.has_value());
}

TEST(DdrCheckNesting, LookingForCirclesStopsAtTheGivenNumber) {
  Edges edges;
  for (unsigned typeId = 1; typeId <= 5; ++typeId) {
    Edges const circle = circleOf(2, typeId);
    edges.insert(edges.end(), circle.begin(), circle.end());
  }
  EXPECT_EQ(ddr_checkNesting(edges, 100, 3).circles.size(), 3U);
  EXPECT_EQ(ddr_checkNesting(edges, 100, 10).circles.size(), 5U);
}

} // namespace
