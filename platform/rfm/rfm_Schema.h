// rfm_Schema: what the tables and indexes of a file may be made of.
#pragma once

#include <string_view>

/// Whether the SQL text of a table or an index names plain columns and nothing that computes, checks,
/// replaces or fills in values: SQLite would run such things, taken from the file, when a row is read or
/// written.
/// @param sql text of the schema; names in quotes may hold anything
/// @param deepest how many parentheses may stand inside each other: 1 in an index, whose columns could
///        otherwise be expressions, 2 in a table, whose keys name columns
bool rfm_isPlainDefinition(std::string_view sql, int deepest);
