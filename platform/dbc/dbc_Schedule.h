// dbc_Schedule: which steps a file needs.
#pragma once

#include "cls_ClassRegistrar.h"
#include "dbc_Conversion.h"
#include "dbc_DatabaseConverter.h"
#include "rfm_ClassEntry.h"
#include "rfm_Database.h"

#include <map>
#include <memory>
#include <vector>

/// A class as the class list of a file describes it; without row and table.
rfm_ClassEntry dbc_storedClass(cls_ClassMetadata const& metadata);
/// Throws: a class is not in the class list of a file.
[[noreturn]] void dbc_throwNoClass(rfm_Database const& database, unsigned typeId);

/// One step over one class.
struct dbc_Task {
  int step = 0;
  dbc_ClassConverter const* bound = nullptr;
  rfm_ClassEntry before;
  rfm_ClassEntry after;
  bool isMovedOn = false; ///< whether a later step gives the rows another layout

  /// Whether the rows keep their layout.
  bool KeepsFields() const {
    return before.baseTypeId == after.baseTypeId && before.attributes == after.attributes;
  }
};

/// The layouts and steps that the loaded modules registered.
class dbc_Schedule {
public:
  /// Asks the modules.
  dbc_Schedule();
  dbc_Schedule(dbc_Schedule const&) = delete;
  dbc_Schedule& operator=(dbc_Schedule const&) = delete;

  cls_ClassRegistrar const& Current() const noexcept { return *current; }
  dbc_DatabaseConverter& Converter() noexcept { return converter; }
  /// The tasks that make a file current, in the order in which they run.
  /// @throws rfm_Exception for a class whose version leads nowhere
  std::vector<dbc_Task> TasksFor(rfm_Database const& file) const;
  /// The report of a file before anything is done: classes, rows in and steps.
  dbc_ConversionReport Plan(rfm_Database const& file, std::vector<dbc_Task> const& tasks) const;

private:
  using Layouts = std::map<int, rfm_ClassEntry>; // by version

  [[noreturn]] void RefuseVersion(rfm_Database const& file, rfm_ClassEntry const& stored,
                                  Layouts const& older, int newest) const;

  std::unique_ptr<cls_ClassRegistrar> current;
  std::map<unsigned, Layouts> olderLayouts;
  dbc_DatabaseConverter converter;
};
