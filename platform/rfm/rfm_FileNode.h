// rfm_FileNode: the state behind the handles of one opened file.
#pragma once

#include "rfm_Connection.h"
#include "rfm_File.h"
#include "rfm_Statement.h"
#include "rfm_SystemError.h"

#include <memory>
#include <string>
#include <sys/types.h>

/// One opening of a file: its connection, and for a file that is being created the place where it grows.
class rfm_FileNode {
public:
  rfm_FileNode(cow_String const& name, utl_FileAccess access);
  ~rfm_FileNode();
  rfm_FileNode(rfm_FileNode const&) = delete;
  rfm_FileNode& operator=(rfm_FileNode const&) = delete;

  static rfm_FileNode& Of(rfm_File const& file) noexcept { return *file.node; }
  static std::shared_ptr<rfm_FileNode> const& Share(rfm_File const& file) noexcept { return file.node; }

  cow_String const& Name() const noexcept { return name; }
  utl_FileAccess Access() const noexcept { return access; }
  /// Created and not yet published.
  bool IsUnpublished() const noexcept { return !growing.empty(); }
  rfm_Connection& Connection() noexcept { return connection; }
  /// See rfm_Database::Publish.
  void Publish();

  rfm_Statement creationTimeStatement; ///< of rfm_Database::GetCreationTime

private:
  void CheckName() const;
  void OpenExisting();
  void BeginCreating();
  void RemoveLeftovers() const;
  void DeleteGrowing() const noexcept;
  void RemoveStrayJournals();
  bool OpenWhatStands(rfm_Connection& standing) const;
  bool LockWhatStands(rfm_Connection& standing) const;
  bool TakeName(bool replaces) const;
  bool MoveToName(bool replaces) const;
  [[noreturn]] void RefuseToReplace() const;
  [[noreturn]] void Refuse(rfm_ErrorKind kind, std::string_view what, std::string_view advice) const;
  [[noreturn]] void RefuseForErrno(int number, bool folder) const;
  [[noreturn]] void RefuseUnlocked(int number) const;
  [[noreturn]] void RefuseUnsynced(rfm_SystemError const& error, std::string_view state,
                                   char const* next) const;
  [[noreturn]] void RefuseVanished();
  std::string Folder() const;

  cow_String name;
  utl_FileAccess access;
  std::string path;                // absolute, links resolved
  std::string growing;             // where an unpublished file stands; empty otherwise
  unsigned creation = 0;           // its number in that name
  pid_t creator = 0;               // the process that removes it
  bool journalMayComeBack = false; // the removal of a stray one is not synced
  rfm_Connection connection;
};
