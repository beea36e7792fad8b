// ours.cpp: database files made, opened and saved through the registry.
#include "ours.h"

#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <stdexcept>
#include <utility>

namespace {

/// Makes and removes the folder. Beside the program rather than in memory, so that syncs cost what they cost.
struct Folder {
  Folder() {
    std::string pattern = (std::filesystem::current_path() / "bench-files-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
      throw std::runtime_error("no folder can be made in the current one");
    }
    path = pattern;
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  std::string path;
};

void put(ddr_Ddb& record, Kind kind, cow_String const& key) {
  switch (kind) {
  case Kind::Models:
    record.models.Insert(key, ddr_Model(record.GetDbId(), key));
    break;
  case Kind::Results:
    record.results.Insert(key, ddr_Result());
    break;
  case Kind::UserData:
    record.userData.Insert(key, ddr_UserData());
    break;
  }
}

} // namespace

std::string const& benchFolder() {
  static Folder const folder;
  return folder.path;
}

std::string recordName(std::int64_t number) {
  return "Model-" + std::to_string(number);
}

std::int64_t nextNumber(std::int64_t count) {
  static std::minstd_rand random(20240229);
  return static_cast<std::int64_t>(random()) % count;
}

void makeInMemory(std::string const& path, Kind kind, std::int64_t count) {
  ddr_Root& root = ddr_Root::Instance();
  cow_String const file(path);
  root.CreateDdb(file, cow_String("benchmark"));
  cow_String const name = root.GetPersistentName(file);
  ddr_DdbContainer changed = root.Fetch();
  ddr_Ddb& record = changed.Get(name);
  for (std::int64_t number = 0; number < count; ++number) {
    put(record, kind, cow_String(recordName(number)));
  }
  root.Replace(changed);
}

std::string const& savedFile(Kind kind, std::int64_t count) {
  static std::map<std::pair<Kind, std::int64_t>, std::string> files;
  std::string& path = files[{kind, count}];
  if (path.empty()) {
    std::string const made =
        benchFolder() + "/" + std::to_string(static_cast<int>(kind)) + "-" + std::to_string(count) + ".odb";
    makeInMemory(made, kind, count);
    ddr_Root& root = ddr_Root::Instance();
    cow_String const name = root.GetPersistentName(cow_String(made));
    root.SaveDdb(name, true);
    root.CloseDdb(name);
    path = made;
  }
  return path;
}

OpenDatabase::OpenDatabase(std::string const& path, bool forWriting)
    : file(rfm_File::Open(cow_String(path), forWriting ? utl_FileAccess::Write : utl_FileAccess::Read, true)),
      name(ddr_Root::Instance().OpenDdb(file, cow_String())) {}

OpenDatabase::~OpenDatabase() {
  ddr_Root::Instance().CloseDdb(name);
}

ddr_Ddb const& OpenDatabase::Record() const {
  return ddr_Root::Instance().Fetch().ConstGet(name);
}

void OpenDatabase::ReplaceOne(Kind kind, std::string const& key) {
  ddr_Root& root = ddr_Root::Instance();
  ddr_DdbContainer changed = root.Fetch();
  put(changed.Get(name), kind, cow_String(key));
  root.Replace(changed);
}

void OpenDatabase::Save() {
  ddr_Root::Instance().SaveDdb(name, true);
}
