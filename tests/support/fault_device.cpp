// fault_device.cpp: takes the calls of the C library over.
#include "fault_device.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <dlfcn.h>
#include <fcntl.h>
#include <map>
#include <set>
#include <stdexcept>
#include <sys/file.h>
#include <sys/types.h>
#include <unistd.h>
#include <utility>

namespace {

using Effect = device_fault::Effect;
using Kind = device_event::Kind;

struct Watch {
  std::string folder;
  bool counting = false;
  bool recording = false;
  bool resting = false;
  bool hasFault = false;
  bool lacksNoReplace = false;
  bool lacksFolderLocks = false;
  int unlockingError = 0;
  device_fault fault;
  std::function<void()> interlude;
  device_call interludeCall = device_call::Open;
  int interludeNumber = 0;
  std::array<int, device_callKinds> calls{};
  std::vector<device_failure> failures;
  std::vector<device_event> events;
  std::map<std::string, int> fileOfName;
  std::map<int, std::string> nameOfFile; // the last that it had
  int nextFile = 0;
  std::map<int, int> fileOfDescriptor; // -1: the folder, or not known by number
  std::set<int> unsyncedFiles;
  std::set<std::pair<int, off_t>> locks; // of files, from a byte on
  bool hasUnsyncedNames = false;
};

Watch* watch = nullptr;

template <class Function>
Function real(char const* name) {
  void* const found = dlsym(RTLD_NEXT, name);
  return reinterpret_cast<Function>(found);
}

// What becomes of one call.
enum class Fate { Pass, Fail, Short, FailLate };

[[noreturn]] void die() {
  _exit(device_stopped);
}

bool concerns(char const* path) {
  if (!watch || watch->resting || !path) {
    return false;
  }
  std::string_view const name(path);
  return name.starts_with(watch->folder) &&
         (name.size() == watch->folder.size() || name[watch->folder.size()] == '/');
}

bool concerns(int descriptor) {
  return watch && !watch->resting && watch->fileOfDescriptor.contains(descriptor);
}

// To close any descriptor of a file ends all locks that the process has on it.
void forget(int descriptor) {
  auto const found = watch->fileOfDescriptor.find(descriptor);
  if (found != watch->fileOfDescriptor.end()) {
    std::erase_if(watch->locks, [&](auto const& one) { return one.first == found->second; });
    watch->fileOfDescriptor.erase(found);
  }
}

bool happensNow(device_call call) {
  int const number = ++watch->calls[static_cast<std::size_t>(call)];
  device_fault const& fault = watch->fault;
  return watch->hasFault && fault.call == call &&
         (fault.lasting ? number >= fault.number : number == fault.number);
}

void letOthersAct(device_call call) {
  if (watch->interlude && watch->interludeCall == call &&
      watch->calls[static_cast<std::size_t>(call)] == watch->interludeNumber) {
    std::function<void()> const act = std::move(watch->interlude);
    watch->interlude = nullptr;
    watch->counting = false;
    act();
    watch->counting = true;
  }
}

std::string inFolder(std::string_view path) {
  return path.size() > watch->folder.size() ? std::string(path.substr(watch->folder.size() + 1))
                                            : std::string();
}

// What a call is about.
struct Subject {
  char const* path = nullptr; // else there is a descriptor
  int descriptor = -1;
  bool isNeeded = true;
  off_t place = 0;
  std::size_t size = 0;
};

device_failure failureOf(device_call call, Subject const& subject) {
  std::string name;
  if (subject.path) {
    name = inFolder(subject.path);
  } else if (int const file = watch->fileOfDescriptor[subject.descriptor]; file >= 0) {
    name = watch->nameOfFile[file];
  }
  return {call, name, subject.isNeeded, static_cast<std::uint64_t>(subject.place), subject.size};
}

Fate fateOf(device_call call, Subject const& subject) {
  if (!watch->counting) {
    return Fate::Pass;
  }
  bool const isFaulty = happensNow(call);
  letOthersAct(call);
  if (!isFaulty) {
    return Fate::Pass;
  }
  watch->failures.push_back(failureOf(call, subject));
  switch (watch->fault.effect) {
  case Effect::Stop:
    die();
  case Effect::StopHalfway:
    if (call != device_call::Write) {
      die();
    }
    return Fate::Short;
  case Effect::Error:
    errno = watch->fault.errorNumber;
    return Fate::Fail;
  case Effect::LateError:
    return Fate::FailLate;
  case Effect::Short:
    return Fate::Short;
  case Effect::StopAfter:
    return Fate::FailLate;
  }
  return Fate::Pass;
}

// The call has done its work.
template <class Result>
Result after(Fate fate, Result result) {
  if (fate == Fate::FailLate) {
    if (watch->fault.effect == Effect::StopAfter) {
      die();
    }
    errno = watch->fault.errorNumber;
    return static_cast<Result>(-1);
  }
  return result;
}

void note(device_event event) {
  if (watch->recording) {
    int const number = errno;
    watch->events.push_back(std::move(event));
    errno = number;
  }
}

int numberFor(std::string const& name, bool isNew) {
  auto const known = watch->fileOfName.find(name);
  int const file = isNew || known == watch->fileOfName.end() ? watch->nextFile++ : known->second;
  watch->fileOfName[name] = file;
  watch->nameOfFile[file] = name;
  return file;
}

// Something was written to a file, or it was cut off.
void noteContent(int descriptor, device_event event) {
  event.file = watch->fileOfDescriptor[descriptor];
  watch->unsyncedFiles.insert(event.file);
  note(std::move(event));
}

// A name was made, changed or deleted.
void noteName(device_event event) {
  watch->hasUnsyncedNames = true;
  note(std::move(event));
}

int openWatched(char const* path, int flags, mode_t mode, int (*pass)(char const*, int, ...)) {
  if (!concerns(path)) {
    return pass(path, flags, mode);
  }
  bool const counts = !watch->hasFault || !watch->fault.creating || (flags & O_CREAT) != 0;
  bool const isNeeded = !inFolder(path).empty() || watch->hasUnsyncedNames;
  Fate const fate = counts ? fateOf(device_call::Open, {.path = path, .isNeeded = isNeeded}) : Fate::Pass;
  if (fate == Fate::Fail) {
    return -1;
  }
  std::string const name = inFolder(path);
  bool const isNew = (flags & O_CREAT) != 0 && access(path, F_OK) != 0;
  int const descriptor = pass(path, flags, mode);
  if (descriptor < 0) {
    return descriptor;
  }
  int const file = name.empty() ? -1 : numberFor(name, isNew);
  if (isNew) {
    noteName({Kind::Create, file, name, {}, 0, {}});
  }
  if (after(fate, descriptor) < 0) {
    int const number = errno;
    close(descriptor);
    errno = number;
    return -1;
  }
  watch->fileOfDescriptor[descriptor] = file;
  return descriptor;
}

template <class Call>
ssize_t readWatched(int descriptor, std::size_t size, off_t place, Call const& pass) {
  if (!concerns(descriptor)) {
    return pass(size);
  }
  Fate const fate = fateOf(device_call::Read, {.descriptor = descriptor, .place = place, .size = size});
  if (fate == Fate::Fail) {
    return -1;
  }
  return after(fate, pass(fate == Fate::Short ? std::max<std::size_t>(size / 2, 1) : size));
}

template <class Call>
ssize_t writeWatched(int descriptor, void const* bytes, std::size_t size, off_t place, Call const& pass) {
  if (!concerns(descriptor)) {
    return pass(size);
  }
  Fate const fate = fateOf(device_call::Write, {.descriptor = descriptor, .place = place, .size = size});
  if (fate == Fate::Fail) {
    return -1;
  }
  ssize_t const written = pass(fate == Fate::Short ? std::max<std::size_t>(size / 2, 1) : size);
  if (fate == Fate::Short && watch->fault.effect == Effect::StopHalfway) {
    die();
  }
  if (written > 0) {
    noteContent(descriptor,
                {Kind::Write,
                 -1,
                 {},
                 {},
                 static_cast<std::uint64_t>(place),
                 std::string(static_cast<char const*>(bytes), static_cast<std::size_t>(written))});
  }
  return after(fate, written);
}

int syncWatched(int descriptor, int (*pass)(int)) {
  if (watch && watch->resting) {
    return 0;
  }
  if (!concerns(descriptor)) {
    return pass(descriptor);
  }
  int const file = watch->fileOfDescriptor[descriptor];
  bool const isNeeded = file < 0 ? watch->hasUnsyncedNames : watch->unsyncedFiles.contains(file);
  Fate const fate = fateOf(device_call::Sync, {.descriptor = descriptor, .isNeeded = isNeeded});
  if (fate == Fate::Fail) {
    return -1;
  }
  if (file < 0) {
    watch->hasUnsyncedNames = false;
  } else {
    watch->unsyncedFiles.erase(file);
  }
  note({file < 0 ? Kind::SyncFolder : Kind::SyncFile, file, {}, {}, 0, {}});
  return after(fate, 0);
}

int truncateWatched(int descriptor, off_t size, int (*pass)(int, off_t)) {
  if (!concerns(descriptor)) {
    return pass(descriptor, size);
  }
  Fate const fate = fateOf(device_call::Truncate, {.descriptor = descriptor});
  if (fate == Fate::Fail) {
    return -1;
  }
  int const result = pass(descriptor, size);
  noteContent(descriptor, {Kind::Truncate, -1, {}, {}, static_cast<std::uint64_t>(size), {}});
  return after(fate, result);
}

template <class Call>
int nameWatched(Kind kind, char const* from, char const* to, Call const& pass) {
  if (!concerns(from)) {
    return pass();
  }
  Fate const fate = fateOf(device_call::Rename, {.path = from});
  if (fate == Fate::Fail) {
    return -1;
  }
  int const result = pass();
  if (result == 0) {
    noteName({kind, -1, inFolder(from), inFolder(to), 0, {}});
    int const file = watch->fileOfName[inFolder(from)];
    watch->fileOfName[inFolder(to)] = file;
    watch->nameOfFile[file] = inFolder(to);
    if (kind == Kind::Rename) {
      watch->fileOfName.erase(inFolder(from));
    }
  }
  return result == 0 ? after(fate, result) : result;
}

bool isOfLocks(int command, void const* argument) {
  return (command == F_SETLK || command == F_SETLKW) && argument;
}

// Whether a lock that ends lies in a part of a file.
bool isWithin(struct flock const& part, off_t start) {
  return start >= part.l_start && (part.l_len == 0 || start < part.l_start + part.l_len);
}

int controlWatched(int descriptor, int command, void* argument, int (*pass)(int, int, ...)) {
  if (!concerns(descriptor) || !isOfLocks(command, argument)) {
    return pass(descriptor, command, argument);
  }
  struct flock const& lock = *static_cast<struct flock const*>(argument);
  int const file = watch->fileOfDescriptor[descriptor];
  if (lock.l_type == F_UNLCK) {
    if (watch->unlockingError == 0) {
      std::erase_if(watch->locks,
                    [&](auto const& one) { return one.first == file && isWithin(lock, one.second); });
      return pass(descriptor, command, argument);
    }
    errno = watch->unlockingError;
    return -1;
  }
  std::pair<int, off_t> const wanted(file, lock.l_start);
  bool const isNeeded = lock.l_type == F_WRLCK || !watch->locks.contains(wanted);
  Fate const fate = fateOf(device_call::Lock, {.descriptor = descriptor, .isNeeded = isNeeded});
  if (fate == Fate::Fail) {
    return -1;
  }
  int const result = pass(descriptor, command, argument);
  if (result == 0) {
    watch->locks.insert(wanted);
  }
  return after(fate, result);
}

} // namespace

// The names of the C library, for this program and, being visible, for the libraries that it uses.
#pragma GCC visibility push(default)
extern "C" {

int open(char const* path, int flags, ...) {
  static auto const pass = real<int (*)(char const*, int, ...)>("open");
  va_list rest;
  va_start(rest, flags);
  auto const mode = static_cast<mode_t>(va_arg(rest, int));
  va_end(rest);
  return openWatched(path, flags, mode, pass);
}

int open64(char const* path, int flags, ...) {
  static auto const pass = real<int (*)(char const*, int, ...)>("open64");
  va_list rest;
  va_start(rest, flags);
  auto const mode = static_cast<mode_t>(va_arg(rest, int));
  va_end(rest);
  return openWatched(path, flags, mode, pass);
}

int close(int descriptor) {
  static auto const pass = real<int (*)(int)>("close");
  if (watch) {
    forget(descriptor);
  }
  return pass(descriptor);
}

ssize_t read(int descriptor, void* bytes, std::size_t size) {
  static auto const pass = real<ssize_t (*)(int, void*, std::size_t)>("read");
  return readWatched(descriptor, size, 0, [&](std::size_t part) { return pass(descriptor, bytes, part); });
}

ssize_t pread(int descriptor, void* bytes, std::size_t size, off_t place) {
  static auto const pass = real<ssize_t (*)(int, void*, std::size_t, off_t)>("pread");
  return readWatched(descriptor, size, place,
                     [&](std::size_t part) { return pass(descriptor, bytes, part, place); });
}

ssize_t pread64(int descriptor, void* bytes, std::size_t size, off64_t place) {
  return pread(descriptor, bytes, size, place);
}

ssize_t pwrite(int descriptor, void const* bytes, std::size_t size, off_t place) {
  static auto const pass = real<ssize_t (*)(int, void const*, std::size_t, off_t)>("pwrite");
  return writeWatched(descriptor, bytes, size, place,
                      [&](std::size_t part) { return pass(descriptor, bytes, part, place); });
}

ssize_t pwrite64(int descriptor, void const* bytes, std::size_t size, off64_t place) {
  return pwrite(descriptor, bytes, size, place);
}

int fsync(int descriptor) {
  static auto const pass = real<int (*)(int)>("fsync");
  return syncWatched(descriptor, pass);
}

int fdatasync(int descriptor) {
  static auto const pass = real<int (*)(int)>("fdatasync");
  return syncWatched(descriptor, pass);
}

int ftruncate(int descriptor, off_t size) noexcept {
  static auto const pass = real<int (*)(int, off_t)>("ftruncate");
  return truncateWatched(descriptor, size, pass);
}

int ftruncate64(int descriptor, off64_t size) noexcept {
  return ftruncate(descriptor, size);
}

int fcntl(int descriptor, int command, ...) {
  static auto const pass = real<int (*)(int, int, ...)>("fcntl");
  va_list rest;
  va_start(rest, command);
  void* const argument = va_arg(rest, void*);
  va_end(rest);
  return controlWatched(descriptor, command, argument, pass);
}

int fcntl64(int descriptor, int command, ...) {
  static auto const pass = real<int (*)(int, int, ...)>("fcntl64");
  va_list rest;
  va_start(rest, command);
  void* const argument = va_arg(rest, void*);
  va_end(rest);
  return controlWatched(descriptor, command, argument, pass);
}

int flock(int descriptor, int operation) noexcept {
  static auto const pass = real<int (*)(int, int)>("flock");
  if (!concerns(descriptor)) {
    return pass(descriptor, operation);
  }
  if (watch->lacksFolderLocks && watch->fileOfDescriptor[descriptor] < 0) {
    errno = EOPNOTSUPP;
    return -1;
  }
  if ((operation & LOCK_UN) != 0) {
    return pass(descriptor, operation);
  }
  Fate const fate = fateOf(device_call::Lock, {.descriptor = descriptor});
  if (fate == Fate::Fail) {
    return -1;
  }
  return after(fate, pass(descriptor, operation));
}

int unlink(char const* path) noexcept {
  static auto const pass = real<int (*)(char const*)>("unlink");
  if (!concerns(path)) {
    return pass(path);
  }
  Fate const fate = fateOf(device_call::Delete, {.path = path});
  if (fate == Fate::Fail) {
    return -1;
  }
  int const result = pass(path);
  if (result == 0) {
    noteName({Kind::Delete, -1, inFolder(path), {}, 0, {}});
    watch->fileOfName.erase(inFolder(path));
  }
  return after(fate, result);
}

int rename(char const* from, char const* to) noexcept {
  static auto const pass = real<int (*)(char const*, char const*)>("rename");
  return nameWatched(Kind::Rename, from, to, [&] { return pass(from, to); });
}

int renameat2(int fromFolder, char const* from, int toFolder, char const* to, unsigned flags) noexcept {
  static auto const pass = real<int (*)(int, char const*, int, char const*, unsigned)>("renameat2");
  if (flags != 0 && concerns(from) && watch->lacksNoReplace) {
    errno = EINVAL;
    return -1;
  }
  return nameWatched(Kind::Rename, from, to, [&] { return pass(fromFolder, from, toFolder, to, flags); });
}

int link(char const* from, char const* to) noexcept {
  static auto const pass = real<int (*)(char const*, char const*)>("link");
  return nameWatched(Kind::Link, from, to, [&] { return pass(from, to); });
}

} // extern "C"
#pragma GCC visibility pop

char const* nameOf(device_call call) {
  constexpr std::array<char const*, device_callKinds> names{"open",     "read",   "write",  "sync",
                                                            "truncate", "delete", "rename", "lock"};
  return names[static_cast<std::size_t>(call)];
}

fault_device::fault_device(std::string const& folder) {
  if (watch) {
    throw std::logic_error("one fault_device at a time");
  }
  auto* const made = new Watch;
  made->folder = folder;
  watch = made;
}

fault_device::~fault_device() {
  delete watch;
  watch = nullptr;
}

void fault_device::start() {
  watch->calls = {};
  watch->failures.clear();
  watch->unsyncedFiles.clear();
  watch->hasUnsyncedNames = false;
  watch->hasFault = false;
  watch->interlude = nullptr;
  watch->recording = false;
  watch->counting = true;
}

void fault_device::start(device_fault const& fault) {
  start();
  watch->fault = fault;
  watch->hasFault = true;
}

std::map<std::string, int> fault_device::record(std::vector<std::string> const& files) {
  start();
  watch->events.clear();
  std::map<std::string, int> numbers;
  for (std::string const& name : files) {
    numbers[name] = numberFor(name, false);
  }
  watch->recording = true;
  return numbers;
}

void fault_device::before(device_call call, int number, std::function<void()> act) {
  watch->interlude = std::move(act);
  watch->interludeCall = call;
  watch->interludeNumber = number;
}

void fault_device::lackNoReplace() noexcept {
  watch->lacksNoReplace = true;
}

void fault_device::lackFolderLocks() noexcept {
  watch->lacksFolderLocks = true;
}

void fault_device::refuseUnlocking(int errorNumber) noexcept {
  watch->unlockingError = errorNumber;
}

void fault_device::mark(std::string const& text) {
  note({Kind::Mark, -1, text, {}, 0, {}});
}

void fault_device::rest() noexcept {
  watch->resting = true;
}

void fault_device::stop() noexcept {
  watch->counting = false;
  watch->recording = false;
  watch->hasFault = false;
}

int fault_device::calls(device_call call) const noexcept {
  return watch->calls[static_cast<std::size_t>(call)];
}

int fault_device::faults() const noexcept {
  return static_cast<int>(watch->failures.size());
}

std::vector<device_failure> const& fault_device::failures() const noexcept {
  return watch->failures;
}

std::vector<std::string> fault_device::unsynced() const {
  std::vector<std::string> names;
  if (watch->hasUnsyncedNames) {
    names.emplace_back();
  }
  for (auto const& [name, file] : watch->fileOfName) {
    if (watch->unsyncedFiles.contains(file)) {
      names.push_back(name);
    }
  }
  return names;
}

std::vector<device_event> const& fault_device::events() const noexcept {
  return watch->events;
}
