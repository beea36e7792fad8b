// temporary_folder: a folder of a test's own, and plain looks at files.
#pragma once

#include <string>
#include <vector>

/// An empty folder that goes away with everything in it.
class temporary_folder {
public:
  temporary_folder();
  ~temporary_folder();
  temporary_folder(temporary_folder const&) = delete;
  temporary_folder& operator=(temporary_folder const&) = delete;

  /// Path of a file in it.
  std::string path(std::string const& name) const { return root + "/" + name; }
  std::string const& path() const noexcept { return root; }
  /// Names in it, sorted.
  std::vector<std::string> names() const;

private:
  std::string root;
};

/// Everything in a file. Closing it drops the locks that this process has on it.
std::string readFile(std::string const& path);
/// Makes a file, or replaces what is in it.
void writeFile(std::string const& path, std::string const& bytes);
/// How many descriptors this process has open.
int openDescriptors();
