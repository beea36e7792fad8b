// dbc_Conversion: an old database file becomes a current one.
#pragma once

#include "cow_String.h"
#include "nex_Exception.h"
#include "os_Export.h"
#include "utl_FileAccess.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// One step that a class passes: its rows get the layout of the next version.
struct dbc_StepEntry {
  int step = 0;          ///< number of the step; steps run in ascending number
  int versionBefore = 0; ///< class version of the rows that go in
  int versionAfter = 0;  ///< class version of the rows that come out
  std::int64_t rows = 0; ///< rows that pass the step [rows]
};

/// Something that a conversion did to one field, counted over all rows it was done to.
struct dbc_Note {
  enum class Kind {
    Supplied, ///< the old row lacked a value, or held one that is replaced by rule: `text` says what it got
    Dropped,  ///< the old row had a value that the new one has not: `text` says why
    Carried,  ///< worth knowing, though nothing is missing: `text` says what
  };
  Kind kind = Kind::Carried;
  int step = 0;          ///< the step that did it; 0: none
  std::string field;     ///< stored name of the attribute; empty for the row as a whole
  std::string text;      ///< a phrase for the user, without a full stop
  std::int64_t rows = 0; ///< how many rows [rows]

  friend bool operator==(dbc_Note const&, dbc_Note const&) = default;
};

/// What becomes, or became, of one stored class.
struct dbc_ClassReport {
  cow_String name;          ///< stored class name; in a file it is any UTF-8 text
  unsigned typeId = 0;      ///< its type id
  int versionIn = 0;        ///< class version in the old file; 0 when the conversion added the class
  int versionOut = 0;       ///< class version in the new file
  bool known = false;       ///< whether a module of this process describes the class; others are carried
  std::int64_t rowsIn = 0;  ///< rows in the old file [rows]
  std::int64_t rowsOut = 0; ///< rows in the new file [rows]; 0 in a plan
  std::vector<dbc_StepEntry> steps; ///< in the order in which they run; empty for a class that is carried
  std::vector<dbc_Note> notes;      ///< in the order in which they first happened; empty in a plan
};

/// What a conversion does, or has done, class by class.
struct dbc_ConversionReport {
  bool alreadyCurrent = false; ///< no class needs a step: nothing was copied, there is no output file
  std::vector<dbc_ClassReport> classes; ///< in the order of the class list; classes added come last
  std::int64_t entriesIn = 0;           ///< entries of all collections in the old file
  std::int64_t entriesOut = 0;          ///< entries of all collections in the new file; 0 in a plan
  /// What is not carried, because it is not part of the stored format and cannot be copied: "view 'NAME'".
  /// Tables beside the format are carried with their row numbers and indexes.
  std::vector<std::string> leftBehind;
};

/// Where a conversion is.
struct dbc_Progress {
  enum class Phase {
    Copying,    ///< tables and entries that need no step
    Converting, ///< one step over one class
    Finishing,  ///< indexes, and the way of everything to the device
  };
  Phase phase = Phase::Copying;
  int step = 0;           ///< while converting: the number of the step; 0 otherwise
  cow_String className;   ///< while converting: the class; while copying: the class, or empty for entries
  std::int64_t done = 0;  ///< rows dealt with in this phase, over all classes and steps [rows]
  std::int64_t total = 0; ///< rows that the phase has [rows]
};

/// Asked every few thousand rows, at the beginning and at the end of each phase, and between classes.
/// @returns whether to go on; false cancels the conversion
using dbc_ProgressCallback = std::function<bool(dbc_Progress const&)>;

/// The conversion was stopped by the answer of its progress callback. Nothing is left behind.
class DDR_API dbc_CancelledException : public nex_TextException {
public:
  dbc_CancelledException();
  dbc_CancelledException(dbc_CancelledException const&) noexcept = default;
  dbc_CancelledException& operator=(dbc_CancelledException const&) noexcept = default;
  ~dbc_CancelledException() override;
};

/// Conversion of whole files. The modules whose classes are stored must be up: they register the current
/// layouts (cls_MetadataRegistrar) and the older ones with their steps (dbc_OldClassRegistrar).
///
/// Steps run in ascending number. A step acts on a class that has, by then, the old version that is bound to
/// it; the class has its next registered version afterwards, or the current one after the last. Everything
/// else is carried as it is stored: classes that no module knows, collections, row numbers, identities, the
/// description and the creation time. Memory does not grow with the file.
///
/// A class that a module of this process knows and whose stored version is neither current nor one of its
/// older ones makes every call fail (rfm_Exception naming file, class and version).
///
/// One conversion at a time in a process: a second one throws nex_TextException. Conversions run on the
/// thread that asks.
class DDR_API dbc_Conversion {
public:
  dbc_Conversion() = delete;

  /// Reads what a conversion would do, without doing it: steps and row counts. Costs a walk over the pages of
  /// the file.
  /// @param input name of a database file, in UTF-8
  /// @throws rfm_Exception when the file cannot be read
  static dbc_ConversionReport Plan(cow_String const& input);

  /// Converts a file.
  ///
  /// The input is opened for reading and never changed; others cannot save to it meanwhile. The output grows
  /// under a temporary name beside its own and takes its name when it is complete and safe from a power cut,
  /// in place of a database of ours that stands there. After a failure, a cancel included, the output name is
  /// as it was before and no temporary file is there; one that a killed process left is removed by the next
  /// conversion to the same name.
  /// @param input name of a database file, in UTF-8
  /// @param output name of the file to be made, in UTF-8; its folder must be there
  /// @param progress asked as the work goes on; empty: nobody is asked
  /// @param access utl_FileAccess::Create, or utl_FileAccess::CreateNew, which replaces nothing, however late
  /// it appears under the output name
  /// @returns what was done; with `alreadyCurrent` nothing was copied and there is no output
  /// @throws dbc_CancelledException when `progress` said so
  /// @throws rfm_Exception naming the file, the class and the row: a damaged or unreadable input, an output
  /// that is the input, is in use or is not a database of ours, a full device
  /// @throws nex_Exception or whatever else a conversion function or `progress` throws
  static dbc_ConversionReport Run(cow_String const& input, cow_String const& output,
                                  dbc_ProgressCallback const& progress = {},
                                  utl_FileAccess access = utl_FileAccess::Create);
};
