// shared_pages: rows that lead to the pages of one long value, which SQLite itself never writes.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

/// Adds a row with a long text to a table of a file, and many short ones; then lets the short ones lead to
/// the pages of the long text. The file holds it once, and each of the rows delivers it. The page size is
/// 4096.
/// @param table has row numbers, or handle and position as its first columns and its key
/// @param longRow SQL that makes the long row, or replaces it, with a text of so many bytes
/// @param shortRows SQL that makes the short rows, each with a text of so many bytes
/// @returns how many rows lead there
int share_long_text(std::string const& path, std::string const& table,
                    std::function<std::string(std::size_t)> const& longRow,
                    std::function<std::string(std::size_t)> const& shortRows);

/// @{ The two for rows like row 0 of a class, from a row number on.
std::function<std::string(std::size_t)> long_row(std::string const& table, std::string const& column,
                                                 int row);
std::function<std::string(std::size_t)> short_rows(std::string const& table, std::string const& column,
                                                   int row, int count);
/// @}
/// @{ The same for the entries of a collection, like its first one, from a position on.
std::function<std::string(std::size_t)> long_entry(long long handle, int position);
std::function<std::string(std::size_t)> short_entries(long long handle, int position, int count);
/// @}
