// rfm_File: one open database file.
#pragma once

#include "cow_String.h"
#include "os_Export.h"
#include "rfm_Statistics.h"
#include "utl_FileAccess.h"

#include <memory>

class rfm_FileNode;

/// A counted handle of an open database file. Copies share the file; the last one closes it.
///
/// A file that was opened serves one thread at a time. Open the same name twice to have two independent views
/// of it: each sees what the other has saved. A file that is replaced, renamed or deleted while it is open
/// can still be read as it was; writing to it is refused.
///
/// Failures are rfm_Exception. A refused file is left byte for byte as it was.
class DDR_API rfm_File {
public:
  /// Opens a file.
  ///
  /// Read never writes a byte and works on media that cannot be written. Write wants an existing file that
  /// can be written, and recovers it when an earlier save was cut off. Create begins a new file: it grows
  /// beside the name and takes the name with rfm_Database::Publish. Create refuses a name under which
  /// anything but a database of ours stands; CreateNew one under which anything stands, then too when it
  /// appears only before Publish.
  /// @param name path of the file, in UTF-8
  /// @param access what will be done with it
  /// @param shared whether others may use the file meanwhile; files are always shared, transaction by
  /// transaction
  /// @throws rfm_Exception naming the file and the reason; nothing is left behind
  static rfm_File Open(cow_String const& name, utl_FileAccess access, bool shared);

  /// The name as it was given to Open.
  cow_String const& FileName() const noexcept;
  /// Whether it was opened for reading only.
  bool ReadOnly() const noexcept;
  /// As given to Open.
  utl_FileAccess Access() const noexcept;
  /// How long the file is [byte]; 0 when the device does not tell.
  std::uint64_t Size() const noexcept;
  /// What the file has done since it was opened.
  rfm_Statistics const& Statistics() const noexcept;

  /// Whether both are handles of the same opening.
  friend bool operator==(rfm_File const& left, rfm_File const& right) noexcept {
    return left.node == right.node;
  }

private:
  friend class rfm_FileNode;
  explicit rfm_File(std::shared_ptr<rfm_FileNode> openFile) noexcept;

  std::shared_ptr<rfm_FileNode> node;
};
