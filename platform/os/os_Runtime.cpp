// os_Runtime.cpp: the real run-time calls.
#include "os_Runtime.h"

#include "os_Tls.h"

#include <pthread.h>
#include <time.h>

#include <mutex>
#include <type_traits>

static_assert(std::is_same_v<pthread_key_t, unsigned>, "a slot is a pthread key");
static_assert(sizeof(std::time_t) == sizeof(std::int64_t), "the run time's own times have 64 bits");

namespace {

std::int64_t realTime64(std::int64_t* seconds) {
  std::int64_t const now = ::time(nullptr);
  if (seconds != nullptr) {
    *seconds = now;
  }
  return now;
}

// The C library keeps one zone for all threads. Each of these calls may read it anew from the environment,
// while another thread looks at what it held before.
constinit std::mutex zoneMutex;

std::tm* realLocaltime64(std::int64_t const* seconds) {
  static thread_local std::tm buffer;
  std::time_t const moment = *seconds;
  std::scoped_lock const lock(zoneMutex);
  ::tzset(); // localtime_r need not look at the environment again
  return ::localtime_r(&moment, &buffer);
}

long realTimezone() {
  std::scoped_lock const lock(zoneMutex);
  ::tzset();
  return ::timezone;
}

std::size_t realStrftime(char* text, std::size_t size, char const* format, std::tm const* time) {
  std::scoped_lock const lock(zoneMutex);
  return std::strftime(text, size, format, time);
}

unsigned realTlsAlloc() {
  pthread_key_t key = 0;
  return ::pthread_key_create(&key, nullptr) == 0 ? key : TLS_OUT_OF_INDEXES;
}

void* realTlsGetValue(unsigned slot) {
  return slot == TLS_OUT_OF_INDEXES ? nullptr : ::pthread_getspecific(slot);
}

bool realTlsSetValue(unsigned slot, void* value) {
  return slot != TLS_OUT_OF_INDEXES && ::pthread_setspecific(slot, value) == 0;
}

bool realTlsFree(unsigned slot) {
  return slot != TLS_OUT_OF_INDEXES && ::pthread_key_delete(slot) == 0;
}

} // namespace

os_RuntimeCalls::os_RuntimeCalls() noexcept
    : time64(realTime64), localtime64(realLocaltime64), timezone(realTimezone), strftime(realStrftime),
      tlsAlloc(realTlsAlloc), tlsGetValue(realTlsGetValue), tlsSetValue(realTlsSetValue),
      tlsFree(realTlsFree) {}

os_RuntimeCalls& os_runtimeCalls() {
  static os_RuntimeCalls calls; // nothing to destroy: good until the process has ended
  return calls;
}
