// database_test.cpp: databases in files of a test's own.
#include "database_test.h"

#include "cls_MetadataRegistrar.h"
#include "ddr_Library.h"
#include "nex_Exception.h"
#include "rom_Memento.h"

#include <algorithm>
#include <sqlite3.h>
#include <stdexcept>

namespace {

void* readNote(cls_ReadVisitor& reader) {
  return static_cast<mdl_Extension*>(new note_Extension(reader));
}

void* readPart(cls_ReadVisitor& reader) {
  return new note_Part(reader);
}

std::string shortUid(cls_Uid const& uid) {
  return uid.Text().substr(22);
}

} // namespace

void note_Part::DBWrite(cls_WriteVisitor const& writer) const {
  if (writer.StartWrite(TypeId(), uid)) {
    writer.WriteString("text", text);
  }
}

void note_Extension::DBWrite(cls_WriteVisitor const& writer) const {
  if (!writer.StartWrite(TypeId(), uid)) {
    return;
  }
  if (text == cow_String(poison)) {
    nex_Exception::Throw(nex_TextException("the note cannot be written"), "tests", __LINE__);
  }
  writer.WriteString("text", text);
  part.DBWrite(cls_WriteVisitor(writer, "part"));
}

void note_registerClasses(cls_ClassRegistrar& registrar) {
  registrar.CreateClassMD("note_Extension", note_Extension::TypeId(), 1, readNote, mdl_Extension::TypeId())
      .AddAttribute("text", cls_AttributeType::String, 1, cls_CollectionType::Single)
      .AddAttribute("part", cls_AttributeType::Object, note_Part::TypeId(), cls_CollectionType::Single);
  registrar.CreateClassMD("note_Part", note_Part::TypeId(), 1, readPart, cls_NoBaseTypeId)
      .AddAttribute("text", cls_AttributeType::String, 1, cls_CollectionType::Single);
}

std::string noteOf(ddr_Model const& model) {
  if (!model.InstanceTable().IsMember("note")) {
    return "-";
  }
  auto const& note = static_cast<note_Extension const&>(model.ConstGetExtension("note"));
  return std::string(note.text.Text()) + "/" + note.part.text.Text();
}

void setNote(ddr_Model& model, std::string const& text) {
  auto& note = static_cast<note_Extension&>(model.GetExtension("note"));
  note.text = cow_String(text.c_str());
  note.part.text = note.text;
}

std::string numbered(char const* text, long long number) {
  return std::string(text).append(std::to_string(number));
}

std::string failureOf(std::function<void()> const& work) {
  try {
    work();
  } catch (std::exception const& error) {
    return error.what();
  }
  return "nothing";
}

std::string runSql(std::string const& path, std::string const& sql) {
  sqlite3* opened = nullptr;
  int const result = sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE, nullptr);
  std::unique_ptr<sqlite3, int (*)(sqlite3*)> const connection(opened, sqlite3_close);
  if (result != SQLITE_OK) {
    throw std::runtime_error("cannot open " + path);
  }
  std::string row;
  auto const take = [](void* into, int count, char** values, char**) {
    std::string text;
    for (int column = 0; column < count; ++column) {
      text.append(column > 0 ? " " : "").append(values[column] == nullptr ? "NULL" : values[column]);
    }
    *static_cast<std::string*>(into) = text;
    return 0;
  };
  if (sqlite3_exec(opened, sql.c_str(), take, &row, nullptr) != SQLITE_OK) {
    throw std::runtime_error(sql + ": " + sqlite3_errmsg(opened));
  }
  return row;
}

std::string tableOf(std::string const& path, unsigned typeId) {
  std::string const table =
      runSql(path, "SELECT \"Class Table\" FROM ddr_class WHERE \"Type Id\" = " + std::to_string(typeId));
  return std::string("\"").append(table).append("\"");
}

std::string databaseOf(std::string const& file) {
  std::size_t end = file.size();
  for (char const* const mark : {"-journal", "-wal", "-shm", ".new-"}) {
    end = std::min(end, file.find(mark));
  }
  return file.substr(0, end);
}

std::string contentsOf(ddr_Ddb const& record) {
  std::string text;
  cls_Map2ObjIter models(record.models);
  for (models.First(); !models.AtEnd(); models.Next()) {
    text += std::string(models.Key().Text()) + "=" + noteOf(models.Value()) + " ";
  }
  text += "|";
  mdl_MapString2ObjIT<ddr_Result> results(record.results);
  for (; !results.AtEnd(); results.Next()) {
    text += std::string(" ") + results.Key().Text() + "#" + shortUid(results.Value().GetUid());
  }
  text += " |";
  mdl_MapString2ObjIT<ddr_UserData> userData(record.userData);
  for (; !userData.AtEnd(); userData.Next()) {
    text += std::string(" ") + userData.Key().Text() + "#" + shortUid(userData.Value().GetUid());
  }
  text += std::string(" | ") + record.GetDescription().Text() + " |";
  dia_DiagnosticData const& messages = record.ConstGetDiagnosticData();
  for (int index = 0; index < messages.Size(); ++index) {
    text += std::string(" ") + messages.Message(index).Text().Text();
  }
  return text;
}

database_test::database_test() {
  ddr_initialize(libraries);
  root().SetClassRegistrar(registrar().release());
  ddr_Model::RegisterExtension("note", note_Extension());
}

database_test::~database_test() {
  ddr_finalize(libraries);
}

void database_test::restart() {
  ddr_finalize(libraries);
  ddr_initialize(libraries);
  root().SetClassRegistrar(registrar().release());
  ddr_Model::RegisterExtension("note", note_Extension());
}

std::unique_ptr<cls_ClassRegistrar> database_test::registrar() {
  std::unique_ptr<cls_ClassRegistrar> made(
      omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
  note_registerClasses(*made);
  return made;
}

cow_String database_test::create(std::string const& file) {
  root().CreateDdb(pathOf(file), "made by a test");
  return root().GetPersistentName(pathOf(file));
}

cow_String database_test::open(std::string const& file, utl_FileAccess access) {
  return root().OpenDdb(rfm_File::Open(pathOf(file), access, true), cow_String());
}

cow_String database_test::reopen(cow_String const& name, std::string const& file) {
  cow_String const closed = name;
  save(closed);
  close(closed);
  return open(file);
}

void database_test::edit(cow_String const& name, std::function<void(ddr_Ddb&)> const& change) {
  ddr_DdbContainer copy = root().Fetch();
  change(copy.Get(name));
  root().Replace(copy);
}

void database_test::writeModel(cow_String const& name, std::string const& model, std::string const& text) {
  edit(name, [&](ddr_Ddb& changed) {
    cow_String const key(model.c_str());
    if (!changed.models.IsMember(key)) {
      changed.models.Insert(key, ddr_Model(changed.GetDbId(), key));
    }
    setNote(changed.models.Get(key), text);
  });
}

std::string database_test::stored(std::string const& file) const {
  std::unique_ptr<cls_ClassRegistrar> const classes = registrar();
  rom_Transporter transporter(classes.get(), rfm_File::Open(pathOf(file), utl_FileAccess::Read, true), "D0",
                              -1);
  int const last = transporter.GetTableSize(ddr_Ddb::TypeId()) - 1;
  rom_MementoRead const memento(transporter, ddr_Ddb::TypeId(), last, cls_Uid::Allocate());
  ddr_Ddb const read((cls_ReadVisitor(memento)));
  return contentsOf(read);
}

std::uint64_t database_test::rowsWrittenBy(cow_String const& name, std::function<void()> const& work) {
  std::uint64_t const before = statistics(name).rowsWritten;
  work();
  return statistics(name).rowsWritten - before;
}

std::uint64_t database_test::rowsReadBy(cow_String const& name, std::function<void()> const& work) {
  std::uint64_t const before = statistics(name).rowsRead;
  work();
  return statistics(name).rowsRead - before;
}
