// What shortcuts are called, where they lead, and what resolving them leaves alone.
#include "ddr_Shortcut.h"

#include "database_test.h"
#include "shortcut_set.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using Texts = std::vector<std::string>;

/// The exception of type E that the work throws.
template <class E, class Work>
E caught(Work const& work) {
  try {
    work();
  } catch (E const& exception) {
    return exception;
  }
  throw std::logic_error("nothing was thrown");
}

std::string placeOf(nex_Exception const& exception) {
  return std::string(exception.SourcePath()) + ":" + std::to_string(exception.Line());
}

/// Asks every operation of a handle and collects what goes wrong.
template <class T>
Texts refusalsOf(ddr_Shortcut<T> const& shortcut) {
  ddr_DdbContainer container;
  return {failureOf([&] { static_cast<void>(shortcut.Name()); }),
          failureOf([&] { static_cast<void>(shortcut.Path()); }),
          failureOf([&] { static_cast<void>(shortcut.PythonPath()); }),
          failureOf([&] { static_cast<void>(shortcut.DdbName()); }),
          failureOf([&] { shortcut.ConstGet(container); }),
          failureOf([&] { shortcut.Get(container); })};
}

// ---- what needs no database ----

TEST(Shortcut, TheTypeIdsAreThoseOfTheFormat) {
  EXPECT_EQ(ddr_ShortcutImpl<ddr_ResultContainer>::TypeId(), 0x220003U);
  EXPECT_EQ(ddr_ResultContainerInDdbShortcut::TypeId(), 0x220004U);
  EXPECT_EQ(ddr_ResultContainerShortcut::TypeId(), 0x220005U);
  EXPECT_EQ(ddr_ShortcutImpl<ddr_ModelContainer>::TypeId(), 0x220009U);
  EXPECT_EQ(ddr_ModelContainerInDdbShortcut::TypeId(), 0x22000aU);
  EXPECT_EQ(ddr_ModelContainerShortcut::TypeId(), 0x22000bU);
  EXPECT_EQ(ddr_ShortcutImpl<ddr_Ddb>::TypeId(), 0x22000cU);
  EXPECT_EQ(ddr_DdbShortcutImpl::TypeId(), 0x22000dU);
  EXPECT_EQ(ddr_DdbShortcut::TypeId(), 0x22000eU);
  EXPECT_EQ(ddr_ShortcutImpl<ddr_UserDataContainer>::TypeId(), 0x220012U);
  EXPECT_EQ(ddr_UserDataContainerInDdbShortcut::TypeId(), 0x220013U);
  EXPECT_EQ(ddr_UserDataContainerShortcut::TypeId(), 0x220014U);
  EXPECT_EQ(ddr_ShortcutImpl<ddr_Model>::TypeId(), 0x220015U);
  EXPECT_EQ(ddr_ModelShortcut::TypeId(), 0x220016U);
  EXPECT_EQ(ddr_ModelInModelContainerShortcut::TypeId(), 0x220017U);
}

TEST(Shortcut, EachObjectAnswersTheTypeIdOfItsOwnClass) {
  shortcut_set const set("job-1", "Model-1");
  EXPECT_EQ(set.database.DynTypeId(), 0x22000eU);
  EXPECT_EQ(set.models.DynTypeId(), 0x22000bU);
  EXPECT_EQ(set.results.DynTypeId(), 0x220005U);
  EXPECT_EQ(set.userData.DynTypeId(), 0x220014U);
  EXPECT_EQ(set.model.DynTypeId(), 0x220016U);
  EXPECT_EQ(set.database.Implementation().DynTypeId(), 0x22000dU);
  EXPECT_EQ(set.models.Implementation().DynTypeId(), 0x22000aU);
  EXPECT_EQ(set.results.Implementation().DynTypeId(), 0x220004U);
  EXPECT_EQ(set.userData.Implementation().DynTypeId(), 0x220013U);
  EXPECT_EQ(set.model.Implementation().DynTypeId(), 0x220017U);
}

TEST(Shortcut, ADatabaseIsNamedByItsKey) {
  shortcut_set const set("job-1", "Model-1");
  EXPECT_STREQ(set.database.Name().Text(), "job-1");
  EXPECT_STREQ(set.database.Path().Text(), "ddbCont['job-1']");
  EXPECT_STREQ(set.database.DdbName().Text(), "job-1");
}

TEST(Shortcut, ACollectionIsNamedByItsMember) {
  shortcut_set const set("job-1", "Model-1");
  EXPECT_STREQ(set.models.Name().Text(), "models");
  EXPECT_STREQ(set.results.Name().Text(), "result");
  EXPECT_STREQ(set.userData.Name().Text(), "userData");
  EXPECT_STREQ(set.models.Path().Text(), "ddbCont['job-1'].models");
  EXPECT_STREQ(set.results.Path().Text(), "ddbCont['job-1'].result");
  EXPECT_STREQ(set.userData.Path().Text(), "ddbCont['job-1'].userData");
  for (auto const& name : {set.models.DdbName(), set.results.DdbName(), set.userData.DdbName()}) {
    EXPECT_STREQ(name.Text(), "job-1");
  }
}

TEST(Shortcut, AModelIsNamedByItsKey) {
  shortcut_set const set("job-1", "Model-1");
  EXPECT_STREQ(set.model.Name().Text(), "Model-1");
  EXPECT_STREQ(set.model.Path().Text(), "ddbCont['job-1'].models['Model-1']");
  EXPECT_STREQ(set.model.DdbName().Text(), "job-1");
}

TEST(Shortcut, KeysStandInPathsAsTheyAre) {
  std::string const longKey(2048, 'k');
  for (std::string const& key : {std::string(), std::string("it's"), std::string("a']['b"),
                                 std::string("two\nlines"), std::string("\xff"), longKey}) {
    shortcut_set const set{cow_String(key), cow_String(key)};
    EXPECT_EQ(set.model.Path().View(), "ddbCont['" + key + "'].models['" + key + "']");
    EXPECT_EQ(set.model.Name().View(), key);
    EXPECT_EQ(set.model.DdbName().View(), key);
  }
}

TEST(Shortcut, AnswersTheThreeQuestionsAlikeForEveryKind) {
  shortcut_set const set("job-1", "Model-1");
  std::vector<omu_ShortcutImpl const*> const all = {
      &set.database.Implementation(), &set.models.Implementation(), &set.results.Implementation(),
      &set.userData.Implementation(), &set.model.Implementation()};
  for (omu_ShortcutImpl const* one : all) {
    EXPECT_FALSE(one->HoldsTarget());
    EXPECT_TRUE(one->ResolvesByName());
    EXPECT_FALSE(one->CanBeRedirected());
  }
}

template <class Concrete, class Base>
void copiesItself(Base const& implementation) {
  std::unique_ptr<omu_ShortcutImpl> const copy(implementation.Copy());
  EXPECT_NE(copy.get(), &implementation);
  EXPECT_NE(dynamic_cast<Concrete*>(copy.get()), nullptr);
  EXPECT_EQ(copy->Path(), implementation.Path());
}

TEST(Shortcut, CopyMakesAnObjectOfTheSameClassAndPath) {
  shortcut_set const set("job-1", "Model-1");
  copiesItself<ddr_DdbShortcutImpl>(set.database.Implementation());
  copiesItself<ddr_ModelContainerInDdbShortcut>(set.models.Implementation());
  copiesItself<ddr_ResultContainerInDdbShortcut>(set.results.Implementation());
  copiesItself<ddr_UserDataContainerInDdbShortcut>(set.userData.Implementation());
  copiesItself<ddr_ModelInModelContainerShortcut>(set.model.Implementation());
}

TEST(Shortcut, CopiesOfAHandleShareTheImplementationAndTheIdentity) {
  shortcut_set const set("job-1", "Model-1");
  ddr_ModelShortcut const copy(set.model);
  ddr_ModelShortcut assigned;
  assigned = set.model;
  EXPECT_EQ(&copy.Implementation(), &set.model.Implementation());
  EXPECT_EQ(&assigned.Implementation(), &set.model.Implementation());
  EXPECT_EQ(copy.Uid(), set.model.Uid());
  EXPECT_EQ(assigned.Uid(), set.model.Uid());
}

TEST(Shortcut, EachHandleMadeAnewHasAnIdentityOfItsOwn) {
  shortcut_set const set("job-1", "Model-1");
  EXPECT_FALSE(set.model.Uid().IsNone());
  EXPECT_NE(ddr_ModelShortcut().Uid(), ddr_ModelShortcut().Uid());
}

TEST(Shortcut, IsSetWhenItHoldsAnImplementation) {
  EXPECT_TRUE(shortcut_set("job-1", "Model-1").model.IsSet());
  EXPECT_FALSE(ddr_ModelShortcut().IsSet());
  EXPECT_FALSE(ddr_ModelShortcut(static_cast<ddr_ModelShortcut::Impl*>(nullptr)).IsSet());
}

TEST(Shortcut, AnUnsetOneSaysSoWhateverItIsAsked) {
  Texts const wanted(6, "The shortcut is not set, so it leads to no object.");
  EXPECT_EQ(refusalsOf(ddr_DdbShortcut()), wanted);
  EXPECT_EQ(refusalsOf(ddr_ModelContainerShortcut()), wanted);
  EXPECT_EQ(refusalsOf(ddr_ResultContainerShortcut()), wanted);
  EXPECT_EQ(refusalsOf(ddr_UserDataContainerShortcut()), wanted);
  EXPECT_EQ(refusalsOf(ddr_ModelShortcut()), wanted);
}

TEST(Shortcut, AnUnsetParentSaysSoToo) {
  ddr_ModelContainerShortcut const models(new ddr_ModelContainerInDdbShortcut(ddr_DdbShortcut()));
  ddr_ModelShortcut const model(new ddr_ModelInModelContainerShortcut("m", models));
  EXPECT_STREQ(model.Name().Text(), "m");
  EXPECT_THROW(static_cast<void>(model.Path()), nex_TextException);
  EXPECT_THROW(model.ConstGet(ddr_DdbContainer()), nex_TextException);
}

// ---- resolving ----

class ShortcutTarget : public database_test {
protected:
  ShortcutTarget() : name(create("job-1.odb")), set(name, "Model-1") {
    edit(name, [&](ddr_Ddb& made) {
      made.models.Insert("Model-1", ddr_Model(made.GetDbId(), "Model-1"));
      made.results.Insert("Step-1", ddr_Result());
      made.userData.Insert("Notes", ddr_UserData());
    });
  }
  ddr_DdbContainer const& databases() { return root().Fetch(); }

  cow_String name;
  shortcut_set set;
};

TEST_F(ShortcutTarget, ReadingLeadsToTheObjectItself) {
  ddr_Ddb const& database = record(name);
  EXPECT_EQ(&set.database.ConstGet(databases()), &database);
  EXPECT_EQ(&set.models.ConstGet(databases()), &database.models);
  EXPECT_EQ(&set.results.ConstGet(databases()), &database.results);
  EXPECT_EQ(&set.userData.ConstGet(databases()), &database.userData);
  EXPECT_EQ(&set.model.ConstGet(databases()), &database.models.ConstGet("Model-1"));
}

TEST_F(ShortcutTarget, ReadingThroughACopyOfTheContainerUnsharesNothing) {
  ddr_DdbContainer const copy = databases();
  EXPECT_EQ(&set.model.ConstGet(copy), &set.model.ConstGet(databases()));
  EXPECT_EQ(&copy.ConstGet(name), &record(name));
}

TEST_F(ShortcutTarget, CopiesOfAHandleLeadToTheSameObject) {
  ddr_ModelShortcut const copy(set.model);
  ddr_ModelShortcut::Impl const* const before = &copy.Implementation();
  EXPECT_EQ(&copy.ConstGet(databases()), &set.model.ConstGet(databases()));
  ddr_DdbContainer changed = databases();
  ddr_Model* const written = &copy.Get(changed);
  EXPECT_EQ(&set.model.Get(changed), written);
  EXPECT_EQ(&copy.Implementation(), before);
  EXPECT_EQ(&set.model.Implementation(), before);
}

TEST_F(ShortcutTarget, WritingLeadsIntoTheGivenContainer) {
  ddr_DdbContainer copy = databases();
  ddr_Ddb* const database = &set.database.Get(copy);
  ddr_Model* const model = &set.model.Get(copy);
  EXPECT_EQ(&copy.ConstGet(name), database);
  EXPECT_EQ(&database->models.ConstGet("Model-1"), model);
  EXPECT_EQ(&set.models.Get(copy), &database->models);
  EXPECT_EQ(&set.results.Get(copy), &database->results);
  EXPECT_EQ(&set.userData.Get(copy), &database->userData);
}

TEST_F(ShortcutTarget, WritingUnsharesTheWayToTheObject) {
  ddr_Model const& before = set.model.ConstGet(databases());
  ddr_DdbContainer copy = databases();
  setNote(set.model.Get(copy), "changed");
  EXPECT_EQ(noteOf(set.model.ConstGet(copy)), "changed/changed");
  EXPECT_EQ(&set.model.ConstGet(databases()), &before);
  EXPECT_EQ(noteOf(before), "-");
}

TEST_F(ShortcutTarget, AModelThatIsNotLoadedIsReadWhenAskedFor) {
  name = reopen(name, "job-1.odb");
  EXPECT_TRUE(record(name).models.ConstTree().ConstFind("Model-1")->Value().IsEmpty());
  ddr_Model const& loaded = set.model.ConstGet(databases());
  EXPECT_STREQ(loaded.GetName().Text(), "Model-1");
  EXPECT_EQ(&set.model.ConstGet(databases()), &loaded);
}

TEST_F(ShortcutTarget, FindsADatabaseThatWasClosedAndOpenedAgain) {
  save(name);
  close(name);
  EXPECT_THROW(set.model.ConstGet(databases()), omu_AccessErrorException);
  open("job-1.odb");
  EXPECT_STREQ(set.model.ConstGet(databases()).GetName().Text(), "Model-1");
}

TEST_F(ShortcutTarget, AnUnknownModelIsNamedByTheException) {
  ddr_ModelShortcut const missing(new ddr_ModelInModelContainerShortcut("Model-2", set.models));
  ddr_DdbContainer copy = databases();
  auto const read = caught<omu_AccessErrorException>([&] { missing.ConstGet(copy); });
  auto const write = caught<omu_AccessErrorException>([&] { missing.Get(copy); });
  for (omu_AccessErrorException const& one : {read, write}) {
    EXPECT_STREQ(one.what(), "No entry with key 'Model-2'");
    EXPECT_STREQ(one.Key().Text(), "Model-2");
    EXPECT_FALSE(one.Uid().IsNone());
  }
  EXPECT_NE(read.Uid(), write.Uid());
  EXPECT_EQ(placeOf(read), "generated/include/ddr_Shortcut:109");
  EXPECT_EQ(placeOf(write), "generated/include/ddr_Shortcut:121");
}

TEST_F(ShortcutTarget, TheExceptionCarriesACopyOfTheKey) {
  cow_String const key(std::string(100, 'k'));
  ddr_ModelShortcut const missing(new ddr_ModelInModelContainerShortcut(key, set.models));
  unsigned const sharers = key.ShareCount();
  auto const failure = caught<omu_AccessErrorException>([&] { missing.ConstGet(databases()); });
  EXPECT_EQ(failure.Key(), key);
  EXPECT_EQ(key.ShareCount(), sharers);
}

TEST_F(ShortcutTarget, AnUnknownModelLeavesTheCollectionShared) {
  name = reopen(name, "job-1.odb");
  ddr_ModelShortcut const missing(new ddr_ModelInModelContainerShortcut("Model-2", set.models));
  ddr_DdbContainer copy = databases();
  EXPECT_THROW(missing.Get(copy), omu_AccessErrorException);
  ddr_ModelContainer const& original = record(name).models;
  ddr_ModelContainer const& models = copy.ConstGet(name).models;
  EXPECT_EQ(models.ConstTree().ConstFind("Model-1"), original.ConstTree().ConstFind("Model-1"));
  EXPECT_FALSE(models.IsChanged());
  EXPECT_EQ(models.Size(), 1);
}

TEST_F(ShortcutTarget, AModelWhoseKeyIsEmptyIsAnUnknownOne) {
  ddr_ModelShortcut const missing(new ddr_ModelInModelContainerShortcut("", set.models));
  EXPECT_EQ(failureOf([&] { missing.ConstGet(databases()); }), "No entry with key ''");
}

TEST_F(ShortcutTarget, AnUnknownDatabaseIsRefusedByTheContainer) {
  shortcut_set const missing("job-2", "Model-1");
  ddr_DdbContainer copy = databases();
  for (auto const& failure : {caught<omu_AccessErrorException>([&] { missing.model.ConstGet(copy); }),
                              caught<omu_AccessErrorException>([&] { missing.model.Get(copy); }),
                              caught<omu_AccessErrorException>([&] { missing.database.Get(copy); })}) {
    EXPECT_STREQ(failure.what(), "No entry with key 'job-2'");
    EXPECT_STREQ(failure.SourcePath(), "containers/keyed/mdl_Container");
  }
}

TEST_F(ShortcutTarget, KeysOfAnyBytesAreFound) {
  for (std::string const& key : {std::string("it's"), std::string("two\nlines"), std::string("\xff\xfe"),
                                 std::string("']."), std::string(2048, 'k')}) {
    cow_String const text(key);
    edit(name, [&](ddr_Ddb& made) { made.models.Insert(text, ddr_Model(made.GetDbId(), text)); });
    EXPECT_EQ(shortcut_set(name, text).model.ConstGet(databases()).GetName(), text);
  }
}

} // namespace
