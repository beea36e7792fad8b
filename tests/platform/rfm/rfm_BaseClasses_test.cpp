// Which classes are derived from which, in class lists of any shape.
#include "rfm_BaseClasses.h"

#include <gtest/gtest.h>
#include <map>
#include <random>

namespace {

using Derivations = std::vector<std::pair<unsigned, unsigned>>;

TEST(rfm_BaseClasses, EveryClassIsItself) {
  EXPECT_TRUE(rfm_BaseClasses().IsA(7, 7));
  EXPECT_FALSE(rfm_BaseClasses().IsA(7, 8));
  EXPECT_EQ(rfm_BaseClasses().Outermost(7), 7U);
}

TEST(rfm_BaseClasses, AClassIsAllOfItsBasesAndNoneOfThoseDerivedFromIt) {
  rfm_BaseClasses const bases(Derivations{{12, 11}, {13, 12}, {11, 10}, {10, 1}, {22, 11}});
  for (unsigned const base : {10U, 11U, 12U}) {
    EXPECT_TRUE(bases.IsA(13, base)) << base;
    EXPECT_FALSE(bases.IsA(base, 13)) << base;
  }
  EXPECT_FALSE(bases.IsA(13, 22));
  EXPECT_FALSE(bases.IsA(13, 1));
  EXPECT_EQ(bases.Outermost(13), 10U);
}

TEST(rfm_BaseClasses, ABaseThatIsNotListedIsABase) {
  rfm_BaseClasses const bases(Derivations{{11, 10}});
  EXPECT_TRUE(bases.IsA(11, 10));
  EXPECT_EQ(bases.Outermost(11), 10U);
}

TEST(rfm_BaseClasses, InACircleEachIsABaseOfAll) {
  rfm_BaseClasses const bases(Derivations{{10, 11}, {11, 12}, {12, 10}, {20, 11}, {30, 30}});
  for (unsigned const one : {10U, 11U, 12U}) {
    for (unsigned const other : {10U, 11U, 12U}) {
      EXPECT_TRUE(bases.IsA(one, other)) << one << " " << other;
    }
    EXPECT_TRUE(bases.IsA(20, one)) << one;
    EXPECT_FALSE(bases.IsA(one, 20)) << one;
    EXPECT_FALSE(bases.IsA(one, 30)) << one;
  }
  EXPECT_TRUE(bases.IsA(30, 30));
}

/// Goes from base to base.
bool isAByWalking(std::map<unsigned, unsigned> const& baseOf, unsigned typeId, unsigned wanted) {
  for (std::size_t steps = 0; steps <= baseOf.size(); ++steps) {
    auto const found = baseOf.find(typeId);
    if (typeId == wanted || found == baseOf.end() || found->second == 1) {
      return typeId == wanted;
    }
    typeId = found->second;
  }
  return false;
}

TEST(rfm_BaseClasses, AnswersAsAWalkOverTheBasesDoes) {
  std::mt19937 random(1); // the same lists each time
  for (int count = 0; count < 300; ++count) {
    auto const size = static_cast<unsigned>(1 + random() % 40);
    unsigned const reach = 1 + static_cast<unsigned>(random() % size); // short: long chains
    std::map<unsigned, unsigned> baseOf;
    for (unsigned typeId = 10; typeId < 10 + size; ++typeId) {
      unsigned const way = static_cast<unsigned>(random() % (reach + 1));
      baseOf[typeId] = random() % 16 == 0 ? 1 : 10 + (typeId - 10 + way) % (size + 1);
    }
    rfm_BaseClasses const bases(Derivations(baseOf.begin(), baseOf.end()));
    for (unsigned typeId = 9; typeId < 12 + size; ++typeId) {
      for (unsigned wanted = 9; wanted < 12 + size; ++wanted) {
        ASSERT_EQ(bases.IsA(typeId, wanted), isAByWalking(baseOf, typeId, wanted))
            << "list " << count << ": " << typeId << ", " << wanted;
      }
    }
  }
}

} // namespace
