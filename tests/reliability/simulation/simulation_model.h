// simulation_model: what files and registries hold, as plain values.
#pragma once

#include "ddr_Ddb.h"
#include "rfm_File.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

/// What the record of a database holds.
struct plain_record {
  std::string name;                            // persistent
  std::map<std::string, std::string> models;   // name to note
  std::map<std::string, std::string> results;  // name to identity
  std::map<std::string, std::string> userData; // name to identity
  std::string description;
  std::optional<std::vector<std::string>> messages; // the oldest files have no place for them
  std::int64_t creationTime = 0;
  friend bool operator==(plain_record const&, plain_record const&) = default;

  std::string text() const;
  /// The same without the notes of the models, which a record reads later.
  plain_record withoutNotes() const;
};

/// Reads all of a record; without the notes no model is loaded.
plain_record plainOf(ddr_Ddb const& record, bool withNotes = true);

/// What stands under a name.
struct plain_file {
  std::string path;
  ino_t inode = 0; // another one when the file is replaced; 0 without a file
  std::uint32_t commits = 0;
  std::int64_t creationTime = 0;
  std::optional<plain_record> record; // once it was saved to
  std::vector<plain_record> past;     // records of this file and of those before it, the newest last
  int users = 0;                      // worlds in the middle of a call that has to do with it
  int faults = 0;                     // that calls on it have met

  bool exists() const noexcept { return inode != 0; }
  void commit(plain_record const& saved) {
    take(saved);
    ++commits;
  }
  void take(std::optional<plain_record> const& newest) {
    record = newest;
    if (newest) {
      past.push_back(*newest);
    }
  }
};

/// The way of an open database to its file.
struct plain_way {
  std::size_t file = 0;
  ino_t inode = 0;
  std::uint32_t commits = 0; // that it knows of
  bool canWrite = true;
};

struct plain_database {
  plain_record record;
  std::shared_ptr<plain_way> way; // the same for all copies
};

/// A registry.
struct plain_registry {
  struct Opening {
    int count = 0;
    bool readOnly = false;
  };
  using Databases = std::map<std::string, plain_database>; // by persistent name
  Databases databases;
  std::map<std::string, std::string> names; // path to persistent name
  std::map<std::string, Opening> openings;  // by persistent name, past ones too

  bool isMember(std::string const& path) const;
  std::string fileName(std::string const& name) const;
  void add(std::string const& path, plain_database const& opened);
  void close(std::string const& name);
};

/// What stands under a name, found out by a reader of its own.
/// @param besideOthers whether others are in the middle of calls on the file: when one of them keeps the
/// reader out, the bytes of the file tell, as nothing has been written while a world waits for a lock
plain_file observe(std::string const& path, cls_ClassRegistrar const& classes, bool besideOthers = false);
