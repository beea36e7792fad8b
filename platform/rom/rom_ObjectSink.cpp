#include "rom_ObjectSink.h"

#include "nex_Exception.h"
#include "rfm_Table.h"
#include "rom_MapAgent.h"
#include "utl_Utf8.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace {

constexpr char const* sourcePath = "platform/rom/rom_ObjectSink";

cow_String withSuffix(cow_String const& field, char const* suffix) {
  return cow_String((std::string(field.View()) + suffix).c_str());
}

// What is written must also be readable.
[[noreturn]] void refuseNesting(rom_Store const& store, unsigned typeId) {
  cls_ClassMetadata const* const known = store.registrar.Find(typeId);
  std::string const name = known == nullptr ? "another module" : known->Name().Text();
  nex_Exception::Throw(nex_TextException("Saving to '" + utl_Printable(store.file.FileName().View()) +
                                         "': objects of class '" + name + "' nest deeper than " +
                                         std::to_string(rom_Store::mostNestedInWriting) +
                                         " levels and could not be read back; nothing was saved. Make the "
                                         "chain of objects shorter."),
                       sourcePath, __LINE__);
}

} // namespace

/// The elements of a list; complete when destroyed.
class rom_ListSink : public cls_ListSink {
public:
  rom_ListSink(rom_WritePass& ofPass, rom_PendingList& filled, std::shared_ptr<rom_Fork> ofFork)
      : pass(ofPass), list(filled), fork(std::move(ofFork)) {}
  ~rom_ListSink() override { list.complete = true; }

  std::unique_ptr<cls_RowSink> Append() override {
    list.elements.emplace_back();
    std::unique_ptr<rom_ObjectSink> sink(new rom_ObjectSink(pass, rom_ObjectSink::Target::Element));
    sink->list = &list;
    sink->element = list.elements.size() - 1;
    sink->fork = fork;
    return sink;
  }

private:
  rom_WritePass& pass;
  rom_PendingList& list;
  std::shared_ptr<rom_Fork> fork;
};

rom_ObjectSink::rom_ObjectSink(rom_WritePass& writePass, Target what) noexcept
    : pass(writePass), store(writePass.Store()), target(what), exceptionsAtStart(std::uncaught_exceptions()) {
}

std::unique_ptr<rom_ObjectSink> rom_ObjectSink::Top(rom_WritePass& pass, unsigned typeId, int row) {
  std::unique_ptr<rom_ObjectSink> sink(new rom_ObjectSink(pass, Target::Top));
  sink->topTypeId = typeId;
  sink->topRow = row;
  return sink;
}

std::unique_ptr<rom_ObjectSink> rom_ObjectSink::Entry(rom_WritePass& pass, rom_MapAgent& agent,
                                                      cow_String const& key, std::shared_ptr<rom_Fork> fork) {
  std::unique_ptr<rom_ObjectSink> sink(new rom_ObjectSink(pass, Target::Entry));
  sink->agent = &agent;
  sink->key = key;
  sink->fork = std::move(fork);
  return sink;
}

rom_ObjectSink::~rom_ObjectSink() {
  if (row != nullptr) {
    row->complete = true;
    if (std::uncaught_exceptions() > exceptionsAtStart) {
      pass.MarkFailed(); // whoever catches the exception must not save half an object
    }
  }
}

void const* rom_ObjectSink::Store() const {
  return &pass.Store();
}

void rom_ObjectSink::Begin(unsigned typeId, cls_Uid const& uid, rom_RowId id, bool isNew) {
  if (!uid.IsNone()) {
    (fork ? fork->written : pass.Written())[uid] = id;
  }
  row = &pass.AddRow();
  row->id = id;
  row->uid = uid;
  row->isNew = isNew;
  if (isNew) {
    rfm_ClassEntry const& stored = store.StoredClass(typeId);
    if (stored.baseTypeId != cls_NoBaseTypeId) {
      row->Set("##BaseClassOID", std::int64_t{-1});
    }
  }
}

void rom_ObjectSink::SetReference(rom_RowId id) {
  if (target == Target::Field) {
    owner->Set(withSuffix(ownerField, "#ClassID"), static_cast<std::int64_t>(id.classId));
    owner->Set(withSuffix(ownerField, "#OID"), static_cast<std::int64_t>(id.row));
  } else if (target == Target::Entry) {
    agent->SetEntry(key, id);
  } else { // nothing else refers to an object
    list->elements[element].id = id;
  }
}

bool rom_ObjectSink::Start(unsigned typeId, cls_Uid const& uid) {
  if (target == Target::BasePart) {
    return true;
  }
  try {
    pass.Drain();
    if (pass.OpenRows() >= rom_Store::mostNestedInWriting) {
      refuseNesting(store, typeId);
    }
    switch (target) {
    case Target::Top:
      return StartTop(typeId, uid);
    case Target::Entry:
      return StartEntry(typeId, uid);
    default:
      return StartNested(typeId, uid);
    }
  } catch (...) {
    pass.MarkFailed(); // a reference may lead to this object already
    throw;
  }
}

bool rom_ObjectSink::StartTop(unsigned typeId, cls_Uid const& uid) {
  if (typeId != topTypeId) {
    nex_Exception::Throw(nex_AssertException("typeId == topTypeId"), sourcePath, __LINE__);
  }
  bool const isNew = topRow < 0;
  Begin(typeId, uid, {typeId, isNew ? pass.ReserveRow(typeId) : topRow}, isNew);
  row->carryUnknown = isNew;
  return true;
}

bool rom_ObjectSink::StartEntry(unsigned typeId, cls_Uid const& uid) {
  auto const rowHolds = [&](unsigned classId, int rowNumber) {
    rfm_Table table = store.database.Table(classId);
    return table.RowExists(rowNumber) &&
           table.ReadRow(rowNumber).Uid() == std::optional<rfm_Uid>(uid.Stored());
  };
  std::vector<int> const sameIdentity = pass.RowsOf(typeId, uid);
  std::optional<rfm_Entry> const stored = agent->StoredEntry(key);
  if (stored && store.registrar.Find(stored->classId) == nullptr && store.IsA(stored->classId, typeId) &&
      rowHolds(stored->classId, stored->oid)) {
    // The record is of a class that this process does not know: what is known of it goes into its own row,
    // and the rest of that row stays.
    rom_RowId const own{stored->classId, stored->oid};
    rom_WrittenObjects const& written = fork ? fork->written : pass.Written();
    auto const before = written.find(uid);
    if (before != written.end() && before->second == own) {
      return false;
    }
    Begin(own.classId, uid, own, false);
    return true;
  }
  rom_WrittenObjects const& written = fork ? fork->written : pass.Written();
  auto const before = uid.IsNone() ? written.end() : written.find(uid);
  bool const writtenBefore = before != written.end();
  rom_RowId id{typeId, -1};
  bool const isNew = !stored || stored->classId != typeId || !rowHolds(typeId, stored->oid);
  if (isNew) {
    // A row of this identity that is not this entry's may hold the record of another key, of another
    // collection or of an older copy of this one, with other contents.
    id.row = pass.ReserveRow(typeId);
  } else {
    id.row = stored->oid;
    if (writtenBefore && before->second == id) {
      return false;
    }
  }
  bool const isOneOfSeveral = isNew ? !sameIdentity.empty() : sameIdentity.size() > 1;
  if (writtenBefore || (!fork && isOneOfSeveral)) {
    fork = std::make_shared<rom_Fork>();
  }
  if (!uid.IsNone()) {
    pass.Written().try_emplace(uid, id);
  }
  Begin(typeId, uid, id, isNew);
  SetReference(id);
  return true;
}

std::optional<rom_RowId> rom_ObjectSink::StoredTarget(unsigned typeId, cls_Uid const& uid) const {
  if (target != Target::Field || owner->isNew) {
    return std::nullopt;
  }
  rfm_Table ownerTable = store.database.Table(owner->id.classId);
  rfm_Row const& stored = ownerTable.ReadRow(owner->id.row);
  rfm_FieldHandle const classField(withSuffix(ownerField, "#ClassID"));
  rfm_FieldHandle const rowField(withSuffix(ownerField, "#OID"));
  if (!stored.FieldIsSet(classField) || !stored.FieldIsSet(rowField) ||
      stored.ReadFieldInt64(classField) != static_cast<std::int64_t>(typeId)) {
    return std::nullopt;
  }
  int const storedRow = stored.ReadFieldInt(rowField);
  rfm_Table table = store.database.Table(typeId);
  if (!table.RowExists(storedRow) || table.ReadRow(storedRow).Uid() != std::optional<rfm_Uid>(uid.Stored())) {
    return std::nullopt;
  }
  return rom_RowId{typeId, storedRow};
}

bool rom_ObjectSink::StartNested(unsigned typeId, cls_Uid const& uid) {
  rom_WrittenObjects const& written = fork ? fork->written : pass.Written();
  auto const before = uid.IsNone() ? written.end() : written.find(uid);
  if (before != written.end()) {
    SetReference(before->second);
    return false;
  }
  std::optional<rom_RowId> id;
  if (fork) {
    pass.RowsOf(typeId, uid); // makes the class known to the file
    id = StoredTarget(typeId, uid);
  } else {
    std::vector<int> const rows = pass.RowsOf(typeId, uid);
    if (rows.size() == 1) {
      id = rom_RowId{typeId, rows.front()};
    } else if (rows.size() > 1) {
      id = StoredTarget(typeId, uid);
    }
  }
  bool const isNew = !id;
  if (isNew) {
    id = rom_RowId{typeId, pass.ReserveRow(typeId)};
  }
  Begin(typeId, uid, *id, isNew);
  SetReference(*id);
  if (rom_MapAgent* unborn = store.UnbornAgent(uid)) {
    pass.Enlist(*unborn);
    unborn->Bear(*id, HeaderHandle());
  }
  return true;
}

bool rom_ObjectSink::FieldIsPresent(cls_FieldHandle const& field) const {
  if (row == nullptr) {
    return false;
  }
  rfm_Table const table = store.database.TableForWriting(row->id.classId);
  return table.HasField(rfm_FieldHandle(field.Name())) ||
         table.HasField(rfm_FieldHandle(withSuffix(field.Name(), "#OID")));
}

void rom_ObjectSink::WriteInt(cls_FieldHandle const& field, int value) {
  if (row != nullptr) {
    row->Set(field.Name(), static_cast<std::int64_t>(value));
  }
}

void rom_ObjectSink::WriteDouble(cls_FieldHandle const& field, double value) {
  if (row != nullptr) {
    row->Set(field.Name(), value);
  }
}

void rom_ObjectSink::WriteBool(cls_FieldHandle const& field, bool value) {
  if (row != nullptr) {
    row->Set(field.Name(), std::int64_t{value});
  }
}

void rom_ObjectSink::WriteString(cls_FieldHandle const& field, cow_String const& value) {
  if (row != nullptr) {
    row->Set(field.Name(), value);
  }
}

void rom_ObjectSink::WriteNullObject(cls_FieldHandle const& field) {
  if (row != nullptr) {
    row->Set(withSuffix(field.Name(), "#ClassID"), std::monostate());
    row->Set(withSuffix(field.Name(), "#OID"), std::monostate());
  }
}

namespace {

/// Accepts everything and stores nothing: what a refused object writes into.
class DroppedSink : public cls_RowSink {
public:
  explicit DroppedSink(void const* ofStore) : store(ofStore) {}
  bool Start(unsigned, cls_Uid const&) override { return false; }
  bool FieldIsPresent(cls_FieldHandle const&) const override { return false; }
  void WriteInt(cls_FieldHandle const&, int) override {}
  void WriteDouble(cls_FieldHandle const&, double) override {}
  void WriteBool(cls_FieldHandle const&, bool) override {}
  void WriteString(cls_FieldHandle const&, cow_String const&) override {}
  void WriteNullObject(cls_FieldHandle const&) override {}
  std::unique_ptr<cls_RowSink> Object(cls_FieldHandle const&) override {
    return std::make_unique<DroppedSink>(store);
  }
  std::unique_ptr<cls_RowSink> BasePart(unsigned) override { return std::make_unique<DroppedSink>(store); }
  cls_AgentHandle Collection() override { return cls_AgentHandle(); }
  std::unique_ptr<cls_ListSink> List() override { return std::make_unique<DroppedList>(store); }
  void WriteElementText(cow_String const&) override {}
  void End() override {}
  void const* Store() const override { return store; }

private:
  class DroppedList : public cls_ListSink {
  public:
    explicit DroppedList(void const* ofStore) : store(ofStore) {}
    std::unique_ptr<cls_RowSink> Append() override { return std::make_unique<DroppedSink>(store); }

  private:
    void const* store;
  };
  void const* store;
};

} // namespace

std::unique_ptr<cls_RowSink> rom_ObjectSink::Object(cls_FieldHandle const& field) {
  if (row == nullptr) {
    return std::make_unique<DroppedSink>(Store());
  }
  std::unique_ptr<rom_ObjectSink> sink(new rom_ObjectSink(pass, Target::Field));
  sink->owner = row;
  sink->ownerField = field.Name();
  sink->fork = fork;
  return sink;
}

std::unique_ptr<cls_RowSink> rom_ObjectSink::BasePart(unsigned) {
  if (row == nullptr) {
    return std::make_unique<DroppedSink>(Store());
  }
  // The base parts of all classes are empty: the row says so, and no row of the base class is needed.
  row->Set("##BaseClassOID", std::int64_t{-1});
  return std::unique_ptr<cls_RowSink>(new rom_ObjectSink(pass, Target::BasePart));
}

std::int64_t rom_ObjectSink::HeaderHandle() {
  if (handle) {
    return *handle;
  }
  if (!row->isNew) {
    rfm_Table table = store.database.Table(row->id.classId);
    rfm_Row const& stored = table.ReadRow(row->id.row);
    rfm_FieldHandle const field("Target#Handle");
    if (stored.FieldIsSet(field)) {
      handle = stored.ReadFieldHandle(field);
      return *handle;
    }
  }
  handle = store.database.NewHandle();
  row->Set("Target#Handle", *handle);
  return *handle;
}

cls_AgentHandle rom_ObjectSink::Collection() {
  if (row == nullptr) {
    return cls_AgentHandle();
  }
  cls_AgentHandle taken = store.Agent(row->id, row->uid, HeaderHandle());
  auto& collection = static_cast<rom_MapAgent&>(*taken);
  pass.Enlist(collection);
  collection.BeginReplacing(row->isNew, fork);
  return taken;
}

std::unique_ptr<cls_ListSink> rom_ObjectSink::List() {
  if (row == nullptr) {
    return std::make_unique<DroppedSink>(Store())->List();
  }
  rom_PendingList& filled = pass.AddList();
  filled.handle = HeaderHandle();
  filled.isNew = row->isNew;
  return std::make_unique<rom_ListSink>(pass, filled, fork);
}

void rom_ObjectSink::WriteElementText(cow_String const& text) {
  if (target == Target::Element) {
    list->elements[element].text = text;
  }
}

void rom_ObjectSink::End() {
  if (store.Pass() != &pass) {
    nex_Exception::Throw(nex_AssertException("the write has not ended"), sourcePath, __LINE__);
  }
  if (row != nullptr) {
    std::exchange(row, nullptr)->complete = true; // storing it ends its life
  }
  pass.Commit();
  store.EndPass();
}
