// The catalogue of the module's persistent classes. Names, numbers and order are stored in every file.
#pragma once

#include "cls_ClassRegistrar.h"

#include <array>

/// The schema of new databases, and the newest that this release reads. Stored.
inline constexpr int ddr_currentSchema = 891;

using ddr_ClassRoutine = void (*)(cls_ClassRegistrar&);

/// The routines that describe the module's twenty classes, in the order of their registration.
std::array<ddr_ClassRoutine, 20> const& ddr_classRoutines() noexcept;
