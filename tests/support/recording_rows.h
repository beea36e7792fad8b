// recording_rows: stored objects in memory that write down what is asked of them, and in which order.
#pragma once

#include "cls_RowSink.h"
#include "cls_RowSource.h"

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

/// What is asked of a source or a sink and of all that it hands out, in order. Calls on an object that a
/// field names begin with the field and a dot: "models.Collection".
using recorded_calls = std::vector<std::string>;

/// The calls on the object itself, without those on the objects below it.
recorded_calls own_calls(recorded_calls const& calls);

/// One stored object that a test makes up.
struct stored_object {
  bool present = true;
  unsigned classId = 0;
  cls_Uid uid = cls_Uid::Allocate();
  /// Answered in turn, the last one again and again; an absent field answers the default.
  std::map<std::string, std::vector<int>> ints;
  std::map<std::string, std::string> strings;
  std::map<std::string, bool> bools;
  /// Answers of DataIsPresent; fields not named here hold no data.
  std::set<std::string> fieldsWithData;
  std::map<std::string, std::shared_ptr<stored_object>> objects;
  /// The elements of a list, each an element text.
  std::vector<std::string> texts;
};

/// Reads a made-up object and records it. Keyed collections read as missing.
class recording_source : public cls_RowSource {
public:
  /// @param dbId what the objects are told about their database
  recording_source(std::shared_ptr<stored_object const> stored, std::string const& dbId);

  recorded_calls const& calls() const noexcept { return *log; }

  bool IsPresent() const override { return object->present; }
  unsigned ClassId() const override { return object->classId; }
  cls_Uid Uid() const override;
  cow_String const& DbId() const override;
  std::string Where() const override { return "file 'made-up'"; }
  cls_ClassRegistrar const& Registrar() const override { return registrar; }
  bool IsA(unsigned baseTypeId) const override { return object->classId == baseTypeId; }
  bool FieldIsPresent(cls_FieldHandle const& field) const override;
  bool DataIsPresent(cls_FieldHandle const& field) const override;
  int ReadInt(cls_FieldHandle const& field, int absent) const override;
  double ReadDouble(cls_FieldHandle const& field, double absent) const override;
  bool ReadBool(cls_FieldHandle const& field, bool absent) const override;
  cow_String ReadString(cls_FieldHandle const& field, cow_String const& absent) const override;
  std::unique_ptr<cls_RowSource> Object(cls_FieldHandle const& field) const override;
  cow_COW<int, cow_Direct<int>> const* SharedObject(cls_FieldHandle const& field,
                                                    unsigned baseTypeId) const override;
  cls_AgentHandle Collection() const override;
  std::unique_ptr<cls_ListSource> List() const override;
  cow_String ElementText() const override;

private:
  friend class recording_list;
  recording_source(std::shared_ptr<stored_object const> stored, recording_source const& parent,
                   std::string const& prefix);
  void record(std::string const& call) const;

  std::shared_ptr<stored_object const> object;
  std::shared_ptr<recorded_calls> log;
  std::string path;
  cow_String databaseId;
  cls_ClassRegistrar registrar;
  mutable std::map<std::string, std::size_t> intsAnswered;
};

/// What a recording_sink answers.
struct sink_answers {
  /// Fields that the layout lacks.
  std::set<std::string> absentFields;
  /// Objects whose Start is refused, by path; "" is the outermost.
  std::set<std::string> refused;
};

/// Takes an object that is being written and records it: "WriteInt modifyTime 5".
class recording_sink : public cls_RowSink {
public:
  explicit recording_sink(sink_answers given = {});

  recorded_calls const& calls() const noexcept { return *log; }

  bool Start(unsigned typeId, cls_Uid const& uid) override;
  bool FieldIsPresent(cls_FieldHandle const& field) const override;
  void WriteInt(cls_FieldHandle const& field, int value) override;
  void WriteDouble(cls_FieldHandle const& field, double value) override;
  void WriteBool(cls_FieldHandle const& field, bool value) override;
  void WriteString(cls_FieldHandle const& field, cow_String const& value) override;
  void WriteNullObject(cls_FieldHandle const& field) override;
  std::unique_ptr<cls_RowSink> Object(cls_FieldHandle const& field) override;
  std::unique_ptr<cls_RowSink> BasePart(unsigned baseTypeId) override;
  cls_AgentHandle Collection() override;
  std::unique_ptr<cls_ListSink> List() override;
  void WriteElementText(cow_String const& text) override;
  void End() override;
  void const* Store() const override { return log.get(); }

  /// The identity with which each object was begun, by path.
  std::map<std::string, cls_Uid> const& started() const noexcept { return *uids; }

private:
  friend class recording_list_sink;
  friend class recording_agent;
  recording_sink(recording_sink const& parent, std::string const& prefix);
  void record(std::string const& call) const;

  std::shared_ptr<sink_answers const> answers;
  std::shared_ptr<recorded_calls> log;
  std::shared_ptr<std::map<std::string, cls_Uid>> uids;
  std::string path;
};
