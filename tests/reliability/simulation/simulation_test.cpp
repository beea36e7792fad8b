// Random histories of hosts and files. DDR_SIMULATION_SEED=n plays one and prints it; DDR_SIMULATIONS=count
// plays so many, from the seed DDR_TORTURE_SEED on.
#include "counts.h"
#include "long_run.h"
#include "simulation.h"

#include <gtest/gtest.h>
#include <iostream>

namespace {

/// @returns the faults that met a call beside a half-done one of another host
int play(std::uint64_t seed, bool prints = false) {
  simulation_outcome const outcome = simulate(seed);
  if (prints) {
    std::cout << outcome.history;
  }
  if (!outcome.failure.empty()) {
    ADD_FAILURE() << outcome.history << outcome.failure << "\nseed " << seed
                  << "; DDR_SIMULATION_SEED=" << seed << " plays it again";
  }
  return outcome.besideOthers;
}

TEST(Simulation, FilesAndRegistriesHoldWhatAPlainModelSays) {
  constexpr int daily = 40;
  long long const chosen = setting("DDR_SIMULATION_SEED", -1);
  if (chosen >= 0) {
    play(static_cast<std::uint64_t>(chosen), true);
    return;
  }
  auto const first = static_cast<std::uint64_t>(setting("DDR_TORTURE_SEED", 1));
  auto const count = static_cast<std::uint64_t>(setting("DDR_SIMULATIONS", daily));
  int besideOthers = 0;
  for (std::uint64_t seed = first; seed < first + count && !HasFailure(); ++seed) {
    besideOthers += play(seed);
    addToCount("histories", "played", 1);
  }
  addToCount("histories", "faults beside a half done call", besideOthers);
  EXPECT_TRUE(besideOthers > 0 || count < daily);
}

TEST(Simulation, ASeedPlaysTheSameHistoryAgain) {
  for (std::uint64_t seed = 1; seed <= 3; ++seed) {
    std::string const history = simulate(seed).history;
    EXPECT_FALSE(history.empty());
    EXPECT_EQ(simulate(seed).history, history);
    EXPECT_NE(simulate(seed + 100).history, history);
  }
}

} // namespace
