#include "trendtool/common/rows.h"

#include <algorithm>
#include <ctime>
#include <limits>

using toolkit::trend::CDeviceData;
using toolkit::trend::CLog;

namespace {

constexpr std::uint64_t CHUNK_ROWS = 512;

/// Cuts `range` so that the row at `time` and those before it are not read again. Returns false if
/// nothing is left.
bool continue_after(std::time_t time, bool ascending, std::pair<long, long>& range) {
  if (!ascending) {
    // A row's time is above 0, and a bound of 0 leaves no rows.
    range.second = static_cast<long>(time) - 1;
    return range.second > 0;
  }
  constexpr std::time_t LAST = std::numeric_limits<long>::max();
  range.first = static_cast<long>(std::min(time, LAST - 1)) + 1;
  return time < LAST;
}

}  // namespace

std::string read_rows(CLog& log, const RowRequest& request, const TakeRows& take) {
  std::pair<long, long> range = request.range;
  std::uint64_t left =
      request.limit == 0 ? std::numeric_limits<std::uint64_t>::max() : request.limit;
  while (left > 0) {
    const std::uint64_t count = std::min(left, CHUNK_ROWS);
    CDeviceData chunk;
    if (log.get_trend_data(chunk, request.selection, request.periods, range,
                           static_cast<unsigned>(count), 0, request.ascending, true) != 0) {
      return "can't read the rows of device '" + request.selection.device.path +
             "': " + log.error();
    }
    if (chunk.snapshots.empty() || !take(chunk.snapshots)) break;
    left -= chunk.snapshots.size();
    if (chunk.snapshots.size() < count) break;
    if (!continue_after(chunk.snapshots.back().timestamp, request.ascending, range)) break;
  }
  return "";
}
