// Reading the rows of a device, chunk by chunk.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "libtrend/log.h"

/// Which rows are wanted.
struct RowRequest {
  toolkit::trend::CDeviceParams selection;
  std::vector<toolkit::trend::CPeriodProperties> periods;
  std::pair<long, long> range = {-1, -1};  ///< as `CLog::get_trend_data` takes it
  std::uint64_t limit = 0;                 ///< the most rows; 0 for all of them
  bool ascending = false;                  ///< the oldest rows first
};

/// Takes rows in the order that was asked for. Returns false to end the reading.
using TakeRows = std::function<bool(const std::vector<toolkit::trend::CSnapshot>& rows)>;

/// Reads the rows of `request` and calls `take` for each chunk of them, which is never empty. Only
/// one chunk is in memory at a time. Returns why reading failed, or an empty text, also after
/// `take` ended it.
[[nodiscard]] std::string read_rows(toolkit::trend::CLog& log, const RowRequest& request,
                                    const TakeRows& take);

/// Takes the bounds of a range of times, both inclusive, whose rows can't be read, and why.
using TakeGap = std::function<void(long first, long last, const std::string& reason)>;

/// Does the same on a damaged database: where rows can't be read, goes on with the next ones that
/// can, and calls `take_gap`. A gap may be longer than the damage by a few rows.
void read_rows_around_damage(toolkit::trend::CLog& log, const RowRequest& request,
                             const TakeRows& take, const TakeGap& take_gap);
