// rfm_SchemaSize.cpp: walks over the pages of a schema without SQLite.
#include "rfm_SchemaSize.h"

#include "rfm_Schema.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace {

// All that is not plain may take so much, and this part of the file [byte]: up to three connections have it
// in memory during an upgrade.
constexpr std::uint64_t smallestLimit = 256U * 1024U;
constexpr std::uint64_t partOfTheFile = 16;

// Fixed by SQLite's file format.
constexpr std::size_t fileHeaderSize = 100;
constexpr std::size_t pageSizePlace = 16;
constexpr std::size_t reservedPlace = 20;
constexpr std::size_t smallestPage = 512;
constexpr std::size_t largestPage = 65536;
constexpr std::size_t smallestUsable = 480;
constexpr unsigned char innerPage = 5;
constexpr unsigned char leafPage = 13;
constexpr std::size_t innerHeaderSize = 12;
constexpr std::size_t leafHeaderSize = 8;
constexpr int sqlColumn = 4;                 // of sqlite_schema
constexpr std::uint64_t firstBytesType = 12; // of bytes and of texts, by turns
constexpr int tableDepth = 2;                // of parentheses in the text of a plain table

/// Takes numbers from bytes, one after the other. What lies behind the end reads as 0.
class Numbers {
public:
  Numbers(std::string_view readBytes, std::size_t begin) : bytes(readBytes), place(begin) {}

  std::uint64_t Fixed(int size) {
    std::uint64_t number = 0;
    for (int index = 0; index < size; ++index) {
      number = number << 8U | Byte();
    }
    return number;
  }
  /// One of SQLite's numbers of one to nine bytes.
  std::uint64_t Varint() {
    std::uint64_t number = 0;
    for (int index = 0; index < 8; ++index) {
      unsigned const byte = Byte();
      number = number << 7U | (byte & 0x7fU);
      if (byte < 0x80U) {
        return number;
      }
    }
    return number << 8U | Byte();
  }
  std::size_t Place() const { return place; }

private:
  unsigned Byte() {
    unsigned const byte = place < bytes.size() ? static_cast<unsigned char>(bytes[place]) : 0U;
    ++place;
    return byte;
  }

  std::string_view bytes;
  std::size_t place;
};

/// Bytes of the content of a record's value.
std::uint64_t sizeOfType(std::uint64_t type) {
  constexpr std::uint64_t sizes[firstBytesType] = {0, 1, 2, 3, 4, 6, 8, 8, 0, 0, 0, 0};
  return type < firstBytesType ? sizes[type] : (type - firstBytesType) / 2;
}

/// The SQL text in a row of sqlite_schema; empty when there is none. SQLite takes bytes for a text there.
std::string_view sqlOf(std::string_view record) {
  Numbers header(record, 0);
  std::uint64_t place = header.Varint();
  for (int column = 0; column < sqlColumn; ++column) {
    place += std::min<std::uint64_t>(sizeOfType(header.Varint()), record.size());
  }
  std::uint64_t const type = header.Varint();
  bool const isThere = type >= firstBytesType && place < record.size();
  return isThere ? record.substr(place, sizeOfType(type)) : std::string_view();
}

class Walk {
public:
  explicit Walk(sqlite3_file& walkedFile) : file(walkedFile) {}

  int Check() {
    sqlite3_int64 size = 0;
    int result = file.pMethods->xFileSize(&file, &size);
    std::string header(fileHeaderSize, '\0');
    if (result == SQLITE_OK) {
      result = Read(header, 0);
    }
    if (result != SQLITE_OK) {
      return result;
    }
    fileSize = static_cast<std::uint64_t>(size);
    pageSize = Numbers(header, pageSizePlace).Fixed(2);
    pageSize = pageSize == 1 ? largestPage : pageSize; // which does not fit into two bytes
    usable = pageSize - std::min<std::size_t>(pageSize, Numbers(header, reservedPlace).Fixed(1));
    if (pageSize < smallestPage || usable < smallestUsable) {
      return SQLITE_OK;
    }
    std::uint64_t const limit = smallestLimit + fileSize / partOfTheFile;
    result = VisitAll([this](std::string_view page, std::size_t cell) {
      total += std::min(Numbers(page, cell).Varint(), fileSize);
      return SQLITE_OK;
    });
    if (result != SQLITE_OK || total <= limit) {
      return result;
    }
    if (total > fileSize) { // rows that share their pages
      return SQLITE_CORRUPT;
    }
    result = VisitAll([this](std::string_view page, std::size_t cell) { return AddText(page, cell); });
    return result == SQLITE_OK && unusual > limit ? SQLITE_CORRUPT : result;
  }

private:
  /// Fills a buffer from a place in the file; zeros behind its end.
  int Read(std::string& buffer, std::uint64_t place) {
    int const result = file.pMethods->xRead(&file, buffer.data(), static_cast<int>(buffer.size()),
                                            static_cast<sqlite3_int64>(place));
    return result == SQLITE_IOERR_SHORT_READ ? SQLITE_OK : result;
  }
  int ReadPage(std::string& page, std::uint64_t number) {
    page.resize(pageSize);
    return Read(page, (number - 1) * pageSize);
  }
  bool IsThere(std::uint64_t number) const { return number != 0 && number <= fileSize / pageSize; }

  /// Calls a function with each row's page and its place there.
  template <class Visit>
  int VisitAll(Visit const& visit) {
    std::vector<std::uint64_t> ahead{1};
    std::unordered_set<std::uint64_t> seen{1};
    std::string page;
    while (!ahead.empty()) {
      std::uint64_t const number = ahead.back();
      ahead.pop_back();
      int result = ReadPage(page, number);
      if (result != SQLITE_OK) {
        return result;
      }
      std::size_t const begin = number == 1 ? fileHeaderSize : 0;
      std::uint64_t const type = Numbers(page, begin).Fixed(1);
      if (type != innerPage && type != leafPage) {
        continue;
      }
      Numbers cells(page, begin + (type == leafPage ? leafHeaderSize : innerHeaderSize));
      auto const follow = [&](std::uint64_t next) {
        if (IsThere(next) && seen.insert(next).second) {
          ahead.push_back(next);
        }
      };
      if (type == innerPage) {
        follow(Numbers(page, begin + leafHeaderSize).Fixed(4));
      }
      for (std::uint64_t count = Numbers(page, begin + 3).Fixed(2);
           count > 0 && cells.Place() < page.size() && result == SQLITE_OK; --count) {
        std::size_t const cell = cells.Fixed(2);
        if (type == leafPage) {
          result = visit(page, cell);
        } else {
          follow(Numbers(page, cell).Fixed(4));
        }
      }
      if (result != SQLITE_OK) {
        return result;
      }
    }
    return SQLITE_OK;
  }

  int AddText(std::string_view page, std::size_t cell) {
    Numbers numbers(page, cell);
    std::uint64_t const size = std::min(numbers.Varint(), fileSize);
    numbers.Varint(); // the row
    std::string record;
    int const result = ReadRecord(record, page, numbers.Place(), size);
    std::string_view const sql = sqlOf(record);
    if (!rfm_isPlainDefinition(sql, tableDepth)) {
      unusual += sql.size();
    }
    return result;
  }

  /// What a cell holds: a part of it in its page, the rest in pages that are chained.
  int ReadRecord(std::string& record, std::string_view page, std::size_t place, std::uint64_t size) {
    std::size_t const most = usable - 35;
    std::size_t const least = (usable - 12) * 32 / 255 - 23;
    std::size_t const fitting = least + (size - std::min<std::uint64_t>(size, least)) % (usable - 4);
    std::size_t const local = size <= most ? size : fitting <= most ? fitting : least;
    record = page.substr(std::min(place, page.size()), local);
    std::uint64_t next = size > local ? Numbers(page, place + local).Fixed(4) : 0;
    std::string chained;
    while (record.size() < size && IsThere(next)) {
      int const result = ReadPage(chained, next);
      if (result != SQLITE_OK) {
        return result;
      }
      next = Numbers(chained, 0).Fixed(4);
      record.append(chained, 4, std::min<std::uint64_t>(usable - 4, size - record.size()));
    }
    return SQLITE_OK;
  }

  sqlite3_file& file;
  std::uint64_t fileSize = 0;
  std::size_t pageSize = 0;
  std::size_t usable = 0;    // of a page [byte]
  std::uint64_t total = 0;   // of all rows [byte]
  std::uint64_t unusual = 0; // of the texts that are not plain [byte]
};

} // namespace

int rfm_checkSchemaSize(sqlite3_file& file) {
  return Walk(file).Check();
}
