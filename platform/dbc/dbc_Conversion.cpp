#include "dbc_Conversion.h"

#include "dbc_ClassPass.h"
#include "dbc_DatabaseConverterHolder.h"
#include "dbc_InputDatabase.h"
#include "dbc_OutputDatabase.h"
#include "dbc_Schedule.h"
#include "rfm_Database.h"
#include "rfm_File.h"
#include "rfm_ReadScope.h"
#include "rfm_Rebuild.h"
#include "rfm_Transaction.h"
#include "rom_Transporter.h"

#include <algorithm>
#include <set>

namespace {

constexpr char const* databaseName = "D0";

rfm_Database openInput(cow_String const& input) {
  return rfm_Database::Open(rfm_File::Open(input, utl_FileAccess::Read, true), databaseName);
}

} // namespace

dbc_CancelledException::dbc_CancelledException()
    : nex_TextException("The conversion was cancelled; nothing was changed.") {}

dbc_CancelledException::~dbc_CancelledException() = default;

/// One conversion of one file.
class dbc_Run {
public:
  dbc_Run(rfm_Database const& oldFile, dbc_Schedule& knownSchedule, std::vector<dbc_Task> const& toDo,
          dbc_ConversionReport& filled, dbc_ProgressCallback const& asked)
      : source(oldFile), schedule(knownSchedule), tasks(toDo), report(filled), progress(asked) {}

  void Into(cow_String const& name, utl_FileAccess access);

private:
  /// The converter in progress, while one lives.
  class InProgress {
  public:
    explicit InProgress(dbc_DatabaseConverter& held) : converter(held) {
      omi_Singleton<dbc_DatabaseConverterHolder>::Instance().Hold(converter);
    }
    ~InProgress() {
      converter.input = nullptr;
      converter.output = nullptr;
      converter.kept.reset();
      converter.NoteIn(nullptr);
      omi_Singleton<dbc_DatabaseConverterHolder>::Instance().Release();
    }
    InProgress(InProgress const&) = delete;
    InProgress& operator=(InProgress const&) = delete;

  private:
    dbc_DatabaseConverter& converter;
  };

  void Ask(dbc_Progress::Phase phase, int step, cow_String const& className, std::int64_t done,
           std::int64_t total) const;
  bool IsConverted(unsigned typeId) const;
  void ListClasses(rfm_Database& made) const;
  void Carry(rfm_Rebuild& rebuild);
  void Convert(rfm_Database& made, rfm_Rebuild& rebuild);
  void Finish(rfm_Transaction& transaction, rfm_Rebuild& rebuild);
  void CompleteReport(rfm_Database const& made, dbc_OutputDatabase const& output);
  dbc_ClassReport& ReportOf(unsigned typeId);

  rfm_Database source;
  dbc_Schedule& schedule;
  std::vector<dbc_Task> const& tasks;
  dbc_ConversionReport& report;
  dbc_ProgressCallback const& progress;
};

void dbc_Run::Ask(dbc_Progress::Phase phase, int step, cow_String const& className, std::int64_t done,
                  std::int64_t total) const {
  if (progress && !progress({phase, step, className, done, total})) {
    nex_Exception::Throw(dbc_CancelledException(), "platform/dbc/dbc_Conversion", __LINE__);
  }
}

bool dbc_Run::IsConverted(unsigned typeId) const {
  return std::any_of(tasks.begin(), tasks.end(),
                     [&](dbc_Task const& task) { return task.before.typeId == typeId; });
}

// The report names the classes of the old file as that lists them.
dbc_ClassReport& dbc_Run::ReportOf(unsigned typeId) {
  return report.classes[static_cast<std::size_t>(source.FindClass(typeId)->row)];
}

void dbc_Run::Into(cow_String const& name, utl_FileAccess access) {
  InProgress const held(schedule.Converter());
  rfm_File const file = rfm_File::Open(name, access, true);
  rfm_Database made = rfm_Database::Create(file, databaseName, source.Description(), source.CreationTime());
  {
    rfm_Rebuild rebuild(source, made);
    rfm_Transaction transaction(made);
    ListClasses(made);
    Carry(rebuild);
    Convert(made, rebuild);
    Finish(transaction, rebuild);
  }
  made.Publish();
}

// Classes keep their places. Those that are converted get their layouts later.
void dbc_Run::ListClasses(rfm_Database& made) const {
  for (rfm_ClassEntry const& stored : source.Classes()) {
    made.AddClass(stored);
  }
}

void dbc_Run::Carry(rfm_Rebuild& rebuild) {
  std::int64_t total = report.entriesIn;
  for (dbc_ClassReport const& reported : report.classes) {
    total += IsConverted(reported.typeId) ? 0 : reported.rowsIn;
  }
  std::int64_t done = 0;
  auto const watch = [&](cow_String const& className) {
    return [this, &done, total, className](std::int64_t copied) {
      Ask(dbc_Progress::Phase::Copying, 0, className, done + copied, total);
    };
  };
  for (dbc_ClassReport& reported : report.classes) {
    if (IsConverted(reported.typeId)) {
      continue;
    }
    Ask(dbc_Progress::Phase::Copying, 0, reported.name, done, total);
    rebuild.CopyRows(reported.typeId, reported.rowsIn, watch(reported.name));
    reported.rowsOut = reported.rowsIn;
    done += reported.rowsOut;
  }
  Ask(dbc_Progress::Phase::Copying, 0, cow_String(), done, total);
  rebuild.CopyEntries(report.entriesIn, watch(cow_String()));
  report.entriesOut = report.entriesIn;
  auto const ask = [&] {
    Ask(dbc_Progress::Phase::Copying, 0, cow_String(), done + report.entriesOut, total);
  };
  report.leftBehind = rebuild.CopyFurtherTables(ask);
  ask();
}

void dbc_Run::Convert(rfm_Database& made, rfm_Rebuild& rebuild) {
  rom_Transporter transporter(&schedule.Current(), made.File(), databaseName, -1);
  dbc_DatabaseConverter& converter = schedule.Converter();
  dbc_InputDatabase input(source, made, report.entriesIn);
  dbc_OutputDatabase output(made, transporter,
                            [&](rfm_ClassEntry const& changed) { rebuild.ChangeClass(changed); });
  converter.input = &input;
  converter.output = &output;
  std::int64_t total = 0;
  for (dbc_Task const& task : tasks) {
    total += ReportOf(task.before.typeId).rowsIn;
  }
  std::int64_t done = 0;
  std::set<unsigned> begun;
  for (dbc_Task const& task : tasks) {
    dbc_ClassReport& reported = ReportOf(task.before.typeId);
    auto const ask = [&](std::int64_t converted) {
      Ask(dbc_Progress::Phase::Converting, task.step, reported.name, done + converted, total);
    };
    ask(0);
    for (unsigned const touched : output.Touched()) {
      input.ReadFromWorking(touched);
    }
    converter.step = task.step;
    converter.NoteIn(&reported);
    std::int64_t const rows =
        reported.rowsIn + (begun.count(task.before.typeId) == 0 ? 0 : output.RowsAdded(task.before.typeId));
    dbc_ClassPass(converter, source, made, rebuild, task, begun.insert(task.before.typeId).second)
        .Run(rows, ask);
    input.ReadFromWorking(task.before.typeId);
    converter.step = 0;
    converter.kept.reset();
    converter.NoteIn(nullptr);
    done += reported.rowsIn;
  }
  Ask(dbc_Progress::Phase::Converting, 0, cow_String(), total, total);
  CompleteReport(made, output);
  converter.input = nullptr;
  converter.output = nullptr;
}

void dbc_Run::CompleteReport(rfm_Database const& made, dbc_OutputDatabase const& output) {
  for (rfm_ClassEntry const& stored : made.Classes()) {
    bool const isNew = source.FindClass(stored.typeId) == nullptr;
    if (isNew) {
      dbc_ClassReport added;
      added.typeId = stored.typeId;
      added.known = schedule.Current().Find(stored.typeId) != nullptr;
      report.classes.push_back(std::move(added));
    }
    dbc_ClassReport& reported = isNew ? report.classes.back() : ReportOf(stored.typeId);
    reported.name = stored.name;
    reported.versionOut = stored.version;
    reported.rowsOut = reported.rowsIn + output.RowsAdded(stored.typeId);
  }
  report.entriesOut += output.EntriesAdded();
}

// Makes the indexes. What the old file does not show of its rows any more is looked for last, so that damage
// that can be told by class and row is told so.
void dbc_Run::Finish(rfm_Transaction& transaction, rfm_Rebuild& rebuild) {
  std::int64_t rows = report.entriesOut;
  for (dbc_ClassReport const& reported : report.classes) {
    rows += reported.rowsOut;
  }
  Ask(dbc_Progress::Phase::Finishing, 0, cow_String(), 0, rows);
  rebuild.WhileAsking([&] { transaction.Commit(); },
                      [&] { Ask(dbc_Progress::Phase::Finishing, 0, cow_String(), 0, rows); });
  source.WantSoundPages();
  Ask(dbc_Progress::Phase::Finishing, 0, cow_String(), rows, rows);
}

dbc_ConversionReport dbc_Conversion::Plan(cow_String const& input) {
  rfm_Database source = openInput(input);
  rfm_ReadScope const scope(source);
  source.Bind();
  dbc_Schedule const schedule;
  return schedule.Plan(source, schedule.TasksFor(source));
}

dbc_ConversionReport dbc_Conversion::Run(cow_String const& input, cow_String const& output,
                                         dbc_ProgressCallback const& progress, utl_FileAccess access) {
  if (access != utl_FileAccess::Create && access != utl_FileAccess::CreateNew) {
    nex_Exception::Throw(nex_AssertException("access == Create || access == CreateNew"),
                         "platform/dbc/dbc_Conversion", __LINE__);
  }
  rfm_Database source = openInput(input);
  rfm_Rebuild::WantOtherFile(source.File(), output);
  rfm_ReadScope const scope(source);
  source.Bind();
  dbc_Schedule schedule;
  std::vector<dbc_Task> const tasks = schedule.TasksFor(source);
  dbc_ConversionReport report = schedule.Plan(source, tasks);
  if (!report.alreadyCurrent) {
    dbc_Run(source, schedule, tasks, report, progress).Into(output, access);
  }
  return report;
}
