// Copies a database that others may be writing.
#pragma once

#include <string>

#include "libtrend/progress.h"

struct sqlite3;

namespace toolkit::trend {

/// Does the work of `CLog::backup` on a connection, within a transaction. Returns false on failure,
/// with the reason in `error`; there is then no new file.
[[nodiscard]] bool back_up(sqlite3* db, const std::string& path, const ReportProgress& progress,
                           std::string& error);

}  // namespace toolkit::trend
