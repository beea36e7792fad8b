// Many threads, each with a registry and files of its own, while the module starts and stops around them.
#include "counts.h"
#include "ddr_Check.h"
#include "long_run.h"
#include "module_client.h"

#include <atomic>
#include <latch>
#include <thread>
#include <vector>

namespace {

constexpr int threadCount = 32;

/// One thread's work with its own file, from its start of the module to its stop.
class Worker {
public:
  explicit Worker(std::string file) : path(std::move(file)) {}

  /// One life: what the life before has saved is there, more is changed and saved.
  void Live(int life, bool leavesOpen) {
    module_client const client;
    cow_String const file(path.c_str());
    EXPECT_FALSE(module_client::root().IsMember(file)) << path;
    cow_String const name = life == 0 ? module_client::create(path) : module_client::open(path);
    if (life > 0) {
      EXPECT_EQ(contentsOf(module_client::record(name)), saved) << path << ", life " << life;
    }
    Change(name, life);
    LookAround(name);
    module_client::save(name);
    saved = contentsOf(module_client::record(name));
    if (!leavesOpen) {
      module_client::close(name);
    }
  }

  /// What the last life has saved is there.
  void ExpectSaved() const {
    cow_String const name = module_client::open(path, utl_FileAccess::Read);
    EXPECT_EQ(contentsOf(module_client::record(name)), saved) << path;
    module_client::close(name);
  }

  std::string const& Path() const noexcept { return path; }

private:
  static void Change(cow_String const& name, int life) {
    ddr_DdbContainer const before = module_client::root().Fetch();
    std::string const contents = contentsOf(before.ConstGet(name));
    module_client::edit(name, [life](ddr_Ddb& record) {
      module_client::write_model(record, numbered("M", life % 3), numbered("life ", life));
      record.results.Insert(cow_String(numbered("R", life).c_str()), ddr_Result());
      record.userData.Insert(cow_String("U"), ddr_UserData());
      record.SetDescription(cow_String(numbered("after life ", life).c_str()));
    });
    EXPECT_EQ(contentsOf(before.ConstGet(name)), contents) << "a copy changed with the original";
    EXPECT_NE(contentsOf(module_client::record(name)), contents);
  }

  // The parts of the module that keep something for the whole process.
  void LookAround(cow_String const& name) const {
    ddr_Ddb const& record = module_client::record(name);
    EXPECT_TRUE(record.checkUpwardsCompatibility());
    EXPECT_TRUE(record.checkWriteCompatibility());
    EXPECT_FALSE(record.CreateTime().IsEmpty());
    ddr_Shortcut<ddr_Ddb> const shortcut(new ddr_DdbShortcutImpl(name));
    EXPECT_NE(shortcut.PythonPath().View().find(path), std::string_view::npos);
    EXPECT_EQ(ddr_check(cow_String(path.c_str()), ddr_CheckDepth::Deep).status, ddr_CheckStatus::Sound);
    EXPECT_TRUE(module_client::root().VerifyCreationDate(
        rfm_File::Open(cow_String(path.c_str()), utl_FileAccess::Read, true)));
  }

  std::string path;
  std::string saved;
};

class ThreadsTest : public testing::Test {
protected:
  /// Runs work on as many threads at once, and waits for all.
  static void onThreads(std::function<void(int)> const& work) {
    std::latch together(threadCount);
    std::vector<std::thread> threads;
    threads.reserve(threadCount);
    for (int number = 0; number < threadCount; ++number) {
      threads.emplace_back([&, number] {
        together.arrive_and_wait();
        work(number);
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  }
  std::string fileOf(int number) const { return folder.path(numbered("t", number) + ".odb"); }
  static int lives() { return static_cast<int>(setting("DDR_THREAD_LIVES", 3)); }

  temporary_folder folder;
};

TEST_F(ThreadsTest, EachThreadFindsWhatItSavedWhileOthersStartStopAndEnd) {
  int const descriptors = openDescriptors();
  std::vector<Worker> workers;
  for (int number = 0; number < threadCount; ++number) {
    workers.emplace_back(fileOf(number));
  }
  onThreads([&](int number) {
    Worker& worker = workers.at(static_cast<std::size_t>(number));
    for (int life = 0; life < lives(); ++life) {
      // A thread of its own each time: its registry goes with it, with the database still open or not.
      std::thread([&] {
        try {
          worker.Live(life, (number + life) % 2 == 0);
        } catch (std::exception const& failure) {
          ADD_FAILURE() << worker.Path() << ", life " << life << ": " << failure.what();
        }
      }).join();
    }
  });
  {
    module_client const client;
    for (Worker const& worker : workers) {
      worker.ExpectSaved();
    }
  }
  addToCount("threads", "with a registry of their own", static_cast<long long>(lives()) * threadCount);
  EXPECT_EQ(thr_ThreadSingletonBase<ddr_Root>::SlotState().liveCount, 0U);
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(ThreadsTest, RegistriesWithOpenDatabasesEndAfterTheLastStop) {
  int const descriptors = openDescriptors();
  std::latch open(threadCount);
  std::atomic<unsigned> alive{0};
  onThreads([&](int number) {
    {
      module_client const client;
      module_client::create(fileOf(number));
      open.arrive_and_wait();
      alive = thr_ThreadSingletonBase<ddr_Root>::SlotState().liveCount.load();
    }
  });
  EXPECT_GT(alive, 0U);
  EXPECT_EQ(thr_ThreadSingletonBase<ddr_Root>::SlotState().liveCount, 0U);
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(ThreadsTest, ThreadsThatReadOneFileSeeTheSame) {
  std::string expected;
  {
    module_client const client;
    cow_String const name = module_client::create(fileOf(0));
    module_client::edit(name, [](ddr_Ddb& record) {
      for (int model = 0; model < 20; ++model) {
        module_client::write_model(record, numbered("M", model), numbered("text ", model));
      }
    });
    module_client::save(name);
    expected = contentsOf(module_client::record(name));
  }
  std::atomic<int> same{0};
  onThreads([&](int) {
    module_client const client;
    same +=
        contentsOf(module_client::record(module_client::open(fileOf(0), utl_FileAccess::Read))) == expected
            ? 1
            : 0;
  });
  EXPECT_EQ(same, threadCount);
}

} // namespace
