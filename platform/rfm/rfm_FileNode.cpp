// rfm_FileNode.cpp: opening, creating and publishing files.
#include "rfm_FileNode.h"

#include "rfm_SystemError.h"
#include "utl_Utf8.h"

#include <atomic>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Longer paths are beyond what SQLite takes, names of its journals included [byte].
constexpr std::size_t longestPath = 480;

constexpr std::string_view growingMark = ".new-";

constexpr std::string_view adviceNotToReplace = "It is not replaced; choose another name, or remove it";

// Numbers the files that this process creates.
std::atomic<unsigned> nextCreation{0};

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

bool isAbandoned(Leftover const& found) {
  if (found.process == static_cast<long>(getpid())) {
    return found.number >= nextCreation; // of an earlier process that had this number
  }
  return found.process <= INT_MAX && kill(static_cast<pid_t>(found.process), 0) != 0 && errno == ESRCH;
}

// @returns 0, or why it could not be synced, as errno has it
int syncFolder(std::string const& folder) {
  int const descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) {
    return errno;
  }
  int const number = fsync(descriptor) == 0 ? 0 : errno;
  close(descriptor);
  return number;
}

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
  connection.Close();
  if (IsUnpublished() && creator == getpid()) {
    unlink(growing.c_str());
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
    candidate =
        path + std::string(growingMark) + std::to_string(getpid()) + "-" + std::to_string(nextCreation++);
  } while (lstat(candidate.c_str(), &status) == 0);
  growing = candidate;
  creator = getpid();
  try {
    connection.Open(growing, rfm_Connection::Mode::Build);
  } catch (...) {
    unlink(growing.c_str());
    throw;
  }
}

// Files that grew when their process died.
void rfm_FileNode::RemoveLeftovers() const {
  std::string const folder = Folder();
  std::string const base = lastPartOf(path);
  std::unique_ptr<DIR, int (*)(DIR*)> const entries(opendir(folder.c_str()), closedir);
  if (!entries) {
    return; // a folder that can be written but not listed
  }
  while (dirent const* const entry = readdir(entries.get())) {
    std::optional<Leftover> const found = parseLeftover(entry->d_name, base);
    if (found && isAbandoned(*found)) {
      unlink((folder + "/" + entry->d_name).c_str());
    }
  }
}

// The journal of a database that is gone would be played back into the new one.
void rfm_FileNode::RemoveStrayJournals() const {
  for (char const* const ending : {"-journal", "-wal", "-shm"}) {
    if (unlink((path + ending).c_str()) != 0 && errno != ENOENT) {
      RefuseForErrno(errno, true);
    }
  }
}

// Checks that nothing stands under the name, or a database of ours, and keeps others from saving to that one:
// its journal must not meet the new file.
bool rfm_FileNode::LockWhatStands(rfm_Connection& standing) const {
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
    Refuse(errno == EROFS ? rfm_ErrorKind::ReadOnly : rfm_ErrorKind::NoPermission,
           "a file that you cannot write stands there", adviceNotToReplace);
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
  standing.Begin();
  return true;
}

void rfm_FileNode::RefuseToReplace() const {
  Refuse(rfm_ErrorKind::Other, "a database stands there already", adviceNotToReplace);
}

// Gives the grown file its name.
// @returns whether it has it; else errno says why not
bool rfm_FileNode::TakeName() const {
  if (access == utl_FileAccess::Create) {
    return rename(growing.c_str(), path.c_str()) == 0;
  }
  if (renameat2(AT_FDCWD, growing.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0) {
    return true;
  }
  if (errno != EINVAL && errno != ENOSYS) {
    return false;
  }
  // A file system that cannot refuse to replace in a renaming refuses it for a second name.
  if (link(growing.c_str(), path.c_str()) != 0) {
    return false;
  }
  unlink(growing.c_str());
  return true;
}

void rfm_FileNode::Publish() {
  connection.Sync();
  rfm_Connection standing(name);
  bool const replaces = LockWhatStands(standing);
  if (!replaces) {
    RemoveStrayJournals();
  }
  std::string const folder = Folder();
  std::string published = path; // nothing behind the renaming needs memory
  connection.Close();
  if (!TakeName()) {
    int const number = errno;
    connection.Open(growing, rfm_Connection::Mode::Build);
    if (number == EEXIST) {
      RefuseToReplace();
    }
    RefuseForErrno(number, true);
  }
  growing.clear();
  int const unsynced = syncFolder(folder);
  standing.RollBack();
  standing.Close();
  connection.OpenLater(std::move(published), rfm_Connection::Mode::Write);
  if (unsynced != 0) {
    rfm_SystemError const error = rfm_systemError(unsynced);
    Refuse(rfm_ErrorKind::Full,
           "the folder could not be synced (" + error.words +
               "); the file is there, but a power cut may take it",
           error.remedy ? error.remedy : "Check the device and its free space");
  }
}
