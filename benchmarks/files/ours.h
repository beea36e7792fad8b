// ours: database files made, opened and saved through the registry.
#pragma once

#include "ddr_Root.h"
#include "rfm_File.h"

#include <cstdint>
#include <string>

/// Installs the classes that the files are made with.
void registerClasses();

/// A folder that goes away with the process.
std::string const& benchFolder();

/// "Model-7" for number 7.
std::string recordName(std::int64_t number);
/// A number below `count`; the same row of numbers in every run.
std::int64_t nextNumber(std::int64_t count);

/// What a benchmark file holds.
enum class Kind { Models, Results, UserData };

/// Makes the file and its records, in memory only. The database stays open.
void makeInMemory(std::string const& path, Kind kind, std::int64_t count);
/// The path of a saved file with that many records; made when it is first asked for. Not open.
std::string const& savedFile(Kind kind, std::int64_t count);

/// A database that is open while this lives.
class OpenDatabase {
public:
  explicit OpenDatabase(std::string const& path, bool forWriting = false);
  ~OpenDatabase();
  OpenDatabase(OpenDatabase const&) = delete;
  OpenDatabase& operator=(OpenDatabase const&) = delete;

  ddr_Ddb const& Record() const;
  rfm_Statistics const& Statistics() const noexcept { return file.Statistics(); }
  /// Changes a number that a model contains.
  void ChangeOne(std::string const& key);
  /// Puts a new record in the place of one.
  void ReplaceOne(Kind kind, std::string const& key);
  void Save();

private:
  rfm_File file;
  cow_String name;
};
