// simulation_ground.cpp: files without anything in them, and the history.
#include "simulation_ground.h"

#include "database_test.h"
#include "os_Runtime.h"

#include <utility>

namespace {

std::int64_t clockTime = 0;

std::int64_t tellTime(std::int64_t* seconds) {
  if (seconds != nullptr) {
    *seconds = clockTime;
  }
  return clockTime;
}

std::string effectText(device_fault const& fault) {
  std::string text = numbered(nameOf(fault.call), fault.number);
  text += fault.effect == device_fault::Effect::Error       ? " fails, "
          : fault.effect == device_fault::Effect::LateError ? " fails late, "
                                                            : " is cut short, ";
  return text + numbered("errno ", fault.errorNumber) + (fault.lasting ? ", and all later ones" : "");
}

} // namespace

simulation_ground::simulation_ground(std::uint64_t seed, unsigned worlds, unsigned fileCount)
    : dice(seed), baton(worlds, dice), files(fileCount) {
  for (std::size_t number = 0; number < files.size(); ++number) {
    files[number].path = folder.path("file" + std::to_string(number));
  }
  clockTime = 1700000000;
  os_runtimeCalls().time64 = tellTime;
}

simulation_ground::~simulation_ground() {
  os_runtimeCalls() = os_RuntimeCalls();
}

void simulation_ground::tick() {
  ++steps;
  clockTime += 1 + dice.below(3);
}

void simulation_ground::tell(unsigned world, std::string text) {
  for (std::size_t found = 0; (found = text.find(folder.path() + "/", found)) != std::string::npos;) {
    text.erase(found, folder.path().size() + 1);
  }
  history += std::to_string(steps) + " [" + std::to_string(world) + "] " + text + "\n";
}

void simulation_ground::mayPass() {
  int const interrupted = interruptible;
  if (interrupted >= 0 && dice.chance(passPercent)) {
    interruptible = -1;
    std::optional<device_fault> const kept = std::exchange(laterFault, std::nullopt);
    baton.pass(static_cast<unsigned>(interrupted));
    if (kept) {
      arm(static_cast<unsigned>(interrupted), *kept);
    } else {
      interruptible = interrupted;
    }
  }
}

void simulation_ground::arm(unsigned world, device_fault const& fault) {
  tell(world, "  with a fault: " + effectText(fault));
  armed = static_cast<int>(world);
  device.start(fault);
}

bool simulation_ground::disarm(unsigned world) {
  interruptible = -1;
  laterFault.reset();
  bool const met = armed == static_cast<int>(world) && device.faults() > 0;
  armed = -1;
  device.stop();
  return met;
}
