// simulation_dice: chance that a seed decides.
#pragma once

#include <cstdint>

/// Numbers that follow from a seed, the same with every compiler.
class simulation_dice {
public:
  explicit simulation_dice(std::uint64_t seed) noexcept : state(seed) {}

  /// A number below a limit [1 to 2^32].
  unsigned below(std::uint64_t limit) noexcept {
    return static_cast<unsigned>((next() >> 32U) * limit >> 32U);
  }
  /// Whether something happens that happens so often [of 100].
  bool chance(unsigned percent) noexcept { return below(100) < percent; }

private:
  std::uint64_t next() noexcept {
    state += 0x9e3779b97f4a7c15U;
    std::uint64_t mixed = (state ^ state >> 30U) * 0xbf58476d1ce4e5b9U;
    mixed = (mixed ^ mixed >> 27U) * 0x94d049bb133111ebU;
    return mixed ^ mixed >> 31U;
  }

  std::uint64_t state;
};
