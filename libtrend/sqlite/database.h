// Opening a trend database.
#pragma once

#include <string>

#include "libtrend/sqlite/connection.h"

namespace toolkit::trend {

/// Opens the trend database at `path`. Returns null on failure, with the reason in `error`. A file
/// that was there is not changed then.
///
/// After each query through a database that was opened for reading, `is_outdated` of reader_vfs.h
/// must be asked.
[[nodiscard]] Database open_database(const std::string& path, const OpenOptions& options,
                                     std::string& error);

/// Opens the trend database at `path` for recording, in the journal mode that it has. Where there
/// is no file, or one with nothing in it, an empty trend database in WAL mode is made. Returns null
/// on failure, with the reason in `error`.
[[nodiscard]] Database open_to_record(const std::string& path, std::string& error);

}  // namespace toolkit::trend
