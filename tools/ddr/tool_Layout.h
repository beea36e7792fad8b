// tool_Layout: whether a database has the layout of an older release.
#pragma once

#include "cow_String.h"

#include <map>
#include <string>

/// What can be told of a database without reading its record.
struct tool_Layout {
  /// Reads the header and the class list of a file.
  /// @param fileName path of the file
  /// @throws rfm_Exception when it is no database of ours, or a damaged one
  explicit tool_Layout(std::string const& fileName);

  /// Whether a class of ours is stored in an older version.
  bool IsOlder() const noexcept { return !olderClasses.empty(); }
  /// "ddr_Ddb 309, ddr_Model 203": the classes of ours that are stored in older versions.
  std::string OlderClasses() const;
  /// "older (ddr_Ddb 309); 'ddr upgrade' makes a current copy", or "current". An upgrade is named only where
  /// it would not be refused for the versions of the classes.
  std::string Text() const;
  /// What helps with a layout that is not current: "'ddr upgrade' makes a current copy".
  std::string Remedy() const;

  cow_String description;                  ///< from the header
  std::map<unsigned, int> versions;        ///< of the stored classes, by type id
  std::map<std::string, int> olderClasses; ///< classes of ours in an older version: name and version
  std::map<std::string, int> newerClasses; ///< classes of ours in a newer version: name and version
  bool canBeUpgraded = true;               ///< whether all these versions are known to an upgrade
};
