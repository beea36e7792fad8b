// The order of the keys in balanced trees.
#pragma once

#include "atr_String.h"
#include "cow_String.h"

/// The order of keys of type K: that of operator<.
///
/// A Probe is a key prepared for many comparisons; it borrows the key.
template <class K>
class cow_KeyOrder {
public:
  class Probe {
  public:
    explicit Probe(K const& wanted) noexcept : key(wanted) {}
    /// Negative, 0 or positive: the wanted key comes before, equals or comes after \p other.
    int Compare(K const& other) const { return cow_KeyOrder::Compare(key, other); }

  private:
    K const& key;
  };

  /// -1, 0 or 1.
  static int Compare(K const& left, K const& right) {
    if (left < right) {
      return -1;
    }
    return right < left ? 1 : 0;
  }
};

/// The order of texts: by bytes, or the natural order while atr_getNaturalOrder() is on. The setting is read
/// at every comparison; changing it while a tree holds entries breaks that tree's order.
// Kept on purpose: nothing guards against such a change; hosts set the order once, before they read anything.
template <>
class cow_KeyOrder<cow_String> {
public:
  class Probe {
  public:
    explicit Probe(cow_String const& wanted) noexcept : key(wanted) {}
    /// Negative, 0 or positive: the wanted text comes before, equals or comes after \p other.
    int Compare(cow_String const& other) const noexcept { return cow_KeyOrder::Compare(key, other); }

  private:
    cow_String const& key;
  };

  /// Negative, 0 or positive.
  static int Compare(cow_String const& left, cow_String const& right) noexcept {
    if (atr_getNaturalOrder() != 0) [[unlikely]] {
      return strnatcmp(left.Text(), right.Text());
    }
    return cow_String::Compare(left, right);
  }
};
