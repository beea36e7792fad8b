// simulation_model.cpp: plain values, and files read as such.
#include "simulation_model.h"

#include "database_test.h"
#include "rfm_Database.h"
#include "rfm_Exception.h"
#include "rom_Memento.h"
#include "temporary_folder.h"

#include <sys/stat.h>

namespace {

std::optional<std::vector<std::string>> messagesOf(ddr_Ddb const& record) {
  std::vector<std::string> texts;
  try {
    dia_DiagnosticData const& messages = record.ConstGetDiagnosticData();
    for (int index = 0; index < messages.Size(); ++index) {
      texts.emplace_back(messages.Message(index).Text().Text());
    }
  } catch (nex_TextException const&) {
    return std::nullopt;
  }
  return texts;
}

} // namespace

std::string plain_record::text() const {
  std::string all = name.substr(0, name.find("  ")) + ":";
  auto const add = [&](char const* kind, std::map<std::string, std::string> const& items) {
    all.append(" ").append(kind);
    for (auto const& [key, value] : items) {
      all.append(" ").append(key).append("=").append(
          value.size() > 40 ? value.substr(0, 10) + "[" + std::to_string(value.size()) + "]" : value);
    }
  };
  add("models", models);
  add("results", results);
  add("user data", userData);
  all.append(" description '").append(description).append("'");
  for (std::string const& message : messages.value_or(std::vector<std::string>())) {
    all.append(" '").append(message).append("'");
  }
  return all.append(" created ").append(std::to_string(creationTime));
}

plain_record plain_record::withoutNotes() const {
  plain_record left = *this;
  for (auto& [model, note] : left.models) {
    note.clear();
  }
  return left;
}

plain_record plainOf(ddr_Ddb const& record, bool withNotes) {
  plain_record found;
  found.name = record.GetName().Text();
  cls_Map2ObjIter models(record.models);
  for (models.First(); !models.AtEnd(); models.Next()) {
    found.models[models.Key().Text()] = withNotes ? noteOf(models.Value()) : std::string();
  }
  for (mdl_MapString2ObjIT<ddr_Result> each(record.results); !each.AtEnd(); each.Next()) {
    found.results[each.Key().Text()] = each.Value().GetUid().Text();
  }
  for (mdl_MapString2ObjIT<ddr_UserData> each(record.userData); !each.AtEnd(); each.Next()) {
    found.userData[each.Key().Text()] = each.Value().GetUid().Text();
  }
  found.description = record.GetDescription().Text();
  found.messages = messagesOf(record);
  found.creationTime = record.GetCreationTime();
  return found;
}

bool plain_registry::isMember(std::string const& path) const {
  auto const found = names.find(path);
  return found != names.end() && databases.contains(found->second);
}

std::string plain_registry::fileName(std::string const& name) const {
  for (auto const& [path, known] : names) {
    if (known == name) {
      return path;
    }
  }
  return {};
}

void plain_registry::add(std::string const& path, plain_database const& opened) {
  std::string const& name = opened.record.name;
  databases[name] = opened;
  names[path] = name;
  openings[name] = {1, !opened.way->canWrite};
}

void plain_registry::close(std::string const& name) {
  names.erase(fileName(name));
  databases.erase(name);
}

plain_file observe(std::string const& path, cls_ClassRegistrar const& classes, bool besideOthers) {
  plain_file found;
  found.path = path;
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    return found;
  }
  found.inode = status.st_ino;
  auto const look = [&](std::string const& name, utl_FileAccess access) {
    rom_Transporter transporter(&classes, rfm_File::Open(cow_String(name), access, true), "D0", -1);
    found.commits = transporter.Database().CommitCount();
    found.creationTime = rfm_Database::GetCreationTime(transporter.File());
    int const last = transporter.GetTableSize(ddr_Ddb::TypeId()) - 1;
    if (last >= 0) {
      rom_MementoRead const memento(transporter, ddr_Ddb::TypeId(), last, cls_Uid::Allocate());
      ddr_Ddb const read((cls_ReadVisitor(memento)));
      found.record = plainOf(read);
    }
  };
  try {
    look(path, utl_FileAccess::Read);
  } catch (rfm_Exception const& failure) {
    if (failure.Kind() == rfm_ErrorKind::Interrupted) {
      look(path, utl_FileAccess::Write); // what the next user of the file would do
    } else if (failure.Kind() == rfm_ErrorKind::Locked && besideOthers) {
      temporary_folder const folder;
      writeFile(folder.path("copy"), readFile(path));
      look(folder.path("copy"), utl_FileAccess::Read);
    } else {
      throw;
    }
  }
  return found;
}
