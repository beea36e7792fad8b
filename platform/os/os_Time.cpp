// os_Time.cpp: clock, zone and time texts through the replaceable run-time calls.
#include "os_Time.h"

#include "os_Runtime.h"

// NOLINTNEXTLINE(bugprone-reserved-identifier)
std::int64_t _time64(std::int64_t* seconds) {
  return os_runtimeCalls().time64(seconds);
}

// NOLINTNEXTLINE(bugprone-reserved-identifier)
std::tm* _localtime64(std::int64_t const* seconds) {
  return os_runtimeCalls().localtime64(seconds);
}

long os_timezone() {
  return os_runtimeCalls().timezone();
}

std::size_t os_strftime(char* text, std::size_t size, char const* format, std::tm const* time) {
  return os_runtimeCalls().strftime(text, size, format, time);
}
