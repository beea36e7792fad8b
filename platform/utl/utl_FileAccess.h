// utl_FileAccess.h: what a file is opened for.
#pragma once

/// The codes are fixed: callers pass them on as numbers.
enum class utl_FileAccess : int {
  Read = 0,      ///< read what is there
  Write = 1,     ///< read and write what is there
  Create = 2,    ///< make a new file, in place of one that is there
  CreateNew = 3, ///< make a new file where nothing is there
};

static_assert(static_cast<int>(utl_FileAccess::Read) == 0);
static_assert(static_cast<int>(utl_FileAccess::Write) == 1);
static_assert(static_cast<int>(utl_FileAccess::Create) == 2);
static_assert(static_cast<int>(utl_FileAccess::CreateNew) == 3);
