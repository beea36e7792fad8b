// typ_DebugFlags.h: how much each component tells about its work.
#pragma once

#include "os_Export.h"

/// Debug levels by component number. All calls may run at the same time.
class DDR_API typ_DebugFlags {
public:
  /// @returns the component's level, 0 when none was set
  static int GetDebugFlags(int component);

  /// Sets the component's level for the whole process.
  static void SetDebugFlags(int component, int level);
};
