// Opening a file while others save to it.
#include "module_client.h"
#include "simulation_files.h"
#include "temporary_folder.h"

#include <gtest/gtest.h>
#include <thread>

namespace {

/// A file in which each save adds a result and says in the description how many there are.
class Opening : public testing::Test {
protected:
  Opening() {
    module_client::close(module_client::create(path));
    saveElsewhere();
  }

  /// Saves once more, in a thread with a registry of its own.
  void saveElsewhere() const {
    std::thread([this] {
      module_client const other;
      cow_String const name = module_client::open(path);
      module_client::edit(name, [](ddr_Ddb& record) {
        std::string const count = std::to_string(record.results.Size() + 1);
        record.results.Insert(cow_String(count), ddr_Result());
        record.SetDescription(cow_String(count));
      });
      module_client::save(name);
      module_client::close(name);
    }).join();
  }

  /// Opens, with a save before the n-th lock that the opening takes. @returns whether it takes so many
  bool openWithSaveBeforeLock(int n, utl_FileAccess access) {
    int locks = 0;
    bool saving = false;
    simulation_files const files(
        [&] {
          if (!saving && ++locks == n) {
            saving = true;
            saveElsewhere();
            saving = false;
          }
        },
        [] {});
    cow_String const name = module_client::open(path, access);
    ddr_Ddb const& record = module_client::record(name);
    EXPECT_EQ(record.GetDescription().View(), std::to_string(record.results.Size())) << "lock " << n;
    module_client::close(name);
    return locks >= n;
  }

  module_client const client;
  temporary_folder const folder;
  std::string const path = folder.path("file");
};

TEST_F(Opening, ReadsOneStateWhereverASaveOfOthersComes) {
  for (utl_FileAccess const access : {utl_FileAccess::Read, utl_FileAccess::Write}) {
    int lock = 1;
    while (openWithSaveBeforeLock(lock, access)) {
      ++lock;
    }
    EXPECT_GT(lock, 1);
  }
}

} // namespace
