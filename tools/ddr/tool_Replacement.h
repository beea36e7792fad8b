// tool_Replacement: a new file in place of an old one, whole or not at all.
#pragma once

#include <filesystem>
#include <string>

/// Refuses a name under which a file stands. Whatever else than an ordinary file stands there is refused by
/// the library, in words of its own.
/// @throws nex_TextException naming the file
void tool_refuseToReplace(std::string const& fileName);

/// Keeps what stands under a name until the new file that takes its place is complete. Destroyed before that,
/// it puts the old file back, or takes the new one away where none stood.
///
/// The old file is kept under a second name of its own, "NAME.replaced-PROCESS". A file system without hard
/// links has no second names: what stood there is lost then when the new file cannot be completed.
class tool_Replacement {
public:
  /// @param fileName the name that will be taken; nothing has to stand there
  explicit tool_Replacement(std::string const& fileName);
  /// The new file must be closed by now.
  ~tool_Replacement();
  tool_Replacement(tool_Replacement const&) = delete;
  tool_Replacement& operator=(tool_Replacement const&) = delete;

  /// The new file has taken the name, and is not complete.
  void Begin() noexcept { begun = true; }
  /// The new file is complete.
  void Complete() noexcept { begun = false; }

private:
  std::filesystem::path standing;
  std::filesystem::path kept; // empty: nothing is kept
  bool begun = false;
};
