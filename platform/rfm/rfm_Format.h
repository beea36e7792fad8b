// rfm_Format.h: the stored numbers and names that make a file one of ours.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

/// In the application id of every file of ours. Stored: never change it.
inline constexpr std::uint32_t rfm_ApplicationId = 0x44445230;
/// The format that is written, in the user version of the file. Stored; docs/file-format.md lists the
/// versions.
inline constexpr std::uint32_t rfm_FormatVersion = 1;
/// The oldest format that is read.
inline constexpr std::uint32_t rfm_OldestFormatVersion = 1;

/// The stored name of the database in a file.
inline constexpr std::string_view rfm_DatabaseName = "D0";

/// @{ Stored names of the two hidden columns of a class table.
inline constexpr std::string_view rfm_RowColumn = "row";
inline constexpr std::string_view rfm_UidColumn = "#uid";
/// @}

/// @{ Stored names: the column of the base part, and the two columns of a reference behind the attribute's
/// name.
inline constexpr std::string_view rfm_BaseColumn = "##BaseClassOID";
inline constexpr std::string_view rfm_ClassSuffix = "#ClassID";
inline constexpr std::string_view rfm_OidSuffix = "#OID";
/// @}

/// @{ Stored names of tables and indexes.
inline constexpr std::string_view rfm_ClassListTable = "ddr_class";
inline constexpr std::array<std::string_view, 4> rfm_FixedTables{"ddr_header", "ddr_class", "ddr_attribute",
                                                                 "ddr_entry"};
inline constexpr std::string_view rfm_ClassTablePrefix = "class_";
inline constexpr std::string_view rfm_EntryKeyIndex = "ddr_entry_key";
/// @}
