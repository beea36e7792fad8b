// long_run: how much a random or bounded test does; more than in the daily run when the environment says so.
#pragma once

#include <charconv>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

/// A whole number from the environment.
/// @returns the given value when the variable is not set
/// @throws std::runtime_error when the variable holds anything but a whole number
inline long long setting(char const* variable, long long otherwise) {
  char const* const text = std::getenv(variable);
  if (text == nullptr) {
    return otherwise;
  }
  std::string_view const digits(text);
  long long number = 0;
  auto const [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc() || end != digits.data() + digits.size()) {
    throw std::runtime_error(std::string(variable) + " is not a number: " + text);
  }
  return number;
}
