#include "rom_ObjectSource.h"

#include "cls_ReadVisitor.h"
#include "nex_Exception.h"
#include "rfm_Entries.h"
#include "rom_MapAgent.h"

#include <cstdio>

namespace {

constexpr char const* sourcePath = "platform/rom/rom_ObjectSource";

// One object, with all that is read together with it, may take this much and three times what the file holds
// [byte]. One that takes more leads to the same rows many times, which no save does.
constexpr std::uint64_t smallestObject = 4U * 1024U * 1024U;
constexpr std::uint64_t mostReadings = 3;

rfm_FieldHandle handleOf(cls_FieldHandle const& field) {
  return rfm_FieldHandle(field.Name());
}

std::string withSuffix(cls_FieldHandle const& field, char const* suffix) {
  return std::string(field.Name().View()) + suffix;
}

[[noreturn]] void refuse(std::string const& text, int line) {
  nex_Exception::Throw(nex_TextException(text), sourcePath, line);
}

/// The elements of one list, read when the list is opened.
class ListSource : public cls_ListSource {
public:
  ListSource(rom_Store& ofStore, std::int64_t handle) : store(ofStore) {
    rfm_EntryCursor cursor = store.database.Entries().Scan(handle);
    while (cursor.Next()) {
      elements.push_back({cow_String(cursor.Key()), cursor.ClassId(), cursor.Oid()});
    }
  }
  explicit ListSource(rom_Store& ofStore) : store(ofStore) {}

  int Size() const override { return static_cast<int>(elements.size()); }
  bool HasNext() const override { return next < elements.size(); }
  std::unique_ptr<cls_RowSource> Next() override {
    Element const& element = elements.at(next++);
    auto source = element.classId == 0 || element.row < 0
                      ? std::make_unique<rom_ObjectSource>(store)
                      : std::make_unique<rom_ObjectSource>(store, rom_RowId{element.classId, element.row});
    source->SetElementText(element.text);
    return source;
  }

private:
  struct Element {
    cow_String text;
    unsigned classId;
    int row;
  };
  rom_Store& store;
  std::vector<Element> elements;
  std::size_t next = 0;
};

} // namespace

rom_ObjectSource::rom_ObjectSource(rom_Store& ofStore, rom_RowId rowId)
    : rom_ObjectSource(ofStore, rowId, ofStore.database.Table(rowId.classId)) {}

rom_ObjectSource::rom_ObjectSource(rom_Store& ofStore, rom_RowId rowId, rfm_Table const& lentTable)
    : store(ofStore), scope(ofStore.database), id(rowId), present(true), table(lentTable) {
  store.StoredClass(id.classId);
  if (store.openSources >= rom_Store::mostNestedInReading) {
    refuse(Where() + ": objects nest deeper than " + std::to_string(rom_Store::mostNestedInReading) +
               " levels; the file holds a circle of references, or a chain of objects too long to be read.",
           __LINE__);
  }
  if (store.openSources == 0) {
    store.bytesReadBefore = store.file.Statistics().bytesRead;
    store.bytesAllowed = smallestObject;
  }
  std::optional<rfm_Uid> const stored = table->ReadRow(id.row).Uid();
  RequireMeasure();
  uid = stored ? cls_Uid(*stored) : cls_Uid::Allocate();
  ++store.openSources;
}

void rom_ObjectSource::RequireMeasure() const {
  std::uint64_t const taken = store.file.Statistics().bytesRead - store.bytesReadBefore;
  if (taken <= store.bytesAllowed) {
    return;
  }
  store.bytesAllowed = smallestObject + mostReadings * store.file.Size();
  if (taken > store.bytesAllowed) {
    refuse(Where() + ": the object that is read takes more than the file holds; the file leads to the same"
                     " rows many times.",
           __LINE__);
  }
}

rom_ObjectSource::rom_ObjectSource(rom_Store& ofStore)
    : store(ofStore), scope(ofStore.database), present(false), uid(cls_Uid::Allocate()) {}

rom_ObjectSource::~rom_ObjectSource() {
  if (present) {
    --store.openSources;
  }
}

bool rom_ObjectSource::FieldIsPresent(cls_FieldHandle const& field) const {
  return present && Row().HasField(handleOf(field));
}

bool rom_ObjectSource::DataIsPresent(cls_FieldHandle const& field) const {
  return present && Row().FieldIsSet(handleOf(field));
}

int rom_ObjectSource::ReadInt(cls_FieldHandle const& field, int absent) const {
  return DataIsPresent(field) ? Row().ReadFieldInt(handleOf(field)) : absent;
}

double rom_ObjectSource::ReadDouble(cls_FieldHandle const& field, double absent) const {
  return DataIsPresent(field) ? Row().ReadFieldDouble(handleOf(field)) : absent;
}

bool rom_ObjectSource::ReadBool(cls_FieldHandle const& field, bool absent) const {
  return DataIsPresent(field) ? Row().ReadFieldBool(handleOf(field)) : absent;
}

cow_String rom_ObjectSource::ReadString(cls_FieldHandle const& field, cow_String const& absent) const {
  return DataIsPresent(field) ? Row().ReadFieldString(handleOf(field)) : absent;
}

std::optional<rom_RowId> rom_ObjectSource::Reference(cls_FieldHandle const& field) const {
  rfm_FieldHandle const classField(withSuffix(field, "#ClassID").c_str());
  rfm_FieldHandle const rowField(withSuffix(field, "#OID").c_str());
  if (!present || !Row().FieldIsSet(rowField)) {
    return std::nullopt;
  }
  int const row = Row().ReadFieldInt(rowField);
  if (row < 0) {
    return std::nullopt;
  }
  if (!Row().FieldIsSet(classField)) {
    RefuseReference(field, "leads to row " + std::to_string(row) + " of no class", __LINE__);
  }
  auto const classId = static_cast<unsigned>(Row().ReadFieldInt(classField));
  if (store.database.FindClass(classId) == nullptr) {
    char text[80];
    std::snprintf(text, sizeof text, "refers to class 0x%x, which the class list of the file does not have",
                  classId);
    RefuseReference(field, text, __LINE__);
  }
  return rom_RowId{classId, row};
}

void rom_ObjectSource::RefuseReference(cls_FieldHandle const& field, std::string const& what,
                                       int line) const {
  refuse(Where() + ": field '" + field.Name().Text() + "' " + what + "; the file is damaged.", line);
}

std::unique_ptr<cls_RowSource> rom_ObjectSource::Object(cls_FieldHandle const& field) const {
  std::optional<rom_RowId> const reference = Reference(field);
  return reference ? std::make_unique<rom_ObjectSource>(store, *reference)
                   : std::make_unique<rom_ObjectSource>(store);
}

cow_COW<int, cow_Direct<int>> const* rom_ObjectSource::SharedObject(cls_FieldHandle const& field,
                                                                    unsigned baseTypeId) const {
  std::optional<rom_RowId> const reference = Reference(field);
  if (!reference) {
    return nullptr;
  }
  if (!store.IsA(reference->classId, baseTypeId)) {
    RefuseReference(field, "refers to an object of the wrong class", __LINE__);
  }
  if (auto const* kept = store.cache.Find(reference->classId, reference->row)) {
    return kept;
  }
  rom_ObjectSource const target(store, *reference);
  cls_ReadVisitor visitor(target);
  cls_ClassMetadata const* entry = store.registrar.Find(reference->classId);
  bool const canBeShared = entry != nullptr && entry->Destructor() != nullptr;
  // What may fail comes before the object is there, for only its own class can let it go.
  auto handle = std::make_unique<rom_CowBarn::Handle>(static_cast<int*>(nullptr));
  void* const object = canBeShared ? visitor.Construct(baseTypeId) : nullptr;
  if (object == nullptr) {
    refuse(target.Where() +
               ": objects of this class cannot be shared; the module that defines it does not build them.",
           __LINE__);
  }
  *handle = static_cast<int*>(object);
  return store.cache.Insert(reference->classId, reference->row, handle.release(), entry->Destructor());
}

std::int64_t rom_ObjectSource::StoredHandle() const {
  rfm_FieldHandle const field("Target#Handle");
  if (!Row().FieldIsSet(field)) {
    refuse(Where() + ": the object is no collection; the file is damaged.", __LINE__);
  }
  return Row().ReadFieldHandle(field);
}

cls_AgentHandle rom_ObjectSource::Collection() const {
  return present ? store.Agent(id, uid, StoredHandle()) : cls_AgentHandle();
}

std::unique_ptr<cls_ListSource> rom_ObjectSource::List() const {
  return present ? std::make_unique<ListSource>(store, StoredHandle()) : std::make_unique<ListSource>(store);
}
