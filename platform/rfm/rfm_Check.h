// rfm_Check: what a check of a whole file asks for beside the database in it.
#pragma once

#include "os_Export.h"
#include "rfm_File.h"

#include <cstdint>

/// The collection handle that the header of a file says comes next. Throws rfm_Exception (Damaged) when it
/// says none.
DDR_API std::int64_t rfm_nextHandle(rfm_File const& file);
