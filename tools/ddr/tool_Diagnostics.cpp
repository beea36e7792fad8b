#include "tool_Diagnostics.h"

#include "ddr_TimeText.h"
#include "nex_Exception.h"
#include "tool_Output.h"
#include "utl_Utf8.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace {

constexpr char const* heading = "Diagnostics";

char const* word(dia_Severity severity) {
  switch (severity) {
  case dia_Severity::Information:
    return "information";
  case dia_Severity::Warning:
    return "warning";
  case dia_Severity::Error:
    break;
  }
  return "error";
}

/// The diagnostic data, or null.
dia_DiagnosticData const* find(ddr_Ddb const& record) {
  try {
    return &record.ConstGetDiagnosticData();
  } catch (nex_TextException const&) {
    return nullptr; // says that there is none, and nothing else
  }
}

} // namespace

std::string tool_diagnosticsText(ddr_Ddb const& record) {
  dia_DiagnosticData const* const data = find(record);
  if (data == nullptr) {
    return tool_row(heading, "(the database has no diagnostic data)");
  }
  std::string text = fmt::format("{} ({})\n", heading, data->Size());
  for (int index = 0; index < data->Size(); ++index) {
    dia_Message const& message = data->Message(index);
    text += fmt::format("  {}  {:<11}  {}\n", utl_Printable(ddr_timeText(message.Time()).View()),
                        word(message.Severity()), utl_Printable(message.Text().View()));
  }
  return text;
}

nlohmann::ordered_json tool_diagnosticsJson(ddr_Ddb const& record) {
  dia_DiagnosticData const* const data = find(record);
  if (data == nullptr) {
    return nullptr;
  }
  nlohmann::ordered_json messages = nlohmann::ordered_json::array();
  for (int index = 0; index < data->Size(); ++index) {
    dia_Message const& message = data->Message(index);
    messages.push_back(nlohmann::ordered_json{{"time", ddr_timeText(message.Time()).View()},
                                              {"seconds", message.Time()},
                                              {"severity", word(message.Severity())},
                                              {"text", message.Text().View()}});
  }
  return messages;
}
