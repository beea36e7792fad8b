// tool_Collection: the three kinds of things in a database, by name.
#pragma once

#include "ddr_Ddb.h"

#include <array>
#include <string>
#include <vector>

/// Which things of a database are meant.
enum class tool_Collection { Models, Results, UserData };

/// All of them, in the order in which they are shown.
inline constexpr std::array<tool_Collection, 3> tool_collections{
    tool_Collection::Models, tool_Collection::Results, tool_Collection::UserData};

/// The words for the things of a collection.
struct tool_CollectionWords {
  char const* verb;    ///< in a command line: "model"
  char const* one;     ///< in a sentence: "model"
  char const* several; ///< in a sentence: "models"
  char const* heading; ///< above a list: "Models"
  char const* field;   ///< in JSON: "models"
};
tool_CollectionWords const& tool_words(tool_Collection collection) noexcept;

/// How many there are.
int tool_size(ddr_Ddb const& database, tool_Collection collection) noexcept;
/// Whether there is one of that name.
bool tool_isMember(ddr_Ddb const& database, tool_Collection collection, std::string const& name);
/// All names in natural order: Step-2 before Step-10.
std::vector<std::string> tool_names(ddr_Ddb const& database, tool_Collection collection);
/// Puts a new, empty one under the name, in place of one that is there.
void tool_insert(ddr_Ddb& database, tool_Collection collection, std::string const& name);
/// Takes one out; nothing for an unknown name.
void tool_remove(ddr_Ddb& database, tool_Collection collection, std::string const& name);
