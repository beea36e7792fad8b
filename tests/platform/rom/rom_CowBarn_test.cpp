// rom_CowBarn: the object cache.
#include "rom_CowBarn.h"

#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace {

std::vector<rom_CowBarn::Handle*>& released() {
  static std::vector<rom_CowBarn::Handle*> handles;
  return handles;
}

void release(rom_CowBarn::Handle* handle) {
  released().push_back(handle);
  delete handle;
}

class rom_CowBarn_ : public testing::Test {
protected:
  rom_CowBarn_() { released().clear(); }
  static rom_CowBarn::Handle* made(int value) { return new rom_CowBarn::Handle(new int(value)); }
  rom_CowBarn barn;
};

TEST_F(rom_CowBarn_, FindsWhatWasInserted) {
  rom_CowBarn::Handle* const handle = made(7);
  EXPECT_EQ(barn.Insert(1, 5, handle, release), handle);
  EXPECT_EQ(barn.Find(1, 5), handle);
  EXPECT_EQ(barn.Find(1, 6), nullptr);
  EXPECT_EQ(barn.Find(2, 5), nullptr);
  EXPECT_EQ(barn.Size(), 1);
}

TEST_F(rom_CowBarn_, InsertingAgainReleasesTheFirst) {
  rom_CowBarn::Handle* const first = made(1);
  barn.Insert(1, 5, first, release);
  barn.Insert(1, 5, made(2), release);
  EXPECT_EQ(released(), std::vector<rom_CowBarn::Handle*>{first});
  EXPECT_EQ(barn.Find(1, 5)->ConstGet(), 2);
}

TEST_F(rom_CowBarn_, ClearReleasesEachHandleOnceAndBeginsANewPass) {
  barn.Insert(1, 1, made(1), release);
  barn.Insert(1, 2, made(2), release);
  std::uint64_t const before = barn.Generation();
  barn.Clear();
  EXPECT_EQ(released().size(), 2U);
  EXPECT_EQ(barn.Size(), 0);
  EXPECT_EQ(barn.Generation(), before + 1);
  barn.Clear();
  EXPECT_EQ(released().size(), 2U);
}

TEST_F(rom_CowBarn_, DestructionReleases) {
  {
    rom_CowBarn other;
    other.Insert(3, 0, made(1), release);
  }
  EXPECT_EQ(released().size(), 1U);
}

} // namespace
