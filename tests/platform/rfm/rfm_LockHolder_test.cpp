// Tests of rfm_LockHolder: whom the system's list of locks names.
#include "rfm_LockHolder.h"

#include "child_process.h"
#include "temporary_folder.h"

#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <iterator>
#include <memory>
#include <sched.h>
#include <stdexcept>
#include <string>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

using testing::HasSubstr;
using testing::StartsWith;

namespace {

// The first byte that SQLite locks, and a place behind the last.
constexpr off_t lockByte = 0x40000000;
constexpr off_t behindLockBytes = lockByte + 512;

void lock(int descriptor, short kind, off_t place, int command = F_SETLK) {
  struct flock range {};
  range.l_type = kind;
  range.l_whence = SEEK_SET;
  range.l_start = place;
  range.l_len = 1;
  if (fcntl(descriptor, command, &range) != 0) {
    throw std::runtime_error("no lock");
  }
}

// Its size is not known before it is read.
std::string systemsList() {
  std::ifstream stream("/proc/locks");
  return {std::istreambuf_iterator<char>(stream), {}};
}

struct LockHolderTest : testing::Test {
  temporary_folder folder;
  std::string const path = folder.path("a.odb");
  std::string const pidFile = folder.path("pid");
  LockHolderTest() { writeFile(path, "x"); }

  // A process that holds locks on the file until it is destroyed.
  std::unique_ptr<child_process> holder(std::function<void(int)> const& lockIt) {
    auto child = std::make_unique<child_process>([&](child_process& self) -> std::string {
      lockIt(open(path.c_str(), O_RDWR));
      writeFile(pidFile, std::to_string(getpid()));
      self.ready();
      self.wait_for_go();
      return "";
    });
    child->wait_until_ready();
    return child;
  }
  std::string lastPid() const { return readFile(pidFile); }
  std::string found(bool holdsLockItself = false) const { return rfm_lockHolder(path, holdsLockItself); }
};

void read(int descriptor) {
  lock(descriptor, F_RDLCK, lockByte + 2);
}

void write(int descriptor) {
  lock(descriptor, F_WRLCK, lockByte);
  lock(descriptor, F_WRLCK, lockByte + 100); // apart, so that the system lists two
}

TEST_F(LockHolderTest, AnotherProcessIsNamed) {
  auto const child = holder(read);
  EXPECT_THAT(found(), StartsWith("by another process (" + lastPid() + ", '"));
}

// The system lists the locks of one processor with the newest first.
TEST_F(LockHolderTest, AWriterIsNamedRatherThanAReader) {
  cpu_set_t before;
  ASSERT_EQ(sched_getaffinity(0, sizeof before, &before), 0);
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(static_cast<unsigned>(sched_getcpu()), &one);
  sched_setaffinity(0, sizeof one, &one);
  {
    auto const writer = holder(write);
    std::string const pid = lastPid();
    auto const reader = holder(read);
    EXPECT_THAT(found(), HasSubstr("(" + pid + ","));
  }
  {
    auto const reader = holder(read);
    auto const writer = holder(write);
    EXPECT_THAT(found(), HasSubstr("(" + lastPid() + ","));
  }
  sched_setaffinity(0, sizeof before, &before);
}

TEST_F(LockHolderTest, AProcessWithoutANameIsGivenByItsNumber) {
  auto const child = holder([](int descriptor) {
    prctl(PR_SET_NAME, "");
    read(descriptor);
  });
  EXPECT_EQ(found(), "by another process (" + lastPid() + ")");
}

TEST_F(LockHolderTest, ALockBehindThoseOfSqliteHoldsNobodyUp) {
  auto const child = holder([](int descriptor) { lock(descriptor, F_WRLCK, behindLockBytes); });
  EXPECT_EQ(found(), "by another process");
}

TEST_F(LockHolderTest, LocksOfOtherKindsAndOfOtherFilesAreLeftOut) {
  auto const whole = holder([](int descriptor) { flock(descriptor, LOCK_EX); });
  std::string const other = folder.path("b.odb");
  writeFile(other, "x");
  auto const lockOther = [&](int) { lock(open(other.c_str(), O_RDWR), F_WRLCK, lockByte); };
  auto const otherFile = holder(lockOther);
  auto const otherDevice = holder([](int) { lock(memfd_create("x", 0), F_WRLCK, lockByte); });
  EXPECT_EQ(found(), "by another process");
}

// The list names who waits for a lock too, in a line of another form.
TEST_F(LockHolderTest, AProcessThatWaitsForALockIsLeftOut) {
  std::string const other = folder.path("b.odb");
  writeFile(other, "x");
  auto const holds = holder([&](int) { lock(open(other.c_str(), O_RDWR), F_WRLCK, lockByte); });
  child_process waits([&](child_process&) -> std::string {
    lock(open(other.c_str(), O_RDWR), F_WRLCK, lockByte, F_SETLKW);
    return "";
  });
  auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (systemsList().find("-> POSIX") == std::string::npos) {
    ASSERT_LT(std::chrono::steady_clock::now(), end) << "nobody waits";
    sched_yield();
  }
  EXPECT_EQ(found(), "by another process");
}

TEST_F(LockHolderTest, ThisProcessIsNamedUnlessTheLockIsTheCallersOwn) {
  int const descriptor = open(path.c_str(), O_RDWR);
  read(descriptor);
  EXPECT_EQ(found(), "by another process") << "a reader holds up nobody here";
  write(descriptor);
  EXPECT_EQ(found(), "elsewhere in this process");
  EXPECT_EQ(found(true), "by another process");
  close(descriptor);
}

TEST_F(LockHolderTest, AFileThatIsGoneIsHeldByNobodyKnown) {
  EXPECT_EQ(rfm_lockHolder(folder.path("none"), false), "by another process");
}

} // namespace
