// How SQLite reaches the files of a database that is only read: a thin layer over its own way.
//
// A plain connection of SQLite to a database in WAL mode makes the files `-wal` and `-shm` where
// they are missing, also for a user who may only read. They then belong to that user, and the
// recorder can no longer write. Connections through this layer leave nothing behind:
//
// - They hold SQLite's SHARED lock on a database in WAL mode for as long as they are open. A writer
//   makes the `-wal` before it writes anything, and under that lock no writer can delete it. So a
//   database without a `-wal` has not changed since the lock was taken. It is read as a file that
//   does not change, for which SQLite makes no files.
// - They never make or delete a `-wal`. They make a `-shm`, which it takes to read a `-wal`, only
//   for the owner of the database and for root, who hands it to the owner.
#pragma once

struct sqlite3;

namespace toolkit::trend {

/// The name of the layer for `sqlite3_open_v2`, only with `SQLITE_OPEN_READONLY`. To open a file
/// fails with SQLITE_BUSY at once if another program keeps the lock from us. Null if SQLite refuses
/// the layer, which happens only where it can't start at all.
[[nodiscard]] const char* reader_vfs();

/// Whether a query through this connection may have had a wrong answer, because a program started
/// to write into a database that was read as one that does not change, or because the database went
/// into WAL mode. The answer must then be thrown away. A new connection, opened before this one is
/// closed, sees everything.
[[nodiscard]] bool is_outdated(sqlite3* db);

/// Why the layer refused to open or make a file that SQLite wanted, in words; null if it did not.
[[nodiscard]] const char* reader_vfs_refusal(sqlite3* db);

/// Whether the reason is that there is no `-shm` yet. A writer that starts makes it in a moment.
[[nodiscard]] bool lacks_index(sqlite3* db);

}  // namespace toolkit::trend
