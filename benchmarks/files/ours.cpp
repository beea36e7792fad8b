// ours.cpp: database files made, opened and saved through the registry.
#include "ours.h"

#include "cls_MetadataRegistrar.h"
#include "omi_Singleton.h"

#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
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

/// What a model of a benchmark contains: one number.
class Content : public mdl_Extension {
public:
  Content() : uid(cls_Uid::Allocate()) {}
  explicit Content(cls_ReadVisitor const& reader) : number(reader.ReadInt("number")), uid(reader.GetUid()) {}
  static unsigned TypeId() noexcept { return 0x2fb001; }
  unsigned DynTypeId() const override { return TypeId(); }
  Content* Copy() const override { return new Content(*this); }
  void DBWrite(cls_WriteVisitor const& writer) const override {
    if (writer.StartWrite(TypeId(), uid)) {
      writer.WriteInt("number", number);
    }
  }

  int number = 0;

private:
  cls_Uid uid;
};

void* readContent(cls_ReadVisitor& reader) {
  return static_cast<mdl_Extension*>(new Content(reader));
}

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

void registerClasses() {
  std::unique_ptr<cls_ClassRegistrar> classes(
      omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
  classes->CreateClassMD("bench_Content", Content::TypeId(), 1, readContent, mdl_Extension::TypeId())
      .AddAttribute("number", cls_AttributeType::Integer, 1, cls_CollectionType::Single);
  ddr_Root::Instance().SetClassRegistrar(classes.release());
  ddr_Model::RegisterExtension(cow_String("content"), Content());
}

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

void OpenDatabase::ChangeOne(std::string const& key) {
  static int number = 0;
  ddr_Root& root = ddr_Root::Instance();
  ddr_DdbContainer changed = root.Fetch();
  ddr_Model& model = changed.Get(name).models.Get(cow_String(key));
  dynamic_cast<Content&>(model.GetExtension(cow_String("content"))).number = ++number;
  root.Replace(changed);
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
