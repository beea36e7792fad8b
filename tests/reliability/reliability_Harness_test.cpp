// The tests of reliability see what they are there to see: saves of plain SQLite, with syncs left out.
#include "fault_device.h"
#include "power_cut.h"
#include "reliability_Silence.h"
#include "reliability_Workflow.h"

#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <set>
#include <sqlite3.h>
#include <stdexcept>
#include <unistd.h>

namespace {

using Connection = std::unique_ptr<sqlite3, int (*)(sqlite3*)>;

Connection opened(std::string const& path) {
  sqlite3* database = nullptr;
  sqlite3_open(path.c_str(), &database);
  return {database, sqlite3_close};
}

/// What becomes of a save in the end, over all images of a power cut.
struct Endings {
  bool areWhole = true;   ///< each is the state before or the state after
  bool areLasting = true; ///< each is the state after, once the save has returned
};

class Reliability_Harness : public testing::Test {
protected:
  Reliability_Harness() {
    run("CREATE TABLE t (n, filler);"
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 12)"
        "INSERT INTO t SELECT i, zeroblob(900) FROM n");
  }

  /// A save that changes every page.
  static constexpr char const* save = "UPDATE t SET n = n + 1000, filler = randomblob(900)";

  void run(std::string const& sql) {
    if (sqlite3_exec(opened(path).get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
      throw std::runtime_error("cannot run " + sql);
    }
  }

  /// The folder as it lies there.
  device_image image() const {
    device_image found;
    for (std::string const& name : folder.names()) {
      found[name] = readFile(folder.path(name));
    }
    return found;
  }

  /// What a reader finds who comes after a power cut, and recovers the file.
  std::string after(device_image const& left) {
    for (std::string const& name : folder.names()) {
      std::filesystem::remove(folder.path(name));
    }
    for (auto const& [name, bytes] : left) {
      writeFile(folder.path(name), bytes);
    }
    try {
      runSql(path, "SELECT count(*) FROM t"); // plays the journal back
    } catch (std::exception const& failure) {
      return failure.what();
    }
    return contentOf(path);
  }

  static constexpr std::size_t sectorSize = 512;
  static constexpr std::size_t tornSize = 2 * sectorSize;

  /// The first byte of each sector of a file.
  static std::string sectorsOf(std::string const& bytes) {
    std::string found;
    for (std::size_t place = 0; place < bytes.size(); place += sectorSize) {
      found += bytes[place];
    }
    return found;
  }

  /// Saves, and lets the power go at every moment.
  Endings endings(std::string const& synchronous) {
    fault_device device(folder.path());
    device_image const start = image();
    std::map<std::string, int> const numbers = device.record(folder.names());
    run("PRAGMA synchronous = " + synchronous + ";" + save);
    device.mark("saved");
    device.stop();
    power_cut cut(start, numbers, device.events());
    std::string const before = after(start);
    std::string const behind = after(cut.whole(cut.length()));
    Endings found;
    for (std::size_t event = 0; event <= cut.length(); ++event) {
      cut.each(event, [&](device_image const& left) {
        std::string const content = after(left);
        found.areWhole = found.areWhole && (content == before || content == behind);
        found.areLasting = found.areLasting && (content == behind || cut.marksBefore(event) == 0);
      });
    }
    return found;
  }

  temporary_folder folder;
  std::string path = folder.path("a");
};

TEST_F(Reliability_Harness, APowerCutLeavesHalfASaveWhereNothingIsSynced) {
  Endings const found = endings("off");
  EXPECT_FALSE(found.areWhole);
  EXPECT_FALSE(found.areLasting);
}

// SQLite says so itself: its sums over pages look at few bytes.
TEST_F(Reliability_Harness, APowerCutLeavesHalfAJournalWhereItIsSyncedInOneGo) {
  Endings const found = endings("normal");
  EXPECT_FALSE(found.areWhole);
  EXPECT_FALSE(found.areLasting);
}

TEST_F(Reliability_Harness, APowerCutBringsAJournalBackWhereItsRemovalIsNotSynced) {
  Endings const found = endings("full");
  EXPECT_TRUE(found.areWhole);
  EXPECT_FALSE(found.areLasting);
}

TEST_F(Reliability_Harness, APowerCutTakesNothingOfASaveThatIsSynced) {
  Endings const found = endings("extra");
  EXPECT_TRUE(found.areWhole);
  EXPECT_TRUE(found.areLasting);
}

TEST_F(Reliability_Harness, APowerCutTearsEachWriteForWhichASyncIsDue) {
  std::string const name = folder.path("torn");
  writeFile(name, std::string(2 * tornSize, 'o'));
  fault_device device(folder.path());
  device_image const start = image();
  std::map<std::string, int> const numbers = device.record(folder.names());
  int const file = open(name.c_str(), O_WRONLY);
  std::string const bytes(tornSize, 'n');
  pwrite(file, bytes.data(), tornSize, 0);
  pwrite(file, bytes.data(), tornSize, tornSize);
  fsync(file);
  close(file);
  device.stop();
  power_cut cut(start, numbers, device.events());
  std::set<std::string> found;
  for (std::size_t event = 0; event <= cut.length(); ++event) {
    cut.each(event, [&](device_image const& left) { found.insert(sectorsOf(left.at("torn"))); });
  }
  // n: a new sector, o: an old one
  EXPECT_EQ(found, (std::set<std::string>{"oooo", "nooo", "nnoo", "nnno", "nnnn", "oono", "oonn", "nonn"}));
}

// SQLite goes on when the folder of a new journal cannot be synced.
TEST_F(Reliability_Harness, ASyncThatIsHushedUpIsSeen) {
  device_fault const fault{device_call::Sync, 2, device_fault::Effect::Error, EIO, false};
  fault_device device(folder.path());
  device.start(fault);
  run(std::string("PRAGMA synchronous = extra;") + save);
  device.stop();
  EXPECT_EQ(hushedUp(fault, device.failures()), (std::vector<std::string>{"a failed sync of the folder"}));
  EXPECT_EQ(device.unsynced(), std::vector<std::string>()) << "the folder is synced once more in the end";
}

TEST_F(Reliability_Harness, WhatIsNotSyncedIsKnown) {
  fault_device device(folder.path());
  device.start();
  run(std::string("PRAGMA synchronous = off;") + save);
  EXPECT_EQ(device.unsynced(), (std::vector<std::string>{"", "a"}));
  run(std::string("PRAGMA synchronous = full;") + save);
  EXPECT_EQ(device.unsynced(), std::vector<std::string>{""}) << "the removal of the journal";
}

} // namespace
