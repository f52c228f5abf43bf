// The trend data query: one pass over the rows of several series, merged by time.
#pragma once

#include <cstdint>
#include <vector>

#include "libtrend/query/engine.h"
#include "libtrend/records.h"

namespace toolkit::trend {

/// Which rows of a device a query returns; see `CLog::get_trend_data`.
struct RowQuery {
  const CDeviceParams& device;
  const std::vector<CPeriodProperties>& periods;
  std::int64_t earliest = 0;  ///< both at least 1 and at most MAX_TIMESTAMP
  std::int64_t latest = 0;
  std::uint64_t count = 0;  ///< at least 1
  std::uint64_t offset = 0;
  bool ascending = false;
};

/// Appends the rows of `query` to `rows`. Returns false on failure, with the reason in
/// `reader.error()`. Must be called within `LogReader::run`.
[[nodiscard]] bool run_query(LogReader& reader, const RowQuery& query,
                             std::vector<CSnapshot>& rows);

}  // namespace toolkit::trend
