// The verb "upgrade".
#pragma once

#include "tool_Report.h"

namespace CLI {
class App;
}

/// Adds "upgrade" to what the command line understands.
/// @param app the command line
/// @param command set when the verb is used
void tool_offerUpgrade(CLI::App& app, tool_Command& command);
