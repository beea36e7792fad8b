// simulation_baton: threads that run one at a time, in an order that dice decide.
#pragma once

#include "simulation_dice.h"

#include <deque>
#include <semaphore>
#include <vector>

/// Whoever has the baton runs; all others wait. So what threads do can be repeated from a seed, and what they
/// share needs no lock.
class simulation_baton {
public:
  /// @param runners how many threads will join; nobody has the baton before start()
  simulation_baton(unsigned runners, simulation_dice& whoRuns);

  /// Gives the baton to one of the runners.
  void start();
  /// Waits for the baton, at the beginning of a thread.
  void join(unsigned runner);
  /// Gives it to one of those that have not left, and waits until it comes back.
  void pass(unsigned runner);
  /// Gives it away for good.
  void leave(unsigned runner);

private:
  unsigned draw() { return running[dice.below(running.size())]; }

  simulation_dice& dice;
  std::vector<unsigned> running;
  std::deque<std::binary_semaphore> turns;
};
