// rfm_Schema: what the tables and indexes of a file may be made of.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

/// Whether the SQL text of a table or an index names plain columns and nothing that computes, checks,
/// replaces or fills in values: SQLite would run such things, taken from the file, when a row is read or
/// written.
/// @param sql text of the schema; names in quotes may hold anything
/// @param deepest how many parentheses may stand inside each other: 1 in an index, whose columns could
///        otherwise be expressions, 2 in a table, whose keys name columns
bool rfm_isPlainDefinition(std::string_view sql, int deepest);

/// The columns of a class table, without the hidden ones, when its SQL text is of the kind that we write;
/// nothing for any other text. They are parts of the text.
/// @param sql text of the schema
std::optional<std::vector<std::string_view>> rfm_writtenColumns(std::string_view sql, std::string_view table);
