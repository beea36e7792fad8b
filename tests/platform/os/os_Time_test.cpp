// Clock, zone and time texts.
#include "os_Runtime.h"
#include "os_Time.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string>
#include <thread>

namespace {

// 2001-09-09 01:46:40 UTC, a Sunday.
constexpr std::int64_t knownMoment = 1000000000;

class Time : public testing::Test {
protected:
  Time() {
    if (char const* const zone = std::getenv("TZ")) {
      formerZone = zone;
    }
  }
  ~Time() override {
    os_runtimeCalls() = os_RuntimeCalls();
    if (formerZone) {
      setZone(formerZone->c_str());
    } else {
      ::unsetenv("TZ");
    }
    os_timezone();
  }

  static void setZone(char const* zone) { ::setenv("TZ", zone, 1); }

  static std::string text(std::int64_t seconds, char const* format) {
    std::array<char, 100> buffer{};
    os_strftime(buffer.data(), buffer.size(), format, _localtime64(&seconds));
    return buffer.data();
  }

private:
  std::optional<std::string> formerZone;
};

TEST_F(Time, ClockRunsAndFillsItsArgument) {
  std::int64_t filled = 0;
  std::int64_t const now = _time64(&filled);
  EXPECT_EQ(filled, now);
  EXPECT_GT(now, 1700000000);
  EXPECT_GE(_time64(nullptr), now);
}

TEST_F(Time, LocalTimeFollowsTheZoneOfTheEnvironment) {
  setZone("UTC0");
  EXPECT_EQ(text(knownMoment, "%Y/%m/%d %H:%M:%S"), "2001/09/09 01:46:40");
  setZone("EST5");
  EXPECT_EQ(text(knownMoment, "%Y/%m/%d %H:%M:%S"), "2001/09/08 20:46:40");
}

TEST_F(Time, ZoneIsSecondsWestOfUtc) {
  setZone("EST5");
  EXPECT_EQ(os_timezone(), 5 * 3600);
  setZone("CET-1");
  EXPECT_EQ(os_timezone(), -3600);
  setZone("UTC0");
  EXPECT_EQ(os_timezone(), 0);
}

TEST_F(Time, ZoneLeavesDaylightSavingOut) {
  setZone("EST5EDT,M1.1.0,M12.5.0");
  ASSERT_EQ(_localtime64(&knownMoment)->tm_isdst, 1);
  EXPECT_EQ(os_timezone(), 5 * 3600);
}

TEST_F(Time, TimesBefore1970AndAfter2038AreKnown) {
  setZone("UTC0");
  EXPECT_EQ(text(-1, "%Y/%m/%d %H:%M:%S"), "1969/12/31 23:59:59");
  EXPECT_EQ(text(4102444800, "%Y/%m/%d %H:%M:%S"), "2100/01/01 00:00:00");
}

TEST_F(Time, AYearThatDoesNotFitHasNoLocalTime) {
  std::int64_t const far = std::numeric_limits<std::int64_t>::max();
  EXPECT_EQ(_localtime64(&far), nullptr);
}

TEST_F(Time, EachThreadHasItsOwnBuffer) {
  setZone("UTC0");
  std::tm const* const mine = _localtime64(&knownMoment);
  std::tm const* others = nullptr;
  std::thread([&others] {
    std::int64_t const later = knownMoment + 3600;
    others = _localtime64(&later);
  }).join();
  EXPECT_NE(mine, others);
  EXPECT_EQ(mine->tm_hour, 1);
}

TEST_F(Time, ATextThatDoesNotFitHasLengthZero) {
  setZone("UTC0");
  std::array<char, 5> buffer{};
  std::tm const* const time = _localtime64(&knownMoment);
  EXPECT_EQ(os_strftime(buffer.data(), buffer.size(), "%Y", time), 4U);
  EXPECT_EQ(os_strftime(buffer.data(), buffer.size(), "%Y/", time), 0U);
}

TEST_F(Time, EveryCallGoesThroughTheTable) {
  static std::tm replaced{};
  replaced.tm_mday = 17;
  os_runtimeCalls().time64 = [](std::int64_t*) -> std::int64_t { return 42; };
  os_runtimeCalls().localtime64 = [](std::int64_t const*) { return &replaced; };
  os_runtimeCalls().timezone = [] { return 4321L; };
  os_runtimeCalls().strftime = [](char*, std::size_t, char const*, std::tm const* time) {
    return static_cast<std::size_t>(time->tm_mday);
  };
  EXPECT_EQ(_time64(nullptr), 42);
  EXPECT_EQ(_localtime64(&knownMoment), &replaced);
  EXPECT_EQ(os_timezone(), 4321);
  EXPECT_EQ(os_strftime(nullptr, 0, "", &replaced), 17U);
}

TEST_F(Time, AssigningADefaultTableRestoresTheRealCalls) {
  os_runtimeCalls().time64 = [](std::int64_t*) -> std::int64_t { return 42; };
  os_runtimeCalls() = os_RuntimeCalls();
  EXPECT_GT(_time64(nullptr), 1700000000);
}

} // namespace
