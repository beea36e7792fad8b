// rfm_FileNode.cpp: opening, creating and publishing files.
#include "rfm_FileNode.h"

#include "utl_Utf8.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <optional>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

// Longer paths are beyond what SQLite takes, names of its journals included [byte].
constexpr std::size_t longestPath = 480;

constexpr std::string_view growingMark = ".new-";

// How often a file tries to take a name where each time another one has just appeared.
constexpr int mostTries = 10;

constexpr std::string_view adviceNotToReplace = "It is not replaced; choose another name, or remove it";

// Not the same in all processes: those that do not see each other may have one number.
unsigned chosenNumber() noexcept {
  unsigned number = 0;
  if (getrandom(&number, sizeof number, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof number)) {
    number = static_cast<unsigned>(std::chrono::steady_clock::now().time_since_epoch().count());
  }
  return number >> 2U; // leaves many to count on
}

// Number the files that this process creates.
unsigned const firstCreation = chosenNumber();
std::atomic<unsigned> nextCreation{firstCreation};

/// Growing files of this process that the system did not delete, by their numbers. There is room for some;
/// the others stay until the process has ended. Needs no memory, and threads may use it at the same time.
class Undeleted {
public:
  void Add(unsigned number) noexcept {
    for (std::atomic<std::uint64_t>& place : places) {
      std::uint64_t free = 0;
      if (place.compare_exchange_strong(free, Kept(number))) {
        return;
      }
    }
  }
  bool Has(unsigned number) const noexcept {
    return std::any_of(places.begin(), places.end(),
                       [number](auto const& place) { return place == Kept(number); });
  }
  void Remove(unsigned number) noexcept {
    for (std::atomic<std::uint64_t>& place : places) {
      std::uint64_t kept = Kept(number);
      place.compare_exchange_strong(kept, 0);
    }
  }

private:
  static std::uint64_t Kept(unsigned number) noexcept { return std::uint64_t{number} + 1; }

  std::array<std::atomic<std::uint64_t>, 16> places{};
};

constinit Undeleted undeleted;

std::optional<std::string> resolve(std::string const& path) {
  std::unique_ptr<char, void (*)(void*)> const resolved(realpath(path.c_str(), nullptr), std::free);
  if (!resolved) {
    return std::nullopt;
  }
  return std::string(resolved.get());
}

bool mayAccess(std::string const& path, int mode) {
  return faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0;
}

std::string parentOf(std::string const& path) {
  std::size_t const slash = path.rfind('/');
  if (slash == std::string::npos) {
    return ".";
  }
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string lastPartOf(std::string const& path) {
  std::size_t const slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The process and the number in "NAME.new-<process>-<number>".
struct Leftover {
  long process = 0;
  unsigned number = 0;
};

std::optional<Leftover> parseLeftover(std::string_view entry, std::string_view base) {
  if (!entry.starts_with(base) || !entry.substr(base.size()).starts_with(growingMark)) {
    return std::nullopt;
  }
  std::string_view const rest = entry.substr(base.size() + growingMark.size());
  Leftover found;
  auto const [dash, processError] = std::from_chars(rest.data(), rest.data() + rest.size(), found.process);
  if (processError != std::errc() || found.process <= 0 || dash == rest.data() + rest.size() ||
      *dash != '-') {
    return std::nullopt;
  }
  auto const [end, numberError] = std::from_chars(dash + 1, rest.data() + rest.size(), found.number);
  if (numberError != std::errc() || end != rest.data() + rest.size()) {
    return std::nullopt;
  }
  return found;
}

// Whether somebody makes a file: who does has a lock on it. Looks through SQLite, which forgets no lock that
// this process has on the file.
bool isLocked(std::string const& path) {
  sqlite3_vfs* const files = sqlite3_vfs_find(nullptr);
  std::unique_ptr<char const, void (*)(char const*)> const name(
      sqlite3_create_filename(path.c_str(), "", "", 0, nullptr), sqlite3_free_filename);
  if (!files || !name) {
    return true; // nothing is known of it
  }
  std::vector<std::max_align_t> place(static_cast<std::size_t>(files->szOsFile) / sizeof(std::max_align_t) +
                                      1);
  auto* const file = reinterpret_cast<sqlite3_file*>(place.data());
  int isReserved = 0;
  if (files->xOpen(files, name.get(), file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_MAIN_DB, nullptr) ==
      SQLITE_OK) {
    file->pMethods->xCheckReservedLock(file, &isReserved);
  }
  if (file->pMethods) {
    file->pMethods->xClose(file);
  }
  return isReserved != 0;
}

// Processes that do not see each other, each in a container of its own, may use one folder: what looks like
// a process that is gone, or like this one, may be another one that lives.
bool isAbandoned(Leftover const& found, std::string const& path) {
  if (found.process == static_cast<long>(getpid())) {
    bool const isOurs = found.number - firstCreation < nextCreation - firstCreation;
    return isOurs ? undeleted.Has(found.number) : !isLocked(path);
  }
  return found.process <= INT_MAX && kill(static_cast<pid_t>(found.process), 0) != 0 && errno == ESRCH &&
         !isLocked(path);
}

/// The folder in which a file is about to take its name. Others of ours that make files there wait.
class PublishingFolder {
public:
  /// @param path of the folder; IsOpen tells whether it could be opened, else errno why not
  explicit PublishingFolder(std::string const& path)
      : descriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}
  ~PublishingFolder() {
    if (IsOpen()) {
      close(descriptor);
    }
  }
  PublishingFolder(PublishingFolder const&) = delete;
  PublishingFolder& operator=(PublishingFolder const&) = delete;

  bool IsOpen() const noexcept { return descriptor >= 0; }
  /// Waits for its turn. A file system without such locks gives it at once.
  /// @returns 0 when it has come, EWOULDBLOCK when it has not for long; else why the folder cannot be locked,
  /// as errno has it
  int Lock() const {
    int waited = 0;
    while (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
      if (errno == EINTR) {
        continue;
      }
      if (errno != EWOULDBLOCK) {
        return hasNoLocks(errno) ? 0 : errno;
      }
      if (waited >= longestWait) {
        return EWOULDBLOCK;
      }
      sqlite3_sleep(pause);
      waited += pause;
    }
    return 0;
  }
  /// @returns 0, or why it could not be synced, as errno has it
  int Sync() const { return fsync(descriptor) == 0 ? 0 : errno; }

private:
  static bool hasNoLocks(int number) noexcept {
    return number == EOPNOTSUPP || number == ENOSYS || number == EINVAL || number == ENOLCK;
  }

  static constexpr int pause = 5;           // [ms]
  static constexpr int longestWait = 10000; // [ms] more than a turn takes that waits for a save
  int descriptor;
};

} // namespace

rfm_FileNode::rfm_FileNode(cow_String const& fileName, utl_FileAccess wanted)
    : name(fileName), access(wanted), connection(fileName) {
  CheckName();
  if (access == utl_FileAccess::Create || access == utl_FileAccess::CreateNew) {
    BeginCreating();
  } else {
    OpenExisting();
  }
}

rfm_FileNode::~rfm_FileNode() {
  creationTimeStatement.Finalize();
  bool const isOurs = IsUnpublished() && creator == getpid() && !connection.HasMoved();
  connection.Close();
  if (isOurs) {
    DeleteGrowing();
  }
}

void rfm_FileNode::Refuse(rfm_ErrorKind kind, std::string_view what, std::string_view advice) const {
  rfm_throw(kind, name, {}, what, advice);
}

void rfm_FileNode::RefuseForErrno(int number, bool folder) const {
  std::string const whose = folder ? "its folder" : "it";
  rfm_SystemError const error = rfm_systemError(number);
  switch (number) {
  case ENOENT:
  case ENOTDIR:
    Refuse(rfm_ErrorKind::Missing, folder ? "its folder does not exist" : "there is no such file",
           folder ? "Make the folder, or check the name" : "Check the name");
  case EACCES:
  case EPERM:
    Refuse(rfm_ErrorKind::NoPermission, "there is no permission to use " + whose,
           "Ask the owner for permission, or choose another name");
  case EROFS:
    Refuse(rfm_ErrorKind::ReadOnly, whose + " is on a medium that cannot be written (" + error.words + ")",
           "Open it for reading, or copy it elsewhere");
  case ENAMETOOLONG:
    Refuse(rfm_ErrorKind::Other, "the name is too long", "Choose a shorter name");
  case ENOSPC:
    Refuse(error.kind, "there is no space left on the device", rfm_advice(error, "", "then try again"));
  default:
    Refuse(error.kind, "it cannot be reached (" + error.words + ")",
           error.remedy ? rfm_advice(error, "", "then try again") : "Check the name and the device");
  }
}

void rfm_FileNode::RefuseUnlocked(int number) const {
  if (number == EWOULDBLOCK) {
    Refuse(rfm_ErrorKind::Locked, "other files are being made in its folder all the time", "Try again later");
  }
  rfm_SystemError const error = rfm_systemError(number);
  Refuse(rfm_ErrorKind::Locked, "its folder cannot be locked (" + error.words + "); nothing was changed",
         rfm_advice(error, "Check the device", "then try again"));
}

void rfm_FileNode::RefuseUnsynced(rfm_SystemError const& error, std::string_view state,
                                  char const* next) const {
  Refuse(rfm_ErrorKind::Full, "its folder could not be synced (" + error.words + "); " + std::string(state),
         rfm_advice(error, "Check the device and its free space", next));
}

// What stands under the name now is somebody else's, and what was made is lost: nothing more goes into it.
void rfm_FileNode::RefuseVanished() {
  std::string const lost = utl_Printable(lastPartOf(growing));
  connection.Close();
  growing.clear();
  Refuse(rfm_ErrorKind::Moved,
         "the file beside it in which it was made, '" + lost +
             "', was removed or replaced meanwhile; nothing was changed",
         "Make it again");
}

void rfm_FileNode::CheckName() const {
  if (name.IsEmpty()) {
    Refuse(rfm_ErrorKind::Missing, "the name is empty", "Give the name of a file");
  }
  if (!utl_IsUtf8(name.View())) {
    Refuse(rfm_ErrorKind::Other, "the name is not UTF-8", "Rename the file");
  }
}

std::string rfm_FileNode::Folder() const {
  return parentOf(path);
}

void rfm_FileNode::OpenExisting() {
  std::string const given = name.Text();
  struct stat status {};
  if (stat(given.c_str(), &status) != 0) {
    int const number = errno;
    RefuseForErrno(number, number == ENOENT && stat(parentOf(given).c_str(), &status) != 0);
  }
  if (S_ISDIR(status.st_mode)) {
    Refuse(rfm_ErrorKind::IsDirectory, "it is a folder", "Give the name of a file");
  }
  if (!S_ISREG(status.st_mode)) {
    Refuse(rfm_ErrorKind::Other, "it is not an ordinary file", "Check the name");
  }
  std::optional<std::string> resolved = resolve(given);
  if (!resolved) {
    RefuseForErrno(errno, false);
  }
  path = std::move(*resolved);
  if (path.size() > longestPath) {
    RefuseForErrno(ENAMETOOLONG, false);
  }
  if (!mayAccess(path, R_OK)) {
    RefuseForErrno(errno, false);
  }
  if (status.st_size == 0) {
    Refuse(rfm_ErrorKind::Empty, "it is empty", "Restore it from a backup, or delete it");
  }
  if (access == utl_FileAccess::Write) {
    if (!mayAccess(path, W_OK)) {
      RefuseForErrno(errno, false);
    }
    if (!mayAccess(Folder(), W_OK | X_OK)) { // a save makes a journal beside the file
      RefuseForErrno(errno, true);
    }
  }
  connection.Open(path,
                  access == utl_FileAccess::Read ? rfm_Connection::Mode::Read : rfm_Connection::Mode::Write);
  rfm_ScopeGuard const readable(connection);
  connection.CheckWhole();
}

void rfm_FileNode::BeginCreating() {
  std::string const given = name.Text();
  std::optional<std::string> resolved = resolve(given);
  if (!resolved && errno != ENOENT) {
    RefuseForErrno(errno, errno == ENOTDIR);
  }
  if (!resolved) {
    struct stat status {};
    if (lstat(given.c_str(), &status) == 0) {
      Refuse(rfm_ErrorKind::NotADatabase, "a link to nothing stands there", "Choose another name");
    }
    std::optional<std::string> const folder = resolve(parentOf(given));
    if (!folder) {
      RefuseForErrno(errno, true);
    }
    std::string const last = lastPartOf(given);
    resolved = *folder == "/" ? "/" + last : *folder + "/" + last;
  }
  path = std::move(*resolved);
  if (path.size() > longestPath) {
    RefuseForErrno(ENAMETOOLONG, false);
  }
  {
    rfm_Connection standing(name);
    LockWhatStands(standing);
  }
  if (!mayAccess(Folder(), W_OK | X_OK)) {
    RefuseForErrno(errno, true);
  }
  RemoveLeftovers();
  std::string candidate;
  struct stat status {};
  do {
    creation = nextCreation++;
    candidate = path + std::string(growingMark) + std::to_string(getpid()) + "-" + std::to_string(creation);
  } while (lstat(candidate.c_str(), &status) == 0);
  growing = candidate;
  creator = getpid();
  try {
    connection.Open(growing, rfm_Connection::Mode::Build);
  } catch (...) {
    DeleteGrowing();
    throw;
  }
}

void rfm_FileNode::DeleteGrowing() const noexcept {
  struct stat status {};
  if (unlink(growing.c_str()) != 0 && lstat(growing.c_str(), &status) == 0) {
    undeleted.Add(creation);
  }
}

// Files that grew when their process died, or that it could not delete.
void rfm_FileNode::RemoveLeftovers() const {
  std::string const folder = Folder();
  std::string const base = lastPartOf(path);
  std::unique_ptr<DIR, int (*)(DIR*)> const entries(opendir(folder.c_str()), closedir);
  if (!entries) {
    return; // a folder that can be written but not listed
  }
  while (dirent const* const entry = readdir(entries.get())) {
    std::optional<Leftover> const found = parseLeftover(entry->d_name, base);
    std::string const leftover = found ? folder + "/" + entry->d_name : std::string();
    if (found && isAbandoned(*found, leftover) && unlink(leftover.c_str()) == 0 &&
        found->process == static_cast<long>(getpid())) {
      undeleted.Remove(found->number);
    }
  }
}

// The journal of a database that is gone would be played back into the new one.
void rfm_FileNode::RemoveStrayJournals() {
  for (char const* const ending : {"-journal", "-wal", "-shm"}) {
    int const number = unlink((path + ending).c_str()) == 0 ? 0 : errno;
    if (number == ENOENT) {
      continue;
    }
    journalMayComeBack = true; // also where it is reported as kept
    if (number != 0) {
      RefuseForErrno(number, true);
    }
  }
}

// Checks that nothing stands under the name, or a database of ours, and opens that one.
bool rfm_FileNode::OpenWhatStands(rfm_Connection& standing) const {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    if (errno != ENOENT) {
      RefuseForErrno(errno, false);
    }
    return false;
  }
  if (S_ISDIR(status.st_mode)) {
    Refuse(rfm_ErrorKind::IsDirectory, "a folder stands there", adviceNotToReplace);
  }
  if (!S_ISREG(status.st_mode)) {
    Refuse(rfm_ErrorKind::NotADatabase, "something that is not an ordinary file stands there",
           adviceNotToReplace);
  }
  if (status.st_size == 0) {
    Refuse(rfm_ErrorKind::Empty, "an empty file stands there", adviceNotToReplace);
  }
  if (!mayAccess(path, R_OK | W_OK)) {
    Refuse(rfm_systemError(errno).kind, "a file that you cannot write stands there", adviceNotToReplace);
  }
  try {
    standing.Open(path, rfm_Connection::Mode::Write);
  } catch (rfm_Exception const& failure) {
    char const* what = "a file that cannot be used stands there";
    switch (failure.Kind()) {
    case rfm_ErrorKind::NotADatabase:
      what = "a file that is not a database stands there";
      break;
    case rfm_ErrorKind::OtherProgram:
      what = "a database of another program stands there";
      break;
    case rfm_ErrorKind::Newer:
      what = "a database of a newer program stands there";
      break;
    case rfm_ErrorKind::Damaged:
      what = "a damaged database stands there";
      break;
    default:
      throw;
    }
    Refuse(failure.Kind(), what, adviceNotToReplace);
  }
  if (access == utl_FileAccess::CreateNew) {
    RefuseToReplace();
  }
  return true;
}

// Checks that nothing stands under the name, or a database of ours, and keeps others from saving to that one:
// its journal must not meet the new file. What has lost the name before it was locked is let go: the lock
// would say nothing about what has the name now.
// @returns whether something stands there
bool rfm_FileNode::LockWhatStands(rfm_Connection& standing) const {
  while (OpenWhatStands(standing)) {
    try {
      standing.Begin();
      if (!standing.HasMoved()) {
        return true;
      }
    } catch (rfm_Exception const& failure) {
      if (failure.Kind() != rfm_ErrorKind::Moved) {
        throw;
      }
    }
    standing.Close();
  }
  return false;
}

void rfm_FileNode::RefuseToReplace() const {
  Refuse(rfm_ErrorKind::Other, "a database stands there already", adviceNotToReplace);
}

// Gives the grown file its name, in place of a database that is locked, or where nothing is.
// @returns whether it was done; else errno says why not: EEXIST where nothing should be
bool rfm_FileNode::MoveToName(bool replaces) const {
  if (replaces) {
    return rename(growing.c_str(), path.c_str()) == 0;
  }
  if (renameat2(AT_FDCWD, growing.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0) {
    return true;
  }
  if (errno != EINVAL && errno != ENOSYS) {
    return false;
  }
  // A file system that cannot refuse to replace in a renaming refuses it for a second name. A process that
  // ends between the two leaves both, and the next one that makes the file removes the first.
  if (link(growing.c_str(), path.c_str()) == 0) {
    DeleteGrowing();
    return true;
  }
  if (errno != EPERM && errno != EOPNOTSUPP && errno != ENOSYS) {
    return false;
  }
  // One that has no second names either: that nothing stands there is known from a look, and true as long as
  // only programs of ours make files there.
  struct stat status {};
  if (lstat(path.c_str(), &status) == 0) {
    errno = EEXIST;
    return false;
  }
  return errno == ENOENT && rename(growing.c_str(), path.c_str()) == 0;
}

// The same, also where a failure is reported of what was done all the same.
bool rfm_FileNode::TakeName(bool replaces) const {
  struct stat grown {};
  bool const isKnown = stat(growing.c_str(), &grown) == 0;
  if (MoveToName(replaces)) {
    return true;
  }
  int const number = errno;
  struct stat named {};
  if (isKnown && lstat(path.c_str(), &named) == 0 && named.st_dev == grown.st_dev &&
      named.st_ino == grown.st_ino) {
    DeleteGrowing();
    return true;
  }
  errno = number;
  return false;
}

// How a file takes its name.
//
// It is complete and synced when it does, so whoever ends at any point leaves the name as it was or with the
// whole file, and a growing file at most, which the next creation removes. Three things must not happen:
//
// - A journal meets a file that it does not belong to: a reader would play it back. The journal of a database
//   that is replaced is gone because that database is locked for writing, which plays it back, until the name
//   has passed over; a save that begins later finds its file moved. A stray journal, whose database is gone,
//   is removed, and that is synced, before the name is taken: a power cut must not keep the name and bring
//   back the journal.
// - A database is replaced that nobody has locked. Where none stood, the name is taken only if there is still
//   none, and if there is one by then, all begins anew. Where one stood, it is locked, and has the name when
//   it is: whoever takes the name of a database locks it first.
// - The journal of a database that has just appeared is taken for a stray one. Nothing but a lock that the
//   other one wants too keeps it from appearing between the look and the removal, so all who publish in a
//   folder lock the folder. It is free again when its holder ends, and savers and readers do not want it.
//
// Where a file system knows no such locks, and against whoever moves files there by hand, the second holds
// all the same.
void rfm_FileNode::Publish() {
  connection.Sync();
  PublishingFolder const folder(Folder());
  if (!folder.IsOpen()) {
    RefuseForErrno(errno, true);
  }
  if (int const number = folder.Lock(); number != 0) {
    RefuseUnlocked(number);
  }
  rfm_Connection standing(name);
  rfm_FileHold file(growing);
  if (!file.Holds() && errno != ENOENT) {
    RefuseForErrno(errno, true);
  }
  if (connection.HasMoved()) {
    RefuseVanished();
  }
  std::string published = path; // nothing behind the renaming needs memory
  for (int tries = 1;; ++tries) {
    bool const replaces = LockWhatStands(standing);
    if (!replaces) {
      RemoveStrayJournals();
    }
    if (journalMayComeBack) {
      if (int const number = folder.Sync(); number != 0) {
        RefuseUnsynced(rfm_systemError(number), "nothing was changed", "then try again");
      }
      journalMayComeBack = false;
    }
    connection.Close();
    if (TakeName(replaces)) {
      break;
    }
    int const number = errno;
    if (number == ENOENT && !file.IsNamed(growing)) {
      RefuseVanished();
    }
    connection.Open(growing, rfm_Connection::Mode::Build);
    if (number != EEXIST) {
      RefuseForErrno(number, true);
    }
    if (tries == mostTries) {
      RefuseToReplace();
    }
  }
  growing.clear();
  int const unsynced = folder.Sync();
  standing.RollBack();
  standing.Close();
  connection.OpenLater(std::move(published), std::move(file), rfm_Connection::Mode::Write);
  connection.owesSync = unsynced != 0;
  if (unsynced != 0) {
    RefuseUnsynced(rfm_errorOfDone(unsynced), "the file is there, but a power cut may take it",
                   "then save a change to it, or remove it and try again");
  }
}
