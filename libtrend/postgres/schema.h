// The tables of an archive; docs/archive.md describes them.
#pragma once

#include <string>

#include "libtrend/archive.h"
#include "libtrend/postgres/connection.h"

namespace toolkit::trend {

/// Returns false, with the reason in `error`, if the schema of `connection` is not an archive of
/// the version that this library knows. `error` is empty where `connection` has the reason.
[[nodiscard]] bool expect_archive(Connection& connection, std::string& error);

/// See `create_archive` in libtrend/archive.h. Returns false on failure.
[[nodiscard]] bool create_schema(const std::string& url, const ArchiveOptions& options,
                                 std::string& error);

}  // namespace toolkit::trend
