// counting.cpp: stands before the system's fsync and fdatasync, and before operator new.
#include "counting.h"

#include "mem_BlockPool.h"

#include <cstdlib>
#include <malloc.h>
#include <new>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::uint64_t syncs = 0;
std::uint64_t news = 0;

} // namespace

// The dynamic linker finds these before the C library's, for SQLite too.
extern "C" {
[[gnu::visibility("default")]] int fsync(int descriptor) {
  ++syncs;
  return static_cast<int>(syscall(SYS_fsync, descriptor));
}
[[gnu::visibility("default")]] int fdatasync(int descriptor) {
  ++syncs;
  return static_cast<int>(syscall(SYS_fdatasync, descriptor));
}
}

void* operator new(std::size_t size) {
  ++news;
  if (void* const block = std::malloc(size == 0 ? 1 : size)) {
    return block;
  }
  throw std::bad_alloc();
}

void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
  ++news;
  return std::malloc(size == 0 ? 1 : size);
}

void operator delete(void* block) noexcept {
  std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}

std::uint64_t syncsSoFar() noexcept {
  return syncs;
}

std::uint64_t newsSoFar() noexcept {
  return news;
}

std::size_t poolBlocks() {
  std::size_t blocks = 0;
  for (std::size_t size = 4; size <= mem_poolLargestBlock; size += 4) {
    blocks += mem_poolLiveBlocks(size); // sizes that share a class count several times
  }
  return blocks;
}

std::size_t memoryInUse() {
  struct mallinfo2 const heap = mallinfo2();
  return heap.uordblks + heap.hblkhd + (mem_poolUsesHeap() ? 0 : mem_poolReservedBytes());
}
