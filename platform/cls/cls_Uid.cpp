#include "cls_Uid.h"

#include <atomic>
#include <mutex>
#include <pthread.h>
#include <random>

namespace {

// The upper 64 bits are drawn once a process (and anew in a forked child); the lower 64 bits start at a
// random 48-bit offset and count up, so two processes that draw the same upper half still differ.
struct Source {
  std::atomic<std::uint64_t> high{0};
  std::atomic<std::uint64_t> low{0};

  void Seed() {
    std::random_device device;
    auto draw = [&device] { return (std::uint64_t{device()} << 32) | device(); };
    high.store(draw() | 1, std::memory_order_relaxed);
    low.store(draw() >> 16, std::memory_order_relaxed);
  }
};

Source& source() {
  static Source theSource;
  static std::once_flag seeded;
  std::call_once(seeded, [] {
    theSource.Seed();
    pthread_atfork(nullptr, nullptr, [] { theSource.Seed(); });
  });
  return theSource;
}

} // namespace

cls_Uid::cls_Uid(Bytes const& stored) noexcept {
  for (std::size_t i = 0; i < 8; ++i) {
    high = (high << 8) | stored[i];
    low = (low << 8) | stored[i + 8];
  }
}

cls_Uid cls_Uid::Allocate() {
  Source& from = source();
  cls_Uid uid;
  uid.high = from.high.load(std::memory_order_relaxed);
  uid.low = from.low.fetch_add(1, std::memory_order_relaxed);
  return uid;
}

cls_Uid::Bytes cls_Uid::Stored() const noexcept {
  Bytes bytes{};
  for (std::size_t i = 0; i < 8; ++i) {
    bytes[i] = static_cast<std::uint8_t>(high >> (56 - 8 * i));
    bytes[i + 8] = static_cast<std::uint8_t>(low >> (56 - 8 * i));
  }
  return bytes;
}

std::string cls_Uid::Text() const {
  static char const digits[] = "0123456789abcdef";
  std::string text;
  text.reserve(32);
  for (std::uint8_t byte : Stored()) {
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}
