// memory_Call.cpp: lets allocations of calls fail.
#include "memory_Call.h"

#include "counts.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string_view>

namespace {

using Lasting = failing_memory::Lasting;

/// Where a text differs from another; empty when it does not.
std::string difference(std::string const& text, std::string const& wanted) {
  if (text == wanted) {
    return {};
  }
  constexpr std::size_t shown = 120;
  auto const place = static_cast<std::size_t>(
      std::mismatch(text.begin(), text.end(), wanted.begin(), wanted.end()).first - text.begin());
  std::size_t const from = place < shown / 2 ? 0 : place - shown / 2;
  return "..." + text.substr(from, shown) + "... in place of ..." + wanted.substr(from, shown) + "...";
}

} // namespace

void memory_tell(std::uint64_t calls, std::uint64_t failures) {
  addToCount("memory", "calls", static_cast<long long>(calls));
  addToCount("memory", "failed allocations", static_cast<long long>(failures));
}

std::string memory_testName(testing::TestParamInfo<memory_call> const& call) {
  std::string name = call.param.name;
  std::replace_if(
      name.begin(), name.end(), [](unsigned char letter) { return std::isalnum(letter) == 0; }, '_');
  return name;
}

bool memory_places::meetsAll() {
  char const* const wanted = std::getenv("DDR_MEMORY");
  if (wanted != nullptr && std::string_view(wanted) != "all") {
    throw std::runtime_error(std::string("DDR_MEMORY is not \"all\": ") + wanted);
  }
  return wanted != nullptr;
}

memory_places::memory_places(std::uint64_t allocations, std::uint64_t affordable,
                             std::uint64_t affordableAtLength, torture_share const& share) {
  std::uint64_t const most = meetsAll() ? allocations : share.isLong() ? affordableAtLength : affordable;
  if (allocations > most) {
    stride = (allocations + most - 1) / most;
    start = 1 + share.seed() % stride;
  }
}

bool memory_test::failAt(std::uint64_t number, Lasting lasting) {
  memory_call const& tried = GetParam();
  bool const looksFirst = (number + (lasting == Lasting::Once ? 0 : 1)) % 2 == 0;
  std::int64_t const blocks = failing_memory::blocks();
  std::uint64_t failures = 0;
  {
    std::shared_ptr<void> const subject = tried.make();
    std::string problem;
    bool threw = false;
    failing_memory::start(number, lasting);
    try {
      tried.call(subject.get());
    } catch (std::bad_alloc const&) {
      failing_memory::stop();
      threw = true;
    } catch (std::exception const& other) {
      failing_memory::stop();
      threw = true;
      problem = other.what();
    }
    failing_memory::stop();
    failures = failing_memory::failures();
    EXPECT_EQ(problem, "");
    EXPECT_TRUE(!threw || failures > 0);
    if (threw && looksFirst) {
      EXPECT_EQ(difference(tried.look(subject.get()), before), "");
    }
    if (threw) {
      tried.call(subject.get());
    }
    EXPECT_EQ(difference(tried.look(subject.get()), done), "")
        << (threw ? "when called again" : "though nothing was thrown");
  }
  EXPECT_EQ(failing_memory::blocks(), blocks) << "blocks leaked";
  return failures > 0;
}

void memory_test::failEach(std::uint64_t affordable) {
  memory_call const& tried = GetParam();
  std::uint64_t allocations = 0;
  for (int warming = 0; warming < 2; ++warming) { // what is made once and kept is there afterwards
    std::shared_ptr<void> subject = tried.make();
    before = tried.look(subject.get());
    subject.reset();
    subject = tried.make();
    failing_memory::start();
    tried.call(subject.get());
    failing_memory::stop();
    allocations = failing_memory::allocations();
    done = tried.look(subject.get());
  }
  RecordProperty("allocations", std::to_string(allocations));
  torture_share const share;
  memory_places const places(allocations, affordable, allocations, share);
  std::uint64_t failures = 0;
  for (Lasting const lasting : {Lasting::Once, Lasting::FromThenOn}) {
    for (std::uint64_t number = places.first();; number += places.step()) {
      SCOPED_TRACE("allocation " + std::to_string(number) + " of " + std::to_string(allocations) +
                   (lasting == Lasting::Once ? "" : " and all later ones"));
      bool const failed = failAt(number, lasting);
      ASSERT_FALSE(HasFailure());
      if (!failed) {
        break;
      }
      ++failures;
    }
  }
  EXPECT_EQ(failures > 0 ? memory_need::Some : memory_need::None, tried.need) << "of memory";
  memory_tell(1, failures);
}
