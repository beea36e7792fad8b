// The verbs "model", "result" and "userdata", each with "add" and "rm".
#pragma once

#include "tool_Collection.h"
#include "tool_Report.h"

namespace CLI {
class App;
}

/// Adds the verb of a collection to what the command line understands.
/// @param app the command line
/// @param command set when the verb is used
/// @param collection whose verb it is
void tool_offerChange(CLI::App& app, tool_Command& command, tool_Collection collection);
