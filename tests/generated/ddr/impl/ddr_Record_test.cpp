// Results and user data: an identity and nothing else.
#include "ddr_ModuleTest.h"
#include "recording_rows.h"

namespace {

class DdrRecord : public ddr_ModuleTest {};

template <class Record>
recorded_calls written(Record const& record, sink_answers const& answers = {}) {
  recording_sink sink(answers);
  record.DBWrite(cls_WriteVisitor(sink));
  EXPECT_EQ(sink.started().at(""), record.GetUid());
  return sink.calls();
}

TEST_F(DdrRecord, TypeIdsAreThoseOfTheFormat) {
  EXPECT_EQ(ddr_Result().DynTypeId(), 0x220001U);
  EXPECT_EQ(ddr_UserData().DynTypeId(), 0x220010U);
}

TEST_F(DdrRecord, WritesItsIdentityAndNoField) {
  EXPECT_EQ(written(ddr_Result()), recorded_calls{"Start 0x220001"});
  EXPECT_EQ(written(ddr_UserData()), recorded_calls{"Start 0x220010"});
}

TEST_F(DdrRecord, ARefusedStartIsFollowedByNothingToo) {
  EXPECT_EQ(written(ddr_Result(), {{}, {""}}), recorded_calls{"Start 0x220001"});
  EXPECT_EQ(written(ddr_UserData(), {{}, {""}}), recorded_calls{"Start 0x220010"});
}

template <class Record>
void readsOnlyItsIdentity() {
  auto const stored = std::make_shared<stored_object>();
  recording_source const source(stored, "db");
  Record const record{cls_ReadVisitor(source)};
  EXPECT_EQ(record.GetUid(), stored->uid);
  EXPECT_EQ(source.calls(), recorded_calls{"Uid"});
}

TEST_F(DdrRecord, ReadsItsIdentityAndNoField) {
  readsOnlyItsIdentity<ddr_Result>();
  readsOnlyItsIdentity<ddr_UserData>();
}

TEST_F(DdrRecord, TwoNewRecordsHaveDifferentIdentities) {
  EXPECT_FALSE(ddr_Result().GetUid().IsNone());
  EXPECT_NE(ddr_Result().GetUid(), ddr_Result().GetUid());
  EXPECT_NE(ddr_UserData().GetUid(), ddr_UserData().GetUid());
}

TEST_F(DdrRecord, ACopyKeepsTheIdentity) {
  ddr_Result const result;
  std::unique_ptr<ddr_Result> const resultCopy(result.Copy());
  EXPECT_EQ(resultCopy->GetUid(), result.GetUid());
  ddr_UserData const data;
  std::unique_ptr<ddr_UserData> const dataCopy(data.Copy());
  EXPECT_EQ(dataCopy->GetUid(), data.GetUid());
}

TEST_F(DdrRecord, FactoriesAnswerNull) {
  auto const stored = std::make_shared<stored_object>();
  recording_source const source(stored, "db");
  cls_ReadVisitor reader(source);
  EXPECT_EQ(ddr_Result::Ctor(reader), nullptr);
  EXPECT_EQ(ddr_UserData::Ctor(reader), nullptr);
  EXPECT_TRUE(source.calls().empty());
}

TEST_F(DdrRecord, IsReadBackWithTheIdentityItWasWrittenWith) {
  cow_String const database = create("a.odb");
  ddr_Result const result;
  ddr_UserData const data;
  change(database, [&](ddr_Ddb& changed) {
    changed.results.Insert("r", result);
    changed.userData.Insert("u", data);
  });
  save(database);
  cow_String const again = reopen(database, "a.odb");
  EXPECT_EQ(record(again).results.ConstGet("r").GetUid(), result.GetUid());
  EXPECT_EQ(record(again).userData.ConstGet("u").GetUid(), data.GetUid());
}

} // namespace
