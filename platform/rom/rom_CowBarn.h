// rom_CowBarn: the object cache of one transporter.
#pragma once

#include "cls_ClassMetadata.h"
#include "os_Export.h"

#include <cstdint>
#include <map>
#include <utility>

/// Keeps objects that several references lead to, so that each is built once and shared.
///
/// It holds erased handles, one for each stored row, and only of classes that registered a handle destructor.
/// Clearing it also begins a new pass of writing: an object may be written once more. One thread at a time.
class DDR_API rom_CowBarn {
public:
  using Handle = cow_COW<int, cow_Direct<int>>;

  rom_CowBarn() = default;
  ~rom_CowBarn();
  rom_CowBarn(rom_CowBarn const&) = delete;
  rom_CowBarn& operator=(rom_CowBarn const&) = delete;

  /// The handle kept for a row, or null.
  Handle const* Find(unsigned classId, int row) const;
  /// Keeps a handle; adopts it. `release` is called for it when the cache is cleared; it must not be null.
  Handle const* Insert(unsigned classId, int row, Handle* handle, cls_HandleDestructor release);
  /// Lets every handle go.
  void Clear() noexcept;
  int Size() const noexcept { return static_cast<int>(handles.size()); }
  /// How often the cache was cleared.
  std::uint64_t Generation() const noexcept { return generation; }

private:
  struct Kept {
    Handle* handle;
    cls_HandleDestructor release;
  };
  std::map<std::pair<unsigned, int>, Kept> handles;
  std::uint64_t generation = 0;
};
