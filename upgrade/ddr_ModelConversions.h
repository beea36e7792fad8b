// ddr_ModelConversions: how a row of the model record gets from one layout to the next.
#pragma once

class dbc_Row;
class dbc_Table;

/// @{ Row conversions of the model record; see dbc_ConversionFunction. Each returns null.

/// From 203 to 401: gives the model an instance table, with an extension for each old container that is set.
void* ddr_convertModel203(dbc_Row const& input, dbc_Row& output, int reserved);
/// From 401 to 857: adds a connector section for each old connector property.
void* ddr_convertModel401(dbc_Row const& input, dbc_Row& output, int reserved);
/// From 857 to 874: connectors stay as they are.
void* ddr_convertModel857(dbc_Row const& input, dbc_Row& output, int reserved);
/// @}

/// Ends the step from 203: lets go of the old models' contents that its conversion keeps. Returns null.
void* ddr_finalizeModel203(dbc_Table const& input, dbc_Table& output);
