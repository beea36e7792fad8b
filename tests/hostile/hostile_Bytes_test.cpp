// Files with every byte, page and length wrong: the answer is a message that names the file, or what the file
// holds. DDR_HOSTILE=all looks at all of them; DDR_HOSTILE_SEED repeats a drawing.
#include "damage_corpus.h"
#include "file_probe.h"
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
  corpus_result run(damage_family const& family, std::string const& sound, std::uint64_t drawn,
                    bool change = false) {
    corpus_result result =
        run_corpus(family, sound, folder.path(), {whole_corpus() ? 0 : drawn, seed, change});
    std::cout << result.text() << "\n";
    return result;
  }
  static void expectNoFaults(corpus_result const& result) {
    for (std::string const& fault : result.faults) {
      ADD_FAILURE() << fault;
    }
    EXPECT_GT(result.looked, 0U);
    EXPECT_EQ(result.identical + result.noticed + result.other, result.looked);
    EXPECT_GT(result.noticed, 0U);
  }

  temporary_folder folder;
  unsigned seed = corpus_seed();
};

TEST_F(hostile_Bytes, EveryByteOfSmallPages) {
  std::string const sound = soundFile(smallPage);
  expectNoFaults(run(every_byte(sound), sound, 800));
}

TEST_F(hostile_Bytes, EveryByteOfUsualPages) {
  std::string const sound = soundFile(usualPage);
  expectNoFaults(run(every_byte(sound), sound, 200));
}

TEST_F(hostile_Bytes, EveryByteBeforeASave) {
  std::string const sound = soundFile(smallPage);
  expectNoFaults(run(every_byte(sound), sound, 100, true));
}

TEST_F(hostile_Bytes, EveryPageZeroed) {
  std::string const sound = soundFile(smallPage);
  expectNoFaults(run(every_page(sound, smallPage), sound, 0, true));
}

TEST_F(hostile_Bytes, EveryCut) {
  std::string const sound = soundFile(usualPage);
  corpus_result const result = run(every_cut(sound), sound, 0, true);
  expectNoFaults(result);
  EXPECT_EQ(result.identical + result.other, 0U) << "a file that lacks its end was taken";
}

} // namespace
