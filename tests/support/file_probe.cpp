// file_probe.cpp: opens, lists, checks, upgrades, saves, and notes what was said.
#include "file_probe.h"

#include "database_test.h"

#include "cls_MetadataRegistrar.h"
#include "dbc_Conversion.h"
#include "ddr_Check.h"
#include "ddr_FixPS.h"
#include "ddr_Library.h"
#include "nex_Exception.h"
#include "omu_Exceptions.h"
#include "rfm_ReadScope.h"
#include "rfm_Table.h"
#include "rom_Memento.h"
#include "rom_ODBHeaderParser.h"
#include "stored_file.h"
#include "temporary_folder.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>

namespace {

/// What objects in memory refuse whose file is in order.
constexpr std::array<std::string_view, 3> ofMemory = {"No diagnostic data available",
                                                      "The shortcut is not set, so it leads to no object.",
                                                      "The extension 'note' is stored, but no module of this "
                                                      "process defines its class; load the module first."};

/// The steps of one look at one file.
class Look {
public:
  Look(std::string const& filePath, probe_result& lookResult) : path(filePath), result(lookResult) {}

  void Open(utl_FileAccess access) {
    Try([&] {
      name = Root().OpenDdb(rfm_File::Open(cow_String(path), access, true), cow_String());
      open = true;
    });
    if (!open) {
      result.contents = "refused";
    }
  }
  bool IsOpen() const { return open; }

  void List() {
    ddr_Ddb const& record = Root().Fetch().ConstGet(name);
    Line("record", [&] {
      return std::string(record.GetName().View()) + "|" + record.GetDbId().Text() + "|" +
             record.GetDescription().Text() + "|" + record.GetAnalysisVersion().Text() + "|" +
             record.GetSequenceData().Text() + "|" + std::to_string(record.GetDdbVersion()) + "|" +
             record.CreateTime().Text() + "|" + record.ModifyTime().Text();
    });
    Line("add-ons", [&] {
      std::string text;
      for (int index = 0; index < record.GetProductAddOns().Size(); ++index) {
        text += std::string(record.GetProductAddOns().ConstGet(index).GetString().View()) + " ";
      }
      return text;
    });
    cls_Map2ObjIter models(record.models);
    for (models.First(); !models.AtEnd(); models.Next()) {
      Line("model " + std::string(models.Key().View()), [&] {
        ddr_Model const& model = models.Value();
        return std::string(model.GetName().View()) + " " + Memory([&] { return noteOf(model); }) + " " +
               model.GetUid().Text();
      });
    }
    for (mdl_MapString2ObjIT<ddr_Result> results(record.results); !results.AtEnd(); results.Next()) {
      Line("result " + std::string(results.Key().View()), [&] { return results.Value().GetUid().Text(); });
    }
    for (mdl_MapString2ObjIT<ddr_UserData> userData(record.userData); !userData.AtEnd(); userData.Next()) {
      Line("user data " + std::string(userData.Key().View()),
           [&] { return userData.Value().GetUid().Text(); });
    }
    Line("messages", [&] {
      return Memory([&] {
        dia_DiagnosticData const& messages = record.ConstGetDiagnosticData();
        std::string text;
        for (int index = 0; index < messages.Size(); ++index) {
          text += std::string(messages.Message(index).Text().View()) + ", ";
        }
        return text;
      });
    });
  }

  /// As a program does that reads a lot: in one state of the file.
  void ListInOneScope() {
    Try([&] {
      rfm_ReadScope const scope(Root().Fetch().ConstGet(name).GetTransporter()->Database());
      List();
      Paths();
    });
  }

  void Paths() {
    PathsOf<ddr_DdbShortcut>("database");
    PathsOf<ddr_ModelContainerShortcut>("models");
    PathsOf<ddr_ResultContainerShortcut>("results");
    PathsOf<ddr_UserDataContainerShortcut>("user data");
    PathsOf<ddr_ModelShortcut>("model");
  }

  void Check(ddr_CheckDepth depth) {
    ddr_CheckResult const found = ddr_check(cow_String(path), depth);
    bool const blameless = std::all_of(found.findings.begin(), found.findings.end(),
                                       [](ddr_Finding const& finding) { return finding.isWarning; });
    if (blameless != (found.status == ddr_CheckStatus::Sound)) {
      result.faults.push_back("a check whose findings are not its status");
    }
    for (ddr_Finding const& finding : found.findings) {
      Refused(finding.where + ": " + finding.what);
    }
  }

  void Change() {
    Try([&] {
      ddr_DdbContainer changed = Root().Fetch();
      ddr_Ddb& record = changed.Get(name);
      record.SetDescription("changed");
      record.models.Insert("another", ddr_Model(record.GetDbId(), "another"));
      setNote(record.models.Get("another"), "text");
      record.models.Remove("Beam");
      record.results.Insert("another", ddr_Result());
      record.userData.Remove("Session");
      Root().Replace(changed);
      Root().SaveDdb(name, true);
    });
  }

  void Repair() {
    bool const isDone = Try([&] {
      rfm_Database opened =
          rfm_Database::Open(rfm_File::Open(cow_String(path), utl_FileAccess::Write, true), "D0");
      opened.Bind();
      rom_UtlDatabase tables(opened);
      ddr_FixPS::FixPersistentString(tables);
    });
    result.contents = isDone ? "repaired" : "refused";
  }

  void Close() {
    Try([&] { Root().CloseDdb(name); });
  }

  void Upgrade(std::string const& newPath) {
    result.contents = "refused";
    Try([&] {
      bool const isCurrent = dbc_Conversion::Run(cow_String(path), cow_String(newPath)).alreadyCurrent;
      result.contents = isCurrent ? "current" : "made";
    });
  }

private:
  static ddr_Root& Root() { return ddr_Root::Instance(); }

  void Refused(std::string const& text) {
    if (text.find("'" + path + "'") == std::string::npos) {
      result.faults.push_back("a message that does not name the file: " + text);
    }
    result.refusals.push_back(text);
  }

  template <class Step>
  bool Try(Step const& step) {
    try {
      step();
      return true;
    } catch (omu_ValueErrorException const& error) {
      Refused("'" + path + "': " + error.what()); // such a text is the same for every value from anywhere
    } catch (nex_Exception const& error) {
      Refused(error.what());
    } catch (std::exception const& error) {
      result.faults.push_back(std::string("an exception that is none of ours: ") + error.what());
    }
    return false;
  }

  /// What an object in memory answers, or its refusal where that concerns no file.
  template <class Text>
  static std::string Memory(Text const& text) {
    try {
      return text();
    } catch (nex_TextException const& refusal) {
      if (std::find(ofMemory.begin(), ofMemory.end(), refusal.what()) == ofMemory.end()) {
        throw;
      }
      return std::string("refused: ") + refusal.what();
    }
  }

  template <class Text>
  void Line(std::string const& title, Text const& text) {
    std::string said;
    result.contents += title + ": " + (Try([&] { said = text(); }) ? said : "refused") + "\n";
  }

  template <class Shortcut>
  void PathsOf(char const* title) {
    rom_Transporter& transporter = *Root().Fetch().ConstGet(name).GetTransporter();
    Try([&] {
      if (transporter.Database().FindClass(Shortcut::TypeId()) == nullptr) {
        return;
      }
      rfm_Table rows = transporter.Database().Table(Shortcut::TypeId());
      for (rows.Seek(0); rows.RowExists(-1);) {
        int const row = rows.ReadRow(-1).RowNumber();
        Line(std::string("path of ") + title + " " + std::to_string(row), [&] {
          rom_MementoRead const memento(transporter, Shortcut::TypeId(), row, cls_Uid::Allocate());
          Shortcut const read{cls_ReadVisitor(memento)};
          return Memory([&] {
            std::string text(read.Path().View());
            if (Root().Fetch().IsMember(read.DdbName())) { // the others would be reported to standard error
              text.append(" ").append(read.PythonPath().View());
            }
            return text;
          });
        });
      }
    });
  }

  std::string const& path;
  probe_result& result;
  cow_String name;
  bool open = false;
};

std::vector<std::string> namesBeside(std::filesystem::path const& path) {
  std::vector<std::string> names;
  for (auto const& entry : std::filesystem::directory_iterator(path.parent_path())) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

} // namespace

void probe_result::Add(probe_result const& further) {
  refusals.insert(refusals.end(), further.refusals.begin(), further.refusals.end());
  faults.insert(faults.end(), further.faults.begin(), further.faults.end());
}

file_probe::file_probe(bool listsUpgraded) : listsUpgradedFiles(listsUpgraded) {
  ddr_initialize(libraries);
  auto* const classes = omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar();
  note_registerClasses(*classes);
  ddr_Root::Instance().SetClassRegistrar(classes);
  ddr_Model::RegisterExtension("note", note_Extension());
}

file_probe::~file_probe() {
  ddr_finalize(libraries);
}

probe_result file_probe::read(std::string const& path) {
  probe_result result;
  Look look(path, result);
  look.Open(utl_FileAccess::Read);
  if (look.IsOpen()) {
    look.ListInOneScope();
    look.Close();
  }
  return result;
}

probe_result file_probe::check(std::string const& path) {
  probe_result result;
  Look(path, result).Check(ddr_CheckDepth::Deep);
  return result;
}

probe_result file_probe::check_quickly(std::string const& path) {
  probe_result result;
  Look(path, result).Check(ddr_CheckDepth::Quick);
  return result;
}

probe_result file_probe::look(std::string const& path) {
  probe_result result = read(path);
  result.Add(check_quickly(path));
  result.Add(check(path));
  return result;
}

probe_result file_probe::upgrade(std::string const& path) {
  std::string const newPath =
      path.substr(0, path.rfind('/') + 1) + "upgraded-" + path.substr(path.rfind('/') + 1);
  std::string const bytesBefore = readFile(path);
  std::vector<std::string> const namesBefore = namesBeside(path);
  probe_result result;
  Look(path, result).Upgrade(newPath);
  if (result.contents == "made") {
    // Most damages leave no trace in the new file. What has the same bytes reads the same.
    if (std::string bytes = readFile(newPath); bytes != upgradedBytes) {
      upgradedFile = look(newPath);
      if (listsUpgradedFiles) {
        upgradedFile.contents += stored_file(newPath).everything();
      }
      upgradedBytes = std::move(bytes);
    }
    std::filesystem::remove(newPath);
    result = upgradedFile;
  }
  if (readFile(path) != bytesBefore) {
    result.faults.push_back("an upgrade changed the old file");
  }
  if (namesBeside(path) != namesBefore) {
    result.faults.push_back("an upgrade left a file behind");
  }
  return result;
}

probe_result file_probe::change(std::string const& path) {
  probe_result result;
  Look look(path, result);
  look.Open(utl_FileAccess::Write);
  if (look.IsOpen()) {
    look.Change();
    look.Close();
  }
  return result;
}

probe_result file_probe::repair(std::string const& path) {
  std::string const bytesBefore = readFile(path);
  probe_result result;
  Look(path, result).Repair();
  if (result.contents == "refused" && readFile(path) != bytesBefore) {
    result.faults.push_back("a repair that was refused changed the file");
  }
  return result;
}

void make_small_database(std::string const& path, int pageSize) {
  std::ifstream const stored(DDR_SMALL_DATABASE);
  std::ostringstream sql;
  sql << "PRAGMA page_size = " << pageSize << ";" << stored.rdbuf();
  make_stored_file(path, sql.str());
}

void make_empty_database(std::string const& path, int pageSize) {
  {
    file_probe const module;
    ddr_Root::Instance().CreateSavedDdb(cow_String(path), "", utl_FileAccess::CreateNew);
    ddr_Root::Instance().CloseDdb(ddr_Root::Instance().GetPersistentName(cow_String(path)));
  }
  change_stored_file(path, "PRAGMA page_size = " + std::to_string(pageSize) + "; VACUUM");
}
