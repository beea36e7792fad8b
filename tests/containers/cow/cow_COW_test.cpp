// Counted holders and copy-on-write handles.
#include "cow_COW.h"

#include "Tracked.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

namespace {

// A small family of records, to see what the virtual policy copies.
class Base {
public:
  explicit Base(std::string text) : name(std::move(text)) { ++live; }
  Base(Base const& other) : name(other.name) { ++live; }
  Base& operator=(Base const&) = delete;
  virtual ~Base() { --live; }
  virtual Base* Copy() const { return new Base(*this); }
  virtual std::string Kind() const { return "base"; }

  static inline int live = 0;
  std::string name;
};

class Derived : public Base {
public:
  using Base::Base;
  Base* Copy() const override { return new Derived(*this); }
  std::string Kind() const override { return "derived"; }
};

using Holder = cow_CountedHld<Tracked>;
using Handle = cow_COW<Tracked, cow_Direct<Tracked>>;
using ArrayHandle = cow_ArrayCOW<Tracked, cow_Direct<Tracked>>;

class Handles : public testing::Test {
protected:
  ~Handles() override {
    EXPECT_EQ(Tracked::live, 0);
    EXPECT_EQ(Base::live, 0);
    EXPECT_EQ(cow_Counter::LiveCount(), countersBefore);
  }
  std::size_t NewCounters() const { return cow_Counter::LiveCount() - countersBefore; }

  std::size_t countersBefore = cow_Counter::LiveCount();
};

TEST_F(Handles, DefaultHolderHasACounterOfOneAndNoObject) {
  Holder const holder;
  EXPECT_EQ(holder.Count(), 1U);
  EXPECT_TRUE(holder.IsEmpty());
  EXPECT_EQ(NewCounters(), 1U);
}

TEST_F(Handles, DefaultArrayHandleHasACounterOfOneAndNoObject) {
  ArrayHandle const handle;
  EXPECT_EQ(handle.Count(), 1U);
  EXPECT_EQ(handle.Peek(), nullptr);
  EXPECT_EQ(NewCounters(), 1U);
}

TEST_F(Handles, HandleOfAReferenceHoldsACopy) {
  Tracked const original(5);
  Handle const handle(original);
  EXPECT_NE(handle.Peek(), &original);
  EXPECT_EQ(handle.ConstGet().Number(), 5);
  EXPECT_EQ(handle.Count(), 1U);
}

TEST_F(Handles, HandleOfAPointerAdoptsIt) {
  auto* const object = new Tracked(5);
  Handle const handle(object);
  EXPECT_EQ(handle.Peek(), object);
  EXPECT_EQ(handle.Count(), 1U);
  Handle const empty(static_cast<Tracked*>(nullptr));
  EXPECT_TRUE(empty.IsEmpty());
  EXPECT_EQ(empty.Count(), 1U);
}

TEST_F(Handles, CopyingSharesTheObjectAndItsCounter) {
  Handle const first(new Tracked(5));
  Handle const second(first); // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_EQ(second.Peek(), first.Peek());
  EXPECT_EQ(first.Count(), 2U);
  EXPECT_EQ(second.Count(), 2U);
  EXPECT_TRUE(first.IsShared());
  EXPECT_EQ(NewCounters(), 1U);
}

TEST_F(Handles, WritingThroughACopyLeavesTheFirstHandleAsItWas) {
  Handle const first(new Tracked(5));
  Handle second(first);
  second.Get() = Tracked(6);
  EXPECT_EQ(first.ConstGet().Number(), 5);
  EXPECT_EQ(second.ConstGet().Number(), 6);
  EXPECT_EQ(first.Count(), 1U);
  EXPECT_EQ(second.Count(), 1U);
  EXPECT_EQ(NewCounters(), 2U);
}

TEST_F(Handles, ReadingNeverCopies) {
  Handle const first(new Tracked(5));
  Handle const second(first); // NOLINT(performance-unnecessary-copy-initialization)
  int const copies = Tracked::copies;
  EXPECT_EQ(&first.ConstGet(), &second.ConstGet());
  EXPECT_EQ(Tracked::copies, copies);
}

TEST_F(Handles, GetOfASoleHandleReturnsTheSameObjectAndAllocatesNothing) {
  Handle handle(new Tracked(5));
  Tracked const* const object = handle.Peek();
  std::size_t const counters = cow_Counter::LiveCount();
  int const objects = Tracked::live;
  EXPECT_EQ(&handle.Get(), object);
  EXPECT_EQ(cow_Counter::LiveCount(), counters);
  EXPECT_EQ(Tracked::live, objects);
}

TEST_F(Handles, AssigningAHandleToItselfOrToASharerChangesNothing) {
  Handle first(new Tracked(5));
  Handle const& same = first;
  first = same;
  EXPECT_EQ(first.Count(), 1U);
  Handle const second(first);
  first = second;
  EXPECT_EQ(first.Count(), 2U);
  EXPECT_EQ(first.ConstGet().Number(), 5);
  EXPECT_EQ(NewCounters(), 1U);
}

TEST_F(Handles, AssigningDestroysTheOldObjectWithItsLastHandle) {
  Handle first(new Tracked(5));
  Handle const second(new Tracked(6));
  first = second;
  EXPECT_EQ(Tracked::live, 1);
  EXPECT_EQ(first.ConstGet().Number(), 6);
  EXPECT_EQ(second.Count(), 2U);
}

TEST_F(Handles, TheLastSharerDestroysObjectAndCounterOnce) {
  auto first = std::make_unique<Handle>(new Tracked(5));
  auto second = std::make_unique<Handle>(*first);
  first.reset();
  EXPECT_EQ(Tracked::live, 1);
  EXPECT_EQ(second->Count(), 1U);
  second.reset();
  EXPECT_EQ(Tracked::live, 0);
  EXPECT_EQ(NewCounters(), 0U);
}

TEST_F(Handles, ReplacingTheObjectOfASoleHolderDestroysTheOldOne) {
  Holder holder(new Tracked(5));
  std::size_t const counters = cow_Counter::LiveCount();
  Holder& returned = (holder = new Tracked(6));
  EXPECT_EQ(&returned, &holder);
  EXPECT_EQ(Tracked::live, 1);
  EXPECT_EQ(holder.Peek()->Number(), 6);
  EXPECT_EQ(holder.Count(), 1U);
  EXPECT_EQ(cow_Counter::LiveCount(), counters);
}

TEST_F(Handles, ReplacingTheObjectOfASharerLeavesTheOldOneToTheOthers) {
  Holder const first(new Tracked(5));
  Holder const second(first); // NOLINT(performance-unnecessary-copy-initialization)
  Holder third(first);
  third = new Tracked(6);
  EXPECT_EQ(first.Peek()->Number(), 5);
  EXPECT_EQ(first.Count(), 2U);
  EXPECT_EQ(third.Peek()->Number(), 6);
  EXPECT_EQ(third.Count(), 1U);
  EXPECT_EQ(NewCounters(), 2U);
}

TEST_F(Handles, ReplacingWithTheSameObjectKeepsIt) {
  Holder holder(new Tracked(5));
  holder = holder.Peek();
  EXPECT_EQ(holder.Peek()->Number(), 5);
}

TEST_F(Handles, ReplacingWithNullEmptiesTheHandle) {
  ArrayHandle handle(new Tracked(5));
  handle = static_cast<Tracked*>(nullptr);
  EXPECT_TRUE(handle.IsEmpty());
  EXPECT_EQ(handle.Count(), 1U);
  EXPECT_EQ(Tracked::live, 0);
}

TEST_F(Handles, DeleteDestroysObjectAndCounter) {
  Holder holder(new Tracked(5));
  holder.Delete();
  EXPECT_EQ(Tracked::live, 0);
  EXPECT_TRUE(holder.IsEmpty());
  EXPECT_EQ(holder.Count(), 0U);
  EXPECT_EQ(NewCounters(), 0U);
}

TEST_F(Handles, AMovedFromHandleCanBeCopiedAssignedAndFilled) {
  ArrayHandle first(new Tracked(5));
  ArrayHandle const second(std::move(first));
  EXPECT_EQ(second.Count(), 1U);
  EXPECT_EQ(first.Count(), 0U); // NOLINT(bugprone-use-after-move)
  EXPECT_FALSE(first.IsShared());
  ArrayHandle third(first);
  EXPECT_TRUE(third.IsEmpty());
  third = new Tracked(6);
  EXPECT_EQ(third.Count(), 1U);
  first = second;
  EXPECT_EQ(first.ConstGet().Number(), 5);
}

TEST_F(Handles, AFailedCopyLeavesTheHandleAsItWas) {
  Handle const first(new Tracked(5));
  Handle second(first);
  int const failures = Tracked::failures;
  Tracked::failAt = 1;
  EXPECT_THROW(second.Get(), CopyFailed);
  EXPECT_EQ(Tracked::failures, failures + 1);
  EXPECT_EQ(second.Peek(), first.Peek());
  EXPECT_EQ(first.Count(), 2U);
  EXPECT_EQ(NewCounters(), 1U);
}

TEST_F(Handles, AHandleOfABaseCopiesTheDerivedObject) {
  using BaseHandle = cow_COW<Base, cow_Virtual<Base>>;
  BaseHandle const first(new Derived("one"));
  BaseHandle second(first);
  second.Get().name = "two";
  EXPECT_EQ(second.ConstGet().Kind(), "derived");
  EXPECT_EQ(second.ConstGet().name, "two");
  EXPECT_EQ(first.ConstGet().name, "one");
}

TEST_F(Handles, TheVirtualPolicyTakesACopyThatReturnsABase) {
  using DerivedHandle = cow_ArrayCOW<Derived, cow_Virtual<Derived>>;
  DerivedHandle const first(Derived("one"));
  DerivedHandle second(first);
  second.Get().name = "two";
  EXPECT_EQ(first.ConstGet().name + second.ConstGet().Kind(), "onederived");
}

TEST_F(Handles, TheObjectMayReleaseItsOwnHolderWhileItIsReplaced) {
  struct Chain {
    ~Chain() { next = nullptr; }
    std::unique_ptr<cow_CountedHld<Chain>> next;
    Tracked mark;
  };
  cow_CountedHld<Chain> holder(new Chain);
  holder.Peek()->next = std::make_unique<cow_CountedHld<Chain>>(new Chain);
  holder = new Chain;
  EXPECT_EQ(Tracked::live, 1);
}

} // namespace
