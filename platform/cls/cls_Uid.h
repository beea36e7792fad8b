// cls_Uid: the persistent identity of a stored object.
#pragma once

#include "os_Export.h"

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <string>

/// The 128-bit identity under which an object is stored.
///
/// A default-constructed identity is "none"; Allocate() makes one that no other object of any process has.
/// Identities are small values: copying is 16 bytes and never allocates. Allocation is safe from any thread
/// and after a fork; everything else follows the rules of plain values.
class DDR_API cls_Uid {
public:
  using Bytes = std::array<std::uint8_t, 16>;

  /// No identity.
  cls_Uid() noexcept = default;
  /// The identity with the given stored bytes.
  explicit cls_Uid(Bytes const& stored) noexcept;

  /// A new identity, unique across threads, processes and machines. Costs a few nanoseconds.
  /// Identities of one process ascend, so rows indexed by identity are appended in order.
  static cls_Uid Allocate();

  bool IsNone() const noexcept { return high == 0 && low == 0; }
  /// The bytes as they are stored: most significant first.
  Bytes Stored() const noexcept;
  /// 32 hexadecimal digits.
  std::string Text() const;

  friend bool operator==(cls_Uid const&, cls_Uid const&) noexcept = default;
  friend std::strong_ordering operator<=>(cls_Uid const&, cls_Uid const&) noexcept = default;

private:
  friend struct std::hash<cls_Uid>;
  std::uint64_t high = 0;
  std::uint64_t low = 0;
};

template <>
struct std::hash<cls_Uid> {
  std::size_t operator()(cls_Uid const& uid) const noexcept {
    return static_cast<std::size_t>(uid.high * 0x9e3779b97f4a7c15ULL ^ uid.low);
  }
};

static_assert(sizeof(cls_Uid) == 16, "an identity is stored as 16 bytes");
