// The platform's small services in small memory.
#include "memory_Call.h"

#include "atr_String.h"
#include "cls_MetadataRegistrar.h"
#include "dbc_DatabaseConverter.h"
#include "dbc_DatabaseConverterHolder.h"
#include "dbc_OldClassRegistrar.h"
#include "ddr_Library.h"
#include "ddr_ProductAddOnList.h"
#include "ddr_Root.h"
#include "dia_Library.h"
#include "mem_BlockPool.h"
#include "mem_Memory.h"
#include "nex_Library.h"
#include "omu_Exceptions.h"
#include "rfm_Exception.h"
#include "rgx_GapPattern.h"
#include "rgx_ReIterator.h"
#include "rom_CowBarn.h"
#include "thr_ThreadSingleton.h"
#include "typ_ArchCompTable.h"
#include "typ_DebugFlags.h"
#include "utl_Utf8.h"

#include <array>
#include <optional>
#include <utility>

namespace {

constexpr char const* longText = "a text that is too long to be held in the object itself";

// ---- memory itself ----

struct Blocks {
  void* block = nullptr;
  std::size_t size = 0;
  void* raw = nullptr;

  Blocks() = default;
  Blocks(Blocks const&) = delete;
  Blocks& operator=(Blocks const&) = delete;
  ~Blocks() {
    mem_poolFree(block, size);
    mem_Free(raw);
  }
  void take(std::size_t wanted) {
    block = mem_poolAllocate(wanted);
    size = wanted;
  }
  void change(std::size_t wanted) {
    void* const moved = mem_Realloc(raw, wanted);
    if (moved == nullptr) {
      throw std::bad_alloc();
    }
    raw = moved;
  }
  std::string look() const { return std::to_string(size) + (raw ? " raw" : ""); }
};

std::vector<memory_call> const blockCalls = memory_calls<Blocks>({
    {"mem_poolAllocate of a small block", [](Blocks& on) { on.take(24); }},
    {"mem_poolAllocate of a large block", [](Blocks& on) { on.take(2000); }},
    {"mem_Realloc of nothing", [](Blocks& on) { on.change(1000); }},
});

// ---- texts and exceptions ----

struct Words {
  atr_StringBase base{longText};
  std::string told;
  std::string look() const { return base.Text() + "|" + told; }
};

template <class Exception>
std::string whatOf(Exception const& exception) {
  try {
    nex_Exception::Throw(exception, "tests", 1);
  } catch (nex_Exception const& thrown) {
    return thrown.what();
  }
}

std::vector<memory_call> const wordCalls = memory_calls<Words>({
    {"atr_StringBase of a text", [](Words& on) { on.base = atr_StringBase(std::string(100, 'x')); }},
    {"atr_StringBase::append", [](Words& on) { on.base.append(longText); }},
    {"atr_StringBase::Erase", [](Words& on) { on.base.Erase(3, 4); }, memory_need::None},
    {"atr_StringBase::Substitute", [](Words& on) { on.base.Substitute("o", "a much longer text"); }},
    {"atr_translate", [](Words& on) { on.told = atr_translate(longText); }},
    {"atr_SubstituteFormat",
     [](Words& on) {
       on.told = atr_SubstituteFormat("%s and %s", {longText, longText});
     }},
    {"utl_Printable", [](Words& on) { on.told = utl_Printable("\n\xff and a text of some length"); }},
    {"utl_PrintableStart", [](Words& on) { on.told = utl_PrintableStart(std::string(300, '\n')); }},
    {"cls_Uid::Text",
     [](Words& on) {
       on.told = cls_Uid(cls_Uid::Bytes{1, 2, 3}).Text();
     }},
    {"nex_TextException", [](Words& on) { on.told = whatOf(nex_TextException(longText)); }},
    {"nex_AssertException", [](Words& on) { on.told = whatOf(nex_AssertException(longText)); }},
    {"omu_ValueErrorException", [](Words& on) { on.told = whatOf(omu_ValueErrorException(longText)); }},
    {"omu_AccessErrorException", [](Words& on) { on.told = whatOf(omu_AccessErrorException(longText)); }},
    {"rfm_Exception",
     [](Words& on) { on.told = whatOf(rfm_Exception(rfm_ErrorKind::Other, longText, longText, longText)); }},
});

/// The expression that a thread used last is kept.
struct Searches {
  Searches() { forget(); }
  Searches(Searches const&) = delete;
  Searches& operator=(Searches const&) = delete;
  ~Searches() { forget(); }
  static void forget() { rgx_match("x(.*?)$", "y"); }
  std::string told;
  std::string look() const { return told; }
};

std::vector<memory_call> const searchCalls = memory_calls<Searches>({
    {"rgx_match of fixed texts",
     [](Searches& on) {
       on.told = rgx_match(R"(\[\'(.*?)\'\]\.(.*?)$)", "cont['name'].models").NthString(1).Text();
     }},
    {"rgx_GapPattern",
     [](Searches& on) {
       auto const pattern =
           rgx_GapPattern::Read(R"(a fixed text, long enough(.*?)and the next of them(.*?)$)");
       on.told =
           pattern->Match("a fixed text, long enough to allocate and the next of them, with an end").at(1);
     }},
});

// ---- types and classes ----

constexpr typ_Entry entries[] = {{0, 1, ""}, {7, 1, "memory_FirstClassWithALongName"}};
constexpr unsigned short component = 0x777;

struct Types {
  Types() { typ_ArchCompTable::InsertEntry(component, typ_ArchCompEntry(entries, 1)); }
  Types(Types const&) = delete;
  Types& operator=(Types const&) = delete;
  ~Types() { typ_ArchCompTable::InsertEntry(component, typ_ArchCompEntry(entries, 0)); }
  std::string look() const { return typ_ArchCompTable::GetName(0x7770001); }
};

std::vector<memory_call> const typeCalls = memory_calls<Types>({
    {"typ_ArchCompTable::InsertEntry",
     [](Types&) { typ_ArchCompTable::InsertEntry(component, typ_ArchCompEntry(entries, 2)); }},
    {"typ_DebugFlags::SetDebugFlags of a component with flags",
     [](Types&) { typ_DebugFlags::SetDebugFlags(component, 0); }, memory_need::None},
});

void describeClass(cls_ClassRegistrar& registrar) {
  registrar.CreateClassMD("memory_SecondClassWithALongName", 0x7770002, 1, nullptr, cls_NoBaseTypeId)
      .AddAttribute("first attribute", cls_AttributeType::Integer, 1, cls_CollectionType::Single)
      .AddAttribute("second attribute", cls_AttributeType::Integer, 1, cls_CollectionType::Single);
}

struct Classes {
  cls_ClassRegistrar registrar;
  cls_ClassRegistrar sharer = registrar;
  std::unique_ptr<cls_ClassRegistrar> made;
  cls_MetadataRegistrar modules;

  Classes() { describeClass(registrar); }
  static std::string show(cls_ClassRegistrar const& registrar) {
    std::string all;
    for (unsigned const id : registrar.TypeIds()) {
      cls_ClassMetadata const& entry = *registrar.Find(id);
      all.append(entry.Name().View()).append(std::to_string(entry.Attributes().size())).append(",");
    }
    return all + "|";
  }
  std::string look() const {
    return show(registrar) + show(sharer) + (made ? show(*made) : "") +
           std::to_string(modules.RoutineCount());
  }
};

std::vector<memory_call> const classCalls = memory_calls<Classes>({
    {"cls_ClassRegistrar", [](Classes& on) { on.made = std::make_unique<cls_ClassRegistrar>(); }},
    {"cls_ClassRegistrar::CreateClassMD",
     [](Classes& on) { on.registrar.CreateClassMD(longText, 0x7770003, 1, nullptr, cls_NoBaseTypeId); }},
    {"cls_ClassRegistrar::CreateClassMD in place of another",
     [](Classes& on) { on.registrar.CreateClassMD(longText, 0x7770002, 1, nullptr, cls_NoBaseTypeId); }},
    {"cls_ClassMetadata::AddAttribute",
     [](Classes& on) {
       const_cast<cls_ClassMetadata*>(on.registrar.Find(0x7770002))
           ->AddAttribute(longText, cls_AttributeType::Integer, 1, cls_CollectionType::Single);
     }},
    {"cls_ClassRegistrar::TypeIds", [](Classes& on) { static_cast<void>(on.registrar.TypeIds()); }},
    {"cls_MetadataRegistrar::initClassMetadata",
     [](Classes& on) { on.modules.initClassMetadata(describeClass, 1); }},
    {"cls_MetadataRegistrar::MakeClassRegistrar",
     [](Classes& on) {
       on.made.reset(omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
     }},
});

enum MetalEnum : int { Metal_Fental, Metal_Iron };
using Metal = omu_PrimEnum<MetalEnum, 1>;
using SoldMetal = omu_PrimEnum<MetalEnum, 2>;

} // namespace

template <>
omu_PrimEnumEntry const* Metal::EnumTable() noexcept {
  static constexpr omu_PrimEnumEntry table[] = {
      {"FENTAL", Metal_Fental}, {"a metal with a long name", Metal_Iron}, {nullptr, 0}};
  return table;
}

template <>
omu_PrimEnumEntry const* SoldMetal::EnumTable() noexcept {
  return Metal::EnumTable();
}

namespace {

struct Values {
  Metal metal;
  Metal iron{Metal_Iron};
  SoldMetal sold;
  ddr_ProductAddOn addOn;
  ddr_ProductAddOnList list;
  ddr_ProductAddOnList sharer;
  std::string told;

  Values() {
    list.Append(ddr_ProductAddOn(ddr_ProductAddOn_Fental));
    sharer = list;
  }
  static std::string show(ddr_ProductAddOnList const& list) {
    std::string all;
    for (int index = 0; index < list.Size(); ++index) {
      all.append(list.ConstGet(index).GetString().View()).append(",");
    }
    return all + "|";
  }
  std::string look() const {
    return std::string(addOn.GetString().Text()) + metal.GetString().Text() + sold.GetString().Text() +
           show(list) + show(sharer) + told;
  }
};

std::vector<memory_call> const valueCalls = memory_calls<Values>({
    {"omu_PrimEnum of a value", [](Values& on) { on.metal = Metal(Metal_Iron); }},
    {"omu_PrimEnum::SetValue", [](Values& on) { on.metal.SetValue("a metal with a long name"); }},
    {"omu_PrimEnum::Copy", [](Values& on) { delete on.addOn.Copy(); }},
    {"omu_PrimEnum::PermissibleValues",
     [](Values& on) { on.told = std::to_string(on.addOn.PermissibleValues().Size()); }},
    {"omu_PrimEnum::PermissibleValuesAsString",
     [](Values& on) { on.told = on.metal.PermissibleValuesAsString().Text(); }},
    {"omu_PrimEnum of a text that is none",
     [](Values& on) {
       on.told = memory_refusal<omu_ValueErrorException>(
           [&] { on.addOn = ddr_ProductAddOn(cow_String(longText)); });
     }},
    {"omu_PrimEnum of a number that is none",
     [](Values& on) {
       on.told = memory_refusal<omu_ValueErrorException>(
           [&] { on.addOn = ddr_ProductAddOn(static_cast<ddr_ProductAddOnEnum>(99)); });
     }},
    {"omu_PrimEnum of another enumeration",
     [](Values& on) { on.sold = SoldMetal(static_cast<omu_PrimEnumBase const&>(on.iron)); }},
    {"omu_PrimEnum of a value that another enumeration has alone",
     [](Values& on) {
       on.told = memory_refusal<omu_ValueErrorException>(
           [&] { on.addOn = ddr_ProductAddOn(static_cast<omu_PrimEnumBase const&>(on.iron)); });
     }},
    {"ddr_ProductAddOnList::Append",
     [](Values& on) { on.list.Append(ddr_ProductAddOn(ddr_ProductAddOn_Koru)); }},
    {"ddr_ProductAddOnList::Append of an item of its own",
     [](Values& on) { on.list.Append(on.list.ConstGet(0)); }},
});

// ---- the cache of objects ----

struct Barns {
  rom_CowBarn barn;

  Barns() { insert(1); }
  void insert(int value) { barn.Insert(1, value % 10, new rom_CowBarn::Handle(new int(value)), release); }
  std::string look() const {
    std::string all = std::to_string(barn.Size());
    for (int row : {1, 2}) {
      rom_CowBarn::Handle const* const found = barn.Find(1, row);
      all += found == nullptr ? " none" : " " + std::to_string(found->ConstGet());
    }
    return all;
  }

private:
  static void release(rom_CowBarn::Handle* handle) { delete handle; }
};

std::vector<memory_call> const barnCalls = memory_calls<Barns>({
    {"rom_CowBarn::Insert", [](Barns& on) { on.insert(2); }},
    {"rom_CowBarn::Insert in place of another", [](Barns& on) { on.insert(11); }},
    {"rom_CowBarn::Clear", [](Barns& on) { on.barn.Clear(); }, memory_need::None},
});

// ---- steps of conversion ----

class OldLayout : public dbc_OldClassVersion {
public:
  void DefineClassMetadata(cls_ClassRegistrar& registrar) const override { describeClass(registrar); }
};

struct Conversions {
  dbc_DatabaseConverter converter;
  dbc_OldClassRegistrar registrar;
  dbc_DatabaseConverterHolder holder;
  std::string told;

  Conversions() { registrar.Register(new dbc_OldClassRegistrar::Holder(new OldLayout), 1); }
  void adopt() { registrar.Register(new dbc_OldClassRegistrar::Holder(new OldLayout), 2); }
  std::string look() const {
    std::string all =
        std::to_string(registrar.Versions().size()) + " " + std::to_string(registrar.Versions().at(0).tag);
    for (auto const& [step, passed] : converter.Converters()) {
      all += " " + std::to_string(step) + ":" + std::to_string(passed.Classes().size());
    }
    return all + told;
  }
};

std::vector<memory_call> const conversionCalls = memory_calls<Conversions>({
    {"dbc_DatabaseConverter::GetConverter", [](Conversions& on) { on.converter.GetConverter(3); }},
    {"dbc_DatabaseConverter::OutputDatabase without a conversion",
     [](Conversions& on) {
       on.told = memory_refusal<nex_AssertException>([&] { on.converter.OutputDatabase(); });
     }},
    {"dbc_DatabaseConverterHolder::GetDatabaseConverter without one",
     [](Conversions& on) {
       on.told = memory_refusal<nex_AssertException>([&] { on.holder.GetDatabaseConverter(); });
     }},
    {"dbc_DatabaseConverterHolder::Hold beside another",
     [](Conversions& on) {
       dbc_DatabaseConverter other;
       on.holder.Release();
       on.holder.Hold(on.converter);
       on.told = memory_refusal<nex_TextException>([&] { on.holder.Hold(other); });
     }},
    {"dbc_OldClassRegistrar::Register", [](Conversions& on) { on.adopt(); }},
});

struct PreparedConversions : Conversions {
  PreparedConversions() { converter.GetConverter(3); }
};

std::vector<memory_call> const preparedConversionCalls = memory_calls<PreparedConversions>({
    {"dbc_Converter::Upgrade",
     [](PreparedConversions& on) {
       on.converter.GetConverter(3).Upgrade("memory_AClassWithALongName", 0x7770002, 1);
     }},
    {"dbc_OldClassVersion without steps",
     [](PreparedConversions& on) {
       OldLayout const layout;
       layout.SchemaChanges(on.converter);
       layout.ClassesToDelete(on.converter);
       layout.ClassesToRename(on.converter);
       layout.TablesToRename(on.converter);
       cls_ClassRegistrar registrar;
       layout.DefineClassMetadata(registrar);
       on.told = std::to_string(registrar.TypeIds().size());
     }},
});

// ---- the module ----

struct Module {
  int libraries = 0;
  bool isUp = false;

  Module() = default;
  Module(Module const&) = delete;
  Module& operator=(Module const&) = delete;
  ~Module() {
    if (isUp) {
      ddr_finalize(libraries);
    }
  }
  void start() {
    ddr_initialize(libraries);
    isUp = true;
  }
  std::string look() const {
    return std::to_string(libraries) + typ_ArchCompTable::GetName(0x220007) +
           std::to_string(omi_Singleton<cls_MetadataRegistrar>::Instance().RoutineCount()) + " " +
           std::to_string(omi_Singleton<dbc_OldClassRegistrar>::Instance().Versions().size());
  }
};

struct RunningModule : Module {
  RunningModule() { start(); }
  std::string look() const {
    return Module::look() + (thr_ThreadSingletonBase<ddr_Root>::Instance() ? " registry" : "");
  }
};

std::vector<memory_call> const moduleCalls =
    memory_calls<Module>({{"ddr_initialize", [](Module& on) { on.start(); }}});

std::vector<memory_call> const runningModuleCalls = memory_calls<RunningModule>({
    {"ddr_finalize",
     [](RunningModule& on) {
       on.isUp = false;
       ddr_finalize(on.libraries);
     },
     memory_need::None},
    {"ddr_Root::Instance", [](RunningModule&) { ddr_Root::Instance(); }},
    {"dbc_OldClassVersion::SchemaChanges and DefineClassMetadata of every old layout",
     [](RunningModule&) {
       dbc_DatabaseConverter converter;
       cls_ClassRegistrar registrar;
       for (auto const& old : omi_Singleton<dbc_OldClassRegistrar>::Instance().Versions()) {
         old.holder->Peek()->SchemaChanges(converter);
         old.holder->Peek()->DefineClassMetadata(registrar);
       }
     }},
});

/// The one library whose start needs memory by itself.
struct Diagnostics {
  int libraries = 0;
  Diagnostics() { omi_Singleton<cls_MetadataRegistrar>::Instance().Clear(); }
  Diagnostics(Diagnostics const&) = delete;
  Diagnostics& operator=(Diagnostics const&) = delete;
  ~Diagnostics() {
    if (libraries != 0) {
      dia_finalize(libraries);
    }
    omi_Singleton<cls_MetadataRegistrar>::Instance().Clear();
  }
  std::string look() const {
    return std::to_string(libraries) + " " +
           std::to_string(omi_Singleton<cls_MetadataRegistrar>::Instance().RoutineCount());
  }
};

std::vector<memory_call> const diagnosticsCalls =
    memory_calls<Diagnostics>({{"dia_initialize", [](Diagnostics& on) { dia_initialize(on.libraries); }}});

class Memory_Platform : public memory_test {};

TEST_P(Memory_Platform, IsWhatItWasAfterAnyFailedAllocation) {
  constexpr std::uint64_t all = 1'000'000;
  failEach(all);
}

// ---- what is called when the library nex stops ----

constexpr std::size_t dropCount = 40;
std::array<int, dropCount> drops{};

template <std::size_t... number>
constexpr std::array<void (*)(), dropCount> makeDroppers(std::index_sequence<number...> /*all*/) {
  return {[] { ++drops[number]; }...};
}

TEST(Memory_Nex, EveryFunctionForItsStopIsKeptOnceThoughMemoryRanOut) {
  std::uint64_t failures = 0;
  for (auto const drop : makeDroppers(std::make_index_sequence<dropCount>())) {
    failing_memory::start(1, failing_memory::Lasting::FromThenOn);
    try {
      nex_atFinalize(drop);
    } catch (std::bad_alloc const&) {
      failing_memory::stop();
      ++failures;
    }
    failing_memory::stop();
    nex_atFinalize(drop);
  }
  EXPECT_GT(failures, 3U);
  int libraries = 0;
  nex_initialize(libraries);
  drops = {};
  nex_finalize(libraries);
  std::array<int, dropCount> once{};
  once.fill(1);
  EXPECT_EQ(drops, once);
  memory_tell(1, failures);
}

INSTANTIATE_TEST_SUITE_P(Blocks, Memory_Platform, testing::ValuesIn(blockCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Words, Memory_Platform, testing::ValuesIn(wordCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Searches, Memory_Platform, testing::ValuesIn(searchCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Types, Memory_Platform, testing::ValuesIn(typeCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Classes, Memory_Platform, testing::ValuesIn(classCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Values, Memory_Platform, testing::ValuesIn(valueCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Barns, Memory_Platform, testing::ValuesIn(barnCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Conversions, Memory_Platform, testing::ValuesIn(conversionCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(PreparedConversions, Memory_Platform, testing::ValuesIn(preparedConversionCalls),
                         memory_testName);
INSTANTIATE_TEST_SUITE_P(Diagnostics, Memory_Platform, testing::ValuesIn(diagnosticsCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(Module, Memory_Platform, testing::ValuesIn(moduleCalls), memory_testName);
INSTANTIATE_TEST_SUITE_P(RunningModule, Memory_Platform, testing::ValuesIn(runningModuleCalls),
                         memory_testName);

} // namespace
