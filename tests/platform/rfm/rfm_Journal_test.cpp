// Tests of journals beside a file: those that a save has left are played back, others are refused.
#include "rfm_Journal.h"
#include "rfm_TestFiles.h"

#include <cstdint>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/stat.h>

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

struct JournalTest : rfm_Test {
  static constexpr std::size_t pageSize = 4096;

  JournalTest() { saveModels(*std::make_unique<rfm_Database>(createFile(path)), {"a", "b"}); }

  static std::string number(std::uint32_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) {
      bytes += static_cast<char>(value >> static_cast<unsigned>(shift));
    }
    return bytes;
  }
  /// A record of a journal whose nonce is 0.
  static std::string record(std::uint32_t page, std::string const& bytes) {
    std::uint32_t sum = 0;
    for (std::size_t at = bytes.size() - 200; at > 0 && at < bytes.size(); at -= 200) {
      sum += static_cast<unsigned char>(bytes[at]);
    }
    return number(page) + bytes + number(sum);
  }
  static std::string journal(std::uint32_t records, std::uint32_t pages, std::uint32_t size = pageSize,
                             std::uint32_t sector = 512) {
    std::string header = "\xd9\xd5\x05\xf9\x20\xa1\x63\xd7" + number(records) + number(0) + number(pages) +
                         number(sector) + number(size);
    header.resize(512, '\0');
    return header;
  }
  /// The records of all pages of a file.
  static std::string records(std::string const& bytes) {
    std::string all;
    for (std::size_t page = 0; page < bytes.size() / pageSize; ++page) {
      all += record(static_cast<std::uint32_t>(page + 1), bytes.substr(page * pageSize, pageSize));
    }
    return all;
  }
  std::string firstPage() const { return readFile(path).substr(0, pageSize); }
  std::uint32_t pages() const { return static_cast<std::uint32_t>(readFile(path).size() / pageSize); }
  /// Opens the file for writing beside a journal. @returns what is said
  std::string open(std::string const& bytes) {
    writeFile(path + "-journal", bytes);
    return failureOf([&] { openFile(path, utl_FileAccess::Write); });
  }
  void expectRefused(std::string const& bytes, char const* what) {
    std::string const before = readFile(path);
    EXPECT_THAT(open(bytes), AllOf(StartsWith("Other: Database file '" + path + "': the journal beside it"),
                                   HasSubstr("remove '" + path + "-journal'")))
        << what;
    EXPECT_EQ(readFile(path), before) << what;
    EXPECT_EQ(readFile(path + "-journal"), bytes) << what;
    EXPECT_THAT(failureOf([&] { createFile(path); }), HasSubstr("the journal beside it")) << what;
    EXPECT_EQ(readFile(path), before) << what;
  }
};

TEST_F(JournalTest, AJournalThatIsGoneIsNoTrouble) {
  std::string const bytes = readFile(path);
  rfm_JournalVerdict const verdict =
      rfm_judgeJournal(path + "-journal", {reinterpret_cast<unsigned char const*>(bytes.data()),
                                           static_cast<std::int64_t>(bytes.size())});
  EXPECT_FALSE(verdict.isForeign);
  EXPECT_EQ(verdict.errorNumber, 0);
}

TEST_F(JournalTest, AJournalOfAnotherLengthIsRefused) {
  expectRefused(journal(1, 0) + record(1, firstPage()), "of an empty file");
  expectRefused(journal(0, 10), "of a longer one, without pages");
  expectRefused(journal(0, pages() - 1), "of a shorter one, without pages");
  expectRefused(journal(1, 0x7ffffffe) + record(1, firstPage()), "of a huge one");
  expectRefused(journal(1, pages() + 1) + record(1, firstPage()), "longer by a page");
  expectRefused(journal(1, pages() - 1) + record(1, firstPage()), "shorter by a page");
  expectRefused(journal(1, 1) + record(2, std::string(pageSize, 'x')), "without the first page");
}

TEST_F(JournalTest, AJournalOfOtherPagesIsRefused) {
  std::uint32_t const small = 512;
  expectRefused(journal(0, pages() * 8, small), "none");
  expectRefused(journal(1, pages() * 8, small) + record(1, firstPage().substr(0, small)), "the first");
  expectRefused(journal(1, pages()) + record(1, std::string(pageSize, 'x')), "not the first of a database");
}

// A backup is put back where the file was that crashed.
TEST_F(JournalTest, AJournalOfALaterStateIsRefused) {
  std::string const backup = readFile(path);
  saveModels(*std::make_unique<rfm_Database>(openFile(path, utl_FileAccess::Write)), {"c"});
  ASSERT_EQ(readFile(path).size(), backup.size());
  interruptSave(path);
  std::string const left = readFile(path + "-journal");
  writeFile(path, backup);
  expectRefused(left, "of a later state");
  std::filesystem::remove(path + "-journal");
  EXPECT_EQ(contents(path), "a=0 b=1 | a b");
}

TEST_F(JournalTest, TheJournalOfASaveIsPlayedBack) {
  std::string const before = readFile(path);
  interruptSave(path);
  rfm_Database database = openFile(path, utl_FileAccess::Write);
  EXPECT_EQ(contents(database), "a=0 b=1 | a b");
  EXPECT_EQ(readFile(path), before);
  EXPECT_FALSE(std::filesystem::exists(path + "-journal"));
}

// Another program has packed the file, made its pages smaller, and was stopped behind its last change.
TEST_F(JournalTest, TheJournalOfAPackingIsPlayedBack) {
  runSql(path, "CREATE TABLE filler(x); INSERT INTO filler VALUES(zeroblob(100000)); DROP TABLE filler");
  std::string const before = readFile(path);
  std::string const packed = folder.path("packed");
  std::filesystem::copy_file(path, packed);
  runSql(packed, "PRAGMA page_size = 1024; VACUUM");
  std::string const left = journal(pages(), pages()) + records(before);
  writeFile(path, readFile(packed));
  ASSERT_LT(readFile(path).size(), before.size());
  EXPECT_EQ(open(left), "nothing");
  EXPECT_EQ(readFile(path), before);
}

// A program that does not wait for the device leaves the number of pages open.
TEST_F(JournalTest, TheJournalOfASaveWithoutSyncsIsPlayedBack) {
  std::string const before = readFile(path);
  std::string const left = journal(0xffffffff, pages()) + records(before);
  saveModels(*std::make_unique<rfm_Database>(openFile(path, utl_FileAccess::Write)), {"c"});
  EXPECT_EQ(open(left), "nothing");
  EXPECT_EQ(readFile(path), before);
}

TEST_F(JournalTest, TheJournalOfAFileThatShrinksAtEachSaveIsPlayedBack) {
  runSql(path, "PRAGMA auto_vacuum = full; VACUUM; CREATE TABLE filler(x)");
  runSql(path, "INSERT INTO filler VALUES(zeroblob(100000))");
  std::string const before = readFile(path);
  std::string const left = journal(pages(), pages()) + records(before);
  runSql(path, "DELETE FROM filler");
  ASSERT_LT(readFile(path).size(), before.size());
  EXPECT_EQ(open(left), "nothing");
  EXPECT_EQ(readFile(path), before);
}

TEST_F(JournalTest, TheJournalOfAFileOfTheLargestPagesIsPlayedBack) {
  runSql(path, "PRAGMA page_size = 65536; VACUUM");
  std::string const before = readFile(path);
  constexpr std::uint32_t largest = 65536;
  std::string const left = journal(1, static_cast<std::uint32_t>(before.size() / largest), largest) +
                           record(1, before.substr(0, largest));
  runSql(path, "PRAGMA user_version = 7");
  runSql(path, "PRAGMA user_version = 1");
  ASSERT_NE(readFile(path), before);
  EXPECT_EQ(open(left), "nothing");
  EXPECT_EQ(readFile(path), before);
}

// SQLite stops where a journal is not whole; what was written behind did not reach the device.
TEST_F(JournalTest, AJournalThatWasNotWrittenToItsEndIsPlayedBackAsFarAsItGoes) {
  std::string const before = readFile(path);
  std::string const second = record(2, before.substr(pageSize, pageSize));
  std::string broken = record(1, std::string(pageSize, 'x'));
  broken.back() = static_cast<char>(broken.back() + 1);
  for (std::string const& rest : {std::string(), record(0, std::string(pageSize, 'x')), broken}) {
    EXPECT_EQ(open(journal(5, pages()) + second + rest), "nothing");
    EXPECT_EQ(readFile(path), before);
    EXPECT_FALSE(std::filesystem::exists(path + "-journal"));
  }
}

TEST_F(JournalTest, AJournalWithoutPagesChangesNothing) {
  std::string const before = readFile(path);
  for (std::uint32_t const size : {std::uint32_t{pageSize}, 0U}) { // 0: the pages are as the file has them
    EXPECT_EQ(open(journal(0, pages(), size)), "nothing") << size;
    EXPECT_EQ(readFile(path), before) << size;
  }
}

TEST_F(JournalTest, AJournalOfImpossiblePagesOrSectorsIsNotPlayedBack) {
  std::string const before = readFile(path);
  std::string const wrong = record(1, std::string(pageSize, 'x'));
  for (std::uint32_t const size : {256U, 5000U, 131072U}) {
    EXPECT_EQ(open(journal(1, pages(), size) + wrong), "nothing") << size;
    EXPECT_EQ(readFile(path), before) << size;
  }
  for (std::uint32_t const sector : {0U, 16U, 500U, 131072U}) {
    EXPECT_EQ(open(journal(1, pages(), pageSize, sector) + wrong), "nothing") << sector;
    EXPECT_EQ(readFile(path), before) << sector;
  }
}

// The definitions are first read as the save has left them.
TEST_F(JournalTest, AnInterruptedSaveThatDefinedTooMuchIsTakenBack) {
  std::string const before = readFile(path);
  std::string const left = journal(pages(), pages()) + records(before);
  runSql(path, "CREATE VIEW long AS SELECT '" + std::string(900'000, 'x') + "'");
  EXPECT_EQ(open(left), "nothing");
  EXPECT_EQ(readFile(path), before);
}

TEST_F(JournalTest, WhatIsNoJournalIsNotPlayedBack) {
  std::string const before = readFile(path);
  for (std::string const& bytes : {std::string(), std::string(5000, 'j'), journal(0, 10).substr(0, 20)}) {
    EXPECT_EQ(open(bytes), "nothing");
    EXPECT_EQ(readFile(path), before);
  }
}

} // namespace
