// Opening a trend database: who may, what is refused, and what a new one holds.
#pragma once

#include <string>

#include "libtrend/sqlite/connection.h"

namespace toolkit::trend {

/// Opens the trend database at `path`. Returns null on failure, with the reason in `error`; no
/// file was created or changed then.
[[nodiscard]] Database open_database(const std::string& path, const OpenOptions& options,
                                     std::string& error);

/// A database that is open for recording.
struct RecordedDatabase {
  Database db;              ///< null on failure
  bool is_blank = false;    ///< whether it had no tables yet
  bool is_created = false;  ///< whether there was no file before
};

/// Opens the trend database at `path` for recording, in the journal mode that it has. Where there
/// is no file or an empty one, it is blank: the caller makes the tables. On failure the reason is
/// in `error`, and no file was created or changed.
[[nodiscard]] RecordedDatabase open_to_record(const std::string& path, std::string& error);

/// Makes the tables of a trend database in the open transaction, unless another program has made
/// them by now. False on failure, with the reason in `error`.
[[nodiscard]] bool create_schema(sqlite3* db, std::string& error);

/// Puts a journal mode in force, outside of transactions. False on failure, with the reason in
/// `error`.
[[nodiscard]] bool set_journal(sqlite3* db, bool traditional, std::string& error);

/// Whether the file of the database was removed or renamed while it was open.
[[nodiscard]] bool has_moved(sqlite3* db);

/// Removes the file of a database that is still blank, unless another program is writing it.
void remove_blank(sqlite3* db);

}  // namespace toolkit::trend
