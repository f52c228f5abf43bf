// The VFS of readers: a thin layer over SQLite's default VFS, the module that accesses the files.
//
// An ordinary SQLite connection to a database in WAL mode creates the files `-wal` and `-shm` if
// they are missing, even for a user who may only read. The files then belong to that user, and the
// recorder can no longer write. Connections through this VFS leave no such files:
//
// - They hold SQLite's SHARED lock on a database in WAL mode for as long as they are open. A writer
//   creates the `-wal` before it writes anything, and cannot delete it while a reader holds that
//   lock. So a database without a `-wal` has not changed since the lock was taken. It is read as
//   immutable, and SQLite then creates no files.
// - They never create or delete a `-wal`. To read a `-wal`, SQLite needs a `-shm`. They create it
//   only for the owner of the database and for root; SQLite then gives root's file to the owner.
#pragma once

struct sqlite3;

namespace toolkit::trend {

/// Returns the name of this VFS for `sqlite3_open_v2`, which must be called with
/// `SQLITE_OPEN_READONLY`. It fails with SQLITE_BUSY at once if another program holds an exclusive
/// lock. Returns null if SQLite refuses the VFS, which happens only if SQLite can't start at all.
[[nodiscard]] const char* reader_vfs();

/// Returns whether the result of a query through this connection may be wrong: a program started to
/// write to a database that was read as immutable, or the database was switched to WAL mode. The
/// result must then be discarded. A new connection, opened before this one is closed, sees all
/// changes.
[[nodiscard]] bool is_outdated(sqlite3* db);

/// Returns why this VFS refused to open or create a file for SQLite, as a text; null if it did not.
[[nodiscard]] const char* reader_vfs_refusal(sqlite3* db);

}  // namespace toolkit::trend
