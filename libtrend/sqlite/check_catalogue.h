// Checks what a database has besides rows.
#pragma once

#include <cstdint>
#include <vector>

#include "libtrend/records.h"
#include "libtrend/sqlite/damage_list.h"

struct sqlite3;

namespace toolkit::trend {

/// Runs SQLite's own checks of the file and of references between tables, and adds what they find
/// to `found`.
void check_structure(sqlite3* db, DamageList& found);

/// Checks devices, parameters and series of a database of `version`, apart from checksums. Adds
/// damage to `found`. Appends the series that can have rows to `series`, in the order of their ids;
/// those whose interval is too long for the record have 0 minutes.
void check_catalogue(sqlite3* db, std::int64_t version, DamageList& found,
                     std::vector<CSeries>& series);

}  // namespace toolkit::trend
