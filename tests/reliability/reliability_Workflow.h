// reliability_Workflow: what is done to files while things go wrong, and what they hold afterwards.
#pragma once

#include "database_test.h"
#include "fault_device.h"
#include "power_cut.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

/// The content of a database file, read with SQLite itself: a number over every table, column and value,
/// behind it what SQLite's own check says unless that is "ok". Identities count by which of them are equal,
/// so that it is the same for every run of the same work.
std::string contentOf(std::string const& path);

class reliability_test;

/// One piece of work on the file "a" of a folder.
struct Workflow {
  char const* name;
  /// Makes the file; leaves nothing open.
  void (*prepare)(reliability_test& test);
  /// Opens and changes in memory what act will write.
  void (*begin)(reliability_test& test);
  /// What things go wrong in. Says step() behind each call that has brought the file into its next state.
  void (*act)(reliability_test& test);
  int steps;
  bool savesRecord = false; ///< the file afterwards holds what the registry has
};

std::vector<Workflow> const& workflows();
inline std::ostream& operator<<(std::ostream& stream, Workflow const& workflow) {
  return stream << workflow.name;
}

/// How much of a long test is run: everything that must be tested is tested in any case, and the rest until
/// the time is over. DDR_TORTURE_MINUTES [minutes; shared by all tests that ask] and DDR_TORTURE_SEED ask for
/// more than the tests do by themselves.
class torture_share {
public:
  torture_share();
  bool isLong() const noexcept { return minutes > 0; }
  std::uint64_t seed() const noexcept { return chosenSeed; }
  /// Whether to go on, in a test that gets a part of the time.
  bool goesOn(int parts) const;

private:
  double minutes = 0;
  std::uint64_t chosenSeed = 1;
  std::chrono::steady_clock::time_point start;
};

class reliability_test : public database_test, public testing::WithParamInterface<Workflow> {
public:
  reliability_test();
  ~reliability_test() override;

  using database_test::close;
  using database_test::contents;
  using database_test::create;
  using database_test::edit;
  using database_test::folder;
  using database_test::open;
  using database_test::pathOf;
  using database_test::root;
  using database_test::save;
  using database_test::stored;

  /// The next state of the file is reached.
  void step();

  /// The database that a workflow has open.
  cow_String opened;

protected:
  fault_device device;
  torture_share share;

  /// Makes the folder hold what prepare left, and registers nothing.
  void startOver();
  /// The states of the file, from before the work to behind it, as contentOf tells; "missing" for no file.
  std::vector<std::string> const& states();
  /// What is in the folder.
  device_image image() const;
  void setImage(device_image const& wanted);
  /// Opens the file as a program does that is started after a crash, which recovers it, and says what it
  /// holds.
  std::string recovered();
  /// Everything that the registry tells.
  std::string registry();
  void closeAll();

private:
  device_image prepared;
  std::vector<std::string> known;
  std::vector<std::string>* collecting = nullptr;
};
