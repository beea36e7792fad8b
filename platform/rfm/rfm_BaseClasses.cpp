// rfm_BaseClasses.cpp: which classes of a class list are derived from which.
#include "rfm_BaseClasses.h"

#include "rfm_ClassEntry.h"

rfm_BaseClasses::rfm_BaseClasses(std::vector<std::pair<unsigned, unsigned>> const& derivations) {
  for (auto const& [typeId, baseTypeId] : derivations) {
    std::size_t const place = Place(typeId);
    if (baseTypeId != rfm_NoBaseTypeId) {
      std::size_t const base = Place(baseTypeId);
      classes[place].base = base;
    }
  }
  for (std::size_t place = 0; place < classes.size(); ++place) {
    Resolve(place);
  }
}

std::size_t rfm_BaseClasses::Place(unsigned typeId) {
  auto const [found, isNew] = places.emplace(typeId, classes.size());
  if (isNew) {
    classes.emplace_back(typeId);
  }
  return found->second;
}

// Goes from base to base to one that is resolved, or that has no base, or that was met on the way; then back.
void rfm_BaseClasses::Resolve(std::size_t place) {
  std::vector<std::size_t> way;
  std::size_t const unfinished = classes.size();
  while (place != none && classes[place].outermost == none) {
    classes[place].outermost = unfinished;
    way.push_back(place);
    place = classes[place].base;
  }
  if (place == none) {
    classes[way.back()].outermost = way.back();
    classes[way.back()].shortcut = way.back();
    way.pop_back();
  } else if (classes[place].outermost == unfinished) {
    std::size_t const first = place;
    do {
      place = way.back();
      way.pop_back();
      classes[place].outermost = first;
      classes[place].shortcut = place;
    } while (place != first);
  }
  for (; !way.empty(); way.pop_back()) {
    Resolve(classes[way.back()]);
  }
}

// Shortcuts double their length wherever two of one length follow each other.
void rfm_BaseClasses::Resolve(Class& derived) const {
  Class const& base = classes[derived.base];
  Class const& next = classes[base.shortcut];
  derived.outermost = base.outermost;
  derived.depth = base.depth + 1;
  bool const areAlike = base.depth - next.depth == next.depth - classes[next.shortcut].depth;
  derived.shortcut = areAlike ? next.shortcut : derived.base;
}

std::size_t rfm_BaseClasses::FirstAtDepth(std::size_t place, std::size_t depth) const {
  while (classes[place].depth > depth) {
    std::size_t const shortcut = classes[place].shortcut;
    place = classes[shortcut].depth >= depth ? shortcut : classes[place].base;
  }
  return place;
}

bool rfm_BaseClasses::IsA(unsigned typeId, unsigned wanted) const {
  auto const derived = places.find(typeId);
  auto const base = places.find(wanted);
  if (typeId == wanted || derived == places.end() || base == places.end()) {
    return typeId == wanted;
  }
  Class const& sought = classes[base->second];
  Class const& found = classes[FirstAtDepth(derived->second, sought.depth)];
  return &found == &sought || (found.depth == 0 && sought.depth == 0 && found.outermost == sought.outermost);
}

unsigned rfm_BaseClasses::Outermost(unsigned typeId) const {
  auto const found = places.find(typeId);
  return found == places.end() ? typeId : classes[classes[found->second].outermost].typeId;
}
