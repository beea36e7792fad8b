// What older releases and the conversions of their files call things: type ids, commands, the schema version.
#pragma once

// Frozen: what is stored in files. None of these follows a live class; those that are also in use today are
// compared with the live ones by the tests.
inline constexpr unsigned ddr_oldDdbTypeId = 0x220006;
inline constexpr unsigned ddr_oldModelTypeId = 0x220007;
inline constexpr unsigned ddr_oldExtensionTableTypeId = 0x220018;
inline constexpr unsigned ddr_oldMapTypeId = 0x230002;
inline constexpr unsigned ddr_oldAddOnListTypeId = 0x230001;
inline constexpr unsigned ddr_oldDiagnosticDataTypeId = 0x240001;
inline constexpr unsigned ddr_oldDiagnosticListTypeId = 0x210001;
inline constexpr unsigned ddr_oldSectionTypeId = 0x260003b;
inline constexpr char const* ddr_oldStepCommand = "step";
inline constexpr char const* ddr_oldSectionCommand = "section";
/// The schema that records of release 203 are given.
inline constexpr int ddr_oldSchemaVersion = 891;
