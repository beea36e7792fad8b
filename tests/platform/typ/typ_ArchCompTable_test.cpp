// The table of type names.
#include "typ_ArchCompTable.h"
#include "typ_Library.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr std::array<typ_Entry, 3> entries{{{0, 0, nullptr}, {7, 1, "x_Root"}, {7, 0x120001, "x_Leaf"}}};

class ArchCompTable : public testing::Test {
protected:
  ArchCompTable() { typ_ArchCompTable::InsertEntry(0x12, {entries.data(), entries.size()}); }
  ~ArchCompTable() override { typ_ArchCompTable::Clear(); }
};

TEST_F(ArchCompTable, NamesByComponentAndIndex) {
  EXPECT_STREQ(typ_ArchCompTable::GetName(0x120001), "x_Root");
  EXPECT_STREQ(typ_ArchCompTable::GetName(0x120002), "x_Leaf");
}

TEST_F(ArchCompTable, KnowsKindAndBase) {
  EXPECT_EQ(typ_ArchCompTable::GetKind(0x120002), 7U);
  EXPECT_EQ(typ_ArchCompTable::GetBase(0x120001), 1U);
  EXPECT_EQ(typ_ArchCompTable::GetBase(0x120002), 0x120001U);
}

TEST_F(ArchCompTable, AnEmptyPlaceHasAnEmptyName) {
  EXPECT_STREQ(typ_ArchCompTable::GetName(0x120000), "");
  EXPECT_EQ(typ_ArchCompTable::GetKind(0x120000), 0U);
}

TEST_F(ArchCompTable, UnknownTypesHaveNoNameKindOrBase) {
  for (unsigned const unknown : {0x120003U, 0x12ffffU, 0x130001U, 0U, 0xffffffffU}) {
    EXPECT_STREQ(typ_ArchCompTable::GetName(unknown), "") << unknown;
    EXPECT_EQ(typ_ArchCompTable::GetKind(unknown), 0U) << unknown;
    EXPECT_EQ(typ_ArchCompTable::GetBase(unknown), 0U) << unknown;
  }
}

TEST_F(ArchCompTable, InsertingAComponentAgainReplacesIt) {
  constexpr std::array<typ_Entry, 2> other{{{0, 0, nullptr}, {7, 1, "y_Root"}}};
  typ_ArchCompTable::InsertEntry(0x12, {other.data(), other.size()});
  EXPECT_STREQ(typ_ArchCompTable::GetName(0x120001), "y_Root");
  EXPECT_STREQ(typ_ArchCompTable::GetName(0x120002), "");
}

TEST_F(ArchCompTable, ComponentsDoNotDisturbEachOther) {
  constexpr std::array<typ_Entry, 2> other{{{0, 0, nullptr}, {7, 1, "z_Root"}}};
  typ_ArchCompTable::InsertEntry(0xffff, {other.data(), other.size()});
  EXPECT_STREQ(typ_ArchCompTable::GetName(0xffff0001), "z_Root");
  EXPECT_STREQ(typ_ArchCompTable::GetName(0x120001), "x_Root");
}

TEST_F(ArchCompTable, CopiesWhatItIsGiven) {
  std::string name = "x_Short";
  std::vector<typ_Entry> given{{7, 1, name.c_str()}};
  typ_ArchCompTable::InsertEntry(0x14, {given.data(), 1});
  name = "overwritten";
  given.clear();
  EXPECT_STREQ(typ_ArchCompTable::GetName(0x140000), "x_Short");
}

TEST_F(ArchCompTable, ANameOutlivesItsEntry) {
  char const* const name = typ_ArchCompTable::GetName(0x120001);
  typ_ArchCompTable::Clear();
  EXPECT_STREQ(name, "x_Root");
}

TEST_F(ArchCompTable, EntriesBeyondTheIndexAreLeftOut) {
  std::vector<typ_Entry> const many(0x10001, typ_Entry{7, 1, "x_Many"});
  typ_ArchCompTable::InsertEntry(0x15, {many.data(), static_cast<unsigned>(many.size())});
  EXPECT_STREQ(typ_ArchCompTable::GetName(0x15ffff), "x_Many");
  EXPECT_STREQ(typ_ArchCompTable::GetName(0x160000), "");
}

TEST_F(ArchCompTable, OnlyTheLastStopOfTheLibraryEmptiesIt) {
  int libraries = 0;
  typ_initialize(libraries);
  typ_initialize(libraries);
  typ_finalize(libraries);
  EXPECT_STREQ(typ_ArchCompTable::GetName(0x120001), "x_Root");
  typ_finalize(libraries);
  EXPECT_STREQ(typ_ArchCompTable::GetName(0x120001), "");
}

TEST_F(ArchCompTable, IsReadAndChangedByManyThreads) {
  std::vector<std::thread> threads;
  std::array<int, 4> wrong{};
  for (unsigned thread = 0; thread < 4; ++thread) {
    threads.emplace_back([thread, &wrong] {
      for (int round = 0; round < 500; ++round) {
        auto const component = static_cast<unsigned short>(0x20 + thread);
        typ_ArchCompTable::InsertEntry(component, {entries.data(), entries.size()});
        std::string const own = typ_ArchCompTable::GetName((0x20U + thread) << 16 | 1U);
        std::string const others = typ_ArchCompTable::GetName(0x120002);
        wrong[thread] += own != "x_Root" || others != "x_Leaf" ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(wrong, (std::array<int, 4>{}));
}

} // namespace
