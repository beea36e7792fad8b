// quick_sqlite.cpp: lists of free blocks, one for each size.
#include "quick_sqlite.h"

#include <array>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sanitizer/asan_interface.h>
#include <sqlite3.h>
#include <stdexcept>

#if defined(__clang__)
#pragma clang attribute push(__attribute__((no_sanitize("coverage"))),                                       \
                             apply_to = function) // says nothing of a file
#endif

namespace {

constexpr std::size_t step = 64;                // [byte] sizes of small blocks
constexpr std::size_t smallSizes = 32;          // so many of them
constexpr std::size_t largestKept = 128 * 1024; // [byte] larger blocks come and go singly
constexpr std::size_t chunkSize = 1024 * 1024;  // [byte] cut into blocks
constexpr std::size_t lists = smallSizes + 8;   // powers of two follow the small ones
constexpr std::size_t none = lists;

/// Before the bytes of each block.
struct Header {
  Header* next;       // in the list of free blocks
  std::uint32_t size; // [byte] as it was asked for
  std::uint32_t list;

  void* Bytes() { return this + 1; }
  static Header* Of(void* bytes) { return static_cast<Header*>(bytes) - 1; }
};
static_assert(sizeof(Header) == 16);

std::array<Header*, lists> freeBlocks{};
char* chunk = nullptr;
std::size_t chunkLeft = 0;

std::size_t listOf(std::size_t size) {
  if (size <= step * smallSizes) {
    return (size + step - 1) / step - 1;
  }
  return size > largestKept ? none : smallSizes + std::bit_width((size - 1) / (step * smallSizes)) - 1;
}

std::size_t roomOf(std::size_t list) {
  return list < smallSizes ? (list + 1) * step : step * smallSizes << (list - smallSizes + 1);
}

Header* cut(std::size_t list) {
  std::size_t const needed = sizeof(Header) + roomOf(list);
  if (chunkLeft < needed) {
    chunk = static_cast<char*>(std::malloc(chunkSize));
    chunkLeft = chunk == nullptr ? 0 : chunkSize;
    if (chunk == nullptr) {
      return nullptr;
    }
    ASAN_POISON_MEMORY_REGION(chunk, chunkSize);
  }
  auto* const block = reinterpret_cast<Header*>(chunk);
  chunk += needed;
  chunkLeft -= needed;
  ASAN_UNPOISON_MEMORY_REGION(block, sizeof(Header));
  return block;
}

void* take(int wanted) {
  auto const size = static_cast<std::size_t>(wanted);
  std::size_t const list = listOf(size);
  Header* block = nullptr;
  if (list == none) {
    block = static_cast<Header*>(std::malloc(sizeof(Header) + size));
  } else if (freeBlocks[list] != nullptr) {
    block = freeBlocks[list];
    freeBlocks[list] = block->next;
  } else {
    block = cut(list);
  }
  if (block == nullptr) {
    return nullptr;
  }
  block->size = static_cast<std::uint32_t>(size);
  block->list = static_cast<std::uint32_t>(list);
  ASAN_UNPOISON_MEMORY_REGION(block->Bytes(), size);
  return block->Bytes();
}

void giveBack(void* bytes) {
  if (bytes == nullptr) {
    return;
  }
  Header* const block = Header::Of(bytes);
  if (block->list == none) {
    std::free(block);
    return;
  }
  ASAN_POISON_MEMORY_REGION(bytes, roomOf(block->list));
  block->next = freeBlocks[block->list];
  freeBlocks[block->list] = block;
}

void* resize(void* bytes, int wanted) {
  Header* const block = Header::Of(bytes);
  auto const size = static_cast<std::size_t>(wanted);
  if (block->list != none && size <= roomOf(block->list)) {
    ASAN_POISON_MEMORY_REGION(bytes, roomOf(block->list));
    ASAN_UNPOISON_MEMORY_REGION(bytes, size);
    block->size = static_cast<std::uint32_t>(size);
    return bytes;
  }
  void* const larger = take(wanted);
  if (larger != nullptr) {
    std::memcpy(larger, bytes, size < block->size ? size : block->size);
    giveBack(bytes);
  }
  return larger;
}

int sizeOf(void* bytes) {
  return bytes == nullptr ? 0 : static_cast<int>(Header::Of(bytes)->size);
}

int roundUp(int size) {
  constexpr int unit = 8;
  return (size + unit - 1) / unit * unit;
}

int begin(void*) {
  return SQLITE_OK;
}

void end(void*) {}

sqlite3_mem_methods const methods{take, giveBack, resize, sizeOf, roundUp, begin, end, nullptr};

} // namespace

void use_quick_sqlite() {
  if (sqlite3_shutdown() != SQLITE_OK || sqlite3_config(SQLITE_CONFIG_SINGLETHREAD) != SQLITE_OK ||
      sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0) != SQLITE_OK ||
      sqlite3_config(SQLITE_CONFIG_MALLOC, &methods) != SQLITE_OK || sqlite3_initialize() != SQLITE_OK) {
    throw std::runtime_error("SQLite cannot be set up");
  }
}

#if defined(__clang__)
#pragma clang attribute pop
#endif
