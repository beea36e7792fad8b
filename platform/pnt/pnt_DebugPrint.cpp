// pnt_DebugPrint.cpp: the stream that debug output goes to.
#include "pnt_DebugPrint.h"

#include <atomic>
#include <iostream>

namespace {
constinit std::atomic<std::ostream*> hostStream{nullptr};
}

std::ostream& pnt_debugPrint() {
  std::ostream* const stream = hostStream.load(std::memory_order_acquire);
  return stream == nullptr ? std::cerr : *stream;
}

void pnt_setDebugPrint(std::ostream* stream) {
  hostStream.store(stream, std::memory_order_release);
}
