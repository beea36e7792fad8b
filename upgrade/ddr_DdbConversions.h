// ddr_DdbConversions: how a row of the database record gets from one layout to the next.
#pragma once

class dbc_Row;

/// @{ Row conversions of the database record; see dbc_ConversionFunction. Each returns null.

/// From 203 to 204: supplies what 203 could lack.
void* ddr_convertDdb203(dbc_Row const& input, dbc_Row& output, int reserved);
/// From 204 to 309: adds the diagnostics.
void* ddr_convertDdb204(dbc_Row const& input, dbc_Row& output, int reserved);
/// From 309 to 321: turns the one diagnostic object into a list, which begins empty.
void* ddr_convertDdb309(dbc_Row const& input, dbc_Row& output, int reserved);
/// @}
