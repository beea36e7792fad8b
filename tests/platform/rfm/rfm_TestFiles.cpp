// rfm_TestFiles.cpp: files of tests.
#include "rfm_TestFiles.h"

#include "child_process.h"

#include <sqlite3.h>
#include <unistd.h>

namespace {

char const* kindName(rfm_ErrorKind kind) {
  switch (kind) {
  case rfm_ErrorKind::Missing:
    return "Missing";
  case rfm_ErrorKind::IsDirectory:
    return "IsDirectory";
  case rfm_ErrorKind::Empty:
    return "Empty";
  case rfm_ErrorKind::NotADatabase:
    return "NotADatabase";
  case rfm_ErrorKind::OtherProgram:
    return "OtherProgram";
  case rfm_ErrorKind::Newer:
    return "Newer";
  case rfm_ErrorKind::Damaged:
    return "Damaged";
  case rfm_ErrorKind::NoPermission:
    return "NoPermission";
  case rfm_ErrorKind::ReadOnly:
    return "ReadOnly";
  case rfm_ErrorKind::Full:
    return "Full";
  case rfm_ErrorKind::Locked:
    return "Locked";
  case rfm_ErrorKind::Moved:
    return "Moved";
  case rfm_ErrorKind::Interrupted:
    return "Interrupted";
  case rfm_ErrorKind::Other:
    return "Other";
  }
  return "?";
}

} // namespace

rfm_ClassEntry modelClass() {
  rfm_ClassEntry entry;
  entry.name = "ddr_Model";
  entry.typeId = modelType;
  entry.version = 874;
  entry.attributes = {{"modelName", rfm_AttributeKind_String, 1, 0},
                      {"count", rfm_AttributeKind_Integer, 1, 0},
                      {"flag", rfm_AttributeKind_Boolean, 1, 0},
                      {"size", rfm_AttributeKind_Real, 1, 0},
                      {"instanceTable", rfm_AttributeKind_Object, 0x220018, 0}};
  return entry;
}

rfm_ClassEntry resultClass() {
  rfm_ClassEntry entry;
  entry.name = "ddr_Result";
  entry.typeId = resultType;
  entry.version = 203;
  entry.baseTypeId = 0x220099;
  return entry;
}

rfm_Uid uidOf(int number) {
  rfm_Uid uid{};
  uid[15] = static_cast<std::uint8_t>(number);
  uid[14] = static_cast<std::uint8_t>(number >> 8);
  uid[0] = 1;
  return uid;
}

std::string numbered(std::string name, int number) {
  return name.append(std::to_string(number));
}

rfm_Database createFile(std::string const& path) {
  rfm_File const file = rfm_File::Open(cow_String(path), utl_FileAccess::Create, true);
  rfm_Database database = rfm_Database::Create(file, "D0", "a description", creationTime);
  rfm_Transaction transaction(database);
  database.AddClass(modelClass());
  database.AddClass(resultClass());
  transaction.Commit();
  database.Publish();
  return database;
}

rfm_Database openFile(std::string const& path, utl_FileAccess access) {
  rfm_Database database = rfm_Database::Open(rfm_File::Open(cow_String(path), access, true), "D0");
  database.Bind();
  return database;
}

int addModel(rfm_Database& database, std::string const& name) {
  rfm_Table table = database.TableForWriting(modelType);
  table.ClearRow();
  table.Row().WriteFieldString("modelName", cow_String(name));
  table.Row().SetUid(uidOf(table.Length()));
  int const row = table.AppendRow();
  database.Entries().Append(1, name, modelType, row);
  return row;
}

void saveModels(rfm_Database& database, std::initializer_list<char const*> names) {
  rfm_Transaction transaction(database);
  for (char const* const name : names) {
    addModel(database, name);
  }
  transaction.Commit();
}

std::string contents(rfm_Database& database) {
  rfm_ReadScope const scope(database);
  std::string text;
  rfm_EntryCursor cursor = database.Entries().Scan(1);
  while (cursor.Next()) {
    text += std::string(cursor.Key()) + "=" + std::to_string(cursor.Oid()) + " ";
  }
  text += "|";
  rfm_Table table = database.Table(modelType);
  table.Seek(0);
  while (table.RowExists(-1)) {
    text += std::string(" ") + table.ReadRow(-1).ReadFieldString("modelName").Text();
  }
  return text;
}

std::string contents(std::string const& path) {
  rfm_Database database = openFile(path, utl_FileAccess::Read);
  return contents(database);
}

std::string failureOf(std::function<void()> const& work) {
  try {
    work();
  } catch (rfm_Exception const& failure) {
    return std::string(kindName(failure.Kind())) + ": " + failure.what();
  } catch (std::exception const& failure) {
    return std::string("exception: ") + failure.what();
  }
  return "nothing";
}

std::string runSql(std::string const& path, std::string const& sql) {
  sqlite3* database = nullptr;
  std::string last;
  auto const keep = [](void* context, int count, char** values, char**) {
    std::string& row = *static_cast<std::string*>(context);
    row.clear();
    for (int column = 0; column < count; ++column) {
      row.append(column ? " " : "").append(values[column] ? values[column] : "NULL");
    }
    return 0;
  };
  if (sqlite3_open(path.c_str(), &database) != SQLITE_OK ||
      sqlite3_exec(database, sql.c_str(), keep, &last, nullptr) != SQLITE_OK) {
    last = std::string("error: ") + sqlite3_errmsg(database);
  }
  sqlite3_close(database);
  return last;
}

void interruptSave(std::string const& path) {
  std::string const answer = in_child([&]() -> std::string {
    sqlite3* database = nullptr;
    sqlite3_open(path.c_str(), &database);
    // A tiny cache makes SQLite write changed pages before the end of the transaction.
    sqlite3_exec(database,
                 "PRAGMA cache_size = 1; BEGIN IMMEDIATE;"
                 "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2000)"
                 "INSERT INTO ddr_entry SELECT 1, 1000 + i, 'half ' || i, 1, 1 FROM n;"
                 "UPDATE ddr_entry SET Key = 'overwritten' WHERE position = 0;",
                 nullptr, nullptr, nullptr);
    _exit(1); // without a commit and without a rollback
  });
  ASSERT_EQ(answer, "exit status 1");
  ASSERT_EQ(access((path + "-journal").c_str(), F_OK), 0) << "the save left no journal";
}
