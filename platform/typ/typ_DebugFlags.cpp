// typ_DebugFlags.cpp: debug levels by component.
#include "typ_DebugFlags.h"

#include <map>
#include <mutex>
#include <shared_mutex>

namespace {

struct Levels {
  std::shared_mutex mutex;
  std::map<int, int> byComponent;
};

// Never destroyed: levels are asked for until the process has ended.
Levels& levels() {
  static Levels* const one = new Levels;
  return *one;
}

} // namespace

int typ_DebugFlags::GetDebugFlags(int component) {
  Levels& all = levels();
  std::shared_lock const guard(all.mutex);
  auto const level = all.byComponent.find(component);
  return level == all.byComponent.end() ? 0 : level->second;
}

void typ_DebugFlags::SetDebugFlags(int component, int level) {
  Levels& all = levels();
  std::unique_lock const guard(all.mutex);
  all.byComponent[component] = level;
}
