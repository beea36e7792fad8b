// A value that is counted while it lives and that throws on copying when told to.
#pragma once

#include <stdexcept>

/// Thrown by Tracked.
struct CopyFailed : std::runtime_error {
  CopyFailed() : std::runtime_error("copying was made to fail") {}
};

/// A number whose copies can be counted and made to fail.
class Tracked {
public:
  Tracked() : Tracked(0) {}
  Tracked(int theNumber) : number(theNumber) { ++live; }
  Tracked(Tracked const& other) : number(other.number) {
    CountCopy();
    ++live;
  }
  Tracked& operator=(Tracked const& other) {
    CountCopy();
    number = other.number;
    return *this;
  }
  ~Tracked() { --live; }

  int Number() const { return number; }
  friend bool operator==(Tracked const& left, Tracked const& right) { return left.number == right.number; }

  /// Objects that exist.
  static inline int live = 0;
  /// Copies made so far, failed ones included.
  static inline int copies = 0;
  /// How many copies have failed.
  static inline int failures = 0;
  /// The copy that fails, counted down by each: 1 is the next one; 0 for none.
  static inline int failAt = 0;

private:
  static void CountCopy() {
    ++copies;
    if (failAt != 0 && --failAt == 0) {
      ++failures;
      throw CopyFailed();
    }
  }

  int number;
};
