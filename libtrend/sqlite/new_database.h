// Creates new trend databases.
#pragma once

#include <string>

struct sqlite3;

namespace toolkit::trend {

/// Creates an empty trend database at `path`, where there is no file. It appears there in one step,
/// so that no program ever sees an incomplete file. If another program creates the file first, that
/// file stays and the call succeeds. If `path` is a symbolic link to a file that does not exist,
/// that file is created. `page_size` is in bytes; for 0, or a size that SQLite does not support,
/// SQLite's default is used. The database is in WAL mode, or with `traditional_journal` in rollback
/// mode. If a log or journal of another database was left there, the new file is empty, and
/// `fill_database` must be called next.
///
/// Returns false on failure, with the reason in `error`; no file is then left. Exception: if only
/// the sync of the folder fails, so that the name of the new file may not be on the disk yet, the
/// empty database stays.
[[nodiscard]] bool create_database(const std::string& path, unsigned page_size,
                                   bool traditional_journal, std::string& error);

/// Returns whether an open database is still blank: its file is empty, or `fill_database` was
/// interrupted.
[[nodiscard]] bool is_blank(sqlite3* db);

/// Turns a blank database into a trend database. Does nothing if another program has just done so.
/// If this is interrupted, the database is still blank. Waits up to `busy_timeout` seconds for
/// locks. Returns false on failure, with the reason in `error`.
[[nodiscard]] bool fill_database(sqlite3* db, bool traditional_journal, unsigned busy_timeout,
                                 std::string& error);

/// Changes the journal mode. No transaction may be open. Waits up to `busy_timeout` seconds for
/// programs that use the database. Returns false on failure, with the reason in `error`.
[[nodiscard]] bool set_journal(sqlite3* db, bool traditional, unsigned busy_timeout,
                               std::string& error);

}  // namespace toolkit::trend
