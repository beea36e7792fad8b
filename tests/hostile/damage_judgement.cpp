// damage_judgement.cpp: takes listings apart.
#include "damage_judgement.h"

#include "stored_file.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <sstream>
#include <string_view>

namespace {

/// What a line of a listing tells that is stored as it is printed: not the name of the file, times and the
/// name of a version, not paths, where names are quoted, and not what is refused, which is told in words of
/// ours.
std::string storedPart(std::string const& line) {
  // What an upgrade supplies where the name of the field is damaged.
  constexpr std::string_view sequenceBeforeIdentifiers = "prior to 2000_04_25-21.21.10 17429";
  if (line.find("refused") != std::string::npos) {
    return "";
  }
  for (char const* const title : {"model ", "result ", "user data ", "messages: "}) {
    if (line.starts_with(title)) {
      return line.substr(std::strlen(title));
    }
  }
  constexpr std::string_view title = "record: ";
  if (!line.starts_with(title)) {
    return "";
  }
  constexpr std::string_view isStored = "y.y.yy.."; // name, description, sequence data, version
  std::istringstream fields(line.substr(title.size()));
  std::string part;
  std::string field;
  for (std::size_t index = 0; index < isStored.size() && std::getline(fields, field, '|'); ++index) {
    part += isStored[index] == 'y' && field != sequenceBeforeIdentifiers ? field + " " : "";
  }
  return part;
}

std::vector<std::string> storedWords(std::string const& listing) {
  std::vector<std::string> words;
  std::istringstream lines(listing);
  for (std::string line; std::getline(lines, line);) {
    std::string const part = storedPart(line);
    constexpr char const* separators = " /|,:";
    for (std::size_t end = 0, begin = part.find_first_not_of(separators); begin != std::string::npos;
         begin = part.find_first_not_of(separators, end)) {
      end = std::min(part.find_first_of(separators, begin), part.size());
      words.push_back(part.substr(begin, end - begin));
    }
  }
  return words;
}

/// The bytes that hexadecimal digits tell; of another text some that nobody looks for.
std::string bytesOf(std::string const& digits) {
  std::string bytes;
  for (std::size_t place = 0; place + 1 < digits.size(); place += 2) {
    bytes += static_cast<char>(std::strtoul(digits.substr(place, 2).c_str(), nullptr, 16));
  }
  return bytes;
}

/// Whether a listing of a file has a word, or an identity: byte for byte where that is stored as a text. An
/// object without one has a new one each time that it is read.
bool holds(std::string const& inFile, std::string const& word) {
  constexpr std::size_t identity = 32;
  return inFile.find(word) != std::string::npos ||
         (word.size() == identity &&
          (inFile.find(bytesOf(word)) != std::string::npos || inFile.find("#uid=NULL") != std::string::npos));
}

} // namespace

std::optional<std::string> everything_in(std::string const& path) {
  try {
    return stored_file(path).everything();
  } catch (std::exception const&) {
    return std::nullopt;
  }
}

bool pages_are_sound(std::string const& path) {
  try {
    return stored_file(path).value("PRAGMA quick_check(1)") == "'ok'";
  } catch (std::exception const&) {
    return false;
  }
}

std::vector<std::string> words_from_nowhere(std::string const& listing, std::string const& sound,
                                            std::string const& inFile) {
  std::vector<std::string> words = storedWords(listing);
  std::erase_if(words, [&](std::string const& word) { return holds(sound, word) || holds(inFile, word); });
  return words;
}
