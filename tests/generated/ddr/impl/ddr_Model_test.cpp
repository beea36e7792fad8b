// The model record.
#include "ddr_ModuleTest.h"
#include "recording_rows.h"

#include <memory>
#include <type_traits>

namespace {

class DdrModel : public ddr_ModuleTest {};

TEST_F(DdrModel, CommandNamesAreTheStoredKeys) {
  std::vector<std::pair<omn_FixedString, char const*>> const commands = {
      {ddr_Model::materialCmd(), "material"},
      {ddr_Model::sectionCmd(), "section"},
      {ddr_Model::fieldCmd(), "field"},
      {ddr_Model::fieldOutputRequestCmd(), "fieldOutputRequest"},
      {ddr_Model::historyOutputRequestCmd(), "historyOutputRequest"},
      {ddr_Model::profileCmd(), "profile"},
      {ddr_Model::interactionCmd(), "interaction"},
      {ddr_Model::interactionPropertyCmd(), "interactionProperty"},
      {ddr_Model::stepCmd(), "step"},
      {ddr_Model::adaptiveMeshControlCmd(), "adaptiveMeshControl"},
      {ddr_Model::timePointCmd(), "timePoint"},
      {ddr_Model::adaptiveMeshConstraintCmd(), "adaptiveMeshConstraint"},
      {ddr_Model::integratedOutputSectionCmd(), "integratedOutputSection"},
      {ddr_Model::amplitudeCmd(), "amplitude"},
      {ddr_Model::filterCmd(), "filter"},
      {ddr_Model::bcCmd(), "bc"},
      {ddr_Model::loadCmd(), "load"},
      {ddr_Model::constraintCmd(), "constraint"},
      {ddr_Model::connectorCmd(), "connector"}};
  EXPECT_EQ(commands.size(), 19U);
  for (auto const& [command, text] : commands) {
    EXPECT_STREQ(command.Text(), text);
  }
}

TEST_F(DdrModel, TheCommandForContactControlIsAPlural) {
  EXPECT_STREQ(ddr_Model::contactControlCmd().Text(), "contactControls");
}

TEST_F(DdrModel, TypeIdsAreThoseOfTheFormat) {
  EXPECT_EQ(ddr_Model::TypeId(), 0x220007U);
  EXPECT_EQ(ddr_Model().DynTypeId(), 0x220007U);
  EXPECT_EQ(ddr_ModelExtension::TypeId(), 2228249U);
}

TEST_F(DdrModel, ANewModelIsEmptyAndHasAnIdentity) {
  ddr_Model const model;
  EXPECT_TRUE(model.GetName().IsEmpty());
  EXPECT_TRUE(model.GetDatabase().IsEmpty());
  EXPECT_EQ(model.InstanceTable().Size(), 0);
  EXPECT_FALSE(model.GetUid().IsNone());
  EXPECT_NE(model.GetUid(), ddr_Model().GetUid());
}

TEST_F(DdrModel, TheFirstTextIsTheDatabaseAndTheSecondTheName) {
  ddr_Model const model("the dbId", "the name");
  EXPECT_STREQ(model.GetDatabase().Text(), "the dbId");
  EXPECT_STREQ(model.GetName().Text(), "the name");
  EXPECT_FALSE(model.GetUid().IsNone());
}

TEST_F(DdrModel, ReadsInOneOrder) {
  auto const stored = std::make_shared<stored_object>();
  stored->strings["modelName"] = "the name";
  recording_source const source(stored, "the dbId");
  ddr_Model const model{cls_ReadVisitor(source)};
  EXPECT_EQ(own_calls(source.calls()),
            (recorded_calls{"ReadString modelName", "Uid", "DbId", "Object instanceTable"}));
  EXPECT_STREQ(model.GetName().Text(), "the name");
  EXPECT_STREQ(model.GetDatabase().Text(), "the dbId");
  EXPECT_EQ(model.GetUid(), stored->uid);
}

TEST_F(DdrModel, TakesTheIdentityOfItsStoredTable) {
  auto const stored = std::make_shared<stored_object>();
  auto const table = std::make_shared<stored_object>();
  table->classId = ddr_ExtensionTable::TypeId();
  stored->objects["instanceTable"] = table;
  recording_source const source(stored, "the dbId");
  EXPECT_EQ(ddr_Model{cls_ReadVisitor(source)}.InstanceTable().Uid(), table->uid);
}

TEST_F(DdrModel, WritesItsNameAndItsTableButNotItsDatabase) {
  ddr_Model const model("the dbId", "the name");
  recording_sink sink;
  model.DBWrite(cls_WriteVisitor(sink));
  EXPECT_EQ(sink.calls(),
            (recorded_calls{"Start 0x220007", "WriteString modelName the name", "Object instanceTable",
                            "instanceTable.Start 0x220018", "instanceTable.Object map",
                            "instanceTable.map.Start 0x230002", "instanceTable.map.Collection",
                            "instanceTable.map.BeginWrite", "instanceTable.map.EndWrite"}));
  EXPECT_EQ(sink.started().at(""), model.GetUid());
  EXPECT_EQ(sink.started().at("instanceTable"), model.InstanceTable().Uid());
}

TEST_F(DdrModel, ARefusedStartWritesNothing) {
  recording_sink sink(sink_answers{{}, {""}});
  ddr_Model("the dbId", "the name").DBWrite(cls_WriteVisitor(sink));
  EXPECT_EQ(sink.calls(), recorded_calls{"Start 0x220007"});
}

TEST_F(DdrModel, ACopyKeepsNamesAndIdentity) {
  ddr_Model const model("the dbId", "the name");
  std::unique_ptr<ddr_Model> const copy(model.Copy());
  EXPECT_STREQ(copy->GetDatabase().Text(), "the dbId");
  EXPECT_STREQ(copy->GetName().Text(), "the name");
  EXPECT_EQ(copy->GetUid(), model.GetUid());
  EXPECT_EQ(copy->InstanceTable().Uid(), model.InstanceTable().Uid());
}

TEST_F(DdrModel, CanBeWrittenThroughItsBase) {
  ddr_Model const model("", "the name");
  ddr_ModelExtension const& base = model;
  recording_sink sink;
  base.DBWrite(cls_WriteVisitor(sink));
  EXPECT_EQ(sink.calls().at(1), "WriteString modelName the name");
  static_assert(std::is_base_of_v<ddr_ModelExtension, ddr_Model>);
}

TEST_F(DdrModel, BelongsToTheDatabaseThatItIsReadFromWhateverItWasWrittenWith) {
  cow_String const database = create("a.odb");
  change(database, [](ddr_Ddb& changed) { changed.models.Insert("m", ddr_Model("elsewhere", "m")); });
  save(database);
  cow_String const again = reopen(database, "a.odb");
  EXPECT_EQ(record(again).models.ConstGet("m").GetDatabase(), path("a.odb"));
}

} // namespace
