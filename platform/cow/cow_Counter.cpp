// The reference count that copy-on-write handles share: its memory.
#include "cow_Counter.h"

#include "mem_BlockPool.h"

void* cow_Counter::operator new(std::size_t size) {
  return mem_poolAllocate(size);
}

void cow_Counter::operator delete(void* counter) noexcept {
  mem_poolFree(counter, sizeof(cow_Counter));
}

std::size_t cow_Counter::LiveCount() {
  return mem_poolLiveBlocks(sizeof(cow_Counter));
}
