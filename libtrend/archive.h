// Archives: trend databases on a server.
#pragma once

#include <string>

namespace toolkit::trend {

/// How a new archive is laid out.
struct ArchiveOptions {
  /// Into how many parts the rows are divided by their series, which may be on servers of their
  /// own; 0 for one part.
  unsigned partitions = 0;
  /// How many months of rows are to be kept, which is noted for those who purge; 0 for all.
  unsigned retention_months = 0;
};

/// Creates an empty archive in the database at `url`, which starts with `postgresql://` or
/// `postgres://`. Returns 0, or -1 on failure with the reason in `error`.
[[nodiscard]] __attribute__((visibility("default"))) int create_archive(
    const std::string& url, const ArchiveOptions& options, std::string& error);

}  // namespace toolkit::trend
