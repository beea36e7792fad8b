// Debug levels by component.
#include "typ_DebugFlags.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

class DebugFlags : public testing::Test {
protected:
  ~DebugFlags() override {
    typ_DebugFlags::SetDebugFlags(34, 0);
    typ_DebugFlags::SetDebugFlags(35, 0);
  }
};

TEST_F(DebugFlags, AreZeroUntilSet) {
  EXPECT_EQ(typ_DebugFlags::GetDebugFlags(34), 0);
}

TEST_F(DebugFlags, BelongToOneComponent) {
  typ_DebugFlags::SetDebugFlags(34, 2);
  EXPECT_EQ(typ_DebugFlags::GetDebugFlags(34), 2);
  EXPECT_EQ(typ_DebugFlags::GetDebugFlags(35), 0);
}

TEST_F(DebugFlags, HoldForAllThreads) {
  typ_DebugFlags::SetDebugFlags(35, 3);
  int seen = 0;
  std::thread([&seen] { seen = typ_DebugFlags::GetDebugFlags(35); }).join();
  EXPECT_EQ(seen, 3);
}

} // namespace
