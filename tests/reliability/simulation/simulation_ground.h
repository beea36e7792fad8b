// simulation_ground: what the worlds of one simulation share.
#pragma once

#include "fault_device.h"
#include "simulation_baton.h"
#include "simulation_model.h"
#include "temporary_folder.h"

#include <optional>
#include <string>
#include <vector>

/// Files, chance and history. Used by whoever has the baton.
struct simulation_ground {
  simulation_ground(std::uint64_t seed, unsigned worlds, unsigned fileCount);

  ~simulation_ground();
  simulation_ground(simulation_ground const&) = delete;
  simulation_ground& operator=(simulation_ground const&) = delete;

  /// Counts a step, and lets time pass: the clock of the run time is this one's.
  void tick();
  /// Adds to the history; paths lose their folder, which is another one in each run.
  void tell(unsigned world, std::string text);
  /// Asked before a lock is taken: another world may go on while one is in the middle of a call.
  void mayPass();
  /// From now on the call that a world is in may meet a fault. No other world goes on until disarm().
  void arm(unsigned world, device_fault const& fault);
  /// Ends that. @returns whether the call has met the fault
  bool disarm(unsigned world);

  simulation_dice dice;
  simulation_baton baton;
  temporary_folder folder;
  fault_device device{folder.path()};
  std::vector<plain_file> files;
  bool withFaults = false;
  unsigned passPercent = 0;               // of the locks before which another world may go on
  int interruptible = -1;                 // the world in a call in which another may go on; -1: none
  std::optional<device_fault> laterFault; // of that call, once others have gone on meanwhile
  int besideOthers = 0; // faults that met a call beside a half-done one of another world on the file
  int steps = 0;
  std::string history;
  std::string failure; // of the world that met one first

private:
  int armed = -1; // the world whose call may meet a fault now
};
