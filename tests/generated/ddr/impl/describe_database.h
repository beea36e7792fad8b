// describe_database: everything that a database holds, as text, to be compared between processes.
#pragma once

#include "ddr_Ddb.h"

#include <sstream>
#include <string>

/// One line for each thing that is stored. Loads every model.
inline std::string describe_database(ddr_Ddb const& database) {
  std::ostringstream text;
  text << "name " << database.GetName().Text() << "\n"
       << "description " << database.GetDescription().Text() << "\n"
       << "analysisVersion " << database.GetAnalysisVersion().Text() << "\n"
       << "sequenceData " << database.GetSequenceData().Text() << "\n"
       << "onlyHasUserDefinedData " << database.GetOnlyHasUserDefinedData() << "\n"
       << "creationTime " << database.GetCreationTime() << "\n"
       << "modifyTime " << database.GetModifyTime() << "\n"
       << "ddbVersion " << database.GetDdbVersion() << "\n"
       << "models " << database.models.Size() << " " << database.models.Uid().Text() << "\n";
  cls_Map2ObjIter<cow_String, ddr_Model, cow_ArrayCOW<ddr_Model, cow_Virtual<ddr_Model>>> walk(
      database.models);
  for (walk.First(); !walk.AtEnd(); walk.Next()) {
    ddr_Model const& model = walk.Value();
    text << "model " << walk.Key().Text() << " " << model.GetName().Text() << " "
         << model.GetDatabase().Text() << " " << model.GetUid().Text() << " "
         << model.InstanceTable().Uid().Text() << " " << model.InstanceTable().Size() << "\n";
  }
  text << "results " << database.results.Size() << " " << database.results.Uid().Text() << "\n";
  for (mdl_MapString2ObjIT<ddr_Result> result(database.results); !result.AtEnd(); result.Next()) {
    text << "result " << result.Key().Text() << " " << result.Value().GetUid().Text() << "\n";
  }
  text << "userData " << database.userData.Size() << " " << database.userData.Uid().Text() << "\n";
  for (mdl_MapString2ObjIT<ddr_UserData> data(database.userData); !data.AtEnd(); data.Next()) {
    text << "userData " << data.Key().Text() << " " << data.Value().GetUid().Text() << "\n";
  }
  dia_DiagnosticData const& diagnostics = database.ConstGetDiagnosticData();
  text << "diagnostics " << diagnostics.Uid().Text() << "\n";
  for (int index = 0; index < diagnostics.Size(); ++index) {
    dia_Message const& message = diagnostics.Message(index);
    text << "message " << message.Time() << " " << static_cast<int>(message.Severity()) << " "
         << message.Text().Text() << "\n";
  }
  ddr_ProductAddOnList const& addOns = database.GetProductAddOns();
  text << "addOns " << addOns.Uid().Text() << "\n";
  for (int index = 0; index < addOns.Size(); ++index) {
    text << "addOn " << addOns.ConstGet(index).GetString().Text() << "\n";
  }
  return text.str();
}
