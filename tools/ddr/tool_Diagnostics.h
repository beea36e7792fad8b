// The messages kept with a database, as "info" shows them.
#pragma once

#include "ddr_Ddb.h"

#include <nlohmann/json_fwd.hpp>
#include <string>

/// A heading with the number of messages, and a line a message, oldest first: time, severity, text. One line
/// that says so when the database has no diagnostic data.
std::string tool_diagnosticsText(ddr_Ddb const& record);
/// The messages, oldest first; null when the database has no diagnostic data.
nlohmann::ordered_json tool_diagnosticsJson(ddr_Ddb const& record);
