// rfm_SchemaSize: what the schema of a file asks of memory, before SQLite takes it in.
#pragma once

#include <sqlite3.h>

/// Whether SQLite can take in the schema of a file. It keeps each table, view and trigger in memory while the
/// file is open: a plain table takes a few times its text, and a condition or a default sixty times. Reads
/// the pages itself, each once. Pages that cannot be those of a schema are left to SQLite, which refuses
/// them.
/// @param file an open file of SQLite's; it should not change meanwhile
/// @returns SQLITE_OK; SQLITE_CORRUPT when no sound file of its size has such a schema; otherwise what the
///          device answered
int rfm_checkSchemaSize(sqlite3_file& file);
