// Files with every byte, page and length wrong: the answer is a message that names the file, or what the file
// holds. DDR_HOSTILE=all looks at all of them, DDR_HOSTILE=n at n times as many; DDR_HOSTILE_SEED repeats a
// drawing.
#include "counts.h"
#include "damage_corpus.h"
#include "file_probe.h"
#include "layout_files.h"
#include "sanitized.h"
#include "temporary_folder.h"

#include <gtest/gtest.h>

#include <iostream>

namespace {

constexpr int smallPage = 512; // [byte] the smallest that SQLite knows: every kind of page, and few bytes
constexpr int usualPage = 4096;

class hostile_Bytes : public testing::Test {
protected:
  hostile_Bytes() { std::cout << "DDR_HOSTILE_SEED=" << seed << "\n"; }

  std::string soundFile(int pageSize) {
    std::string const path = folder.path("sound");
    make_small_database(path, pageSize);
    return readFile(path);
  }
  /// Damages copies, and expects that every answer is one of those that may be.
  corpus_result expectNoFaults(damage_family const& family, std::string const& sound, std::uint64_t drawn,
                               corpus_work work = corpus_work::Look) {
    corpus_result const result = run_corpus(family, sound, folder.path(), {corpus_limit(drawn), seed, work});
    std::cout << result.text() << "\n";
    addToCount("damaged files", "looked at", static_cast<long long>(result.looked));
    addToCount("damaged files", "identical", static_cast<long long>(result.identical));
    addToCount("damaged files", "noticed", static_cast<long long>(result.noticed));
    addToCount("damaged files", "with other values", static_cast<long long>(result.other));
    for (std::string const& fault : result.faults) {
      ADD_FAILURE() << fault;
    }
    EXPECT_GT(result.looked, 0U);
    EXPECT_EQ(result.identical + result.noticed + result.other, result.looked);
    EXPECT_GT(result.noticed, 0U);
    return result;
  }

  temporary_folder folder;
  unsigned seed = corpus_seed();
};

TEST_F(hostile_Bytes, EveryByteOfSmallPages) {
  std::string const sound = soundFile(smallPage);
  expectNoFaults(every_byte(sound), sound, 800);
}

TEST_F(hostile_Bytes, EveryByteOfUsualPages) {
  std::string const sound = soundFile(usualPage);
  expectNoFaults(every_byte(sound), sound, 200);
}

TEST_F(hostile_Bytes, EveryByteBeforeASave) {
  std::string const sound = soundFile(smallPage);
  expectNoFaults(every_byte(sound), sound, 100, corpus_work::LookAndChange);
}

TEST_F(hostile_Bytes, EveryPageZeroed) {
  std::string const sound = soundFile(smallPage);
  expectNoFaults(every_page(sound, smallPage), sound, 0, corpus_work::LookAndChange);
}

TEST_F(hostile_Bytes, EveryPageEmptied) {
  std::string const sound = soundFile(smallPage);
  expectNoFaults(every_emptied_page(sound, smallPage), sound, 0, corpus_work::LookAndChange);
}

TEST_F(hostile_Bytes, EveryCut) {
  std::string const sound = soundFile(usualPage);
  corpus_result const result = expectNoFaults(every_cut(sound), sound, 0, corpus_work::LookAndChange);
  EXPECT_EQ(result.identical + result.other, 0U) << "a file that lacks its end was taken";
}

TEST_F(hostile_Bytes, EveryByteBeforeAnUpgrade) {
  std::string const sound = soundFile(smallPage);
  expectNoFaults(every_byte(sound), sound, 200, corpus_work::Upgrade);
}

TEST_F(hostile_Bytes, EveryPageZeroedBeforeAnUpgrade) {
  std::string const sound = soundFile(smallPage);
  expectNoFaults(every_page(sound, smallPage), sound, 0, corpus_work::Upgrade);
}

TEST_F(hostile_Bytes, EveryPageEmptiedBeforeAnUpgrade) {
  std::string const sound = soundFile(smallPage);
  expectNoFaults(every_emptied_page(sound, smallPage), sound, 0, corpus_work::Upgrade);
}

TEST_F(hostile_Bytes, EveryCutBeforeAnUpgrade) {
  std::string const sound = soundFile(smallPage);
  expectNoFaults(every_cut(sound), sound, 0, corpus_work::Upgrade);
}

/// The smallest file that there is, a part of its damages a test.
class hostile_Smallest : public hostile_Bytes, public testing::WithParamInterface<std::uint64_t> {};

constexpr std::uint64_t parts = 6;

INSTANTIATE_TEST_SUITE_P(Part, hostile_Smallest, testing::Range(std::uint64_t{0}, parts));

// All of them, but for builds in which that takes many minutes.
TEST_P(hostile_Smallest, EveryByte) {
  std::string const path = folder.path("empty");
  make_empty_database(path, smallPage);
  std::string const sound = readFile(path);
  expectNoFaults(part_of(every_byte(sound), GetParam(), parts), sound, isSanitized ? 35 : 0);
}

/// Files of older releases.
class hostile_OldBytes : public hostile_Bytes, public testing::WithParamInterface<std::string> {
protected:
  std::string oldFile() {
    std::string const path = folder.path("sound");
    make_layout_file(path, GetParam(), "", smallPage);
    return readFile(path);
  }
};

INSTANTIATE_TEST_SUITE_P(Each, hostile_OldBytes, testing::ValuesIn(layout_names()),
                         [](auto const& instance) { return instance.param; });

TEST_P(hostile_OldBytes, EveryByteBeforeAnUpgrade) {
  std::string const sound = oldFile();
  expectNoFaults(every_byte(sound), sound, 40, corpus_work::Upgrade);
}

TEST_P(hostile_OldBytes, EveryPageZeroedBeforeAnUpgrade) {
  std::string const sound = oldFile();
  expectNoFaults(every_page(sound, smallPage), sound, 15, corpus_work::Upgrade);
}

TEST_P(hostile_OldBytes, EveryPageEmptiedBeforeAnUpgrade) {
  std::string const sound = oldFile();
  expectNoFaults(every_emptied_page(sound, smallPage), sound, 15, corpus_work::Upgrade);
}

TEST_P(hostile_OldBytes, EveryCutBeforeAnUpgrade) {
  std::string const sound = oldFile();
  expectNoFaults(every_cut(sound), sound, 5, corpus_work::Upgrade);
}

TEST_P(hostile_OldBytes, EveryByte) {
  std::string const sound = oldFile();
  expectNoFaults(every_byte(sound), sound, 30);
}

TEST_P(hostile_OldBytes, EveryPageZeroed) {
  std::string const sound = oldFile();
  expectNoFaults(every_page(sound, smallPage), sound, 10);
}

TEST_P(hostile_OldBytes, EveryCut) {
  std::string const sound = oldFile();
  expectNoFaults(every_cut(sound), sound, 5);
}

} // namespace
