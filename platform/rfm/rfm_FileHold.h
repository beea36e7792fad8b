// rfm_FileHold: knows a file again.
#pragma once

#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

/// Holds on to a file that has a name, so that it is known again whatever takes that name later. The file is
/// not opened: nothing can be read through this, and no lock of the process goes when it ends.
class rfm_FileHold {
public:
  /// Holds nothing.
  rfm_FileHold() = default;
  /// Errors: holds nothing, and errno tells why.
  explicit rfm_FileHold(std::string const& path) noexcept
      : descriptor(open(path.c_str(), O_PATH | O_CLOEXEC)) {}
  rfm_FileHold(rfm_FileHold&& other) noexcept : descriptor(std::exchange(other.descriptor, -1)) {}
  rfm_FileHold& operator=(rfm_FileHold&& other) noexcept {
    std::swap(descriptor, other.descriptor);
    return *this;
  }
  ~rfm_FileHold() {
    if (Holds()) {
      close(descriptor);
    }
  }

  bool Holds() const noexcept { return descriptor >= 0; }
  /// Whether the file that is held, and one must be, has this name. It may have others beside.
  bool IsNamed(std::string const& path) const noexcept {
    struct stat held {};
    struct stat named {};
    return fstat(descriptor, &held) == 0 && stat(path.c_str(), &named) == 0 && held.st_dev == named.st_dev &&
           held.st_ino == named.st_ino;
  }

private:
  int descriptor = -1;
};
