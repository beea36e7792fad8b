// Handles whose type only their class knows.
#include "cow_Erasure.h"

#include "Tracked.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

struct Record {
  virtual ~Record() = default;
  virtual Record* Copy() const { return new Record(*this); }
  Tracked value{7};
};

using Handle = cow_COW<Record, cow_Virtual<Record>>;
using ArrayHandle = cow_ArrayCOW<Record, cow_Virtual<Record>>;

TEST(Erasure, AnErasedHandleSharesTheObject) {
  Handle const handle(new Record);
  cow_ErasedHandle* const erased = cow_eraseHandle(handle);
  EXPECT_EQ(handle.Count(), 2U);
  EXPECT_EQ(erased->Count(), 2U);
  EXPECT_FALSE(cow_Erasure<Handle>::IsSole(*erased));
  cow_releaseErased<Record>(erased);
  EXPECT_EQ(handle.Count(), 1U);
  EXPECT_EQ(Tracked::live, 1);
}

TEST(Erasure, ReleasingTheLastHandleDestroysTheObjectWithItsOwnType) {
  std::size_t const counters = cow_Counter::LiveCount();
  auto handle = std::make_unique<ArrayHandle>(new Record);
  cow_ErasedHandle* const erased = cow_eraseHandle(*handle);
  handle.reset();
  EXPECT_EQ(Tracked::live, 1);
  EXPECT_TRUE(cow_Erasure<ArrayHandle>::IsSole(*erased));
  cow_releaseErased<Record>(erased);
  EXPECT_EQ(Tracked::live, 0);
  EXPECT_EQ(cow_Counter::LiveCount(), counters);
}

TEST(Erasure, AHandleIsRestoredFromAnErasedOne) {
  ArrayHandle const handle(new Record);
  cow_ErasedHandle* const erased = cow_eraseHandle(handle);
  {
    ArrayHandle restored = cow_Erasure<ArrayHandle>::Restore(*erased);
    EXPECT_EQ(restored.Peek(), handle.Peek());
    EXPECT_EQ(handle.Count(), 3U);
    restored.Get().value = Tracked(8);
    EXPECT_EQ(handle.ConstGet().value.Number(), 7);
  }
  EXPECT_EQ(handle.Count(), 2U);
  cow_releaseErased<Record>(erased);
}

TEST(Erasure, ReleasingNullDoesNothing) {
  std::size_t const counters = cow_Counter::LiveCount();
  cow_releaseErased<Record>(nullptr);
  EXPECT_EQ(cow_Counter::LiveCount(), counters);
}

} // namespace
