// reliability_Silence.cpp: the list of what may be silent, with reasons.
#include "reliability_Silence.h"

#include <string_view>

namespace {

using Effect = device_fault::Effect;

/// Where a database has its count of saves [byte]; fixed by the file format of SQLite.
constexpr std::uint64_t countPlace = 24;
constexpr std::size_t countSize = 4;

bool isGrowing(std::string_view name) {
  return name.find(".new-") != std::string_view::npos;
}

bool isJournal(std::string_view name) {
  return name.ends_with("-journal");
}

char const* reasonForSilenceOfOpening(bool isLasting, device_failure const& failed) {
  if (failed.name.empty() && !failed.wasNeeded) {
    return "there was nothing to sync";
  }
  return !isLasting && (isGrowing(failed.name) || isJournal(failed.name)) ? "it was opened again" : nullptr;
}

char const* reasonForSilenceOfReading(device_failure const& failed) {
  return failed.place == countPlace && failed.size == countSize
             ? "the count of saves is one more behind a save, whether or not it can be read again"
             : nullptr;
}

} // namespace

char const* reasonForSilence(device_fault const& fault, device_failure const& failed) {
  if (fault.effect == Effect::Short) {
    return "the rest is read or written";
  }
  switch (failed.call) {
  case device_call::Open:
    return reasonForSilenceOfOpening(fault.lasting, failed);
  case device_call::Read:
    return reasonForSilenceOfReading(failed);
  case device_call::Sync:
    return failed.wasNeeded ? nullptr : "there was nothing to sync";
  case device_call::Delete:
    return isGrowing(failed.name) ? "whoever makes the file next deletes it" : nullptr;
  case device_call::Rename:
    return fault.effect == Effect::LateError ? "the file has its name" : nullptr;
  case device_call::Lock:
    return failed.wasNeeded ? nullptr : "the lock was given back in part, and ends with the file's closing";
  case device_call::Write:
  case device_call::Truncate:
    return nullptr;
  }
  return nullptr;
}

std::vector<std::string> hushedUp(device_fault const& fault, std::vector<device_failure> const& failures) {
  std::vector<std::string> found;
  for (device_failure const& failed : failures) {
    if (reasonForSilence(fault, failed) == nullptr) {
      found.push_back(std::string("a failed ") + nameOf(failed.call) + " of " +
                      (failed.name.empty() ? "the folder" : "'" + failed.name + "'"));
    }
  }
  return found;
}
