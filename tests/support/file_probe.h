// file_probe: everything that a program does with a file that it was given, whatever the file holds.
#pragma once

#include <string>
#include <vector>

/// What came of it.
struct probe_result {
  std::string contents;              ///< all that could be read, a line a thing; "refused" for the whole file
  std::vector<std::string> refusals; ///< texts of exceptions, and "where: what" of each finding of a check
  /// What must not be: exceptions that are none of ours, messages that do not name the file. Empty in a
  /// program without defects.
  std::vector<std::string> faults;

  /// Takes the refusals and faults of a further look at the same file.
  void Add(probe_result const& further);
};

/// What a listing tells of the model that file_probe::change adds.
inline constexpr char const* added_model = "model another: another text/text ";

/// Looks files over, in a running module of its own. One thread at a time.
class file_probe {
public:
  /// @param listsUpgraded whether upgrade() lists each stored value of what it made
  explicit file_probe(bool listsUpgraded = true);
  ~file_probe();
  file_probe(file_probe const&) = delete;
  file_probe& operator=(file_probe const&) = delete;

  /// Opens a file for reading; lists its record, models, results, user data and messages; resolves and prints
  /// the shortcuts in it. Changes nothing of it.
  probe_result read(std::string const& path);
  /// @{ Checks a file deeply, and quickly. Changes nothing of it.
  probe_result check(std::string const& path);
  probe_result check_quickly(std::string const& path);
  /// @}
  /// All of these.
  probe_result look(std::string const& path);
  /// Upgrades a file of an older release into another one beside it, which is looked over in turn. `contents`
  /// is what the new file holds, down to each stored value; "refused" where none was made, "current" where
  /// there is nothing to upgrade. It is a fault when the old file changes, or anything stays behind.
  probe_result upgrade(std::string const& path);
  /// Opens a file for writing, changes something of each kind, saves and closes.
  probe_result change(std::string const& path);
  /// Repairs the names stored in a file: `contents` is "repaired" or "refused". It is a fault when a file
  /// changes whose repair is refused.
  probe_result repair(std::string const& path);

private:
  int libraries = 0;
  bool const listsUpgradedFiles;
  std::string upgradedBytes; // of the last new file, and what was found in it
  probe_result upgradedFile;
};

/// Makes a small database file that holds something of every kind, in pages of that size.
/// @param pageSize [byte] a power of two from 512
void make_small_database(std::string const& path, int pageSize);
/// Makes a database file that holds nothing but its record, in pages of that size. Not while a file_probe is
/// there.
void make_empty_database(std::string const& path, int pageSize);
