// long_run: how much a random or bounded test does; more than in the daily run when the environment says so.
#pragma once

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

/// A number from the environment, of the type of the value that is given for none.
/// @returns the given value when the variable is not set
/// @throws std::runtime_error when the variable holds anything but a finite number of that type
template <class Number>
Number settingOf(char const* variable, Number otherwise) {
  char const* const text = std::getenv(variable);
  if (text == nullptr) {
    return otherwise;
  }
  std::string_view const digits(text);
  Number number{};
  auto const [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc() || end != digits.data() + digits.size() || !std::isfinite(number)) {
    throw std::runtime_error(std::string(variable) + " is not a number: " + text);
  }
  return number;
}

/// A whole number from the environment.
inline long long setting(char const* variable, long long otherwise) {
  return settingOf(variable, otherwise);
}

/// A decimal number from the environment: "0.5".
inline double decimalSetting(char const* variable, double otherwise) {
  return settingOf(variable, otherwise);
}
