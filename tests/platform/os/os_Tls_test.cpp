// Per-thread slots.
#include "os_Runtime.h"
#include "os_Tls.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

namespace {

struct Slot {
  Slot() : number(TlsAlloc()) {}
  Slot(Slot const&) = delete;
  Slot& operator=(Slot const&) = delete;
  ~Slot() { TlsFree(number); }

  unsigned const number;
};

TEST(Tls, OutOfIndexesHasAllBitsSet) {
  EXPECT_EQ(TLS_OUT_OF_INDEXES, 0xffffffffU);
  EXPECT_EQ(TLS_OUT_OF_INDEXES, ~0U);
}

TEST(Tls, ANewSlotReadsAsNull) {
  Slot const slot;
  ASSERT_NE(slot.number, TLS_OUT_OF_INDEXES);
  EXPECT_EQ(TlsGetValue(slot.number), nullptr);
}

TEST(Tls, EachThreadKeepsItsOwnValue) {
  Slot const slot;
  int mine = 0;
  int others = 0;
  ASSERT_TRUE(TlsSetValue(slot.number, &mine));
  void* seenAtFirst = &mine;
  void* seenAfterwards = nullptr;
  std::thread([&] {
    seenAtFirst = TlsGetValue(slot.number);
    TlsSetValue(slot.number, &others);
    seenAfterwards = TlsGetValue(slot.number);
  }).join();
  EXPECT_EQ(seenAtFirst, nullptr);
  EXPECT_EQ(seenAfterwards, &others);
  EXPECT_EQ(TlsGetValue(slot.number), &mine);
}

TEST(Tls, SlotsAreApart) {
  Slot const first;
  Slot const second;
  int value = 0;
  TlsSetValue(first.number, &value);
  EXPECT_EQ(TlsGetValue(second.number), nullptr);
}

TEST(Tls, ASlotTakenAgainReadsAsNull) {
  int value = 0;
  unsigned const former = TlsAlloc();
  TlsSetValue(former, &value);
  ASSERT_TRUE(TlsFree(former));
  Slot const slot;
  EXPECT_EQ(TlsGetValue(slot.number), nullptr);
}

TEST(Tls, NoSlotTakesNoValue) {
  int value = 0;
  EXPECT_EQ(TlsGetValue(TLS_OUT_OF_INDEXES), nullptr);
  EXPECT_FALSE(TlsSetValue(TLS_OUT_OF_INDEXES, &value));
  EXPECT_FALSE(TlsFree(TLS_OUT_OF_INDEXES));
}

TEST(Tls, AFreedSlotIsNotTaken) {
  unsigned const slot = TlsAlloc();
  EXPECT_TRUE(TlsFree(slot));
  EXPECT_FALSE(TlsFree(slot));
  EXPECT_FALSE(TlsSetValue(slot, nullptr));
}

TEST(Tls, AnswersOutOfIndexesWhenAllSlotsAreTaken) {
  std::vector<unsigned> taken;
  unsigned slot = TlsAlloc();
  for (; slot != TLS_OUT_OF_INDEXES && taken.size() < 100000; slot = TlsAlloc()) {
    taken.push_back(slot);
  }
  for (unsigned const used : taken) {
    EXPECT_TRUE(TlsFree(used));
  }
  EXPECT_EQ(slot, TLS_OUT_OF_INDEXES);
  EXPECT_EQ(std::set<unsigned>(taken.begin(), taken.end()).size(), taken.size());
}

class ReplacedTls : public testing::Test {
protected:
  ~ReplacedTls() override { os_runtimeCalls() = os_RuntimeCalls(); }
};

TEST_F(ReplacedTls, EveryCallGoesThroughTheTable) {
  static unsigned freed = 0;
  static void* set = nullptr;
  freed = 0;
  int value = 0;
  os_runtimeCalls().tlsAlloc = [] { return 77U; };
  os_runtimeCalls().tlsGetValue = [](unsigned slot) { return slot == 77 ? set : nullptr; };
  os_runtimeCalls().tlsSetValue = [](unsigned, void* given) {
    set = given;
    return true;
  };
  os_runtimeCalls().tlsFree = [](unsigned slot) {
    freed = slot;
    return true;
  };
  EXPECT_EQ(TlsAlloc(), 77U);
  EXPECT_TRUE(TlsSetValue(77, &value));
  EXPECT_EQ(TlsGetValue(77), &value);
  EXPECT_TRUE(TlsFree(77));
  EXPECT_EQ(freed, 77U);
}

} // namespace
