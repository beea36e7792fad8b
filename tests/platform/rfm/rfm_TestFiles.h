// rfm_TestFiles: small database files for tests, and their contents as text.
#pragma once

#include "rfm_Database.h"
#include "rfm_Exception.h"
#include "rfm_ReadScope.h"
#include "rfm_Transaction.h"
#include "temporary_folder.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>

inline constexpr unsigned modelType = 0x220007;
inline constexpr unsigned resultType = 0x220001;
inline constexpr std::int64_t creationTime = 1700000000;

/// A class with a text, a number, a flag, a double and a reference.
rfm_ClassEntry modelClass();
/// A class without fields.
rfm_ClassEntry resultClass();
/// An identity with a number in its last bytes.
rfm_Uid uidOf(int number);

/// A name with a number behind it.
std::string numbered(std::string name, int number);

/// Makes a file with the two classes and nothing stored.
rfm_Database createFile(std::string const& path);
rfm_Database openFile(std::string const& path, utl_FileAccess access);
/// Appends a model with an entry of its name in collection 1, in the running transaction.
int addModel(rfm_Database& database, std::string const& name);
/// Appends models "a", "b", ... in one transaction.
void saveModels(rfm_Database& database, std::initializer_list<char const*> names);
/// Everything stored: "a=0 b=1 | a b" are the entries of collection 1 with their rows, then the names in the
/// rows.
std::string contents(rfm_Database& database);
std::string contents(std::string const& path);
/// What an exception says: "Kind: text", or "nothing" when none came.
std::string failureOf(std::function<void()> const& work);
/// Runs SQL on a file with SQLite itself.
/// @returns the values of the last row, separated by blanks
std::string runSql(std::string const& path, std::string const& sql);
/// Leaves a file as a process leaves it that is killed in the middle of a save.
void interruptSave(std::string const& path);

class rfm_Test : public testing::Test {
protected:
  temporary_folder folder;
  std::string path = folder.path("a.odb");
};
