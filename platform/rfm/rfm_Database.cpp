// rfm_Database.cpp: the public handle of a database.
#include "rfm_Database.h"

#include "rfm_DatabaseNode.h"
#include "rfm_Exception.h"

#include <limits>

rfm_Database::rfm_Database(std::shared_ptr<rfm_DatabaseNode> database) noexcept : node(std::move(database)) {}

rfm_Database rfm_Database::Open(rfm_File const& file, cow_String const& name) {
  auto opened = std::make_shared<rfm_DatabaseNode>(file);
  opened->ReadHeader(name);
  return rfm_Database(std::move(opened));
}

rfm_Database rfm_Database::Create(rfm_File const& file, cow_String const& name, cow_String const& description,
                                  std::int64_t creationTime) {
  auto created = std::make_shared<rfm_DatabaseNode>(file);
  created->MakeTables(name, description, creationTime);
  return rfm_Database(std::move(created));
}

void rfm_Database::Publish() {
  node->Publish();
}

void rfm_Database::Bind() {
  node->Bind();
}

std::int64_t rfm_Database::GetCreationTime(rfm_File const& file) {
  try {
    rfm_FileNode& opened = rfm_FileNode::Of(file);
    rfm_ScopeGuard const scope(opened.Connection());
    rfm_Run run(opened.Connection(), opened.creationTimeStatement,
                std::string_view("SELECT creation_time FROM ddr_header WHERE name = 'D0'"));
    if (run.Step() && sqlite3_column_type(run.Get(), 0) == SQLITE_INTEGER) {
      return sqlite3_column_int64(run.Get(), 0);
    }
  } catch (rfm_Exception const&) {
    return 0; // callers take a file that cannot be read for one of unknown age
  }
  return 0;
}

cow_String const& rfm_Database::FileName() const noexcept {
  return node->FileName();
}

cow_String const& rfm_Database::OriginName() const noexcept {
  return node->OriginName();
}

cow_String const& rfm_Database::Description() const noexcept {
  return node->description;
}

std::int64_t rfm_Database::CreationTime() const noexcept {
  return node->creationTime;
}

rfm_File const& rfm_Database::File() const noexcept {
  return node->File();
}

std::vector<rfm_ClassEntry> const& rfm_Database::Classes() const noexcept {
  return node->classes;
}

std::uint64_t rfm_Database::ClassListVersion() const noexcept {
  return node->classesVersion;
}

rfm_ClassEntry const* rfm_Database::FindClass(unsigned typeId) const noexcept {
  return node->FindClass(typeId);
}

rfm_ClassEntry const* rfm_Database::FindClassByName(std::string_view name) const noexcept {
  return node->FindClassByName(name);
}

rfm_ClassEntry const& rfm_Database::AddClass(rfm_ClassEntry const& description) {
  return node->AddClass(description);
}

rfm_Table rfm_Database::ClassList() const {
  return node->ClassList();
}

rfm_Table rfm_Database::Table(unsigned typeId) const {
  return node->Table(typeId);
}

rfm_Table rfm_Database::TableOfHandle(std::int64_t classTable) const {
  bool const isTypeId = classTable > 0 && classTable <= std::numeric_limits<unsigned>::max();
  return node->Table(isTypeId ? static_cast<unsigned>(classTable) : 0U);
}

rfm_Table rfm_Database::TableForWriting(unsigned typeId) {
  return node->TableForWriting(typeId);
}

rfm_Entries& rfm_Database::Entries() const noexcept {
  return node->entries;
}

std::int64_t rfm_Database::NewHandle() {
  return node->NewHandle();
}

std::uint32_t rfm_Database::CommitCount() const {
  return node->CommitCount();
}

std::uint32_t rfm_Database::ForeignCommits() const {
  return node->ForeignCommits();
}

std::uint64_t rfm_Database::ChangeCount() const {
  return node->ChangeCount();
}
