// The database record: what it asks its reader, what it tells its writer, in which order.
#include "ddr_ModuleTest.h"
#include "recording_rows.h"

#include <memory>

namespace {

class DdrDdb : public ddr_ModuleTest {
protected:
  /// A stored record with a value in every field.
  static std::shared_ptr<stored_object> storedRecord() {
    auto stored = std::make_shared<stored_object>();
    stored->strings = {{"name", "the name"},
                       {"analysisVersion", "Release 7"},
                       {"sequenceData", "the sequence"},
                       {"description", "the description"}};
    stored->ints = {{"modifyTime", {11}}, {"creationTime", {22}}, {"ddbVersion", {33}}};
    stored->bools = {{"onlyHasUserDefinedData", true}};
    stored->fieldsWithData = {"productAddOns#OID"};
    auto addOns = std::make_shared<stored_object>();
    addOns->classId = 0x230001;
    addOns->texts = {"FENTAL"};
    stored->objects["productAddOns"] = addOns;
    return stored;
  }

  static ddr_Ddb readFrom(std::shared_ptr<stored_object> const& stored) {
    recording_source const source(stored, "the dbId");
    return ddr_Ddb(cls_ReadVisitor(source));
  }

  static recorded_calls written(ddr_Ddb const& record, sink_answers const& answers = {}) {
    recording_sink sink(answers);
    record.DBWrite(cls_WriteVisitor(sink));
    return sink.calls();
  }

  static bool contains(recorded_calls const& calls, std::string const& call) {
    return std::ranges::find(calls, call) != calls.end();
  }
};

TEST_F(DdrDdb, ANewRecordHasTheStatedValues) {
  setClock(777);
  ddr_Ddb const made("the name", "the dbId", "the description");
  EXPECT_EQ(made.GetTransporter(), nullptr);
  EXPECT_EQ(made.models.Size() + made.results.Size() + made.userData.Size(), 0);
  EXPECT_EQ(made.ConstGetDiagnosticData().Size(), 0);
  EXPECT_STREQ(made.GetName().Text(), "the name");
  EXPECT_STREQ(made.GetDbId().Text(), "the dbId");
  EXPECT_STREQ(made.GetDescription().Text(), "the description");
  EXPECT_EQ(made.GetModifyTime(), 777);
  EXPECT_EQ(made.GetCreationTime(), 777);
  EXPECT_TRUE(made.GetAnalysisVersion().IsEmpty());
  EXPECT_TRUE(made.GetSequenceData().IsEmpty());
  EXPECT_EQ(made.GetProductAddOns().Size(), 0);
  EXPECT_FALSE(made.GetProductAddOns().Uid().IsNone());
  EXPECT_EQ(made.GetDdbVersion(), 891);
  EXPECT_TRUE(made.GetUpdateModifyTime());
  EXPECT_FALSE(made.GetOnlyHasUserDefinedData());
  EXPECT_FALSE(made.GetUid().IsNone());
}

TEST_F(DdrDdb, NewRecordsHaveIdentitiesOfTheirOwn) {
  ddr_Ddb const first("", "", "");
  ddr_Ddb const second("", "", "");
  EXPECT_NE(first.GetUid(), second.GetUid());
  EXPECT_NE(first.GetProductAddOns().Uid(), second.GetProductAddOns().Uid());
  EXPECT_NE(first.GetUid(), first.GetProductAddOns().Uid());
}

TEST_F(DdrDdb, TheTimeIsTruncatedTo32Bits) {
  setClock((std::int64_t{3} << 32) + 5);
  EXPECT_EQ(ddr_Ddb("", "", "").GetCreationTime(), 5);
}

TEST_F(DdrDdb, TheTypeIdIsThatOfTheFormat) {
  EXPECT_EQ(ddr_Ddb::TypeId(), 2228230U);
  EXPECT_EQ(ddr_Ddb("", "", "").DynTypeId(), 0x220006U);
}

TEST_F(DdrDdb, ReadsInOneOrderWithTheCollectionsLast) {
  recording_source const source(storedRecord(), "the dbId");
  ddr_Ddb const record{cls_ReadVisitor(source)};
  recorded_calls const wanted = {"Object diagnosticData",
                                 "ReadString name",
                                 "ReadInt modifyTime",
                                 "ReadInt creationTime",
                                 "ReadString analysisVersion",
                                 "ReadInt ddbVersion",
                                 "Uid",
                                 "ReadString sequenceData",
                                 "ReadBool onlyHasUserDefinedData",
                                 "ReadString description",
                                 "ReadInt ddbVersion",
                                 "DbId",
                                 "Object models",
                                 "Object results",
                                 "Object userData",
                                 "DataIsPresent productAddOns#OID",
                                 "Object productAddOns"};
  EXPECT_EQ(own_calls(source.calls()), wanted);
}

TEST_F(DdrDdb, ReadsEachCollectionWhereItIsAskedFor) {
  recording_source const source(storedRecord(), "the dbId");
  ddr_Ddb const record{cls_ReadVisitor(source)};
  recorded_calls const& calls = source.calls();
  auto const placeOfCall = [&](std::string const& call) {
    return std::ranges::find(calls, call) - calls.begin();
  };
  EXPECT_LT(placeOfCall("Object diagnosticData"), placeOfCall("diagnosticData.List"));
  EXPECT_LT(placeOfCall("diagnosticData.List"), placeOfCall("ReadString name"));
  EXPECT_LT(placeOfCall("Object models"), placeOfCall("models.Collection"));
  EXPECT_LT(placeOfCall("models.Collection"), placeOfCall("Object results"));
  EXPECT_LT(placeOfCall("results.Collection"), placeOfCall("Object userData"));
  EXPECT_LT(placeOfCall("userData.Collection"), placeOfCall("DataIsPresent productAddOns#OID"));
  EXPECT_LT(placeOfCall("Object productAddOns"), placeOfCall("productAddOns.List"));
  EXPECT_LT(placeOfCall("productAddOns.List"), static_cast<std::ptrdiff_t>(calls.size()));
}

TEST_F(DdrDdb, KeepsWhatItReads) {
  auto const stored = storedRecord();
  ddr_Ddb const record = readFrom(stored);
  EXPECT_STREQ(record.GetName().Text(), "the name");
  EXPECT_STREQ(record.GetDbId().Text(), "the dbId");
  EXPECT_EQ(record.GetModifyTime(), 11);
  EXPECT_EQ(record.GetCreationTime(), 22);
  EXPECT_EQ(record.GetDdbVersion(), 33);
  EXPECT_STREQ(record.GetAnalysisVersion().Text(), "Release 7");
  EXPECT_STREQ(record.GetSequenceData().Text(), "the sequence");
  EXPECT_STREQ(record.GetDescription().Text(), "the description");
  EXPECT_TRUE(record.GetOnlyHasUserDefinedData());
  EXPECT_EQ(record.GetUid(), stored->uid);
  EXPECT_EQ(record.GetTransporter(), nullptr);
  ASSERT_EQ(record.GetProductAddOns().Size(), 1);
  EXPECT_EQ(record.GetProductAddOns().ConstGet(0).GetValue(), ddr_ProductAddOn_Fental);
  EXPECT_EQ(record.GetProductAddOns().Uid(), stored->objects["productAddOns"]->uid);
}

TEST_F(DdrDdb, TheSecondReadingOfTheVersionCounts) {
  auto const stored = storedRecord();
  stored->ints["ddbVersion"] = {1, 2};
  EXPECT_EQ(readFrom(stored).GetDdbVersion(), 2);
}

TEST_F(DdrDdb, AMissingFieldReadsAsNothing) {
  ddr_Ddb const record = readFrom(std::make_shared<stored_object>());
  EXPECT_TRUE(record.GetName().IsEmpty());
  EXPECT_EQ(record.GetModifyTime(), 0);
  EXPECT_EQ(record.GetCreationTime(), 0);
  EXPECT_EQ(record.GetDdbVersion(), 0);
  EXPECT_FALSE(record.GetOnlyHasUserDefinedData());
  EXPECT_TRUE(record.GetDescription().IsEmpty());
  EXPECT_EQ(record.models.Size() + record.results.Size() + record.userData.Size(), 0);
  EXPECT_FALSE(record.models.IsBound());
}

TEST_F(DdrDdb, AnEmptyOrMissingAnalysisVersionIsUnknown) {
  auto const stored = storedRecord();
  stored->strings["analysisVersion"] = "";
  EXPECT_STREQ(readFrom(stored).GetAnalysisVersion().Text(), "Unknown Version");
  stored->strings.erase("analysisVersion");
  EXPECT_STREQ(readFrom(stored).GetAnalysisVersion().Text(), "Unknown Version");
}

TEST_F(DdrDdb, AFileWithoutAddOnsReadsAsAnEmptyListThatIsNotAskedFor) {
  auto const stored = storedRecord();
  stored->fieldsWithData.clear();
  recording_source const source(stored, "the dbId");
  ddr_Ddb const record{cls_ReadVisitor(source)};
  EXPECT_EQ(record.GetProductAddOns().Size(), 0);
  EXPECT_FALSE(record.GetProductAddOns().Uid().IsNone());
  EXPECT_NE(record.GetProductAddOns().Uid(), stored->objects["productAddOns"]->uid);
  EXPECT_FALSE(contains(source.calls(), "Object productAddOns"));
}

TEST_F(DdrDdb, AFileWithoutAddOnsIsWrittenBackWithAnEmptyList) {
  auto const stored = storedRecord();
  stored->fieldsWithData.clear();
  recorded_calls const calls = written(readFrom(stored));
  EXPECT_TRUE(contains(calls, "productAddOns.Start 0x230001"));
  EXPECT_FALSE(contains(calls, "productAddOns[0].WriteElementText FENTAL"));
}

TEST_F(DdrDdb, AReadRecordStampsItsTimeWhateverTheFileHeld) {
  setClock(999);
  ddr_Ddb const record = readFrom(storedRecord());
  EXPECT_TRUE(record.GetUpdateModifyTime());
  EXPECT_TRUE(contains(written(record), "WriteInt modifyTime 999"));
  EXPECT_EQ(record.GetModifyTime(), 999);
}

TEST_F(DdrDdb, WritesInOneOrderWithTheCollectionsFirst) {
  ddr_Ddb record = readFrom(storedRecord());
  record.SetUpdateModifyTime(false);
  recorded_calls const wanted = {"Start 0x220006",
                                 "Object models",
                                 "Object results",
                                 "Object userData",
                                 "Object diagnosticData",
                                 "WriteString name the name",
                                 "WriteInt modifyTime 11",
                                 "WriteInt creationTime 22",
                                 "WriteString analysisVersion Release 7",
                                 "WriteString sequenceData the sequence",
                                 "WriteBool onlyHasUserDefinedData true",
                                 "FieldIsPresent description",
                                 "WriteString description the description",
                                 "FieldIsPresent ddbVersion",
                                 "WriteInt ddbVersion 33",
                                 "Object productAddOns"};
  EXPECT_EQ(own_calls(written(record)), wanted);
}

TEST_F(DdrDdb, WritesEachCollectionUnderItsOwnClass) {
  recorded_calls const calls = written(ddr_Ddb("n", "i", "d"));
  EXPECT_TRUE(contains(calls, "models.Start 0x230002"));
  EXPECT_TRUE(contains(calls, "results.Start 0x230002"));
  EXPECT_TRUE(contains(calls, "userData.Start 0x230002"));
  EXPECT_TRUE(contains(calls, "diagnosticData.Start 0x210001"));
  EXPECT_TRUE(contains(calls, "diagnosticData[0].Start 0x240001"));
  EXPECT_TRUE(contains(calls, "productAddOns.Start 0x230001"));
}

TEST_F(DdrDdb, WritesTheModelsUnderTheirKeys) {
  ddr_Ddb record("n", "i", "d");
  record.models.Insert("m", ddr_Model("i", "m"));
  recorded_calls const calls = written(record);
  EXPECT_TRUE(contains(calls, "models.WriteRequest m"));
  EXPECT_TRUE(contains(calls, "models['m'].Start 0x220007"));
  EXPECT_TRUE(contains(calls, "models['m'].WriteString modelName m"));
}

TEST_F(DdrDdb, IsWrittenUnderItsOwnIdentity) {
  ddr_Ddb const record("n", "i", "d");
  recording_sink sink;
  record.DBWrite(cls_WriteVisitor(sink));
  EXPECT_EQ(sink.started().at(""), record.GetUid());
  EXPECT_EQ(sink.started().at("models"), record.models.Uid());
  EXPECT_EQ(sink.started().at("results"), record.results.Uid());
  EXPECT_EQ(sink.started().at("productAddOns"), record.GetProductAddOns().Uid());
}

TEST_F(DdrDdb, ALayoutWithoutDescriptionOrVersionSkipsThem) {
  ddr_Ddb const record = readFrom(storedRecord());
  recorded_calls const calls = written(record, {{"description", "ddbVersion"}, {}});
  EXPECT_TRUE(contains(calls, "FieldIsPresent description"));
  EXPECT_FALSE(contains(calls, "WriteString description the description"));
  EXPECT_FALSE(contains(calls, "WriteInt ddbVersion 33"));
  EXPECT_EQ(own_calls(calls).back(), "Object productAddOns");
}

TEST_F(DdrDdb, EveryOtherFieldIsWrittenWithoutAsking) {
  recorded_calls const calls = own_calls(written(readFrom(storedRecord())));
  EXPECT_EQ(std::ranges::count_if(calls,
                                  [](std::string const& call) { return call.starts_with("FieldIsPresent"); }),
            2);
}

TEST_F(DdrDdb, ARefusedStartWritesNothingAndStampsTheTime) {
  setClock(100);
  ddr_Ddb const record("n", "i", "d");
  setClock(200);
  EXPECT_EQ(written(record, {{}, {""}}), recorded_calls{"Start 0x220006"});
  EXPECT_EQ(record.GetModifyTime(), 200);
}

TEST_F(DdrDdb, ARefusedStartWithoutStampingLeavesTheTime) {
  setClock(100);
  ddr_Ddb record("n", "i", "d");
  record.SetUpdateModifyTime(false);
  setClock(200);
  written(record, {{}, {""}});
  EXPECT_EQ(record.GetModifyTime(), 100);
}

TEST_F(DdrDdb, ACopyHasEverything) {
  ddr_Ddb original = readFrom(storedRecord());
  original.models.Insert("m", ddr_Model());
  original.results.Insert("r", ddr_Result());
  original.userData.Insert("u", ddr_UserData());
  original.SetUpdateModifyTime(false);
  std::unique_ptr<ddr_Ddb> const copy(original.Copy());
  recorded_calls const before = written(original);
  EXPECT_EQ(own_calls(written(*copy)), own_calls(before));
  EXPECT_EQ(copy->GetDbId(), original.GetDbId());
  EXPECT_EQ(copy->GetUid(), original.GetUid());
  EXPECT_EQ(copy->GetUpdateModifyTime(), false);
  EXPECT_EQ(copy->GetProductAddOns().Uid(), original.GetProductAddOns().Uid());
  EXPECT_EQ(copy->GetProductAddOns().Size(), 1);
  EXPECT_EQ(copy->models.Uid(), original.models.Uid());
  EXPECT_EQ(modelNames(*copy), Texts{"m"});
  EXPECT_EQ(&copy->results.ConstGet("r"), &original.results.ConstGet("r"));
  EXPECT_EQ(&copy->userData.ConstGet("u"), &original.userData.ConstGet("u"));
}

TEST_F(DdrDdb, ACopyAndItsOriginalChangeApart) {
  ddr_Ddb original("n", "i", "d");
  ddr_Ddb copy(original);
  copy.models.Insert("m", ddr_Model());
  copy.results.Insert("r", ddr_Result());
  copy.AddProductAddOn(ddr_ProductAddOn(ddr_ProductAddOn_Koru));
  copy.GetDiagnosticData().Append(1, dia_Severity::Error, "broken");
  copy.SetDescription("changed");
  EXPECT_EQ(original.models.Size() + original.results.Size() + original.GetProductAddOns().Size(), 0);
  EXPECT_EQ(original.ConstGetDiagnosticData().Size(), 0);
  EXPECT_STREQ(original.GetDescription().Text(), "d");
}

TEST_F(DdrDdb, CopiesShareTheWayToTheFile) {
  cow_String const database = create("a.odb");
  std::unique_ptr<ddr_Ddb> original(record(database).Copy());
  ddr_Ddb const copy(*original);
  rom_Transporter* const transporter = original->GetTransporter();
  EXPECT_EQ(copy.GetTransporter(), transporter);
  close(database);
  original.reset();
  EXPECT_EQ(copy.GetTransporter(), transporter);
  EXPECT_EQ(transporter->GetTableSize(ddr_Ddb::TypeId()), 0);
}

TEST_F(DdrDdb, ANewTransporterLeavesThatOfFormerCopies) {
  cow_String const database = createSaved("a.odb");
  ddr_Ddb const before(record(database));
  rom_Transporter* const former = before.GetTransporter();
  change(database, [&](ddr_Ddb& changed) {
    rfm_File const file = rfm_File::Open(path("a.odb"), utl_FileAccess::Write, true);
    changed.SetTransporter(new rom_Transporter(root().GetClassRegistrar(), file, "D0", -1));
  });
  EXPECT_EQ(before.GetTransporter(), former);
  EXPECT_NE(record(database).GetTransporter(), former);
  EXPECT_EQ(former->GetTableSize(ddr_Ddb::TypeId()), 1);
}

TEST_F(DdrDdb, TheLastCopyClosesTheFile) {
  int const before = openDescriptors();
  cow_String const database = createSaved("a.odb");
  std::unique_ptr<ddr_Ddb> first(record(database).Copy());
  std::unique_ptr<ddr_Ddb> second(first->Copy());
  close(database);
  first.reset();
  EXPECT_GT(openDescriptors(), before);
  second.reset();
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(DdrDdb, CopiesOutliveAFinalizedModule) {
  cow_String const database = createSaved("a.odb");
  std::unique_ptr<ddr_Ddb> copy(record(database).Copy());
  ddr_finalize(libraries);
  EXPECT_EQ(copy->GetTransporter()->GetTableSize(ddr_Ddb::TypeId()), 1);
  copy.reset();
  ddr_initialize(libraries); // the fixture stops it
}

} // namespace
