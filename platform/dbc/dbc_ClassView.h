// dbc_ClassView: the rows of a class, seen under its name.
#pragma once

#include "cow_String.h"
#include "dbc_Table.h"
#include "os_Export.h"

/// The rows of a table as those of a named class: how many, and each by its index.
/// Made by dbc_DatabaseConverter::ClassView. Borrows the table.
class DDR_API dbc_ClassView {
public:
  /// @param className stored name of the class
  /// @param viewed must live as long as the view
  /// @param version class version that the view was asked for; kept
  /// @param first 0; kept
  /// @param last -1; kept
  dbc_ClassView(cow_String className, dbc_Table& viewed, int version, int first, int last);
  dbc_ClassView(dbc_ClassView const&) = delete;
  dbc_ClassView& operator=(dbc_ClassView const&) = delete;
  virtual ~dbc_ClassView();

  /// One more than the highest row number.
  int RowCount() const { return table.Length(); }
  /// A row, valid until the next call.
  /// @param index [from 0]
  dbc_Row& Row(int index) { return table.Row(index); }
  /// Takes a row back.
  void FinishRow(dbc_Row& row) { table.FinishRow(row); }

  cow_String const& ClassName() const noexcept { return name; }
  int Version() const noexcept { return classVersion; }
  int First() const noexcept { return firstGiven; }
  int Last() const noexcept { return lastGiven; }

private:
  cow_String name;
  dbc_Table& table;
  int classVersion;
  int firstGiven;
  int lastGiven;
};
