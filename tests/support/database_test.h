// database_test: databases in files of a test's own, changed and read by short verbs.
#pragma once

#include "ddr_Ddb.h"
#include "ddr_Root.h"
#include "temporary_folder.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>

/// Part of a note: an object inside an object.
class note_Part {
public:
  explicit note_Part(cow_String const& given = cow_String()) : text(given), uid(cls_Uid::Allocate()) {}
  explicit note_Part(cls_ReadVisitor const& reader) : text(reader.ReadString("text")), uid(reader.GetUid()) {}
  static unsigned TypeId() noexcept { return 0x2f0002; }
  void DBWrite(cls_WriteVisitor const& writer) const;

  cow_String text;

private:
  cls_Uid uid;
};

/// An extension of models, as another module defines one. Copies keep the identity.
class note_Extension : public mdl_Extension {
public:
  note_Extension() : uid(cls_Uid::Allocate()) {}
  explicit note_Extension(cls_ReadVisitor const& reader)
      : text(reader.ReadString("text")), part(cls_ReadVisitor(reader, "part")), uid(reader.GetUid()) {}
  static unsigned TypeId() noexcept { return 0x2f0001; }
  unsigned DynTypeId() const override { return TypeId(); }
  note_Extension* Copy() const override { return new note_Extension(*this); }
  void DBWrite(cls_WriteVisitor const& writer) const override;

  cow_String text;
  note_Part part;
  /// Writing a note of this text throws.
  static constexpr char const* poison = "poison";

private:
  cls_Uid uid;
};

/// The classes of notes.
void note_registerClasses(cls_ClassRegistrar& registrar);
/// What a model says in its note: "text/part", "-" without one.
std::string noteOf(ddr_Model const& model);
/// Writes a model's note.
void setNote(ddr_Model& model, std::string const& text);

/// A text with a number behind it: "M7".
std::string numbered(char const* text, long long number);
/// What an exception says, or "nothing" when none came.
std::string failureOf(std::function<void()> const& work);
/// Runs SQL on a file with SQLite itself.
/// @returns the values of the last row, separated by blanks
std::string runSql(std::string const& path, std::string const& sql);
/// The name of the SQL table of a class in a file.
std::string tableOf(std::string const& path, unsigned typeId);

/// The database to which a file of a folder belongs: that file, or one that stands beside it or grows to take
/// its name.
std::string databaseOf(std::string const& file);

/// All that a record holds, as text: "M1=note/note M2=- | R1#uid | U1#uid | description | messages". Loads
/// every model.
std::string contentsOf(ddr_Ddb const& record);

/// Makes, changes, saves and reads databases.
class database_test : public testing::Test {
protected:
  database_test();
  ~database_test() override;

  ddr_Root& root() { return ddr_Root::Instance(); }
  /// Starts the registry anew, as a new process would.
  void restart();
  /// The classes of the module and of notes.
  static std::unique_ptr<cls_ClassRegistrar> registrar();
  cow_String pathOf(std::string const& file) const { return cow_String(folder.path(file).c_str()); }

  /// Makes a database in a file of that name. @returns its persistent name
  cow_String create(std::string const& file);
  cow_String open(std::string const& file, utl_FileAccess access = utl_FileAccess::Write);
  /// Saves, closes and opens it again.
  cow_String reopen(cow_String const& name, std::string const& file);
  void save(cow_String const& name) { root().SaveDdb(name, true); }
  void close(cow_String const& name) { root().CloseDdb(name); }

  /// Changes a record in the way of hosts: a copy of the container, changed and given back.
  void edit(cow_String const& name, std::function<void(ddr_Ddb&)> const& change);
  /// Adds or changes a model so that its note has that text.
  void writeModel(cow_String const& name, std::string const& model, std::string const& text);
  ddr_Ddb const& record(cow_String const& name) { return root().Fetch().ConstGet(name); }
  /// What the record holds in memory.
  std::string contents(cow_String const& name) { return contentsOf(record(name)); }
  /// What the file holds, read by a reader of its own.
  std::string stored(std::string const& file) const;

  rfm_Statistics statistics(cow_String const& name) {
    return record(name).GetTransporter()->File().Statistics();
  }
  /// How many rows a piece of work writes to, or reads from, the file of a database.
  std::uint64_t rowsWrittenBy(cow_String const& name, std::function<void()> const& work);
  std::uint64_t rowsReadBy(cow_String const& name, std::function<void()> const& work);

  temporary_folder folder;

private:
  int libraries = 0;
};
