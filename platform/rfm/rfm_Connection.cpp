// rfm_Connection.cpp: one SQLite connection.
#include "rfm_Connection.h"

#include "rfm_Format.h"
#include "rfm_Journal.h"
#include "rfm_JournalSync.h"
#include "rfm_LockHolder.h"
#include "rfm_SchemaSize.h"
#include "rfm_Statement.h"
#include "rfm_SystemError.h"
#include "utl_Utf8.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <new>
#include <unistd.h>

namespace {

// How long a call waits for another process to finish its save [ms].
constexpr int busyTimeout = 1000;

// No text or blob may be longer [byte].
constexpr int largestValue = 256 * 1024 * 1024;
// While a file is only read, none may be longer than the file is, or than this [byte]: what a file claims
// cannot make the process run out of memory.
constexpr int smallestReadLimit = 4 * 1024 * 1024;

// How much one step of a statement may do [program steps of SQLite]: indexing, counting or checking all of a
// sound file takes a part of it, and walking in a circle of pages takes all of it in a blink.
constexpr int workPortion = 100;
constexpr sqlite3_int64 smallestWork = 500'000;
constexpr sqlite3_int64 workForEachByte = 16;
// A row that is looked for takes a page or two for each of its steps. What a step takes beyond is the pages
// of long values: so often what the file holds, and this [byte].
constexpr sqlite3_int64 pagesForEachStep = 2;
constexpr sqlite3_int64 readingsInAStep = 8;
constexpr sqlite3_int64 smallestReading = 4 * 1024 * 1024;

// How often a walk may take what the file holds: a text takes half as much again in UTF-8 as in UTF-16.
constexpr std::uint64_t readingsInAWalk = 3;

// SQLite's memory comes in no larger pieces [byte]; a snapshot needs one.
constexpr sqlite3_int64 largestSnapshot = 0x7fffff00 - 1;

// What of a file that is built may be in memory only [byte]: more than the cache.
constexpr sqlite3_int64 unwrittenGrowth = 16 * 1024 * 1024;

// More than our own statements, the largest tables and their indexes need.
constexpr std::array<std::pair<int, int>, 7> limits{{
    {SQLITE_LIMIT_ATTACHED, 0},
    {SQLITE_LIMIT_SQL_LENGTH, 8 * 1024 * 1024},
    {SQLITE_LIMIT_EXPR_DEPTH, 100},
    {SQLITE_LIMIT_COMPOUND_SELECT, 2},
    {SQLITE_LIMIT_FUNCTION_ARG, 8},
    {SQLITE_LIMIT_LIKE_PATTERN_LENGTH, 100},
    {SQLITE_LIMIT_TRIGGER_DEPTH, 1},
}};

// Places in the first bytes of an SQLite file; fixed by its file format.
constexpr std::size_t headerSize = 100;
constexpr std::string_view headerMagic{"SQLite format 3", 16};
constexpr std::size_t pageSizePlace = 16;
constexpr std::size_t writeFormatPlace = 18;
constexpr std::size_t readFormatPlace = 19;
constexpr std::size_t userVersionPlace = 60;
constexpr std::size_t applicationIdPlace = 68;
constexpr std::uint8_t rollbackJournalFormat = 1;

using HeaderBytes = std::array<std::uint8_t, headerSize>;

std::uint32_t bigEndian(HeaderBytes const& header, std::size_t place) {
  return static_cast<std::uint32_t>(header[place]) << 24 |
         static_cast<std::uint32_t>(header[place + 1]) << 16 |
         static_cast<std::uint32_t>(header[place + 2]) << 8 | static_cast<std::uint32_t>(header[place + 3]);
}

sqlite3_file* mainFile(sqlite3* database) {
  sqlite3_file* file = nullptr;
  sqlite3_file_control(database, "main", SQLITE_FCNTL_FILE_POINTER, &file);
  return file && file->pMethods ? file : nullptr;
}

// What the device answers when it fails to deliver a page, which SQLite calls damaged then.
bool isRefusalToRead(int number) {
  return number == EIO || number == ENXIO || number == ERANGE;
}

// SQLite remembers the device's answer.
// @returns the answer; 0 when the device did deliver
int refusalToRead(sqlite3* database, char const* schema = "main") {
  int number = 0;
  bool const isKnown =
      database && sqlite3_file_control(database, schema, SQLITE_FCNTL_LAST_ERRNO, &number) == SQLITE_OK;
  return isKnown && isRefusalToRead(number) ? number : 0;
}

// What SQLite may meet once it has removed the journal, which is what makes a commit. The rest of a commit
// comes before; what fails there takes the changes back.
rfm_CommitEnd endOfCommit(int result, int number) {
  using Fate = rfm_CommitEnd::Fate;
  switch (result) {
  case SQLITE_IOERR_DIR_FSYNC:
    return {Fate::Stands, "its folder could not be synced", number};
  case SQLITE_IOERR_UNLOCK:
  case SQLITE_IOERR_RDLOCK:
    return {Fate::Lasts, "it could not be unlocked", number};
  case SQLITE_IOERR_DELETE:
    return {Fate::JournalStays, "its journal could not be deleted", number};
  case SQLITE_IOERR_DELETE_NOENT: // it is gone all the same
    return {Fate::Stands, "its journal could not be deleted", number};
  case SQLITE_IOERR_TRUNCATE:
    return {Fate::Stands, "it could not be cut off", number};
  default:
    return {};
  }
}

// Whether the system has a part in a result.
bool isOfSystem(int result) {
  int const plain = result & 0xff;
  return plain == SQLITE_IOERR || plain == SQLITE_CANTOPEN || plain == SQLITE_FULL ||
         plain == SQLITE_READONLY;
}

bool isBusy(int result) {
  return (result & 0xff) == SQLITE_BUSY || (result & 0xff) == SQLITE_LOCKED;
}

// Where an exception was raised, as a text that stays.
char const* sourcePath(std::string_view sourceFile) {
  constexpr std::array<char const*, 6> sources{"platform/rfm/rfm_Connection", "platform/rfm/rfm_DatabaseNode",
                                               "platform/rfm/rfm_Entries",    "platform/rfm/rfm_FileNode",
                                               "platform/rfm/rfm_Rebuild",    "platform/rfm/rfm_Row"};
  for (std::string_view const source : sources) {
    if (sourceFile.find(source) != std::string_view::npos) {
      return source.data();
    }
  }
  return "platform/rfm/rfm_Table";
}

// The part of an exception that a result code decides.
struct Verdict {
  rfm_ErrorKind kind;
  std::string what;
  std::string advice;
};

// Where SQLite cannot make a file, it tries to open one for reading alone, and what that leaves, that there
// is none, hides why. Makes the file, and takes it away again.
// @returns whether it can be made; else errno says why not
bool canBeMade(char const* path) {
  constexpr mode_t ownOnly = 0600;
  int const descriptor = open(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, ownOnly);
  if (descriptor < 0) {
    return false;
  }
  close(descriptor);
  unlink(path);
  return true;
}

constexpr char const* tryAgain = "then try again";

/// Keeps whoever wants to save from writing to a file, while SQLite has no lock on it.
class SharedLock {
public:
  explicit SharedLock(sqlite3_file& lockedFile) : file(lockedFile) {
    int waited = 0;
    while ((result = file.pMethods->xLock(&file, SQLITE_LOCK_SHARED)) == SQLITE_BUSY &&
           waited < busyTimeout) {
      sqlite3_sleep(pause);
      waited += pause;
    }
  }
  ~SharedLock() { file.pMethods->xUnlock(&file, SQLITE_LOCK_NONE); }
  SharedLock(SharedLock const&) = delete;
  SharedLock& operator=(SharedLock const&) = delete;

  /// A code of SQLite.
  int Result() const noexcept { return result; }

private:
  static constexpr int pause = 5; // [ms]
  sqlite3_file& file;
  int result = SQLITE_OK;
};

// @param number the system's answer; 0: SQLite, or the size of the file, says so
Verdict judgeSpace(int number) {
  rfm_SystemError const error = rfm_systemError(number == 0 ? ENOSPC : number);
  std::string const reason = number == 0 || number == ENOSPC ? "" : " (" + error.words + ")";
  return {rfm_ErrorKind::Full, "there is no space left on the device" + reason + "; nothing was changed",
          rfm_advice(error, "", tryAgain)};
}

Verdict judgeWriteFailure(rfm_SystemError const& error, std::string const& detail) {
  if (error.isOfRights) {
    return {error.kind, "it cannot be written (" + detail + "); nothing was changed",
            rfm_advice(error, "", tryAgain)};
  }
  return {rfm_ErrorKind::Full, "the device failed while writing (" + detail + "); nothing was changed",
          rfm_advice(error, "Check the device and its free space", tryAgain)};
}

// @param number the system's answer; 0 when it gave none
// @param detail the same in words, or what SQLite says
Verdict judgeInputOutput(int result, int number, std::string const& detail) {
  rfm_SystemError const error = rfm_systemError(number);
  if (error.isOfSpace) {
    return judgeSpace(number);
  }
  switch (result) {
  case SQLITE_IOERR_WRITE:
  case SQLITE_IOERR_FSYNC:
  case SQLITE_IOERR_DIR_FSYNC:
  case SQLITE_IOERR_TRUNCATE:
  case SQLITE_IOERR_DELETE:
    return judgeWriteFailure(error, detail);
  case SQLITE_IOERR_LOCK:
  case SQLITE_IOERR_RDLOCK:
  case SQLITE_IOERR_CHECKRESERVEDLOCK:
    return {rfm_ErrorKind::Locked, "it cannot be locked (" + detail + ")",
            rfm_advice(error,
                       number == EIO ? "Check the device" : "Use a file system that supports file locks",
                       tryAgain)};
  default:
    return {error.kind, "the device failed (" + detail + ")",
            rfm_advice(error, "Check the device", tryAgain)};
  }
}

Verdict judgeOpening(int number, std::string const& detail) {
  rfm_SystemError const error = rfm_systemError(number == 0 ? EACCES : number);
  if (error.isOfSpace) {
    return judgeSpace(number);
  }
  return {error.kind, "it, or a file beside it, cannot be opened (" + detail + ")",
          rfm_advice(error, "Check the device", tryAgain)};
}

Verdict judge(int result, int number, std::string const& detail) {
  switch (result) {
  case SQLITE_READONLY_DBMOVED:
    return {rfm_ErrorKind::Moved,
            "it was replaced, renamed or deleted since it was opened; nothing was changed",
            "Close the database and open the file anew"};
  case SQLITE_READONLY_ROLLBACK:
    return {rfm_ErrorKind::Interrupted,
            "an earlier save was interrupted, and reading alone cannot recover it",
            "Open the file once for writing, which brings back the last complete save"};
  case SQLITE_READONLY_DIRECTORY:
  case SQLITE_READONLY_CANTINIT:
  case SQLITE_READONLY_CANTLOCK:
    return {rfm_ErrorKind::NoPermission, "its folder cannot be written",
            "Ask for permission to write in the folder, or copy the file"};
  case SQLITE_BUSY_RECOVERY:
  case SQLITE_BUSY_SNAPSHOT:
  case SQLITE_BUSY_TIMEOUT:
    return {rfm_ErrorKind::Locked, "it is in use by another process",
            "Try again when the other one has finished"};
  case SQLITE_CANTOPEN_FULLPATH:
    return {rfm_ErrorKind::Other, "its name cannot be used (" + detail + ")", "Choose a shorter name"};
  default:
    break;
  }
  switch (result & 0xff) {
  case SQLITE_BUSY:
  case SQLITE_LOCKED:
    return {rfm_ErrorKind::Locked, "it is in use by another process",
            "Try again when the other one has finished"};
  case SQLITE_FULL:
    return judgeSpace(rfm_systemError(number).isOfSpace ? number : 0);
  case SQLITE_IOERR:
    return judgeInputOutput(result, number, detail);
  case SQLITE_READONLY:
    return {rfm_ErrorKind::ReadOnly,
            number == 0 ? "it cannot be written" : "it cannot be written (" + detail + ")",
            number == EROFS ? "Open it for reading, or copy it elsewhere"
                            : "Open it for reading, or make the file writable"};
  case SQLITE_PERM:
  case SQLITE_AUTH:
    return {rfm_ErrorKind::NoPermission, "there is no permission to use it (" + detail + ")",
            "Ask the owner of the file for permission"};
  case SQLITE_CANTOPEN:
    return judgeOpening(number, detail);
  case SQLITE_NOTADB:
    return {rfm_ErrorKind::NotADatabase, "it is not a database", "Check the name"};
  case SQLITE_CORRUPT:
  case SQLITE_ERROR: // our statements are right: what they name is missing from the file
  case SQLITE_SCHEMA:
  case SQLITE_CONSTRAINT:
  case SQLITE_MISMATCH:
  case SQLITE_FORMAT:
    return {rfm_ErrorKind::Damaged, "it is damaged (" + detail + ")", "Restore it from a backup"};
  case SQLITE_INTERRUPT:
    return {rfm_ErrorKind::Damaged, "it is damaged: reading it takes more work than a file of its size can",
            "Restore it from a backup"};
  case SQLITE_TOOBIG:
    return {rfm_ErrorKind::Other, "a value is larger than a database file can hold", "Store a shorter value"};
  default:
    return {rfm_ErrorKind::Other, "it cannot be used (" + detail + ")",
            "Close the database and open it anew"};
  }
}

} // namespace

std::string rfm_placeText(cow_String const& file, rfm_Subject const& subject) {
  std::string text = "Database file '" + utl_Printable(file.View()) + "'";
  if (subject.className) {
    text += ", class '" + utl_PrintableStart(subject.className->View()) + "'";
  }
  if (subject.row >= 0) {
    text += ", row " + std::to_string(subject.row);
  }
  if (!subject.field.empty()) {
    text += ", field '" + utl_PrintableStart(subject.field) + "'";
  }
  return text;
}

void rfm_throw(rfm_ErrorKind kind, cow_String const& file, rfm_Subject const& subject, std::string_view what,
               std::string_view advice, char const* path, int line) {
  nex_Exception::Throw(
      rfm_Exception(kind, rfm_placeText(file, subject), std::string(what), std::string(advice)),
      sourcePath(path), line);
}

rfm_Connection::rfm_Connection(cow_String shownName) : name(std::move(shownName)) {}

rfm_Connection::~rfm_Connection() {
  Close();
}

void rfm_Connection::Open(std::string const& file, Mode mode) {
  Close();
  path = file;
  openMode = mode;
  snapshot = false;
  int const access = mode == Mode::Read    ? SQLITE_OPEN_READONLY
                     : mode == Mode::Write ? SQLITE_OPEN_READWRITE
                                           : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_URI;
  char const* const vfs = mode == Mode::Write ? rfm_journalSyncVfs() : nullptr;
  auto const openFile = [&] {
    errno = 0;
    return sqlite3_open_v2(path.c_str(), &database,
                           access | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE | SQLITE_OPEN_EXRESCODE,
                           vfs);
  };
  int result = openFile();
  if ((result & 0xff) == SQLITE_CANTOPEN && mode == Mode::Build && errno == ENOENT &&
      canBeMade(path.c_str())) {
    sqlite3_close(database);
    result = openFile(); // the reason is over
  }
  int const refusal = errno;
  try {
    if (result != SQLITE_OK) {
      Fail(result);
    }
    if (mode != Mode::Build) {
      CheckHeader();
    }
    if (mode == Mode::Write && sqlite3_db_readonly(database, "main") != 0) {
      // SQLite opens for reading what it cannot open for writing, whatever the reason is.
      errno = refusal;
      Fail(refusal == 0 || rfm_systemError(refusal).isOfRights ? SQLITE_READONLY : SQLITE_CANTOPEN);
    }
    if (mode == Mode::Write) {
      CheckJournal();
    }
    Configure(mode);
  } catch (...) {
    Close();
    throw;
  }
}

void rfm_Connection::OpenLater(std::string file, rfm_FileHold wanted, Mode mode) noexcept {
  Close();
  path = std::move(file);
  openMode = mode;
  opensLater = std::move(wanted);
}

// Reads through the descriptor that SQLite has, before SQLite looks at the file: another program's file is
// neither locked nor recovered by us.
void rfm_Connection::CheckHeader() {
  sqlite3_file* const file = mainFile(database);
  if (!file) {
    Fail(SQLITE_CANTOPEN);
  }
  HeaderBytes header{};
  int const result = file->pMethods->xRead(file, header.data(), static_cast<int>(headerSize), 0);
  if (result != SQLITE_OK && result != SQLITE_IOERR_SHORT_READ) {
    Fail(result);
  }
  if (result == SQLITE_IOERR_SHORT_READ ||
      std::memcmp(header.data(), headerMagic.data(), headerMagic.size()) != 0) {
    rfm_throw(rfm_ErrorKind::NotADatabase, name, {}, "it is not a database", "Check the name");
  }
  if (bigEndian(header, applicationIdPlace) != rfm_ApplicationId) {
    rfm_throw(rfm_ErrorKind::OtherProgram, name, {}, "it is a database of another program", "Check the name");
  }
  std::uint32_t const storedVersion = bigEndian(header, userVersionPlace);
  if (storedVersion > rfm_FormatVersion && storedVersion <= INT32_MAX) {
    rfm_throw(rfm_ErrorKind::Newer, name, {},
              "it has the format version " + std::to_string(storedVersion) +
                  ", this program knows those up to " + std::to_string(rfm_FormatVersion),
              "Use the newer program that wrote it");
  }
  if (storedVersion < rfm_OldestFormatVersion || storedVersion > INT32_MAX) {
    rfm_throw(rfm_ErrorKind::Damaged, name, {}, "its format version is not valid",
              "Restore it from a backup");
  }
  // The largest size, 65536, does not fit into the two bytes and is stored as 1.
  pageSize = header[pageSizePlace] * 256 + header[pageSizePlace + 1];
  pageSize = pageSize > 1 ? pageSize : 65536;
  if (header[writeFormatPlace] != rollbackJournalFormat || header[readFormatPlace] != rollbackJournalFormat) {
    rfm_throw(rfm_ErrorKind::Damaged, name, {}, "its journal mode was changed by another program",
              "Set its journal_mode to delete with an SQLite tool");
  }
}

// Before SQLite first takes in the schema. What another process is just writing, or an interrupted save has
// left, is no finding: the file is asked again as it is under a lock.
void rfm_Connection::CheckSchemaSize() {
  sqlite3_file* const file = mainFile(database);
  int result = rfm_checkSchemaSize(*file);
  if (result == SQLITE_CORRUPT) {
    result = Step(beginRead, "BEGIN");
    result = result == SQLITE_OK ? ReadDataVersion() : result;
    if (result == SQLITE_OK && rfm_checkSchemaSize(*file) == SQLITE_CORRUPT) {
      rfm_throw(rfm_ErrorKind::Damaged, name, {},
                "it is damaged: its tables and views are defined at a length that no file of its size needs",
                "Restore it from a backup");
    }
    result = result == SQLITE_OK ? Step(commit, "COMMIT") : result;
  }
  if (result != SQLITE_OK) {
    Fail(result);
  }
}

// Refuses a journal that SQLite would play back though it is not of this file. The journal of somebody who is
// saving is none: a lock of ours keeps the file as it is while both are read.
void rfm_Connection::CheckJournal() {
  std::string const journal = path + "-journal";
  if (access(journal.c_str(), F_OK) != 0) {
    return;
  }
  sqlite3_file* const file = mainFile(database);
  int result = file->pMethods->xLock(file, SQLITE_LOCK_SHARED);
  if (result == SQLITE_BUSY) {
    return;
  }
  int isSaving = 0;
  HeaderBytes header{};
  sqlite3_int64 size = 0;
  rfm_JournalVerdict verdict;
  if (result == SQLITE_OK) {
    result = file->pMethods->xCheckReservedLock(file, &isSaving);
  }
  if (result == SQLITE_OK && isSaving == 0) {
    result = file->pMethods->xRead(file, header.data(), static_cast<int>(headerSize), 0);
    if (result == SQLITE_OK) {
      result = file->pMethods->xFileSize(file, &size);
    }
    if (result == SQLITE_OK) {
      verdict = rfm_judgeJournal(journal, {header.data(), size});
    }
  }
  int const unlocked = file->pMethods->xUnlock(file, SQLITE_LOCK_NONE);
  result = result == SQLITE_OK ? unlocked : result;
  if (result != SQLITE_OK) {
    Fail(result);
  }
  if (verdict.errorNumber != 0) {
    rfm_SystemError const error = rfm_systemError(verdict.errorNumber);
    rfm_throw(error.kind, name, {}, "its journal cannot be read (" + error.words + "); nothing was changed",
              rfm_advice(error, "Check the device", tryAgain));
  }
  if (verdict.isForeign) {
    rfm_throw(
        rfm_ErrorKind::Other, name, {},
        "the journal beside it is of another file, or of another state of this one; nothing was changed",
        "Put the file back that was here when the journal was left; or, when this one is what you want, "
        "remove '" +
            utl_Printable(journal) + "'");
  }
}

void rfm_Connection::CheckWhole() {
  sqlite3_file* const file = mainFile(database);
  HeaderBytes header{};
  sqlite3_int64 size = 0;
  int result = file->pMethods->xRead(file, header.data(), static_cast<int>(headerSize), 0);
  if (result == SQLITE_OK) {
    result = file->pMethods->xFileSize(file, &size);
  }
  if (result != SQLITE_OK) {
    Fail(result);
  }
  // The largest size, 65536, does not fit into the two bytes and is stored as 1.
  unsigned const stored = static_cast<unsigned>(header[pageSizePlace]) << 8U | header[pageSizePlace + 1];
  if (size % (stored > 1 ? stored : 65536U) != 0) {
    rfm_throw(rfm_ErrorKind::Damaged, name, {}, "its end is missing", "Restore it from a backup");
  }
}

void rfm_Connection::Configure(Mode mode) {
  sqlite3_extended_result_codes(database, 1);
  sqlite3_busy_timeout(database, busyTimeout);
  sqlite3_limit(database, SQLITE_LIMIT_LENGTH, largestValue);
  for (auto const& [limit, value] : limits) {
    sqlite3_limit(database, limit, value);
  }
  if (mode != Mode::Build) {
    sqlite3_progress_handler(database, workPortion, &rfm_Connection::OutgrowsFile, this);
  }
  constexpr std::array<std::pair<int, int>, 8> settings{{
      {SQLITE_DBCONFIG_DEFENSIVE, 1},
      {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0},
      {SQLITE_DBCONFIG_ENABLE_FKEY, 0},
      {SQLITE_DBCONFIG_ENABLE_TRIGGER, 0},
      {SQLITE_DBCONFIG_ENABLE_VIEW, 0},
      {SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0},
      {SQLITE_DBCONFIG_DQS_DML, 0},
      {SQLITE_DBCONFIG_DQS_DDL, 0},
  }};
  for (auto const& [setting, value] : settings) {
    sqlite3_db_config(database, setting, value, nullptr);
  }
  Execute("PRAGMA mmap_size = 0");
  Execute("PRAGMA cell_size_check = on");
  Execute("PRAGMA temp_store = memory");
  if (mode != Mode::Build && !snapshot) {
    CheckSchemaSize();
  }
  switch (mode) {
  case Mode::Read:
    break;
  case Mode::Write:
    Execute("PRAGMA synchronous = extra");
    Execute("PRAGMA journal_mode = delete");
    break;
  case Mode::Build:
    Execute("PRAGMA synchronous = off");
    Execute("PRAGMA journal_mode = memory");
    Execute("PRAGMA locking_mode = exclusive");
    Execute("BEGIN EXCLUSIVE; COMMIT"); // the lock stays: nobody takes the file for one that was given up
    break;
  }
}

void rfm_Connection::Close() noexcept {
  if (!database) {
    return;
  }
  StopScans();
  while (sqlite3_stmt* const statement = sqlite3_next_stmt(database, nullptr)) {
    sqlite3_finalize(statement);
  }
  beginRead = beginWrite = commit = version = nullptr;
  sqlite3_close(database);
  database = nullptr;
  attached = cow_String();
  mostGrowth = 0;
  reading = inTransaction = failed = false;
  ++generation;
  ++epoch;
}

sqlite3_int64 rfm_Connection::FileSize() const noexcept {
  sqlite3_file* const file = database ? mainFile(database) : nullptr;
  sqlite3_int64 size = 0;
  return file && file->pMethods->xFileSize(file, &size) == SQLITE_OK ? size : 0;
}

sqlite3_int64 rfm_Connection::HeldBytes() const noexcept {
  int inMemory = 0;
  int highest = 0;
  sqlite3_db_status(database, SQLITE_DBSTATUS_CACHE_USED, &inMemory, &highest, 0);
  return FileSize() + inMemory;
}

// Begins anew after 2^31 pages.
sqlite3_int64 rfm_Connection::PagesFetched() const noexcept {
  int found = 0;
  int missed = 0;
  int highest = 0;
  sqlite3_db_status(database, SQLITE_DBSTATUS_CACHE_HIT, &found, &highest, 0);
  sqlite3_db_status(database, SQLITE_DBSTATUS_CACHE_MISS, &missed, &highest, 0);
  return (sqlite3_int64{found} + missed) & std::numeric_limits<int>::max();
}

// Asked by SQLite after each portion of work; true stops it.
int rfm_Connection::OutgrowsFile(void* connection) noexcept {
  auto& self = *static_cast<rfm_Connection*>(connection);
  if (self.workDone == 0) {
    self.pagesBefore = self.PagesFetched();
  }
  self.workDone += workPortion;
  sqlite3_int64 const pages = (self.PagesFetched() - self.pagesBefore) & std::numeric_limits<int>::max();
  sqlite3_int64 const longValues = (pages - pagesForEachStep * self.workDone) * self.pageSize;
  if (self.workDone <= smallestWork && longValues <= smallestReading) {
    return 0;
  }
  sqlite3_int64 const held = self.HeldBytes();
  return self.workDone > smallestWork + workForEachByte * held ||
                 longValues > smallestReading + readingsInAStep * held
             ? 1
             : 0;
}

void rfm_Measure::Begin() noexcept {
  taken = 0;
  epoch = connection.Epoch();
  changes = sqlite3_total_changes(connection.Database());
}

bool rfm_Measure::IsExceededBy(std::uint64_t bytes) noexcept {
  taken += bytes;
  if (taken <= static_cast<std::uint64_t>(smallestReading)) {
    return false;
  }
  if (epoch != connection.Epoch() || changes != sqlite3_total_changes(connection.Database())) {
    Begin();
    taken = bytes;
  }
  auto const held = static_cast<std::uint64_t>(connection.HeldBytes());
  return taken > static_cast<std::uint64_t>(smallestReading) + readingsInAWalk * held;
}

void rfm_Connection::LimitGrowth(sqlite3_int64 most) {
  sqlite3_int64 pages = 0;
  {
    rfm_Statement statement;
    rfm_Run run(*this, statement, std::string_view("PRAGMA main.page_size"));
    run.Step();
    pages = most / std::max<sqlite3_int64>(sqlite3_column_int64(run.Get(), 0), 1);
  }
  Execute(("PRAGMA main.max_page_count = " + std::to_string(pages)).c_str());
  mostGrowth = most;
}

// Whether SQLite called the file full because of LimitGrowth. A device that is full ends it elsewhere.
bool rfm_Connection::IsFilledUp() const noexcept {
  return mostGrowth != 0 && FileSize() + unwrittenGrowth >= mostGrowth;
}

void rfm_Connection::Sync() {
  WantOpen();
  sqlite3_file* const file = mainFile(database);
  errno = 0;
  int const result = file->pMethods->xSync(file, SQLITE_SYNC_NORMAL);
  if (result != SQLITE_OK) {
    Fail(result);
  }
}

// Where SQLite calls the system for the last time in a step that failed, it leaves errno as it is. What it
// keeps of it is not always of this step.
int rfm_Connection::SystemError(int result, int number) const noexcept {
  if (!isOfSystem(result)) {
    return 0;
  }
  return number != 0 || !database ? number : sqlite3_system_errno(database);
}

void rfm_Connection::Fail(int result, rfm_Subject const& subject) {
  int number = errno;
  failed = inTransaction;
  if (database && sqlite3_extended_errcode(database) != SQLITE_OK &&
      (sqlite3_extended_errcode(database) & 0xff) == (result & 0xff)) {
    result = sqlite3_extended_errcode(database);
  }
  // What the file holds has no part in it, so nobody may take it for a finding about the file.
  if ((result & 0xff) == SQLITE_NOMEM || result == SQLITE_IOERR_NOMEM) {
    throw std::bad_alloc();
  }
  if ((result & 0xff) == SQLITE_TOOBIG && !inTransaction) {
    result = SQLITE_CORRUPT; // a value that is longer than the file
  }
  if ((result & 0xff) == SQLITE_FULL && IsFilledUp()) {
    rfm_throw(rfm_ErrorKind::Damaged, OriginName(), subject,
              "it is damaged: a copy of it outgrows what a file of its size can hold",
              "Restore it from a backup");
  }
  int const refusalOfAttached = attached.IsEmpty() ? 0 : refusalToRead(database, attachedSchema);
  bool const isOfAttached = refusalOfAttached != 0;
  int const refusal = isOfAttached ? refusalOfAttached : refusalToRead(database);
  if ((result & 0xff) == SQLITE_CORRUPT && refusal != 0) {
    result = SQLITE_IOERR_READ;
    number = refusal;
  }
  systemError = SystemError(result, number);
  bool const isLastError = database && (sqlite3_errcode(database) & 0xff) == (result & 0xff);
  Verdict verdict = judge(result, systemError,
                          systemError != 0 ? rfm_systemError(systemError).words
                          : isLastError    ? utl_PrintableStart(sqlite3_errmsg(database))
                                           : sqlite3_errstr(result));
  char const* const opened = database ? sqlite3_db_filename(database, "main") : nullptr;
  if (isBusy(result) && opened) {
    verdict.what = "it is in use " + rfm_lockHolder(opened, inTransaction);
  }
  bool const isOfOrigin = isOfAttached || verdict.kind == rfm_ErrorKind::Damaged;
  rfm_throw(verdict.kind, isOfOrigin ? OriginName() : name, subject, verdict.what, verdict.advice);
}

// The other file has been read before. Where it is called damaged now, the device may have failed.
void rfm_Connection::Attach(std::string const& address, cow_String const& shownName) {
  sqlite3_limit(database, SQLITE_LIMIT_ATTACHED, 1);
  int refusal = 0; // of the device, which SQLite no longer remembers behind a failure
  try {
    rfm_Statement statement;
    rfm_Run attach(*this, statement, std::string("ATTACH ?1 AS ") + attachedSchema);
    attach.Bind(1, std::string_view(address));
    int const result = Advance(attach.Get());
    refusal = isRefusalToRead(errno) ? errno : 0;
    if (result != SQLITE_DONE) {
      Fail(result);
    }
  } catch (rfm_Exception const& failure) {
    int const number = refusal != 0 ? refusal : systemError;
    rfm_SystemError const error = rfm_systemError(number);
    rfm_throw(refusal != 0 ? error.kind : failure.Kind(), shownName, {},
              "it cannot be opened a second time to be copied (" +
                  (number == 0 ? failure.What() : error.words) + ")",
              number == 0 ? failure.Advice() : rfm_advice(error, "Check the device", tryAgain));
  }
  attached = shownName;
}

void rfm_Connection::CheckDevice() {
  if (refusalToRead(database) != 0) {
    errno = refusalToRead(database);
    Fail(SQLITE_IOERR_READ);
  }
}

void rfm_Connection::Execute(char const* sql) {
  ++statistics.statements;
  ++schemaChanges;
  while (*sql != 0) {
    AllowWork();
    sqlite3_stmt* statement = nullptr;
    int result = sqlite3_prepare_v2(database, sql, -1, &statement, &sql);
    while (statement && (result = Advance(statement)) == SQLITE_ROW) {
    }
    int const number = errno;
    sqlite3_finalize(statement);
    errno = number;
    if (result != SQLITE_OK && result != SQLITE_DONE) {
      Fail(result);
    }
  }
}

// SQLite makes the journal of a save when it first writes. A statement that fails there has changed nothing;
// it is run again if the reason is over.
int rfm_Connection::AdvanceAgain(sqlite3_stmt* statement, int result) noexcept {
  if (openMode != Mode::Write || !inTransaction || errno != ENOENT ||
      !canBeMade(sqlite3_filename_journal(sqlite3_db_filename(database, "main")))) {
    return result;
  }
  sqlite3_reset(statement);
  AllowWork();
  return sqlite3_step(statement);
}

void rfm_Connection::Drop(rfm_Scan& scan) noexcept {
  std::erase(scans, &scan);
}

void rfm_Connection::StopScans() noexcept {
  for (rfm_Scan* const scan : scans) {
    scan->Stop();
  }
  scans.clear();
}

bool rfm_Connection::HasMoved() const noexcept {
  if (!database) {
    return false;
  }
  int moved = 0;
  sqlite3_file_control(database, "main", SQLITE_FCNTL_HAS_MOVED, &moved);
  return moved != 0;
}

// Copies the file that lost its name. Whoever saves to it has no lock meanwhile, and has left it whole.
rfm_Connection::CopiedBytes rfm_Connection::CopyOfMoved() {
  constexpr char const* advice = "Close the database and open the file anew";
  sqlite3_file* const file = mainFile(database);
  SharedLock const lock(*file);
  if (lock.Result() != SQLITE_OK) {
    Fail(lock.Result());
  }
  CopiedBytes copy;
  if (file->pMethods->xFileSize(file, &copy.size) != SQLITE_OK || copy.size <= 0) {
    rfm_throw(rfm_ErrorKind::Moved, name, {}, "it was deleted since it was opened", advice);
  }
  if (copy.size > largestSnapshot) {
    rfm_throw(rfm_ErrorKind::Moved, name, {},
              "it was replaced, renamed or deleted since it was opened, and is too large to be read on",
              advice);
  }
  copy.bytes.reset(static_cast<unsigned char*>(sqlite3_malloc64(static_cast<sqlite3_uint64>(copy.size))));
  if (!copy.bytes) {
    Fail(SQLITE_NOMEM);
  }
  constexpr sqlite3_int64 portion = 1 << 20;
  for (sqlite3_int64 offset = 0; offset < copy.size; offset += portion) {
    int const length = static_cast<int>(std::min(portion, copy.size - offset));
    int const result = file->pMethods->xRead(file, copy.bytes.get() + offset, length, offset);
    if (result != SQLITE_OK) {
      Fail(result);
    }
  }
  // Beside a file that has the name now, a journal is that one's.
  std::string const journal = path + "-journal";
  if (copy.size >= rfm_FileState::headerSize && access(path.c_str(), F_OK) != 0 &&
      access(journal.c_str(), F_OK) == 0 &&
      !rfm_judgeJournal(journal, {copy.bytes.get(), copy.size}).isForeign) {
    rfm_throw(
        rfm_ErrorKind::Moved, name, {},
        "it was renamed or deleted since it was opened, without the journal of a save that was interrupted",
        "Give the file its name back, and open it once for writing, which brings back the last complete "
        "save");
  }
  return copy;
}

// Goes on with a copy in memory of the file that lost its name. Reading on through SQLite would take the
// journal of the file that has the name now for its own, and play it back.
void rfm_Connection::BecomeSnapshot() {
  CopiedBytes copy = CopyOfMoved();
  sqlite3* memory = nullptr;
  int result = sqlite3_open_v2(":memory:", &memory,
                               SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE, nullptr);
  if (result == SQLITE_OK) {
    result = sqlite3_deserialize(memory, "main", copy.bytes.release(), copy.size, copy.size,
                                 SQLITE_DESERIALIZE_FREEONCLOSE | SQLITE_DESERIALIZE_READONLY);
    if (result == SQLITE_ERROR) {
      result = sqlite3_extended_errcode(memory); // of it, want of memory is told as an error without a name
    }
  }
  if (result != SQLITE_OK) {
    sqlite3_close(memory);
    Fail(result);
  }
  Close();
  database = memory;
  snapshot = true;
  Configure(Mode::Read);
}

int rfm_Connection::Step(sqlite3_stmt*& statement, char const* sql) {
  if (!statement) {
    int const result = sqlite3_prepare_v3(database, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (result != SQLITE_OK) {
      return result;
    }
  }
  ++statistics.statements;
  int const result = Advance(statement);
  sqlite3_reset(statement);
  return result == SQLITE_DONE ? SQLITE_OK : result;
}

int rfm_Connection::ReadDataVersion() {
  if (!version) {
    int const result =
        sqlite3_prepare_v3(database, "PRAGMA data_version", -1, SQLITE_PREPARE_PERSISTENT, &version, nullptr);
    if (result != SQLITE_OK) {
      return result;
    }
  }
  int result = Advance(version);
  if (result == SQLITE_ROW) {
    // The upper half tells the numbers of different connections apart.
    dataVersion = static_cast<std::uint64_t>(generation) << 32 |
                  static_cast<std::uint32_t>(sqlite3_column_int(version, 0));
    result = SQLITE_OK;
  }
  sqlite3_reset(version);
  return result;
}

void rfm_Connection::WantOpen() {
  if (!database && opensLater.Holds()) {
    if (opensLater.IsNamed(path)) {
      Open(std::string(path), openMode);
      if (!opensLater.IsNamed(path) || HasMoved()) {
        Close(); // it has moved meanwhile
      }
    }
    if (!database) {
      Verdict const moved = judge(SQLITE_READONLY_DBMOVED, 0, {});
      rfm_throw(moved.kind, name, {}, moved.what, moved.advice);
    }
    opensLater = rfm_FileHold();
  }
  if (!database) {
    rfm_throw(rfm_ErrorKind::Other, name, {}, "it is no longer open", "Open it anew");
  }
}

void rfm_Connection::LimitValues() noexcept {
  sqlite3_limit(database, SQLITE_LIMIT_LENGTH,
                static_cast<int>(std::clamp<sqlite3_int64>(FileSize(), smallestReadLimit, largestValue)));
}

void rfm_Connection::BeginReading() {
  WantOpen();
  if (openMode == Mode::Write && !snapshot && HasMoved()) {
    BecomeSnapshot();
  }
  LimitValues();
  for (;;) {
    int result = SQLITE_OK;
    // Otherwise it goes on with what EndAnyhow left of a snapshot.
    if (sqlite3_get_autocommit(database) != 0) {
      result = Step(beginRead, "BEGIN");
    }
    if (result == SQLITE_OK) {
      result = ReadDataVersion();
    }
    if (result == SQLITE_OK) {
      break;
    }
    std::exception_ptr failure;
    try {
      Fail(result);
    } catch (...) {
      failure = std::current_exception();
    }
    EndAnyhow();
    if (!database || snapshot || result != SQLITE_READONLY_ROLLBACK || !HasMoved()) {
      std::rethrow_exception(failure);
    }
    BecomeSnapshot(); // the journal beside is that of the file that has the name now
  }
  reading = true;
  ++epoch;
}

void rfm_Connection::EndReading() noexcept {
  StopScans();
  if (Step(commit, "COMMIT") != SQLITE_OK) {
    EndAnyhow();
  }
  reading = false;
  ++epoch;
}

// Ends what SQLite still has open. When that fails for want of memory, closing the file ends it, with its
// lock; it is opened again when it is next needed. A snapshot, which cannot be had again, is kept as it is:
// it has no lock and does not change.
void rfm_Connection::EndAnyhow() noexcept {
  if (sqlite3_get_autocommit(database) != 0 ||
      sqlite3_exec(database, "ROLLBACK", nullptr, nullptr, nullptr) == SQLITE_OK || snapshot) {
    return;
  }
  rfm_FileHold file(path);
  bool const stands = openMode == Mode::Build || !HasMoved();
  Close();
  if (stands) {
    opensLater = std::move(file);
  }
}

void rfm_Connection::EnterScope() {
  if (!inTransaction && !reading) {
    BeginReading();
  }
  ++depth;
}

void rfm_Connection::LeaveScope() noexcept {
  if (--depth == 0 && reading) {
    EndReading();
  }
}

void rfm_Connection::Begin() {
  if (inTransaction) {
    nex_Exception::Throw(nex_AssertException("!inTransaction"), "platform/rfm/rfm_Connection", __LINE__);
  }
  WantOpen();
  if (openMode == Mode::Read) {
    rfm_throw(rfm_ErrorKind::ReadOnly, name, {}, "it was opened for reading only", "Open it for writing");
  }
  if (snapshot || (openMode == Mode::Write && HasMoved())) {
    Fail(SQLITE_READONLY_DBMOVED);
  }
  if (reading) {
    EndReading();
    WantOpen();
  }
  int result = Step(beginWrite, "BEGIN IMMEDIATE");
  if (result == SQLITE_OK) {
    result = ReadDataVersion();
  }
  if (result != SQLITE_OK) {
    std::exception_ptr failure;
    try {
      Fail(result);
    } catch (...) {
      failure = std::current_exception();
    }
    EndAnyhow();
    std::rethrow_exception(failure);
  }
  sqlite3_limit(database, SQLITE_LIMIT_LENGTH, largestValue);
  inTransaction = true;
  failed = false;
  nextHandle = 0;
  ++epoch;
}

void rfm_Connection::WantTransaction() const {
  if (!inTransaction) {
    nex_Exception::Throw(nex_AssertException("inTransaction"), "platform/rfm/rfm_Connection", __LINE__);
  }
  if (failed || sqlite3_get_autocommit(database) != 0) {
    rfm_throw(rfm_ErrorKind::Other, name, {}, "an earlier change of this save failed; nothing was changed",
              "Save again after the reason is removed");
  }
}

// A save lasts when the removal of its journal is synced in the folder. A folder that cannot be opened for
// that is refused here, while nothing is changed; later, all that could be said is that the changes may not
// last.
void rfm_Connection::WantFolder() {
  std::string folder(sqlite3_db_filename(database, "main"));
  folder.resize(folder.rfind('/') + 1);
  int const descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor >= 0) {
    close(descriptor);
    return;
  }
  rfm_SystemError const error = rfm_systemError(errno);
  bool const isForbidden = error.kind == rfm_ErrorKind::NoPermission;
  rfm_throw(isForbidden ? error.kind : rfm_ErrorKind::Full, name, {},
            "its folder cannot be opened, which a save that lasts needs (" + error.words +
                "); nothing was changed",
            isForbidden ? "Ask for permission to read the folder, or copy the file"
                        : rfm_advice(error, "Check the device", "then save again"));
}

void rfm_Connection::Commit() {
  WantTransaction();
  StopScans();
  commitEnd = {};
  if (openMode == Mode::Write) {
    WantFolder();
  }
  int const result = Step(commit, "COMMIT");
  if (result != SQLITE_OK) {
    int const number = errno;
    commitEnd = openMode == Mode::Write ? endOfCommit(result, SystemError(result, number)) : rfm_CommitEnd();
    errno = number;
    Fail(result);
  }
  inTransaction = false;
  owesSync = false;
  ++epoch;
}

void rfm_Connection::RollBack() noexcept {
  if (!inTransaction) {
    return;
  }
  StopScans();
  ++schemaChanges;
  EndAnyhow();
  inTransaction = failed = false;
  ++epoch;
}
