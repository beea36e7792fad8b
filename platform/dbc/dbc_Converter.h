// dbc_Converter: one numbered step of conversion, and what it does to each class.
#pragma once

#include "cow_String.h"
#include "os_Export.h"

#include <list>

class dbc_Row;
class dbc_Table;

/// Converts one row: reads the input row and writes the output row, which has the layout of the next version
/// and holds what both layouts have in common. Its answer is not looked at; conversions return null. What it
/// throws ends the conversion.
using dbc_ConversionFunction = void* (*)(dbc_Row const& input, dbc_Row& output, int reserved);
/// Called once for a class, after its rows were converted or the conversion of them failed; it lets go of
/// what the step's conversion function keeps. Its answer is not looked at.
using dbc_FinalizeFunction = void* (*)(dbc_Table const& input, dbc_Table& output);

/// What a step does to one old version of one class.
class DDR_API dbc_ClassConverter {
public:
  dbc_ClassConverter(cow_String className, unsigned classTypeId, int oldVersion);

  /// Binds the function that is called for each row; without one the rows get what both layouts share.
  dbc_ClassConverter& BindConversionFunction(dbc_ConversionFunction bound) noexcept;
  dbc_ClassConverter& BindFinalizeFunction(dbc_FinalizeFunction bound) noexcept;

  cow_String const& ClassName() const noexcept { return name; }
  unsigned TypeId() const noexcept { return typeId; }
  int OldVersion() const noexcept { return version; }
  /// Null when none is bound.
  dbc_ConversionFunction ConversionFunction() const noexcept { return conversion; }
  /// Null when none is bound.
  dbc_FinalizeFunction FinalizeFunction() const noexcept { return finalize; }

private:
  cow_String name;
  unsigned typeId;
  int version;
  dbc_ConversionFunction conversion = nullptr;
  dbc_FinalizeFunction finalize = nullptr;
};

/// One numbered step. Steps run in ascending number.
class DDR_API dbc_Converter {
public:
  explicit dbc_Converter(int stepNumber) noexcept : number(stepNumber) {}

  /// Declares that the step brings an old version of a class to the next one.
  /// @returns the same converter for the same class and version; valid as long as the step
  dbc_ClassConverter& Upgrade(cow_String const& className, unsigned typeId, int oldVersion);

  int Number() const noexcept { return number; }
  /// In the order of their declaration.
  std::list<dbc_ClassConverter> const& Classes() const noexcept { return classes; }

private:
  int number;
  std::list<dbc_ClassConverter> classes;
};
