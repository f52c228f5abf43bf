// Opening a trend database to read it.
#pragma once

#include <string>

#include "libtrend/sqlite/connection.h"

namespace toolkit::trend {

/// Opens the trend database in the file `name` for reading, and waits up to `options.busy_timeout`
/// seconds while another program keeps everybody out. Nothing is created or changed, except that a
/// lost index of a write-ahead log is made again, see reader_vfs.h. Returns null on failure, with
/// the reason in `error`.
///
/// After each query through it, `is_outdated` of reader_vfs.h must be asked.
[[nodiscard]] Database open_to_read(const std::string& name, const OpenOptions& options,
                                    std::string& error);

}  // namespace toolkit::trend
