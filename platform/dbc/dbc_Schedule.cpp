#include "dbc_Schedule.h"

#include "cls_MetadataRegistrar.h"
#include "dbc_OldClassRegistrar.h"
#include "nex_Exception.h"
#include "rfm_Exception.h"
#include "rfm_Rebuild.h"
#include "utl_Utf8.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <string>

rfm_ClassEntry dbc_storedClass(cls_ClassMetadata const& metadata) {
  rfm_ClassEntry entry;
  entry.name = metadata.Name();
  entry.typeId = metadata.TypeId();
  entry.version = metadata.Version();
  entry.baseTypeId = metadata.BaseTypeId();
  for (cls_AttributeMetadata const& attribute : metadata.Attributes()) {
    entry.attributes.push_back({attribute.name, static_cast<int>(attribute.kind), attribute.elementTypeId,
                                static_cast<int>(attribute.collection)});
  }
  return entry;
}

void dbc_throwNoClass(rfm_Database const& database, unsigned typeId) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%#x", typeId);
  nex_Exception::Throw(
      rfm_Exception(rfm_ErrorKind::Damaged,
                    "Database file '" + utl_Printable(database.OriginName().View()) + "'",
                    std::string("class ") + text.data() + ", which others refer to, is not in its class list",
                    "Restore it from a backup"),
      "platform/dbc/dbc_Schedule", __LINE__);
}

dbc_Schedule::dbc_Schedule()
    : current(omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar()) {
  for (dbc_OldClassRegistrar::Registered const& registered :
       omi_Singleton<dbc_OldClassRegistrar>::Instance().Versions()) {
    dbc_OldClassVersion const* const version = registered.holder ? registered.holder->Peek() : nullptr;
    if (!version) {
      continue;
    }
    dbc_DatabaseConverter declared;
    version->SchemaChanges(declared);
    cls_ClassRegistrar layouts;
    version->DefineClassMetadata(layouts);
    for (auto const& [number, step] : declared.Converters()) {
      for (dbc_ClassConverter const& converted : step.Classes()) {
        cls_ClassMetadata const* const layout = layouts.Find(converted.TypeId());
        if (layout && layout->Version() == converted.OldVersion()) {
          olderLayouts[converted.TypeId()].insert_or_assign(layout->Version(), dbc_storedClass(*layout));
        }
      }
    }
    version->SchemaChanges(converter);
    version->ClassesToDelete(converter);
    version->ClassesToRename(converter);
    version->TablesToRename(converter);
  }
}

void dbc_Schedule::RefuseVersion(rfm_Database const& file, rfm_ClassEntry const& stored, Layouts const& older,
                                 int newest) const {
  std::string const where = "Database file '" + utl_Printable(file.FileName().View()) + "', class '" +
                            utl_PrintableStart(stored.name.View()) + "'";
  if (stored.version > newest) {
    nex_Exception::Throw(rfm_Exception(rfm_ErrorKind::Newer, where,
                                       "it has the version " + std::to_string(stored.version) +
                                           ", this program knows those up to " + std::to_string(newest),
                                       "Use the newer program that wrote it"),
                         "platform/dbc/dbc_Schedule", __LINE__);
  }
  std::string known;
  for (auto const& [version, layout] : older) {
    known += std::to_string(version) + ", ";
  }
  nex_Exception::Throw(rfm_Exception(rfm_ErrorKind::Other, where,
                                     "it has the version " + std::to_string(stored.version) +
                                         ", this program converts " + known + "and knows " +
                                         std::to_string(newest),
                                     "Convert it first with a release that knows this version"),
                       "platform/dbc/dbc_Schedule", __LINE__);
}

std::vector<dbc_Task> dbc_Schedule::TasksFor(rfm_Database const& file) const {
  std::vector<dbc_Task> tasks;
  std::map<unsigned, int> versions; // of the classes that are known, as the steps go on
  static Layouts const none;
  auto const olderOf = [&](unsigned typeId) -> Layouts const& {
    auto const found = olderLayouts.find(typeId);
    return found == olderLayouts.end() ? none : found->second;
  };
  for (rfm_ClassEntry const& stored : file.Classes()) {
    cls_ClassMetadata const* const known = current->Find(stored.typeId);
    if (!known) {
      continue;
    }
    Layouts const& older = olderOf(stored.typeId);
    if (stored.version != known->Version() && older.count(stored.version) == 0) {
      RefuseVersion(file, stored, older, known->Version());
    }
    versions[stored.typeId] = stored.version;
  }
  for (auto const& [number, step] : converter.Converters()) {
    for (dbc_ClassConverter const& bound : step.Classes()) {
      auto const stored = versions.find(bound.TypeId());
      if (stored == versions.end() || stored->second != bound.OldVersion()) {
        continue;
      }
      Layouts const& older = olderOf(bound.TypeId());
      auto const before = older.find(bound.OldVersion());
      cls_ClassMetadata const& newest = *current->Find(bound.TypeId());
      if (before == older.end() || bound.OldVersion() == newest.Version()) {
        continue;
      }
      auto const next = std::next(before);
      dbc_Task task{number, &bound, before->second,
                    next == older.end() ? dbc_storedClass(newest) : next->second, false};
      stored->second = task.after.version;
      tasks.push_back(std::move(task));
    }
  }
  for (rfm_ClassEntry const& stored : file.Classes()) {
    auto const reached = versions.find(stored.typeId);
    if (reached != versions.end() && reached->second != current->Find(stored.typeId)->Version()) {
      RefuseVersion(file, stored, olderOf(stored.typeId), current->Find(stored.typeId)->Version());
    }
  }
  for (auto task = tasks.begin(); task != tasks.end(); ++task) {
    task->isMovedOn = std::any_of(std::next(task), tasks.end(), [&](dbc_Task const& later) {
      return later.before.typeId == task->before.typeId && !later.KeepsFields();
    });
  }
  return tasks;
}

dbc_ConversionReport dbc_Schedule::Plan(rfm_Database const& file, std::vector<dbc_Task> const& tasks) const {
  dbc_ConversionReport report;
  report.alreadyCurrent = tasks.empty();
  for (rfm_ClassEntry const& stored : file.Classes()) {
    dbc_ClassReport planned;
    planned.name = stored.name;
    planned.typeId = stored.typeId;
    planned.versionIn = planned.versionOut = stored.version;
    planned.known = current->Find(stored.typeId) != nullptr;
    planned.rowsIn = rfm_Rebuild::CountRows(file, stored.typeId);
    for (dbc_Task const& task : tasks) {
      if (task.before.typeId == stored.typeId) {
        planned.steps.push_back({task.step, task.before.version, task.after.version, planned.rowsIn});
        planned.versionOut = task.after.version;
      }
    }
    report.classes.push_back(std::move(planned));
  }
  report.entriesIn = rfm_Rebuild::CountEntries(file);
  report.leftBehind = rfm_Rebuild::FurtherThings(file);
  return report;
}
