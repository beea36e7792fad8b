// Random numbers of plain type.
#pragma once

#include <random>
#include <string>

/// A generator whose seed a test prints, so that a failure can be repeated.
class Random {
public:
  explicit Random(unsigned seed) : engine(seed) {}
  /// A number of 32 bits.
  unsigned operator()() { return static_cast<unsigned>(engine()); }

private:
  std::mt19937 engine;
};

/// "k17" from "k" and 17.
inline std::string numbered(std::string prefix, int number) {
  return prefix.append(std::to_string(number));
}
