// ddr: looks into database files and changes what is in them.
#include "tool_CommandLine.h"

#include "ddr_Library.h"

#include <csignal>

int main(int argumentCount, char** arguments) {
  // A write beyond the user's file size limit shall fail like one to a full disk, not end the process.
  std::signal(SIGXFSZ, SIG_IGN);
  int libraryCount = 0;
  ddr_initialize(libraryCount);
  int const status = tool_run(argumentCount, arguments);
  ddr_finalize(libraryCount);
  return status;
}
