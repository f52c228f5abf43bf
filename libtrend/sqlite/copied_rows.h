// The table `copied`, which says what was copied from other databases. See docs/trend-database.md.
#pragma once

#include <cstdint>
#include <string>

struct sqlite3;

namespace toolkit::trend {

/// A row of the table: a series of this database has what a series of another one had up to one of
/// its changes.
struct CopiedRow {
  std::string source;  ///< the id of the other database
  std::int64_t series_id = 0;
  std::int64_t change = 0;  ///< 0 if nothing is known
};

// Each of these functions returns false on failure, with the reason in `error`. The table need not
// be there.

/// Sets `row.change` to that of the row with the same source and series.
[[nodiscard]] bool read_copied(sqlite3* db, CopiedRow& row, std::string& error);

/// Writes `row`, in place of one with the same source and series.
[[nodiscard]] bool write_copied(sqlite3* db, const CopiedRow& row, std::string& error);

/// Removes all rows of a series.
[[nodiscard]] bool remove_copied(sqlite3* db, std::int64_t series_id, std::string& error);

}  // namespace toolkit::trend
