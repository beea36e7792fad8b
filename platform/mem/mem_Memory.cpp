// mem_Memory.cpp: raw allocation from the run time's heap.
#include "mem_Memory.h"

#include <algorithm>
#include <cstdlib>

namespace {

// A size of 0 may yield null or release the block, depending on the run time; asking for one byte does not.
std::size_t atLeastOne(std::size_t size) {
  return std::max<std::size_t>(size, 1);
}

} // namespace

void* mem_Malloc(std::size_t size) noexcept {
  return std::malloc(atLeastOne(size));
}

void* mem_Realloc(void* block, std::size_t size) noexcept {
  return std::realloc(block, atLeastOne(size));
}

void mem_Free(void* block) noexcept {
  std::free(block);
}
