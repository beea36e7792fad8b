// damage_judgement: what a listing of a damaged file tells, held against what SQLite alone reads in it.
#pragma once

#include <optional>
#include <string>
#include <vector>

/// What SQLite reads in a file; nothing where it refuses any of it.
std::optional<std::string> everything_in(std::string const& path);

/// Whether SQLite finds nothing wrong with the pages of a file.
bool pages_are_sound(std::string const& path);

/// The words of a listing that neither the listing of the sound file has nor the file holds: there are none
/// but where something is read wrongly. Words are names, keys, notes, messages and identities; what the
/// program words itself, such as times, paths and refusals, is none.
/// @param listing of a file_probe
/// @param sound the same of the sound file
/// @param inFile what SQLite reads in the file
std::vector<std::string> words_from_nowhere(std::string const& listing, std::string const& sound,
                                            std::string const& inFile);
