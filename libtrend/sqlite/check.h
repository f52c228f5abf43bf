// Checks a whole database.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "libtrend/progress.h"
#include "libtrend/records.h"

struct sqlite3;

namespace toolkit::trend {

/// Does the work of `CLog::check` on a connection to a database of the given version of the format,
/// within a transaction. Returns false on failure, with the reason in `error`.
[[nodiscard]] bool check_database(sqlite3* db, std::int64_t version, const ReportProgress& progress,
                                  std::vector<CDamage>& damage, std::string& error);

}  // namespace toolkit::trend
