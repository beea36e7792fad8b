// memory_World.cpp: a running module and files.
#include "memory_World.h"

#include "cls_MetadataRegistrar.h"
#include "ddr_Result.h"
#include "ddr_UserData.h"

#include <fstream>
#include <sstream>
#include <unistd.h>

memory_world* memory_world::current = nullptr;

namespace {

/// Locks on files that this process holds.
int locksHeld() {
  int held = 0;
  std::ifstream locks("/proc/locks");
  std::string const own = std::to_string(getpid());
  for (std::string line; std::getline(locks, line);) {
    std::istringstream words(line);
    std::string number;
    std::string kind;
    std::string advice;
    std::string access;
    std::string process;
    words >> number >> kind >> advice >> access >> process;
    held += kind == "POSIX" && process == own ? 1 : 0;
  }
  return held;
}

/// An extension whose class is known only while files are made.
class Stranger : public mdl_Extension {
public:
  Stranger() : uid(cls_Uid::Allocate()) {}
  static unsigned TypeId() noexcept { return 0x2f0021; }
  unsigned DynTypeId() const override { return TypeId(); }
  Stranger* Copy() const override { return new Stranger(*this); }
  void DBWrite(cls_WriteVisitor const& writer) const override { writer.StartWrite(TypeId(), uid); }

  static void registerClass(cls_ClassRegistrar& registrar) {
    registrar.CreateClassMD("memory_Stranger", TypeId(), 1, nullptr, mdl_Extension::TypeId());
  }

private:
  cls_Uid uid;
};

std::unique_ptr<cls_ClassRegistrar> classes() {
  std::unique_ptr<cls_ClassRegistrar> made(
      omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
  note_registerClasses(*made);
  host_registerClasses(*made);
  return made;
}

void fill(memory_world& world, cow_String const& name) {
  ddr_ModelShortcut const toModel(new ddr_ModelInModelContainerShortcut(
      "B", ddr_ModelContainerShortcut(
               new ddr_ModelContainerInDdbShortcut(ddr_DdbShortcut(new ddr_DdbShortcutImpl(name))))));
  world.edit(name, [&](ddr_Ddb& record) {
    for (char const* const key : {"A", "B", "C", "a model with a name that is not short"}) {
      record.models.Insert(key, ddr_Model(record.GetDbId(), key));
      setNote(record.models.Get(key), std::string("the note of model ") + key);
      record.results.Insert(key, ddr_Result());
      record.userData.Insert(key, ddr_UserData());
    }
    auto& bookmarks = static_cast<host_Bookmarks&>(record.models.Get("A").GetExtension("bookmarks"));
    bookmarks.database = ddr_DdbShortcut(new ddr_DdbShortcutImpl(name));
    bookmarks.model = toModel;
    bookmarks.shared = new ddr_ModelShortcut(toModel);
    record.models.Get("B").GetExtension("stranger");
    record.GetDiagnosticData().Append(1, dia_Severity::Warning, "a message of some length");
    record.AddProductAddOn(ddr_ProductAddOn(ddr_ProductAddOn_Fental));
    record.SetSequenceData("data of a sequence, of some length");
  });
}

} // namespace

memory_world::memory_world() {
  current = this;
  device.rest();
  std::unique_ptr<cls_ClassRegistrar> allClasses = classes();
  Stranger::registerClass(*allClasses);
  root().SetClassRegistrar(allClasses.release());
  ddr_Model::RegisterExtension("bookmarks", host_Bookmarks());
  ddr_Model::RegisterExtension("stranger", Stranger());
  cow_String const first = create("a");
  fill(*this, first);
  save(first);
  cow_String const second = create("b");
  edit(second, [](ddr_Ddb& record) {
    record.models.Insert("other", ddr_Model(record.GetDbId(), "other"));
    setNote(record.models.Get("other"), "the note of the other file");
  });
  save(second);
  closeAll();
  root().SetClassRegistrar(classes().release());
  ddr_Model::UnRegisterExtension("stranger");
  found = image();
}

memory_world::~memory_world() {
  current = nullptr;
}

void memory_world::restore() {
  closeAll();
  setImage(found);
}

std::string memory_world::traces() const {
  std::string all;
  for (std::string const& name : folder.names()) {
    all.append(name).append(" ");
  }
  return all + std::to_string(openDescriptors()) + " descriptors, " + std::to_string(locksHeld()) + " locks";
}
