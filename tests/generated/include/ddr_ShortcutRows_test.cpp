// What shortcuts write and read, field by field and in which order.
#include "ddr_Shortcut.h"

#include "ddr_Ddb.h"
#include "recording_rows.h"
#include "shortcut_set.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

template <class T>
recorded_calls written(T const& object, sink_answers const& answers = {}) {
  recording_sink sink(answers);
  object.DBWrite(cls_WriteVisitor(sink));
  return sink.calls();
}

/// The identity under which the object writes itself.
template <class T>
cls_Uid identityOf(T const& object) {
  recording_sink sink;
  object.DBWrite(cls_WriteVisitor(sink));
  return sink.started().at("");
}

std::shared_ptr<stored_object> storedObject(unsigned classId) {
  auto object = std::make_shared<stored_object>();
  object->classId = classId;
  return object;
}

TEST(ShortcutRows, ADatabaseIsWrittenWithItsBasePartAndItsName) {
  EXPECT_EQ(written(shortcut_set("job-1", "m").database.Implementation()),
            (recorded_calls{"Start 0x22000d", "BasePart 0x22000c", "WriteString name job-1"}));
}

TEST(ShortcutRows, ACollectionIsWrittenAsItsParentAlone) {
  shortcut_set const set("job-1", "m");
  recorded_calls const parent = {"Object parent",
                                 "parent.Start 0x22000e",
                                 "parent.Object impl",
                                 "parent.impl.Start 0x22000d",
                                 "parent.impl.BasePart 0x22000c",
                                 "parent.impl.WriteString name job-1"};
  recorded_calls wanted = parent;
  wanted.insert(wanted.begin(), "Start 0x22000a");
  EXPECT_EQ(written(set.models.Implementation()), wanted);
  wanted.front() = "Start 0x220004";
  EXPECT_EQ(written(set.results.Implementation()), wanted);
  wanted.front() = "Start 0x220013";
  EXPECT_EQ(written(set.userData.Implementation()), wanted);
}

TEST(ShortcutRows, AModelIsWrittenAsItsNameAndThenItsParent) {
  recorded_calls const calls = written(shortcut_set("job-1", "m").model.Implementation());
  EXPECT_EQ(own_calls(calls), (recorded_calls{"Start 0x220017", "WriteString name m", "Object parent"}));
  EXPECT_EQ(calls.at(3), "parent.Start 0x22000b");
}

TEST(ShortcutRows, AHandleIsWrittenAsItsImplementation) {
  shortcut_set const set("job-1", "m");
  EXPECT_EQ(own_calls(written(set.database)), (recorded_calls{"Start 0x22000e", "Object impl"}));
  EXPECT_EQ(own_calls(written(set.models)), (recorded_calls{"Start 0x22000b", "Object impl"}));
  EXPECT_EQ(own_calls(written(set.results)), (recorded_calls{"Start 0x220005", "Object impl"}));
  EXPECT_EQ(own_calls(written(set.userData)), (recorded_calls{"Start 0x220014", "Object impl"}));
  EXPECT_EQ(own_calls(written(set.model)), (recorded_calls{"Start 0x220016", "Object impl"}));
  EXPECT_EQ(written(set.model).at(2), "impl.Start 0x220017");
}

TEST(ShortcutRows, AnUnsetHandleIsWrittenWithANullImplementation) {
  EXPECT_EQ(written(ddr_ModelShortcut()), (recorded_calls{"Start 0x220016", "WriteNullObject impl"}));
}

TEST(ShortcutRows, NothingMoreIsWrittenOfWhatIsWrittenAlready) {
  shortcut_set const set("job-1", "m");
  sink_answers const refusing{{}, {""}};
  EXPECT_EQ(written(set.model, refusing), recorded_calls{"Start 0x220016"});
  EXPECT_EQ(written(set.model.Implementation(), refusing), recorded_calls{"Start 0x220017"});
  EXPECT_EQ(written(set.models.Implementation(), refusing), recorded_calls{"Start 0x22000a"});
  EXPECT_EQ(written(set.database.Implementation(), refusing), recorded_calls{"Start 0x22000d"});
}

TEST(ShortcutRows, TheBaseAloneWritesNothing) {
  shortcut_set const set("job-1", "m");
  recording_sink sink;
  set.model.Implementation().ddr_ShortcutImpl<ddr_Model>::DBWrite(cls_WriteVisitor(sink));
  EXPECT_TRUE(sink.calls().empty());
}

TEST(ShortcutRows, CopiesKeepTheIdentity) {
  shortcut_set const set("job-1", "m");
  std::unique_ptr<ddr_ModelShortcut::Impl> const model(set.model.Implementation().Copy());
  std::unique_ptr<ddr_ModelContainerShortcut::Impl> const models(set.models.Implementation().Copy());
  std::unique_ptr<ddr_DdbShortcut::Impl> const database(set.database.Implementation().Copy());
  EXPECT_EQ(identityOf(*model), identityOf(set.model.Implementation()));
  EXPECT_EQ(identityOf(*models), identityOf(set.models.Implementation()));
  EXPECT_EQ(identityOf(*database), identityOf(set.database.Implementation()));
  EXPECT_EQ(identityOf(ddr_ModelShortcut(set.model)), set.model.Uid());
  EXPECT_NE(identityOf(set.model.Implementation()), set.model.Uid());
}

TEST(ShortcutRows, ADatabaseReadsItsNameAndThenItsIdentity) {
  auto const stored = storedObject(0x22000d);
  stored->strings["name"] = "job-1";
  recording_source const source(stored, "db");
  ddr_DdbShortcutImpl const read((cls_ReadVisitor(source)));
  EXPECT_STREQ(read.Name().Text(), "job-1");
  EXPECT_EQ(identityOf(read), stored->uid);
  EXPECT_EQ(source.calls(), (recorded_calls{"ReadString name", "Uid"}));
}

TEST(ShortcutRows, ACollectionReadsItsParentAndThenItsIdentity) {
  auto const stored = storedObject(0x22000a);
  stored->objects["parent"] = storedObject(0x22000e);
  recording_source const source(stored, "db");
  ddr_ModelContainerInDdbShortcut const read((cls_ReadVisitor(source)));
  EXPECT_EQ(identityOf(read), stored->uid);
  EXPECT_EQ(source.calls(),
            (recorded_calls{"Object parent", "parent.SharedObject impl", "parent.Uid", "Uid"}));
}

TEST(ShortcutRows, AModelReadsItsNameItsParentAndThenItsIdentity) {
  auto const stored = storedObject(0x220017);
  stored->strings["name"] = "m";
  stored->objects["parent"] = storedObject(0x22000b);
  recording_source const source(stored, "db");
  ddr_ModelInModelContainerShortcut const read((cls_ReadVisitor(source)));
  EXPECT_STREQ(read.Name().Text(), "m");
  EXPECT_EQ(source.calls(), (recorded_calls{"ReadString name", "Object parent", "parent.SharedObject impl",
                                            "parent.Uid", "Uid"}));
}

TEST(ShortcutRows, AHandleReadsItsImplementationAndThenItsIdentity) {
  auto const stored = storedObject(0x220016);
  recording_source const source(stored, "db");
  ddr_ModelShortcut const read((cls_ReadVisitor(source)));
  EXPECT_FALSE(read.IsSet());
  EXPECT_EQ(read.Uid(), stored->uid);
  EXPECT_EQ(source.calls(), (recorded_calls{"SharedObject impl", "Uid"}));
}

TEST(ShortcutRows, AMissingNameReadsAsTheEmptyText) {
  recording_source const database(storedObject(0x22000d), "db");
  EXPECT_TRUE(ddr_DdbShortcutImpl((cls_ReadVisitor(database))).Name().IsEmpty());
  recording_source const model(storedObject(0x220017), "db");
  EXPECT_TRUE(ddr_ModelInModelContainerShortcut((cls_ReadVisitor(model))).Name().IsEmpty());
}

TEST(ShortcutRows, AMissingHandleReadsAsUnset) {
  recording_source const model(storedObject(0x220017), "db");
  ddr_ModelInModelContainerShortcut const read((cls_ReadVisitor(model)));
  EXPECT_THROW(static_cast<void>(read.Path()), nex_TextException);
}

TEST(ShortcutRows, AHandleOfAnotherKindIsRefused) {
  recording_source const source(storedObject(0x22000e), "db");
  EXPECT_THROW(ddr_ModelShortcut((cls_ReadVisitor(source))), nex_TextException);
}

TEST(ShortcutRows, TheBaseReadsNothing) {
  class Base : public ddr_ShortcutImpl<ddr_Ddb> {
  public:
    explicit Base(cls_ReadVisitor const& reader) : ddr_ShortcutImpl<ddr_Ddb>(reader) {}
    cow_String Name() const override { return {}; }
    cow_String Path() const override { return {}; }
    cow_String DdbName() const override { return {}; }
    ddr_Ddb const& ConstGet(ddr_DdbContainer const& container) const override {
      return container.ConstGet("");
    }
    ddr_Ddb& Get(ddr_DdbContainer& container) const override { return container.Get(""); }
    Base* Copy() const override { return new Base(*this); }
  };
  recording_source const source(storedObject(0x22000c), "db");
  Base const read((cls_ReadVisitor(source)));
  EXPECT_TRUE(source.calls().empty());
  EXPECT_EQ(read.DynTypeId(), 0x22000cU);
}

} // namespace
