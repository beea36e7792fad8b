// os_Tls.cpp: per-thread slots through the replaceable run-time calls.
#include "os_Tls.h"

#include "os_Recorder.h"
#include "os_Runtime.h"

unsigned TlsAlloc() {
  return os_runtimeCalls().tlsAlloc();
}

void* TlsGetValue(unsigned slot) {
  return os_runtimeCalls().tlsGetValue(slot);
}

bool TlsSetValue(unsigned slot, void* value) {
  return os_runtimeCalls().tlsSetValue(slot, value);
}

bool TlsFree(unsigned slot) {
  return os_runtimeCalls().tlsFree(slot);
}

void DisableThreadLibraryCalls(void* /*module*/) {
  os_recordCall("DisableThreadLibraryCalls");
}
