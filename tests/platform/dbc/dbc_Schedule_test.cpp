// Which steps run for a file: layouts that keep their fields, bases that change, and modules that err.
#include "thing_module.h"

#include <map>

namespace {

using Texts = std::vector<std::string>;

constexpr unsigned partTypeId = 0x500004;
constexpr auto rawKind = static_cast<cls_AttributeType>(99);

/// What the functions of the class "Part" do.
std::function<void(dbc_Row const&, dbc_Row&)>& partStep(int step) {
  static std::map<int, std::function<void(dbc_Row const&, dbc_Row&)>> steps;
  return steps[step];
}

template <int step>
void* convertPart(dbc_Row const& input, dbc_Row& output, int) {
  if (partStep(step)) {
    partStep(step)(input, output);
  }
  return nullptr;
}

void describePart(cls_ClassRegistrar& registrar, int version, unsigned base) {
  registrar.CreateClassMD("Part", partTypeId, version, nullptr, base)
      .AddAttribute("name", cls_AttributeType::String, 1, cls_CollectionType::Single)
      .AddAttribute("entries", cls_AttributeType::Handle, 1, cls_CollectionType::Single)
      .AddAttribute("raw", rawKind, 1, cls_CollectionType::Single)
      .AddAttribute("box", cls_AttributeType::Object, boxTypeId, cls_CollectionType::Single);
}

/// One older layout of a class, and the step that ends it.
template <int version, int step, unsigned base>
class PartOld : public dbc_OldClassVersion {
  void DefineClassMetadata(cls_ClassRegistrar& registrar) const override {
    describePart(registrar, version, base);
  }
  void SchemaChanges(dbc_DatabaseConverter& converter) const override {
    converter.GetConverter(step)
        .Upgrade("Part", partTypeId, version)
        .BindConversionFunction(convertPart<step>);
  }
};

/// "Part": 1 without a base -(step 7)-> 2 with one -(step 8)-> 3, the same -(step 9)-> 4 without a base.
class dbc_Schedule_ : public thing_test {
protected:
  dbc_Schedule_() {
    registerOld(new PartOld<1, 7, cls_NoBaseTypeId>());
    registerOld(new PartOld<2, 8, boxTypeId>());
    registerOld(new PartOld<3, 9, boxTypeId>());
    omi_Singleton<cls_MetadataRegistrar>::Instance().initClassMetadata(
        [](cls_ClassRegistrar& registrar) { describePart(registrar, 4, cls_NoBaseTypeId); }, 4);
    makeParts(1);
  }
  ~dbc_Schedule_() override {
    for (int const step : {7, 8, 9}) {
      partStep(step) = nullptr;
    }
  }

  void makeParts(int version, std::string const& changes = "") {
    make("INSERT INTO ddr_class VALUES(3, 'Part', 'class_Part', 0x500004, " + std::to_string(version) +
         ", 1);"
         "INSERT INTO ddr_attribute VALUES(3, 0, 'name', 11, 1, 0), (3, 1, 'entries', 9, 1, 0), "
         "(3, 2, 'raw', 99, 1, 0), (3, 3, 'box', 15, 0x500002, 0);"
         "CREATE TABLE class_Part(\"row\" INTEGER PRIMARY KEY, \"#uid\" BLOB, name, entries, raw, "
         "\"box#ClassID\" INTEGER, \"box#OID\" INTEGER);"
         "INSERT INTO class_Part VALUES(0, x'000000000000000000000000000000b0', 'p', 1099511627776, x'00ff', "
         "0x500002, 2);" +
         changes);
  }
  static dbc_ClassReport partReport(dbc_ConversionReport const& report) { return report.classes.at(3); }
};

TEST_F(dbc_Schedule_, EveryKindOfValueIsCarriedThroughTheLayouts) {
  EXPECT_EQ(partReport(convert()).steps.size(), 3U);
  EXPECT_EQ(converted().field("Part", 0, "name"), "'p'");
  EXPECT_EQ(converted().field("Part", 0, "entries"), "1099511627776");
  EXPECT_EQ(converted().field("Part", 0, "raw"), "x'00ff'");
  EXPECT_EQ(converted().field("Part", 0, "box#OID"), "2");
  EXPECT_EQ(converted().field("Part", 0, "#uid"), "x'000000000000000000000000000000b0'");
}

TEST_F(dbc_Schedule_, ABasePartIsThereWhereTheLayoutHasABase) {
  Texts seen;
  for (int const step : {7, 8, 9}) {
    partStep(step) = [&seen](dbc_Row const& input, dbc_Row& output) {
      seen.push_back(std::string(input.HasField("##BaseClassOID") ? "base" : "none") + " -> " +
                     (output.HasField("##BaseClassOID") ? "base" : "none"));
    };
  }
  convert();
  EXPECT_EQ(seen, (Texts{"none -> base", "base -> base", "base -> none"}));
}

TEST_F(dbc_Schedule_, ARowIsChangedWhereItStandsWhenTheLayoutStays) {
  partStep(8) = [](dbc_Row const&, dbc_Row& output) { output.WriteFieldString("name", "changed"); };
  EXPECT_EQ(notes(partReport(convert())), "");
  EXPECT_EQ(converted().field("Part", 0, "name"), "'changed'");
  EXPECT_EQ(converted().field("Part", 0, "raw"), "x'00ff'");
}

TEST_F(dbc_Schedule_, HalfAReferenceThatAStepLeftIsDroppedByTheNext) {
  partStep(7) = [](dbc_Row const&, dbc_Row& output) { output.WriteFieldNull("box#OID"); };
  EXPECT_EQ(notes(partReport(convert())),
            "7 Dropped box: the new layout keeps something else under this name x1; "
            "8 Dropped box: only one half of the reference was set x1; ");
  EXPECT_EQ(converted().field("Part", 0, "box#ClassID"), "NULL");
}

TEST_F(dbc_Schedule_, AReferenceThatAStepTurnsToAnotherObjectIsALoss) {
  partStep(7) = [](dbc_Row const&, dbc_Row& output) { output.WriteFieldInt("box#OID", 0); };
  EXPECT_EQ(notes(partReport(convert())), "7 Dropped box: the reference leads to something new x1; ");
}

TEST_F(dbc_Schedule_, AReferenceToAnObjectThatIsNotThereCanBeReplacedWithoutALoss) {
  makeParts(1, "UPDATE class_Part SET \"box#OID\" = 77;");
  partStep(7) = [](dbc_Row const&, dbc_Row& output) { output.WriteFieldInt("box#OID", 0); };
  EXPECT_EQ(notes(partReport(convert())), "");
}

// ---- modules that declare too little, too much, or in a wrong order ----

TEST_F(dbc_Schedule_, AVersionThatCouldNotBeMadeDeclaresNothing) {
  omi_Singleton<dbc_OldClassRegistrar>::Instance().Register(nullptr, 4);
  omi_Singleton<dbc_OldClassRegistrar>::Instance().Register(new dbc_OldClassRegistrar::Holder(), 4);
  EXPECT_EQ(partReport(convert()).versionOut, 4);
}

/// Declares a step for a class without its layout.
class WithoutLayout : public dbc_OldClassVersion {
  void DefineClassMetadata(cls_ClassRegistrar&) const override {}
  void SchemaChanges(dbc_DatabaseConverter& converter) const override {
    converter.GetConverter(50).Upgrade("Part", partTypeId, 4);
  }
};

TEST_F(dbc_Schedule_, AStepFromALayoutThatIsNotDescribedDoesNotRun) {
  registerOld(new WithoutLayout());
  EXPECT_EQ(partReport(convert()).steps.size(), 3U);
}

/// Describes another version than the one that its step starts from.
class WithAnotherVersion : public dbc_OldClassVersion {
  void DefineClassMetadata(cls_ClassRegistrar& registrar) const override {
    describePart(registrar, 11, cls_NoBaseTypeId);
  }
  void SchemaChanges(dbc_DatabaseConverter& converter) const override {
    converter.GetConverter(50).Upgrade("Part", partTypeId, 12);
  }
};

TEST_F(dbc_Schedule_, ALayoutThatNoStepStartsFromIsNotConverted) {
  registerOld(new WithAnotherVersion());
  for (int const version : {11, 12}) {
    makeParts(version);
    EXPECT_NE(failure().find("class 'Part': it has the version " + std::to_string(version)),
              std::string::npos);
  }
}

TEST_F(dbc_Schedule_, AStepThatStartsFromTheCurrentLayoutDoesNotRun) {
  registerOld(new PartOld<4, 50, cls_NoBaseTypeId>());
  EXPECT_EQ(partReport(convert()).steps.size(), 3U);
  makeParts(4);
  EXPECT_EQ(partReport(dbc_Conversion::Plan(cow_String(oldPath))).steps.size(), 0U);
}

TEST_F(dbc_Schedule_, ALayoutWhoseStepsEndTooEarlyIsRefused) {
  registerOld(new PartOld<0, 60, cls_NoBaseTypeId>()); // behind the steps from 1 to 4
  makeParts(0);
  std::string const said = failure();
  EXPECT_EQ(said, "Database file '" + oldPath +
                      "', class 'Part': it has the version 0, this program converts 0, 1, 2, 3, and knows 4. "
                      "Convert it first with a release that knows this version.");
  EXPECT_EQ(folder.names(), Texts{"old.ddr"});
}

} // namespace
