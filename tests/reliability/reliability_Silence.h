// reliability_Silence: which failures of the device need not be told.
#pragma once

#include "fault_device.h"

#include <string>
#include <vector>

/// Why a call may end as if nothing had happened though one of its calls to the device has failed: whatever
/// is not known to do no harm must be told.
/// @param fault what went wrong
/// @param failed one of the calls that it met
/// @returns null when it must be told
char const* reasonForSilence(device_fault const& fault, device_failure const& failed);

/// What a call that has ended as if nothing had happened should have told: "a failed sync of 'a'", one for
/// each.
std::vector<std::string> hushedUp(device_fault const& fault, std::vector<device_failure> const& failures);
