// The verb "create".
#pragma once

#include "tool_Report.h"

namespace CLI {
class App;
}

/// Adds "create" to what the command line understands.
/// @param app the command line
/// @param command set when the verb is used
void tool_offerCreate(CLI::App& app, tool_Command& command);
