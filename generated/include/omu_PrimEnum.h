// omu_PrimEnum: a persistent value of one enumeration.
#pragma once

#include "omu_Exceptions.h"
#include "omu_PrimEnumBase.h"

#include <cstring>
#include <string>
#include <utility>

/// A value of the enumeration `Enum`: its number and its text, which is what is stored.
///
/// The enumeration's table is given by a specialisation of the static member EnumTable. Every constructor
/// refuses what is not in the table with an omu_ValueErrorException. Plain value; one thread at a time.
/// @tparam Enum the enumeration
/// @tparam Kind tells apart several tables of one enumeration
template <class Enum, int Kind>
class DDR_API omu_PrimEnum : public omu_PrimEnumBase {
public:
  /// The value 0, the first of every table.
  omu_PrimEnum() { SetValue(static_cast<Enum>(0)); }
  explicit omu_PrimEnum(Enum wanted);
  /// Takes the text of another enumeration value.
  explicit omu_PrimEnum(omu_PrimEnumBase const& other);
  explicit omu_PrimEnum(cow_String const& wanted);
  /// Reads the stored text; a file with a text that is not permissible cannot be read.
  explicit omu_PrimEnum(cls_ReadVisitor const& reader);
  omu_PrimEnum(omu_PrimEnum const&) = default;
  omu_PrimEnum& operator=(omu_PrimEnum const&) = default;
  ~omu_PrimEnum() override = default;

  bool operator==(omu_Primitive const& other) const override;
  omu_Primitive* Copy() const override { return new omu_PrimEnum(*this); }
  cow_Map<cow_String, unsigned int> PermissibleValues() const override;
  bool SetValue(char const* wanted) override;
  /// @return false, and nothing changes, when the value is not in the table
  bool SetValue(Enum wanted);

  Enum GetValue() const noexcept { return static_cast<Enum>(GetNumber()); }

  /// The enumeration's table, ended by a null text.
  static omu_PrimEnumEntry const* EnumTable() noexcept;

protected:
  omu_PrimEnumEntry const* Table() const noexcept override { return EnumTable(); }

private:
  [[noreturn]] void Refuse(std::string message, int line) const;
  std::string Permissible() const {
    return std::string("  Permissible: ") + PermissibleValuesAsString().Text();
  }
};

// ---- template bodies ----

template <class Enum, int Kind>
void omu_PrimEnum<Enum, Kind>::Refuse(std::string message, int line) const {
  nex_Exception::Throw(omu_ValueErrorException(std::move(message)), "generated/include/omu_PrimEnum", line);
}

template <class Enum, int Kind>
omu_PrimEnum<Enum, Kind>::omu_PrimEnum(Enum wanted) {
  if (!SetValue(wanted)) {
    Refuse("omu_PrimEnum(Enum) - Enum value not allowed: " + std::to_string(static_cast<int>(wanted)) +
               Permissible(),
           54);
  }
}

template <class Enum, int Kind>
omu_PrimEnum<Enum, Kind>::omu_PrimEnum(omu_PrimEnumBase const& other) {
  if (!SetValue(other.GetString().Text())) {
    Refuse(std::string("omu_PrimEnum(const omu_PrimEnumBase&) - str not allowed: ") +
               other.GetString().Text(),
           67);
  }
}

template <class Enum, int Kind>
omu_PrimEnum<Enum, Kind>::omu_PrimEnum(cow_String const& wanted) {
  if (!SetValue(wanted.Text())) {
    Refuse(std::string("omu_PrimEnum(const cow_String&) - str not allowed: ") + wanted.Text() + Permissible(),
           81);
  }
}

template <class Enum, int Kind>
omu_PrimEnum<Enum, Kind>::omu_PrimEnum(cls_ReadVisitor const& reader) : omu_PrimEnumBase(reader) {
  cow_String const stored = GetString();
  if (!SetValue(stored.Text())) {
    Refuse(std::string("omu_PrimEnum(const cls_ReadVisitor&) - str not allowed: ") + stored.Text() +
               Permissible(),
           95);
  }
}

template <class Enum, int Kind>
bool omu_PrimEnum<Enum, Kind>::operator==(omu_Primitive const& other) const {
  auto const* same = dynamic_cast<omu_PrimEnum const*>(&other);
  return same != nullptr && same->GetNumber() == GetNumber();
}

template <class Enum, int Kind>
cow_Map<cow_String, unsigned int> omu_PrimEnum<Enum, Kind>::PermissibleValues() const {
  cow_Map<cow_String, unsigned int> values;
  for (omu_PrimEnumEntry const* entry = EnumTable(); entry->text != nullptr; ++entry) {
    values.Insert(cow_String(entry->text), entry->value);
  }
  return values;
}

template <class Enum, int Kind>
bool omu_PrimEnum<Enum, Kind>::SetValue(char const* wanted) {
  for (omu_PrimEnumEntry const* entry = EnumTable(); entry->text != nullptr; ++entry) {
    if (std::strcmp(entry->text, wanted) == 0) {
      Set(*entry);
      return true;
    }
  }
  return false;
}

template <class Enum, int Kind>
bool omu_PrimEnum<Enum, Kind>::SetValue(Enum wanted) {
  for (omu_PrimEnumEntry const* entry = EnumTable(); entry->text != nullptr; ++entry) {
    if (entry->value == static_cast<unsigned>(wanted)) {
      Set(*entry);
      return true;
    }
  }
  return false;
}
