// Pools of small blocks: pages of equal blocks that belong to threads.
#include "mem_BlockPool.h"

#include <atomic>
#include <bit>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <new>

#include <pthread.h>
#include <sys/mman.h>

#if __has_include(<valgrind/valgrind.h>)
#include <valgrind/valgrind.h>
#define MEM_RUNS_ON_VALGRIND RUNNING_ON_VALGRIND
#else
#define MEM_RUNS_ON_VALGRIND 0
#endif

#if defined(__SANITIZE_ADDRESS__)
#define MEM_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MEM_ADDRESS_SANITIZER 1
#endif
#endif
#ifndef MEM_ADDRESS_SANITIZER
#define MEM_ADDRESS_SANITIZER 0
#endif
#if MEM_ADDRESS_SANITIZER
#include <sanitizer/lsan_interface.h>
#endif

// The whole works like this. A chunk is a large aligned piece of memory from the system, cut into pages. A
// page holds blocks of one size class and belongs to one thread's heap, which allocates from it and frees
// into it without a lock. A block that another thread frees goes, under the lock, to a list of the owning
// heap, which looks there before it takes a new page. When a thread ends, its empty pages go back and the
// others become nobody's: a block freed into such a page goes straight into it, and the next heap that needs
// a page of the class takes it over.

namespace {

constexpr std::size_t pageSize = std::size_t{64} << 10;
constexpr std::size_t chunkSize = std::size_t{2} << 20;
constexpr std::size_t pagesPerChunk = chunkSize / pageSize;
// Empty pages that stay with the pool for the next need of any class.
constexpr std::size_t keptEmptyPages = 2 * pagesPerChunk;

// Class 0 is that of counters; the others are multiples of 8 bytes.
constexpr std::size_t smallestBlock = 4;
constexpr std::size_t classStep = 8;
constexpr std::size_t classCount = 1 + mem_poolLargestBlock / classStep;

constexpr std::size_t classOf(std::size_t size) noexcept {
  return size <= smallestBlock ? 0 : (size + classStep - 1) / classStep;
}
constexpr std::size_t blockSizeOf(std::size_t sizeClass) noexcept {
  return sizeClass == 0 ? smallestBlock : sizeClass * classStep;
}

struct Heap;

// Where a block begins in its page [byte]; a free block of 4 bytes has room for the place of the next.
using Place = std::uint32_t;
constexpr Place noPlace = 0;

struct Page {
  std::atomic<Heap*> owner; // null when nobody's; changes under the lock
  Place freeBlocks;         // list, linked through the first 4 bytes of the blocks
  Place untouched;          // where the part begins that was never handed out
  std::atomic<std::uint32_t> used;
  std::uint32_t blockSize;
  std::uint32_t sizeClass;
  bool available; // in the list of pages with room, its heap's or nobody's
  Page* next;     // in that list, or in the list of empty pages
  Page* previous;

  // Under the lock.
  Page* nextInUse;
  Page* previousInUse;
  Place remoteBlocks; // freed by other threads
  std::uint32_t remoteCount;
  Page* nextRemote;           // the next page of the heap with such blocks
  std::uint32_t emptyInChunk; // of the chunk that this page is the first of
};

constexpr std::size_t firstBlock = 128;
static_assert(sizeof(Page) <= firstBlock);

struct Heap {
  Page* withRoom[classCount] = {};
  std::atomic<bool> hasRemote{false};
  Page* remotePages = nullptr; // under the lock
};

// None of this is ever destroyed: blocks are freed until the very end of the process.
constinit std::mutex lock;
constinit Page* inUse[classCount] = {};
constinit Page* nobodys[classCount] = {};
constinit Page* emptyPages = nullptr;
constinit std::size_t emptyPageCount = 0;
constinit std::size_t chunkCount = 0;
constinit bool exitKeyMade = false;
constinit pthread_key_t exitKey = 0;
constinit std::atomic<std::size_t> heapBlocks[classCount] = {};

// Initial-exec: a pointer is little enough for the reserve that the loader keeps, and access is one
// instruction.
[[gnu::tls_model("initial-exec")]] constinit thread_local Heap* threadHeap = nullptr;

Page* pageOf(void* block) noexcept {
  return std::bit_cast<Page*>(std::bit_cast<std::uintptr_t>(block) & ~std::uintptr_t{pageSize - 1});
}
char* baseOf(Page& page) noexcept {
  return reinterpret_cast<char*>(&page);
}
Page& firstPageOfChunk(Page& page) noexcept {
  return *std::bit_cast<Page*>(std::bit_cast<std::uintptr_t>(&page) & ~std::uintptr_t{chunkSize - 1});
}
bool hasRoom(Page const& page) noexcept {
  return page.freeBlocks != noPlace || page.untouched + page.blockSize <= pageSize;
}

void pushFront(Page*& list, Page& page) noexcept {
  page.previous = nullptr;
  page.next = list;
  if (list) {
    list->previous = &page;
  }
  list = &page;
}
void unlink(Page*& list, Page& page) noexcept {
  (page.previous ? page.previous->next : list) = page.next;
  if (page.next) {
    page.next->previous = page.previous;
  }
}

// A place on a page that has room.
Place takePlace(Page& page) noexcept {
  Place place = page.freeBlocks;
  if (place != noPlace) {
    std::memcpy(&page.freeBlocks, baseOf(page) + place, sizeof place);
  } else {
    place = page.untouched;
    page.untouched += page.blockSize;
  }
  page.used.store(page.used.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  return place;
}
void pushPlace(Page& page, Place& list, Place place) noexcept {
  std::memcpy(baseOf(page) + place, &list, sizeof place);
  list = place;
}
// One block fewer is used. Returns whether the page is empty now.
bool giveBackPlace(Page& page, Place place) noexcept {
  pushPlace(page, page.freeBlocks, place);
  std::uint32_t const left = page.used.load(std::memory_order_relaxed) - 1;
  page.used.store(left, std::memory_order_relaxed);
  return left == 0;
}

// ---- Chunks and empty pages; all under the lock ----

void* mapChunk() {
  void* const raw =
      ::mmap(nullptr, 2 * chunkSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED) {
    throw std::bad_alloc();
  }
  auto const begin = std::bit_cast<std::uintptr_t>(raw);
  std::uintptr_t const aligned = (begin + chunkSize - 1) & ~std::uintptr_t{chunkSize - 1};
  char* const chunk = static_cast<char*>(raw) + (aligned - begin);
  if (aligned != begin) {
    ::munmap(raw, aligned - begin);
  }
  if (begin + chunkSize != aligned) {
    ::munmap(chunk + chunkSize, begin + chunkSize - aligned);
  }
  // A process with few blocks pays only for the pages that it touches; one with many searches faster in huge
  // pages.
  if (chunkCount != 0) {
    ::madvise(chunk, chunkSize, MADV_HUGEPAGE);
  }
  return chunk;
}

void addChunk() {
  auto* const chunk = static_cast<char*>(mapChunk());
  for (std::size_t index = pagesPerChunk; index-- != 0;) {
    pushFront(emptyPages, *::new (chunk + index * pageSize) Page());
  }
  std::launder(reinterpret_cast<Page*>(chunk))->emptyInChunk = pagesPerChunk;
  emptyPageCount += pagesPerChunk;
  ++chunkCount;
}

Page& takeEmptyPage(std::size_t sizeClass) {
  if (!emptyPages) {
    addChunk();
  }
  Page& page = *emptyPages;
  unlink(emptyPages, page);
  --emptyPageCount;
  --firstPageOfChunk(page).emptyInChunk;
  page.freeBlocks = noPlace;
  page.untouched = firstBlock;
  page.blockSize = static_cast<std::uint32_t>(blockSizeOf(sizeClass));
  page.sizeClass = static_cast<std::uint32_t>(sizeClass);
  page.available = false;
  page.remoteBlocks = noPlace;
  page.remoteCount = 0;
  page.previousInUse = nullptr;
  page.nextInUse = inUse[sizeClass];
  if (page.nextInUse) {
    page.nextInUse->previousInUse = &page;
  }
  inUse[sizeClass] = &page;
  return page;
}

void putEmptyPage(Page& page) noexcept {
  (page.previousInUse ? page.previousInUse->nextInUse : inUse[page.sizeClass]) = page.nextInUse;
  if (page.nextInUse) {
    page.nextInUse->previousInUse = page.previousInUse;
  }
  page.owner.store(nullptr, std::memory_order_relaxed);
  pushFront(emptyPages, page);
  ++emptyPageCount;
  Page& first = firstPageOfChunk(page);
  if (++first.emptyInChunk == pagesPerChunk && emptyPageCount >= keptEmptyPages) {
    for (std::size_t index = 0; index != pagesPerChunk; ++index) {
      unlink(emptyPages, *std::launder(reinterpret_cast<Page*>(baseOf(first) + index * pageSize)));
    }
    emptyPageCount -= pagesPerChunk;
    --chunkCount;
    ::munmap(&first, chunkSize);
  }
}

// ---- Heaps ----

void pageIsEmpty(Heap& heap, Page& page) noexcept {
  // The last page with room of a class stays, so that a block that comes and goes costs no page each time.
  Page*& list = heap.withRoom[page.sizeClass];
  if (list == &page && !page.next) {
    return;
  }
  unlink(list, page);
  std::lock_guard const guard(lock);
  putEmptyPage(page);
}

// Takes back what other threads freed; under the lock.
void collectRemote(Heap& heap) noexcept {
  heap.hasRemote.store(false, std::memory_order_relaxed);
  while (Page* const page = heap.remotePages) {
    heap.remotePages = page->nextRemote;
    while (page->remoteBlocks != noPlace) {
      Place const place = page->remoteBlocks;
      std::memcpy(&page->remoteBlocks, baseOf(*page) + place, sizeof place);
      giveBackPlace(*page, place);
    }
    page->remoteCount = 0;
    if (!page->available) {
      page->available = true;
      pushFront(heap.withRoom[page->sizeClass], *page);
    }
  }
}

// The thread that runs this ends: its pages go back or become nobody's.
void handOver(void* ending) noexcept {
  auto* const heap = static_cast<Heap*>(ending);
  threadHeap = nullptr;
  std::lock_guard const guard(lock);
  collectRemote(*heap);
  for (std::size_t sizeClass = 0; sizeClass != classCount; ++sizeClass) {
    Page* following = nullptr;
    for (Page* page = inUse[sizeClass]; page; page = following) {
      following = page->nextInUse;
      if (page->owner.load(std::memory_order_relaxed) != heap) {
        continue;
      }
      if (page->used.load(std::memory_order_relaxed) == 0) {
        putEmptyPage(*page);
        continue;
      }
      page->owner.store(nullptr, std::memory_order_relaxed);
      if (page->available) {
        pushFront(nobodys[sizeClass], *page);
      }
    }
  }
  delete heap;
}

Heap& makeHeap() {
  auto* const heap = new Heap;
  std::lock_guard const guard(lock);
  if (!exitKeyMade) {
    exitKeyMade = ::pthread_key_create(&exitKey, handOver) == 0;
  }
  // Without the notice the pages of this thread stay its own after its end, which wastes them and breaks
  // nothing.
  if (exitKeyMade) {
    static_cast<void>(::pthread_setspecific(exitKey, heap));
  }
  threadHeap = heap;
  return *heap;
}

// A page of the class with room, at the head of the heap's list.
Page& findPage(Heap& heap, std::size_t sizeClass) {
  std::lock_guard const guard(lock);
  if (heap.hasRemote.load(std::memory_order_relaxed)) {
    collectRemote(heap);
    if (heap.withRoom[sizeClass]) {
      return *heap.withRoom[sizeClass];
    }
  }
  Page* page = nobodys[sizeClass];
  if (page) {
    unlink(nobodys[sizeClass], *page);
  } else {
    page = &takeEmptyPage(sizeClass);
  }
  page->owner.store(&heap, std::memory_order_relaxed);
  page->available = true;
  pushFront(heap.withRoom[sizeClass], *page);
  return *page;
}

void* takeBlock(Heap& heap, Page& page) noexcept {
  Place const place = takePlace(page);
  if (!hasRoom(page)) {
    page.available = false;
    unlink(heap.withRoom[page.sizeClass], page);
  }
  return baseOf(page) + place;
}

[[gnu::noinline]] void* allocateSlowly(std::size_t size) {
  if (size > mem_poolLargestBlock) {
    return ::operator new(size);
  }
  std::size_t const sizeClass = classOf(size);
  if (mem_poolUsesHeap()) {
    void* const block = ::operator new(size);
    heapBlocks[sizeClass].fetch_add(1, std::memory_order_relaxed);
    return block;
  }
  Heap& heap = threadHeap ? *threadHeap : makeHeap();
  return takeBlock(heap, findPage(heap, sizeClass));
}

// A block of another thread's page, or of nobody's.
void freeRemotely(Page& page, Place place) noexcept {
  std::lock_guard const guard(lock);
  if (Heap* const heap = page.owner.load(std::memory_order_relaxed)) {
    if (page.remoteCount++ == 0) {
      page.nextRemote = heap->remotePages;
      heap->remotePages = &page;
      heap->hasRemote.store(true, std::memory_order_relaxed);
    }
    pushPlace(page, page.remoteBlocks, place);
    return;
  }
  bool const empty = giveBackPlace(page, place);
  if (empty) {
    if (page.available) {
      unlink(nobodys[page.sizeClass], page);
    }
    putEmptyPage(page);
  } else if (!page.available) {
    page.available = true;
    pushFront(nobodys[page.sizeClass], page);
  }
}

[[gnu::noinline]] void freeSlowly(void* block, std::size_t size) noexcept {
  if (!block) {
    return;
  }
  if (size > mem_poolLargestBlock) {
    ::operator delete(block);
    return;
  }
  if (mem_poolUsesHeap()) {
    heapBlocks[classOf(size)].fetch_sub(1, std::memory_order_relaxed);
    ::operator delete(block);
    return;
  }
  Page& page = *pageOf(block);
  freeRemotely(page, static_cast<Place>(static_cast<char*>(block) - baseOf(page)));
}

} // namespace

void* mem_poolAllocate(std::size_t size) {
  Heap* const heap = threadHeap;
  if (heap && size <= mem_poolLargestBlock) [[likely]] {
    if (Page* const page = heap->withRoom[classOf(size)]) [[likely]] {
      return takeBlock(*heap, *page);
    }
  }
  return allocateSlowly(size);
}

void mem_poolFree(void* block, std::size_t size) noexcept {
  Heap* const heap = threadHeap;
  if (!heap || !block || size > mem_poolLargestBlock) [[unlikely]] {
    freeSlowly(block, size);
    return;
  }
  Page& page = *pageOf(block);
  auto const place = static_cast<Place>(static_cast<char*>(block) - baseOf(page));
  if (page.owner.load(std::memory_order_relaxed) != heap) [[unlikely]] {
    freeRemotely(page, place);
    return;
  }
  bool const empty = giveBackPlace(page, place);
  if (!page.available) {
    page.available = true;
    pushFront(heap->withRoom[page.sizeClass], page);
  }
  if (empty) [[unlikely]] {
    pageIsEmpty(*heap, page);
  }
}

std::size_t mem_poolLiveBlocks(std::size_t size) {
  std::size_t const sizeClass = classOf(size);
  std::size_t live = heapBlocks[sizeClass].load(std::memory_order_relaxed);
  std::lock_guard const guard(lock);
  for (Page const* page = inUse[sizeClass]; page; page = page->nextInUse) {
    live += page->used.load(std::memory_order_relaxed) - page->remoteCount;
  }
  return live;
}

std::size_t mem_poolReservedBytes() {
  std::lock_guard const guard(lock);
  return chunkCount * chunkSize;
}

bool mem_poolUsesHeap() noexcept {
#if MEM_ADDRESS_SANITIZER
  return true;
#else
  static bool const valgrind = MEM_RUNS_ON_VALGRIND != 0;
  return valgrind;
#endif
}

void mem_forget(void const* block) noexcept {
#if MEM_ADDRESS_SANITIZER
  if (block) {
    __lsan_ignore_object(block);
  }
#else
  static_cast<void>(block);
#endif
}
