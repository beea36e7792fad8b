// simulation_baton.cpp: a semaphore for each runner, of which at most one is up.
#include "simulation_baton.h"

simulation_baton::simulation_baton(unsigned runners, simulation_dice& whoRuns) : dice(whoRuns) {
  for (unsigned runner = 0; runner < runners; ++runner) {
    running.push_back(runner);
    turns.emplace_back(0);
  }
}

void simulation_baton::start() {
  turns[draw()].release();
}

void simulation_baton::join(unsigned runner) {
  turns[runner].acquire();
}

void simulation_baton::pass(unsigned runner) {
  unsigned const next = draw();
  if (next != runner) {
    turns[next].release();
    turns[runner].acquire();
  }
}

void simulation_baton::leave(unsigned runner) {
  std::erase(running, runner);
  if (!running.empty()) {
    turns[draw()].release();
  }
}
