// dbc_Tables: the kinds of tables that conversions are given.
#pragma once

#include "dbc_Table.h"
#include "rfm_Database.h"
#include "rfm_Entries.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

class dbc_OutputDatabase;

/// Rows that are only read.
class dbc_ReadTable final : public dbc_Table {
public:
  /// @param rows of which the table has the only handle
  /// @param fixed whether no row can change while the table lives
  dbc_ReadTable(rfm_Table rows, bool fixed);
  int Length() const override;
  dbc_Row& Row(int index) override;
  dbc_Row& AppendRow() override;
  void FinishRow(dbc_Row&) override {}

private:
  std::unique_ptr<dbc_Row> row;
  rfm_Table table;
  bool isFixed;
};

/// Rows of a class of the output database.
class dbc_StoredTable final : public dbc_Table {
public:
  dbc_StoredTable(dbc_OutputDatabase& owner, unsigned classTypeId) : database(owner), typeId(classTypeId) {}
  int Length() const override;
  dbc_Row& Row(int index) override;
  dbc_Row& AppendRow() override;
  void FinishRow(dbc_Row& row) override;

  unsigned TypeId() const noexcept { return typeId; }

private:
  dbc_OutputDatabase& database;
  unsigned typeId;
  std::vector<std::unique_ptr<dbc_Row>> open;
};

/// The entries of one collection.
class dbc_EntryTable final : public dbc_Table {
public:
  /// @param writer counts what is added; null for a table that is only read
  dbc_EntryTable(rfm_Database const& owner, std::int64_t ofHandle, dbc_OutputDatabase* writer);
  int Length() const override;
  dbc_Row& Row(int index) override;
  dbc_Row& AppendRow() override;
  void FinishRow(dbc_Row& row) override;

private:
  rfm_Database database;
  std::int64_t handle;
  dbc_OutputDatabase* output;
  mutable int length = -1;
  std::optional<rfm_EntryCursor> cursor;
  int nextOfCursor = 0;
  std::unique_ptr<dbc_Row> read;
  std::vector<std::unique_ptr<dbc_Row>> open;
};
