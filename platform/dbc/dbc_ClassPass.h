// dbc_ClassPass: one step over the rows of one class.
#pragma once

#include "dbc_DatabaseConverter.h"
#include "dbc_Schedule.h"
#include "rfm_Database.h"
#include "rfm_Rebuild.h"
#include "rfm_Table.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

class dbc_OutputDatabase;

/// One step over the rows of one class: copies what both layouts have, calls the function that is bound, and
/// notes what is lost.
///
/// Rows of the old file, and rows whose layout changes, go into a new table; rows of the new file that keep
/// their layout are changed where they are, if at all.
class dbc_ClassPass {
public:
  /// Told the number of rows converted so far, every few thousand rows. May throw to stop.
  using Watch = std::function<void(std::int64_t)>;

  /// @param isFirst whether the rows are still those of the old file
  dbc_ClassPass(dbc_DatabaseConverter& runningConverter, rfm_Database& sourceFile, rfm_Database& madeFile,
                rfm_Rebuild& rebuilding, dbc_Task const& toDo, bool isFirst);
  void Run(std::int64_t rows, Watch const& watch);

private:
  /// An attribute with the fields that hold it.
  struct Attribute {
    std::string name;
    int kind = 0;
    std::vector<rfm_FieldHandle> fields;
  };

  /// Why an attribute of a row is lost.
  enum class Loss { Half, NoPlace, OtherValue, OtherTarget };
  static constexpr std::size_t losses = 4;
  /// An attribute that is looked after, whatever the layouts say of it.
  struct Watched {
    Attribute attribute;      // the fields are those that the rows have
    bool isWhole = false;     // they have all of them
    bool hasPlace = false;    // where the rows go
    std::size_t namesake = 0; // the first one of its name
    int lostIn = -1;          // the last row in which one of its name was lost; kept with the first
    std::array<std::optional<std::size_t>, losses> notes; // their places in the report
  };

  void Prepare();
  void FindShared();
  void FindWatched(std::vector<cow_String> const& columns);
  void ConvertRows(std::int64_t rows, Watch const& watch);
  void ConvertRow();
  void CopyShared(rfm_Row const& from, rfm_Row& to) const;
  void DropHalves(rfm_Row const& from, dbc_Row& to);
  void NoteLosses(rfm_Row const& from, rfm_Row const& to);
  std::optional<Loss> LossOf(Watched const& one, rfm_Row const& from, rfm_Row const& to) const;
  bool LosesTarget(rfm_Row const& from, rfm_Row const& to, Attribute const& reference) const;
  void Finalize();

  dbc_DatabaseConverter& converter;
  rfm_Database& source;
  rfm_Database& made;
  rfm_Rebuild& rebuild;
  dbc_Task const& task;
  bool first;
  bool inPlace = false;
  bool hasRows = false;
  std::vector<Attribute> shared; // in both layouts
  std::vector<Watched> watched;  // in the rows that are read
  std::optional<rfm_Table> input;
  std::optional<rfm_Table> output;
};
