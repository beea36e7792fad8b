// rfm_Exception: what went wrong with a database file, in words for the person at the keyboard.
#pragma once

#include "nex_Exception.h"
#include "os_Export.h"

#include <string>

/// What kind of trouble it is, for callers that answer differently.
enum class rfm_ErrorKind {
  Missing,      ///< nothing stands under the name, or its folder is missing
  IsDirectory,  ///< a folder stands there
  Empty,        ///< a file without any content
  NotADatabase, ///< some other file
  OtherProgram, ///< a database of another program
  Newer,        ///< written in a later format than this one knows
  Damaged,      ///< ours, but its content contradicts itself
  NoPermission, ///< the user may not read, or not write
  ReadOnly,     ///< opened for reading only, or the medium is
  Full,         ///< no space left, or the device failed while writing
  Locked,       ///< another process or handle holds it
  Moved,        ///< renamed, replaced or deleted since it was opened
  Interrupted,  ///< a save was cut off; opening for writing recovers the file
  Other,        ///< anything else: name not usable, out of memory, misuse of a row
};

/// A failure of a database file. The text says what happened, names the file (and the class, the row and the
/// field where they are known), and ends with what the user can do.
class DDR_API rfm_Exception : public nex_TextException {
public:
  rfm_Exception(rfm_ErrorKind kind, std::string const& text);
  rfm_Exception(rfm_Exception const&) noexcept = default;
  rfm_Exception& operator=(rfm_Exception const&) noexcept = default;
  ~rfm_Exception() override;

  /// The kind of trouble.
  rfm_ErrorKind Kind() const noexcept { return errorKind; }

private:
  rfm_ErrorKind errorKind;
};
