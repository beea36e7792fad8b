// rfm_Journal: whether a journal can be that of the file beside it.
#pragma once

#include <cstdint>
#include <string>

/// The first bytes of a database file, and its length.
struct rfm_FileState {
  unsigned char const* header = nullptr; ///< [rfm_FileState::headerSize byte]
  std::int64_t size = 0;                 ///< [byte]
  static constexpr int headerSize = 100; ///< fixed by SQLite's file format
};

/// What a look at a journal gave.
struct rfm_JournalVerdict {
  bool isForeign = false; ///< no save to this file can have left it, whatever cut that save off
  int errorNumber = 0;    ///< why it could not be read; 0: it could, or there is none
};

/// Looks at the journal of a save that was cut off, before SQLite plays it back. SQLite asks for no proof:
/// the journal of another file, or of another state of this one, would put pages of that one into this one,
/// and cut it off or draw it out to the length of that one.
///
/// Nobody may be saving to the file meanwhile.
/// @param path of the journal; nothing has to be there
rfm_JournalVerdict rfm_judgeJournal(std::string const& path, rfm_FileState const& file);
