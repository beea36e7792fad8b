// counts: how much a run of a test program has tried.
#pragma once

#include <string>

/// Adds to what all tests of the run have tried, told at its end a line a subject:
/// "images: 300 tried, 200 distinct".
/// @param subject small letters and spaces
void addToCount(std::string const& subject, std::string const& what, long long number);
