// failing_memory.cpp: takes the ways to memory over.
#include "failing_memory.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>
#include <sqlite3.h>
#include <utility>

namespace {

struct Watch {
  std::uint64_t allocations = 0;
  std::uint64_t failures = 0;
  std::uint64_t failing = 0; // number of the allocation that fails; 0 for none
  bool lasting = false;
};

constinit Watch watch;
constinit std::atomic<std::int64_t> live{0};
constinit thread_local bool counting = false;
// A pool is at work: what it takes from below is part of one allocation.
constinit thread_local bool inside = false;

// Whether the allocation that is asked for now must fail.
bool fails() noexcept {
  if (!counting || inside) {
    return false;
  }
  ++watch.allocations;
  bool const chosen = watch.failing != 0 && (watch.allocations == watch.failing ||
                                             (watch.lasting && watch.allocations > watch.failing));
  watch.failures += chosen ? 1 : 0;
  return chosen;
}

void count(std::int64_t blocks) noexcept {
  if (!inside) {
    live.fetch_add(blocks, std::memory_order_relaxed);
  }
}

void* counted(void* block) noexcept {
  if (block != nullptr) {
    count(1);
  }
  return block;
}

void* allocate(std::size_t size) noexcept {
  return fails() ? nullptr : counted(std::malloc(std::max<std::size_t>(size, 1)));
}

void* allocate(std::size_t size, std::align_val_t alignment) noexcept {
  auto const step = static_cast<std::size_t>(alignment);
  std::size_t const whole = (std::max<std::size_t>(size, 1) + step - 1) / step * step;
  return fails() ? nullptr : counted(std::aligned_alloc(step, whole));
}

void release(void* block) noexcept {
  if (block != nullptr) {
    count(-1);
    std::free(block);
  }
}

void* orThrow(void* block) {
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}

class Inside {
public:
  Inside() noexcept : before(inside) { inside = true; }
  ~Inside() { inside = before; }
  Inside(Inside const&) = delete;
  Inside& operator=(Inside const&) = delete;

private:
  bool before;
};

sqlite3_mem_methods sqliteMemory;

// Before SQLite is used for the first time.
struct SqliteTakenOver {
  SqliteTakenOver() {
    sqlite3_config(SQLITE_CONFIG_GETMALLOC, &sqliteMemory);
    sqlite3_mem_methods mine = sqliteMemory;
    mine.xMalloc = [](int size) { return fails() ? nullptr : counted(sqliteMemory.xMalloc(size)); };
    mine.xRealloc = [](void* block, int size) {
      return fails() ? nullptr : sqliteMemory.xRealloc(block, size);
    };
    mine.xFree = [](void* block) {
      if (block != nullptr) {
        count(-1);
        sqliteMemory.xFree(block);
      }
    };
    // What a connection and its pages have allocated in advance is not used, so that each block is asked for
    // here.
    if (sqlite3_config(SQLITE_CONFIG_MALLOC, &mine) != SQLITE_OK ||
        sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0) != SQLITE_OK ||
        sqlite3_config(SQLITE_CONFIG_PAGECACHE, nullptr, 0, 0) != SQLITE_OK) {
      std::abort(); // a test would look at nothing
    }
  }
};

SqliteTakenOver const sqliteTakenOver;

} // namespace

// The linker leads every call to the name without the prefix to the first of each pair, and leaves the
// function itself under the second.
void* poolAllocate(std::size_t size) asm("__wrap__Z16mem_poolAllocatem");
void* realPoolAllocate(std::size_t size) asm("__real__Z16mem_poolAllocatem");
void poolFree(void* block, std::size_t size) noexcept asm("__wrap__Z12mem_poolFreePvm");
void realPoolFree(void* block, std::size_t size) noexcept asm("__real__Z12mem_poolFreePvm");
void* rawMalloc(std::size_t size) noexcept asm("__wrap__Z10mem_Mallocm");
void* realRawMalloc(std::size_t size) noexcept asm("__real__Z10mem_Mallocm");
void* rawRealloc(void* block, std::size_t size) noexcept asm("__wrap__Z11mem_ReallocPvm");
void* realRawRealloc(void* block, std::size_t size) noexcept asm("__real__Z11mem_ReallocPvm");
void rawFree(void* block) noexcept asm("__wrap__Z8mem_FreePv");
void realRawFree(void* block) noexcept asm("__real__Z8mem_FreePv");

[[gnu::used]] void* poolAllocate(std::size_t size) {
  if (fails()) {
    throw std::bad_alloc();
  }
  void* block = nullptr;
  {
    Inside const one;
    block = realPoolAllocate(size);
  }
  return counted(block);
}

[[gnu::used]] void poolFree(void* block, std::size_t size) noexcept {
  if (block != nullptr) {
    count(-1);
    Inside const one;
    realPoolFree(block, size);
  }
}

[[gnu::used]] void* rawMalloc(std::size_t size) noexcept {
  return fails() ? nullptr : counted(realRawMalloc(size));
}

[[gnu::used]] void* rawRealloc(void* block, std::size_t size) noexcept {
  if (fails()) {
    return nullptr;
  }
  void* const moved = realRawRealloc(block, size);
  return block == nullptr ? counted(moved) : moved;
}

[[gnu::used]] void rawFree(void* block) noexcept {
  if (block != nullptr) {
    count(-1);
    realRawFree(block);
  }
}

void failing_memory::start() noexcept {
  watch = Watch();
  counting = true;
}

void failing_memory::start(std::uint64_t number, Lasting lasting) noexcept {
  watch = Watch();
  watch.failing = number;
  watch.lasting = lasting == Lasting::FromThenOn;
  counting = true;
}

void failing_memory::stop() noexcept {
  counting = false;
}

bool failing_memory::pause() noexcept {
  return std::exchange(counting, false);
}

void failing_memory::resume(bool wasCounting) noexcept {
  counting = wasCounting;
}

std::uint64_t failing_memory::allocations() noexcept {
  return watch.allocations;
}

std::uint64_t failing_memory::failures() noexcept {
  return watch.failures;
}

std::int64_t failing_memory::blocks() noexcept {
  return live.load(std::memory_order_relaxed);
}

void* operator new(std::size_t size) {
  return orThrow(allocate(size));
}
void* operator new[](std::size_t size) {
  return orThrow(allocate(size));
}
void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
  return allocate(size);
}
void* operator new[](std::size_t size, std::nothrow_t const&) noexcept {
  return allocate(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return orThrow(allocate(size, alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return orThrow(allocate(size, alignment));
}
void* operator new(std::size_t size, std::align_val_t alignment, std::nothrow_t const&) noexcept {
  return allocate(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment, std::nothrow_t const&) noexcept {
  return allocate(size, alignment);
}
void operator delete(void* block) noexcept {
  release(block);
}
void operator delete[](void* block) noexcept {
  release(block);
}
void operator delete(void* block, std::size_t) noexcept {
  release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  release(block);
}
void operator delete(void* block, std::nothrow_t const&) noexcept {
  release(block);
}
void operator delete[](void* block, std::nothrow_t const&) noexcept {
  release(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
  release(block);
}
void operator delete[](void* block, std::align_val_t) noexcept {
  release(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
  release(block);
}
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept {
  release(block);
}
void operator delete(void* block, std::align_val_t, std::nothrow_t const&) noexcept {
  release(block);
}
void operator delete[](void* block, std::align_val_t, std::nothrow_t const&) noexcept {
  release(block);
}
