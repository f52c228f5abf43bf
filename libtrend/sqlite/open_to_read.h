// Opens trend databases to read them.
#pragma once

#include <string>

#include "libtrend/sqlite/connection.h"

namespace toolkit::trend {

/// Opens the trend database in the file `name` for reading. Waits up to `options.busy_timeout`
/// seconds while another program holds an exclusive lock. Creates and changes no file, except that
/// it may create a missing `-shm`, see reader_vfs.h. Returns null on failure, with the reason in
/// `error`.
///
/// After each query the caller must check `is_outdated` of reader_vfs.h.
///
/// With `may_be_damaged`, the file may also be cut off, and its tables may be damaged.
[[nodiscard]] Database open_to_read(const std::string& name, const OpenOptions& options,
                                    bool may_be_damaged, std::string& error);

}  // namespace toolkit::trend
