// rfm_Schema.cpp: what the tables and indexes of a file may be made of.
#include "rfm_Schema.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::array<std::string_view, 11> refusedWords{"AS",      "CHECK",   "COLLATE",   "CONFLICT",
                                                        "DEFAULT", "FOREIGN", "GENERATED", "REFERENCES",
                                                        "SELECT",  "VIRTUAL", "WHERE"};

bool isWordLetter(char letter) {
  return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
         (letter >= '0' && letter <= '9') || letter == '_';
}

char upper(char wordLetter) {
  return wordLetter >= 'a' ? static_cast<char>(wordLetter - 'a' + 'A') : wordLetter;
}

bool isRefused(std::string_view word) {
  return std::any_of(refusedWords.begin(), refusedWords.end(), [word](std::string_view refused) {
    return std::equal(word.begin(), word.end(), refused.begin(), refused.end(),
                      [](char letter, char wanted) { return upper(letter) == wanted; });
  });
}

// The end of a name in quotes that begins at a place; a doubled quote does not end it.
std::size_t behindQuoted(std::string_view sql, std::size_t place) {
  char const end = sql[place] == '[' ? ']' : sql[place];
  for (std::size_t next = place + 1; next < sql.size(); ++next) {
    if (sql[next] != end) {
      continue;
    }
    if (end == ']' || next + 1 == sql.size() || sql[next + 1] != end) {
      return next + 1;
    }
    ++next;
  }
  return sql.size();
}

} // namespace

bool rfm_isPlainDefinition(std::string_view sql, int deepest) {
  constexpr std::string_view plainLetters = " \t\r\n(),";
  int depth = 0;
  for (std::size_t place = 0; place < sql.size();) {
    char const letter = sql[place];
    if (letter == '"' || letter == '\'' || letter == '`' || letter == '[') {
      place = behindQuoted(sql, place);
    } else if (isWordLetter(letter)) {
      std::size_t const begin = place;
      while (place < sql.size() && isWordLetter(sql[place])) {
        ++place;
      }
      if (isRefused(sql.substr(begin, place - begin))) {
        return false;
      }
    } else {
      depth += letter == '(' ? 1 : letter == ')' ? -1 : 0;
      if (depth > deepest || plainLetters.find(letter) == std::string_view::npos) {
        return false;
      }
      ++place;
    }
  }
  return true;
}
