// tool_Progress: how far a long command has come, on standard error.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Shows progress: on a terminal as a bar that is redrawn in place, elsewhere as plain lines, one at each
/// tenth of a piece of work. The bar goes away with this object. What standard error does not take is lost.
class tool_Progress {
public:
  tool_Progress();
  ~tool_Progress();
  tool_Progress(tool_Progress const&) = delete;
  tool_Progress& operator=(tool_Progress const&) = delete;

  /// Says where the work is.
  /// @param title what is being done; any bytes
  /// @param done rows dealt with [rows]
  /// @param total rows that there are [rows]
  void Show(std::string_view title, std::int64_t done, std::int64_t total);

private:
  void Draw(std::string_view title, int percent) const;

  bool onTerminal;
  std::string shownTitle;
  int shownPart = -1; // percents or tenths
};
