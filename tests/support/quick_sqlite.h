// quick_sqlite: SQLite without what one thread with small files can do without.
#pragma once

/// From now on SQLite takes no locks between threads, counts no memory, and keeps the blocks that it frees
/// for its next use, by size. A sanitizer of addresses still sees who touches a block that is free, or more
/// of one than SQLite asked for. One thread at a time may use SQLite then, and no connection may be open now.
void use_quick_sqlite();
