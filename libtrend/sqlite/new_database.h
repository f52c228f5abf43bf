// New trend databases.
#pragma once

#include <string>

struct sqlite3;

namespace toolkit::trend {

/// Puts an empty trend database at `path`, where there is no file: in one step, so that nobody ever
/// sees a part of it. If another program puts a file there first, that file stays and the call
/// succeeds. If `path` is a symbolic link to a place without a file, the database is made in that
/// place. `page_size` is in bytes; 0, or a size that SQLite does not have, stands for its default.
/// The database is in WAL mode, or with `traditional_journal` in rollback mode. Only where a log or
/// journal of another database was left there, the new file is empty and `fill_database` has to
/// follow.
///
/// Returns false on failure, with the reason in `error`; no file of ours is left then. Only if the
/// name of the new file may not be on the disk yet, because its folder can't be synced, the empty
/// database stays although the call fails.
[[nodiscard]] bool create_database(const std::string& path, unsigned page_size,
                                   bool traditional_journal, std::string& error);

/// Whether there is nothing in an open database: in a file of no bytes, or one that `fill_database`
/// was not done with.
[[nodiscard]] bool is_blank(sqlite3* db);

/// Makes a blank database a trend database, unless another program does so at the same time. Where
/// this is interrupted, the database is still blank. Waits up to `busy_timeout` seconds for locks.
/// Returns false on failure, with the reason in `error`.
[[nodiscard]] bool fill_database(sqlite3* db, bool traditional_journal, unsigned busy_timeout,
                                 std::string& error);

/// Puts a journal mode in force, outside of transactions. Waits up to `busy_timeout` seconds for
/// programs that use the database. Returns false on failure, with the reason in `error`.
[[nodiscard]] bool set_journal(sqlite3* db, bool traditional, unsigned busy_timeout,
                               std::string& error);

}  // namespace toolkit::trend
