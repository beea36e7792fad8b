// small_file: a place in the file system where a small sound database is damaged again and again.
#pragma once

#include "damaged_file.h"
#include "quick_sqlite.h"
#include "temporary_folder.h"

#include <string>

class small_file {
public:
  small_file() {
    use_quick_sqlite();
    make_small_database(path, pageSize);
    sound = readFile(path);
  }

  /// Writes the file that an input makes.
  void write(std::string_view input) {
    bytes = damagedFile(input, sound);
    writeFile(path, bytes);
  }
  /// Whether the file is as it was written.
  bool isUnchanged() const { return readFile(path) == bytes; }

  static constexpr int pageSize = 512;
  temporary_folder folder;
  std::string path = folder.path("file");
  file_probe probe;

private:
  std::string sound;
  std::string bytes;
};
