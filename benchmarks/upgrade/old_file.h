// old_file: a large database of release 203, and a plain copy of one.
#pragma once

#include <cstdint>
#include <string>

/// Makes a database of release 203 with SQLite alone.
/// @param count models; each with an older analysis model of its own and thirteen containers
void makeOldFile(std::string const& path, std::int64_t count);

/// Copies every table of a file into a new one by INSERT ... SELECT, in the settings in which new files of
/// ours are built, and syncs it.
/// @param withIndexes whether to make the indexes of the file too
/// @returns how many rows were copied
std::int64_t copyPlainly(std::string const& from, std::string const& to, bool withIndexes);
