// The add-on products recorded with a database.
#include "ddr_ModuleTest.h"
#include "recording_rows.h"

#include "omu_Exceptions.h"

namespace {

class DdrProductAddOnList : public ddr_ModuleTest {
protected:
  static Texts textsOf(ddr_ProductAddOnList const& list) {
    Texts texts;
    for (int index = 0; index < list.Size(); ++index) {
      texts.emplace_back(list.ConstGet(index).GetString().Text());
    }
    return texts;
  }

  static std::shared_ptr<stored_object> stored(Texts const& texts) {
    auto object = std::make_shared<stored_object>();
    object->classId = ddr_ProductAddOnList::TypeId();
    object->texts = texts;
    return object;
  }
};

TEST_F(DdrProductAddOnList, ANewListIsEmptyAndHasAnIdentityOfItsOwn) {
  ddr_ProductAddOnList const list;
  EXPECT_EQ(list.Size(), 0);
  EXPECT_FALSE(list.Uid().IsNone());
  EXPECT_NE(list.Uid(), ddr_ProductAddOnList().Uid());
}

TEST_F(DdrProductAddOnList, ReadsItsIdentityAndThenEachElementInOrder) {
  auto const object = stored({"FENTAL", "KORU"});
  recording_source const source(object, "db");
  ddr_ProductAddOnList const list{cls_ReadVisitor(source)};
  EXPECT_EQ(list.Uid(), object->uid);
  EXPECT_EQ(textsOf(list), (Texts{"FENTAL", "KORU"}));
  EXPECT_EQ(source.calls(), (recorded_calls{"Uid", "List", "[0].ElementText", "[1].ElementText"}));
}

TEST_F(DdrProductAddOnList, ReadsMoreElementsThanOneBlockHolds) {
  auto const object = stored(Texts(40, "FENTAL"));
  recording_source const source(object, "db");
  EXPECT_EQ(textsOf(ddr_ProductAddOnList{cls_ReadVisitor(source)}), Texts(40, "FENTAL"));
}

TEST_F(DdrProductAddOnList, AnUnknownStoredTextCannotBeRead) {
  auto const object = stored({"KORU", "koru"});
  recording_source const source(object, "db");
  auto const error =
      caught<omu_ValueErrorException>([&] { ddr_ProductAddOnList const list{cls_ReadVisitor(source)}; });
  EXPECT_STREQ(error.what(),
               "omu_PrimEnum(const cls_ReadVisitor&) - str not allowed: koru  Permissible: KORU, FENTAL");
  EXPECT_EQ(placeOf(error), "generated/include/omu_PrimEnum:95");
}

TEST_F(DdrProductAddOnList, WritesAHeaderAndThenEachElementInOrder) {
  ddr_ProductAddOnList list;
  list.Append(ddr_ProductAddOn(ddr_ProductAddOn_Fental));
  list.Append(ddr_ProductAddOn(ddr_ProductAddOn_Koru));
  recording_sink sink;
  list.DBWrite(cls_WriteVisitor(sink));
  EXPECT_EQ(sink.calls(), (recorded_calls{"Start 0x230001", "List", "[0].WriteElementText FENTAL",
                                          "[1].WriteElementText KORU", "EndOfList"}));
  EXPECT_EQ(sink.started().at(""), list.Uid());
}

TEST_F(DdrProductAddOnList, AnEmptyListIsWrittenUnderItsOwnIdentity) {
  ddr_ProductAddOnList const list;
  recording_sink sink;
  list.DBWrite(cls_WriteVisitor(sink));
  EXPECT_EQ(sink.calls(), (recorded_calls{"Start 0x230001", "List", "EndOfList"}));
  EXPECT_EQ(sink.started().at(""), list.Uid());
}

TEST_F(DdrProductAddOnList, ARefusedStartWritesNothing) {
  ddr_ProductAddOnList list;
  list.Append(ddr_ProductAddOn(ddr_ProductAddOn_Koru));
  recording_sink sink(sink_answers{{}, {""}});
  list.DBWrite(cls_WriteVisitor(sink));
  EXPECT_EQ(sink.calls(), recorded_calls{"Start 0x230001"});
}

TEST_F(DdrProductAddOnList, CopiesShareUntilWrittenAndKeepTheIdentity) {
  ddr_ProductAddOnList list;
  list.Append(ddr_ProductAddOn(ddr_ProductAddOn_Koru));
  ddr_ProductAddOnList copy(list);
  copy.Append(ddr_ProductAddOn(ddr_ProductAddOn_Fental));
  EXPECT_EQ(textsOf(list), Texts{"KORU"});
  EXPECT_EQ(textsOf(copy), (Texts{"KORU", "FENTAL"}));
  EXPECT_EQ(copy.Uid(), list.Uid());
}

TEST_F(DdrProductAddOnList, AnItemOfTheListItselfCanBeAppended) {
  ddr_ProductAddOnList list;
  for (int time = 0; time < 17; ++time) {
    list.Append(ddr_ProductAddOn(ddr_ProductAddOn_Fental));
    list.Append(list.ConstGet(0));
  }
  EXPECT_EQ(textsOf(list), Texts(34, "FENTAL"));
}

TEST_F(DdrProductAddOnList, TellsItsMembers) {
  ddr_ProductAddOnList list;
  list.Append(ddr_ProductAddOn(ddr_ProductAddOn_Fental));
  EXPECT_TRUE(list.IsMember(ddr_ProductAddOn_Fental));
  EXPECT_FALSE(list.IsMember(ddr_ProductAddOn_Koru));
}

TEST_F(DdrProductAddOnList, AnIndexOutsideTheListIsRefused) {
  ddr_ProductAddOnList const list;
  EXPECT_THROW(list.ConstGet(0), nex_AssertException);
  EXPECT_THROW(list.ConstGet(-1), nex_AssertException);
}

TEST_F(DdrProductAddOnList, IsReadBackFromAFileInItsOrder) {
  cow_String const database = create("a.odb");
  change(database, [](ddr_Ddb& changed) {
    changed.AddProductAddOn(ddr_ProductAddOn(ddr_ProductAddOn_Fental));
    changed.AddProductAddOn(ddr_ProductAddOn(ddr_ProductAddOn_Koru));
  });
  cls_Uid const uid = record(database).GetProductAddOns().Uid();
  save(database);
  cow_String const again = reopen(database, "a.odb");
  EXPECT_EQ(textsOf(record(again).GetProductAddOns()), (Texts{"FENTAL", "KORU"}));
  EXPECT_EQ(record(again).GetProductAddOns().Uid(), uid);
}

TEST_F(DdrProductAddOnList, AnEmptyListIsReadBackFromAFileWithItsIdentity) {
  cow_String const database = createSaved("a.odb");
  cls_Uid const uid = record(database).GetProductAddOns().Uid();
  cow_String const again = reopen(database, "a.odb");
  EXPECT_EQ(record(again).GetProductAddOns().Size(), 0);
  EXPECT_EQ(record(again).GetProductAddOns().Uid(), uid);
}

} // namespace
