// ddr_check: says whether a database file is sound.
#pragma once

#include "cow_String.h"
#include "os_Export.h"

#include <string>
#include <vector>

/// How much of a file is looked at.
enum class ddr_CheckDepth {
  Quick, ///< header, class list, the tables it names, the last record and what opening reads with it: all but
         ///< the models
  Deep,  ///< every row, every reference, every collection, every identity, and the pages of the file: O(file)
};

/// What a check says of the file as a whole.
enum class ddr_CheckStatus {
  Sound = 0,
  Damaged = 1,
  CannotTell = 2, ///< the file could not be looked at: it is missing, locked, not readable, newer, of another
                  ///< program, or waits for the recovery of a save that was cut off
};

/// One thing that is wrong.
struct ddr_Finding {
  std::string where;       ///< file, and class and row where they are known
  std::string what;        ///< what is wrong there; no full stop
  std::string consequence; ///< a sentence: what will not work because of it
  std::string remedy;      ///< a sentence: what the user can do
  bool isWarning = false;  ///< whether the file is sound all the same
};

/// The outcome of a check.
struct ddr_CheckResult {
  ddr_CheckStatus status = ddr_CheckStatus::Sound;
  std::vector<ddr_Finding> findings; ///< at most mostFindings
  bool moreFindings = false;         ///< there were more than are listed
  long long rowsChecked = 0;         ///< rows and entries that were looked at
  cow_String persistentName;         ///< as the last record has it; empty when that cannot be read
  static constexpr std::size_t mostFindings = 100;
};

/// Checks a database file without changing a byte of it, in one state of the file even when others write
/// meanwhile. Needs no registry and no registered classes: a file describes itself. Throws std::bad_alloc at
/// most; everything else is a finding. Any thread.
DDR_API ddr_CheckResult ddr_check(cow_String const& fileName, ddr_CheckDepth depth);
