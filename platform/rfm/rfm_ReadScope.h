// rfm_ReadScope: several reads that see one state of the file.
#pragma once

#include "os_Export.h"

#include <memory>

class rfm_Database;
class rfm_FileNode;

/// While one lives, every read sees the same state of the file, whatever other processes save meanwhile, and
/// costs a third of what it costs alone. Others can begin a save, but finish it only when the scope has
/// ended: keep scopes short.
///
/// Scopes nest; the outermost one counts. Inside a transaction a scope changes nothing. A transaction that
/// begins inside a scope ends the state that the scope saw, and the scope goes on with the state after it.
class DDR_API rfm_ReadScope {
public:
  /// Begins to read.
  /// @throws rfm_Exception when the file is locked or can no longer be read
  explicit rfm_ReadScope(rfm_Database const& database);
  /// Ends reading and takes back the positions of running scans. Never throws.
  ~rfm_ReadScope();
  rfm_ReadScope(rfm_ReadScope const&) = delete;
  rfm_ReadScope& operator=(rfm_ReadScope const&) = delete;

private:
  std::shared_ptr<rfm_FileNode> file;
};
