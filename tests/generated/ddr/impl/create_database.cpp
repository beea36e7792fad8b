// Makes a database file from a process of its own, and says its persistent name and its creation time:
// create_database FILE [TIME]
// TIME, as in "2024-03-05 07:08:09", is the local time at which its clock stands still.
#include "cls_MetadataRegistrar.h"
#include "ddr_Library.h"
#include "ddr_Root.h"
#include "os_Runtime.h"

#include <cstdio>
#include <ctime>
#include <exception>

namespace {

std::int64_t stoppedAt = 0;

bool stopClockAt(char const* time) {
  std::tm local{};
  char const* const end = strptime(time, "%Y-%m-%d %H:%M:%S", &local);
  if (end == nullptr || *end != 0) {
    return false;
  }
  local.tm_isdst = -1;
  stoppedAt = std::mktime(&local);
  os_runtimeCalls().time64 = [](std::int64_t*) { return stoppedAt; };
  return true;
}

} // namespace

int main(int count, char** arguments) {
  if (count < 2 || count > 3 || (count == 3 && !stopClockAt(arguments[2]))) {
    std::fputs("usage: create_database FILE [TIME]\n", stderr);
    return 2;
  }
  int libraries = 0;
  int status = 0;
  ddr_initialize(libraries);
  try {
    ddr_Root& root = ddr_Root::Instance();
    root.SetClassRegistrar(omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
    root.CreateDdb(cow_String(arguments[1]), cow_String());
    cow_String const database = root.GetPersistentName(cow_String(arguments[1]));
    root.SaveDdb(database, true);
    cow_String const created = root.Fetch().ConstGet(database).CreateTime();
    std::printf("%s|%s", database.Text(), created.Text());
  } catch (std::exception const& error) {
    std::fprintf(stderr, "%s\n", error.what());
    status = 1;
  }
  ddr_finalize(libraries);
  return status;
}
