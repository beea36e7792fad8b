// simulation: a random history of hosts and files, from a seed.
#pragma once

#include <cstdint>
#include <string>

/// What became of a simulation.
struct simulation_outcome {
  std::string failure; ///< what did not hold, and in which step; empty when all did
  std::string history; ///< every step, the same for the same seed
  int steps = 0;
  int besideOthers = 0; ///< faults that met a call beside a half-done one of another host on the same file
};

/// Plays the history of a seed: some hosts, each on a thread with a registry of its own, use some files. One
/// simulation at a time.
simulation_outcome simulate(std::uint64_t seed);
