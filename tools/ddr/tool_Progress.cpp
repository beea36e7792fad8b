#include "tool_Progress.h"

#include "utl_Utf8.h"

#include <algorithm>
#include <cstdio>
#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr int whole = 100;
constexpr int barWidth = 30; // columns

void write(std::string const& text) {
  std::fwrite(text.data(), 1, text.size(), stderr);
}

/// The columns of the terminal on standard error.
std::size_t terminalWidth() {
  constexpr std::size_t usual = 80;
  winsize size{};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : usual;
}

/// As much of a printable text as fits into a number of columns. Every character counts as two, for some are
/// as wide as that.
std::string_view fitting(std::string_view text, std::size_t columns) {
  std::size_t length = 0;
  for (std::size_t used = 0; length < text.size(); ++length) {
    auto const byte = static_cast<unsigned char>(text[length]);
    if ((byte & 0xC0U) == 0x80U) {
      continue; // belongs to the character before
    }
    used += byte < 0x80U ? 1 : 2;
    if (used > columns) {
      break;
    }
  }
  return text.substr(0, length);
}

} // namespace

tool_Progress::tool_Progress() : onTerminal(isatty(STDERR_FILENO) == 1) {}

tool_Progress::~tool_Progress() {
  if (onTerminal && shownPart >= 0) {
    write("\r\x1b[K");
  }
}

void tool_Progress::Show(std::string_view title, std::int64_t done, std::int64_t total) {
  std::string const printable = utl_Printable(title);
  // Not done * 100 / total, which a great number of rows would overflow.
  double const share = total > 0 ? static_cast<double>(done) / static_cast<double>(total) : 1.0;
  int const percent = std::clamp(static_cast<int>(share * whole), 0, whole);
  int const part = onTerminal ? percent : percent / 10;
  if (printable == shownTitle && part == shownPart) {
    return;
  }
  shownTitle = printable;
  shownPart = part;
  if (onTerminal) {
    Draw(printable, percent);
  } else {
    write(fmt::format("{}: {} of {} rows\n", printable, done, total));
  }
}

void tool_Progress::Draw(std::string_view title, int percent) const {
  int const filled = percent * barWidth / whole;
  std::string const line =
      fmt::format("[{:=<{}}{: <{}}] {:3} %  {}", "", filled, "", barWidth - filled, percent, title);
  write(fmt::format("\r{}\x1b[K", fitting(line, terminalWidth() - 1)));
}
