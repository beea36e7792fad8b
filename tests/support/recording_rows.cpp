// recording_rows.cpp: stored objects in memory.
#include "recording_rows.h"

#include <algorithm>
#include <cstdio>

namespace {

std::string name(cls_FieldHandle const& field) {
  return field.Name().Text();
}

std::string hexadecimal(unsigned number) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%x", number);
  return text;
}

std::string below(std::string const& path, std::string const& field) {
  return path.empty() ? field : path + "." + field;
}

} // namespace

recorded_calls own_calls(recorded_calls const& calls) {
  recorded_calls own;
  std::copy_if(calls.begin(), calls.end(), std::back_inserter(own), [](std::string const& call) {
    return call.substr(0, call.find(' ')).find('.') == std::string::npos;
  });
  return own;
}

/// The elements of a made-up list.
class recording_list : public cls_ListSource {
public:
  explicit recording_list(recording_source const& listed) : list(listed) {}
  int Size() const override { return static_cast<int>(list.object->texts.size()); }
  bool HasNext() const override { return next < list.object->texts.size(); }
  std::unique_ptr<cls_RowSource> Next() override {
    auto element = std::make_shared<stored_object>();
    element->strings[""] = list.object->texts.at(next);
    std::string const place = list.path + "[" + std::to_string(next++) + "]";
    return std::unique_ptr<cls_RowSource>(new recording_source(element, list, place));
  }

private:
  recording_source const& list;
  std::size_t next = 0;
};

recording_source::recording_source(std::shared_ptr<stored_object const> stored, std::string const& dbId)
    : object(std::move(stored)), log(std::make_shared<recorded_calls>()), databaseId(dbId) {}

recording_source::recording_source(std::shared_ptr<stored_object const> stored,
                                   recording_source const& parent, std::string const& prefix)
    : object(std::move(stored)), log(parent.log), path(prefix), databaseId(parent.databaseId),
      registrar(parent.registrar) {}

void recording_source::record(std::string const& call) const {
  log->push_back(below(path, call));
}

cls_Uid recording_source::Uid() const {
  record("Uid");
  return object->uid;
}

cow_String const& recording_source::DbId() const {
  record("DbId");
  return databaseId;
}

bool recording_source::FieldIsPresent(cls_FieldHandle const& field) const {
  record("FieldIsPresent " + name(field));
  return true;
}

bool recording_source::DataIsPresent(cls_FieldHandle const& field) const {
  record("DataIsPresent " + name(field));
  return object->fieldsWithData.contains(name(field));
}

int recording_source::ReadInt(cls_FieldHandle const& field, int absent) const {
  record("ReadInt " + name(field));
  auto const found = object->ints.find(name(field));
  if (found == object->ints.end()) {
    return absent;
  }
  std::size_t const turn = intsAnswered[name(field)]++;
  return found->second.at(std::min(turn, found->second.size() - 1));
}

double recording_source::ReadDouble(cls_FieldHandle const& field, double absent) const {
  record("ReadDouble " + name(field));
  return absent;
}

bool recording_source::ReadBool(cls_FieldHandle const& field, bool absent) const {
  record("ReadBool " + name(field));
  auto const found = object->bools.find(name(field));
  return found == object->bools.end() ? absent : found->second;
}

cow_String recording_source::ReadString(cls_FieldHandle const& field, cow_String const& absent) const {
  record("ReadString " + name(field));
  auto const found = object->strings.find(name(field));
  return found == object->strings.end() ? absent : cow_String(found->second);
}

std::unique_ptr<cls_RowSource> recording_source::Object(cls_FieldHandle const& field) const {
  record("Object " + name(field));
  auto const found = object->objects.find(name(field));
  std::shared_ptr<stored_object const> target;
  if (found != object->objects.end()) {
    target = found->second;
  } else {
    auto missing = std::make_shared<stored_object>();
    missing->present = false;
    target = missing;
  }
  return std::unique_ptr<cls_RowSource>(new recording_source(target, *this, below(path, name(field))));
}

cow_COW<int, cow_Direct<int>> const* recording_source::SharedObject(cls_FieldHandle const& field,
                                                                    unsigned) const {
  record("SharedObject " + name(field));
  return nullptr;
}

cls_AgentHandle recording_source::Collection() const {
  record("Collection");
  return cls_AgentHandle();
}

std::unique_ptr<cls_ListSource> recording_source::List() const {
  record("List");
  return std::make_unique<recording_list>(*this);
}

cow_String recording_source::ElementText() const {
  record("ElementText");
  auto const found = object->strings.find("");
  return found == object->strings.end() ? cow_String() : cow_String(found->second);
}

/// Takes the elements of a list.
class recording_list_sink : public cls_ListSink {
public:
  explicit recording_list_sink(recording_sink const& ofList) : list(ofList) {}
  ~recording_list_sink() override { list.record("EndOfList"); }
  std::unique_ptr<cls_RowSink> Append() override {
    std::string const place = list.path + "[" + std::to_string(next++) + "]";
    return std::unique_ptr<cls_RowSink>(new recording_sink(list, place));
  }

private:
  recording_sink list;
  std::size_t next = 0;
};

/// The stored side of a collection that holds nothing yet.
class recording_agent : public cls_CollectionAgent {
public:
  explicit recording_agent(recording_sink const& ofCollection) : collection(ofCollection) {}
  void Begin() override { collection.record("Begin"); }
  void First() override { collection.record("First"); }
  bool AtEnd() const override { return true; }
  cow_String const& Key() const override { return none; }
  void Next() override {}
  cls_StoredReference Reference() const override { return {}; }
  std::unique_ptr<cls_RowSource> OpenCurrent() override { return nullptr; }
  void Bind(cls_PC const*) override { collection.record("Bind"); }
  std::unique_ptr<cls_RowSource> OpenRecord(cow_String const&) override { return nullptr; }
  bool IsStored(cow_String const&) override { return false; }
  bool IsReadOnly() const override { return false; }
  void BeginWrite() override { collection.record("BeginWrite"); }
  std::unique_ptr<cls_RowSink> WriteRequest(cow_String const& key) override {
    collection.record(std::string("WriteRequest ") + key.Text());
    return std::unique_ptr<cls_RowSink>(
        new recording_sink(collection, collection.path + "['" + key.Text() + "']"));
  }
  void WriteReference(cow_String const& key, cls_StoredReference const&) override {
    collection.record(std::string("WriteReference ") + key.Text());
  }
  void RemoveStored(cow_String const& key) override {
    collection.record(std::string("RemoveStored ") + key.Text());
  }
  void EndWrite(std::unique_ptr<cls_StoredState> stored) override {
    collection.record("EndWrite");
    state = std::move(stored);
  }
  void AbandonWrite() noexcept override {}
  void DropCached(cow_String const&) override {}
  void DropCached() override {}
  void const* Store() const override { return collection.Store(); }
  cls_StoredState* StoredState() override { return state.get(); }
  void SetStoredState(std::unique_ptr<cls_StoredState> newState) override { state = std::move(newState); }

private:
  recording_sink collection;
  cow_String none;
  std::unique_ptr<cls_StoredState> state;
};

recording_sink::recording_sink(sink_answers given)
    : answers(std::make_shared<sink_answers>(std::move(given))), log(std::make_shared<recorded_calls>()),
      uids(std::make_shared<std::map<std::string, cls_Uid>>()) {}

recording_sink::recording_sink(recording_sink const& parent, std::string const& prefix)
    : answers(parent.answers), log(parent.log), uids(parent.uids), path(prefix) {}

void recording_sink::record(std::string const& call) const {
  log->push_back(below(path, call));
}

bool recording_sink::Start(unsigned typeId, cls_Uid const& uid) {
  record("Start " + hexadecimal(typeId));
  (*uids)[path] = uid;
  return !answers->refused.contains(path);
}

bool recording_sink::FieldIsPresent(cls_FieldHandle const& field) const {
  record("FieldIsPresent " + name(field));
  return !answers->absentFields.contains(name(field));
}

void recording_sink::WriteInt(cls_FieldHandle const& field, int value) {
  record("WriteInt " + name(field) + " " + std::to_string(value));
}

void recording_sink::WriteDouble(cls_FieldHandle const& field, double value) {
  record("WriteDouble " + name(field) + " " + std::to_string(value));
}

void recording_sink::WriteBool(cls_FieldHandle const& field, bool value) {
  record("WriteBool " + name(field) + (value ? " true" : " false"));
}

void recording_sink::WriteString(cls_FieldHandle const& field, cow_String const& value) {
  record("WriteString " + name(field) + " " + value.Text());
}

void recording_sink::WriteNullObject(cls_FieldHandle const& field) {
  record("WriteNullObject " + name(field));
}

std::unique_ptr<cls_RowSink> recording_sink::Object(cls_FieldHandle const& field) {
  record("Object " + name(field));
  return std::unique_ptr<cls_RowSink>(new recording_sink(*this, below(path, name(field))));
}

std::unique_ptr<cls_RowSink> recording_sink::BasePart(unsigned baseTypeId) {
  record("BasePart " + hexadecimal(baseTypeId));
  return std::unique_ptr<cls_RowSink>(new recording_sink(*this, below(path, "base")));
}

cls_AgentHandle recording_sink::Collection() {
  record("Collection");
  return cls_AgentHandle(new recording_agent(*this));
}

std::unique_ptr<cls_ListSink> recording_sink::List() {
  record("List");
  return std::make_unique<recording_list_sink>(*this);
}

void recording_sink::WriteElementText(cow_String const& text) {
  record(std::string("WriteElementText ") + text.Text());
}

void recording_sink::End() {
  record("End");
}
