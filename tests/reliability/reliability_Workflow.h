// reliability_Workflow: what is done to files while things go wrong, and what they hold afterwards.
#pragma once

#include "database_test.h"
#include "fault_device.h"
#include "power_cut.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <unordered_map>
#include <vector>

/// The content of a database file, read with SQLite itself: a number over every table, column and value,
/// behind it what SQLite's own check says unless that is "ok". Identities count by which of them are equal,
/// so that it is the same for every run of the same work.
std::string contentOf(std::string const& path);

/// A number that tells images apart.
std::size_t numberOf(device_image const& image);

class reliability_test;

/// One piece of work on the file "a" of a folder, which may make it of the file "old".
struct Workflow {
  std::string name;
  /// Makes the files; leaves nothing open.
  void (*prepare)(reliability_test& test);
  /// Opens and changes in memory what act will write.
  void (*begin)(reliability_test& test);
  /// What things go wrong in. Says step() behind each call that has brought the file into its next state, and
  /// pause() where the registry alone has changed. Can be repeated after a failure.
  void (*act)(reliability_test& test);
  int steps;                ///< how often it says step() when nothing goes wrong
  bool savesRecord = false; ///< the file afterwards holds what the registry has
  bool isReading = false;   ///< nothing is written
  std::string layout = {};  ///< of the file "old"
  int stride = 1;           ///< of the calls to the device, an ordinary run takes one in so many
  /// Whether it makes the file anew, in place of what stands there.
  bool makesFile() const { return name.starts_with("Create") || !layout.empty(); }
  /// Whether it changes the file in its place, with a journal beside it that a stop can leave there.
  bool changesInPlace() const { return savesRecord || (!makesFile() && !isReading); }
  /// Whether it makes a file where none may be.
  bool makesNewFile() const { return name.starts_with("CreateNew"); }
  /// Its part of the random choices, by how many there are.
  int weight() const { return isReading ? 0 : savesRecord ? 4 : 1; }
};

std::vector<Workflow> const& workflows();
inline std::ostream& operator<<(std::ostream& stream, Workflow const& workflow) {
  return stream << workflow.name;
}

/// How much of a long test is run. By themselves the tests do a share that is bounded: everything where it is
/// quick, one in so many of the rest. The environment asks for everything: DDR_TORTURE_MINUTES [minutes; of
/// random choices, shared by all tests that make some], DDR_TORTURE_IMAGES [images of power cuts, likewise]
/// and DDR_TORTURE_SEED.
class torture_share {
public:
  torture_share();
  bool isLong() const noexcept { return minutes > 0 || images > 0; }
  std::uint64_t seed() const noexcept { return chosenSeed; }
  /// Whether an ordinary run takes the n-th of many.
  bool takes(long long number, int stride) const noexcept {
    return isLong() || (number + static_cast<long long>(chosenSeed)) % stride == 0;
  }
  /// Whether to go on with random choices, in a test that gets a part of them.
  /// @param part of all [0 to 1]
  /// @param done images that the test has tried
  bool goesOn(double part, long long done) const;

private:
  double minutes = 0;
  long long images = 0;
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

  /// The folder lies on a file system that cannot rename without replacing, and refuses a second name
  /// instead.
  void useSecondNames() { device.lackNoReplace(); }
  /// The next state of the file is reached.
  void step();
  /// The next state of the registry is reached.
  void pause();
  Workflow const& workflow() const { return GetParam(); }

  /// The database that a workflow has open.
  cow_String opened;
  /// A copy of the container that a workflow has taken.
  std::optional<ddr_DdbContainer> kept;

protected:
  fault_device device;
  torture_share share;

  /// Makes the folder hold what prepare left, and registers nothing.
  void startOver();
  /// The states of the file, from before the work to behind it, as contentOf tells; "missing" for no file.
  /// Throws when the work does not take its steps, when two states are alike, or one is no sound file.
  std::vector<std::string> const& states();
  /// How many calls of a kind the work makes when nothing goes wrong.
  int callsOf(device_call call) const { return knownCalls.at(static_cast<std::size_t>(call)); }
  /// Whether this run meets every call in every way: a long one does, and so does an ordinary one of a build
  /// that is not slowed down, with the work on the small file of this release.
  bool isWhole() const;
  /// Whether this run takes the n-th of many, of which an ordinary one takes one in so many where it is not
  /// whole.
  bool takes(long long number, int stride) const { return isWhole() || share.takes(number, stride); }
  /// The states of the registry from before the work to behind it.
  std::vector<std::string> const& registryStates() const { return knownRegistries; }
  /// What prepare left in the folder.
  device_image const& before() const { return prepared; }
  /// What is in the folder.
  device_image image() const;
  void setImage(device_image const& wanted);
  /// Opens the file as a program does that is started after a crash, which recovers it, and says what it
  /// holds. The file "old" must be as it was.
  std::string recovered();
  /// Gives back the memory that knows what images hold.
  void forgetImages() { contentOfImage = {}; }
  /// Everything that the registry tells, identities as numbers in their order.
  std::string registry();
  void closeAll();

private:
  void requireStates() const;

  device_image prepared;
  std::vector<std::string> known;
  std::vector<std::string> knownRegistries;
  std::array<int, device_callKinds> knownCalls{};
  bool collecting = false;
  std::unordered_map<std::size_t, std::string> contentOfImage;
};
