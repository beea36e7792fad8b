// The times of a database in the zones and locales of the run time itself. Zone and locale belong to the
// process, so each text comes from a child process.
#include "ddr_ModuleTest.h"

#include "child_process.h"
#include "recording_rows.h"
#include "run_program.h"

#include <climits>
#include <clocale>
#include <cstdlib>
#include <memory>

namespace {

constexpr int march = 1709622489; // 2024-03-05 07:08:09 in Greenwich
constexpr int july = 1720163289;  // 2024-07-05 07:08:09 in Greenwich

/// One kind of local time in a zone file.
struct LocalTime {
  int secondsEast = 0;
  bool daylight = false;
  std::string name = {};
};

void appendBigEndian(std::string& bytes, std::int64_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) {
    bytes += static_cast<char>(static_cast<unsigned char>(static_cast<std::uint64_t>(value) >> shift));
  }
}

/// The bytes of a zone file.
/// @param times the first counts at the beginning and from November on, the second, if any, from April on
std::string zoneFile(std::vector<LocalTime> const& times) {
  std::vector<std::int64_t> changes;
  if (times.size() > 1) {
    changes = {1698796800, 1711929600, 1730419200}; // November 2023, April and November 2024
  }
  std::string names;
  std::string kinds;
  for (LocalTime const& time : times) {
    appendBigEndian(kinds, time.secondsEast);
    kinds += static_cast<char>(time.daylight ? 1 : 0);
    kinds += static_cast<char>(names.size());
    names.append(time.name).push_back('\0');
  }
  std::string bytes = "TZif" + std::string(16, '\0');
  for (std::size_t const count :
       {std::size_t{0}, std::size_t{0}, std::size_t{0}, changes.size(), times.size(), names.size()}) {
    appendBigEndian(bytes, static_cast<std::int64_t>(count));
  }
  for (std::int64_t const change : changes) {
    appendBigEndian(bytes, change);
  }
  for (std::size_t place = 0; place < changes.size(); ++place) {
    bytes += static_cast<char>(place % 2);
  }
  return bytes + kinds + names;
}

class DdrTimeZone : public ddr_ModuleTest {
protected:
  /// The creation time of a stored record as text.
  static std::string timeText(int seconds) {
    auto stored = std::make_shared<stored_object>();
    stored->ints["creationTime"] = {seconds};
    recording_source const source(stored, "");
    return ddr_Ddb(cls_ReadVisitor(source)).CreateTime().Text();
  }

  /// The text in a zone, in a process of its own.
  /// @param zone what TZ is set to
  /// @param locale name of a locale that makeLocale made; empty: the one of a program that sets none
  std::string textIn(std::string const& zone, int seconds, std::string const& locale = "") {
    return in_child([&] {
      setenv("TZ", zone.c_str(), 1);
      setenv("LOCPATH", folder.path().c_str(), 1);
      if (!locale.empty() && std::setlocale(LC_CTYPE, locale.c_str()) == nullptr) {
        return "no locale " + locale;
      }
      return timeText(seconds);
    });
  }

  /// The zone alone, as it stands in the text.
  std::string zoneIn(std::string const& zone, int seconds, std::string const& locale = "") {
    std::string const text = textIn(zone, seconds, locale);
    std::size_t const begin = std::string("Tue Mar 05 07:08:09 ").size();
    return text.size() < begin ? text : text.substr(begin, text.rfind(' ') - begin);
  }

  /// A zone of our own, for TZ.
  std::string makeZone(std::vector<LocalTime> const& times) {
    writeFile(folder.path("zone"), zoneFile(times));
    return ":" + folder.path("zone");
  }
  std::string namelessZoneAt(int minutesEast) { return zoneIn(makeZone({{minutesEast * 60}}), march); }

  /// Makes a locale of a character set. The compiler of locales complains about gaps in every locale, so its
  /// status tells nothing: a locale that is missing shows when it is used.
  /// @return its name
  std::string makeLocale(std::string const& characters) {
    std::string const name = "made." + characters;
    run_program(DDR_LOCALEDEF, {"--quiet", "--force", "--no-archive", "--inputfile=POSIX",
                                "--charmap=" + characters, folder.path(name)});
    return name;
  }
};

TEST_F(DdrTimeZone, RealZonesPrintTheirNames) {
  EXPECT_EQ(textIn("UTC", march), "Tue Mar 05 07:08:09 UTC 2024");
  EXPECT_EQ(textIn("America/Phoenix", march), "Tue Mar 05 00:08:09 MST 2024");
  EXPECT_EQ(textIn("Asia/Kolkata", march), "Tue Mar 05 12:38:09 IST 2024");
  EXPECT_EQ(textIn("Asia/Kamchatka", march), "Tue Mar 05 19:08:09 +12 2024");
  EXPECT_EQ(textIn("Pacific/Tongatapu", march), "Tue Mar 05 20:08:09 +13 2024");
}

TEST_F(DdrTimeZone, RealZonesPrintTheNameOfTheSeason) {
  EXPECT_EQ(textIn("America/New_York", march), "Tue Mar 05 02:08:09 EST 2024");
  EXPECT_EQ(textIn("America/New_York", july), "Fri Jul 05 03:08:09 EDT 2024");
  EXPECT_EQ(textIn("Europe/Berlin", march), "Tue Mar 05 08:08:09 CET 2024");
  EXPECT_EQ(textIn("Europe/Berlin", july), "Fri Jul 05 09:08:09 CEST 2024");
  EXPECT_EQ(textIn("Pacific/Auckland", march), "Tue Mar 05 20:08:09 NZDT 2024");
  EXPECT_EQ(textIn("Pacific/Auckland", july), "Fri Jul 05 19:08:09 NZST 2024");
}

TEST_F(DdrTimeZone, ARuleInTheEnvironmentIsAZoneToo) {
  EXPECT_EQ(textIn("XST5XDT,M4.1.0,M11.1.0", march), "Tue Mar 05 02:08:09 XST 2024");
  EXPECT_EQ(textIn("XST5XDT,M4.1.0,M11.1.0", july), "Fri Jul 05 03:08:09 XDT 2024");
}

TEST_F(DdrTimeZone, ANamelessZonePrintsItsDistance) {
  EXPECT_EQ(textIn(makeZone({{0}}), march), "Tue Mar 05 07:08:09 GMT-00:00 2024");
  EXPECT_EQ(textIn(makeZone({{-5 * 3600}}), march), "Tue Mar 05 02:08:09 GMT-05:00 2024");
  EXPECT_EQ(textIn(makeZone({{5 * 3600 + 1800}}), march), "Tue Mar 05 12:38:09 GMT+05:30 2024");
}

TEST_F(DdrTimeZone, NamelessZonesTwelveHoursAndMoreToTheEastPrintTheOtherSide) {
  EXPECT_EQ(textIn(makeZone({{12 * 3600}}), march), "Tue Mar 05 19:08:09 GMT-12:00 2024");
  EXPECT_EQ(textIn(makeZone({{13 * 3600}}), march), "Tue Mar 05 20:08:09 GMT-11:00 2024");
  EXPECT_EQ(namelessZoneAt(14 * 60), "GMT-10:00");
  EXPECT_EQ(namelessZoneAt(12 * 60 + 45), "GMT-11:15");
  EXPECT_EQ(namelessZoneAt(11 * 60 + 59), "GMT+11:59");
}

TEST_F(DdrTimeZone, NamelessZonesToTheWestKeepTheirMinutes) {
  EXPECT_EQ(namelessZoneAt(-30), "GMT-00:30");
  EXPECT_EQ(namelessZoneAt(-(3 * 60 + 30)), "GMT-03:30");
  EXPECT_EQ(namelessZoneAt(-12 * 60), "GMT-12:00");
}

TEST_F(DdrTimeZone, DaylightSavingMovesANamelessZone) {
  struct Season {
    int hoursEast;
    std::string standard;
    std::string daylight;
  };
  for (Season const& season : {Season{-5, "GMT-05:00", "GMT-04:00"}, Season{0, "GMT-00:00", "GMT+01:00"},
                               Season{1, "GMT+01:00", "GMT+02:00"}, Season{12, "GMT-12:00", "GMT-11:00"}}) {
    std::string const zone = makeZone({{season.hoursEast * 3600}, {(season.hoursEast + 1) * 3600, true}});
    EXPECT_EQ(zoneIn(zone, march), season.standard);
    EXPECT_EQ(zoneIn(zone, july), season.daylight);
  }
}

TEST_F(DdrTimeZone, ANameWithACharacterOfSeveralBytesIsPrintedAsADistance) {
  std::string const locale = makeLocale("UTF-8");
  EXPECT_EQ(zoneIn(makeZone({{3600, false, "M\xc3\x89Z"}}), march, locale), "GMT+01:00");
  EXPECT_EQ(zoneIn(makeZone({{3600, false, "\xe2\x82\xac"}}), march, locale), "GMT+01:00");
  EXPECT_EQ(zoneIn(makeZone({{3600, false, "PLAIN\xc3\x89"}}), march, locale), "GMT+01:00");
  EXPECT_EQ(zoneIn(makeZone({{3600, false, "MEZ"}}), march, locale), "MEZ");
}

TEST_F(DdrTimeZone, BytesThatAreNoCharacterArePrintedAsADistance) {
  std::string const locale = makeLocale("UTF-8");
  EXPECT_EQ(zoneIn(makeZone({{3600, false, "M\xc9Z"}}), march, locale), "GMT+01:00");
}

TEST_F(DdrTimeZone, AByteAbove127IsPlainWhereItIsACharacter) {
  // In a locale of single bytes only the comparison with 127 could refuse it.
  std::string const locale = makeLocale("ISO-8859-1");
  EXPECT_EQ(textIn(makeZone({{3600, false, "M\xc9Z"}}), march, locale), "Tue Mar 05 08:08:09 M\xc9Z 2024");
}

TEST_F(DdrTimeZone, ALongNameIsCutAt80BytesAndATooLongOneIsADistance) {
  EXPECT_EQ(textIn(makeZone({{3600, false, std::string(54, 'Z')}}), march),
            "Tue Mar 05 08:08:09 " + std::string(54, 'Z') + " 2024");
  EXPECT_EQ(textIn(makeZone({{3600, false, std::string(56, 'Z')}}), march),
            "Tue Mar 05 08:08:09 " + std::string(56, 'Z') + " 202");
  EXPECT_EQ(textIn(makeZone({{3600, false, std::string(79, 'Z')}}), march),
            "Tue Mar 05 08:08:09 " + std::string(60, 'Z'));
  EXPECT_EQ(textIn(makeZone({{3600, false, std::string(80, 'Z')}}), march),
            "Tue Mar 05 08:08:09 GMT+01:00 2024");
}

TEST_F(DdrTimeZone, EveryStoredTimeHasAText) {
  EXPECT_EQ(textIn("UTC", -1), "Wed Dec 31 23:59:59 UTC 1969");
  EXPECT_EQ(textIn("UTC", 0), "Thu Jan 01 00:00:00 UTC 1970");
  EXPECT_EQ(textIn("UTC", INT_MIN), "Fri Dec 13 20:45:52 UTC 1901");
  EXPECT_EQ(textIn("UTC", INT_MAX), "Tue Jan 19 03:14:07 UTC 2038");
  EXPECT_EQ(textIn(makeZone({{-12 * 3600}}), INT_MIN), "Fri Dec 13 08:45:52 GMT-12:00 1901");
}

/// What create_database says when it runs at a local time.
class DdrCreateAtTime : public ddr_ModuleTest {
protected:
  /// @param time "2024-03-05 07:08:09", the local time at which the clock stands still
  std::string createdAt(std::string const& zone, std::string const& time, std::string const& file) {
    program_settings settings;
    settings.folder = folder.path();
    return in_child([&] {
      setenv("TZ", zone.c_str(), 1);
      // A sanitizer's start and faketime's wait for each other: there the program stops its own clock.
      bool const sanitized = *DDR_SANITIZED_WITH != 0;
      program_result const result =
          sanitized ? run_program(DDR_CREATE_DATABASE, {file, time}, settings)
                    : run_program(DDR_FAKETIME, {"-f", time, DDR_CREATE_DATABASE, file}, settings);
      return result.out + result.err;
    });
  }

  static std::string padded(std::string name) {
    name.resize(2048, ' ');
    return name;
  }
};

TEST_F(DdrCreateAtTime, ThePersistentNameHasTheLocalSecond) {
  EXPECT_EQ(createdAt("UTC", "2024-03-05 07:08:09", "a.odb"),
            padded("2024/03/05 07:08:09 a.odb") + "|Tue Mar 05 07:08:09 UTC 2024");
  EXPECT_EQ(createdAt("Asia/Kolkata", "2024-03-05 07:08:09", "b.odb"),
            padded("2024/03/05 07:08:09 b.odb") + "|Tue Mar 05 07:08:09 IST 2024");
  EXPECT_EQ(createdAt("America/New_York", "2024-12-31 23:59:59", "c.odb"),
            padded("2024/12/31 23:59:59 c.odb") + "|Tue Dec 31 23:59:59 EST 2024");
}

TEST_F(DdrCreateAtTime, AFileNameThatIsTooLongIsCutInThePersistentName) {
  std::string file;
  while (file.size() < 3000 - 10) {
    file += "./";
  }
  file += "0123.odb";
  std::string const wanted = ("2024/03/05 07:08:09 " + file).substr(0, 2048);
  EXPECT_EQ(createdAt("UTC", "2024-03-05 07:08:09", file).substr(0, 2049), wanted + "|");
  EXPECT_EQ(folder.names(), Texts{"0123.odb"});
}

TEST_F(DdrCreateAtTime, TheClockOfTheRunTimeGivesTheSameNameInTheSameZone) {
  std::string const name = in_child([&] {
    setenv("TZ", "Asia/Kolkata", 1);
    os_runtimeCalls().time64 = [](std::int64_t*) { return std::int64_t{march}; };
    return std::string(create("a.odb").Text());
  });
  EXPECT_EQ(name, padded("2024/03/05 12:38:09 " + folder.path("a.odb")));
}

TEST_F(DdrCreateAtTime, BeyondTheYear2038TheNameIsRightAndTheStoredTimeWraps) {
  EXPECT_EQ(createdAt("UTC", "2040-01-02 03:04:05", "a.odb"),
            padded("2040/01/02 03:04:05 a.odb") + "|Thu Nov 26 20:35:49 UTC 1903");
}

} // namespace
