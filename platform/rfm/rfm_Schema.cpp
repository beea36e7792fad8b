// rfm_Schema.cpp: what the tables and indexes of a file may be made of.
#include "rfm_Schema.h"

#include "rfm_Format.h"

#include <algorithm>
#include <array>
#include <utility>

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

/// Takes a text of the schema apart. White space may stand between any two parts.
class Parts {
public:
  explicit Parts(std::string_view sql) : rest(sql) {}

  /// Takes a sign if it is next.
  bool Sign(char sign) {
    SkipSpace();
    bool const isNext = rest.starts_with(sign);
    rest.remove_prefix(isNext ? 1 : 0);
    return isNext;
  }
  /// Takes a word if it is next.
  bool Word(std::string_view word) {
    SkipSpace();
    if (!rest.starts_with(word) || rest.find_first_of(breaks, word.size()) != word.size()) {
      return false;
    }
    rest.remove_prefix(word.size());
    return true;
  }
  /// Takes a name in double quotes that holds no further ones.
  std::optional<std::string_view> Name() {
    if (!Sign(quote)) {
      return std::nullopt;
    }
    std::string_view const name = rest.substr(0, rest.find(quote));
    rest.remove_prefix(name.size());
    bool const isWhole = Sign(quote) && !rest.starts_with(quote);
    return isWhole ? std::optional(name) : std::nullopt;
  }
  bool AtEnd() const { return rest.empty(); }

private:
  static constexpr char quote = '"';
  static constexpr std::string_view space = " \t\r\n";
  static constexpr std::string_view breaks = " \t\r\n\"(),";
  void SkipSpace() { rest.remove_prefix(std::min(rest.find_first_not_of(space), rest.size())); }

  std::string_view rest;
};

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

std::optional<std::vector<std::string_view>> rfm_writtenColumns(std::string_view sql,
                                                                std::string_view table) {
  Parts parts(sql);
  bool const isOurs = parts.Word("CREATE") && parts.Word("TABLE") && parts.Name() == table &&
                      parts.Sign('(') && parts.Name() == rfm_RowColumn && parts.Word("INTEGER") &&
                      parts.Word("PRIMARY") && parts.Word("KEY") && parts.Sign(',') &&
                      parts.Name() == rfm_UidColumn && parts.Word("BLOB");
  if (!isOurs) {
    return std::nullopt;
  }
  std::vector<std::string_view> columns;
  while (parts.Sign(',')) {
    columns.push_back(parts.Name().value_or(std::string_view()));
    parts.Word("INTEGER");
    if (columns.back().empty()) {
      return std::nullopt;
    }
  }
  bool const isWhole = parts.Sign(')') && parts.AtEnd();
  return isWhole ? std::optional(std::move(columns)) : std::nullopt;
}
