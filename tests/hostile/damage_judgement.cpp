// damage_judgement.cpp: takes listings apart.
#include "damage_judgement.h"

#include "stored_file.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <sstream>

namespace {

/// The words in a listing that are stored as they are printed: not times and the name of a version, not
/// paths, where names are quoted, and not what is refused, which is told in words of ours.
std::vector<std::string> storedWords(std::string const& listing) {
  std::vector<std::string> words;
  std::istringstream lines(listing);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("path of ") || line.starts_with("add-ons") ||
        line.find("refused") != std::string::npos) {
      continue;
    }
    if (line.starts_with("record: ")) {
      std::istringstream fields(line);
      line.clear();
      std::string field;
      for (int index = 0; std::getline(fields, field, '|') && index < 6; ++index) {
        line += index == 3 ? "" : field + " ";
      }
    }
    constexpr char const* separators = " /|,:";
    for (std::size_t end = 0, begin = line.find_first_not_of(separators); begin != std::string::npos;
         begin = line.find_first_not_of(separators, end)) {
      end = std::min(line.find_first_of(separators, begin), line.size());
      words.push_back(line.substr(begin, end - begin));
    }
  }
  return words;
}

/// The bytes of which a text tells the digits; of others nothing that is sought.
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

std::vector<std::string> words_from_nowhere(std::string const& listing, std::string const& sound,
                                            std::string const& inFile) {
  std::vector<std::string> words = storedWords(listing);
  std::erase_if(words, [&](std::string const& word) { return holds(sound, word) || holds(inFile, word); });
  return words;
}
