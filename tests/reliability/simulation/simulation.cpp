// simulation.cpp: worlds on threads, one running at a time.
#include "simulation.h"

#include "simulation_files.h"
#include "simulation_layouts.h"
#include "simulation_world.h"

#include <filesystem>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

constexpr unsigned mostWorlds = 3;
constexpr unsigned mostFiles = 3;
constexpr int stepsOfAWorld = 32;

void live(simulation_ground& ground, unsigned number) {
  ground.baton.join(number);
  try {
    simulation_world world(ground, number);
    for (int step = 0; step < stepsOfAWorld && ground.failure.empty(); ++step) {
      world.step();
      ground.baton.pass(number);
    }
  } catch (std::exception const& failure) {
    if (ground.failure.empty()) {
      ground.failure = numbered("step ", ground.steps) + ": " + failure.what();
    }
  }
  ground.baton.leave(number);
}

// What is left when all have closed what they had open.
void requireLeft(simulation_ground const& ground) {
  module_client const client;
  auto const classes = simulation_registrar();
  std::vector<std::string> names;
  for (plain_file const& file : ground.files) {
    plain_file const found = observe(file.path, *classes);
    if (found.inode != file.inode || found.commits != file.commits || found.record != file.record) {
      throw std::runtime_error("in the end " + file.path + " holds something else");
    }
    if (file.exists()) {
      names.push_back(std::filesystem::path(file.path).filename().string());
    }
  }
  if (!ground.withFaults && ground.folder.names() != names) {
    throw std::runtime_error("something is left beside the files");
  }
}

} // namespace

simulation_outcome simulate(std::uint64_t seed) {
  simulation_layouts();
  simulation_dice dice(seed);
  unsigned const worlds = 1 + dice.below(mostWorlds);
  simulation_ground ground(seed, worlds, 1 + dice.below(mostFiles));
  ground.withFaults = dice.chance(50);
  ground.passPercent = dice.below(60);
  simulation_files const files([&] { ground.mayPass(); }, [&] { ground.interruptible = -1; });
  int const descriptors = openDescriptors();
  std::vector<std::thread> threads;
  for (unsigned number = 0; number < worlds; ++number) {
    threads.emplace_back([&ground, number] { live(ground, number); });
  }
  ground.baton.start();
  for (std::thread& thread : threads) {
    thread.join();
  }
  if (ground.failure.empty()) {
    std::string const left = failureOf([&] { requireLeft(ground); });
    ground.failure = left == "nothing" ? std::string() : left;
  }
  if (openDescriptors() != descriptors) {
    ground.failure += " a file was left open";
  }
  return {ground.failure, ground.history, ground.steps, ground.besideOthers};
}
