// temporary_folder.cpp: folders and files of tests.
#include "temporary_folder.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

temporary_folder::temporary_folder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "ddr-test-XXXXXX").string();
  if (!mkdtemp(pattern.data())) {
    throw std::runtime_error("cannot make a folder like " + pattern);
  }
  root = pattern;
}

temporary_folder::~temporary_folder() {
  std::error_code ignored;
  std::filesystem::permissions(root, std::filesystem::perms::owner_all, ignored);
  std::filesystem::remove_all(root, ignored);
}

std::vector<std::string> temporary_folder::names() const {
  std::vector<std::string> found;
  for (auto const& entry : std::filesystem::directory_iterator(root)) {
    found.push_back(entry.path().filename().string());
  }
  std::sort(found.begin(), found.end());
  return found;
}

std::string readFile(std::string const& path) {
  std::ifstream stream(path, std::ios::binary);
  if (!stream) {
    throw std::runtime_error("cannot read " + path);
  }
  std::string bytes(std::filesystem::file_size(path), '\0');
  stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(stream.gcount()));
  return bytes;
}

void writeFile(std::string const& path, std::string const& bytes) {
  std::ofstream stream(path, std::ios::binary | std::ios::trunc);
  stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!stream.flush()) {
    throw std::runtime_error("cannot write " + path);
  }
}

int openDescriptors() {
  auto const entries = std::filesystem::directory_iterator("/proc/self/fd");
  return static_cast<int>(std::distance(std::filesystem::begin(entries), std::filesystem::end(entries))) - 1;
}
