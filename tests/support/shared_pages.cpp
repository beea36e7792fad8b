// shared_pages.cpp: writes cells of SQLite's pages.
#include "shared_pages.h"

#include "stored_file.h"
#include "temporary_folder.h"

#include <cstdint>
#include <stdexcept>
#include <vector>

namespace {

constexpr std::size_t pageSize = 4096;
constexpr std::size_t longText = 4'000'000;
constexpr std::size_t shortText = 520;                              // enough to take the part of the long row
constexpr std::size_t leastLocal = (pageSize - 12) * 32 / 255 - 23; // of a value that has pages of its own
constexpr std::size_t inAPage = pageSize - 4; // of a long value; the rest names the next page
constexpr unsigned innerIndex = 2;
constexpr unsigned innerTable = 5;
constexpr unsigned leafIndex = 10;
constexpr unsigned leafTable = 13;

/// One row in a page of leaves.
struct Cell {
  std::size_t place = 0;
  std::uint64_t payload = 0;
  std::size_t body = 0; // place of the row's bytes in the page
  bool isOfTable = false;
};

std::uint64_t fixed(std::string const& bytes, std::size_t place, int size) {
  std::uint64_t number = 0;
  for (int index = 0; index < size; ++index) {
    number = number << 8U | static_cast<unsigned char>(bytes.at(place + static_cast<std::size_t>(index)));
  }
  return number;
}

std::uint64_t varint(std::string const& bytes, std::size_t& place) {
  std::uint64_t number = 0;
  for (;;) {
    auto const byte = static_cast<unsigned char>(bytes.at(place++));
    number = number << 7U | (byte & 0x7fU);
    if (byte < 0x80U) {
      return number;
    }
  }
}

std::vector<Cell> cellsBelow(std::string const& bytes, std::uint64_t page) {
  std::size_t const begin = (page - 1) * pageSize;
  std::size_t const header = page == 1 ? begin + 100 : begin;
  auto const type = static_cast<unsigned char>(bytes.at(header));
  bool const isInner = type == innerIndex || type == innerTable;
  if (!isInner && type != leafIndex && type != leafTable) {
    throw std::runtime_error("no page of a table");
  }
  std::vector<Cell> found;
  std::uint64_t const count = fixed(bytes, header + 3, 2);
  for (std::uint64_t index = 0; index < count; ++index) {
    std::size_t const place = begin + fixed(bytes, header + (isInner ? 12 : 8) + 2 * index, 2);
    if (isInner) {
      std::vector<Cell> const below = cellsBelow(bytes, fixed(bytes, place, 4));
      found.insert(found.end(), below.begin(), below.end());
      continue;
    }
    Cell cell{place, 0, place, type == leafTable};
    cell.payload = varint(bytes, cell.body);
    if (cell.isOfTable) {
      varint(bytes, cell.body); // the row number
    }
    found.push_back(cell);
  }
  if (isInner) {
    std::vector<Cell> const last = cellsBelow(bytes, fixed(bytes, header + 8, 4));
    found.insert(found.end(), last.begin(), last.end());
  }
  return found;
}

std::vector<Cell> cellsOf(std::string const& path, std::string const& table, std::string const& bytes) {
  return cellsBelow(bytes, std::stoull(stored_file(path).value(
                               "SELECT rootpage FROM sqlite_schema WHERE name = '" + table + "'")));
}

Cell longest(std::vector<Cell> const& cells) {
  Cell found;
  for (Cell const& cell : cells) {
    found = cell.payload > found.payload ? cell : found;
  }
  return found;
}

/// Where the second value of a row is, and its type: the position of an entry.
std::pair<std::size_t, std::uint64_t> secondValue(std::string const& bytes, std::size_t body) {
  constexpr std::size_t sizes[] = {0, 1, 2, 3, 4, 6, 8, 8, 0, 0};
  std::size_t place = body;
  std::size_t const header = varint(bytes, place);
  std::uint64_t const first = varint(bytes, place);
  std::uint64_t const second = varint(bytes, place);
  return {body + header + sizes[first], second};
}

/// Lets a row be the long one but for its number, or its position.
bool becomeLong(std::string& bytes, Cell const& shortRow, Cell const& longRow) {
  constexpr std::size_t sizeOfPosition = 2;
  constexpr std::uint64_t typeOfPosition = 2;
  std::string made = bytes.substr(longRow.body, leastLocal + 4);
  if (!shortRow.isOfTable) {
    auto const [from, type] = secondValue(bytes, shortRow.body);
    auto const [to, typeOfLong] = secondValue(bytes, longRow.body);
    if (type != typeOfPosition || typeOfLong != typeOfPosition) {
      return false;
    }
    made.replace(to - longRow.body, sizeOfPosition, bytes, from, sizeOfPosition);
  }
  std::size_t numbers = shortRow.place;
  varint(bytes, numbers);
  std::string const rowNumber = bytes.substr(numbers, shortRow.body - numbers);
  std::size_t behindLength = longRow.place;
  varint(bytes, behindLength);
  std::string const cell = bytes.substr(longRow.place, behindLength - longRow.place) + rowNumber + made;
  std::size_t const room = shortRow.body - shortRow.place + shortRow.payload;
  bool const fits = shortRow.payload >= shortText && cell.size() <= room;
  if (fits) {
    bytes.replace(shortRow.place, cell.size(), cell);
  }
  return fits;
}

std::string text(std::size_t size) {
  return "printf('%.*c', " + std::to_string(size) + ", 'x')";
}

std::string rowsLikeTheFirst(std::string const& table, std::string const& column, int row, int count,
                             std::size_t size) {
  return "CREATE TEMP TABLE made AS SELECT kept.* FROM (SELECT * FROM " + table +
         " LIMIT 1) AS kept, "
         "(WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n LIMIT " +
         std::to_string(count) +
         ") SELECT i FROM n);"
         "UPDATE made SET \"row\" = " +
         std::to_string(row - 1) + " + rowid, " + column + " = " + text(size) + "; INSERT OR REPLACE INTO " +
         table + " SELECT * FROM made; DROP TABLE made;";
}

std::string entriesLikeTheFirst(long long handle, int position, int count, std::size_t size) {
  return "WITH RECURSIVE n(i) AS (SELECT " + std::to_string(position) +
         " UNION ALL SELECT i + 1 FROM n LIMIT " + std::to_string(count) +
         ") INSERT OR REPLACE INTO ddr_entry SELECT handle, i, " + text(size) +
         ", ClassID, OID FROM n, (SELECT handle, ClassID, OID FROM ddr_entry WHERE handle = " +
         std::to_string(handle) + " ORDER BY position LIMIT 1);";
}

} // namespace

int share_long_text(std::string const& path, std::string const& table,
                    std::function<std::string(std::size_t)> const& longRow,
                    std::function<std::string(std::size_t)> const& shortRows) {
  change_stored_file(path, longRow(longText));
  std::uint64_t const payload = longest(cellsOf(path, table, readFile(path))).payload;
  // as little of it as can be stands beside the other rows
  change_stored_file(path, longRow(longText - (payload - leastLocal) % inAPage) + shortRows(shortText));
  std::string bytes = readFile(path);
  std::vector<Cell> const cells = cellsOf(path, table, bytes);
  Cell const shared = longest(cells);
  int count = 0;
  for (Cell const& cell : cells) {
    count += cell.place != shared.place && becomeLong(bytes, cell, shared) ? 1 : 0;
  }
  writeFile(path, bytes);
  return count;
}

std::function<std::string(std::size_t)> long_row(std::string const& table, std::string const& column,
                                                 int row) {
  return [=](std::size_t size) { return rowsLikeTheFirst(table, column, row, 1, size); };
}

std::function<std::string(std::size_t)> short_rows(std::string const& table, std::string const& column,
                                                   int row, int count) {
  return [=](std::size_t size) { return rowsLikeTheFirst(table, column, row, count, size); };
}

std::function<std::string(std::size_t)> long_entry(long long handle, int position) {
  return [=](std::size_t size) { return entriesLikeTheFirst(handle, position, 1, size); };
}

std::function<std::string(std::size_t)> short_entries(long long handle, int position, int count) {
  return [=](std::size_t size) { return entriesLikeTheFirst(handle, position, count, size); };
}
