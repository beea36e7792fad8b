// The times of a database as text.
#include "ddr_Ddb.h"
#include "ddr_TimeText.h"

#include "atr_StringBase.h"
#include "nex_Exception.h"
#include "os_Time.h"

#include <cstdio>
#include <cstdlib>

namespace {

constexpr std::size_t maxSizeDate = 80;
constexpr char const* zonePlaceholder = "<zone>";

/// Whether a zone name holds a character of more than one byte in the current locale.
bool IsNotPlainText(char const* zone) {
  for (char const* at = zone; *at != '\0'; ++at) {
    // Kept on purpose: a signed byte never exceeds 127, so only the length of the character decides.
    int const code = static_cast<signed char>(*at);
    if (std::mblen(at, 2) != 1 || code > 127) {
      return true;
    }
  }
  return false;
}

/// The zone as its distance from Greenwich.
/// Kept on purpose: a distance of zero prints with a minus sign, and zones 12 hours and more to the east wrap
/// over to the other side; texts in databases and logs are compared with these.
std::string offsetText(std::tm const& local) {
  long minutes = os_timezone() / 60;
  if (local.tm_isdst == 1) {
    minutes -= 60;
  }
  while (minutes < 0) {
    minutes += 1440;
  }
  char sign = '-';
  if (minutes > 720) {
    minutes = 1440 - minutes;
    sign = '+';
  }
  long const hours = minutes / 60;
  char text[maxSizeDate];
  std::snprintf(text, sizeof text, "GMT%c%02d:%02d", sign, static_cast<int>(hours),
                static_cast<int>(minutes - hours * 60));
  return text;
}

} // namespace

cow_String ddr_timeText(int seconds) {
  std::int64_t const wide = seconds;
  std::tm const local = *_localtime64(&wide);
  char date[maxSizeDate];
  if (os_strftime(date, maxSizeDate, "%a %b %d %H:%M:%S <zone> %Y", &local) == 0) {
    nex_Exception::Throw(
        nex_AssertException("strftime(date,maxSizeDate,\"%a %b %d %H:%M:%S <zone> %Y\", localtime(&t))"),
        "generated/ddr/impl/ddr_Ddb", 289);
  }
  char name[maxSizeDate] = {};
  bool const named = os_strftime(name, maxSizeDate, "%Z", &local) != 0 && !IsNotPlainText(name);
  atr_StringBase text{std::string(date)};
  text.Substitute(zonePlaceholder, named ? std::string(name) : offsetText(local));
  return cow_String(std::string_view(text.Text()).substr(0, maxSizeDate));
}

cow_String ddr_Ddb::CreateTime() const {
  if (creationTimeText.IsEmpty()) {
    creationTimeText = ddr_timeText(creationTime);
  }
  return creationTimeText;
}

// Kept on purpose: a later write stamps a new time, and the text given out first stays for this record.
cow_String ddr_Ddb::ModifyTime() const {
  if (modifyTimeText.IsEmpty()) {
    modifyTimeText = ddr_timeText(modifyTime);
  }
  return modifyTimeText;
}
