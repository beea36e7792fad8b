// cls_MetadataRegistrar: the registration routines of all loaded modules.
#pragma once

#include "cls_ClassRegistrar.h"
#include "omi_Singleton.h"

#include <memory>
#include <mutex>
#include <vector>

/// Collects the routines by which modules describe their classes, and fills registrars with them.
/// One object serves the process, reached through omi_Singleton; all members may be called from any thread.
class DDR_API cls_MetadataRegistrar {
public:
  using Routine = void (*)(cls_ClassRegistrar&);

  /// Calls the routine at once with the process-wide catalogue, and keeps it for MakeClassRegistrar.
  /// A routine that is already kept is called again but kept once.
  /// @param tag handed through by every module as its own constant; kept with the routine
  void initClassMetadata(Routine routine, unsigned tag);

  /// A new registrar, filled by all kept routines in the order of their registration. The caller owns it.
  cls_ClassRegistrar* MakeClassRegistrar() const;

  /// How many routines are kept.
  std::size_t RoutineCount() const;

  /// Forgets all routines and the process-wide catalogue. Needs no memory.
  void Clear();

private:
  struct Kept {
    Routine routine;
    unsigned tag;
  };
  mutable std::mutex mutex;
  std::vector<Kept> routines;
  std::unique_ptr<cls_ClassRegistrar> processCatalogue; // made when first needed
};

template <>
DDR_API cls_MetadataRegistrar& omi_Singleton<cls_MetadataRegistrar>::Instance();
