// hasty_files: SQLite files that are never synced, for programs whose files need not survive anything.
#pragma once

/// Makes SQLite leave out every sync from now on, those of the folder as a file is deleted too.
void use_hasty_files();
