#include "rom_CowBarn.h"

rom_CowBarn::~rom_CowBarn() {
  Clear();
}

rom_CowBarn::Handle const* rom_CowBarn::Find(unsigned classId, int row) const {
  auto found = handles.find({classId, row});
  return found == handles.end() ? nullptr : found->second.handle;
}

rom_CowBarn::Handle const* rom_CowBarn::Insert(unsigned classId, int row, Handle* handle,
                                               cls_HandleDestructor release) {
  try {
    auto [place, added] = handles.try_emplace({classId, row}, Kept{handle, release});
    if (!added) {
      place->second.release(place->second.handle);
      place->second = Kept{handle, release};
    }
  } catch (...) {
    release(handle);
    throw;
  }
  return handle;
}

void rom_CowBarn::Clear() noexcept {
  ++generation;
  auto const released = std::exchange(handles, {});
  for (auto const& [row, kept] : released) {
    kept.release(kept.handle);
  }
}
