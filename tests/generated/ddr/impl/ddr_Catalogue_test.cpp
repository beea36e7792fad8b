// The catalogue of persistent classes: names, numbers and order are stored in every file.
#include "ddr_ModuleTest.h"
#include "recording_rows.h"
#include "typ_ArchCompTable.h"

#include <algorithm>
#include <memory>

namespace {

struct Attribute {
  std::string name;
  int kind;
  unsigned element;
  int collection;
  friend bool operator==(Attribute const&, Attribute const&) = default;
  friend std::ostream& operator<<(std::ostream& stream, Attribute const& attribute) {
    return stream << attribute.name << " " << attribute.kind << " " << attribute.element << " "
                  << attribute.collection;
  }
};

struct Entry {
  char const* name;
  unsigned typeId;
  int version;
  unsigned base;
  bool destructor;
  char quantum;
  std::vector<Attribute> attributes;
};

std::vector<Entry> const& catalogue() {
  static std::vector<Entry> const entries = {
      {"ddr_Ddb",
       0x220006,
       848,
       1,
       true,
       'S',
       {{"models", 15, 0x220007, 2},
        {"results", 15, 0x230002, 2},
        {"userData", 15, 0x230002, 2},
        {"diagnosticData", 15, 0x210001, 1},
        {"name", 11, 1, 0},
        {"modifyTime", 5, 1, 0},
        {"creationTime", 5, 1, 0},
        {"analysisVersion", 11, 1, 0},
        {"sequenceData", 11, 1, 0},
        {"onlyHasUserDefinedData", 13, 1, 0},
        {"description", 11, 1, 0},
        {"ddbVersion", 5, 1, 0},
        {"productAddOns", 15, 0x230001, 1}}},
      {"ddr_Result", 0x220001, 203, 1, true, '-', {}},
      {"ddr_UserData", 0x220010, 203, 1, false, '-', {}},
      {"ddr_Model",
       0x220007,
       874,
       1,
       true,
       '-',
       {{"modelName", 11, 1, 0}, {"instanceTable", 15, 0x220018, 0}}},
      {"ddr_ResultContainerShortcut", 0x220005, 203, 1, true, 'S', {{"impl", 15, 0x220003, 0}}},
      {"ddr_ResultContainerInDdbShortcut", 0x220004, 203, 0x220003, true, 'M', {{"parent", 15, 0x22000e, 0}}},
      {"ddr_ResultContainerIMPLSC", 0x220003, 203, 1, true, 'S', {}},
      {"ddr_UserDataContainerShortcut", 0x220014, 203, 1, true, 'S', {{"impl", 15, 0x220012, 0}}},
      {"ddr_UserDataContainerInDdbShortcut",
       0x220013,
       203,
       0x220012,
       true,
       'M',
       {{"parent", 15, 0x22000e, 0}}},
      {"ddr_UserDataContainerIMPLSC", 0x220012, 203, 1, true, 'S', {}},
      {"ddr_ModelContainerShortcut", 0x22000b, 203, 1, true, 'S', {{"impl", 15, 0x220009, 0}}},
      {"ddr_ModelContainerInDdbShortcut", 0x22000a, 203, 0x220009, true, 'M', {{"parent", 15, 0x22000e, 0}}},
      {"ddr_ModelContainerIMPLSC", 0x220009, 203, 1, true, 'S', {}},
      {"ddr_ModelIMPLSC", 0x220015, 203, 1, true, 'S', {}},
      {"ddr_ModelShortcut", 0x220016, 203, 1, true, 'S', {{"impl", 15, 0x220015, 0}}},
      {"ddr_ModelInModelContainerShortcut",
       0x220017,
       203,
       0x220015,
       true,
       'S',
       {{"name", 11, 1, 0}, {"parent", 15, 0x22000b, 0}}},
      {"ddr_DdbShortcut", 0x22000e, 203, 1, true, 'S', {{"impl", 15, 0x22000c, 0}}},
      {"ddr_DdbShortcutImpl", 0x22000d, 203, 0x22000c, true, '-', {{"name", 11, 1, 0}}},
      {"ddr_DdbIMPLSC", 0x22000c, 203, 1, true, 'S', {}},
      {"ddr_ExtensionTable", 0x220018, 401, 1, false, '-', {{"map", 15, 0x230002, 2}}},
  };
  return entries;
}

class DdrCatalogue : public ddr_ModuleTest {
protected:
  DdrCatalogue() : classes(omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar()) {}

  cls_ClassMetadata const& metadata(unsigned typeId) const {
    cls_ClassMetadata const* const found = classes->Find(typeId);
    if (found == nullptr) {
      throw std::logic_error("no such class");
    }
    return *found;
  }

  /// What is recorded while all classes are registered anew, from the creation of one class to the next.
  static std::vector<Call> callsFor(unsigned typeId) {
    CallRecorder recorder;
    std::unique_ptr<cls_ClassRegistrar> const made(
        omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
    auto const isCreation = [](Call const& call) { return call.name == "cls_ClassRegistrar::CreateClassMD"; };
    auto const first = std::ranges::find(recorder.calls, Call{"cls_ClassRegistrar::CreateClassMD", typeId});
    auto const last =
        first == recorder.calls.end() ? first : std::find_if(first + 1, recorder.calls.end(), isCreation);
    return {first, last};
  }

  std::unique_ptr<cls_ClassRegistrar> classes;
};

TEST_F(DdrCatalogue, HoldsTwentyClassesOfTheComponent) {
  std::vector<unsigned> known;
  for (unsigned typeId : classes->TypeIds()) {
    if (typeId >> 16U == 34) {
      known.push_back(typeId);
    }
  }
  std::vector<unsigned> wanted;
  for (Entry const& entry : catalogue()) {
    wanted.push_back(entry.typeId);
  }
  std::ranges::sort(wanted);
  EXPECT_EQ(known, wanted);
  EXPECT_EQ(known.size(), 20U);
}

TEST_F(DdrCatalogue, HoldsNoClassForTheContainersAndTheModelExtension) {
  for (unsigned typeId : {0x220000U, 0x220002U, 0x220008U, 0x22000fU, 0x220011U, 0x220019U}) {
    EXPECT_EQ(classes->Find(typeId), nullptr) << typeId;
  }
}

TEST_F(DdrCatalogue, NamesVersionsAndBasesAreThoseOfTheFormat) {
  for (Entry const& entry : catalogue()) {
    cls_ClassMetadata const& found = metadata(entry.typeId);
    EXPECT_STREQ(found.Name().Text(), entry.name);
    EXPECT_EQ(found.TypeId(), entry.typeId) << entry.name;
    EXPECT_EQ(found.Version(), entry.version) << entry.name;
    EXPECT_EQ(found.BaseTypeId(), entry.base) << entry.name;
  }
}

TEST_F(DdrCatalogue, AttributesAreThoseOfTheFormatInOrder) {
  for (Entry const& entry : catalogue()) {
    std::vector<Attribute> found;
    for (cls_AttributeMetadata const& attribute : metadata(entry.typeId).Attributes()) {
      found.push_back({attribute.name.Text(), static_cast<int>(attribute.kind), attribute.elementTypeId,
                       static_cast<int>(attribute.collection)});
    }
    EXPECT_EQ(found, entry.attributes) << entry.name;
  }
}

TEST_F(DdrCatalogue, TheDiagnosticListHasTheIdOfItsClass) {
  EXPECT_EQ(cls_ListObj<dia_DiagnosticData>::TypeId(), 0x210001U);
}

TEST_F(DdrCatalogue, EighteenClassesRegisterAHandleDestructor) {
  for (Entry const& entry : catalogue()) {
    EXPECT_EQ(metadata(entry.typeId).Destructor() != nullptr, entry.destructor) << entry.name;
  }
}

TEST_F(DdrCatalogue, UserDataRegistersNoHandleDestructorThoughResultsDo) {
  EXPECT_NE(metadata(ddr_Result::TypeId()).Destructor(), nullptr);
  EXPECT_EQ(metadata(ddr_UserData::TypeId()).Destructor(), nullptr);
  EXPECT_EQ(callsFor(ddr_UserData::TypeId()),
            (std::vector<Call>{{"cls_ClassRegistrar::CreateClassMD", 0x220010}}));
}

TEST_F(DdrCatalogue, QuantaAreThoseOfTheCatalogue) {
  EXPECT_NE(cls_ExtQuant::ExtentQuantumConstSmall(), cls_ExtQuant::ExtentQuantumConstMedium());
  for (Entry const& entry : catalogue()) {
    unsigned const wanted = entry.quantum == 'S'   ? cls_ExtQuant::ExtentQuantumConstSmall()
                            : entry.quantum == 'M' ? cls_ExtQuant::ExtentQuantumConstMedium()
                                                   : 0;
    EXPECT_EQ(metadata(entry.typeId).ExtentQuantum(), wanted) << entry.name;
  }
}

TEST_F(DdrCatalogue, TheDatabaseSetsItsQuantumBeforeItsLastAttribute) {
  Call const attribute{"cls_ClassMetadata::AddAttribute", 0x220006};
  std::vector<Call> wanted = {{"cls_ClassRegistrar::CreateClassMD", 0x220006},
                              {"cls_ClassMetadata::AddDtor", 0x220006}};
  wanted.insert(wanted.end(), 12, attribute);
  wanted.push_back({"cls_ClassMetadata::AddTableExtentQuantum", cls_ExtQuant::ExtentQuantumConstSmall()});
  wanted.push_back(attribute);
  EXPECT_EQ(callsFor(0x220006), wanted);
}

TEST_F(DdrCatalogue, EveryOtherClassAddsDestructorThenQuantumThenAttributes) {
  for (Entry const& entry : catalogue()) {
    if (entry.typeId == 0x220006) {
      continue;
    }
    std::vector<Call> wanted = {{"cls_ClassRegistrar::CreateClassMD", entry.typeId}};
    if (entry.destructor) {
      wanted.push_back({"cls_ClassMetadata::AddDtor", entry.typeId});
    }
    if (entry.quantum != '-') {
      wanted.push_back({"cls_ClassMetadata::AddTableExtentQuantum", entry.quantum == 'S' ? 16U : 64U});
    }
    wanted.insert(wanted.end(), entry.attributes.size(),
                  Call{"cls_ClassMetadata::AddAttribute", entry.typeId});
    EXPECT_EQ(callsFor(entry.typeId), wanted) << entry.name;
  }
}

TEST_F(DdrCatalogue, ClassesOfWhichCollectionsBuildTheRecordsHaveFactoriesThatAnswerNull) {
  for (unsigned typeId : {0x220001U, 0x220010U, 0x220003U, 0x220009U, 0x22000cU, 0x220012U, 0x220015U}) {
    ASSERT_NE(metadata(typeId).Constructor(), nullptr) << typeId;
    recording_source const source(std::make_shared<stored_object>(), "db");
    cls_ReadVisitor reader(source);
    EXPECT_EQ(metadata(typeId).Constructor()(reader), nullptr) << typeId;
    EXPECT_TRUE(source.calls().empty()) << typeId;
  }
}

TEST_F(DdrCatalogue, AllOtherClassesHaveAFactory) {
  for (Entry const& entry : catalogue()) {
    EXPECT_NE(metadata(entry.typeId).Constructor(), nullptr) << entry.name;
  }
}

/// Puts the table of types back as it was when it goes.
class RenamedTypes {
public:
  RenamedTypes() {
    for (unsigned index = 0; index < 26; ++index) {
      unsigned const typeId = 0x220000 + index;
      before.push_back({typ_ArchCompTable::GetKind(typeId), typ_ArchCompTable::GetBase(typeId),
                        typ_ArchCompTable::GetName(typeId)});
    }
    std::vector<typ_Entry> renamed = before;
    for (unsigned index = 1; index < 26; ++index) {
      names[index] = std::string("renamed_") + before[index].name;
      renamed[index].name = names[index].c_str();
    }
    typ_ArchCompTable::InsertEntry(34, typ_ArchCompEntry(renamed.data(), 26));
  }
  ~RenamedTypes() { typ_ArchCompTable::InsertEntry(34, typ_ArchCompEntry(before.data(), 26)); }
  RenamedTypes(RenamedTypes const&) = delete;
  RenamedTypes& operator=(RenamedTypes const&) = delete;

private:
  std::vector<typ_Entry> before;
  std::string names[26];
};

TEST_F(DdrCatalogue, RenamingATypeRenamesTheStoredClassOfAShortcutButNotOfARecord) {
  RenamedTypes const renamed;
  std::unique_ptr<cls_ClassRegistrar> const made(
      omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
  for (Entry const& entry : catalogue()) {
    bool const isRecord = entry.typeId == 0x220001 || entry.typeId == 0x220006 || entry.typeId == 0x220007 ||
                          entry.typeId == 0x220010;
    EXPECT_EQ(std::string(made->Find(entry.typeId)->Name().Text()),
              (isRecord ? "" : "renamed_") + std::string(entry.name));
  }
}

/// Lets the catalogue's destructor release one of two handles of an object, and then the last.
template <class Handle>
void releasesBoth(cls_HandleDestructor release, Handle first) {
  ASSERT_NE(release, nullptr);
  cow_ErasedHandle* const one = cow_eraseHandle(first);
  cow_ErasedHandle* const two = cow_eraseHandle(first);
  ASSERT_EQ(first.Count(), 3U);
  release(one);
  EXPECT_EQ(first.Count(), 2U);
  { Handle const last = std::move(first); }
  release(two); // the last holder: the object goes with it, which the leak check sees
}

template <class T>
void releasesObject(cls_HandleDestructor release, T* made) {
  releasesBoth(release, cow_COW<T, cow_Virtual<T>>(made));
}

template <class T>
void releasesShortcut(cls_HandleDestructor release) {
  using Handle = cow_COW<ddr_Shortcut<T>, cow_Direct<ddr_Shortcut<T>>>;
  releasesBoth(release, Handle(new ddr_Shortcut<T>()));
}

TEST_F(DdrCatalogue, TheDestructorsOfRecordsReleaseRealHandles) {
  releasesObject(metadata(0x220006).Destructor(), new ddr_Ddb("n", "i", "d"));
  releasesObject(metadata(0x220001).Destructor(), new ddr_Result());
  releasesObject(metadata(0x220007).Destructor(), new ddr_Model("i", "m"));
}

TEST_F(DdrCatalogue, TheDestructorsOfShortcutsReleaseRealHandles) {
  releasesShortcut<ddr_ResultContainer>(metadata(0x220005).Destructor());
  releasesShortcut<ddr_UserDataContainer>(metadata(0x220014).Destructor());
  releasesShortcut<ddr_ModelContainer>(metadata(0x22000b).Destructor());
  releasesShortcut<ddr_Model>(metadata(0x220016).Destructor());
  releasesShortcut<ddr_Ddb>(metadata(0x22000e).Destructor());
}

TEST_F(DdrCatalogue, TheDestructorsOfImplementationsReleaseRealHandles) {
  ddr_DdbShortcut const database(new ddr_DdbShortcutImpl("db"));
  ddr_ModelContainerShortcut const models(new ddr_ModelContainerInDdbShortcut(database));
  for (unsigned typeId : {0x220003U, 0x220004U}) {
    releasesObject<ddr_ShortcutImpl<ddr_ResultContainer>>(metadata(typeId).Destructor(),
                                                          new ddr_ResultContainerInDdbShortcut(database));
  }
  for (unsigned typeId : {0x220009U, 0x22000aU}) {
    releasesObject<ddr_ShortcutImpl<ddr_ModelContainer>>(metadata(typeId).Destructor(),
                                                         new ddr_ModelContainerInDdbShortcut(database));
  }
  for (unsigned typeId : {0x220012U, 0x220013U}) {
    releasesObject<ddr_ShortcutImpl<ddr_UserDataContainer>>(metadata(typeId).Destructor(),
                                                            new ddr_UserDataContainerInDdbShortcut(database));
  }
  for (unsigned typeId : {0x220015U, 0x220017U}) {
    releasesObject<ddr_ShortcutImpl<ddr_Model>>(metadata(typeId).Destructor(),
                                                new ddr_ModelInModelContainerShortcut("m", models));
  }
  for (unsigned typeId : {0x22000cU, 0x22000dU}) {
    releasesObject<ddr_ShortcutImpl<ddr_Ddb>>(metadata(typeId).Destructor(), new ddr_DdbShortcutImpl("db"));
  }
}

/// A model that tells how many of it live.
class CountedModel : public ddr_Model {
public:
  explicit CountedModel(int& counter) : live(&counter) { ++*live; }
  CountedModel(CountedModel const& other) : ddr_Model(other), live(other.live) { ++*live; }
  CountedModel& operator=(CountedModel const&) = delete;
  ~CountedModel() override { --*live; }
  CountedModel* Copy() const override { return new CountedModel(*this); }

private:
  int* live;
};

TEST_F(DdrCatalogue, ADestructorDestroysTheMostDerivedObject) {
  int live = 0;
  cow_ErasedHandle* erased = nullptr;
  {
    cow_COW<ddr_Model, cow_Virtual<ddr_Model>> const handle(new CountedModel(live));
    erased = cow_eraseHandle(handle);
  }
  EXPECT_EQ(live, 1);
  metadata(ddr_Model::TypeId()).Destructor()(erased);
  EXPECT_EQ(live, 0);
}

} // namespace
