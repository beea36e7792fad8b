// rfm_Journal.cpp: reads journals as SQLite does; their form is fixed by its file format.
#include "rfm_Journal.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::string_view journalMagic{"\xd9\xd5\x05\xf9\x20\xa1\x63\xd7"};
constexpr std::string_view databaseMagic{"SQLite format 3", 16};
constexpr std::int64_t longestUnit = 65536; // [byte] a page or a sector
constexpr std::uint32_t untilTheEnd = 0xffffffff;

std::uint32_t bigEndian(unsigned char const* bytes) {
  return static_cast<std::uint32_t>(bytes[0]) << 24U | static_cast<std::uint32_t>(bytes[1]) << 16U |
         static_cast<std::uint32_t>(bytes[2]) << 8U | static_cast<std::uint32_t>(bytes[3]);
}

/// What the first page of a database says.
struct FirstPage {
  explicit FirstPage(unsigned char const* bytes)
      : isOne(std::memcmp(bytes, databaseMagic.data(), databaseMagic.size()) == 0),
        pageSize(bytes[16] * 256 + bytes[17]), changes(bigEndian(bytes + 24)),
        pages(bigEndian(bytes + 92) == changes ? bigEndian(bytes + 28) : 0),
        mayShrink(bigEndian(bytes + 52) != 0) {
    if (pageSize == 1) {
      pageSize = longestUnit; // which does not fit into its two bytes
    }
  }

  bool isOne;
  std::int64_t pageSize;
  std::uint32_t changes; // counts the saves to the file
  std::int64_t pages;    // 0: an old program has left it open
  bool mayShrink;        // saves of other programs may cut off what is free at the end
};

/// The start of a journal, or of a later part of it.
struct PartHeader {
  static constexpr std::int64_t size = 28;
  explicit PartHeader(unsigned char const* bytes)
      : isOne(std::memcmp(bytes, journalMagic.data(), journalMagic.size()) == 0),
        records(bigEndian(bytes + 8)), nonce(bigEndian(bytes + 12)), pages(bigEndian(bytes + 16)),
        sectorSize(bigEndian(bytes + 20)), pageSize(bigEndian(bytes + 24)) {}

  bool isOne;
  std::uint32_t records;
  std::uint32_t nonce;
  std::int64_t pages; // of the file before the save
  std::int64_t sectorSize;
  std::int64_t pageSize;
};

bool isUnit(std::int64_t size, std::int64_t least) {
  return size >= least && size <= longestUnit && (size & (size - 1)) == 0;
}

class Journal {
public:
  explicit Journal(std::string const& path)
      : descriptor(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
    struct stat status {};
    if (descriptor < 0 || fstat(descriptor, &status) != 0) {
      errorNumber = errno;
    } else if (S_ISREG(status.st_mode)) {
      size = status.st_size;
    }
  }
  ~Journal() {
    if (descriptor >= 0) {
      close(descriptor);
    }
  }
  Journal(Journal const&) = delete;
  Journal& operator=(Journal const&) = delete;

  int ErrorNumber() const noexcept { return errorNumber; }

  std::optional<PartHeader> Header(std::int64_t place) {
    std::array<unsigned char, PartHeader::size> bytes{};
    if (!Read(place, bytes.data(), bytes.size())) {
      return std::nullopt;
    }
    PartHeader const header(bytes.data());
    return header.isOne ? std::optional(header) : std::nullopt;
  }

  /// The first page of the file as it was before the save, if SQLite would put it back; empty otherwise.
  std::vector<unsigned char> FirstPageBefore(PartHeader const& first, std::int64_t pageSize) {
    std::int64_t const recordSize = pageSize + 8; // its number before, its check sum behind
    std::int64_t part = 0;
    for (std::optional<PartHeader> header = first; header; header = Header(part)) {
      std::int64_t const begin = part + first.sectorSize;
      std::int64_t const there = std::max<std::int64_t>(size - begin, 0) / recordSize;
      std::int64_t const records = header->records == untilTheEnd ? there : header->records;
      for (std::int64_t index = 0; index < std::min(records, there); ++index) {
        std::array<unsigned char, 4> number{};
        std::int64_t const place = begin + index * recordSize;
        if (!Read(place, number.data(), number.size()) || bigEndian(number.data()) == 0) {
          return {};
        }
        if (bigEndian(number.data()) == 1) {
          return Page(place + 4, pageSize, header->nonce);
        }
      }
      if (records > there) {
        return {};
      }
      std::int64_t const end = begin + records * recordSize;
      part = (end + first.sectorSize - 1) / first.sectorSize * first.sectorSize;
    }
    return {};
  }

private:
  std::vector<unsigned char> Page(std::int64_t place, std::int64_t pageSize, std::uint32_t nonce) {
    constexpr std::int64_t checkedDistance = 200;
    std::vector<unsigned char> bytes(static_cast<std::size_t>(pageSize) + 4);
    if (!Read(place, bytes.data(), bytes.size())) {
      return {};
    }
    std::uint32_t sum = nonce;
    for (std::int64_t index = pageSize - checkedDistance; index > 0; index -= checkedDistance) {
      sum += bytes[static_cast<std::size_t>(index)];
    }
    if (sum != bigEndian(bytes.data() + pageSize)) {
      return {};
    }
    return bytes;
  }

  bool Read(std::int64_t place, unsigned char* bytes, std::size_t count) {
    while (count > 0) {
      ssize_t const got = pread(descriptor, bytes, count, place);
      if (got <= 0) {
        errorNumber = got < 0 ? errno : errorNumber;
        return false;
      }
      bytes += got;
      place += got;
      count -= static_cast<std::size_t>(got);
    }
    return true;
  }

  int descriptor;
  int errorNumber = 0;
  std::int64_t size = 0;
};

// What is always true of the journal of a save that was cut off, and of the file that it left: the journal
// reaches the device before a page is changed that it keeps.
bool canBelong(PartHeader const& header, std::int64_t pageSize, FirstPage const* before, FirstPage const& now,
               std::int64_t fileSize) {
  std::int64_t const pages = (fileSize + pageSize - 1) / pageSize;
  if (!before) {
    // The first page changes when the length does.
    return pageSize == now.pageSize && header.pages == pages;
  }
  // A save raises the count of changes. It never makes a file of ours shorter; another program that packs a
  // file does, and may choose other pages for it.
  bool const isEarlier = static_cast<std::int32_t>(now.changes - before->changes) >= 0;
  return before->isOne && before->pageSize == pageSize && isEarlier && header.pages > 0 &&
         header.pages >= before->pages &&
         (before->mayShrink || header.pages <= std::max(pages, before->pages));
}

} // namespace

rfm_JournalVerdict rfm_judgeJournal(std::string const& path, rfm_FileState const& file) {
  Journal journal(path);
  if (journal.ErrorNumber() != 0) {
    return {false, journal.ErrorNumber() == ENOENT ? 0 : journal.ErrorNumber()};
  }
  std::optional<PartHeader> const header = journal.Header(0);
  FirstPage const now(file.header);
  rfm_JournalVerdict verdict;
  if (header) {
    std::int64_t const pageSize = header->pageSize == 0 ? now.pageSize : header->pageSize;
    if (isUnit(pageSize, 512) && isUnit(header->sectorSize, 32)) { // others are not played back
      std::vector<unsigned char> const bytes = journal.FirstPageBefore(*header, pageSize);
      std::optional<FirstPage> before;
      if (!bytes.empty()) {
        before.emplace(bytes.data());
      }
      verdict.isForeign = !canBelong(*header, pageSize, before ? &*before : nullptr, now, file.size);
    }
  }
  verdict.errorNumber = journal.ErrorNumber();
  return verdict;
}
