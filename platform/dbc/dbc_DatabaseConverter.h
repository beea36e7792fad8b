// dbc_DatabaseConverter: the steps of a conversion, and the conversion under way.
#pragma once

#include "cow_String.h"
#include "dbc_ClassView.h"
#include "dbc_Conversion.h"
#include "dbc_Converter.h"
#include "os_Export.h"

#include <cstddef>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <tuple>

class dbc_InputDatabase;
class dbc_OutputDatabase;

/// All steps that the loaded modules declare; while a conversion runs, also the way to its two databases.
///
/// Conversion functions reach the one in progress through dbc_DatabaseConverterHolder. They tell it what they
/// supply and drop, for the report: a note is counted under the step, the field and the text, so the text is
/// a fixed phrase. What the old row had set and the new one has not is noted by the library itself unless the
/// function does.
class DDR_API dbc_DatabaseConverter {
public:
  dbc_DatabaseConverter() = default;
  dbc_DatabaseConverter(dbc_DatabaseConverter const&) = delete;
  dbc_DatabaseConverter& operator=(dbc_DatabaseConverter const&) = delete;
  ~dbc_DatabaseConverter();

  /// The step of a number, made when it is first asked for.
  dbc_Converter& GetConverter(int step);
  /// By number.
  std::map<int, dbc_Converter> const& Converters() const noexcept { return converters; }

  /// @{ The state before the step under way, and the state that it makes.
  /// @throws nex_AssertException when no conversion is running
  dbc_InputDatabase& InputDatabase() const;
  dbc_OutputDatabase& OutputDatabase() const;
  /// @}

  /// The rows of a table as those of a named class. A class that had to be stored without knowing its name
  /// gets this one.
  /// @param className stored name
  /// @param table borrowed by the view
  /// @param version class version to see it at; kept with the view
  /// @param first 0; kept with the view
  /// @param last -1; kept with the view
  /// @returns the view, which the caller owns
  std::unique_ptr<dbc_ClassView> ClassView(cow_String const& className, dbc_Table& table, int version,
                                           int first, int last);

  /// Number of the step under way; 0 when none is.
  int Step() const noexcept { return step; }

  /// What the conversion function of the step under way keeps from row to row. Null at the first row; let go
  /// when the step over the class has ended, by a failure too.
  std::shared_ptr<void>& Kept() noexcept { return kept; }

  /// @{ Notes for the report, about the row under way.
  /// @param field stored name of the attribute; empty for the row as a whole
  /// @param text a fixed phrase without a full stop: what the field got; why a value is gone; what is carried
  void Supplied(std::string_view field, std::string_view text);
  void Dropped(std::string_view field, std::string_view text);
  void Carried(std::string_view field, std::string_view text);
  /// @}

private:
  friend class dbc_ClassPass;
  friend class dbc_Run;

  /// Kind, step, field and text of a note.
  using NoteName = std::tuple<dbc_Note::Kind, int, std::string_view, std::string_view>;
  struct NoteOrder {
    using is_transparent = void;
    bool operator()(NoteName const& left, NoteName const& right) const noexcept { return left < right; }
  };

  /// Notes are counted in this report from now on; in none: null.
  void NoteIn(dbc_ClassReport* reported);
  void Note(dbc_Note::Kind kind, std::string_view field, std::string_view text);
  /// Where the report, which there must be, has a note; one that it has not gets its place now, for no rows.
  std::size_t PlaceOfNote(dbc_Note::Kind kind, std::string_view field, std::string_view text);

  std::map<int, dbc_Converter> converters;
  dbc_InputDatabase* input = nullptr;
  dbc_OutputDatabase* output = nullptr;
  dbc_ClassReport* report = nullptr; // of the class that is converted
  std::map<std::tuple<dbc_Note::Kind, int, std::string, std::string>, std::size_t, NoteOrder> notePlaces;
  std::shared_ptr<void> kept;
  int step = 0;
  std::set<std::string, std::less<>> dropped; // fields of the row under way that are known to be dropped
};
