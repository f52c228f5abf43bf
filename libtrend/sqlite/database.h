// Opens trend databases.
#pragma once

#include <string>

#include "libtrend/sqlite/connection.h"

namespace toolkit::trend {

/// Opens the trend database at `path`. Returns null on failure, with the reason in `error`. A file
/// that existed is then unchanged.
///
/// After each query on a database that was opened for reading, the caller must check `is_outdated`
/// of reader_vfs.h.
[[nodiscard]] Database open_database(const std::string& path, const OpenOptions& options,
                                     std::string& error);

/// The same for reading a database that may be damaged.
[[nodiscard]] Database open_damaged_database(const std::string& path, const OpenOptions& options,
                                             std::string& error);

/// Opens the trend database at `path` for recording, and keeps its journal mode. If there is no
/// file, or the file is blank (see `is_blank` of new_database.h), creates an empty trend database
/// in WAL mode. Returns null on failure, with the reason in `error`.
[[nodiscard]] Database open_to_record(const std::string& path, std::string& error);

}  // namespace toolkit::trend
