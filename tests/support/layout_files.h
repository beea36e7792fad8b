// layout_files: database files of older releases, made of SQL text.
#pragma once

#include <string>
#include <vector>

/// The layouts that there is a text of: "database_203", "model_401", ...
std::vector<std::string> const& layout_names();
/// The text of a layout.
std::string layout_sql(std::string const& name);
/// Makes a file of a layout.
/// @param changes SQL that is run on it afterwards
/// @param pageSize [byte] a power of two from 512
void make_layout_file(std::string const& path, std::string const& name, std::string const& changes = "",
                      int pageSize = 4096);
