// The tables of a database: made for a new one, and changed from an older version of the format.
#pragma once

#include <string>

struct sqlite3;

namespace toolkit::trend {

/// Makes all tables in a database without any, within a transaction. Returns false on failure, with
/// the reason in `error`.
[[nodiscard]] bool create_tables(sqlite3* db, std::string& error);

/// Turns a database of version 1 into one of version 2, within a transaction. No row is rewritten.
/// Returns false on failure, with the reason in `error`.
[[nodiscard]] bool upgrade(sqlite3* db, std::string& error);

}  // namespace toolkit::trend
