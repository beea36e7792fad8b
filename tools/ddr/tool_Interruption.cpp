#include "tool_Interruption.h"

namespace {

volatile std::sig_atomic_t wanted = 0;

extern "C" void noteSignal(int) {
  wanted = 1;
}

} // namespace

tool_Interruption::tool_Interruption() {
  wanted = 0;
  struct sigaction noting {};
  noting.sa_handler = noteSignal;
  noting.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
  sigemptyset(&noting.sa_mask);
  for (std::size_t index = 0; index < signals.size(); ++index) {
    sigaction(signals[index], nullptr, &before[index]);
    if (before[index].sa_handler != SIG_IGN) { // nohup means it
      sigaction(signals[index], &noting, nullptr);
    }
  }
}

tool_Interruption::~tool_Interruption() {
  for (std::size_t index = 0; index < signals.size(); ++index) {
    sigaction(signals[index], &before[index], nullptr);
  }
}

bool tool_Interruption::Wanted() const noexcept {
  return wanted != 0;
}
