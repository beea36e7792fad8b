#include "ddr_Library.h"

#include "atr_Library.h"
#include "cls_MetadataRegistrar.h"
#include "cow_Library.h"
#include "dbc_Library.h"
#include "ddr_Catalogue.h"
#include "ddr_Model.h"
#include "ddr_OldVersions.h"
#include "ddr_Root.h"
#include "dia_Library.h"
#include "mdl_Library.h"
#include "mem_Library.h"
#include "nex_Library.h"
#include "omni_Library.h"
#include "omu_Library.h"
#include "os_Tls.h"
#include "pnt_Library.h"
#include "rfm_Library.h"
#include "rom_Library.h"
#include "thr_Library.h"
#include "typ_ArchCompTable.h"
#include "typ_Library.h"
#include "utl_Library.h"

#include <iterator>

namespace {

using Step = void (*)(int&);

struct Dependency {
  Step initialize;
  Step finalize;
};

/// The libraries in the order of their start; they stop in the reverse order.
constexpr Dependency dependencies[] = {
    {mem_initialize, mem_finalize}, {typ_initialize, typ_finalize},   {thr_initialize, thr_finalize},
    {pnt_initialize, pnt_finalize}, {omni_initialize, omni_finalize}, {atr_initialize, atr_finalize},
    {cow_initialize, cow_finalize}, {nex_initialize, nex_finalize},   {utl_initialize, utl_finalize},
    {omu_initialize, omu_finalize}, {mdl_initialize, mdl_finalize},   {rfm_initialize, rfm_finalize},
    {rom_initialize, rom_finalize}, {dbc_initialize, dbc_finalize},   {dia_initialize, dia_finalize},
};

constexpr unsigned short moduleComponent = 34;
/// The module's constant for both registrars.
constexpr unsigned registrationTag = 4;
constexpr unsigned classKind = 7;
constexpr unsigned noBase = 1;

/// The module's types, by the low half of their type ids. The names are stored in files.
constexpr typ_Entry types[] = {
    {0, noBase, ""},
    {classKind, noBase, "ddr_Result"},
    {classKind, noBase, "ddr_ResultContainer"},
    {classKind, noBase, "ddr_ResultContainerIMPLSC"},
    {classKind, 0x220003, "ddr_ResultContainerInDdbShortcut"},
    {classKind, noBase, "ddr_ResultContainerShortcut"},
    {classKind, noBase, "ddr_Ddb"},
    {classKind, noBase, "ddr_Model"},
    {classKind, noBase, "ddr_ModelContainer"},
    {classKind, noBase, "ddr_ModelContainerIMPLSC"},
    {classKind, 0x220009, "ddr_ModelContainerInDdbShortcut"},
    {classKind, noBase, "ddr_ModelContainerShortcut"},
    {classKind, noBase, "ddr_DdbIMPLSC"},
    {classKind, 0x22000c, "ddr_DdbShortcutImpl"},
    {classKind, noBase, "ddr_DdbShortcut"},
    {classKind, noBase, "ddr_DdbContainer"},
    {classKind, noBase, "ddr_UserData"},
    {classKind, noBase, "ddr_UserDataContainer"},
    {classKind, noBase, "ddr_UserDataContainerIMPLSC"},
    {classKind, 0x220012, "ddr_UserDataContainerInDdbShortcut"},
    {classKind, noBase, "ddr_UserDataContainerShortcut"},
    {classKind, noBase, "ddr_ModelIMPLSC"},
    {classKind, noBase, "ddr_ModelShortcut"},
    {classKind, 0x220015, "ddr_ModelInModelContainerShortcut"},
    {classKind, noBase, "ddr_ExtensionTable"},
    {classKind, noBase, "ddr_ModelExtension"},
};
static_assert(std::size(types) == 26, "the type ids of the module are positions in this table");

unsigned nestingCount = 0;

/// Runs when the library is loaded: it needs no notice of threads that come and go, for it counts them
/// itself.
[[gnu::constructor]] void load() {
  DisableThreadLibraryCalls(nullptr);
}

void announce() {
  typ_ArchCompTable::InsertEntry(moduleComponent, typ_ArchCompEntry(types, std::size(types)));
  if (ddr_ModelExtension::ModuleTable() == nullptr) {
    ddr_ModelExtension::ModuleTable() = std::make_unique<ddr_ExtensionTable>();
  }
  cls_MetadataRegistrar& metadata = omi_Singleton<cls_MetadataRegistrar>::Instance();
  for (ddr_ClassRoutine routine : ddr_classRoutines()) {
    metadata.initClassMetadata(routine, registrationTag);
  }
  ddr_registerOldVersions(registrationTag);
}

/// \param started how many of the libraries are up through this module
void stop(int& libraryCount, std::size_t started) {
  --libraryCount;
  thr_ThreadSingleton<ddr_Root>::Release();
  ddr_ModelExtension::ModuleTable().reset();
  while (started != 0) {
    dependencies[--started].finalize(libraryCount);
  }
}

} // namespace

void ddr_initialize(int& libraryCount) {
  if (nestingCount != 0) {
    ++nestingCount;
    return;
  }
  ++libraryCount;
  std::size_t started = 0;
  try {
    for (; started != std::size(dependencies); ++started) {
      dependencies[started].initialize(libraryCount);
    }
    announce();
  } catch (...) {
    stop(libraryCount, started);
    throw;
  }
  nestingCount = 1;
}

void ddr_finalize(int& libraryCount) {
  if (--nestingCount == 0) {
    stop(libraryCount, std::size(dependencies));
  }
}
