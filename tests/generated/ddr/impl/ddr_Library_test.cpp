// Start and stop of the module.
#include "cls_MetadataRegistrar.h"
#include "dbc_Library.h"
#include "dbc_OldClassRegistrar.h"
#include "ddr_ModuleTest.h"
#include "typ_ArchCompTable.h"

#include <algorithm>
#include <thread>

namespace {

constinit char const* firstCallAtLoad = nullptr;
constinit int callsAtLoad = 0;

// Runs before the constructors of the module, so that what loading it does can be seen.
[[gnu::constructor(101)]] void observeLoading() {
  os_setCallObserver(
      [](char const* call, unsigned, void*) {
        firstCallAtLoad = firstCallAtLoad == nullptr ? call : firstCallAtLoad;
        ++callsAtLoad;
      },
      nullptr);
}

/// Ends observing once all static objects of the program and its libraries are made.
class EndOfLoading : public ::testing::Environment {
  void SetUp() override { os_setCallObserver(nullptr, nullptr); }
};

::testing::Environment const* const endOfLoading = ::testing::AddGlobalTestEnvironment(new EndOfLoading);

Texts const libraryNames = {"mem", "typ", "thr", "pnt", "omni", "atr", "cow", "nex",
                            "utl", "omu", "mdl", "rfm", "rom",  "dbc", "dia"};

Texts withEnding(Texts names, std::string const& ending) {
  for (std::string& name : names) {
    name += ending;
  }
  return names;
}

bool isStartOrStop(Call const& call) {
  return call.name.ends_with("_initialize") || call.name.ends_with("_finalize");
}

TEST(DdrLibrary, LoadingTurnsOffThreadNotificationsAndDoesNothingElse) {
  ASSERT_NE(firstCallAtLoad, nullptr);
  EXPECT_STREQ(firstCallAtLoad, "DisableThreadLibraryCalls");
  EXPECT_EQ(callsAtLoad, 1);
}

TEST(DdrLibrary, AFirstStartCountsItselfAndFifteenLibraries) {
  int libraries = 0;
  ddr_initialize(libraries);
  EXPECT_EQ(libraries, 16);
  ddr_finalize(libraries);
  EXPECT_EQ(libraries, 0);
}

TEST(DdrLibrary, ANestedStartAndItsStopChangeNothing) {
  int libraries = 7;
  ddr_initialize(libraries);
  auto const routines = omi_Singleton<cls_MetadataRegistrar>::Instance().RoutineCount();
  auto* const table = ddr_ModelExtension::ModuleTable().get();
  {
    CallRecorder const recorder;
    ddr_initialize(libraries);
    ddr_finalize(libraries);
    EXPECT_TRUE(recorder.calls.empty());
  }
  EXPECT_EQ(libraries, 23);
  EXPECT_EQ(omi_Singleton<cls_MetadataRegistrar>::Instance().RoutineCount(), routines);
  EXPECT_EQ(omi_Singleton<dbc_OldClassRegistrar>::Instance().Versions().size(), 8U);
  EXPECT_EQ(ddr_ModelExtension::ModuleTable().get(), table);
  ddr_finalize(libraries);
  EXPECT_EQ(libraries, 7);
}

TEST(DdrLibrary, ANestedStopLeavesTheRegistryOfTheThread) {
  int libraries = 0;
  ddr_initialize(libraries);
  ddr_initialize(libraries);
  ddr_Root* const registry = &ddr_Root::Instance();
  ddr_finalize(libraries);
  EXPECT_EQ(thr_ThreadSingletonBase<ddr_Root>::Instance(), registry);
  ddr_finalize(libraries);
}

TEST(DdrLibrary, StartsItsLibrariesInOneOrderAndStopsThemInTheReverse) {
  int libraries = 0;
  CallRecorder recorder;
  ddr_initialize(libraries);
  EXPECT_EQ(recorder.Names(isStartOrStop), withEnding(libraryNames, "_initialize"));
  recorder.calls.clear();
  ddr_finalize(libraries);
  Texts reversed = withEnding(libraryNames, "_finalize");
  std::ranges::reverse(reversed);
  EXPECT_EQ(recorder.Names(isStartOrStop), reversed);
}

TEST(DdrLibrary, OnlyTheCountOfTheFirstCallerGrowsAndOnlyThatOfTheLastShrinks) {
  int first = 0;
  int second = 0;
  ddr_initialize(first);
  ddr_initialize(second);
  EXPECT_EQ(first, 16);
  EXPECT_EQ(second, 0);
  ddr_finalize(first);
  ddr_finalize(second);
  EXPECT_EQ(first, 16);
  EXPECT_EQ(second, -16);
}

struct TypeOfTable {
  char const* name;
  unsigned base;
};

constexpr TypeOfTable types[26] = {{"", 1},
                                   {"ddr_Result", 1},
                                   {"ddr_ResultContainer", 1},
                                   {"ddr_ResultContainerIMPLSC", 1},
                                   {"ddr_ResultContainerInDdbShortcut", 0x220003},
                                   {"ddr_ResultContainerShortcut", 1},
                                   {"ddr_Ddb", 1},
                                   {"ddr_Model", 1},
                                   {"ddr_ModelContainer", 1},
                                   {"ddr_ModelContainerIMPLSC", 1},
                                   {"ddr_ModelContainerInDdbShortcut", 0x220009},
                                   {"ddr_ModelContainerShortcut", 1},
                                   {"ddr_DdbIMPLSC", 1},
                                   {"ddr_DdbShortcutImpl", 0x22000c},
                                   {"ddr_DdbShortcut", 1},
                                   {"ddr_DdbContainer", 1},
                                   {"ddr_UserData", 1},
                                   {"ddr_UserDataContainer", 1},
                                   {"ddr_UserDataContainerIMPLSC", 1},
                                   {"ddr_UserDataContainerInDdbShortcut", 0x220012},
                                   {"ddr_UserDataContainerShortcut", 1},
                                   {"ddr_ModelIMPLSC", 1},
                                   {"ddr_ModelShortcut", 1},
                                   {"ddr_ModelInModelContainerShortcut", 0x220015},
                                   {"ddr_ExtensionTable", 1},
                                   {"ddr_ModelExtension", 1}};

TEST(DdrLibrary, AnnouncesTwentySixTypes) {
  int libraries = 0;
  ddr_initialize(libraries);
  for (unsigned index = 0; index < 26; ++index) {
    unsigned const typeId = 0x220000 + index;
    EXPECT_STREQ(typ_ArchCompTable::GetName(typeId), types[index].name) << index;
    EXPECT_EQ(typ_ArchCompTable::GetBase(typeId), types[index].base) << index;
    EXPECT_EQ(typ_ArchCompTable::GetKind(typeId), index == 0 ? 0U : 7U) << index;
  }
  EXPECT_EQ(typ_ArchCompTable::GetBase(0x22001a), 0U);
  ddr_finalize(libraries);
}

TEST(DdrLibrary, TheTypesAnswerToTheirIds) {
  EXPECT_EQ(ddr_Result::TypeId(), 0x220001U);
  EXPECT_EQ(ddr_ShortcutImpl<ddr_ResultContainer>::TypeId(), 0x220003U);
  EXPECT_EQ(ddr_ResultContainerInDdbShortcut::TypeId(), 0x220004U);
  EXPECT_EQ(ddr_ResultContainerShortcut::TypeId(), 0x220005U);
  EXPECT_EQ(ddr_Ddb::TypeId(), 0x220006U);
  EXPECT_EQ(ddr_Model::TypeId(), 0x220007U);
  EXPECT_EQ(ddr_ShortcutImpl<ddr_ModelContainer>::TypeId(), 0x220009U);
  EXPECT_EQ(ddr_ModelContainerInDdbShortcut::TypeId(), 0x22000aU);
  EXPECT_EQ(ddr_ModelContainerShortcut::TypeId(), 0x22000bU);
  EXPECT_EQ(ddr_ShortcutImpl<ddr_Ddb>::TypeId(), 0x22000cU);
  EXPECT_EQ(ddr_DdbShortcutImpl::TypeId(), 0x22000dU);
  EXPECT_EQ(ddr_DdbShortcut::TypeId(), 0x22000eU);
  EXPECT_EQ(ddr_UserData::TypeId(), 0x220010U);
  EXPECT_EQ(ddr_ShortcutImpl<ddr_UserDataContainer>::TypeId(), 0x220012U);
  EXPECT_EQ(ddr_UserDataContainerInDdbShortcut::TypeId(), 0x220013U);
  EXPECT_EQ(ddr_UserDataContainerShortcut::TypeId(), 0x220014U);
  EXPECT_EQ(ddr_ShortcutImpl<ddr_Model>::TypeId(), 0x220015U);
  EXPECT_EQ(ddr_ModelShortcut::TypeId(), 0x220016U);
  EXPECT_EQ(ddr_ModelInModelContainerShortcut::TypeId(), 0x220017U);
  EXPECT_EQ(ddr_ExtensionTable::TypeId(), 0x220018U);
  EXPECT_EQ(ddr_ModelExtension::TypeId(), 0x220019U);
}

TEST(DdrLibrary, TheExtensionTableExistsBetweenStartAndStop) {
  EXPECT_EQ(ddr_ModelExtension::ModuleTable(), nullptr);
  int libraries = 0;
  ddr_initialize(libraries);
  ASSERT_NE(ddr_ModelExtension::ModuleTable(), nullptr);
  EXPECT_EQ(ddr_ModelExtension::ModuleTable()->Size(), 0);
  EXPECT_FALSE(ddr_ModelExtension::ModuleTable()->Uid().IsNone());
  EXPECT_TRUE(ddr_ModelExtension::ModuleTable()->MapUid().IsNone());
  ddr_finalize(libraries);
  EXPECT_EQ(ddr_ModelExtension::ModuleTable(), nullptr);
}

TEST(DdrLibrary, AnExtensionTableThatExistsIsKept) {
  auto* const made = new ddr_ExtensionTable();
  ddr_ModelExtension::ModuleTable().reset(made);
  int libraries = 0;
  ddr_initialize(libraries);
  EXPECT_EQ(ddr_ModelExtension::ModuleTable().get(), made);
  ddr_finalize(libraries);
}

unsigned const catalogueOrder[20] = {0x220006, 0x220001, 0x220010, 0x220007, 0x220005, 0x220004, 0x220003,
                                     0x220014, 0x220013, 0x220012, 0x22000b, 0x22000a, 0x220009, 0x220015,
                                     0x220016, 0x220017, 0x22000e, 0x22000d, 0x22000c, 0x220018};

TEST(DdrLibrary, RegistersTwentyClassesOneRoutineEachWithTagFour) {
  int libraries = 0;
  CallRecorder const recorder;
  ddr_initialize(libraries);
  // Behind the last start: what the libraries register for themselves lies before it or has another tag.
  auto call = std::ranges::find(recorder.calls, Call{"cls_MetadataRegistrar::initClassMetadata", 4});
  std::vector<unsigned> created;
  for (unsigned typeId : catalogueOrder) {
    ASSERT_NE(call, recorder.calls.end());
    EXPECT_EQ(*call, (Call{"cls_MetadataRegistrar::initClassMetadata", 4}));
    ++call;
    ASSERT_NE(call, recorder.calls.end());
    EXPECT_EQ(*call, (Call{"cls_ClassRegistrar::CreateClassMD", typeId}));
    call = std::find_if(call, recorder.calls.end(),
                        [](Call const& next) { return !next.name.starts_with("cls_Class"); });
  }
  EXPECT_EQ(std::ranges::count(recorder.calls, Call{"cls_MetadataRegistrar::initClassMetadata", 4}), 20);
  ddr_finalize(libraries);
}

TEST(DdrLibrary, RegistersClassesAndThenOldVersionsAfterTheLastStart) {
  int libraries = 0;
  CallRecorder const recorder;
  ddr_initialize(libraries);
  auto const lastStart = std::ranges::find(recorder.calls, Call{"dia_initialize", 0});
  auto const firstClass =
      std::ranges::find(recorder.calls, Call{"cls_MetadataRegistrar::initClassMetadata", 4});
  EXPECT_LT(lastStart - recorder.calls.begin(), firstClass - recorder.calls.begin());
  ASSERT_GE(recorder.calls.size(), 8U);
  std::vector<Call> const lastEight(recorder.calls.end() - 8, recorder.calls.end());
  EXPECT_EQ(lastEight, std::vector<Call>(8, Call{"dbc_OldClassRegistrar::Register", 4}));
  EXPECT_EQ(std::ranges::count(recorder.calls, Call{"dbc_OldClassRegistrar::Register", 4}), 8);
  ddr_finalize(libraries);
}

TEST(DdrLibrary, EachOldVersionIsInAHolderThatOnlyTheRegistrarHolds) {
  int libraries = 0;
  ddr_initialize(libraries);
  auto const& versions = omi_Singleton<dbc_OldClassRegistrar>::Instance().Versions();
  ASSERT_EQ(versions.size(), 8U);
  for (auto const& version : versions) {
    ASSERT_NE(version.holder, nullptr);
    EXPECT_EQ(version.holder->Count(), 1U);
    EXPECT_FALSE(version.holder->IsEmpty());
    EXPECT_EQ(version.tag, 4U);
  }
  ddr_finalize(libraries);
}

TEST(DdrLibrary, TheRegistrarsDropTheirEntriesWhenTheirLibrariesStop) {
  int libraries = 0;
  ddr_initialize(libraries);
  ddr_finalize(libraries);
  EXPECT_EQ(omi_Singleton<cls_MetadataRegistrar>::Instance().RoutineCount(), 0U);
  EXPECT_TRUE(omi_Singleton<dbc_OldClassRegistrar>::Instance().Versions().empty());
  EXPECT_STREQ(typ_ArchCompTable::GetName(0x220006), "");
}

TEST(DdrLibrary, ASecondStartAfterAStopRunsWhole) {
  int libraries = 0;
  ddr_initialize(libraries);
  ddr_finalize(libraries);
  CallRecorder const recorder;
  ddr_initialize(libraries);
  EXPECT_EQ(libraries, 16);
  EXPECT_EQ(recorder.Names(isStartOrStop), withEnding(libraryNames, "_initialize"));
  EXPECT_NE(ddr_ModelExtension::ModuleTable(), nullptr);
  EXPECT_STREQ(typ_ArchCompTable::GetName(0x22000d), "ddr_DdbShortcutImpl");
  EXPECT_EQ(std::ranges::count(recorder.calls, Call{"cls_MetadataRegistrar::initClassMetadata", 4}), 20);
  EXPECT_EQ(omi_Singleton<dbc_OldClassRegistrar>::Instance().Versions().size(), 8U);
  ddr_finalize(libraries);
}

TEST(DdrLibrary, AStopTooManyOnlyMovesTheNestingCount) {
  int libraries = 5;
  CallRecorder const recorder;
  ddr_finalize(libraries);
  ddr_initialize(libraries); // brings the count back
  EXPECT_TRUE(recorder.calls.empty());
  EXPECT_EQ(libraries, 5);
}

TEST(DdrLibrary, OldVersionsAreThereOnceWhileAnotherClientKeepsTheirLibraryUp) {
  int libraries = 0;
  dbc_initialize(libraries);
  for (int round = 0; round < 2; ++round) {
    ddr_initialize(libraries);
    EXPECT_EQ(omi_Singleton<dbc_OldClassRegistrar>::Instance().Versions().size(), 8U);
    ddr_finalize(libraries);
  }
  dbc_finalize(libraries);
}

TEST(DdrLibrary, StopReleasesTheRegistryBeforeTheExtensionTableAndTheLibraries) {
  int libraries = 0;
  ddr_initialize(libraries);
  ddr_Root::Instance();
  struct Seen {
    bool registry = true;
    bool table = true;
  } seen;
  os_setCallObserver(
      [](char const* call, unsigned, void* context) {
        if (std::string(call) == "dia_finalize") {
          auto& found = *static_cast<Seen*>(context);
          found.registry = thr_ThreadSingletonBase<ddr_Root>::Instance() != nullptr;
          found.table = ddr_ModelExtension::ModuleTable() != nullptr;
        }
      },
      &seen);
  ddr_finalize(libraries);
  os_setCallObserver(nullptr, nullptr);
  EXPECT_FALSE(seen.registry);
  EXPECT_FALSE(seen.table);
}

TEST(DdrLibrary, StopReleasesTheRegistryOfTheCallingThreadOnly) {
  int libraries = 0;
  ddr_initialize(libraries);
  bool stillThere = false;
  std::thread other([&] {
    ddr_Root* const own = &ddr_Root::Instance();
    std::thread([&] { ddr_finalize(libraries); }).join();
    stillThere = thr_ThreadSingletonBase<ddr_Root>::Instance() == own;
  });
  other.join();
  EXPECT_TRUE(stillThere);
  EXPECT_EQ(thr_ThreadSingletonBase<ddr_Root>::SlotState().liveCount, 0U);
}

} // namespace
