// rfm_Connection: one SQLite connection, with the read scopes and the transaction on it.
#pragma once

#include "cow_String.h"
#include "rfm_Exception.h"
#include "rfm_FileHold.h"
#include "rfm_Statistics.h"

#include <cerrno>
#include <cstdint>
#include <memory>
#include <sqlite3.h>
#include <string>
#include <string_view>
#include <vector>

/// What a row or an entry counts in rfm_Statistics::bytesRead beside its texts [byte].
inline constexpr std::uint64_t rfm_RowBytes = 32;

/// What a message is about, beside the file. Borrowed; used at once.
struct rfm_Subject {
  cow_String const* className = nullptr;
  std::int64_t row = -1;
  std::string_view field = {};
};

/// Where something is wrong: "Database file 'NAME', class 'C', row 3".
std::string rfm_placeText(cow_String const& file, rfm_Subject const& subject);
/// Throws an rfm_Exception. The last two are the caller's place; the compilers' own functions
/// give it, for std::source_location is not there in all that build this.
[[noreturn]] void rfm_throw(rfm_ErrorKind kind, cow_String const& file, rfm_Subject const& subject,
                            std::string_view what, std::string_view advice,
                            char const* path = __builtin_FILE(), int line = __builtin_LINE());

/// A statement that is in the middle of its rows. It must be able to go on after it was stopped.
class rfm_Scan {
public:
  virtual ~rfm_Scan() = default;
  /// Lets go of the statement, because the state that it reads ends. Must not throw.
  virtual void Stop() noexcept = 0;
};

/// What became of the changes of a commit that failed.
struct rfm_CommitEnd {
  enum class Fate {
    TakenBack,
    JournalStays, ///< they are taken back when the file is used next
    Stands,       ///< they are in the file, but a power cut may take them back
    Lasts,        ///< they are in the file, and stay
  };
  Fate fate = Fate::TakenBack;
  char const* trouble = nullptr; ///< what went wrong, unless they were taken back
  int number = 0;                ///< why, as errno has it; 0 when the system does not tell
};

/// Tells states of a file apart, as one connection sees them: where two are equal, so is what the file holds.
struct rfm_State {
  std::uint64_t dataVersion = 0;   // changes of others
  int changes = 0;                 // of rows, here
  std::uint64_t schemaChanges = 0; // of the schema here, and changes taken back
  friend bool operator==(rfm_State const&, rfm_State const&) = default;
};

/// One SQLite connection. Borrowed by everything prepared on it.
class rfm_Connection {
public:
  enum class Mode {
    Read,  ///< never writes
    Write, ///< durable transactions
    Build, ///< no durability: a file that nobody else sees
  };

  /// @param shownName name of the file in messages
  explicit rfm_Connection(cow_String shownName);
  ~rfm_Connection();
  rfm_Connection(rfm_Connection const&) = delete;
  rfm_Connection& operator=(rfm_Connection const&) = delete;

  /// Opens a file and checks that it is a database of ours in a format that is known; a file built anew is
  /// not checked. Nothing of a file of others is changed, nor is it locked.
  /// @param file absolute path, with links resolved
  void Open(std::string const& file, Mode mode);
  /// Opens a file when it is next read or written, which is refused when another file has its name by then.
  /// Needs no memory.
  /// @param wanted the file that has the name now
  void OpenLater(std::string file, rfm_FileHold wanted, Mode mode) noexcept;
  /// Refuses a file that ends within a page: SQLite would take what is missing for zeros. Inside a read
  /// scope.
  void CheckWhole();
  /// Closes; statements prepared on it become stale.
  void Close() noexcept;
  /// Forces what was written to the device.
  void Sync();
  /// Puts another file beside this one for the SQL of this connection, under attachedSchema.
  /// @param address as SQLite opens it
  /// @param shownName its name in messages
  void Attach(std::string const& address, cow_String const& shownName);
  static constexpr char const* attachedSchema = "old";

  /// Whether the file has lost its name since it was opened, or another one has it now.
  bool HasMoved() const noexcept;

  sqlite3* Database() const noexcept { return database; }
  cow_String const& ShownName() const noexcept { return name; }
  /// Name of the file that the contents come from, for messages about what is wrong with them: another one
  /// when that one was put beside this to fill it.
  cow_String const& OriginName() const noexcept { return attached.IsEmpty() ? name : attached; }
  /// Changes when statements prepared before became stale.
  unsigned Generation() const noexcept { return generation; }
  /// Changes whenever the state of the file that was seen may have ended.
  std::uint64_t Epoch() const noexcept { return epoch; }
  /// As of the last begin of reading or writing: changes when another connection changed the file.
  std::uint64_t DataVersion() const noexcept { return dataVersion; }
  /// The state that is read. Inside a read scope or a transaction.
  rfm_State State() const noexcept { return {dataVersion, sqlite3_total_changes(database), schemaChanges}; }
  /// Counts what may have changed the schema here.
  std::uint64_t schemaChanges = 0;
  /// Counts changes of the class list made here or taken back here.
  std::uint64_t classListVersion = 0;
  /// The next collection handle while a transaction gives some out; stored when it commits. 0: none was
  /// given.
  std::int64_t nextHandle = 0;
  rfm_Statistics statistics;

  /// @{ Read scopes; see rfm_ReadScope.
  void EnterScope();
  void LeaveScope() noexcept;
  /// Whether a state is held that outlives the current call, which has a scope of its own.
  bool HoldsState() const noexcept { return inTransaction || depth > 1; }
  /// @}

  /// @{ The transaction; see rfm_Transaction.
  void Begin();
  void Commit();
  void RollBack() noexcept;
  bool InTransaction() const noexcept { return inTransaction; }
  /// How the last commit ended that failed.
  rfm_CommitEnd const& CommitEnd() const noexcept { return commitEnd; }
  /// Whether changes are in the file that a power cut may take back. The next commit makes them durable, but
  /// only when it changes something.
  bool owesSync = false;
  /// The running transaction, if any, can no longer be committed.
  void Spoil() noexcept { failed = inTransaction; }
  /// Throws unless a transaction is running that has not failed.
  void WantTransaction() const;
  /// @}

  /// Throws when the device refused to deliver a part of the file.
  void CheckDevice();
  /// [byte]; 0 when the device does not tell.
  sqlite3_int64 FileSize() const noexcept;
  /// The size of the file and of what a save has not written yet [byte].
  sqlite3_int64 HeldBytes() const noexcept;
  /// Lets the file that is built take no more than this [byte], which is more than a sound file beside it can
  /// need. One that would grow beyond is told as damage of the other.
  void LimitGrowth(sqlite3_int64 most);
  /// Runs statements that give no rows.
  void Execute(char const* sql);
  /// Begins a new measure of the work done, and forgets what the system said before.
  void AllowWork() noexcept {
    workDone = 0;
    errno = 0;
  }
  /// Steps a statement. A step that takes more work than the file's size can need, because pages of it lead
  /// in circles or many rows to the same pages, ends with SQLITE_INTERRUPT.
  int Advance(sqlite3_stmt* statement) noexcept {
    AllowWork();
    int const result = sqlite3_step(statement);
    return (result & 0xff) == SQLITE_CANTOPEN ? AdvanceAgain(statement, result) : result;
  }
  /// Throws what a result code means: std::bad_alloc when memory ran out, otherwise an rfm_Exception. Inside
  /// a transaction, it can no longer be committed. To be called before anything else calls the system.
  [[noreturn]] void Fail(int result, rfm_Subject const& subject = {});

  void Add(rfm_Scan& scan) { scans.push_back(&scan); }
  void Drop(rfm_Scan& scan) noexcept;

private:
  struct CopiedBytes {
    std::unique_ptr<unsigned char, void (*)(void*)> bytes{nullptr, sqlite3_free};
    sqlite3_int64 size = 0;
  };

  void Configure(Mode mode);
  static int OutgrowsFile(void* connection) noexcept;
  sqlite3_int64 PagesFetched() const noexcept;
  bool IsFilledUp() const noexcept;
  void CheckHeader();
  void CheckSchemaSize();
  void CheckJournal();
  CopiedBytes CopyOfMoved();
  void BecomeSnapshot();
  int SystemError(int result, int number) const noexcept;
  int AdvanceAgain(sqlite3_stmt* statement, int result) noexcept;
  void WantOpen();
  void WantFolder();
  void LimitValues() noexcept;
  void BeginReading();
  void EndReading() noexcept;
  void StopScans() noexcept;
  void EndAnyhow() noexcept;
  int ReadDataVersion();
  int Step(sqlite3_stmt*& statement, char const* sql);

  cow_String name;
  cow_String attached; // shown name of the file beside; empty without one
  sqlite3* database = nullptr;
  sqlite3_stmt* beginRead = nullptr;
  sqlite3_stmt* beginWrite = nullptr;
  sqlite3_stmt* commit = nullptr;
  sqlite3_stmt* version = nullptr;
  Mode openMode = Mode::Read;
  std::string path;
  rfm_FileHold opensLater; // the file that is opened when it is next needed
  unsigned generation = 0;
  std::uint64_t epoch = 0;
  std::uint64_t dataVersion = 0;
  int depth = 0;
  bool reading = false;
  bool inTransaction = false;
  bool failed = false;
  rfm_CommitEnd commitEnd;
  int systemError = 0; // the system's part in the last failure, as errno has it; 0: none
  bool snapshot = false;
  sqlite3_int64 workDone = 0;    // by the running step [program steps of SQLite]
  sqlite3_int64 pagesBefore = 0; // PagesFetched when that was first asked in the running step
  sqlite3_int64 pageSize = 0;    // [byte]
  sqlite3_int64 mostGrowth = 0;  // of a file that is built [byte]; 0: any
  std::vector<rfm_Scan*> scans;
};

/// Measures what one walk over rows or entries delivers. A sound file delivers each of them once, so their
/// texts take no more than the file does; where many rows lead to the same pages, they may never end.
class rfm_Measure {
public:
  explicit rfm_Measure(rfm_Connection const& measured) noexcept : connection(measured) {}
  /// Begins a new walk.
  void Begin() noexcept;
  /// Adds what was delivered. What the file held before it was changed does not count.
  /// @param bytes of texts and blobs
  /// @returns whether all of the walk is more than the file can hold
  bool IsExceededBy(std::uint64_t bytes) noexcept;

private:
  rfm_Connection const& connection;
  std::uint64_t taken = 0;
  std::uint64_t epoch = 0;
  int changes = 0;
};

/// Around a change of the file that takes several steps: when not all of them are done, the transaction can
/// no longer be committed.
class rfm_Whole {
public:
  explicit rfm_Whole(rfm_Connection& used) noexcept : connection(used) {}
  ~rfm_Whole() {
    if (!done) {
      connection.Spoil();
    }
  }
  rfm_Whole(rfm_Whole const&) = delete;
  rfm_Whole& operator=(rfm_Whole const&) = delete;
  /// All steps are done.
  void Done() noexcept { done = true; }

private:
  rfm_Connection& connection;
  bool done = false;
};

/// A read scope around one call.
class rfm_ScopeGuard {
public:
  explicit rfm_ScopeGuard(rfm_Connection& used) : connection(used) { connection.EnterScope(); }
  ~rfm_ScopeGuard() { connection.LeaveScope(); }
  rfm_ScopeGuard(rfm_ScopeGuard const&) = delete;
  rfm_ScopeGuard& operator=(rfm_ScopeGuard const&) = delete;

private:
  rfm_Connection& connection;
};
