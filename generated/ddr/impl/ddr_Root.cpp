#include "ddr_Root.h"

#include "nex_Exception.h"
#include "omi_Timer.h"
#include "os_Time.h"
#include "pnt_DebugPrint.h"
#include "rfm_ReadScope.h"
#include "rom_Memento.h"
#include "rom_Transporter.h"
#include "typ_DebugFlags.h"
#include "utl_UrlParser.h"

#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

template class thr_ThreadSingletonBase<ddr_Root>;
template class thr_ThreadSingleton<ddr_Root>;

namespace {

constexpr char const* sourcePath = "generated/ddr/impl/ddr_Root";
constexpr int moduleComponent = 34;
constexpr int destructLevel = 8;
constexpr char const* databaseName = "D0";

[[noreturn]] void refuse(std::string const& text, int line) {
  nex_Exception::Throw(nex_TextException(text), sourcePath, line);
}

/// Takes back the beginning of a character that a text of fixed length has no room to finish.
/// @param text longer than a character
void blankCutCharacter(std::string& text) {
  std::size_t start = text.size();
  while (text.size() - start < 4 && (static_cast<unsigned char>(text[start - 1]) & 0xC0U) == 0x80U) {
    --start;
  }
  auto const lead = static_cast<unsigned char>(text[start - 1]);
  std::size_t const length = lead >= 0xF0U ? 4 : lead >= 0xE0U ? 3 : lead >= 0xC0U ? 2 : 1;
  if (start - 1 + length > text.size()) {
    std::fill(text.begin() + static_cast<std::ptrdiff_t>(start) - 1, text.end(), ' ');
  }
}

/// The name under which a database created now is known for its whole life.
cow_String makePersistentName(cow_String const& fileName) {
  char date[ddr_Root::PERS_STRING_PAD + 1];
  std::int64_t const now = _time64(nullptr);
  std::size_t const dsLen = os_strftime(date, sizeof date, "%Y/%m/%d %H:%M:%S ", _localtime64(&now));
  if (dsLen == 0 || dsLen > ddr_Root::PERS_STRING_PAD) {
    nex_Exception::Throw(nex_AssertException("dsLen > 0 && dsLen <= PERS_STRING_PAD"), sourcePath, 119);
  }
  std::string name(date, dsLen);
  name.append(fileName.View().substr(0, ddr_Root::PERS_STRING_PAD - dsLen));
  if (name.size() == ddr_Root::PERS_STRING_PAD) {
    blankCutCharacter(name);
  }
  name.resize(ddr_Root::PERS_STRING_PAD, ' ');
  return cow_String(std::string_view(name));
}

/// The row that holds the newest state of the database: the last.
int lastRecordRow(rom_Transporter const& transporter) {
  return std::max(transporter.GetTableSize(ddr_Ddb::TypeId()) - 1, 0);
}

/// Leaves what a record tells of itself as it was before a save that fails: its time of modification, whether
/// that is stamped, and that its models are changed.
class FailedSaveGuard {
public:
  explicit FailedSaveGuard(ddr_Ddb& saved) noexcept
      : record(&saved), time(saved.GetModifyTime()), stamps(saved.GetUpdateModifyTime()),
        isChanged(saved.models.IsChanged()) {}
  ~FailedSaveGuard() {
    if (record != nullptr) {
      record->RestoreModifyTime(time);
      record->SetUpdateModifyTime(stamps);
      if (isChanged) {
        record->models.MarkChanged();
      }
    }
  }
  FailedSaveGuard(FailedSaveGuard const&) = delete;
  FailedSaveGuard& operator=(FailedSaveGuard const&) = delete;
  void Keep() noexcept { record = nullptr; }

private:
  ddr_Ddb* record;
  int time;
  bool stamps;
  bool isChanged;
};

} // namespace

ddr_Root& ddr_Root::Instance() {
  return thr_ThreadSingleton<ddr_Root>::Instance();
}

ddr_Root::ddr_Root() {
  thr_GlobalSingleton<thr_ThrSingletonRegistry>::Instance().SetDestructLevel(
      &thr_ThreadSingleton<ddr_Root>::Release, destructLevel);
}

ddr_Root::~ddr_Root() {
  databases.Clear();
  openRecords.Clear();
  registrar.reset();
}

void ddr_Root::SetClassRegistrar(cls_ClassRegistrar* classes) {
  if (classes != registrar.get()) {
    registrar.reset(classes);
  }
}

void ddr_Root::Replace(ddr_DdbContainer const& other) {
  databases = other;
}

bool ddr_Root::IsMember(cow_String const& fileName) const {
  cow_String const* const found = fileNames.ConstFind(fileName);
  return found != nullptr && databases.IsMember(*found);
}

cow_String const& ddr_Root::GetPersistentName(cow_String const& fileName) const {
  cow_String const* const found = fileNames.ConstFind(fileName);
  if (found == nullptr) {
    refuse("No ddb file by specified file name in container: '" + std::string(fileName.View()) + "'",
           __LINE__);
  }
  return *found;
}

cow_String const& ddr_Root::GetFileName(cow_String const& persistentName) const {
  if (!databases.IsMember(persistentName)) {
    refuse("No ddb file by specified persistent name in container: '" + std::string(persistentName.View()) +
               "'",
           __LINE__);
  }
  FileNames::Node const* first = nullptr;
  std::vector<FileNames::Node const*> pending;
  pending.push_back(fileNames.RootNode());
  while (!pending.empty()) {
    FileNames::Node const* const node = pending.back();
    pending.pop_back();
    if (node == nullptr) {
      continue;
    }
    if (node->Value() == persistentName && (first == nullptr || node->Key() < first->Key())) {
      first = node;
    }
    pending.push_back(node->Left().Peek());
    pending.push_back(node->Right().Peek());
  }
  static cow_String const none;
  return first == nullptr ? none : first->Key();
}

int ddr_Root::GetOpenCount(cow_String const& persistentName) const {
  OpenRecord const* const found = openRecords.ConstFind(persistentName);
  return found == nullptr ? 0 : found->openCount;
}

bool ddr_Root::WasOpenedReadOnly(cow_String const& persistentName) const {
  OpenRecord const* const found = openRecords.ConstFind(persistentName);
  return found != nullptr && found->readOnly;
}

// All maps change or none does: each is changed as a copy, and taking a copy over cannot fail. A new file
// takes its name in between, so that nothing can fail behind it that would leave the file without its record.
void ddr_Root::Register(std::unique_ptr<ddr_Ddb> record, cow_String const& fileName, bool readOnly,
                        bool publishes) {
  cow_String const name = record->GetName();
  rom_Transporter& transporter = *record->GetTransporter();
  ddr_DdbContainer newDatabases = databases;
  FileNames newFileNames = fileNames;
  OpenRecords newOpenRecords = openRecords;
  newDatabases.Insert(name, record.release());
  transporter.ObjectCache().Clear();
  newFileNames.Insert(fileName, name);
  newOpenRecords.Insert(name, OpenRecord{1, readOnly});
  if (publishes) {
    transporter.Database().Publish();
  }
  databases = newDatabases;
  fileNames = newFileNames;
  openRecords = newOpenRecords;
}

void ddr_Root::CreateDdb(cow_String const& fileName, cow_String const& description) {
  CreateDdb(fileName, description, utl_FileAccess::Create);
}

void ddr_Root::CreateDdb(cow_String const& fileName, cow_String const& description, utl_FileAccess access) {
  Register(MakeFile(fileName, description, access), fileName, false, true);
}

void ddr_Root::CreateSavedDdb(cow_String const& fileName, cow_String const& description,
                              utl_FileAccess access) {
  std::unique_ptr<ddr_Ddb> record = MakeFile(fileName, description, access);
  Write(*record, true);
  Register(std::move(record), fileName, false, true);
}

std::unique_ptr<ddr_Ddb> ddr_Root::MakeFile(cow_String const& fileName, cow_String const& description,
                                            utl_FileAccess access) const {
  if (registrar == nullptr) {
    refuse("Class registrar not initialized", 109);
  }
  cow_String const name = makePersistentName(fileName);
  auto record = std::make_unique<ddr_Ddb>(name, fileName, description);
  rfm_File const file = rfm_File::Open(fileName, access, true);
  record->SetTransporter(new rom_Transporter(registrar.get(), file, databaseName, description,
                                             std::int64_t{record->GetCreationTime()}, -1,
                                             rom_Publishing::Later));
  return record;
}

// Kept on purpose: the flag tells whether any opening so far was read-only, so a writer that is refused
// beside a writer is let through once a reader has come; hosts open files in that order.
cow_String const& ddr_Root::OpenAgain(rfm_File const& file) {
  if (!VerifyCreationDate(file)) {
    refuse("The database has been regenerated since it was first opened. Close the existing database and "
           "reopen using "
           "the new file.",
           169);
  }
  cow_String const& name = GetPersistentName(file.FileName());
  OpenRecord again = *openRecords.ConstFind(name); // Register made it with the file's name
  if (!again.readOnly && !file.ReadOnly()) {
    refuse("Two applications opening the same file for write is not allowed.", 177);
  }
  if (!again.readOnly) {
    again.readOnly = file.ReadOnly();
  }
  ++again.openCount;
  openRecords.Insert(name, again);
  return name;
}

cow_String const& ddr_Root::OpenDdb(rfm_File const& given, cow_String const& persistentName) {
  rfm_File file = given;
  if (registrar == nullptr) {
    refuse("Class registrar not initialized", 161);
  }
  if (IsMember(file.FileName())) {
    return OpenAgain(file);
  }
  std::unique_ptr<rom_Transporter> transporter;
  if (persistentName.IsEmpty()) {
    transporter = std::make_unique<rom_Transporter>(registrar.get(), file, databaseName, -1);
  } else {
    if (utl_UrlParser::IsUrl(file.FileName())) {
      refuse("ERROR: The Network ODB file you are opening\nconflicts with an ODB file that was opened "
             "previously.  "
             "Please close any open ODB files before opening this ODB file.",
             208);
    }
    if (given.ReadOnly()) {
      file = rfm_File::Open(file.FileName(), utl_FileAccess::Write, true);
    }
    transporter = std::make_unique<rom_Transporter>(registrar.get(), file, databaseName, -1);
    {
      rom_MementoWrite memento(*transporter, ddr_Ddb::TypeId(), lastRecordRow(*transporter));
      memento.NeuterString("name", persistentName);
      memento.End();
    }
    if (given.ReadOnly()) {
      transporter.reset();
      file = rfm_File::Open(file.FileName(), utl_FileAccess::Read, true);
      transporter = std::make_unique<rom_Transporter>(registrar.get(), file, databaseName, -1);
    }
  }
  std::unique_ptr<ddr_Ddb> record;
  {
    // From the choice of the row on: a save of others in between would leave scalars of the state before it
    // beside collections of the state after it.
    rfm_ReadScope const oneState(transporter->Database());
    rom_MementoRead const memento(*transporter, ddr_Ddb::TypeId(), lastRecordRow(*transporter),
                                  cls_Uid::Allocate());
    transporter->ObjectCache().Clear();
    omi_Timer timer;
    timer.Start();
    record = std::make_unique<ddr_Ddb>(cls_ReadVisitor(memento));
    if (typ_DebugFlags::GetDebugFlags(moduleComponent) >= 2) {
      pnt_debugPrint() << "ddr_Root::OpenDdb: It took " << timer.GetElapsedTime() << " to read ddb\n";
    }
  }
  record->SetTransporter(transporter.release());
  cow_String const name = record->GetName();
  Register(std::move(record), file.FileName(), given.ReadOnly(), false);
  return databases.ConstGet(name).GetName();
}

void ddr_Root::SaveDdb(cow_String const& persistentName, bool updateModifyTime) {
  Write(databases.Get(persistentName), updateModifyTime);
}

void ddr_Root::Write(ddr_Ddb& record, bool updateModifyTime) {
  FailedSaveGuard guard(record);
  if (!updateModifyTime) {
    record.SetUpdateModifyTime(false);
  }
  rom_Transporter* const transporter = record.GetTransporter();
  if (transporter == nullptr) {
    refuse("The database '" + std::string(record.GetDbId().View()) +
               "' has no file to be saved to; create or open one through the registry.",
           __LINE__);
  }
  if (record.models.IsBound() && !record.models.BelongsTo(transporter->StoreIdentity())) {
    record.models.LetGoOfStore(); // a collection that a host assigned from another file
  }
  rom_MementoWrite memento(*transporter, ddr_Ddb::TypeId(), -1);
  transporter->ObjectCache().Clear();
  cls_WriteVisitor visitor(memento);
  record.DBWrite(visitor);
  record.models.Flush();
  visitor.End();
  guard.Keep();
  transporter->ObjectCache().Clear();
}

void ddr_Root::CloseDdb(cow_String const& persistentName) {
  cow_String const fileName = GetFileName(persistentName);
  if (rom_Transporter* const transporter = databases.ConstGet(persistentName).GetTransporter()) {
    transporter->ObjectCache().Clear();
  }
  ddr_DdbContainer left = databases;
  FileNames leftNames = fileNames;
  leftNames.Remove(fileName);
  left.Remove(cow_String(persistentName)); // the argument may be the record's own
  fileNames = leftNames;
  databases = left;
}
