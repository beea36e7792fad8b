// rfm_Exception: what went wrong with a database file, in words for the person at the keyboard.
#pragma once

#include "nex_Exception.h"
#include "os_Export.h"

#include <memory>
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
  Other,        ///< anything else: name not usable, misuse of a row
};

/// A failure of a database file. Memory that runs out is none: that is std::bad_alloc, in SQLite's code as in
/// ours. The text says what happened, names the file (and the class, the row and the
/// field where they are known), and ends with what the user can do.
class DDR_API rfm_Exception : public nex_TextException {
public:
  /// @param kind the kind of trouble
  /// @param where the file, and the class, row and field where they are known
  /// @param what what happened there, without a full stop
  /// @param advice what the user can do, without a full stop
  rfm_Exception(rfm_ErrorKind kind, std::string const& where, std::string const& what,
                std::string const& advice);
  rfm_Exception(rfm_Exception const&) noexcept = default;
  rfm_Exception& operator=(rfm_Exception const&) noexcept = default;
  ~rfm_Exception() override;

  /// The kind of trouble.
  rfm_ErrorKind Kind() const noexcept { return errorKind; }
  /// @{ The pieces that the text is made of: "WHERE: WHAT. ADVICE."
  std::string const& Where() const noexcept { return pieces->where; }
  std::string const& What() const noexcept { return pieces->what; }
  std::string const& Advice() const noexcept { return pieces->advice; }
  /// @}

private:
  struct Pieces {
    std::string where;
    std::string what;
    std::string advice;
  };

  std::shared_ptr<Pieces const> pieces; // shared, so that copying cannot fail
  rfm_ErrorKind errorKind;
};
