// omu_Exceptions.h: bad values and missing keys.
#pragma once

#include "cls_Uid.h"
#include "cow_String.h"
#include "nex_Exception.h"
#include "os_Export.h"

#include <string>

/// A value that its type does not allow.
class DDR_API omu_ValueErrorException : public nex_Exception {
public:
  /// @param text says which value of what, and what is permitted
  explicit omu_ValueErrorException(std::string text);
  explicit omu_ValueErrorException(cow_String const& text);
  explicit omu_ValueErrorException(char const* text);
  omu_ValueErrorException(omu_ValueErrorException const&) noexcept = default;
  omu_ValueErrorException& operator=(omu_ValueErrorException const&) noexcept = default;
  ~omu_ValueErrorException() override;
};

/// A key that a collection does not hold. The text is "No entry with key '...'", with the key as it is.
class DDR_API omu_AccessErrorException : public nex_Exception {
public:
  /// @param key copied whole, so that the exception may go to another thread
  explicit omu_AccessErrorException(cow_String const& key);
  /// The same, with the identity under which the failed access is known.
  omu_AccessErrorException(cow_String const& key, cls_Uid const& access);
  omu_AccessErrorException(omu_AccessErrorException const&) noexcept = default;
  omu_AccessErrorException& operator=(omu_AccessErrorException const&) noexcept = default;
  ~omu_AccessErrorException() override;

  /// The missing key; lives as long as this exception.
  [[nodiscard]] cow_String const& Key() const noexcept { return missingKey; }
  /// The identity of the failed access; none where none was given.
  [[nodiscard]] cls_Uid const& Uid() const noexcept { return accessUid; }

private:
  cow_String missingKey;
  cls_Uid accessUid;
};
