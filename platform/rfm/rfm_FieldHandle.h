// rfm_FieldHandle: the name of one field of a row.
#pragma once

#include "cow_String.h"

#include <utility>

/// Names one field of a row, by text, and one element of it where a field has several.
///
/// A handle belongs to no table: the same one serves every row. Making one costs at most the copy of a text;
/// code that reads many rows keeps its handles.
class rfm_FieldHandle {
public:
  /// @param name the stored name
  /// @param elementIndex [from 0] or -1 for the whole field; stored files have whole fields only
  rfm_FieldHandle(char const* name, int elementIndex = -1) : fieldName(name), elementNumber(elementIndex) {}
  /// @copydoc rfm_FieldHandle(char const*, int)
  rfm_FieldHandle(cow_String name, int elementIndex = -1)
      : fieldName(std::move(name)), elementNumber(elementIndex) {}

  /// The stored name.
  cow_String const& Name() const noexcept { return fieldName; }
  /// The element [from 0], or -1 for the whole field.
  int Element() const noexcept { return elementNumber; }

private:
  cow_String fieldName;
  int elementNumber;
};
