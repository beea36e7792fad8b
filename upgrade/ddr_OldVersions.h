// The older layouts of the database record and of the model record.
#pragma once

/// Registers the eight older layouts, oldest model layout first, with the old-class registrar.
/// @param tag handed to the registrar with each
void ddr_registerOldVersions(unsigned tag);
