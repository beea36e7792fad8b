// layout_files.cpp: reads the texts of old layouts, and makes files of them.
#include "layout_files.h"

#include "stored_file.h"
#include "temporary_folder.h"

std::vector<std::string> const& layout_names() {
  static std::vector<std::string> const names = {"database_203", "database_204", "database_309",
                                                 "database_321", "database_818", "model_203",
                                                 "model_401",    "model_857"};
  return names;
}

std::string layout_sql(std::string const& name) {
  return readFile(std::string(UPGRADE_LAYOUTS) + "/" + name + ".sql");
}

void make_layout_file(std::string const& path, std::string const& name, std::string const& changes,
                      int pageSize) {
  make_stored_file(path, "PRAGMA page_size = " + std::to_string(pageSize) + ";" + layout_sql(name) + changes);
}
