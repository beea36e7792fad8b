// shared_memory: what a process and its children both see and change.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <stdexcept>
#include <sys/mman.h>
#include <type_traits>

struct shared_memory_release {
  std::size_t size;
  void operator()(void* bytes) const noexcept { munmap(bytes, size); }
};

/// An object that child processes share which are made while it is held; what one of them has changed stays
/// when it is killed.
template <class Type>
using shared_memory = std::unique_ptr<Type, shared_memory_release>;

/// @throws std::runtime_error when there is no memory
template <class Type>
shared_memory<Type> share_memory() {
  static_assert(std::is_trivially_destructible_v<Type>);
  void* const made = mmap(nullptr, sizeof(Type), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (made == MAP_FAILED) {
    throw std::runtime_error("no memory to share");
  }
  return {new (made) Type{}, {sizeof(Type)}};
}
